#include "cfb_vornak/salvage/Salvage_Layout.h"

#include <algorithm>

#include "common/byte_order.h"

namespace vrk::salvage {

namespace {

bool readable_table(const Sector_Classes& classes, sid_t sid) {
    return sid < classes.geometry.whole_count && (classes.flags[sid] & kTableLike) != 0;
}

// A sector the header names as a SAT sector needs less: a damaged link may repeat an id, which
// the chains' verification catches.
bool readable_named_table(const Sector_Classes& classes, sid_t sid) {
    return sid < classes.geometry.whole_count && (classes.flags[sid] & kTableRange) != 0;
}

bool is_fixed(const Sat_Table& table, std::size_t position);

bool readable_at(const Sector_Classes& classes, const Sat_Table& table, std::size_t position) {
    const sid_t s = table.sat_sectors[position];
    return is_fixed(table, position) ? readable_named_table(classes, s)
                                     : readable_table(classes, s);
}

bool is_fixed(const Sat_Table& table, std::size_t position) {
    return position < table.fixed.size() && table.fixed[position] != 0;
}

// Which sectors hold a SAT position.
std::vector<uint8_t> placed_map(const Sat_Table& table, uint32_t count) {
    std::vector<uint8_t> placed(count, 0);
    for (sid_t s : table.sat_sectors) {
        if (s < count) placed[s] = 1;
    }
    return placed;
}

// Fills entries/known from sat_sectors, then settles contradictions. A real SAT marks its own
// sectors FATSECT, so a placed sector whose covering sector says otherwise conflicts with it;
// a placed sector that marks other placed sectors FATSECT (or is so marked) agrees with the
// placement. Each round drops the positions whose conflicts most outweigh their agreement: a
// stray MiniSAT sector at position 0 contradicts every true SAT sector it covers and agrees
// with none, while the true sector there agrees with all of them.
void assemble(const uint8_t* data, const Sector_Classes& classes, Sat_Table& table) {
    const Sector_Geometry& g = classes.geometry;
    const uint32_t per = g.entries_per_sector();
    if (per == 0) return;  // sector sizes are 512 or 4096; no division by zero below
    const std::size_t positions = table.sat_sectors.size();
    table.entries.assign(positions * per, FREESECT);
    table.known.assign(table.entries.size(), 0);
    for (std::size_t p = 0; p < positions; ++p) {
        const sid_t s = table.sat_sectors[p];
        if (!readable_at(classes, table, p)) continue;
        const uint8_t* sector = data + g.offset(s);
        for (uint32_t i = 0; i < per; ++i) {
            table.entries[p * per + i] = read_u32_le(sector + 4 * i);
            table.known[p * per + i] = 1;
        }
    }
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
                      table.known.begin() + static_cast<std::ptrdiff_t>((p + 1) * per), 0);
        }
    }
    while (!table.sat_sectors.empty() && table.sat_sectors.back() == FREESECT) {
        table.sat_sectors.pop_back();
    }
    table.entries.resize(
        std::min<std::size_t>(table.entries.size(), table.sat_sectors.size() * per));
    table.known.resize(table.entries.size());
    const std::vector<uint8_t> placed = placed_map(table, g.count);
    for (sid_t s = 0; s < table.entries.size() && s < g.count; ++s) {
        if (!table.known[s]) continue;
        if (table.entries[s] == DIFSECT) table.disat_sectors.push_back(s);
        if (table.entries[s] == FATSECT && !placed[s]) table.lost_sat_sectors.push_back(s);
    }
}

}  // namespace

Sat_Table header_sat(const uint8_t* data, const Sector_Classes& classes,
                     const Header_Evidence& header) {
    const Sector_Geometry& g = classes.geometry;
    const uint32_t per = g.entries_per_sector();
    Sat_Table table;
    table.source = "header";
    std::vector<sid_t> listed(header.header_disat.begin(), header.header_disat.end());
    std::vector<sid_t> disat;
    sid_t d = header.first_disat_sid;
    std::vector<uint8_t> seen(g.count, 0);
    // The count bounds the walk; a sector met twice or one outside the file ends it.
    for (uint32_t k = 0; k < header.num_disat_secs && k < g.count; ++k) {
        if (d >= g.whole_count || seen[d]) break;
        seen[d] = 1;
        disat.push_back(d);
        const uint8_t* sector = data + g.offset(d);
        for (uint32_t i = 0; i + 1 < per; ++i) listed.push_back(read_u32_le(sector + 4 * i));
        d = read_u32_le(sector + 4 * (per - 1));
    }
    while (!listed.empty() && is_special(listed.back())) listed.pop_back();
    for (sid_t s : listed) {
        if (is_special(s) || s >= g.count) {
            table.sat_sectors.push_back(FREESECT);
            continue;
        }
        table.sat_sectors.push_back(readable_named_table(classes, s) ? s : FREESECT);
        if (!readable_named_table(classes, s)) table.lost_sat_sectors.push_back(s);
    }
    table.fixed.assign(table.sat_sectors.size(), 1);
    const std::vector<sid_t> lost = table.lost_sat_sectors;
    assemble(data, classes, table);
    table.lost_sat_sectors.insert(table.lost_sat_sectors.end(), lost.begin(), lost.end());
    table.disat_sectors.insert(table.disat_sectors.end(), disat.begin(), disat.end());
    return table;
}

