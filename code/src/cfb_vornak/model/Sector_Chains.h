// The sector chains that an allocation table (the SAT or the MiniSAT) describes. Both walks
// are bounded and end at rings, so a damaged table yields what survives of its chains.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "cfb_vornak/format/cfb_types.h"

namespace vrk {

// A chain that holds more ids than this is dropped and ends the extraction.
inline constexpr std::size_t kMaxExtractedChainIds = 100000;
// The single-chain walk follows at most this many links after its start.
inline constexpr uint32_t kMaxChainWalkSteps = 9999;

// One chain of a table, kept as its first id and its number of ids: every id after the first
// is the table's entry at the id before it, so the table holds the rest of the chain.
struct Chain_Extent {
    sid_t head = 0;
    uint32_t length = 0;
    bool operator==(const Chain_Extent& other) const {
        return head == other.head && length == other.length;
    }
};

// Where the entries of one table sector went in the whole table: `count` entries from index
// `first`. A sector read more than once has one record per reading.
struct Table_Sector {
    sid_t sid = 0;
    uint32_t count = 0;
    std::size_t first = 0;
    bool operator==(const Table_Sector& other) const {
        return sid == other.sid && count == other.count && first == other.first;
    }
};

enum class Chain_Event {
    ring,      // a chain met one of its own ids again; the chain was dropped
    too_long,  // a chain grew past kMaxExtractedChainIds; it was dropped, extraction ended
};

// Every chain of `table`: one from each id 0..size-1 that no entry links to, in ascending
// order. A chain ends with the special value that closed it (kept) or with an id outside the
// table. Each dropped chain is reported through `on_event` before the walk goes on.
std::vector<Chain_Extent> extract_sector_chains(const sids_array& table,
                                                const std::function<void(Chain_Event)>& on_event);

// Visit marks for chain walks over one table: one bit per id inside it, sized once and left
// clear after every walk, so that many walks cost what their chains cost.
class Chain_Marks {
  public:
    // Clear marks for the ids of a table of `size` entries.
    void fit(std::size_t size);
    void set(std::size_t id) { m_words[id / 64] |= uint64_t{1} << (id % 64); }
    void reset(std::size_t id) { m_words[id / 64] &= ~(uint64_t{1} << (id % 64)); }
    [[nodiscard]] bool test(std::size_t id) const {
        return ((m_words[id / 64] >> (id % 64)) & 1u) != 0;
    }

  private:
    std::vector<uint64_t> m_words;
    std::size_t m_size = static_cast<std::size_t>(-1);
};

// The chain from `start`: follows links until a ring, ENDOFCHAIN, an id past the table or
// `limit` links, then appends ENDOFCHAIN. FREESECT, FATSECT and DIFSECT are kept as ids (the
// next step then ends past the table), so callers check each id again. `marks` are clear on
// entry and on return.
sids_list walk_sector_chain(const sids_array& table, sid_t start, uint32_t limit,
                            Chain_Marks& marks);
// The same walk with marks of its own and at most kMaxChainWalkSteps links.
sids_list walk_sector_chain(const sids_array& table, sid_t start);

}  // namespace vrk
