// Sibling links of one storage's children, as the builder writes them into directory entries.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vrk {

// The order of names inside one storage: the shorter name first, names of equal length by
// their upper-cased UTF-16 units. Returns <0, 0 or >0.
int compare_entry_names(const std::u16string& a, const std::u16string& b);

struct Sibling_Links {
    uint32_t left = 0xFFFFFFFFu;  // NOSTREAM when none
    uint32_t right = 0xFFFFFFFFu;
    uint8_t color = 1;  // 0 red, 1 black
};

// Links the entries `sorted` (indexes into `links`, in compare_entry_names order) and returns
// the index of the subtree's root, or NOSTREAM when `sorted` is empty.
//
// By default the result is a red-black tree: a balanced search tree in which every level but the
// last is full; the nodes of an incomplete last level are red, all others black, so every path
// from the root to a missing child passes the same number of black nodes. With `as_chain` the
// entries form one right-sibling chain in order, all black, as some writers produce.
uint32_t link_siblings(std::vector<Sibling_Links>& links, const std::vector<uint32_t>& sorted,
                       bool as_chain);

}  // namespace vrk