namespace {

// A DISAT sector by content: ids of table sectors (free entries only at the end), the last
// entry a link or the chain's end.
bool disat_like(const uint8_t* sector, const Sector_Classes& classes) {
    const Sector_Geometry& g = classes.geometry;
    const uint32_t per = g.entries_per_sector();
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
std::vector<sid_t> content_disat(const uint8_t* data, const Sector_Classes& classes) {
    const Sector_Geometry& g = classes.geometry;
    const uint32_t per = g.entries_per_sector();
    std::vector<uint8_t> candidate(g.count, 0);
    std::vector<sid_t> candidates;
    for (sid_t s = 0; s < g.whole_count; ++s) {
        if ((classes.flags[s] & kTableLike) == 0 || !disat_like(data + g.offset(s), classes))
            continue;
        candidate[s] = 1;
        candidates.push_back(s);
    }
    auto link_of = [&](sid_t s) { return read_u32_le(data + g.offset(s) + 4 * (per - 1)); };
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
            const uint8_t* sector = data + g.offset(chain[d]);
            for (uint32_t i = 0; i + 1 < per; ++i) {
                const sid_t v = read_u32_le(sector + 4 * i);
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

Sat_Table content_sat(const uint8_t* data, const Sector_Classes& classes) {
    const Sector_Geometry& g = classes.geometry;
    const uint32_t per = g.entries_per_sector();
    Sat_Table table;
    table.source = "content";
    const uint64_t needed = std::max<uint64_t>(1, (static_cast<uint64_t>(g.count) + per - 1) / per);
    // Places past those the file's sectors need describe sectors the file does not have (a
    // cut file's SAT runs on past its end): no chain inside the file reads them, while a
    // MiniSAT sector whose links guess such a place would be taken for a SAT sector.
    const uint64_t limit = needed;
    // Positions 109 on, as the DISAT found by content lists them, are evidence of their own.
    std::vector<uint8_t> placed(g.count, 0);
    const std::vector<sid_t> disat = content_disat(data, classes);
    for (std::size_t d = 0; d < disat.size(); ++d) {
        placed[disat[d]] = 1;
        const uint8_t* sector = data + g.offset(disat[d]);
        for (uint32_t i = 0; i + 1 < per; ++i) {
            const sid_t v = read_u32_le(sector + 4 * i);
            if (v == FREESECT) break;
            const std::size_t position = kHeaderDisatEntries + d * (per - 1) + i;
            if (table.sat_sectors.size() <= position) {
                table.sat_sectors.resize(position + 1, FREESECT);
                table.fixed.resize(position + 1, 0);
            }
            table.sat_sectors[position] = v;
            table.fixed[position] = 1;
            placed[v] = 1;
        }
    }
    // A sector without sequential links that marks its own id FATSECT covers itself, when no
    // other such sector claims that place: the last SAT sector of a table written at the
    // end of the file is one, holding only the marks of its neighbours.
    std::vector<int32_t> position = classes.sat_position;
    // Marks for sectors the file does not have would betray a sector of another place.
    auto marks_itself = [&](sid_t s) {
        if ((classes.flags[s] & kTableLike) == 0 || position[s] >= 0) return false;
        const uint8_t* sector = data + g.offset(s);
        if (read_u32_le(sector + 4 * (s % per)) != FATSECT) return false;
        for (uint64_t covered = std::max<uint64_t>(g.count, s - s % per);
             covered < static_cast<uint64_t>(s - s % per) + per; ++covered) {
            const uint32_t v = read_u32_le(sector + 4 * (covered % per));
            if (v == FATSECT || v == DIFSECT) return false;
        }
        return true;
    };
    std::vector<uint32_t> self_claims(needed, 0);
    for (sid_t s = 0; s < g.whole_count; ++s) {
        if (marks_itself(s)) ++self_claims[s / per];
    }
    for (sid_t s = 0; s < g.whole_count; ++s) {
        if (marks_itself(s) && self_claims[s / per] == 1)
            position[s] = static_cast<int32_t>(s / per);
    }
    // A SAT sector placed by its links marks the SAT sectors it covers FATSECT. A MiniSAT
    // sector, whose mini chains look just as sequential, never carries that mark.
    std::vector<uint8_t> marked(g.count, 0);
    for (sid_t s = 0; s < g.whole_count; ++s) {
        const int32_t p = position[s];
        if ((classes.flags[s] & kTableLike) == 0 || p < 0 || static_cast<uint64_t>(p) >= limit)
            continue;
        const uint8_t* sector = data + g.offset(s);
        for (uint32_t i = 0; i < per; ++i) {
            const uint64_t covered = static_cast<uint64_t>(p) * per + i;
            if (covered < g.count && read_u32_le(sector + 4 * i) == FATSECT) marked[covered] = 1;
        }
    }
    for (sid_t s = 0; s < g.whole_count; ++s) {
        if ((classes.flags[s] & kTableLike) == 0 || placed[s]) continue;
        const int32_t p = position[s];
        if (p < 0 || static_cast<uint64_t>(p) >= limit || is_fixed(table, p)) continue;
        if (table.sat_sectors.size() <= static_cast<std::size_t>(p))
            table.sat_sectors.resize(p + 1, FREESECT);
        // Two sectors claiming one place: a marked one beats an unmarked one, else the lower
        // id stays.
        sid_t& slot = table.sat_sectors[p];
        if (slot == FREESECT || (marked[s] && !marked[slot])) slot = s;
    }
    if (table.sat_sectors.size() < needed) table.sat_sectors.resize(needed, FREESECT);
    // Writers put the SAT down as runs of consecutive sectors: between two marked sectors whose
    // ids lie as far apart as their places, the sectors in between take the places in between
    // (unless their own links say otherwise), over any unmarked sector there.
    {
        sid_t prev = FREESECT;
        std::size_t prev_place = 0;
        for (std::size_t p = 0; p < table.sat_sectors.size(); ++p) {
            const sid_t s = table.sat_sectors[p];
            if (s >= g.count || !marked[s]) continue;
            if (prev != FREESECT && s > prev && s - prev == p - prev_place) {
                for (std::size_t q = prev_place + 1; q < p; ++q) {
                    const sid_t between = prev + static_cast<sid_t>(q - prev_place);
                    const bool fits =
                        (classes.flags[between] & kTableRange) != 0 &&
                        (position[between] < 0 || static_cast<std::size_t>(position[between]) == q);
                    if (fits && !placed[between] && !is_fixed(table, q))
                        table.sat_sectors[q] = between;
                }
            }
            prev = s;
            prev_place = p;
        }
    }
    assemble(data, classes, table);
    if (table.sat_sectors.size() < needed) table.sat_sectors.resize(needed, FREESECT);
    // The table sectors left out (without sequential links, losers of a place, or dropped by
    // the settling) fill the free places in ascending order: first those the table marks
    // FATSECT, then those it says nothing about.
    for (int pass = 0; pass < 2; ++pass) {
        std::size_t p = 0;
        placed = placed_map(table, g.count);
        for (sid_t d : disat) placed[d] = 1;
        for (sid_t s = 0; s < g.whole_count; ++s) {
            if ((classes.flags[s] & kTableLike) == 0 || placed[s]) continue;
            const bool marked = table.is_known(s) && table.entries[s] == FATSECT;
            if (pass == 0 ? !marked : (table.is_known(s))) continue;
            // A sector whose links name its place goes nowhere else.
            const int32_t own = position[s];
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
        assemble(data, classes, table);
        if (table.sat_sectors.size() < needed) table.sat_sectors.resize(needed, FREESECT);
    }
    return table;
}

Sat_Table mixed_sat(const uint8_t* data, const Sector_Classes& classes, const Sat_Table& header,
                    const Sat_Table& content) {
    Sat_Table table;
    table.source = "header+content";
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
    assemble(data, classes, table);
    table.disat_sectors.insert(table.disat_sectors.end(), header.disat_sectors.begin(),
                               header.disat_sectors.end());
    table.lost_sat_sectors.insert(table.lost_sat_sectors.end(), header.lost_sat_sectors.begin(),
                                  header.lost_sat_sectors.end());
    return table;
}

namespace {

// Walks directory sectors from `start` while the SAT links them; true when ENDOFCHAIN ended it.
bool walk_directory(const Sector_Classes& classes, const Sat_Table& sat, sid_t start,
                    std::vector<sid_t>& out) {
    const Sector_Geometry& g = classes.geometry;
    std::vector<uint8_t> seen(g.count, 0);
    sid_t cur = start;
    for (uint32_t step = 0; step < g.count; ++step) {
        if (cur >= g.whole_count || seen[cur] || (classes.flags[cur] & kDirOk) == 0) return false;
        // A table sector's small ids read as empty records; a real directory sector never
        // looks like a table (its empty records repeat zeros).
        if ((classes.flags[cur] & (kTableLike | kDirLike)) == kTableLike) return false;
        seen[cur] = 1;
        out.push_back(cur);
        if (!sat.is_known(cur)) return false;
        const sid_t next = sat.entries[cur];
        if (next == ENDOFCHAIN) return true;
        cur = next;
    }
    return false;
}

}  // namespace

std::vector<Dir_Candidate> directory_candidates(const Sector_Classes& classes, const Sat_Table& sat,
                                                const Header_Evidence& header, bool header_fits) {
    const Sector_Geometry& g = classes.geometry;
    std::vector<std::pair<sid_t, std::string>> starts;
    if (header_fits && header.first_dir_sid < g.whole_count &&
        (classes.flags[header.first_dir_sid] & kRootFirst)) {
        starts.emplace_back(header.first_dir_sid, "header's first directory sector");
    }
    // Compound files kept as stream data (embedded objects, attachments) bring root records of
    // their own. A writer puts the directory before the data or after it, so the first and
    // the last root records found are tried.
    constexpr std::size_t kMaxRoots = 8;
    std::vector<sid_t> roots;
    for (sid_t s = 0; s < g.whole_count; ++s) {
        if ((classes.flags[s] & kRootFirst) == 0) continue;
        if (!starts.empty() && starts.front().first == s) continue;
        roots.push_back(s);
    }
    if (roots.size() > kMaxRoots)
        roots.erase(roots.begin() + kMaxRoots / 2, roots.end() - kMaxRoots / 2);
    for (sid_t s : roots)
        starts.emplace_back(s, "root record found in sector " + std::to_string(s));
    // Directory-like sectors that no table marks as its own, in ascending order.
    std::vector<sid_t> found;
    for (sid_t s = 0; s < g.whole_count; ++s) {
        if ((classes.flags[s] & kDirLike) == 0 || (classes.flags[s] & kRootFirst) != 0) continue;
        if (sat.is_known(s) && (sat.entries[s] == FATSECT || sat.entries[s] == DIFSECT)) continue;
        found.push_back(s);
    }
    std::vector<Dir_Candidate> out;
    for (const auto& [start, why] : starts) {
        Dir_Candidate chain;
        const bool complete = walk_directory(classes, sat, start, chain.sectors);
        chain.chain_ends = complete;
        chain.source =
            why + (complete ? ", chain through the SAT" : ", chain through the SAT (broken)");
        out.push_back(chain);
        std::vector<uint8_t> in_chain(g.count, 0);
        for (sid_t s : chain.sectors) in_chain[s] = 1;
        if (!complete) {
            Dir_Candidate filled = chain;
            filled.source =
                why + ", chain through the SAT completed by directory sectors found by content";
            for (sid_t s : found) {
                if (!in_chain[s]) filled.sectors.push_back(s);
            }
            if (filled.sectors.size() > chain.sectors.size()) out.push_back(std::move(filled));
        }
        // A link that skips sectors can still end on ENDOFCHAIN: the content's own order is
        // a candidate of its own.
        Dir_Candidate scan;
        scan.source = why + ", directory sectors found by content in ascending order";
        scan.sectors.push_back(start);
        for (sid_t s : found) {
            if (s != start) scan.sectors.push_back(s);
        }
        if (scan.sectors != chain.sectors && scan.sectors != out.back().sectors)
            out.push_back(std::move(scan));
    }
    return out;
}

std::vector<sid_t> minisat_candidates(const uint8_t* data, const Sector_Classes& classes,
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
        if (sat.known[s] && sat.entries[s] < g.count) pointed[sat.entries[s]] = 1;
    }
    // Sectors already spoken for count as linked to.
    for (sid_t s : taken_starts) {
        if (s < g.count) pointed[s] = 1;
    }
    constexpr std::size_t kMaxCandidates = 8;
    for (sid_t s = 0; s < g.whole_count && out.size() < kMaxCandidates; ++s) {
        if (pointed[s] || !sat.is_known(s)) continue;
        const sid_t next = sat.entries[s];
        if (next == FREESECT || next == FATSECT || next == DIFSECT) continue;
        if ((classes.flags[s] & kDirLike) != 0) continue;
        if (!is_table_like(data + g.offset(s), g.entries_per_sector(), mini_bound)) continue;
        if (std::find(out.begin(), out.end(), s) != out.end()) continue;
        out.push_back(s);
    }
    return out;
}

}  // namespace vrk::salvage
