#include "cfb_vornak/salvage/Salvage_Layout.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <tuple>

#include "common/byte_order.h"

namespace vrk::salvage {

bool directory_sector(const Sector_Classes& classes, sid_t sid) {
    const uint8_t f = classes.flags[sid];
    // A table sector's small ids read as empty records; a real directory sector never looks
    // like a table (its empty records repeat zeros).
    return (f & kDirOk) != 0 && (f & (kTableLike | kDirLike)) != kTableLike;
}

int64_t Sat_Table::agreement(uint32_t count) const {
    const std::size_t per = sat_sectors.empty() ? 0 : entries.size() / sat_sectors.size();
    int64_t score = 0;
    for (std::size_t r = 0; per > 0 && r < sat_sectors.size(); ++r) {
        const sid_t s = sat_sectors[r];
        if (s >= count || !is_known(s) || entries[s] != FATSECT) continue;
        // Any copy of a SAT sector marks itself; another sector's mark counts for more.
        score += s / per == r ? 1 : 2;
    }
    return score;
}

namespace {

bool readable_table(const Sector_Classes& classes, sid_t sid) {
    return sid < classes.geometry.whole_count && (classes.flags[sid] & kTableLike) != 0;
}

// A sector the header names as a SAT sector needs less: a damaged link may repeat an id, which
// makes only the entries that name it unknown.
bool readable_named_table(const Sector_Classes& classes, sid_t sid) {
    return sid < classes.geometry.whole_count && (classes.flags[sid] & kTableRange) != 0;
}

bool is_fixed(const Sat_Table& table, std::size_t position) {
    return position < table.fixed.size() && table.fixed[position] != 0;
}

bool readable_at(const Sector_Classes& classes, const Sat_Table& table, std::size_t position) {
    const sid_t s = table.sat_sectors[position];
    return is_fixed(table, position) ? readable_named_table(classes, s)
                                     : readable_table(classes, s);
}

// Which sectors hold a SAT position.
std::vector<uint8_t> placed_map(const Sat_Table& table, uint32_t count) {
    std::vector<uint8_t> placed(count, 0);
    for (sid_t s : table.sat_sectors) {
        if (s < count) placed[s] = 1;
    }
    return placed;
}

// Entry `i` of whole sector `sid` (read through the checked input).
uint32_t entry_of(const Salvage_Input& input, const Sector_Geometry& g, sid_t sid, uint32_t i) {
    return input.u32(g.offset(sid) + 4 * static_cast<uint64_t>(i), FREESECT);
}

// Reads the entries of every readable position into the table.
void read_entries(const Salvage_Input& input, const Sector_Classes& classes, Sat_Table& table) {
    const Sector_Geometry& g = classes.geometry;
    const uint32_t per = g.entries_per_sector();
    const std::size_t positions = table.sat_sectors.size();
    table.entries.assign(positions * per, FREESECT);
    table.known.assign(table.entries.size(), kEntryUnknown);
    for (std::size_t p = 0; p < positions; ++p) {
        if (!readable_at(classes, table, p)) continue;
        const uint8_t* sector = input.bytes(g.offset(table.sat_sectors[p]), g.sector_size);
        if (sector == nullptr) continue;
        for (uint32_t i = 0; i < per; ++i) {
            table.entries[p * per + i] = read_u32_le(sector + 4 * i);
            table.known[p * per + i] = kEntryRead;
        }
    }
}

// Settles contradictions between the placed positions. A real SAT marks its own sectors
// FATSECT, so a placed sector whose covering sector says otherwise conflicts with it; a placed
// sector that marks other placed sectors FATSECT (or is so marked) agrees with the placement.
// Each round drops the positions whose conflicts most outweigh their agreement: a stray
// MiniSAT sector at position 0 contradicts every true SAT sector it covers and agrees with
// none, while the true sector there agrees with all of them.
void settle(const Sector_Classes& classes, Sat_Table& table) {
    const Sector_Geometry& g = classes.geometry;
    const uint32_t per = g.entries_per_sector();
    const std::size_t positions = table.sat_sectors.size();
    std::vector<int64_t> conflicts(positions);
    std::vector<int64_t> agree(positions);
    constexpr int kMaxRounds = 64;
    for (int round = 0; round < kMaxRounds; ++round) {
        std::fill(conflicts.begin(), conflicts.end(), 0);
        std::fill(agree.begin(), agree.end(), 0);
        const std::vector<uint8_t> placed = placed_map(table, g.count);
        for (std::size_t p = 0; p < positions; ++p) {
            const sid_t s = table.sat_sectors[p];
            if (!readable_at(classes, table, p)) continue;
            for (uint32_t i = 0; i < per; ++i) {
                const uint64_t covered = static_cast<uint64_t>(p) * per + i;
                if (table.entries[covered] == FATSECT && covered < placed.size() && placed[covered])
                    ++agree[p];
            }
            const std::size_t q = s / per;
            if (q >= positions || !readable_at(classes, table, q)) continue;
            if (table.entries[s] == FATSECT) {
                ++agree[p];
                continue;
            }
            ++conflicts[p];
            if (q != p) ++conflicts[q];
        }
        // The header's positions are evidence of their own: only the others can go.
        int64_t worst = 0;
        for (std::size_t p = 0; p < positions; ++p) {
            if (conflicts[p] > 0 && !is_fixed(table, p))
                worst = std::max(worst, conflicts[p] - agree[p]);
        }
        if (worst <= 0) break;
        for (std::size_t p = 0; p < positions; ++p) {
            if (conflicts[p] == 0 || is_fixed(table, p) || conflicts[p] - agree[p] != worst)
                continue;
            table.sat_sectors[p] = FREESECT;
            std::fill(table.known.begin() + static_cast<std::ptrdiff_t>(p * per),
                      table.known.begin() + static_cast<std::ptrdiff_t>((p + 1) * per),
                      kEntryUnknown);
        }
    }
}

// Fills entries/known from sat_sectors, settles contradictions (when asked), trims the free
// tail, and lists the DISAT sectors and the SAT sectors the table marks but nobody placed.
void assemble(const Salvage_Input& input, const Sector_Classes& classes, Sat_Table& table,
              bool settle_conflicts = true) {
    const Sector_Geometry& g = classes.geometry;
    const uint32_t per = g.entries_per_sector();
    read_entries(input, classes, table);
    if (settle_conflicts) settle(classes, table);
    while (!table.sat_sectors.empty() && table.sat_sectors.back() == FREESECT) {
        table.sat_sectors.pop_back();
    }
    table.entries.resize(
        std::min<std::size_t>(table.entries.size(), table.sat_sectors.size() * per));
    table.known.resize(table.entries.size());
    forget_repeated_links(table.entries, table.known, g.count);
    const std::vector<uint8_t> placed = placed_map(table, g.count);
    for (sid_t s = 0; s < table.entries.size() && s < g.count; ++s) {
        if (!table.is_known(s)) continue;
        if (table.entries[s] == DIFSECT) table.disat_sectors.push_back(s);
        if (table.entries[s] == FATSECT && !placed[s]) table.lost_sat_sectors.push_back(s);
    }
}

// SAT positions the file's sectors need.
uint64_t needed_positions(const Sector_Geometry& g) {
    const uint32_t per = g.entries_per_sector();
    return std::max<uint64_t>(1, (static_cast<uint64_t>(g.count) + per - 1) / per);
}

}  // namespace

Sat_Table header_sat(const Salvage_Input& input, const Sector_Classes& classes,
                     const Header_Evidence& header) {
    const Sector_Geometry& g = classes.geometry;
    const uint32_t per = g.entries_per_sector();
    Sat_Table table;
    table.source = Sat_Source::header;
    std::vector<sid_t> listed(header.header_disat.begin(), header.header_disat.end());
    std::vector<sid_t> disat;
    sid_t d = header.first_disat_sid;
    std::vector<uint8_t> seen(g.count, 0);
    // The count bounds the walk; a sector met twice or one outside the file ends it.
    for (uint32_t k = 0; k < header.num_disat_secs && k < g.count; ++k) {
        if (d >= g.whole_count || seen[d]) break;
        seen[d] = 1;
        disat.push_back(d);
        for (uint32_t i = 0; i + 1 < per; ++i) listed.push_back(entry_of(input, g, d, i));
        d = entry_of(input, g, d, per - 1);
    }
    while (!listed.empty() && is_special(listed.back())) listed.pop_back();
    // Positions within the header's count and the file's size are the header's word; the
    // others must show themselves as SAT sectors.
    const uint64_t counted = header.num_sat_secs == 0 ? listed.size() : header.num_sat_secs;
    const uint64_t vouched = std::min<uint64_t>(counted, needed_positions(g));
    // A sector named at two positions (a zeroed DISAT names sector 0 throughout) stands at
    // neither.
    std::vector<uint8_t> named(g.count, 0);
    for (sid_t s : listed) {
        if (s < g.count && named[s] < 2) ++named[s];
    }
    std::vector<sid_t> lost;
    for (std::size_t p = 0; p < listed.size(); ++p) {
        const sid_t s = listed[p];
        const bool readable =
            !is_special(s) && s < g.count && named[s] == 1 && readable_named_table(classes, s);
        table.sat_sectors.push_back(readable ? s : FREESECT);
        if (!readable && !is_special(s) && s < g.count && named[s] == 1 && p < vouched)
            lost.push_back(s);
    }
    table.fixed.assign(table.sat_sectors.size(), 0);
    for (std::size_t p = 0; p < table.fixed.size() && p < vouched; ++p) table.fixed[p] = 1;
    read_entries(input, classes, table);
    for (std::size_t p = vouched; p < table.sat_sectors.size(); ++p) {
        const sid_t s = table.sat_sectors[p];
        const bool marked = s < table.entries.size() && table.known[s] != kEntryUnknown &&
                            table.entries[s] == FATSECT;
        if (!marked) table.sat_sectors[p] = FREESECT;
    }
    assemble(input, classes, table);
    table.lost_sat_sectors.insert(table.lost_sat_sectors.end(), lost.begin(), lost.end());
    table.disat_sectors.insert(table.disat_sectors.end(), disat.begin(), disat.end());
    return table;
}

namespace {

// A DISAT sector by content: ids of table sectors (free entries only at the end), the last
// entry a link or the chain's end.
bool disat_like(const Salvage_Input& input, const Sector_Classes& classes, sid_t sid) {
    const Sector_Geometry& g = classes.geometry;
    const uint32_t per = g.entries_per_sector();
    const uint8_t* sector = input.bytes(g.offset(sid), g.sector_size);
    if (sector == nullptr) return false;
    uint32_t ids = 0;
    bool tail = false;
    for (uint32_t i = 0; i + 1 < per; ++i) {
        const uint32_t v = read_u32_le(sector + 4 * i);
        if (v == FREESECT) {
            tail = true;
            continue;
        }
        if (tail || v >= g.whole_count || (classes.flags[v] & kTableRange) == 0) return false;
        ++ids;
    }
    const uint32_t last = read_u32_le(sector + 4 * (per - 1));
    return ids > 0 && (last == ENDOFCHAIN || last == FREESECT || last < g.whole_count);
}

// The DISAT chain found by content. Each chain of DISAT-like sectors (linked by their last
// entries, from a sector no other links to) puts the sectors it lists at SAT positions 109
// on; a chain is taken only when no listed sector's own sequential links contradict its place
// and some confirm it. A MiniSAT sector whose mini ids happen to name table sectors lists
// them at places their links deny. The chain with the most confirmations wins.
std::vector<sid_t> content_disat(const Salvage_Input& input, const Sector_Classes& classes) {
    const Sector_Geometry& g = classes.geometry;
    const uint32_t per = g.entries_per_sector();
    std::vector<uint8_t> candidate(g.count, 0);
    std::vector<sid_t> candidates;
    for (sid_t s = 0; s < g.whole_count; ++s) {
        if ((classes.flags[s] & kTableLike) == 0 || !disat_like(input, classes, s)) continue;
        candidate[s] = 1;
        candidates.push_back(s);
    }
    auto link_of = [&](sid_t s) { return entry_of(input, g, s, per - 1); };
    std::vector<uint8_t> linked(g.count, 0);
    for (sid_t s : candidates) {
        const sid_t next = link_of(s);
        if (next < g.count && candidate[next]) linked[next] = 1;
    }
    std::vector<sid_t> best;
    uint64_t best_confirmed = 0;
    std::vector<uint8_t> in_chain(g.count, 0);
    for (sid_t head : candidates) {
        if (linked[head]) continue;
        std::vector<sid_t> chain;
        // Each candidate joins one chain at most, so the walks together stay within them.
        for (sid_t s = head; s < g.count && candidate[s] && !in_chain[s]; s = link_of(s)) {
            in_chain[s] = 1;
            chain.push_back(s);
        }
        uint64_t confirmed = 0;
        bool contradicted = false;
        std::vector<sid_t> listed;
        for (std::size_t d = 0; d < chain.size() && !contradicted; ++d) {
            for (uint32_t i = 0; i + 1 < per; ++i) {
                const sid_t v = entry_of(input, g, chain[d], i);
                if (v == FREESECT) break;
                const int64_t position =
                    kHeaderDisatEntries + static_cast<int64_t>(d) * (per - 1) + i;
                const int32_t guess = classes.sat_position[v];
                if (guess >= 0 && guess != position) contradicted = true;
                if (guess == position) ++confirmed;
                listed.push_back(v);
            }
        }
        std::sort(listed.begin(), listed.end());
        if (contradicted || confirmed <= best_confirmed ||
            std::adjacent_find(listed.begin(), listed.end()) != listed.end())
            continue;
        best = std::move(chain);
        best_confirmed = confirmed;
    }
    return best;
}

}  // namespace

// What the content says about where table sectors belong, before a placement is chosen.
struct Content_Sats::Evidence {
    Sat_Table first;  // the most likely placement, before it is finished
    // Other placements: one contested place given to another contender, and the other
    // contested places settled around it (an older copy of the SAT agrees with itself).
    std::vector<std::vector<sid_t>> others;

