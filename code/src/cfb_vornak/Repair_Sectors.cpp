#include "cfb_vornak/Repair_Sectors.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

#include "cfb_vornak/Cfb_File.h"
#include "common/byte_order.h"
#include "file_operation/File_Anywhere_Door.h"

namespace vrk {

namespace {

constexpr uint64_t kSectorSize = 512;

// True when an ordinary value (below DIFSECT) stands twice among the 128; markers may repeat.
// A 256-slot open-addressing table, stamped per sector so it is never cleared.
class Repeat_Finder {
  public:
    bool has_repeat(const Sector_Values& values) {
        if (++m_stamp == 0) {
            m_stamps.fill(0);
            m_stamp = 1;
        }
        for (const uint32_t value : values) {
            if (value >= DIFSECT) continue;
            uint32_t slot = (value * 2654435761u) >> 24;
            for (std::size_t probe = 0; probe < kSlots && m_stamps[slot] == m_stamp; ++probe) {
                if (m_keys[slot] == value) return true;
                slot = (slot + 1) & (kSlots - 1);
            }
            m_stamps[slot] = m_stamp;
            m_keys[slot] = value;
        }
        return false;
    }

  private:
    static constexpr uint32_t kSlots = 256;  // twice the values of a sector: probes stay short
    std::array<uint32_t, kSlots> m_keys{};
    std::array<uint32_t, kSlots> m_stamps{};
    uint32_t m_stamp = 0;
};

uint64_t first_slot_key(uint32_t slot, uint32_t value) {
    return (static_cast<uint64_t>(slot) << 32) | value;
}

}  // namespace

Sector_Values_Reader::Sector_Values_Reader(File_Anywhere_Door& door)
    : m_door(&door), m_data(door.mapped_data()), m_size(door.file_size()) {}

Sector_Values_Reader::Sector_Values_Reader(const uint8_t* data, uint64_t size)
    : m_data(data), m_size(size) {}

void Sector_Values_Reader::read(sid_t sid, Sector_Values& values) {
    const uint64_t offset = Cfb_File::sector_offset(sid);
    std::array<uint8_t, kSectorSize> copy;  // filled only on the door path
    const uint8_t* bytes = nullptr;
    if (m_data != nullptr && range_inside(offset, kSectorSize, m_size)) {
        bytes = m_data + offset;
    } else if (m_door != nullptr) {
        // Unmapped door, or a read past the end: the door reads or throws its own failure.
        m_door->copy_data_to_mem(offset, kSectorSize, copy.data());
        bytes = copy.data();
    } else {
        throw std::out_of_range("sector " + std::to_string(sid) + " at offset " +
                                std::to_string(offset) + " lies past the end of the data");
    }
    for (std::size_t slot = 0; slot < kValuesPerSector; ++slot) {
        values[slot] = read_u32_le(bytes + 4 * slot);
    }
}

void Repair_Sector_Sets::reset(uint64_t bound) {
    candidate_sids.reset(bound);
    beyond_end_sids.reset(bound);
    found_sat_sids.reset(bound);
    found_minisat_sids.reset(bound);
    found_disat_sids.reset(bound);
}

void classify_sectors_by_markers(Sector_Values_Reader& reader, uint64_t max_sid,
                                 Repair_Sector_Sets& sets) {
    sets.reset(max_sid);
    // Sector ids are 32-bit: past 2^32 sectors there is no id left to classify.
    const uint64_t end = std::min<uint64_t>(max_sid, uint64_t{1} << 32);
    Repeat_Finder repeats;
    Sector_Values values{};
    for (uint64_t i = 0; i < end; ++i) {
        const auto sid = static_cast<sid_t>(i);
        reader.read(sid, values);
        if (repeats.has_repeat(values)) continue;
        bool has_table_marker = false;
        uint32_t largest = 0;
        for (const uint32_t value : values) {
            if (value == FATSECT || value == DIFSECT) has_table_marker = true;
            if (value < DIFSECT && value > largest) largest = value;
        }
        const bool past_the_file = largest > max_sid;  // `largest` is never a marker
        if (!has_table_marker) {
            sets.candidate_sids.insert(sid);
            if (past_the_file) sets.beyond_end_sids.insert(sid);
        } else if (!past_the_file) {
            sets.found_sat_sids.insert(sid);
        }
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

void sort_out_candidate_sectors(Sector_Values_Reader& reader, uint64_t mini_sector_count,
                                const std::vector<Expected_Mini_Chain>& chains,
                                Repair_Sector_Sets& sets) {
    Sector_Values values{};

    // DISAT sectors: every value names a candidate. Judged against the full candidate set,
    // then taken out of it.
    for (const sid_t c : sets.candidate_sids.members()) {
        reader.read(c, values);
        const bool all_candidates = std::all_of(values.begin(), values.end(), [&](uint32_t v) {
            return sets.candidate_sids.contains(v);
        });
        if (all_candidates) sets.found_disat_sids.insert(c);
    }
    for (const sid_t c : sets.found_disat_sids.members()) sets.candidate_sids.erase(c);

    // A value past the estimated mini sector range rules out a MiniSAT sector.
    const uint64_t highest_mini_sid = mini_sector_count == 0 ? 0 : mini_sector_count - 1;
    for (const sid_t c : sets.candidate_sids.members()) {
        reader.read(c, values);
        const bool past_mini_range = std::any_of(values.begin(), values.end(), [&](uint32_t v) {
            return v < DIFSECT && v > highest_mini_sid;
        });
        if (!past_mini_range) continue;
        sets.candidate_sids.erase(c);
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
    const uint64_t quota = mini_sector_count / kValuesPerSector + 1;
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
