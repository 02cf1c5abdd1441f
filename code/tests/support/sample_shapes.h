// Named compound file shapes (listed in sample_shapes.cpp): item trees of reproducible bytes,
// the builder options to write them, and the streams and storages a reader must find.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "cfb_vornak/builder/Cfb_Builder.h"
#include "cfb_vornak/builder/Cfb_Fs_Item.h"

namespace vrk::test {

struct Expected_Stream {
    std::u16string path;                         // names from the root joined by '/'
    const Cfb_Fs_Item_FileNode* node = nullptr;  // owned by the shape's root
};

struct Sample_Shape {
    std::string name;  // ASCII, usable as a file name
    Builder_Options options;
    std::unique_ptr<Cfb_Fs_Item_DirNode> root;
    std::vector<Expected_Stream> streams;  // every stream of the tree, depth first
    std::vector<std::u16string> storages;  // every storage but the root, depth first
};

std::vector<std::string> sample_shape_names();
Sample_Shape make_sample_shape(const std::string& name);  // throws std::invalid_argument

// The streams and storages of a tree, depth first in child order (`prefix`: for the recursion).
void collect_expected(const Cfb_Fs_Item_DirNode& root, std::vector<Expected_Stream>& streams,
                      std::vector<std::u16string>& storages, const std::u16string& prefix = u"");

std::string utf16_to_utf8(const std::u16string& units);
std::u16string ascii(const std::string& name);

// The manifest olefile_check.py reads: the streams (path, size, CRC-32) and the storages.
std::string manifest_json(const Sample_Shape& shape);

// Writes <folder>/<name>.cfb and its manifest <name>.cfb.json; false, with `error`, on failure.
bool write_sample_files(const std::wstring& folder, const Sample_Shape& shape, std::string& error);

}  // namespace vrk::test
