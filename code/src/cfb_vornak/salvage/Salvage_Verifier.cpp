#include "cfb_vornak/salvage/Salvage_Verifier.h"

#include <algorithm>

#include "common/byte_order.h"

namespace vrk::salvage {

namespace {

// A chain as far as the table vouches for it.
struct Walk {
    std::vector<sid_t> sectors;
    bool exact = false;    // exactly the sectors the size needs, then ENDOFCHAIN
    bool damaged = false;  // some link is wrong: none of the walk can be vouched for
    std::string stop;      // why the walk ended early, empty when exact
};

// Visit marks with a fresh epoch per walk, so no walk clears the array.
struct Stamps {
    explicit Stamps(std::size_t n) : marks(n, 0) {}
    std::vector<uint32_t> marks;
    uint32_t epoch = 0;
    void next() { ++epoch; }
    bool visit(uint32_t i) {
        if (marks[i] == epoch) return false;
        marks[i] = epoch;
        return true;
    }
};

// Walks `needed` links from `start` through `table` (entries known per `known`), ids below
// `limit` being present. A walk that stops at an unknown entry or at a sector the table
// covers but the file (or container) has lost is cut short, not damaged: its prefix is as
// sound as the table. `unit` names the kind of sector in the texts.
Walk walk_chain(const std::vector<sid_t>& table, const std::vector<uint8_t>& known, uint32_t limit,
                sid_t start, uint64_t needed, Stamps& stamps, const char* unit) {
    Walk w;
    stamps.next();
    sid_t cur = start;
    const uint64_t bound = std::min<uint64_t>(needed, limit);
    for (uint64_t i = 0; i < bound; ++i) {
        if (is_special(cur) || cur >= limit) {
            w.damaged = is_special(cur) || cur >= table.size();
            w.stop =
                std::string("link to ") + unit + " " + std::to_string(cur) +
                (w.damaged ? " is not a sector of the chain" : " leads past the end of the data");
            return w;
        }
        if (!stamps.visit(cur)) {
            w.damaged = true;
            w.stop = std::string("ring: ") + unit + " " + std::to_string(cur) + " comes twice";
            return w;
        }
        w.sectors.push_back(cur);
        if (cur >= table.size() || !known[cur]) {
            w.stop =
                std::string("table entry of ") + unit + " " + std::to_string(cur) + " is unknown";
            return w;
        }
        const sid_t next = table[cur];
        if (i + 1 == needed) {
            w.exact = next == ENDOFCHAIN;
            w.damaged = !w.exact;
            if (!w.exact)
                w.stop = std::string("chain does not end at ") + unit + " " + std::to_string(cur);
            return w;
        }
        cur = next;
    }
    if (needed > bound) {
        w.damaged = true;
        w.stop = "size needs more sectors than there are";
    } else {
        w.exact = true;  // needed == 0
    }
    return w;
}

void claim(std::vector<uint8_t>& claims, sid_t s) {
    if (s < claims.size() && claims[s] < 2) ++claims[s];
}

void add_piece(std::vector<Salvage_Piece>& pieces, uint64_t stream_offset, uint64_t file_offset,
               uint64_t length) {
    if (length == 0) return;
    if (!pieces.empty()) {
        Salvage_Piece& last = pieces.back();
        if (last.stream_offset + last.length == stream_offset &&
            last.file_offset + last.length == file_offset) {
            last.length += length;
            return;
        }
    }
    pieces.push_back({stream_offset, file_offset, length});
}

uint64_t pieces_length(const std::vector<Salvage_Piece>& pieces) {
    uint64_t n = 0;
    for (const Salvage_Piece& p : pieces) n += p.length;
    return n;
}

// The trusted prefix of a walk over sectors: it ends at a shared sector or at the file's end.
struct Trusted {
    std::vector<Salvage_Piece> pieces;
    std::vector<sid_t> sectors;  // wholly trusted sectors, in order
    std::string stop;
};

Trusted trust_big(const Walk& w, uint64_t size, const Sector_Geometry& g,
                  const std::vector<uint8_t>& claims) {
    Trusted t;
    for (std::size_t k = 0; k < w.sectors.size(); ++k) {
        const sid_t s = w.sectors[k];
        const uint64_t at = static_cast<uint64_t>(k) * g.sector_size;
        if (at >= size) break;
        if (claims[s] > 1) {
            t.stop = "sector " + std::to_string(s) + " belongs to two chains";
            return t;
        }
        const uint64_t want = std::min<uint64_t>(g.sector_size, size - at);
        const uint64_t have = std::min(want, g.bytes_in_file(s));
        add_piece(t.pieces, at, g.offset(s), have);
        if (have < want) {
            t.stop = "the file ends inside sector " + std::to_string(s);
            return t;
        }
        t.sectors.push_back(s);
    }
    return t;
}

std::string count_text(uint64_t n, const char* unit) {
    return std::to_string(n) + " " + unit + (n == 1 ? "" : "s");
}

}  // namespace

bool Evaluation::better_than(const Evaluation& other) const {
    if (resolved != other.resolved) return resolved > other.resolved;
    if (recovered_bytes != other.recovered_bytes) return recovered_bytes > other.recovered_bytes;
    return reached > other.reached;
}

Evaluation evaluate_layout(const uint8_t* data, const Sector_Classes& classes,
                           const Layout_Choice& layout, bool collect_lost) {
    const Sector_Geometry& g = classes.geometry;
    const Sat_Table& sat = *layout.sat;
    Evaluation ev;
    Salvage_Result& res = ev.result;
    res.sector_size = g.sector_size;

    // 1. Directory records, in the order of the directory sectors.
    std::vector<Dir_Record> recs;
    std::vector<uint8_t> valid;
    const uint32_t slots = g.sector_size / kDirEntrySize;
    for (sid_t s : layout.directory->sectors) {
        for (uint32_t slot = 0; slot < slots; ++slot) {
            const uint8_t* p = data + g.offset(s) + static_cast<uint64_t>(kDirEntrySize) * slot;
            recs.push_back(decode_dir_record(p, g.sector_size == 4096));
            valid.push_back(classify_dir_record(p) == Record_Kind::valid ? 1 : 0);
        }
    }
    if (recs.empty() || !valid[0] || recs[0].object_type != 5) return ev;
    res.is_compound_file = true;

    // 2. The tree from the root; an id met twice (a ring) or an implausible record is skipped.
    std::vector<uint32_t> dids;
    auto add_entry = [&](uint32_t did, int32_t parent) {
        const Dir_Record& r = recs[did];
        Salvaged_Entry e;
        e.did = did;
        e.object_type = r.object_type;
        e.name = did == 0 ? u"Root Entry" : r.name();
        e.parent = parent;
        e.clsid = r.clsid;
        e.state_bits = r.state_bits;
        e.creation_time = r.creation_time;
        e.modified_time = r.modified_time;
        e.size = r.size;
        e.start = r.start;
        res.entries.push_back(std::move(e));
        dids.push_back(did);
    };
    add_entry(0, -1);
    {
        std::vector<uint8_t> seen(recs.size(), 0);
        seen[0] = 1;
        std::vector<std::pair<uint32_t, int32_t>> stack{{recs[0].child, 0}};
        // Each record enters the tree at most once, so at most 3 pushes per record.
        while (!stack.empty()) {
            const auto [did, parent] = stack.back();
            stack.pop_back();
            if (did >= recs.size() || seen[did] || !valid[did] || recs[did].object_type == 5)
                continue;
            seen[did] = 1;
            const int32_t index = static_cast<int32_t>(res.entries.size());
            add_entry(did, parent);
            stack.emplace_back(recs[did].right, parent);
            if (recs[did].object_type == 1) stack.emplace_back(recs[did].child, index);
            stack.emplace_back(recs[did].left, parent);
        }
    }
    ev.reached = static_cast<uint32_t>(res.entries.size());

    // 3. Every chain the layout knows claims its sectors; a sector claimed twice is trusted by
    // nobody.
    std::vector<uint8_t> claims(g.count, 0);
    for (sid_t s : sat.sat_sectors) claim(claims, s);
    for (sid_t s : sat.lost_sat_sectors) claim(claims, s);
    for (sid_t s : sat.disat_sectors) claim(claims, s);
    for (sid_t s : layout.directory->sectors) claim(claims, s);
    Stamps stamps(g.count);

    std::vector<sid_t> minisat;
    std::vector<sid_t> mini_table;
    std::vector<uint8_t> mini_known;
    const Dir_Record& root = recs[0];
    const uint64_t mini_count = root.size / kMiniSectorSize;
    if (layout.minisat_start != ENDOFCHAIN) {
        const uint32_t per = g.entries_per_sector();
        stamps.next();
        sid_t cur = layout.minisat_start;
        for (uint32_t step = 0; step < g.count; ++step) {
            if (cur >= g.whole_count || !stamps.visit(cur)) break;
            if (!is_table_like(data + g.offset(cur), per, mini_count + per, true)) break;
            minisat.push_back(cur);
            for (uint32_t i = 0; i < per; ++i)
                mini_table.push_back(read_u32_le(data + g.offset(cur) + 4 * i));
            if (!sat.is_known(cur) || sat.entries[cur] == ENDOFCHAIN) break;
            cur = sat.entries[cur];
        }
        for (sid_t s : minisat) claim(claims, s);
        mini_known.assign(mini_table.size(), 1);
    }

    const uint32_t ss = g.sector_size;
    auto sectors_for = [ss](uint64_t size) { return (size + ss - 1) / ss; };
    const Walk container_walk = walk_chain(sat.entries, sat.known, g.count, root.start,
                                           sectors_for(root.size), stamps, "sector");
    for (sid_t s : container_walk.sectors) claim(claims, s);

    std::vector<Walk> walks(res.entries.size());
    const uint32_t cutoff = layout.mini_stream_cutoff;
    for (std::size_t i = 1; i < res.entries.size(); ++i) {
        const Salvaged_Entry& e = res.entries[i];
        if (e.object_type != 2 || e.size < cutoff) continue;
        walks[i] = walk_chain(sat.entries, sat.known, g.count, recs[dids[i]].start,
                              sectors_for(e.size), stamps, "sector");
        for (sid_t s : walks[i].sectors) claim(claims, s);
    }

    // 4. The container's trusted sectors hold the mini sectors; a container chain with a wrong
    // link would put the right mini chains over the wrong bytes, so it holds none.
    const Trusted container =
        container_walk.damaged ? Trusted{} : trust_big(container_walk, root.size, g, claims);
    const uint64_t mini_limit = std::min<uint64_t>(
        mini_count, static_cast<uint64_t>(container.sectors.size()) * (ss / kMiniSectorSize));
    std::vector<uint8_t> mini_claims(
        static_cast<std::size_t>(std::min<uint64_t>(mini_limit, mini_table.size())), 0);
    Stamps mini_stamps(mini_claims.size());
    for (std::size_t i = 1; i < res.entries.size(); ++i) {
        const Salvaged_Entry& e = res.entries[i];
        if (e.object_type != 2 || e.size >= cutoff) continue;
        walks[i] = walk_chain(mini_table, mini_known, static_cast<uint32_t>(mini_claims.size()),
                              recs[dids[i]].start, (e.size + kMiniSectorSize - 1) / kMiniSectorSize,
                              mini_stamps, "mini sector");
        for (sid_t m : walks[i].sectors) claim(mini_claims, m);
    }

    // 5. Each stream's verified bytes.
    for (std::size_t i = 0; i < res.entries.size(); ++i) {
        Salvaged_Entry& e = res.entries[i];
        if (e.object_type != 2) {
            ++ev.resolved;
            continue;
        }
        const Walk& w = walks[i];
        std::string stop = w.stop;
        const sid_t start = recs[dids[i]].start;
        if (e.size >= cutoff) {
            Trusted t = trust_big(w, e.size, g, claims);
            e.pieces = std::move(t.pieces);
            if (stop.empty()) stop = t.stop;
            e.evidence = "SAT chain from sector " + std::to_string(start) + ", " +
                         count_text(w.sectors.size(), "sector");
        } else {
            for (std::size_t k = 0; k < w.sectors.size(); ++k) {
                const sid_t m = w.sectors[k];
                if (mini_claims[m] > 1) {
                    if (stop.empty() || w.exact)
                        stop = "mini sector " + std::to_string(m) + " belongs to two chains";
                    break;
                }
                const uint64_t at = k * kMiniSectorSize;
                const uint64_t in_container = static_cast<uint64_t>(m) * kMiniSectorSize;
                const sid_t host = container.sectors[in_container / ss];
                add_piece(e.pieces, at, g.offset(host) + in_container % ss,
                          std::min<uint64_t>(kMiniSectorSize, e.size - at));
            }
            e.evidence = "MiniSAT chain from mini sector " + std::to_string(start) + ", " +
                         count_text(w.sectors.size(), "mini sector") + " in the root's container";
        }
        const uint64_t got = pieces_length(e.pieces);
        if (got == e.size && w.exact) {
            e.state = Salvage_State::recovered;
            e.evidence += ", ends on ENDOFCHAIN";
            ++ev.resolved;
        } else {
            e.state = got == 0 ? Salvage_State::lost : Salvage_State::partial;
            if (e.size > got) e.missing.push_back({got, e.size - got});
            e.evidence += "; " + (stop.empty() ? std::string("chain incomplete") : stop);
        }
        ev.recovered_bytes += got;
    }

    // 6. Chains nobody claims: heads in known table entries that nothing links to.
    if (collect_lost) {
        std::vector<uint8_t> pointed(g.count, 0);
        for (sid_t s = 0; s < sat.entries.size() && s < g.count; ++s) {
            if (sat.known[s] && sat.entries[s] < g.count) pointed[sat.entries[s]] = 1;
        }
        std::vector<uint8_t> used(g.count, 0);
        for (sid_t h = 0; h < g.count; ++h) {
            if (pointed[h] || claims[h] || !sat.is_known(h)) continue;
            const sid_t first_next = sat.entries[h];
            if (first_next == FREESECT || first_next == FATSECT || first_next == DIFSECT) continue;
            Salvage_Lost_Chain chain;
            chain.first_sector = h;
            sid_t cur = h;
            uint64_t at = 0;
            for (uint32_t step = 0; step < g.count; ++step) {
                if (cur >= g.count || used[cur] || claims[cur]) break;
                used[cur] = 1;
                add_piece(chain.pieces, at, g.offset(cur), g.bytes_in_file(cur));
                at += g.bytes_in_file(cur);
                if (!sat.is_known(cur)) break;
                cur = sat.entries[cur];
            }
            if (!chain.pieces.empty()) res.lost_chains.push_back(std::move(chain));
        }
    }
    return ev;
}

}  // namespace vrk::salvage
