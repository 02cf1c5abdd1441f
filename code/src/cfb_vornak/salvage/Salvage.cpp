#include "cfb_vornak/salvage/Salvage.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <tuple>

#include "cfb_vornak/format/Cfb_Layout.h"
#include "cfb_vornak/model/Safe_Name.h"
#include "cfb_vornak/salvage/Salvage_Classifier.h"
#include "cfb_vornak/salvage/Salvage_Evidence.h"
#include "cfb_vornak/salvage/Salvage_Input.h"
#include "cfb_vornak/salvage/Salvage_Layout.h"
#include "cfb_vornak/salvage/Salvage_Verifier.h"
#include "common/byte_order.h"
#include "common/platform.h"

namespace vrk {

const char* salvage_state_text(Salvage_State state) {
    switch (state) {
        case Salvage_State::recovered:
            return "recovered";
        case Salvage_State::partial:
            return "partial";
        case Salvage_State::ambiguous:
            return "ambiguous";
        case Salvage_State::inferred:
            return "inferred";
        case Salvage_State::lost:
            return "lost";
    }
    return "lost";
}

const char* sat_source_text(Sat_Source source) {
    switch (source) {
        case Sat_Source::header:
            return "header";
        case Sat_Source::content:
            return "content";
        case Sat_Source::header_and_content:
            return "header+content";
    }
    return "header";
}

uint64_t Salvaged_Entry::recovered_bytes() const {
    uint64_t n = 0;
    for (const Salvage_Piece& p : pieces) n += p.length;
    return n;
}

std::u16string Salvage_Result::path_of(std::size_t index) const {
    std::vector<const std::u16string*> names;
    // Parents always come before their children, so the walk up ends at the root.
    for (int64_t i = static_cast<int64_t>(index);
         i > 0 && static_cast<std::size_t>(i) < entries.size();
         i = entries[static_cast<std::size_t>(i)].parent) {
        names.push_back(&entries[static_cast<std::size_t>(i)].name);
    }
    std::u16string path;
    for (auto it = names.rbegin(); it != names.rend(); ++it) {
        if (!path.empty()) path += u'/';
        path += **it;
    }
    return path;
}

std::size_t Salvage_Result::stream_count() const {
    return static_cast<std::size_t>(
        std::count_if(entries.begin(), entries.end(),
                      [](const Salvaged_Entry& e) { return e.object_type == 2; }));
}

std::size_t Salvage_Result::count(Salvage_State state) const {
    return static_cast<std::size_t>(std::count_if(
        entries.begin(), entries.end(),
        [state](const Salvaged_Entry& e) { return e.object_type == 2 && e.state == state; }));
}

bool Salvage_Result::complete() const {
    return is_compound_file && unplaced_stream_records == 0 &&
           count(Salvage_State::recovered) == stream_count();
}

std::vector<uint8_t> salvaged_bytes(const uint8_t* data, uint64_t size,
                                    const std::vector<Salvage_Piece>& pieces) {
    return salvaged_bytes(salvage::Salvage_Input(data, size, nullptr), pieces);
}

std::vector<uint8_t> salvaged_bytes(const salvage::Salvage_Input& input,
                                    const std::vector<Salvage_Piece>& pieces, bool beside) {
    uint64_t total = 0;
    for (const Salvage_Piece& p : pieces) {
        if (!range_inside(p.file_offset, p.length, input.size())) return {};
        total = std::max(total, p.stream_offset + p.length);
    }
    std::vector<uint8_t> out(total, 0);
    for (const Salvage_Piece& p : pieces) {
        uint8_t* to = out.data() + p.stream_offset;
        if (!(beside ? input.copy_beside(p.file_offset, p.length, to)
                     : input.copy(p.file_offset, p.length, to)))
            return {};
    }
    return out;
}

namespace {

using namespace salvage;

// What a header that speaks for the file says about where things are, for the sector size it
// stands for. Each layout that places something else there contradicts it.
struct Header_Facts {
    bool speaks = false;
    uint32_t sector_size = 0;
    std::vector<sid_t> sat_positions;  // FREESECT where the header names nothing usable
    sid_t first_dir = ENDOFCHAIN;      // when it names a sector that starts with a root record
    sid_t first_minisat = ENDOFCHAIN;  // when it names a sector that looks like a table
};

// True when sector `sid` lies wholly inside the file and holds only zero bytes.
bool zeroed_sector(const Salvage_Input& input, const Sector_Geometry& g, sid_t sid) {
    const uint8_t* p = sid < g.whole_count ? input.bytes(g.offset(sid), g.sector_size) : nullptr;
    return p != nullptr && std::all_of(p, p + g.sector_size, [](uint8_t b) { return b == 0; });
}

Header_Facts header_facts(const Salvage_Input& input, const Header_Evidence& header,
                          const Sector_Classes& classes, const Sat_Table& sat) {
    Header_Facts f;
    f.speaks = true;
    f.sector_size = classes.geometry.sector_size;
    // A position counts when the table marks its sector FATSECT (a broken DISAT entry names
    // some other sector, which nothing marks), or when the sector would have marked itself but
    // its entries were lost to zeros (a zeroed SAT sector is still the one the header names;
    // a data sector that a broken DISAT entry names has lost nothing).
    const uint32_t per = classes.geometry.entries_per_sector();
    for (std::size_t p = 0; p < sat.fixed.size() && p < sat.sat_sectors.size(); ++p) {
        const sid_t s = sat.sat_sectors[p];
        const bool marked = sat.fixed[p] != 0 && sat.is_known(s) && sat.entries[s] == FATSECT;
        const bool lost_itself = sat.fixed[p] != 0 && s / per == p && s < sat.known.size() &&
                                 sat.known[s] == kEntryUnknown &&
                                 zeroed_sector(input, classes.geometry, s);
        f.sat_positions.push_back(marked || lost_itself ? s : FREESECT);
    }
    // The first sectors the header names must start chains: no known link leads to them, and
    // their own entry, where known, links on or ends the chain.
    const Sector_Geometry& g = classes.geometry;
    auto chain_head = [&](sid_t sid) {
        if (sat.is_known(sid) && is_special(sat.entries[sid]) && sat.entries[sid] != ENDOFCHAIN)
            return false;
        // Entries past the file's sectors may hold anything.
        for (std::size_t i = 0; i < sat.entries.size() && i < g.count; ++i) {
            if (sat.known[i] != kEntryUnknown && sat.entries[i] == sid) return false;
        }
        return true;
    };
    if (header.first_dir_sid < g.whole_count &&
        (classes.flags[header.first_dir_sid] & kRootFirst)) {
        if (chain_head(header.first_dir_sid)) {
            f.first_dir = header.first_dir_sid;
        } else {
            // The header's SAT does not let its own directory start there: the header
            // contradicts itself (a DISAT entry naming an older copy of a SAT sector, or a
            // first directory sector naming an older directory). The SAT sector that says so
            // is no fact, and neither is the directory.
            const std::size_t p = header.first_dir_sid / per;
            if (p < f.sat_positions.size()) f.sat_positions[p] = FREESECT;
        }
    }
    if (header.first_minisat_sid < g.whole_count &&
        (classes.flags[header.first_minisat_sid] & kTableRange) &&
        chain_head(header.first_minisat_sid))
        f.first_minisat = header.first_minisat_sid;
    return f;
}

uint32_t header_conflicts(const Header_Facts& f, const Layout_Choice& c, uint32_t sector_size) {
    if (!f.speaks) return 0;
    if (sector_size != f.sector_size) return 1;
    uint32_t n = 0;
    for (std::size_t p = 0; p < f.sat_positions.size() && p < c.sat->sat_sectors.size(); ++p) {
        const sid_t placed = c.sat->sat_sectors[p];
        if (f.sat_positions[p] != FREESECT && placed != FREESECT && placed != f.sat_positions[p])
            ++n;
    }
    if (f.first_dir != ENDOFCHAIN && c.directory->sectors.front() != f.first_dir) ++n;
    if (f.first_minisat != ENDOFCHAIN && c.minisat_start != f.first_minisat) ++n;
    return n;
}

std::string describe(const Layout_Choice& c, uint32_t sector_size) {
    std::string text = std::to_string(sector_size) + "-byte sectors, SAT from " +
                       sat_source_text(c.sat->source) + " (" +
                       std::to_string(c.sat->sat_sectors.size()) + " sectors" +
                       (c.sat->variant > 0 ? ", variant " + std::to_string(c.sat->variant) : "") +
                       "), directory: " + c.directory->text();
    text += c.minisat_start == ENDOFCHAIN
                ? ", no MiniSAT"
                : ", MiniSAT from sector " + std::to_string(c.minisat_start);
    return text;
}

// Whether two runs of pieces give the same bytes.
bool same_bytes(const Salvage_Input& input, const std::vector<Salvage_Piece>& a,
                const std::vector<Salvage_Piece>& b) {
    auto same_piece = [](const Salvage_Piece& x, const Salvage_Piece& y) {
        return x.stream_offset == y.stream_offset && x.file_offset == y.file_offset &&
               x.length == y.length;
    };
    if (a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), same_piece)) return true;
    // Other places may still hold the same bytes: compare them, a stream offset at a time.
    auto flatten = [](const std::vector<Salvage_Piece>& pieces) {
        uint64_t at = 0;
        for (const Salvage_Piece& p : pieces) {
            if (p.stream_offset != at) return UINT64_MAX;
            at += p.length;
        }
        return at;
    };
    const uint64_t length = flatten(a);
    if (length == UINT64_MAX || length != flatten(b)) return false;
    std::vector<uint8_t> left(64 * 1024);
    std::size_t ia = 0;
    std::size_t ib = 0;
    uint64_t oa = 0;
    uint64_t ob = 0;
    for (uint64_t at = 0; at < length;) {
        const uint64_t n = std::min<uint64_t>(
            {a[ia].length - oa, b[ib].length - ob, static_cast<uint64_t>(left.size())});
        const uint8_t* pa = input.bytes(a[ia].file_offset + oa, static_cast<std::size_t>(n));
        if (pa == nullptr) return false;
        std::memcpy(left.data(), pa, static_cast<std::size_t>(n));
        const uint8_t* pb = input.bytes(b[ib].file_offset + ob, static_cast<std::size_t>(n));
        if (pb == nullptr || std::memcmp(left.data(), pb, static_cast<std::size_t>(n)) != 0)
            return false;
        at += n;
        oa += n;
        ob += n;
        if (oa == a[ia].length) {
            ++ia;
            oa = 0;
        }
        if (ob == b[ib].length) {
            ++ib;
            ob = 0;
        }
    }
    return true;
}

