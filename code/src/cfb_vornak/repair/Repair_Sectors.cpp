#include "cfb_vornak/repair/Repair_Sectors.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "cfb_vornak/model/Cfb_File.h"
#include "common/byte_order.h"
#include "common/cpu_features.h"
#include "file_operation/Input_Blocks.h"
#include "file_operation/Input_View.h"

namespace vrk {

namespace {

// The hash of every value of one sector, written by Sector_Summary for Repeat_Finder.
using Sector_Hashes = std::array<uint32_t, kValuesPerSector>;

// True when an ordinary value (below DIFSECT) stands twice among a sector's 128; markers may
// repeat. Each sector stamps the entries of a small table (it stays in the first-level cache)
// picked by the hashes of its values: a repeat always finds its entry stamped, and so, now and
// then, does a different value with the same hash, or a marker. Only then are the earlier
// values searched. The stamps are tested four values at a time, so that the common path takes
// one branch per four values.
class Repeat_Finder {
  public:
    static constexpr uint32_t kEntries = uint32_t{1} << 14;

    Repeat_Finder() : m_stamps(kEntries, 0) {}

    bool has_repeat(const uint8_t* bytes, const Sector_Hashes& hashes) {
        if (++m_stamp == 0) {
            std::fill(m_stamps.begin(), m_stamps.end(), 0);
            m_stamp = 1;
        }
        // Local copies: stores through the byte table could otherwise alias the members.
        const uint8_t current = m_stamp;
        uint8_t* const table = m_stamps.data();
        constexpr std::size_t kGroup = 4;
        static_assert(kValuesPerSector % kGroup == 0);
        for (std::size_t i = 0; i < kValuesPerSector; i += kGroup) {
            // In order, store after load: a value meeting its twin within the group finds the
            // twin's stamp.
            uint32_t stamped = 0;
            for (std::size_t j = 0; j < kGroup; ++j) {
                uint8_t& stamp = table[hashes[i + j]];
                stamped |= (stamp == current ? 1u : 0u) << j;
                stamp = current;
            }
            if (stamped != 0 && repeat_among(bytes, i, stamped)) return true;
        }
        return false;
    }

  private:
    // Whether an ordinary value among those at from + j, for the bits j set in `which`, also
    // stands before it.
    static bool repeat_among(const uint8_t* bytes, std::size_t from, uint32_t which) {
        for (std::size_t i = from; which != 0; ++i, which >>= 1) {
            if ((which & 1u) == 0) continue;
            const uint32_t value = read_u32_le(bytes + 4 * i);
            if (value >= DIFSECT) continue;
            uint32_t found = 0;
            for (std::size_t j = 0; j < i; ++j) {
                found |= read_u32_le(bytes + 4 * j) == value ? 1 : 0;
            }
            if (found != 0) return true;
        }
        return false;
    }

    std::vector<uint8_t> m_stamps;
    uint8_t m_stamp = 0;
};

// What the stages ask of one sector's values besides repeats.
struct Sector_Facts {
    bool table_marker = false;     // FATSECT or DIFSECT present
    bool past_the_file = false;    // an ordinary value above max_sid
    bool all_below_max = false;    // every value, markers included, below max_sid
    bool past_mini_range = false;  // an ordinary value above the highest mini sector id
};

// Sector_Facts and the values' hashes, by comparisons against limits fixed for the whole file:
// branch-free and signed after flipping the top bit, so that the compiler keeps the loop in
// vector registers. Adding 4 before the flip turns the four markers into the lowest values,
// so that one comparison asks both "ordinary" and "above the limit".
//
// The loop is compiled twice, for the baseline instruction set and for AVX2 (twice the values
// per instruction), and the processor picks one: the same source, so the same results. Where
// the build has no AVX2 copy (common/cpu_features.h), the baseline one always runs.
class Sector_Summary {
  public:
    Sector_Summary(uint64_t max_sid, uint64_t highest_mini_sid)
        : m_past_file(shifted(max_sid)),
          m_at_least_max(biased(max_sid - 1)),
          m_past_mini(shifted(highest_mini_sid)),
          m_avx2(cpu::has_avx2()) {}

    [[nodiscard]] Sector_Facts summarize(const uint8_t* bytes, Sector_Hashes& hashes) const {
        return m_avx2 ? summarize_avx2(bytes, hashes) : summarize_baseline(bytes, hashes);
    }

  private:
    // Both kept out of line: inlined into the sector loop, whose calls clobber every vector
    // register, GCC keeps the four sums on the stack and the loop runs at half the speed.
    [[gnu::noinline]] Sector_Facts summarize_baseline(const uint8_t* bytes,
                                                      Sector_Hashes& hashes) const {
        return summarize_loop(bytes, hashes);
    }
    [[gnu::noinline]] CFB_TARGET_AVX2 Sector_Facts summarize_avx2(const uint8_t* bytes,
                                                                  Sector_Hashes& hashes) const {
        return summarize_loop(bytes, hashes);
    }

