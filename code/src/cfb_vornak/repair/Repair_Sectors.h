// Stages 2 and 3 of the header repair: sorting the sectors of a file, by their contents
// alone, into SAT, MiniSAT and DISAT sectors.
//
// 1. Every sector but the last whole one is read once as 128 32-bit values. A sector in which
//    an ordinary value repeats cannot be a table sector and is dropped. A sector holding a
//    FATSECT or DIFSECT marker is a SAT sector (unless its largest ordinary value points past
//    the file); any other sector is a candidate.
// 2. A candidate whose every value names a candidate is a DISAT sector.
// 3. A candidate holding a value past the estimated mini sector range is a SAT sector
//    (unless it points past the file).
// 4. The rest are scored by how well they hold the mini chains that the small streams of the
//    scanned directory would have if stored contiguously; the best are MiniSAT sectors, as
//    many as the estimated mini sector count needs, the others SAT sectors.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <unordered_map>
#include <vector>

#include "cfb_vornak/format/Cfb_Layout.h"
#include "cfb_vornak/format/Directory_Entry.h"
#include "cfb_vornak/format/cfb_types.h"
#include "cfb_vornak/repair/Sector_Id_Set.h"

namespace vrk {

class Input_Blocks;
class Input_View;

inline constexpr std::size_t kValuesPerSector = layout::kIdsPerSector;
using Sector_Values = std::array<uint32_t, kValuesPerSector>;

inline constexpr std::size_t kRepairSectorSize = layout::kSectorSize;

// Reads sector `sid` from (sid + 1) * 512, the offset computed in 32 bits like every table
// read of this library, through the checked view: past the end it throws the view's failure.
class Sector_Values_Reader {
  public:
    explicit Sector_Values_Reader(Input_View& view) : m_view(view) {}

    // The sector's 512 bytes, valid until the next read through the view.
    const uint8_t* bytes(sid_t sid);
    // The sector as 128 little-endian values, in slot order.
    void read(sid_t sid, Sector_Values& values);

  private:
    Input_View& m_view;
};

struct Repair_Sector_Sets {
    Sector_Id_Set candidate_sids;   // neither FATSECT nor DIFSECT: still to be sorted out
    Sector_Id_Set beyond_end_sids;  // candidates whose largest ordinary value is past max_sid
    Sector_Id_Set found_sat_sids;
    Sector_Id_Set found_minisat_sids;
    Sector_Id_Set found_disat_sids;

    // What stage 3 asks of a single candidate, noted while stage 2 has its values at hand:
    // every value lies below max_sid (the others cannot name only candidates, so are never
    // DISAT sectors), or an ordinary value lies past the mini sector range.
    Sector_Id_Set may_be_disat_sids;
    Sector_Id_Set past_mini_range_sids;
    uint64_t mini_sector_count = 0;  // the estimate both stages use
    uint64_t bound = 0;              // ids below it are storable: max_sid, at most 2^32

    // Empties every set; ids 0 .. sector_bound - 1 (at most 2^32) become storable.
    void reset(uint64_t sector_bound);
};

// Stage 2: sectors 0 .. max_sid - 1 (the sector max_sid itself is never looked at), read once
// each, in ascending order: from `blocks` where given, through `reader` otherwise.
void classify_sectors_by_markers(Sector_Values_Reader& reader, uint64_t max_sid,
                                 uint64_t mini_sector_count, Repair_Sector_Sets& sets,
                                 Input_Blocks* blocks = nullptr);

// The chain that a small stream starting at mini sector `start` would have if stored
// contiguously: start, start + 1, ..., start + length - 1, ENDOFCHAIN.
struct Expected_Mini_Chain {
    sid_t start = 0;
    uint32_t length = 0;  // mini sectors, at least 1

    // Entry k of the chain, 0 <= k <= length (the last is ENDOFCHAIN).
    [[nodiscard]] sid_t at(uint32_t k) const { return k < length ? start + k : ENDOFCHAIN; }
};

// One chain for every scanned directory record of size 1 .. cutoff - 1, in layout order.
std::vector<Expected_Mini_Chain> expected_mini_chains(
    const std::map<uint64_t, std::vector<Directory_Entry>>& layout, uint32_t mini_stream_cutoff,
    uint32_t mini_sector_size);

// The score of a MiniSAT candidate against the expected chains, in chain order: a match
// counter m starts at 0 and is never reset; for each chain of length n starting at slot
// p = start mod 128, m grows by the number of leading slots p, p + 1, ... that hold the
// chain's next entries (or becomes n when the chain runs past slot 127 while matching), and
// the score grows by m / n (integer division).
//
// A chain whose first slot does not match leaves m as it is, so the score is evaluated only
// at the chains whose first slot matches, found through an index by (slot, value); the runs of
// chains in between add m / n each, counted per length from sorted position lists.
class Mini_Chain_Scorer {
  public:
    explicit Mini_Chain_Scorer(std::vector<Expected_Mini_Chain> chains);
    [[nodiscard]] uint64_t score(const Sector_Values& values) const;

  private:
    // Sum of m / n over the chains at positions [from, to), none of which changes m.
    [[nodiscard]] uint64_t unchanged_run(uint64_t m, uint32_t from, uint32_t to) const;

    std::vector<Expected_Mini_Chain> m_chains;
    std::unordered_map<uint64_t, std::vector<uint32_t>> m_by_first_slot;  // (slot, value) -> chains
    std::map<uint32_t, std::vector<uint32_t>> m_by_length;                // length -> chains
};

// Stage 3, after stage 2 on the same sets: candidates become DISAT, MiniSAT or SAT sectors;
// `candidate_sids` ends empty.
void sort_out_candidate_sectors(Sector_Values_Reader& reader,
                                const std::vector<Expected_Mini_Chain>& chains,
                                Repair_Sector_Sets& sets);

}  // namespace vrk
