// What a salvage hands back: the report (text or JSON), the recovered tree as folders and
// files, and a fresh compound file written by the builder from the recovered tree.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "cfb_vornak/builder/Cfb_Fs_Item.h"
#include "cfb_vornak/salvage/Salvage.h"
#include "common/platform.h"

namespace vrk {

// One line per stream ("recovered", "partial" with the missing ranges, "lost"), the evidence
// used, the chosen layout and why, one line per unclaimed chain (its name under --extract,
// first sector and file offset), then the summary line.
std::string salvage_report_text(const Salvage_Result& result);
std::string salvage_report_json(const Salvage_Result& result);
// "N streams: R recovered, P partial, L lost; U unclaimed chains"
std::string salvage_summary(const Salvage_Result& result);

// A name that is safe as one component under a folder: separators, NUL and characters the
// platform forbids become '_'; names the file system refuses (".", "..", devices, trailing dot
// or blank) are changed until they pass is_refused_file_name. Never empty.
std::wstring safe_component(const std::wstring& name);

// Writes the recovered tree under `folder` (created if needed): storages as folders, streams
// as files, unclaimed chains as lost/sector_N.bin. Partial streams only with `keep_partial`,
// their missing ranges as zero bytes. Every folder and file is created new and never through
// a link; a name already taken on disk gets the next free "~N" suffix. Nothing is written
// outside `folder` and nothing that existed before is written to. False with a reason on a
// file-system failure. `file`, when given, is the input open for reading: long runs are
// then copied from it by the system (same bytes).
[[nodiscard]] bool salvage_extract(const uint8_t* data, uint64_t size, const Salvage_Result& result,
                                   const std::wstring& folder, bool keep_partial,
                                   std::string& error, const platform::Input_File* file = nullptr);

// The recovered tree as builder items (root's class id, state bits and times included).
std::unique_ptr<Cfb_Fs_Item_DirNode> salvage_tree(const uint8_t* data, uint64_t size,
                                                  const Salvage_Result& result, bool keep_partial);

// Writes the recovered tree to `path` as a fresh compound file through the builder, the
// streams' bytes read from the input as the file is written (never all held in memory).
// Partial streams only with `keep_partial`, as salvage_tree gives them. False with a reason.
// `file` as for salvage_extract; a `path` that reaches it is refused and nothing is written.
// `mode` staged (the tool's) puts the file under `path` only once it is whole.
[[nodiscard]] bool salvage_write(const uint8_t* data, uint64_t size, const Salvage_Result& result,
                                 const std::wstring& path, bool keep_partial, std::string& error,
                                 const platform::Input_File* file = nullptr,
                                 platform::Create_Mode mode = platform::Create_Mode::replace);

}  // namespace vrk