// One evaluated layout, with what it was made from kept alive for the final pass.
struct Candidate {
    Evaluation ev;
    std::shared_ptr<const Sector_Classes> classes;
    std::shared_ptr<const Sat_Table> sat;
    std::shared_ptr<const Dir_Candidate> directory;
    sid_t minisat = ENDOFCHAIN;
    std::string text;
    bool with_lost = false;  // `ev` holds the chains nothing claims: it is the final evaluation
};

class Salvage_Search {
  public:
    Salvage_Search(const Salvage_Input& input, bool header_only)
        : m_input(input),
          m_header(read_header(input.bytes(0, Cfb_Header::kSize), input.size())),
          m_header_only(header_only) {}

    Salvage_Result run();

  private:
    // Evaluates every directory and MiniSAT candidate of one SAT.
    void try_sat(const std::shared_ptr<const Sector_Classes>& classes,
                 const std::shared_ptr<const Sat_Table>& sat, bool header_fits, bool header_sat);
    void consider(Candidate c);
    bool settled() const { return m_have_best && m_best.ev.complete(); }
    void mark_ambiguous(Salvage_Result& result) const;
    void list_directory_copies(Salvage_Result& result) const;
    std::string why_not_taken(const Candidate* other) const;

    const Salvage_Input& m_input;
    Header_Evidence m_header;
    bool m_header_only;
    Header_Facts m_facts;
    std::string m_header_text = "the header gives no usable layout";
    std::vector<std::string> m_log;
    Candidate m_best;
    bool m_have_best = false;
    bool m_header_verified = false;
    std::vector<Candidate> m_seen;  // every evaluation with a directory, for the rivals
    std::shared_ptr<const Sector_Classes> m_best_classes;
};

