// Resolving one layout, in steps:
//  1. The directory records, in the order of the directory sectors; records from sectors whose
//     place is not vouched for are marked so.
//  2. The tree from the root; an id met twice (a ring) or an unusable record is skipped. The
//     records no link from the root reaches become orphans, under a storage "orphans".
//  3. The table and directory sectors are claimed.
//  4. The root's short-stream container chain.
//  5. The chains of the big streams, through the SAT.
//  6. The MiniSAT, through its SAT chain.
//  7. The chains of the small streams, through the MiniSAT, inside the container.
//  8. Links lost with their table sector, inferred by the run rule where that collides with no
//     verified chain and fits the size.
//  9. Each stream's state and bytes. A sector that two chains claim is trusted by neither.
// 10. The chains nobody claims (final pass only).
// 11. What speaks for the layout: what the SAT says of the directory chain, how far the layout
//     reaches, when its root was saved.
#include "cfb_vornak/salvage/Salvage_Verifier.h"

#include <algorithm>
#include <tuple>

#include "common/byte_order.h"

namespace vrk::salvage {

int Layout_Support::compare_dir_support(const Layout_Support& o) const {
    const int64_t mine = (int64_t{dir_confirmations} - int64_t{dir_contradictions}) *
                         std::max<int64_t>(1, o.dir_sectors);
    const int64_t theirs = (int64_t{o.dir_confirmations} - int64_t{o.dir_contradictions}) *
                           std::max<int64_t>(1, dir_sectors);
    return mine < theirs ? -1 : mine > theirs ? 1 : 0;
}

bool Evaluation::better_than(const Evaluation& o) const {
    const Layout_Support& a = support;
    const Layout_Support& b = o.support;
    const int dir = a.compare_dir_support(b);
    return std::make_tuple(b.header_conflicts, o.loose_ends, a.reach, a.root_time, a.sat_agreement,
                           dir, resolved, inferred, recovered_bytes, reached) >
           std::make_tuple(a.header_conflicts, loose_ends, b.reach, b.root_time, b.sat_agreement, 0,
                           o.resolved, o.inferred, o.recovered_bytes, o.reached);
}

bool Evaluation::outranks(const Evaluation& o) const {
    const Layout_Support& a = support;
    const Layout_Support& b = o.support;
    // The header's own word outweighs what the sectors say.
    if (a.header_conflicts != b.header_conflicts) return a.header_conflicts < b.header_conflicts;
    // A tree whose links lead nowhere was read from the wrong sectors, or from too few.
    if (loose_ends != o.loose_ends) return loose_ends < o.loose_ends;
    // A later save: it reaches further into the file or its root was saved later, and is
    // older on neither count.
    if (a.reach >= b.reach && a.root_time >= b.root_time &&
        (a.reach > b.reach || a.root_time > b.root_time))
        return true;
    if (a.reach != b.reach || a.root_time != b.root_time) return false;
    // The same save: the tables that vouch more for themselves and for the directory.
    const int dir = a.compare_dir_support(b);
    const bool at_least = dir >= 0 && a.sat_agreement >= b.sat_agreement;
    const bool better = dir > 0 || a.sat_agreement > b.sat_agreement;
    return at_least && (better || resolved > o.resolved);
}

bool Evaluation::complete() const {
    return result.is_compound_file && resolved == reached && inferred == 0 && loose_ends == 0 &&
           orphans == 0 && dir_chain_ends && support.dir_contradictions == 0;
}

namespace {

using layout::kTypeRootStorage;
using layout::kTypeStorage;
using layout::kTypeStream;

struct Record {
    Directory_Entry entry;
    uint64_t size = 0;  // 64 bits in version 4 files
    Record_Kind kind = Record_Kind::empty;
    bool vouched = true;  // its sector's place in the directory is vouched for
};

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

std::string count_text(uint64_t n, const char* unit) {
    return std::to_string(n) + " " + unit + (n == 1 ? "" : "s");
}

uint64_t ceil_div(uint64_t a, uint64_t b) {
    return a / b + (a % b != 0 ? 1 : 0);
}

// Bytes of a walk over whole sectors, trusted as far as no other chain claims a sector (each
// walker claims its own sectors `own` times) and the file holds them.
struct Trusted {
    std::vector<Salvage_Piece> pieces;
    std::vector<sid_t> sectors;  // wholly trusted sectors, in order
    std::string stop;
};

Trusted trust_sectors(const std::vector<sid_t>& ids, uint64_t size, const Sector_Geometry& g,
                      const std::vector<uint8_t>& claims, uint8_t own) {
    Trusted t;
    for (std::size_t k = 0; k < ids.size(); ++k) {
        const sid_t s = ids[k];
        const uint64_t at = static_cast<uint64_t>(k) * g.sector_size;
        if (at >= size) break;
        if (claims[s] > own) {
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

class Resolver {
  public:
    Resolver(const Salvage_Input& input, const Sector_Classes& classes, const Layout_Choice& layout)
        : m_input(input),
          m_classes(classes),
          m_g(classes.geometry),
          m_layout(layout),
          m_sat(*layout.sat),
          m_marks(classes.geometry.count) {}

    Evaluation run(bool collect_lost) {
        m_ev.result.sector_size = m_g.sector_size;
        m_ev.result.sat_source = m_sat.source;
        if (!read_records()) return std::move(m_ev);
        m_ev.result.is_compound_file = true;
        build_tree();
        add_orphans();
        claim_tables();
        walk_container();
        walk_big_streams();
        read_minisat();
        walk_mini_streams();
        infer_lost_links();
        settle_streams();
        if (collect_lost) collect_lost_chains();
        weigh_directory();
        return std::move(m_ev);
    }

  private:
    struct Entry_Work {
        uint32_t record = NOSTREAM;  // index into m_records; NOSTREAM for "orphans"
        bool vouched = true;         // the record and every link that led to it are vouched for
        bool mini = false;
        Chain_Walk walk;      // verified links only
        Chain_Walk guess;     // with the run rule, where the verified walk met a lost link
        bool claims = false;  // the verified walk's ids count in the claims
        bool guess_ok = false;
    };

    // 1. The directory records.
    bool read_records() {
        const Dir_Candidate& dir = *m_layout.directory;
        const uint32_t slots = m_g.sector_size / kDirEntrySize;
        for (std::size_t k = 0; k < dir.sectors.size(); ++k) {
            const bool vouched = k < dir.inferred_from;
            for (uint32_t slot = 0; slot < slots; ++slot) {
                const uint8_t* p = m_input.bytes(
                    m_g.offset(dir.sectors[k]) + static_cast<uint64_t>(kDirEntrySize) * slot,
                    kDirEntrySize);
                if (p == nullptr) break;
                const auto did = static_cast<uint32_t>(m_records.size());
                m_records.push_back({decode_directory_entry(p, did),
                                     dir_record_size(p, m_g.sector_size == 4096),
                                     classify_dir_record(p), vouched});
            }
        }
        return !m_records.empty() && m_records[0].kind == Record_Kind::valid &&
               m_records[0].entry.object_type == kTypeRootStorage;
    }

    bool usable(uint32_t did) const {
        const Record& r = m_records[did];
        return (r.kind == Record_Kind::valid || r.kind == Record_Kind::bad_name) &&
               (r.entry.object_type == kTypeStorage || r.entry.object_type == kTypeStream);
    }

    int32_t add_entry(uint32_t did, int32_t parent, bool vouched, bool orphan) {
        Salvaged_Entry e;
        e.parent = parent;
        e.orphan = orphan;
        Entry_Work work;
        work.vouched = vouched;
        if (did == NOSTREAM) {
            e.object_type = kTypeStorage;
            e.name = u"orphans";
        } else {
            const Record& r = m_records[did];
            e.did = did;
            e.object_type = r.entry.object_type;
            e.bad_name = r.kind == Record_Kind::bad_name;
            const std::string digits = std::to_string(did);
            e.name = did == 0     ? u"Root Entry"
                     : e.bad_name ? u"record_" + std::u16string(digits.begin(), digits.end())
                                  : dir_record_name(r.entry);
            e.clsid = r.entry.clsid;
            e.state_bits = r.entry.state_bits;
            e.creation_time = r.entry.creation_time;
            e.modified_time = r.entry.modified_time;
            e.size = r.size;
            e.start = r.entry.start_sid;
            work.record = did;
        }
        m_ev.result.entries.push_back(std::move(e));
        m_work.push_back(std::move(work));
        return static_cast<int32_t>(m_ev.result.entries.size() - 1);
    }

    // Adds the records reachable from `start` (a child or sibling link) under `parent`;
    // `seen` keeps every record to one place.
    void add_subtree(uint32_t start, int32_t parent, bool vouched, bool orphan) {
        struct Todo {
            uint32_t did;
            int32_t parent;
            bool vouched;
        };
        std::vector<Todo> stack{{start, parent, vouched}};
        // Each record enters the tree at most once, so at most 3 pushes per record.
        while (!stack.empty()) {
            const Todo t = stack.back();
            stack.pop_back();
            if (t.did == NOSTREAM) continue;
            if (t.did >= m_records.size() || m_seen[t.did] || !usable(t.did)) {
                // A link to nothing usable, or back into the tree.
                ++m_ev.loose_ends;
                continue;
            }
            m_seen[t.did] = 1;
            const Record& r = m_records[t.did];
            const bool v = t.vouched && r.vouched;
            const int32_t index = add_entry(t.did, t.parent, v, orphan);
            stack.push_back({r.entry.right_sibling_id, t.parent, v});
            if (r.entry.object_type == kTypeStorage) stack.push_back({r.entry.child_id, index, v});
            stack.push_back({r.entry.left_sibling_id, t.parent, v});
        }
    }

    // 2. The tree from the root.
    void build_tree() {
        m_seen.assign(m_records.size(), 0);
        m_seen[0] = 1;
        add_entry(0, -1, m_records[0].vouched, false);
        add_subtree(m_records[0].entry.child_id, 0, m_records[0].vouched, false);
    }

    // 2. The orphans: records no link from the root reaches. Those an orphan storage reaches
    // stay below it; the others go under "orphans".
    void add_orphans() {
        std::vector<uint8_t> below(m_records.size(), 0);
        for (uint32_t did = 1; did < m_records.size(); ++did) {
            if (m_seen[did] || !usable(did) || m_records[did].entry.object_type != kTypeStorage)
                continue;
            // Marks what this storage reaches, without taking it yet.
            std::vector<uint32_t> stack{m_records[did].entry.child_id};
            std::vector<uint8_t> met(m_records.size(), 0);
            while (!stack.empty()) {
                const uint32_t d = stack.back();
                stack.pop_back();
                if (d >= m_records.size() || met[d] || d == did || !usable(d)) continue;
                met[d] = 1;
                below[d] = 1;
                const Directory_Entry& f = m_records[d].entry;
                stack.insert(stack.end(), {f.left_sibling_id, f.right_sibling_id});
                if (f.object_type == kTypeStorage) stack.push_back(f.child_id);
            }
        }
        int32_t orphans = -1;
        for (uint32_t did = 1; did < m_records.size(); ++did) {
            if (m_seen[did] || !usable(did) || below[did]) continue;
            if (orphans < 0) orphans = add_entry(NOSTREAM, 0, true, true);
            m_seen[did] = 1;
            ++m_ev.orphans;
            const Record& r = m_records[did];
            const int32_t index = add_entry(did, orphans, r.vouched, true);
            if (r.entry.object_type == kTypeStorage)
                add_subtree(r.entry.child_id, index, r.vouched, true);
        }
        for (const Record& r : m_records) {
            if (r.kind == Record_Kind::invalid && r.entry.object_type == kTypeStream)
                ++m_ev.result.unplaced_stream_records;
        }
    }

    // 3. Every table and directory sector is claimed.
    void claim_tables() {
        m_claims.assign(m_g.count, 0);
        for (sid_t s : m_sat.sat_sectors) claim(m_claims, s);
        for (sid_t s : m_sat.lost_sat_sectors) claim(m_claims, s);
        for (sid_t s : m_sat.disat_sectors) claim(m_claims, s);
        const std::vector<sid_t>& dir = m_layout.directory->sectors;
        for (sid_t s : dir) claim(m_claims, s);
        // How far the save reaches: only directory sectors that hold a record the tree uses,
        // and were not placed by inference (free zeroed sectors read as empty records).
        const uint32_t per = m_g.sector_size / kDirEntrySize;
        for (const Salvaged_Entry& e : m_ev.result.entries) {
            const std::size_t k = e.did == NOSTREAM ? dir.size() : e.did / per;
            if (k < dir.size() && k < m_layout.directory->inferred_from) claim_held(dir[k]);
        }
    }

    // Claims a sector the directory or a chain holds, and notes how far the layout reaches.
    // The tables are left out: an older save's directory read with the live tables reaches
    // no further for them.
    void claim_held(sid_t s) {
        claim(m_claims, s);
        if (s < m_g.count)
            m_ev.support.reach = std::max(m_ev.support.reach, m_g.offset(s) + m_g.sector_size);
    }

    Walk_Rules big_rules(uint64_t size) const {
        Walk_Rules rules;
        rules.needed = ceil_div(size, m_g.sector_size);
        rules.unit = "sector";
        return rules;
    }

    const Record& root() const { return m_records[0]; }

    // 4. The short-stream container.
    void walk_container() {
        m_container = walk_chain(m_sat.links(m_g.count), root().entry.start_sid,
                                 big_rules(root().size), m_marks);
        for (sid_t s : m_container.ids) claim_held(s);
    }

    // 5. The big streams.
    void walk_big_streams() {
        for (std::size_t i = 1; i < m_work.size(); ++i) {
            const Salvaged_Entry& e = m_ev.result.entries[i];
            Entry_Work& w = m_work[i];
            if (e.object_type != kTypeStream) continue;
            w.mini = e.size < Mini_Stream::kCutoff;
            if (w.mini) continue;
            w.walk = walk_chain(m_sat.links(m_g.count), m_records[w.record].entry.start_sid,
                                big_rules(e.size), m_marks);
            // An orphan's walk that breaks off is likely an older entry whose sectors were
            // given to others since: it does not get to cast doubt on them.
            w.claims = !e.orphan || w.walk.complete;
            if (w.claims) {
                for (sid_t s : w.walk.ids) claim_held(s);
            }
        }
    }

    uint64_t mini_sectors_needed() const { return ceil_div(root().size, kMiniSectorSize); }

    // Appends the entries of MiniSAT sector `sid` to the mini table; false when the entries
    // the container needs do not look like a table (past them a last sector may hold junk).
    bool append_minisat_sector(sid_t sid, uint8_t knowledge) {
        const uint32_t per = m_g.entries_per_sector();
        const uint8_t* sector = m_input.bytes(m_g.offset(sid), m_g.sector_size);
        const uint64_t needed = mini_sectors_needed();
        const uint64_t used = needed > m_mini_table.size()
                                  ? std::min<uint64_t>(per, needed - m_mini_table.size())
                                  : 1;
        if (sector == nullptr ||
            !is_table_like(sector, static_cast<uint32_t>(used), needed + per, true))
            return false;
        for (uint32_t i = 0; i < per; ++i) {
            m_mini_table.push_back(read_u32_le(sector + 4 * i));
            m_mini_known.push_back(knowledge);
        }
        return true;
    }

    // 6. The MiniSAT.
    void read_minisat() {
        if (m_layout.minisat_start == ENDOFCHAIN) return;
        Walk_Rules rules;
        rules.needed = ceil_div(mini_sectors_needed(), m_g.entries_per_sector());
        m_minisat = walk_chain(m_sat.links(m_g.count), m_layout.minisat_start, rules, m_marks);
        std::size_t read = 0;
        while (read < m_minisat.ids.size() &&
               append_minisat_sector(m_minisat.ids[read], kEntryRead))
            ++read;
        m_minisat.ids.resize(read);
        for (sid_t s : m_minisat.ids) claim(m_claims, s);
        forget_repeated_links(m_mini_table, m_mini_known, mini_sectors_needed());
    }

    // Mini sectors whose bytes lie in container sectors no other chain claims.
    uint64_t mini_present(const std::vector<sid_t>& container_sectors) const {
        return std::min<uint64_t>(
            mini_sectors_needed(),
            static_cast<uint64_t>(container_sectors.size()) * (m_g.sector_size / kMiniSectorSize));
    }

    Walk_Rules mini_rules(uint64_t size) const {
        Walk_Rules rules;
        rules.needed = ceil_div(size, kMiniSectorSize);
        rules.unit = "mini sector";
        return rules;
    }

    // 7. The small streams.
    void walk_mini_streams() {
        // A container chain with a wrong link would put the right mini chains over the wrong
        // bytes, so it holds none.
        m_container_trusted = m_container.damaged
                                  ? Trusted{}
                                  : trust_sectors(m_container.ids, root().size, m_g, m_claims, 1);
        const uint64_t present = mini_present(m_container_trusted.sectors);
        m_mini_claims.assign(static_cast<std::size_t>(present), 0);
        Visit_Marks mini_marks(m_mini_claims.size());
        const Link_Table links{&m_mini_table, &m_mini_known, present};
        for (std::size_t i = 1; i < m_work.size(); ++i) {
            const Salvaged_Entry& e = m_ev.result.entries[i];
            Entry_Work& w = m_work[i];
            if (e.object_type != kTypeStream || !w.mini) continue;
            w.walk = walk_chain(links, m_records[w.record].entry.start_sid, mini_rules(e.size),
                                mini_marks);
            w.claims = !e.orphan || w.walk.complete;
            if (w.claims) {
                for (sid_t m : w.walk.ids) claim(m_mini_claims, m);
            }
        }
    }

    // 8. Lost links, inferred. The container and the MiniSAT first, then the streams; runs
    // that two streams would share are given to neither.
    void infer_lost_links() {
        Walk_Rules rules = big_rules(root().size);
        rules.infer = true;
        rules.taken = &m_claims;
        if (m_container.unknown_link && !m_container.damaged) {
            m_container_guess =
                walk_chain(m_sat.links(m_g.count), root().entry.start_sid, rules, m_marks);
        }
        if (m_minisat.unknown_link && !m_minisat.damaged &&
            m_minisat.ids.size() == m_mini_table.size() / m_g.entries_per_sector()) {
            Walk_Rules mrules;
            mrules.needed = ceil_div(mini_sectors_needed(), m_g.entries_per_sector());
            mrules.infer = true;
            mrules.taken = &m_claims;
            const Chain_Walk guess =
                walk_chain(m_sat.links(m_g.count), m_layout.minisat_start, mrules, m_marks);
            for (std::size_t k = m_minisat.ids.size(); guess.inferred() && k < guess.ids.size();
                 ++k) {
                if (!append_minisat_sector(guess.ids[k], kEntryInferred)) break;
            }
        }
        std::vector<uint8_t> guessed(m_g.count, 0);
        const uint64_t mini_guess_present = mini_present(
            m_container_guess.complete ? m_container_guess.ids : m_container_trusted.sectors);
        std::vector<uint8_t> mini_guessed(
            std::max<std::size_t>(m_mini_claims.size(), mini_guess_present), 0);
        std::vector<uint8_t> mini_taken = m_mini_claims;
        mini_taken.resize(mini_guessed.size(), 0);
        Visit_Marks mini_marks(mini_guessed.size());
        const Link_Table mini_links{&m_mini_table, &m_mini_known, mini_guess_present};
        for (std::size_t i = 1; i < m_work.size(); ++i) {
            const Salvaged_Entry& e = m_ev.result.entries[i];
            Entry_Work& w = m_work[i];
            if (e.object_type != kTypeStream || w.walk.damaged || w.walk.complete) continue;
            if (w.mini) {
                Walk_Rules r = mini_rules(e.size);
                r.infer = true;
                r.taken = &mini_taken;
                w.guess =
                    walk_chain(mini_links, m_records[w.record].entry.start_sid, r, mini_marks);
                claim_guessed(w.guess, mini_guessed);
            } else {
                Walk_Rules r = big_rules(e.size);
                r.infer = true;
                r.taken = &m_claims;
                w.guess = walk_chain(m_sat.links(m_g.count), m_records[w.record].entry.start_sid, r,
                                     m_marks);
                claim_guessed(w.guess, guessed);
            }
        }
        for (std::size_t i = 1; i < m_work.size(); ++i) {
            Entry_Work& w = m_work[i];
            if (!w.guess.complete) continue;
            const std::vector<uint8_t>& counts = w.mini ? mini_guessed : guessed;
            w.guess_ok = true;
            for (std::size_t k = w.guess.inferred() ? w.guess.inferred_from : w.guess.ids.size();
                 k < w.guess.ids.size(); ++k) {
                if (counts[w.guess.ids[k]] > 1) w.guess_ok = false;
            }
        }
    }

    static void claim_guessed(const Chain_Walk& guess, std::vector<uint8_t>& counts) {
        if (!guess.inferred()) return;
        for (std::size_t k = guess.inferred_from; k < guess.ids.size(); ++k)
            claim(counts, guess.ids[k]);
    }

    // The container sectors, verified first, then the inferred ones.
    const std::vector<sid_t>& container_for_guesses() const {
        return m_container_guess.complete ? m_container_guess.ids : m_container_trusted.sectors;
    }

    // Pieces of the first `count` mini sectors of `ids`, inside `container`.
    void mini_pieces(const std::vector<sid_t>& ids, std::size_t count, uint64_t size,
                     const std::vector<sid_t>& container,
                     std::vector<Salvage_Piece>& pieces) const {
        const uint32_t ss = m_g.sector_size;
        for (std::size_t k = 0; k < count && k < ids.size(); ++k) {
            const uint64_t at = k * kMiniSectorSize;
            const uint64_t in_container = static_cast<uint64_t>(ids[k]) * kMiniSectorSize;
            if (in_container / ss >= container.size()) break;
            const sid_t host = container[static_cast<std::size_t>(in_container / ss)];
            add_piece(pieces, at, m_g.offset(host) + in_container % ss,
                      std::min<uint64_t>(kMiniSectorSize, size - at));
        }
    }

    // True when a mini stream's sectors all lie in verified container sectors.
    bool in_verified_container(const std::vector<sid_t>& ids) const {
        const uint64_t limit = static_cast<uint64_t>(m_container_trusted.sectors.size()) *
                               (m_g.sector_size / kMiniSectorSize);
        return std::all_of(ids.begin(), ids.end(), [&](sid_t m) { return m < limit; });
    }

    // 9. Each stream's state and bytes.
    void settle_streams() {
        for (std::size_t i = 0; i < m_work.size(); ++i) {
            Salvaged_Entry& e = m_ev.result.entries[i];
            Entry_Work& w = m_work[i];
            if (e.object_type != kTypeStream) {
                if (w.record != NOSTREAM) ++m_ev.resolved;
                continue;
            }
            const sid_t start = m_records[w.record].entry.start_sid;
            std::string stop = w.walk.stop;
            bool verified_whole = false;
            if (!w.mini) {
                Trusted t = trust_sectors(w.walk.ids, e.size, m_g, m_claims, w.claims ? 1 : 0);
                e.pieces = std::move(t.pieces);
                if (stop.empty()) stop = t.stop;
                e.evidence = "SAT chain from sector " + std::to_string(start) + ", " +
                             count_text(w.walk.ids.size(), "sector");
                verified_whole = w.walk.complete && pieces_length(e.pieces) == e.size;
            } else {
                std::size_t usable_ids = 0;
                const uint8_t own = w.claims ? 1 : 0;
                for (; usable_ids < w.walk.ids.size(); ++usable_ids) {
                    const sid_t m = w.walk.ids[usable_ids];
                    if (m_mini_claims[m] > own) {
                        if (stop.empty() || w.walk.complete)
                            stop = "mini sector " + std::to_string(m) + " belongs to two chains";
                        break;
                    }
                }
                mini_pieces(w.walk.ids, usable_ids, e.size, m_container_trusted.sectors, e.pieces);
                e.evidence = "MiniSAT chain from mini sector " + std::to_string(start) + ", " +
                             count_text(w.walk.ids.size(), "mini sector") +
                             " in the root's container";
                verified_whole = w.walk.complete && usable_ids == w.walk.ids.size() &&
                                 pieces_length(e.pieces) == e.size;
            }
            const uint64_t got = pieces_length(e.pieces);
            if (verified_whole && w.vouched) {
                e.state = Salvage_State::recovered;
                e.evidence += ", " + w.walk.tail;
                ++m_ev.resolved;
                m_ev.recovered_bytes += got;
                continue;
            }
            if ((verified_whole && !w.vouched) || settle_guess(e, w)) {
                e.state = Salvage_State::inferred;
                if (verified_whole) {
                    e.evidence +=
                        ", but the directory sector holding its record was placed by "
                        "inference";
                }
                ++m_ev.inferred;
                continue;
            }
            e.state = got == 0 ? Salvage_State::lost : Salvage_State::partial;
            if (e.size > got) e.missing.push_back({got, e.size - got});
            e.evidence += "; " + (stop.empty() ? std::string("chain incomplete") : stop);
            m_ev.recovered_bytes += got;
        }
        m_ev.reached = 0;
        for (const Entry_Work& w : m_work) m_ev.reached += w.record != NOSTREAM ? 1 : 0;
    }

    // An inferred stream: its rebuilt chain holds every id the size needs. The pieces become
    // the rebuilt bytes.
    bool settle_guess(Salvaged_Entry& e, const Entry_Work& w) const {
        if (!w.guess_ok || !w.guess.complete) return false;
        std::vector<Salvage_Piece> pieces;
        if (!w.mini) {
            const Trusted t = trust_sectors(w.guess.ids, e.size, m_g, m_claims, w.claims ? 1 : 0);
            if (pieces_length(t.pieces) != e.size) return false;
            pieces = t.pieces;
        } else {
            mini_pieces(w.guess.ids, w.guess.ids.size(), e.size, container_for_guesses(), pieces);
            if (pieces_length(pieces) != e.size) return false;
        }
        e.pieces = std::move(pieces);
        e.evidence += "; lost links rebuilt as a run (" +
                      count_text(w.guess.ids.size(), w.mini ? "mini sector" : "sector") +
                      "), not verified";
        return true;
    }

    // 10. Chains nobody claims: heads in known table entries that nothing links to.
    void collect_lost_chains() {
        std::vector<uint8_t> pointed(m_g.count, 0);
        for (sid_t s = 0; s < m_sat.entries.size() && s < m_g.count; ++s) {
            if (m_sat.is_known(s) && m_sat.entries[s] < m_g.count) pointed[m_sat.entries[s]] = 1;
        }
        std::vector<uint8_t> used(m_g.count, 0);
        for (sid_t h = 0; h < m_g.count; ++h) {
            if (pointed[h] || m_claims[h] || !m_sat.is_known(h)) continue;
            const sid_t first_next = m_sat.entries[h];
            if (first_next == FREESECT || first_next == FATSECT || first_next == DIFSECT) continue;
            Salvage_Lost_Chain chain;
            chain.first_sector = h;
            sid_t cur = h;
            uint64_t at = 0;
            // Each step marks a new sector, so the walk ends within the file's sectors.
            for (uint32_t step = 0; step < m_g.count; ++step) {
                if (cur >= m_g.count || used[cur] || m_claims[cur]) break;
                used[cur] = 1;
                add_piece(chain.pieces, at, m_g.offset(cur), m_g.bytes_in_file(cur));
                at += m_g.bytes_in_file(cur);
                if (!m_sat.is_known(cur)) break;
                cur = m_sat.entries[cur];
            }
            if (!chain.pieces.empty()) m_ev.result.lost_chains.push_back(std::move(chain));
        }
    }

    // 11. What the SAT says of the directory chain: each link it confirms, each it
    // contradicts (a sector it marks free, a table sector, another chain's sector).
    void weigh_directory() {
        const std::vector<sid_t>& dir = m_layout.directory->sectors;
        m_ev.dir_chain_ends = m_layout.directory->chain_ends;
        Layout_Support& s = m_ev.support;
        s.dir_sectors = static_cast<uint32_t>(dir.size());
        s.sat_agreement = m_sat.agreement(m_g.count);
        s.root_time = read_u64_le(root().entry.modified_time.data());
        for (std::size_t k = 0; k < dir.size(); ++k) {
            if (!m_sat.is_known(dir[k])) continue;
            const sid_t want = k + 1 < dir.size() ? dir[k + 1] : ENDOFCHAIN;
            const sid_t next = m_sat.entries[dir[k]];
            if (next == want) {
                ++s.dir_confirmations;
            } else if (k + 1 < dir.size() || is_special(next) || next >= m_g.whole_count ||
                       !directory_sector(m_classes, next)) {
                // The last sector may link on to sectors the candidate did not take; only a
                // link that cannot be a directory's counts against it.
                ++s.dir_contradictions;
            }
        }
    }

    const Salvage_Input& m_input;
    const Sector_Classes& m_classes;
    const Sector_Geometry& m_g;
    const Layout_Choice& m_layout;
    const Sat_Table& m_sat;
    Visit_Marks m_marks;
    Evaluation m_ev;

    std::vector<Record> m_records;
    std::vector<uint8_t> m_seen;
    std::vector<Entry_Work> m_work;  // parallel to m_ev.result.entries
    std::vector<uint8_t> m_claims;
    Chain_Walk m_container;
    Chain_Walk m_container_guess;
    Trusted m_container_trusted;
    Chain_Walk m_minisat;
    std::vector<sid_t> m_mini_table;
    std::vector<uint8_t> m_mini_known;
    std::vector<uint8_t> m_mini_claims;
};

}  // namespace

Evaluation evaluate_layout(const Salvage_Input& input, const Sector_Classes& classes,
                           const Layout_Choice& layout, bool collect_lost) {
    return Resolver(input, classes, layout).run(collect_lost);
}

}  // namespace vrk::salvage