    [[gnu::always_inline]] Sector_Facts summarize_loop(const uint8_t* bytes,
                                                       Sector_Hashes& hashes) const {
        // Each comparison yields 0 or all ones, as the vector compare instructions do.
        int32_t markers = 0;
        int32_t past_file = 0;
        int32_t at_least_max = 0;
        int32_t past_mini = 0;
        for (std::size_t slot = 0; slot < kValuesPerSector; ++slot) {
            const uint32_t value = read_u32_le(bytes + 4 * slot);
            const auto v = static_cast<int32_t>(value ^ kTopBit);
            const auto s = static_cast<int32_t>(static_cast<uint32_t>(v) + 4);
            // FATSECT and DIFSECT become 1 and 0.
            markers |= s < kShiftedFatsectEnd ? -1 : 0;
            past_file |= s > m_past_file ? -1 : 0;
            at_least_max |= v > m_at_least_max ? -1 : 0;
            past_mini |= s > m_past_mini ? -1 : 0;
            hashes[slot] = (value ^ (value >> 16)) & (Repeat_Finder::kEntries - 1);
        }
        return {markers != 0, past_file != 0, at_least_max == 0, past_mini != 0};
    }

    static constexpr uint32_t kTopBit = 0x80000000u;
    static constexpr auto kShiftedFatsectEnd = static_cast<int32_t>(2u ^ kTopBit);

    // A limit past 32 bits becomes the largest value, which no value exceeds.
    static int32_t biased(uint64_t limit) {
        const auto clamped = static_cast<uint32_t>(std::min<uint64_t>(limit, UINT32_MAX));
        return static_cast<int32_t>(clamped ^ kTopBit);
    }
    // The limit for "an ordinary value above `limit`": ordinary values reach DIFSECT - 1 at
    // most, which shifted is UINT32_MAX.
    static int32_t shifted(uint64_t limit) { return biased(limit + 4); }