void Salvage_Search::consider(Candidate c) {
    if (!c.ev.result.is_compound_file) return;
    const Layout_Support& support = c.ev.support;
    m_log.push_back(
        "layout " + c.text + ": " + std::to_string(c.ev.resolved) + " of " +
        std::to_string(c.ev.reached) + " entries resolve, " + std::to_string(c.ev.inferred) +
        " inferred, " + std::to_string(c.ev.loose_ends) +
        " loose ends; the header's facts contradicted " + std::to_string(support.header_conflicts) +
        ", directory links confirmed " + std::to_string(support.dir_confirmations) +
        " and contradicted " + std::to_string(support.dir_contradictions) +
        ", the SAT vouches for " + std::to_string(support.sat_agreement) +
        " of its places, the layout reaches byte " + std::to_string(support.reach) +
        ", root saved at " + std::to_string(support.root_time));
    // Layouts of one sector size compare by their evidence; a reading with the wrong sector
    // size can look as consistent, but resolves less.
    const bool same_size =
        m_have_best && m_best.classes->geometry.sector_size == c.classes->geometry.sector_size;
    const bool better =
        !m_have_best ||
        (same_size || std::make_tuple(m_best.ev.support.header_conflicts, c.ev.resolved) ==
                          std::make_tuple(c.ev.support.header_conflicts, m_best.ev.resolved)
             ? c.ev.better_than(m_best.ev)
             : std::make_tuple(m_best.ev.support.header_conflicts, c.ev.resolved) >
                   std::make_tuple(c.ev.support.header_conflicts, m_best.ev.resolved));
    if (better) {
        m_best = c;
        m_have_best = true;
    }
    // Only what the ambiguity check needs: the streams each layout recovers.
    m_seen.push_back(std::move(c));
}

