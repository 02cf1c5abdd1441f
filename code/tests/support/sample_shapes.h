// Named compound file shapes for tests (listed, each with what it covers, in sample_shapes.cpp):
// item trees with the builder options to write them, and the streams and storages a reader must
// find in the written file. Stream contents are reproducible pseudo-random bytes.
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
// Throws std::invalid_argument for an unknown name.
Sample_Shape make_sample_shape(const std::string& name);

// The streams and storages of a tree, depth first in child order.
void collect_expected(const Cfb_Fs_Item_DirNode& root, std::vector<Expected_Stream>& streams,
                      std::vector<std::u16string>& storages);

std::string utf16_to_utf8(const std::u16string& units);

// The manifest olefile_check.py reads: JSON listing the streams (path, size, CRC-32 of the
// bytes) and the storages.
std::string manifest_json(const Sample_Shape& shape);

// Writes <folder>/<name>.cfb and <folder>/<name>.cfb.json; false on a write failure, with the
// failing path in `error`.
bool write_sample_files(const std::wstring& folder, const Sample_Shape& shape, std::string& error);

}  // namespace vrk::test
