// The directory entries of a compound file as an explicit tree: one node per entry, each
// storage listing the members that its child and sibling links name, in the order the build
// finds them. Entries that no link reaches hang under the root.
#pragma once

#include <cstdint>
#include <memory>
#include <ostream>
#include <vector>

#include "cfb_vornak/format/Directory_Entry.h"
#include "cfb_vornak/model/Cfb_Directory_Entry_Node.h"

namespace vrk {

class Cfb_Directory_Tree {
  public:
    static constexpr uint32_t kNotBuilt = 0;
    static constexpr uint32_t kNoEntries = 1;
    static constexpr uint32_t kBuilt = 2;
    // Both the build and the print stop after this many nodes, which ends the unfolding of
    // shared members (a member named by two storages is walked once per storage).
    static constexpr std::size_t kMaxWalkedNodes = 100000;

    // Builds the tree; 0 when it is built (tree_state kBuilt), -1 when there is no entry or
    // no root entry.
    [[nodiscard]] int32_t build_cfb_directory_tree(
        const std::vector<Directory_Entry>& directory_entrys);
    // The tree as text, depth first from the root; nothing when there is no root.
    void print_cfb_directory_tree(std::ostream& out) const;

    uint32_t tree_state = kNotBuilt;
    Cfb_Directory_Entry_DirNode* root = nullptr;  // the last entry of type 5
    std::vector<std::unique_ptr<Cfb_Directory_Entry_AbstractNode>> nodes;  // in DID order
    std::vector<Directory_Entry> entries;  // the tree's own copy of the directory

  private:
    void place_members();
};

}  // namespace vrk