void Salvage_Search::try_sat(const std::shared_ptr<const Sector_Classes>& classes,
                             const std::shared_ptr<const Sat_Table>& sat, bool header_fits,
                             bool header_sat) {
    const uint32_t sector_size = classes->geometry.sector_size;
    for (const Dir_Candidate& dir : directory_candidates(*classes, *sat, m_header, header_fits)) {
        // The header's own layout reads the directory it names, through the SAT.
        if (header_sat && dir.start != Directory_Start::header) continue;
        if (m_header_only && dir.order != Directory_Order::sat_chain) continue;
        auto directory = std::make_shared<const Dir_Candidate>(dir);
        std::vector<sid_t> minisats =
            minisat_candidates(m_input, *classes, *sat, m_header, header_fits, dir.sectors);
        if (m_header_only)
            minisats.resize(std::min<std::size_t>(
                minisats.size(),
                header_fits && m_header.first_minisat_sid < classes->geometry.whole_count ? 1 : 0));
        minisats.push_back(ENDOFCHAIN);
        for (sid_t minisat : minisats) {
            Candidate c;
            c.classes = classes;
            c.sat = sat;
            c.directory = directory;
            c.minisat = minisat;
            const Layout_Choice choice{sat.get(), directory.get(), minisat};
            // The header's own layout is the likely answer: its evaluation gathers what the
            // final one adds (the chains nothing claims), so that it need not be done twice.
            c.with_lost = header_sat;
            c.ev = evaluate_layout(m_input, *classes, choice, c.with_lost);
            c.ev.support.header_conflicts = header_conflicts(m_facts, choice, sector_size);
            c.text = describe(choice, sector_size);
            const bool whole = c.ev.complete();
            if (header_sat && dir.start == Directory_Start::header &&
                m_header_text.rfind("the header gives", 0) == 0) {
                m_header_text = "the header's layout resolves " + std::to_string(c.ev.resolved) +
                                " of " + std::to_string(c.ev.reached) + " entries";
            }
            consider(std::move(c));
            // A MiniSAT under which everything resolves leaves nothing for the others.
            if (whole) break;
        }
    }
}

