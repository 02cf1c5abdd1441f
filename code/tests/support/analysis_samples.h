// Descriptions, whole-file reads and folder listings for the report, release and analysis tests.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "cfb_vornak/builder/Cfb_Builder.h"
#include "cfb_vornak/format/cfb_types.h"
#include "cfb_vornak/model/Cfb_File.h"

namespace vrk::test {

// A description naming `path` in all three fields.
File_Description describe(const std::wstring& path);

// The whole file, or empty; `exists` tells an empty file from a missing one.
std::vector<uint8_t> read_bytes(const std::wstring& path, bool* exists = nullptr);
// Names (UTF-8) of the entries directly in `folder`.
std::set<std::string> folder_names(const std::wstring& folder);
// Every entry below `folder`, as paths relative to it (UTF-8, "/" joined).
std::set<std::string> tree_names(const std::wstring& folder);

// Rewrites the name of entry `did` (and its valid size).
void set_entry_name(std::vector<uint8_t>& file, const Build_Layout& layout, uint32_t did,
                    const std::u16string& name);

// A built file at `path` parsed by the full constructor, with `output` as its output folder.
std::unique_ptr<Cfb_File> open_parsed(const std::wstring& path, const std::wstring& output);

}  // namespace vrk::test
