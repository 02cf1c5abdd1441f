#include "cfb_vornak/builder/Sibling_Tree_Layout.h"

#include "cfb_vornak/format/cfb_types.h"

namespace vrk {

namespace {

constexpr uint8_t kRed = 0;
constexpr uint8_t kBlack = 1;

// Upper case of the scripts with simple one-to-one case pairs in the Basic Multilingual Plane
// ranges used by names (Latin-1, Greek, Cyrillic); other units compare as they are.
char16_t upper_unit(char16_t c) {
    if (c >= u'a' && c <= u'z') return static_cast<char16_t>(c - 0x20);
    if (c >= 0xE0 && c <= 0xFE && c != 0xF7) return static_cast<char16_t>(c - 0x20);
    if (c == 0xFF) return 0x178;
    if (c >= 0x3B1 && c <= 0x3C9 && c != 0x3C2) return static_cast<char16_t>(c - 0x20);
    if (c >= 0x430 && c <= 0x44F) return static_cast<char16_t>(c - 0x20);
    if (c >= 0x450 && c <= 0x45F) return static_cast<char16_t>(c - 0x50);
    return c;
}

// Midpoint split: the two subtrees of every node differ in size by at most one, so every missing
// child lies at depth `red_depth` or one below it.
uint32_t link_balanced(std::vector<Sibling_Links>& links, const std::vector<uint32_t>& sorted,
                       std::size_t lo, std::size_t hi, uint32_t depth, uint32_t red_depth) {
    if (lo >= hi) return NOSTREAM;
    const std::size_t mid = lo + (hi - lo) / 2;
    const uint32_t node = sorted[mid];
    links[node].left = link_balanced(links, sorted, lo, mid, depth + 1, red_depth);
    links[node].right = link_balanced(links, sorted, mid + 1, hi, depth + 1, red_depth);
    links[node].color = depth == red_depth ? kRed : kBlack;
    return node;
}

}  // namespace

int compare_entry_names(const std::u16string& a, const std::u16string& b) {
    if (a.size() != b.size()) return a.size() < b.size() ? -1 : 1;
    for (std::size_t i = 0; i < a.size(); ++i) {
        const char16_t ua = upper_unit(a[i]);
        const char16_t ub = upper_unit(b[i]);
        if (ua != ub) return ua < ub ? -1 : 1;
    }
    return 0;
}

uint32_t link_siblings(std::vector<Sibling_Links>& links, const std::vector<uint32_t>& sorted,
                       bool as_chain) {
    if (sorted.empty()) return NOSTREAM;
    if (as_chain) {
        for (std::size_t i = 0; i < sorted.size(); ++i) {
            Sibling_Links& node = links[sorted[i]];
            node.left = NOSTREAM;
            node.right = i + 1 < sorted.size() ? sorted[i + 1] : NOSTREAM;
            node.color = kBlack;
        }
        return sorted.front();
    }
    // Levels 0 .. full_levels-1 are full; a partly filled level below them is coloured red.
    uint32_t full_levels = 0;
    while (((uint64_t{1} << (full_levels + 1)) - 1) <= sorted.size()) ++full_levels;
    const bool last_level_partial = ((uint64_t{1} << full_levels) - 1) != sorted.size();
    const uint32_t red_depth = last_level_partial ? full_levels : NOSTREAM;
    return link_balanced(links, sorted, 0, sorted.size(), 0, red_depth);
}

}  // namespace vrk