Salvage_Result Salvage_Search::run() {
    const uint32_t header_size = m_header_only
                                     ? m_header.declared_sector_size()
                                     : (m_header.speaks_for_file() ? m_header.sector_size() : 0);
    // A header that speaks for the file settles the sector size: read with the other, a file's
    // sectors can look as consistent and give other bytes.
    std::vector<uint32_t> sizes;
    if (header_size != 0) sizes.push_back(header_size);
    for (uint32_t s : {512u, 4096u}) {
        if (!m_header_only && header_size == 0) sizes.push_back(s);
    }
    for (uint32_t sector_size : sizes) {
        const Sector_Geometry geometry(sector_size, m_input.size());
        if (geometry.whole_count == 0) continue;
        auto classes = std::make_shared<const Sector_Classes>(classify_sectors(m_input, geometry));
        const bool header_fits = sector_size == header_size;
        std::shared_ptr<const Sat_Table> from_header;
        if (header_fits) {
            from_header =
                std::make_shared<const Sat_Table>(header_sat(m_input, *classes, m_header));
            m_facts = m_header_only ? Header_Facts{}
                                    : header_facts(m_input, m_header, *classes, *from_header);
            try_sat(classes, from_header, header_fits, true);
            // The header's own layout, checked out in full, is the answer.
            if (settled()) {
                m_header_verified = true;
                break;
            }
        }
        if (m_header_only) break;
        const Content_Sats content(m_input, *classes);
        std::size_t roots = 0;
        for (uint8_t f : classes->flags) roots += (f & kRootFirst) != 0 ? 1 : 0;
        for (std::size_t k = 0; k < content.count(); ++k) {
            auto sat = std::make_shared<const Sat_Table>(content.make(k));
            try_sat(classes, sat, header_fits, false);
            if (k == 0 && from_header) {
                auto mixed = std::make_shared<const Sat_Table>(
                    mixed_sat(m_input, *classes, *from_header, *sat));
                try_sat(classes, mixed, header_fits, false);
            }
            // With one copy of the directory in the file, a layout that resolves it in full
            // leaves nothing to tell apart; with more, every variant is weighed.
            if (settled() && roots <= 1) break;
        }
        // A layout that resolves every entry leaves nothing for the other sector size to find;
        // reading the file again as such would cost a whole pass.
        if (settled()) break;
    }

    Salvage_Result result;
    if (!m_have_best) {
        result.log = std::move(m_log);
        result.log.push_back("no layout finds a root directory record: not a compound file");
        result.reason = "no root directory record found";
        return result;
    }
    const Layout_Choice choice{m_best.sat.get(), m_best.directory.get(), m_best.minisat};
    Evaluation final_ev =
        m_best.with_lost ? m_best.ev : evaluate_layout(m_input, *m_best.classes, choice, true);
    result = std::move(final_ev.result);
    result.reason =
        m_best.text + "; " + std::to_string(final_ev.resolved) + " of " +
        std::to_string(final_ev.reached) + " entries resolve" +
        (m_header_verified ? ", the header's own layout checks out"
                           : ", the best supported of all candidates (" + m_header_text + ")");
    mark_ambiguous(result);
    list_directory_copies(result);
    result.log = std::move(m_log);
    result.log.push_back("chosen: " + result.reason);
    return result;
}