    std::vector<sid_t> disat;                    // the DISAT chain found by content
    std::vector<uint8_t> placed_by_disat;        // per sector
    std::vector<int32_t> position;               // per sector: its place by links or self marks
    std::vector<uint8_t> marked;                 // per sector: some placed sector marks it FATSECT
    std::vector<std::vector<sid_t>> contenders;  // per place, best first
};

namespace {

// A contender's claim to its place: the FATSECT marks it gives the other contenders and
// itself, then how far into the file its entries reach (an older copy of a SAT sector
// describes a shorter file), then the lower id.
struct Claim_Score {
    uint32_t marks = 0;
    uint32_t reach = 0;
    sid_t sid = 0;
    bool operator<(const Claim_Score& o) const {
        return std::tie(o.marks, o.reach, sid) < std::tie(marks, reach, o.sid);
    }
};

using Content_Evidence = Content_Sats::Evidence;

// For each place, the positions whose placed sector lies in the ids that place covers.
using Covered_By = std::vector<std::vector<std::size_t>>;

Covered_By covered_by(const Sector_Geometry& g, const std::vector<sid_t>& placed) {
    const uint32_t per = g.entries_per_sector();
    Covered_By out(placed.size());
    for (std::size_t r = 0; r < placed.size(); ++r) {
        if (placed[r] < g.count && placed[r] / per < out.size()) out[placed[r] / per].push_back(r);
    }
    return out;
}

// How well sector `c` at `place` agrees with the rest of the placement: each placed sector
// whose FATSECT mark this one gives (or denies), and this one's own mark in the sector at the
// place that covers it. An older copy of a SAT sector marks itself and denies the live sectors
// placed since; the live one is marked by the others.
int64_t agreement(const Salvage_Input& input, const Sector_Geometry& g,
                  const std::vector<sid_t>& placed, const Covered_By& covered, std::size_t place,
                  sid_t c) {
    const uint32_t per = g.entries_per_sector();
    int64_t score = 0;
    // Every copy of a SAT sector marks itself; only another sector's mark tells.
    const std::size_t covering = c / per;
    const sid_t marker =
        covering != place && covering < placed.size() ? placed[covering] : FREESECT;
    if (marker < g.whole_count) score += entry_of(input, g, marker, c % per) == FATSECT ? 1 : -1;
    for (std::size_t r : covered[place]) {
        if (r != place) score += entry_of(input, g, c, placed[r] % per) == FATSECT ? 1 : -1;
    }
    return score;
}

// Gives each contested place but `fixed` to the contender that agrees best with the others, a
// few rounds over, since each choice changes what the others see; ties keep the current one.
void agree_on_contested_places(const Salvage_Input& input, const Sector_Classes& classes,
                               const Content_Evidence& ev, std::vector<sid_t>& placed,
                               std::size_t fixed) {
    const Sector_Geometry& g = classes.geometry;
    constexpr int kRounds = 4;
    for (int round = 0; round < kRounds; ++round) {
        const Covered_By covered = covered_by(g, placed);
        bool changed = false;
        for (std::size_t p = 0; p < ev.contenders.size() && p < placed.size(); ++p) {
            if (p == fixed || ev.contenders[p].size() < 2 || is_fixed(ev.first, p)) continue;
            sid_t best = placed[p];
            int64_t best_score = agreement(input, g, placed, covered, p, best);
            for (sid_t c : ev.contenders[p]) {
                const int64_t score = agreement(input, g, placed, covered, p, c);
                if (score > best_score) {
                    best = c;
                    best_score = score;
                }
            }
            changed = changed || best != placed[p];
            placed[p] = best;
        }
        if (!changed) break;
    }
}

void gather_content_evidence(const Salvage_Input& input, const Sector_Classes& classes,
                             Content_Evidence& ev) {
    const Sector_Geometry& g = classes.geometry;
    const uint32_t per = g.entries_per_sector();
    const uint64_t needed = needed_positions(g);
    Sat_Table& table = ev.first;
    table.source = Sat_Source::content;
    ev.placed_by_disat.assign(g.count, 0);
    // Positions 109 on, as the DISAT found by content lists them, are evidence of their own.
    ev.disat = content_disat(input, classes);
    for (std::size_t d = 0; d < ev.disat.size(); ++d) {
        ev.placed_by_disat[ev.disat[d]] = 1;
        for (uint32_t i = 0; i + 1 < per; ++i) {
            const sid_t v = entry_of(input, g, ev.disat[d], i);
            if (v == FREESECT) break;
            const std::size_t position = kHeaderDisatEntries + d * (per - 1) + i;
            if (table.sat_sectors.size() <= position) {
                table.sat_sectors.resize(position + 1, FREESECT);
                table.fixed.resize(position + 1, 0);
            }
            table.sat_sectors[position] = v;
            table.fixed[position] = 1;
            if (v < g.count) ev.placed_by_disat[v] = 1;
        }
    }
    // A sector without sequential links that marks its own id FATSECT covers itself, when no
    // other such sector claims that place: the last SAT sector of a table written at the
    // end of the file is one, holding only the marks of its neighbours.
    ev.position = classes.sat_position;
    // Marks for sectors the file does not have would betray a sector of another place.
    auto marks_itself = [&](sid_t s) {
        if ((classes.flags[s] & kTableLike) == 0 || ev.position[s] >= 0) return false;
        if (entry_of(input, g, s, s % per) != FATSECT) return false;
        for (uint64_t covered = std::max<uint64_t>(g.count, s - s % per);
             covered < static_cast<uint64_t>(s - s % per) + per; ++covered) {
            const uint32_t v = entry_of(input, g, s, static_cast<uint32_t>(covered % per));
            if (v == FATSECT || v == DIFSECT) return false;
        }
        return true;
    };
    std::vector<uint32_t> self_claims(needed, 0);
    for (sid_t s = 0; s < g.whole_count; ++s) {
        if (s / per < needed && marks_itself(s)) ++self_claims[s / per];
    }
    for (sid_t s = 0; s < g.whole_count; ++s) {
        if (s / per < needed && marks_itself(s) && self_claims[s / per] == 1)
            ev.position[s] = static_cast<int32_t>(s / per);
    }
    // A SAT sector placed by its links marks the SAT sectors it covers FATSECT. A MiniSAT
    // sector, whose mini chains look just as sequential, never carries that mark.
    ev.marked.assign(g.count, 0);
    std::vector<Claim_Score> scores(g.count);
    for (sid_t s = 0; s < g.whole_count; ++s) {
        const int32_t p = ev.position[s];
        if ((classes.flags[s] & kTableLike) == 0 || p < 0 || static_cast<uint64_t>(p) >= needed)
            continue;
        const uint8_t* sector = input.bytes(g.offset(s), g.sector_size);
        if (sector == nullptr) continue;
        scores[s].sid = s;
        for (uint32_t i = 0; i < per; ++i) {
            const uint64_t covered = static_cast<uint64_t>(p) * per + i;
            if (covered >= g.count) break;
            const uint32_t v = read_u32_le(sector + 4 * i);
            if (v == FATSECT) {
                ev.marked[covered] = 1;
                const int32_t q = ev.position[covered];
                if (covered == s || (q >= 0 && (classes.flags[covered] & kTableLike) != 0))
                    ++scores[s].marks;
            }
            if (v != FREESECT) scores[s].reach = static_cast<uint32_t>(covered + 1);
        }
    }
    ev.contenders.assign(needed, {});
    for (sid_t s = 0; s < g.whole_count; ++s) {
        if ((classes.flags[s] & kTableLike) == 0 || ev.placed_by_disat[s]) continue;
        const int32_t p = ev.position[s];
        if (p < 0 || static_cast<uint64_t>(p) >= needed || is_fixed(table, p)) continue;
        ev.contenders[p].push_back(s);
    }
    for (std::vector<sid_t>& c : ev.contenders) {
        std::stable_sort(c.begin(), c.end(), [&](sid_t a, sid_t b) {
            // A sector some placed sector marks FATSECT beats one nobody marks.
            if (ev.marked[a] != ev.marked[b]) return ev.marked[a] > ev.marked[b];
            return scores[a] < scores[b];
        });
    }
    // Two sectors claiming one place: the first contender takes it, then the placement as a
    // whole settles who agrees best with the others.
    if (table.sat_sectors.size() < ev.contenders.size())
        table.sat_sectors.resize(ev.contenders.size(), FREESECT);
    for (std::size_t p = 0; p < ev.contenders.size(); ++p) {
        if (!ev.contenders[p].empty() && !is_fixed(table, p))
            table.sat_sectors[p] = ev.contenders[p].front();
    }
    agree_on_contested_places(input, classes, ev, table.sat_sectors, SIZE_MAX);
    // Few places are contested in a sound file; a bound keeps a hostile one cheap.
    constexpr std::size_t kMaxOthers = 4;
    for (std::size_t p = 0; p < ev.contenders.size(); ++p) {
        for (std::size_t k = 0; k < ev.contenders[p].size() && ev.others.size() < kMaxOthers; ++k) {
            const sid_t c = ev.contenders[p][k];
            if (c == table.sat_sectors[p]) continue;
            std::vector<sid_t> placed = table.sat_sectors;
            placed[p] = c;
            agree_on_contested_places(input, classes, ev, placed, p);
            if (std::find(ev.others.begin(), ev.others.end(), placed) == ev.others.end())
                ev.others.push_back(std::move(placed));
        }
    }
}

// The table for one choice of contender per place: runs between marked sectors fill the places
// between them, the contradictions are settled (when asked), and the table sectors left over
// take the free places.
Sat_Table finish_content_sat(const Salvage_Input& input, const Sector_Classes& classes,
                             const Content_Evidence& ev, Sat_Table table, bool settle_conflicts) {
    const Sector_Geometry& g = classes.geometry;
    const uint64_t needed = needed_positions(g);
    if (table.sat_sectors.size() < needed) table.sat_sectors.resize(needed, FREESECT);
    // Writers put the SAT down as runs of consecutive sectors: between two marked sectors whose
    // ids lie as far apart as their places, the sectors in between take the places in between
    // (unless their own links say otherwise), over any unmarked sector there.
    {
        sid_t prev = FREESECT;
        std::size_t prev_place = 0;
        for (std::size_t p = 0; p < table.sat_sectors.size(); ++p) {
            const sid_t s = table.sat_sectors[p];
            if (s >= g.count || !ev.marked[s]) continue;
            if (prev != FREESECT && s > prev && s - prev == p - prev_place) {
                for (std::size_t q = prev_place + 1; q < p; ++q) {
                    const sid_t between = prev + static_cast<sid_t>(q - prev_place);
                    const bool fits = (classes.flags[between] & kTableRange) != 0 &&
                                      (ev.position[between] < 0 ||
                                       static_cast<std::size_t>(ev.position[between]) == q);
                    if (fits && !ev.placed_by_disat[between] && !is_fixed(table, q))
                        table.sat_sectors[q] = between;
                }
            }
            prev = s;
            prev_place = p;
        }
    }
    assemble(input, classes, table, settle_conflicts);
    if (table.sat_sectors.size() < needed) table.sat_sectors.resize(needed, FREESECT);
    // The table sectors left out (without sequential links, losers of a place, or dropped by
    // the settling) fill the free places in ascending order: first those the table marks
    // FATSECT, then those it says nothing about.
    for (int pass = 0; pass < 2; ++pass) {
        std::size_t p = 0;
        std::vector<uint8_t> placed = placed_map(table, g.count);
        for (sid_t d : ev.disat) placed[d] = 1;
        for (sid_t s = 0; s < g.whole_count; ++s) {
            if ((classes.flags[s] & kTableLike) == 0 || placed[s]) continue;
            const bool marked = table.is_known(s) && table.entries[s] == FATSECT;
            if (pass == 0 ? !marked : (table.known.size() > s && table.known[s] != kEntryUnknown))
                continue;
            // A sector whose links name its place goes nowhere else.
            const int32_t own = ev.position[s];
            if (own >= 0) {
                if (static_cast<std::size_t>(own) < table.sat_sectors.size() &&
                    table.sat_sectors[own] == FREESECT) {
                    table.sat_sectors[own] = s;
                    placed[s] = 1;
                }
                continue;
            }
            while (p < table.sat_sectors.size() && table.sat_sectors[p] != FREESECT) ++p;
            if (p >= table.sat_sectors.size()) break;
            table.sat_sectors[p] = s;
            placed[s] = 1;
        }
        table.disat_sectors.clear();
        table.lost_sat_sectors.clear();
        assemble(input, classes, table, settle_conflicts);
        if (table.sat_sectors.size() < needed) table.sat_sectors.resize(needed, FREESECT);
    }
    return table;
}

}  // namespace

Content_Sats::Content_Sats(const Salvage_Input& input, const Sector_Classes& classes)
    : m_input(input), m_classes(classes), m_evidence(std::make_unique<Evidence>()) {
    gather_content_evidence(input, classes, *m_evidence);
}

Content_Sats::~Content_Sats() = default;

std::size_t Content_Sats::count() const {
    return 2 * (1 + m_evidence->others.size());
}

Sat_Table Content_Sats::make(std::size_t index) const {
    Sat_Table table = m_evidence->first;
    table.variant = static_cast<uint32_t>(index);
    // Even indexes settle the placement's contradictions, odd ones keep it as it is.
    const std::size_t choice = index / 2;
    if (choice > 0) table.sat_sectors = m_evidence->others[choice - 1];
    return finish_content_sat(m_input, m_classes, *m_evidence, std::move(table), index % 2 == 0);
}

Sat_Table mixed_sat(const Salvage_Input& input, const Sector_Classes& classes,
                    const Sat_Table& header, const Sat_Table& content) {
    Sat_Table table;
    table.source = Sat_Source::header_and_content;
    table.sat_sectors = header.sat_sectors;
    table.fixed.assign(table.sat_sectors.size(), 0);
    for (std::size_t p = 0; p < table.sat_sectors.size(); ++p)
        table.fixed[p] = table.sat_sectors[p] != FREESECT;
    if (table.sat_sectors.size() < content.sat_sectors.size())
        table.sat_sectors.resize(content.sat_sectors.size(), FREESECT);
    std::vector<uint8_t> placed = placed_map(table, classes.geometry.count);
    for (std::size_t p = 0; p < table.sat_sectors.size(); ++p) {
        if (table.sat_sectors[p] != FREESECT || p >= content.sat_sectors.size()) continue;
        const sid_t s = content.sat_sectors[p];
        if (s < placed.size() && !placed[s]) {
            table.sat_sectors[p] = s;
            placed[s] = 1;
        }
    }
    assemble(input, classes, table);
    table.disat_sectors.insert(table.disat_sectors.end(), header.disat_sectors.begin(),
                               header.disat_sectors.end());
    table.lost_sat_sectors.insert(table.lost_sat_sectors.end(), header.lost_sat_sectors.begin(),
                                  header.lost_sat_sectors.end());
    return table;
}

std::string Dir_Candidate::text() const {
    std::string out = start == Directory_Start::header
                          ? "header's first directory sector"
                          : "root record found in sector " +
                                std::to_string(sectors.empty() ? 0 : sectors.front());
    switch (order) {
        case Directory_Order::sat_chain:
            return out +
                   (chain_ends ? ", chain through the SAT" : ", chain through the SAT (broken)");
        case Directory_Order::completed_by_content:
            return out + ", chain through the SAT completed by directory sectors found by content";
        case Directory_Order::content_order:
            return out + ", directory sectors found by content in ascending order";
        case Directory_Order::inferred_run:
            return out + ", chain through the SAT, lost links continued by the run rule";
    }
    return out;
}

namespace {

// A directory-like sector the SAT does not mark free or as a table: an older copy of the
// directory lies in sectors the live SAT marks free.
bool live_directory_sector(const Sector_Classes& classes, const Sat_Table& sat, sid_t sid) {
    if ((classes.flags[sid] & kDirLike) == 0 || (classes.flags[sid] & kRootFirst) != 0)
        return false;
    if (!sat.is_known(sid)) return true;
    const sid_t next = sat.entries[sid];
    return next != FREESECT && next != FATSECT && next != DIFSECT;
}

enum class Walk_End { endofchain, lost_link, broken };

// Walks directory sectors from `start` while the SAT links them.
Walk_End walk_directory(const Sector_Classes& classes, const Sat_Table& sat, sid_t start,
                        std::vector<sid_t>& out) {
    const Sector_Geometry& g = classes.geometry;
    Visit_Marks marks(g.count);
    marks.next_walk();
    sid_t cur = start;
    for (uint32_t step = 0; step < g.count; ++step) {
        if (cur >= g.whole_count || !directory_sector(classes, cur) || !marks.visit(cur))
            return Walk_End::broken;
        out.push_back(cur);
        if (!sat.is_known(cur)) return Walk_End::lost_link;
        const sid_t next = sat.entries[cur];
        if (next == ENDOFCHAIN) return Walk_End::endofchain;
        cur = next;
    }
    return Walk_End::broken;
}

// Continues a chain whose last link was lost: the next sector follows (the run rule) while it
// is a directory sector; known links are followed as they are.
std::vector<sid_t> continue_by_run(const Sector_Classes& classes, const Sat_Table& sat,
                                   std::vector<sid_t> chain) {
    const Sector_Geometry& g = classes.geometry;
    Visit_Marks marks(g.count);
    marks.next_walk();
    for (sid_t s : chain) marks.visit(s);
    for (uint32_t step = 0; step < g.count && !chain.empty(); ++step) {
        const sid_t last = chain.back();
        const sid_t next = sat.is_known(last) ? sat.entries[last] : last + 1;
        if (next == ENDOFCHAIN || next >= g.whole_count || !directory_sector(classes, next) ||
            (classes.flags[next] & kRootFirst) != 0 || !marks.visit(next))
            break;
        chain.push_back(next);
    }
    return chain;
}

}  // namespace

std::vector<Dir_Candidate> directory_candidates(const Sector_Classes& classes, const Sat_Table& sat,
                                                const Header_Evidence& header, bool header_fits) {
    const Sector_Geometry& g = classes.geometry;
    std::vector<std::pair<sid_t, Directory_Start>> starts;
    if (header_fits && header.first_dir_sid < g.whole_count &&
        (classes.flags[header.first_dir_sid] & kRootFirst)) {
        starts.emplace_back(header.first_dir_sid, Directory_Start::header);
    }
    // Compound files kept as stream data (embedded objects, attachments) bring root records of
    // their own, and writers that save again leave older copies of the directory. A writer
    // puts the directory before the data or after it, so the first and the last root records
    // found are tried.
    constexpr std::size_t kMaxRoots = 8;
    std::vector<sid_t> roots;
    for (sid_t s = 0; s < g.whole_count; ++s) {
        if ((classes.flags[s] & kRootFirst) == 0) continue;
        if (!starts.empty() && starts.front().first == s) continue;
        roots.push_back(s);
    }
    if (roots.size() > kMaxRoots)
        roots.erase(roots.begin() + kMaxRoots / 2, roots.end() - kMaxRoots / 2);
    for (sid_t s : roots) starts.emplace_back(s, Directory_Start::root_record);
    // Directory sectors that the SAT does not mark free or as a table, in ascending order.
    std::vector<sid_t> found;
    for (sid_t s = 0; s < g.whole_count; ++s) {
        if (live_directory_sector(classes, sat, s)) found.push_back(s);
    }
    // Each copy's own chain through the SAT; the sectors of one copy's chain are not there to
    // complete another's.
    std::vector<std::vector<sid_t>> chains(starts.size());
    std::vector<Walk_End> ends(starts.size());
    std::vector<uint32_t> owner(g.count, UINT32_MAX);
    for (std::size_t k = 0; k < starts.size(); ++k) {
        ends[k] = walk_directory(classes, sat, starts[k].first, chains[k]);
        for (sid_t s : chains[k])
            owner[s] = owner[s] == UINT32_MAX ? static_cast<uint32_t>(k) : owner[s];
    }
    std::vector<Dir_Candidate> out;
    for (std::size_t k = 0; k < starts.size(); ++k) {
        // A root record in a sector that reads better as a table (a large file's SAT sector
        // whose ids carry the root's type byte) starts no chain: no candidate, as every
        // candidate needs its first sector.
        if (chains[k].empty()) continue;
        const auto& [start, source] = starts[k];
        Dir_Candidate chain;
        chain.start = source;
        chain.sectors = chains[k];
        const Walk_End end = ends[k];
        chain.chain_ends = end == Walk_End::endofchain;
        out.push_back(chain);
        if (chain.chain_ends) continue;
        std::vector<sid_t> found_here;
        for (sid_t s : found) {
            if (owner[s] == UINT32_MAX || owner[s] == k) found_here.push_back(s);
        }
        if (end == Walk_End::lost_link) {
            Dir_Candidate run = chain;
            run.order = Directory_Order::inferred_run;
            run.sectors = continue_by_run(classes, sat, chain.sectors);
            run.inferred_from = chain.sectors.size();
            if (run.sectors.size() > chain.sectors.size()) out.push_back(std::move(run));
        }
        std::vector<uint8_t> in_chain(g.count, 0);
        for (sid_t s : chain.sectors) in_chain[s] = 1;
        Dir_Candidate filled = chain;
        filled.order = Directory_Order::completed_by_content;
        for (sid_t s : found_here) {
            if (!in_chain[s]) filled.sectors.push_back(s);
        }
        // The sectors added are vouched for when they form one chain of the SAT that ends on
        // ENDOFCHAIN and goes on where the broken chain stopped (the run rule): the only way
        // to complete this directory, and not another copy's.
        bool one_chain = filled.sectors.size() > chain.sectors.size() &&
                         filled.sectors[chain.sectors.size()] == chain.sectors.back() + 1;
        for (std::size_t i = chain.sectors.size(); one_chain && i < filled.sectors.size(); ++i) {
            const sid_t s = filled.sectors[i];
            const sid_t want = i + 1 < filled.sectors.size() ? filled.sectors[i + 1] : ENDOFCHAIN;
            one_chain = sat.is_known(s) && sat.entries[s] == want;
        }
        if (!one_chain) filled.inferred_from = chain.sectors.size();
        if (filled.sectors.size() > chain.sectors.size()) out.push_back(filled);
        // A link that skips sectors can still end on ENDOFCHAIN: the content's own order is
        // a candidate of its own, vouched for as far as the SAT's links confirm it.
        Dir_Candidate scan;
        scan.start = source;
        scan.order = Directory_Order::content_order;
        scan.sectors.push_back(start);
        for (sid_t s : found_here) {
            if (s != start) scan.sectors.push_back(s);
        }
        for (std::size_t i = 1; i < scan.sectors.size(); ++i) {
            const sid_t prev = scan.sectors[i - 1];
            if (!sat.is_known(prev) || sat.entries[prev] != scan.sectors[i]) {
                scan.inferred_from = i;
                break;
            }
        }
        if (scan.sectors != chain.sectors && scan.sectors != filled.sectors)
            out.push_back(std::move(scan));
    }
    return out;
}

std::vector<sid_t> minisat_candidates(const Salvage_Input& input, const Sector_Classes& classes,
                                      const Sat_Table& sat, const Header_Evidence& header,
                                      bool header_fits, const std::vector<sid_t>& taken_starts) {
    const Sector_Geometry& g = classes.geometry;
    // Mini sector ids run up to the container's size / 64, at most the file's.
    const uint64_t mini_bound =
        (static_cast<uint64_t>(g.count) + 1) * (g.sector_size / kMiniSectorSize) +
        g.entries_per_sector();
    std::vector<sid_t> out;
    if (header_fits && header.first_minisat_sid < g.whole_count)
        out.push_back(header.first_minisat_sid);
    std::vector<uint8_t> pointed(g.count, 0);
    for (sid_t s = 0; s < sat.entries.size() && s < g.count; ++s) {
        if (sat.is_known(s) && sat.entries[s] < g.count) pointed[sat.entries[s]] = 1;
    }
    // Sectors already spoken for count as linked to.
    for (sid_t s : taken_starts) {
        if (s < g.count) pointed[s] = 1;
    }
    // Sectors that look like tables throughout first; then those that do in their first
    // entries only (a last MiniSAT sector may hold junk past the entries in use).
    constexpr std::size_t kMaxCandidates = 8;
    constexpr uint32_t kPrefixEntries = 16;
    for (const uint32_t checked : {g.entries_per_sector(), kPrefixEntries}) {
        for (sid_t s = 0; s < g.whole_count && out.size() < kMaxCandidates; ++s) {
            if (pointed[s] || !sat.is_known(s)) continue;
            const sid_t next = sat.entries[s];
            if (next == FREESECT || next == FATSECT || next == DIFSECT) continue;
            if ((classes.flags[s] & kDirLike) != 0) continue;
            const uint8_t* sector = input.bytes(g.offset(s), g.sector_size);
            if (sector == nullptr || !is_table_like(sector, checked, mini_bound)) continue;
            if (std::find(out.begin(), out.end(), s) != out.end()) continue;
            out.push_back(s);
        }
    }
    return out;
}

}  // namespace vrk::salvage
