// A set of sector ids below a fixed bound, kept as a bitmap: the repair sorts every sector of
// a file into such sets, and random stream data makes millions of members possible, which a
// node-based set would hold at many times the memory and a fraction of the speed. Iteration
// is in ascending order, like an ordered set.
#pragma once

#include <cstdint>
#include <vector>

#include "cfb_vornak/format/cfb_types.h"

namespace vrk {

class Sector_Id_Set {
  public:
    // Empties the set and makes ids 0 .. bound - 1 storable.
    void reset(uint64_t bound);

    // Ids at or past the bound are never members; inserting one is refused (false).
    bool insert(sid_t sid);
    bool erase(sid_t sid);
    [[nodiscard]] bool contains(sid_t sid) const {
        return sid < m_bound && ((m_words[sid >> 6] >> (sid & 63u)) & 1u) != 0;
    }
    [[nodiscard]] std::size_t size() const { return m_size; }
    [[nodiscard]] bool empty() const { return m_size == 0; }
    // The smallest member; ENDOFCHAIN when empty.
    [[nodiscard]] sid_t first() const;
    // Every member, ascending.
    [[nodiscard]] std::vector<sid_t> members() const;

  private:
    uint64_t m_bound = 0;
    std::size_t m_size = 0;
    std::vector<uint64_t> m_words;
};

}  // namespace vrk