// Streams that a layout the evidence does not outrank resolves to other bytes, or (resolving
// as many entries) cannot verify at all: no answer is recovered; each becomes a candidate.
void Salvage_Search::mark_ambiguous(Salvage_Result& result) const {
    std::map<std::u16string, std::size_t> chosen;
    for (std::size_t i = 0; i < result.entries.size(); ++i) {
        if (result.entries[i].object_type == 2 &&
            result.entries[i].state == Salvage_State::recovered)
            chosen.emplace(result.path_of(i), i);
    }
    auto make_ambiguous = [&](Salvaged_Entry& e) {
        if (!e.candidates.empty()) return;
        e.candidates.push_back({e.pieces, e.evidence + " [" + m_best.text + "]"});
        e.pieces.clear();
        e.state = Salvage_State::ambiguous;
        e.evidence =
            "candidate layouts give other bytes and the allocation evidence does not tell them "
            "apart";
    };
    for (const Candidate& rival : m_seen) {
        if (m_best.ev.outranks(rival.ev)) continue;
        const Salvage_Result& r = rival.ev.result;
        for (std::size_t i = 0; i < r.entries.size(); ++i) {
            const Salvaged_Entry& other = r.entries[i];
            if (other.object_type != 2) continue;
            const auto found = chosen.find(r.path_of(i));
            if (found == chosen.end()) continue;
            Salvaged_Entry& e = result.entries[found->second];
            if (other.state != Salvage_State::recovered) {
                // As well supported, and it finds the chain shared or broken.
                if (rival.ev.resolved == m_best.ev.resolved) make_ambiguous(e);
                continue;
            }
            const std::vector<Salvage_Piece>& mine =
                e.candidates.empty() ? e.pieces : e.candidates.front().pieces;
            if (same_bytes(m_input, mine, other.pieces)) continue;
            make_ambiguous(e);
            const bool known = std::any_of(e.candidates.begin(), e.candidates.end(),
                                           [&](const Salvage_Candidate& c) {
                                               return same_bytes(m_input, c.pieces, other.pieces);
                                           });
            if (!known)
                e.candidates.push_back({other.pieces, other.evidence + " [" + rival.text + "]"});
        }
    }
}

// Why the best layout read from another copy of the directory lost: the first kind of evidence
// that tells it from the chosen one.
std::string Salvage_Search::why_not_taken(const Candidate* other) const {
    if (other == nullptr)
        return m_header_verified ? "not weighed: the header's own layout checks out"
                                 : "its records do not start a directory";
    const Layout_Support& a = m_best.ev.support;
    const Layout_Support& b = other->ev.support;
    if (!m_best.ev.outranks(other->ev))
        return "as well supported as the taken one: the streams they give other bytes are "
               "ambiguous";
    if (b.header_conflicts > a.header_conflicts) return "the header names another layout";
    if (other->ev.loose_ends > m_best.ev.loose_ends)
        return "its tree has links that lead nowhere: read from the wrong sectors";
    if (b.reach < a.reach)
        return "an older save: it reaches byte " + std::to_string(b.reach) +
               " of the file, the taken one byte " + std::to_string(a.reach);
    if (b.root_time < a.root_time) return "an older save: its root record was saved earlier";
    if (b.sat_agreement < a.sat_agreement)
        return "an older copy: its SAT sectors are not the ones the other SAT sectors mark";
    if (b.compare_dir_support(a) < 0)
        return "an older copy: the SAT marks its sectors free or gives them to other chains";
    return std::to_string(other->ev.resolved) + " of " + std::to_string(other->ev.reached) +
           " entries resolve";
}