    int32_t m_past_file;
    int32_t m_at_least_max;
    int32_t m_past_mini;
    bool m_avx2;
};

void read_values(const uint8_t* bytes, Sector_Values& values) {
    for (std::size_t slot = 0; slot < kValuesPerSector; ++slot) {
        values[slot] = read_u32_le(bytes + 4 * slot);
    }
}

uint64_t first_slot_key(uint32_t slot, uint32_t value) {
    return (static_cast<uint64_t>(slot) << 32) | value;
}

}  // namespace

const uint8_t* Sector_Values_Reader::bytes(sid_t sid) {
    return m_view.bytes(Cfb_File::sector_offset(sid), kRepairSectorSize);
}

void Sector_Values_Reader::read(sid_t sid, Sector_Values& values) {
    read_values(bytes(sid), values);
}

void Repair_Sector_Sets::reset(uint64_t sector_bound) {
    // Sector ids are 32-bit: no id reaches past 2^32 whatever the file size.
    bound = std::min<uint64_t>(sector_bound, uint64_t{1} << 32);
    for (Sector_Id_Set* set :
         {&candidate_sids, &beyond_end_sids, &found_sat_sids, &found_minisat_sids,
          &found_disat_sids, &may_be_disat_sids, &past_mini_range_sids}) {
        set->reset(sector_bound);
    }
}

void classify_sectors_by_markers(Sector_Values_Reader& reader, uint64_t max_sid,
                                 uint64_t mini_sector_count, Repair_Sector_Sets& sets,
                                 Input_Blocks* blocks) {
    sets.reset(max_sid);
    sets.mini_sector_count = mini_sector_count;
    const uint64_t end = sets.bound;
    if (end == 0) return;
    const Sector_Summary summary(max_sid, mini_sector_count == 0 ? 0 : mini_sector_count - 1);
    Repeat_Finder repeats;
    Sector_Hashes hashes;
    for (uint64_t i = 0; i < end; ++i) {
        const auto sid = static_cast<sid_t>(i);
        const uint8_t* bytes = blocks != nullptr
                                   ? blocks->at(Cfb_File::sector_offset(sid), kRepairSectorSize)
                                   : reader.bytes(sid);
        const Sector_Facts facts = summary.summarize(bytes, hashes);
        // With a marker and a value past the file a sector goes nowhere, repeat or not.
        if (facts.table_marker && facts.past_the_file) continue;
        if (repeats.has_repeat(bytes, hashes)) continue;
        if (facts.table_marker) {
            sets.found_sat_sids.insert(sid);
            continue;
        }
        sets.candidate_sids.insert(sid);
        if (facts.past_the_file) sets.beyond_end_sids.insert(sid);
        if (facts.all_below_max) sets.may_be_disat_sids.insert(sid);
        if (facts.past_mini_range) sets.past_mini_range_sids.insert(sid);
    }
}

std::vector<Expected_Mini_Chain> expected_mini_chains(
    const std::map<uint64_t, std::vector<Directory_Entry>>& layout, uint32_t mini_stream_cutoff,
    uint32_t mini_sector_size) {
    std::vector<Expected_Mini_Chain> chains;
    if (mini_sector_size == 0) return chains;
    for (const auto& [sector, records] : layout) {
        for (const Directory_Entry& record : records) {
            const uint32_t size = record.stream_size;
            if (size == 0 || size >= mini_stream_cutoff) continue;
            const uint32_t length =
                size / mini_sector_size + (size % mini_sector_size != 0 ? 1 : 0);
            chains.push_back({record.start_sid, length});
        }
    }
    return chains;
}

Mini_Chain_Scorer::Mini_Chain_Scorer(std::vector<Expected_Mini_Chain> chains)
    : m_chains(std::move(chains)) {
    for (uint32_t j = 0; j < m_chains.size(); ++j) {
        const Expected_Mini_Chain& chain = m_chains[j];
        m_by_first_slot[first_slot_key(chain.start % kValuesPerSector, chain.at(1))].push_back(j);
        m_by_length[chain.length].push_back(j);
    }
}

uint64_t Mini_Chain_Scorer::unchanged_run(uint64_t m, uint32_t from, uint32_t to) const {
    if (m == 0 || from >= to) return 0;
    uint64_t sum = 0;
    for (const auto& [length, at] : m_by_length) {
        const auto count = std::lower_bound(at.begin(), at.end(), to) -
                           std::lower_bound(at.begin(), at.end(), from);
        sum += (m / length) * static_cast<uint64_t>(count);
    }
    return sum;
}

uint64_t Mini_Chain_Scorer::score(const Sector_Values& values) const {
    std::vector<uint32_t> first_slot_matches;
    for (uint32_t slot = 0; slot < kValuesPerSector; ++slot) {
        const auto found = m_by_first_slot.find(first_slot_key(slot, values[slot]));
        if (found == m_by_first_slot.end()) continue;
        first_slot_matches.insert(first_slot_matches.end(), found->second.begin(),
                                  found->second.end());
    }
    std::sort(first_slot_matches.begin(), first_slot_matches.end());

    uint64_t m = 0;
    uint64_t score = 0;
    uint32_t run_start = 0;
    for (const uint32_t j : first_slot_matches) {
        score += unchanged_run(m, run_start, j);
        const Expected_Mini_Chain& chain = m_chains[j];
        const uint32_t slot = chain.start % kValuesPerSector;
        for (uint32_t k = 0; k < chain.length; ++k) {
            if (slot + k >= kValuesPerSector) {
                m = chain.length;
                break;
            }
            if (values[slot + k] != chain.at(k + 1)) break;
            ++m;
        }
        score += m / chain.length;
        run_start = j + 1;
    }
    return score + unchanged_run(m, run_start, static_cast<uint32_t>(m_chains.size()));
}

void sort_out_candidate_sectors(Sector_Values_Reader& reader,
                                const std::vector<Expected_Mini_Chain>& chains,
                                Repair_Sector_Sets& sets) {
    Sector_Values values{};

    // DISAT sectors: every value names a candidate. Judged against the full candidate set,
    // then taken out of it. Only sectors with every value below max_sid can qualify.
    // Walked id by id rather than through members(): a list of them could take as much memory
    // as four bytes per sector of the file.
    for (uint64_t c = 0; c < sets.bound; ++c) {
        if (!sets.may_be_disat_sids.contains(static_cast<sid_t>(c))) continue;
        reader.read(static_cast<sid_t>(c), values);
        const bool all_candidates = std::all_of(values.begin(), values.end(), [&](uint32_t v) {
            return sets.candidate_sids.contains(v);
        });
        if (all_candidates) sets.found_disat_sids.insert(static_cast<sid_t>(c));
    }
    for (const sid_t c : sets.found_disat_sids.members()) sets.candidate_sids.erase(c);

    // A value past the estimated mini sector range rules out a MiniSAT sector.
    for (uint64_t i = 0; i < sets.bound; ++i) {
        const auto c = static_cast<sid_t>(i);
        if (!sets.past_mini_range_sids.contains(c) || !sets.candidate_sids.erase(c)) continue;
        if (!sets.beyond_end_sids.contains(c)) sets.found_sat_sids.insert(c);
    }

    // The best scores are MiniSAT sectors; equal scores keep ascending sector order.
    const Mini_Chain_Scorer scorer(chains);
    std::vector<std::pair<uint64_t, sid_t>> scored;
    for (const sid_t c : sets.candidate_sids.members()) {
        reader.read(c, values);
        scored.emplace_back(scorer.score(values), c);
    }
    std::stable_sort(scored.begin(), scored.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    const uint64_t quota = sets.mini_sector_count / kValuesPerSector + 1;
    for (std::size_t rank = 0; rank < scored.size(); ++rank) {
        const sid_t c = scored[rank].second;
        sets.candidate_sids.erase(c);
        if (rank < quota) {
            sets.found_minisat_sids.insert(c);
        } else if (!sets.beyond_end_sids.contains(c)) {
            sets.found_sat_sids.insert(c);
        }
    }
}

}  // namespace vrk
