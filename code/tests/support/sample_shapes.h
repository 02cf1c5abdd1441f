// Named compound file shapes for tests: item trees with the builder options to write them, and
// the streams and storages a reader must find in the written file.
//
// Shapes (see sample_shape_names()):
//   empty_root          root storage without children
//   nested_storages     storages four levels deep, streams at every level, an empty storage
//   unicode_names       Chinese names, a 31-unit name, names that order by length and case
//   stream_sizes        streams of 0, 63, 64, 4095, 4096, 4097 bytes and 3 MiB
//   many_streams        300 streams in the root: many directory sectors, a deep sibling tree
//   disat               an 8 MiB stream: more than 109 SAT sectors, so DISAT sectors
//   item_fields         clsid, state bits and times set on every item, the root's included
//   version4            stream_sizes written as version 4 with 4096-byte sectors
//   minor_3b            minor version 0x003B
//   sibling_chain       each storage's children as one right-sibling chain
//   tables_at_end       stream data first, tables after it
//   sat_in_last_sector  a SAT sector ends the file
//   all_options         sibling chain, tables at the end and a SAT sector last together
//   slack_chains        mixed shapes whose chains and container run on for 3 sectors of slack,
//                       2 free sectors after the directory
//   older_save          nested storages after an older save of other streams in free sectors
// Stream contents are reproducible pseudo-random bytes.
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

// The sidecar manifest of a shape: JSON naming the file, its streams (path as a list of names,
// size, CRC-32 of the bytes) and its storages.
std::string manifest_json(const Sample_Shape& shape);

// Writes <folder>/<name>.cfb and its manifest <folder>/<name>.cfb.json; false on a write
// failure, with the failing path in `error`.
bool write_sample_files(const std::wstring& folder, const Sample_Shape& shape, std::string& error);

}  // namespace vrk::test