// Every copy of the directory the file holds (sectors that start with a root record), which
// was taken and why the others were not.
void Salvage_Search::list_directory_copies(Salvage_Result& result) const {
    const Sector_Classes& classes = *m_best.classes;
    const Sector_Geometry& g = classes.geometry;
    const sid_t taken = m_best.directory->sectors.front();
    for (sid_t s = 0; s < g.whole_count; ++s) {
        if ((classes.flags[s] & kRootFirst) == 0) continue;
        Salvage_Directory_Copy copy;
        copy.first_sector = s;
        copy.named_by_header = m_facts.speaks && m_facts.first_dir == s;
        copy.taken = s == taken;
        if (copy.taken) {
            copy.note = m_best.directory->text();
            result.directories.push_back(std::move(copy));
            continue;
        }
        // A copy inside a stream the chosen layout recovers is that stream's content.
        const uint64_t at = g.offset(s);
        for (std::size_t i = 0; i < result.entries.size() && copy.note.empty(); ++i) {
            for (const Salvage_Piece& p : result.entries[i].pieces) {
                if (at >= p.file_offset && at - p.file_offset < p.length) {
                    const std::u16string path = result.path_of(i);
                    copy.note = "inside stream " +
                                platform::to_utf8(platform::from_utf16(path.data(), path.size()));
                    break;
                }
            }
        }
        const Candidate* best_here = nullptr;
        for (const Candidate& c : m_seen) {
            if (c.classes.get() != m_best.classes.get() || c.directory->sectors.front() != s)
                continue;
            if (best_here == nullptr || c.ev.better_than(best_here->ev)) best_here = &c;
        }
        if (copy.note.empty()) copy.note = why_not_taken(best_here);
        result.directories.push_back(std::move(copy));
    }
}

}  // namespace

Salvage_Result salvage_bytes(const uint8_t* data, uint64_t size, bool header_layout_only,
                             const platform::Input_File* file) {
    return salvage_input(Salvage_Input(data, size, file), header_layout_only);
}

Salvage_Result salvage_input(const Salvage_Input& input, bool header_layout_only) {
    return Salvage_Search(input, header_layout_only).run();
}

namespace {

// Reads a resolved stream in order, piece by piece.
class Stream_Reader {
  public:
    // `pieces` in ascending stream offsets, as a resolved entry holds them.
    Stream_Reader(const Salvage_Input& input, const std::vector<Salvage_Piece>& pieces)
        : m_input(input), m_pieces(pieces) {}
    // Bytes left in the current piece (0 at the end).
    [[nodiscard]] uint64_t run() const {
        return m_index < m_pieces.size() ? m_pieces[m_index].length - m_within : 0;
    }
    // Copies the next `length` bytes (at most run()) and moves past them.
    [[nodiscard]] bool take(uint64_t length, uint8_t* out) {
        if (!m_input.copy(m_pieces[m_index].file_offset + m_within, length, out)) return false;
        m_within += length;
        if (m_within == m_pieces[m_index].length) {
            ++m_index;
            m_within = 0;
        }
        return true;
    }

