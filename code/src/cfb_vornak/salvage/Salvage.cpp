#include "cfb_vornak/salvage/Salvage.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "cfb_vornak/salvage/Salvage_Classifier.h"
#include "cfb_vornak/salvage/Salvage_Evidence.h"
#include "cfb_vornak/salvage/Salvage_Layout.h"
#include "cfb_vornak/salvage/Salvage_Verifier.h"
#include "common/byte_order.h"
#include "common/platform.h"

namespace vrk {

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

std::vector<uint8_t> salvaged_bytes(const uint8_t* data, uint64_t size,
                                    const std::vector<Salvage_Piece>& pieces) {
    uint64_t total = 0;
    for (const Salvage_Piece& p : pieces) {
        if (!range_inside(p.file_offset, p.length, size)) return {};
        total = std::max(total, p.stream_offset + p.length);
    }
    std::vector<uint8_t> out(total, 0);
    for (const Salvage_Piece& p : pieces)
        std::memcpy(out.data() + p.stream_offset, data + p.file_offset, p.length);
    return out;
}

namespace {

using namespace salvage;

std::string describe(const Sat_Table& sat, const Dir_Candidate& dir, sid_t minisat,
                     uint32_t sector_size) {
    std::string text = std::to_string(sector_size) + "-byte sectors, SAT from " + sat.source +
                       " (" + std::to_string(sat.sat_sectors.size()) +
                       " sectors), directory: " + dir.source;
    text +=
        minisat == ENDOFCHAIN ? ", no MiniSAT" : ", MiniSAT from sector " + std::to_string(minisat);
    return text;
}

}  // namespace

Salvage_Result salvage_bytes(const uint8_t* data, uint64_t size, bool header_layout_only,
                             const platform::Input_File* file) {
    const Header_Evidence header = read_header(data, size);
    std::vector<uint32_t> sizes;
    const uint32_t declared = header.declared_sector_size();
    if (declared != 0) sizes.push_back(declared);
    for (uint32_t s : {512u, 4096u}) {
        if (!header_layout_only && std::find(sizes.begin(), sizes.end(), s) == sizes.end())
            sizes.push_back(s);
    }

    Evaluation best;
    bool have_best = false;
    std::string best_text;
    std::string header_text = "the header gives no usable layout";
    std::vector<std::string> log;
    // Every version of the format fixes the cutoff at 4096, whatever a damaged header says.
    const uint32_t cutoff = kMiniStreamCutoff;

    // Kept alive for the best evaluation's final pass.
    std::unique_ptr<Sector_Classes> best_classes;
    std::unique_ptr<Sat_Table> best_sat;
    std::unique_ptr<Dir_Candidate> best_dir;
    sid_t best_minisat = ENDOFCHAIN;

    auto header_verified = [&] {
        return have_best && best.resolved == best.reached && best_sat->source == "header" &&
               best_dir->chain_ends;
    };
    for (uint32_t sector_size : sizes) {
        const Sector_Geometry geometry(sector_size, size);
        if (geometry.whole_count == 0) continue;
        auto classes = std::make_unique<Sector_Classes>(classify_sectors(data, geometry, file));
        const bool header_fits = sector_size == declared;
        // Built one at a time: when the header's own layout verifies in full, the others are
        // never made. Reserved, so that references to earlier tables stay valid.
        std::vector<Sat_Table> tables;
        tables.reserve(3);
        for (int kind = 0; kind < 3; ++kind) {
            if (kind == 0) {
                if (!header_fits) continue;
                tables.push_back(header_sat(data, *classes, header));
            } else if (kind == 1) {
                if (header_layout_only) break;
                tables.push_back(content_sat(data, *classes));
            } else {
                if (!header_fits) break;
                tables.push_back(mixed_sat(data, *classes, tables[0], tables[1]));
            }
            const Sat_Table& sat = tables.back();
            const bool from_header = sat.source == "header";
            for (const Dir_Candidate& dir :
                 directory_candidates(*classes, sat, header, header_fits)) {
                // The header's own layout reads the directory through its chain only.
                if (header_layout_only && dir.source.find("by content") != std::string::npos)
                    continue;
                std::vector<sid_t> taken = dir.sectors;
                std::vector<sid_t> minisats =
                    minisat_candidates(data, *classes, sat, header, header_fits, taken);
                if (header_layout_only)
                    minisats.resize(std::min<std::size_t>(
                        minisats.size(),
                        header_fits && header.first_minisat_sid < classes->geometry.whole_count
                            ? 1
                            : 0));
                minisats.push_back(ENDOFCHAIN);
                for (sid_t minisat : minisats) {
                    const Layout_Choice choice{&sat, &dir, minisat, cutoff};
                    Evaluation ev = evaluate_layout(data, *classes, choice, false);
                    if (!ev.result.is_compound_file) continue;
                    const std::string text = describe(sat, dir, minisat, sector_size);
                    log.push_back("layout " + text + ": " + std::to_string(ev.resolved) + " of " +
                                  std::to_string(ev.reached) + " entries resolve");
                    const bool header_layout =
                        from_header && header_fits && dir.source.rfind("header", 0) == 0 &&
                        (minisat == header.first_minisat_sid || minisat == ENDOFCHAIN);
                    if (header_layout && header_text.rfind("the header gives", 0) == 0) {
                        header_text = "the header's layout resolves " +
                                      std::to_string(ev.resolved) + " of " +
                                      std::to_string(ev.reached) + " entries";
                    }
                    if (!have_best || ev.better_than(best)) {
                        best = std::move(ev);
                        have_best = true;
                        best_text = text;
                        best_classes = std::make_unique<Sector_Classes>(*classes);
                        best_sat = std::make_unique<Sat_Table>(sat);
                        best_dir = std::make_unique<Dir_Candidate>(dir);
                        best_minisat = minisat;
                    }
                }
            }
            // The header's own layout, verified in full, wins outright; a directory chain
            // that broke off may have hidden entries, though.
            if (from_header && header_verified()) break;
        }
        // A layout that resolves every entry of a directory whose chain ends on ENDOFCHAIN
        // leaves nothing for the other sector size to find; reading the file again as such
        // would cost a whole pass.
        if (header_verified() || (have_best && best.reached > 1 && best.resolved == best.reached &&
                                  best_dir->chain_ends))
            break;
    }

    Salvage_Result result;
    if (!have_best) {
        result.log = std::move(log);
        result.log.push_back("no layout finds a root directory record: not a compound file");
        result.reason = "no root directory record found";
        return result;
    }
    const Layout_Choice choice{best_sat.get(), best_dir.get(), best_minisat, cutoff};
    Evaluation final_ev = evaluate_layout(data, *best_classes, choice, true);
    result = std::move(final_ev.result);
    result.layout = best_sat->source;
    result.reason = best_text + "; " + std::to_string(final_ev.resolved) + " of " +
                    std::to_string(final_ev.reached) +
                    " entries resolve, the most of all candidates (" + header_text + ")";
    result.log = std::move(log);
    result.log.push_back("chosen: " + result.reason);
    return result;
}

bool count_resolving_streams(const std::wstring& path, std::size_t& resolved,
                             std::size_t& streams) {
    platform::Mapped_File mapped;
    if (platform::map_file(path, mapped) != platform::Map_Step::ok) return false;
    platform::Input_File file;
    const platform::Input_File* reader = file.open(path) ? &file : nullptr;
    // The streams the file holds, found with every kind of evidence; those a plain reader gets.
    streams = salvage_bytes(mapped.data, mapped.size, false, reader).stream_count();
    resolved =
        salvage_bytes(mapped.data, mapped.size, true, reader).count(Salvage_State::recovered);
    platform::unmap_file(mapped);
    return true;
}

}  // namespace vrk