  private:
    const Salvage_Input& m_input;
    const std::vector<Salvage_Piece>& m_pieces;
    std::size_t m_index = 0;
    uint64_t m_within = 0;
};

bool same_bytes(const Salvage_Input& a_input, const Salvaged_Entry& a, const Salvage_Input& b_input,
                const Salvaged_Entry& b) {
    if (a.size != b.size) return false;
    Stream_Reader ra(a_input, a.pieces);
    Stream_Reader rb(b_input, b.pieces);
    constexpr uint64_t kChunk = uint64_t{1} << 20;
    std::vector<uint8_t> da;
    std::vector<uint8_t> db;
    // Every pass moves both readers forward by at least one byte, or ends the comparison.
    for (uint64_t left = a.size; left > 0;) {
        const uint64_t n = std::min({left, ra.run(), rb.run(), kChunk});
        if (n == 0) return false;
        da.resize(static_cast<std::size_t>(n));
        db.resize(static_cast<std::size_t>(n));
        if (!ra.take(n, da.data()) || !rb.take(n, db.data()) || da != db) return false;
        left -= n;
    }
    return true;
}

std::size_t count_streams_with_other_bytes(const Salvage_Input& in, const Salvage_Result& before,
                                           const Salvage_Input& out, const Salvage_Result& after) {
    // Paths that name one resolved stream in the output; a path held twice is left out.
    std::map<std::u16string, std::size_t> resolved_after;
    for (std::size_t i = 0; i < after.entries.size(); ++i) {
        const Salvaged_Entry& e = after.entries[i];
        if (e.object_type != 2 || e.state != Salvage_State::recovered) continue;
        const auto [at, added] = resolved_after.emplace(after.path_of(i), i);
        if (!added) at->second = after.entries.size();
    }
    std::size_t changed = 0;
    for (std::size_t i = 0; i < before.entries.size(); ++i) {
        const Salvaged_Entry& e = before.entries[i];
        if (e.object_type != 2 || e.state != Salvage_State::recovered) continue;
        const auto at = resolved_after.find(before.path_of(i));
        if (at == resolved_after.end() || at->second == after.entries.size()) continue;
        if (!same_bytes(in, e, out, after.entries[at->second])) ++changed;
    }
    return changed;
}

// Opens `path` into `view` and counts its streams; returns the header layout's own result, for a
// comparison (none when the file cannot be read).
Salvage_Result count_streams(const std::wstring& path, Input_View& view, Stream_Count& count) {
    count.read = view.open(path) == platform::Map_Step::ok;
    if (!count.read) return {};
    const Salvage_Input input(view);
    // The streams the file holds, found with every kind of evidence; those a plain reader gets.
    count.streams = salvage_input(input, false).stream_count();
    Salvage_Result header_only = salvage_input(input, true);
    count.resolved = header_only.count(Salvage_State::recovered);
    return header_only;
}

}  // namespace

Repair_Comparison compare_repaired(const std::wstring& input, const std::wstring& output) {
    Repair_Comparison comparison;
    Input_View in_view;
    Input_View out_view;
    const Salvage_Result before = count_streams(input, in_view, comparison.input);
    const Salvage_Result after = count_streams(output, out_view, comparison.output);
    if (comparison.input.read && comparison.output.read) {
        comparison.changed = count_streams_with_other_bytes(Salvage_Input(in_view), before,
                                                            Salvage_Input(out_view), after);
    }
    return comparison;
}

std::vector<std::u16string> released_with_other_bytes(const std::wstring& input,
                                                      const std::wstring& folder) {
    std::vector<std::u16string> differing;
    Input_View view;
    if (view.open(input) != platform::Map_Step::ok) return differing;
    const Salvage_Input in(view);
    const Salvage_Result result = salvage_input(in, true);
    const uint32_t cutoff = in.u32(layout::header::kMiniCutoff, layout::kMiniStreamCutoff);
    // The release keeps the first 32 units of a name, and a later child replaces an earlier one
    // of the same name: such names are left out.
    std::map<std::wstring, std::size_t> children;
    for (std::size_t i = 1; i < result.entries.size(); ++i) {
        const Salvaged_Entry& e = result.entries[i];
        if (e.parent != 0 || e.orphan) continue;
        const std::wstring name =
            platform::from_utf16(e.name.data(), std::min<std::size_t>(e.name.size(), 32));
        const auto [at, added] = children.emplace(name, i);
        if (!added) at->second = 0;
    }
    for (const auto& [name, index] : children) {
        if (index == 0 || is_refused_file_name(name)) continue;
        const Salvaged_Entry& e = result.entries[index];
        // Larger streams are released through the SAT as a reader walks them.
        if (e.object_type != 2 || e.state != Salvage_State::recovered || e.size > cutoff) continue;
        Input_View released;
        if (released.open(folder + name) != platform::Map_Step::ok) continue;
        Salvaged_Entry whole;
        whole.size = released.size();
        whole.pieces.push_back({0, 0, whole.size});
        if (!same_bytes(in, e, Salvage_Input(released), whole)) differing.push_back(e.name);
    }
    return differing;
}

bool count_resolving_streams(const std::wstring& path, std::size_t& resolved,
                             std::size_t& streams) {
    Input_View view;
    Stream_Count count;
    (void)count_streams(path, view, count);
    resolved = count.resolved;
    streams = count.streams;
    return count.read;
}

}  // namespace vrk
