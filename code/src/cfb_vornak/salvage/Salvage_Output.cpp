#include "cfb_vornak/salvage/Salvage_Output.h"

#include <algorithm>
#include <cstdio>
#include <cwctype>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "cfb_vornak/builder/Cfb_Builder.h"
#include "cfb_vornak/builder/Sibling_Tree_Layout.h"
#include "cfb_vornak/model/Safe_Name.h"
#include "cfb_vornak/salvage/Salvage_Writers.h"
#include "common/byte_order.h"
#include "common/platform.h"

namespace vrk {

namespace {

std::string utf8(const std::u16string& s) {
    return platform::to_utf8(platform::from_utf16(s.data(), s.size()));
}

// A path for the text report: control characters (the format's own names start with \x05 or
// \x01) shown as \xNN.
std::string display_path(const std::u16string& path) {
    std::string out;
    for (const char c : utf8(path)) {
        const auto u = static_cast<unsigned char>(c);
        if (u < 0x20) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\x%02x", u);
            out += buf;
        } else {
            out += c;
        }
    }
    return out;
}

std::string missing_text(const Salvaged_Entry& e) {
    uint64_t missing = 0;
    std::string where;
    for (const Salvage_Range& r : e.missing) {
        missing += r.length;
        if (!where.empty()) where += ", ";
        where += std::to_string(r.offset) + "-" + std::to_string(r.offset + r.length - 1);
    }
    if (missing == 0) return "0 bytes missing, end of chain not confirmed";
    return std::to_string(missing) + " bytes missing at " + where;
}

std::wstring lower(std::wstring s) {
    for (wchar_t& c : s) c = static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c)));
    return s;
}

// Picks a name not yet used in one folder (compared without case, as Windows does).
std::wstring unique_in(std::set<std::wstring>& used, const std::wstring& base) {
    std::wstring name = base;
    // Each try adds a different suffix; the set is finite, so a free one is found.
    for (uint32_t n = 2; used.count(lower(name)) != 0; ++n) name = base + L"~" + std::to_wstring(n);
    used.insert(lower(name));
    return name;
}

std::string shown_path(const platform::Output_Folder& folder, const std::wstring& name) {
    return platform::to_utf8(folder.path() + platform::kSeparator + name);
}

// Creates `base` in `folder` through `make(name)`, or when a name is taken on disk (by
// anything, a link included) the next free one of unique_in: never a name that exists.
template <typename Make>
platform::Create_Result create_unique(std::set<std::wstring>& used, const std::wstring& base,
                                      std::wstring& name, Make make) {
    platform::Create_Result created = platform::Create_Result::exists;
    // Each try takes a name not tried before and the folder holds finitely many entries.
    while (created == platform::Create_Result::exists) {
        name = unique_in(used, base);
        created = make(name);
    }
    return created;
}

// Where --extract puts an unclaimed chain, relative to its folder.
std::string lost_name(const Salvage_Lost_Chain& c) {
    return "lost/sector_" + std::to_string(c.first_sector) + ".bin";
}

uint64_t chain_bytes(const Salvage_Lost_Chain& c) {
    uint64_t n = 0;
    for (const Salvage_Piece& p : c.pieces) n += p.length;
    return n;
}

// One file the salvage writes for a stream entry: its bytes under a name.
struct Written_Stream {
    std::u16string name;
    const std::vector<Salvage_Piece>* pieces;
};

// What is written for a stream: a recovered one always; the others as `keep` asks (each
// candidate of an ambiguous one under a suffixed name).
std::vector<Written_Stream> streams_to_write(const Salvaged_Entry& e, const Salvage_Keep& keep) {
    switch (e.state) {
        case Salvage_State::recovered:
            return {{e.name, &e.pieces}};
        case Salvage_State::partial:
            if (keep.partial) return {{e.name, &e.pieces}};
            return {};
        case Salvage_State::inferred:
            if (keep.inferred) return {{e.name, &e.pieces}};
            return {};
        case Salvage_State::ambiguous: {
            std::vector<Written_Stream> out;
            for (std::size_t k = 0; keep.partial && k < e.candidates.size(); ++k) {
                const std::string suffix = "#" + std::to_string(k + 1);
                out.push_back({e.name + std::u16string(suffix.begin(), suffix.end()),
                               &e.candidates[k].pieces});
            }
            return out;
        }
        case Salvage_State::lost:
            return {};
    }
    return {};
}

uint64_t pieces_bytes(const std::vector<Salvage_Piece>& pieces) {
    uint64_t n = 0;
    for (const Salvage_Piece& p : pieces) n += p.length;
    return n;
}

}  // namespace

std::string salvage_summary(const Salvage_Result& result) {
    return std::to_string(result.stream_count()) +
           " streams: " + std::to_string(result.count(Salvage_State::recovered)) + " recovered, " +
           std::to_string(result.count(Salvage_State::partial)) + " partial, " +
           std::to_string(result.count(Salvage_State::ambiguous)) + " ambiguous, " +
           std::to_string(result.count(Salvage_State::inferred)) + " inferred, " +
           std::to_string(result.count(Salvage_State::lost)) + " lost; " +
           std::to_string(result.lost_chains.size()) + " unclaimed chains";
}

std::string salvage_report_text(const Salvage_Result& result) {
    std::string out;
    if (!result.is_compound_file) {
        out += "not a compound file: " + result.reason + "\n";
        out += "summary: " + salvage_summary(result) + "\n";
        return out;
    }
    out += "layout: " + result.layout() + " (" + result.reason + ")\n";
    for (const Salvage_Directory_Copy& d : result.directories) {
        out += "directory\tsector " + std::to_string(d.first_sector) +
               (d.named_by_header ? ", named by the header" : "") + "\t" +
               (d.taken ? "taken" : "not taken") + "\t(" + d.note + ")\n";
    }
    for (std::size_t i = 0; i < result.entries.size(); ++i) {
        const Salvaged_Entry& e = result.entries[i];
        if (e.object_type != 2) continue;
        out += std::string(salvage_state_text(e.state)) + "\t" + display_path(result.path_of(i)) +
               "\t" + std::to_string(e.size) + " bytes";
        if (e.state == Salvage_State::partial || e.state == Salvage_State::lost)
            out += ", " + missing_text(e);
        if (e.state == Salvage_State::ambiguous)
            out += ", " + std::to_string(e.candidates.size()) + " candidates";
        if (e.state == Salvage_State::inferred) out += ", not verified";
        out += "\t(" + e.evidence + ")\n";
        for (std::size_t k = 0; k < e.candidates.size(); ++k) {
            out += "candidate\t" + display_path(result.path_of(i)) + "#" + std::to_string(k + 1) +
                   "\t" + std::to_string(pieces_bytes(e.candidates[k].pieces)) + " bytes\t(" +
                   e.candidates[k].evidence + ")\n";
        }
    }
    for (const Salvage_Lost_Chain& c : result.lost_chains) {
        out += "unclaimed\t" + lost_name(c) + "\t" + std::to_string(chain_bytes(c)) +
               " bytes\t(chain from sector " + std::to_string(c.first_sector) + " at file offset " +
               std::to_string(c.pieces.front().file_offset) + ", " +
               std::to_string(c.pieces.size()) + " runs)\n";
    }
    out += "summary: " + salvage_summary(result) + "\n";
    return out;
}

std::string salvage_report_json(const Salvage_Result& result) {
    using Json = nlohmann::ordered_json;
    Json report;
    report["compound_file"] = result.is_compound_file;
    report["layout"] = result.layout();
    report["reason"] = result.reason;
    report["sector_size"] = result.sector_size;
    Json directories = Json::array();
    for (const Salvage_Directory_Copy& d : result.directories) {
        directories.push_back({{"first_sector", d.first_sector},
                               {"named_by_header", d.named_by_header},
                               {"taken", d.taken},
                               {"note", d.note}});
    }
    report["directories"] = std::move(directories);
    Json storages = Json::array();
    for (std::size_t i = 1; i < result.entries.size(); ++i) {
        if (result.entries[i].is_storage()) storages.push_back(utf8(result.path_of(i)));
    }
    report["storages"] = std::move(storages);
    Json streams = Json::array();
    for (std::size_t i = 0; i < result.entries.size(); ++i) {
        const Salvaged_Entry& e = result.entries[i];
        if (e.object_type != 2) continue;
        Json missing = Json::array();
        for (const Salvage_Range& r : e.missing)
            missing.push_back({{"offset", r.offset}, {"length", r.length}});
        Json stream = {
            {"path", utf8(result.path_of(i))},
            {"size", e.size},
            {"state", salvage_state_text(e.state)},
            {"recovered_bytes", e.state == Salvage_State::inferred ? 0 : e.recovered_bytes()},
            {"missing", std::move(missing)},
            {"evidence", e.evidence},
            {"orphan", e.orphan}};
        if (!e.candidates.empty()) {
            Json candidates = Json::array();
            for (std::size_t k = 0; k < e.candidates.size(); ++k) {
                candidates.push_back({{"name", utf8(e.name) + "#" + std::to_string(k + 1)},
                                      {"bytes", pieces_bytes(e.candidates[k].pieces)},
                                      {"evidence", e.candidates[k].evidence}});
            }
            stream["candidates"] = std::move(candidates);
        }
        streams.push_back(std::move(stream));
    }
    report["streams"] = std::move(streams);
    Json chains = Json::array();
    for (const Salvage_Lost_Chain& c : result.lost_chains) {
        chains.push_back({{"name", lost_name(c)},
                          {"first_sector", c.first_sector},
                          {"file_offset", c.pieces.front().file_offset},
                          {"bytes", chain_bytes(c)}});
    }
    report["unclaimed_chains"] = std::move(chains);
    report["summary"] = {{"streams", result.stream_count()},
                         {"recovered", result.count(Salvage_State::recovered)},
                         {"partial", result.count(Salvage_State::partial)},
                         {"ambiguous", result.count(Salvage_State::ambiguous)},
                         {"inferred", result.count(Salvage_State::inferred)},
                         {"lost", result.count(Salvage_State::lost)},
                         {"unclaimed_chains", result.lost_chains.size()},
                         {"complete", result.complete()}};
    // Names from a damaged file may not be valid UTF-8; they are written with replacements.
    return report.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

std::wstring safe_component(const std::wstring& name) {
    std::wstring out;
    for (const wchar_t c : name) {
        const bool forbidden =
            c == L'/' || c == L'\\' || c < 0x20 ||
            (platform::kWindows && std::wstring(L"<>:\"|?*").find(c) != std::wstring::npos);
        out += forbidden ? L'_' : c;
    }
    if (out.empty()) out = L"_";
    // Each step makes the name longer or replaces a refused ending; three steps settle every
    // refused form ("." / "..", trailing dot or blank, device names).
    for (int step = 0; step < 3 && is_refused_file_name(out); ++step) {
        if (out.back() == L'.' || out.back() == L' ') {
            out.back() = L'_';
        } else {
            out.insert(out.begin(), L'_');
        }
    }
    return is_refused_file_name(out) ? std::wstring(L"_entry") : out;
}

bool salvage_extract(const uint8_t* data, uint64_t size, const Salvage_Result& result,
                     const std::wstring& folder, const Salvage_Keep& keep, std::string& error,
                     const platform::Input_File* file) {
    return salvage_extract(salvage::Salvage_Input(data, size, file), result, folder, keep, error);
}

bool salvage_extract(const salvage::Salvage_Input& input, const Salvage_Result& result,
                     const std::wstring& folder, const Salvage_Keep& keep, std::string& error) {
    // Every folder and file is made new, by name inside a folder held open, never through a
    // link: a name already taken gets the next free suffix, so nothing that was there before
    // (the input included) is written to, and nothing lands outside `folder`.
    const std::size_t count = std::max<std::size_t>(result.entries.size(), 1);
    std::vector<platform::Output_Folder> folders(count);
    if (!folders[0].open(folder)) {
        error = "cannot create folder " + platform::to_utf8(folder);
        return false;
    }
    // A storage's folder stays open until its last child is written.
    std::vector<std::size_t> last_child(count, 0);
    for (std::size_t i = 1; i < result.entries.size(); ++i) {
        const auto parent = static_cast<std::size_t>(result.entries[i].parent);
        if (parent < last_child.size()) last_child[parent] = i;
    }
    std::vector<std::set<std::wstring>> used(count);
    used[0].insert(L"lost");  // the unclaimed chains' folder
    // The files are written beside this thread, which only creates them. Before a folder is
    // made or closed the writes so far are awaited: a failure among them ends the extraction
    // there, and the files made after it can still be removed.
    salvage::Salvage_Writers writers(input);
    // A storage is one folder; a stream is as many files as streams_to_write gives.
    for (std::size_t i = 1; i < result.entries.size(); ++i) {
        const Salvaged_Entry& e = result.entries[i];
        const auto parent = static_cast<std::size_t>(e.parent);
        if (parent >= folders.size() || !folders[parent].is_open()) continue;
        const platform::Output_Folder& into = folders[parent];
        if (e.is_storage()) {
            if (!writers.finish(error)) return false;
            const std::wstring base =
                safe_component(platform::from_utf16(e.name.data(), e.name.size()));
            std::wstring name;
            platform::Output_Folder made;
            if (create_unique(used[parent], base, name, [&](const std::wstring& n) {
                    return into.make_folder(n, made);
                }) != platform::Create_Result::created) {
                error = "cannot create folder " + shown_path(into, name);
                return false;
            }
            if (last_child[i] > i) folders[i] = std::move(made);
        }
        for (const Written_Stream& w :
             e.is_storage() ? std::vector<Written_Stream>{} : streams_to_write(e, keep)) {
            const std::wstring base =
                safe_component(platform::from_utf16(w.name.data(), w.name.size()));
            std::wstring name;
            auto out = std::make_unique<platform::Output_File>();
            if (create_unique(used[parent], base, name, [&](const std::wstring& n) {
                    return into.create_file(n, *out);
                }) != platform::Create_Result::created) {
                if (!writers.finish(error)) return false;
                error = "cannot write " + shown_path(into, name);
                return false;
            }
            // False: a file before it failed, and finish() says which.
            if (!writers.write(std::move(out), into, name, shown_path(into, name), *w.pieces))
                return writers.finish(error);
        }
        if (parent != 0 && last_child[parent] == i) {
            if (!writers.finish(error)) return false;
            folders[parent].close();
        }
    }
    if (!writers.finish(error)) return false;
    if (result.lost_chains.empty()) return true;
    platform::Output_Folder lost;
    std::wstring name = L"lost";
    platform::Create_Result made = folders[0].make_folder(name, lost);
    if (made == platform::Create_Result::exists) {
        made = create_unique(used[0], name, name, [&](const std::wstring& n) {
            return folders[0].make_folder(n, lost);
        });
    }
    if (made != platform::Create_Result::created) {
        error = "cannot create folder " + shown_path(folders[0], name);
        return false;
    }
    std::set<std::wstring> lost_used;
    for (const Salvage_Lost_Chain& c : result.lost_chains) {
        const std::wstring base = L"sector_" + std::to_wstring(c.first_sector) + L".bin";
        auto out = std::make_unique<platform::Output_File>();
        if (create_unique(lost_used, base, name, [&](const std::wstring& n) {
                return lost.create_file(n, *out);
            }) != platform::Create_Result::created) {
            if (!writers.finish(error)) return false;
            error = "cannot write " + shown_path(lost, name);
            return false;
        }
        if (!writers.write(std::move(out), lost, name, shown_path(lost, name), c.pieces))
            return writers.finish(error);
    }
    return writers.finish(error);
}

namespace {

using Stream_Pieces = std::map<const Cfb_Fs_Item_FileNode*, const std::vector<Salvage_Piece>*>;

// The recovered tree as builder items; with `streams`, stream items get no bytes of their own
// and `streams` pairs each with its pieces instead.
std::unique_ptr<Cfb_Fs_Item_DirNode> tree_of(const salvage::Salvage_Input& input,
                                             const Salvage_Result& result, const Salvage_Keep& keep,
                                             Stream_Pieces* streams) {
    auto root = std::make_unique<Cfb_Fs_Item_DirNode>();
    if (result.entries.empty()) return root;
    auto copy_meta = [](const Salvaged_Entry& e, Cfb_Fs_Item_AbstractNode& item) {
        item.clsid = e.clsid;
        item.state_bits = e.state_bits;
        item.creation_time = e.creation_time;
        item.modified_time = e.modified_time;
    };
    copy_meta(result.entries[0], *root);
    std::vector<Cfb_Fs_Item_DirNode*> dirs(result.entries.size(), nullptr);
    // The builder refuses two children of one storage whose names compare equal in the
    // format's order; a damaged directory may hold such twins.
    struct Entry_Name_Less {
        bool operator()(const std::u16string& a, const std::u16string& b) const {
            return compare_entry_names(a, b) < 0;
        }
    };
    std::vector<std::set<std::u16string, Entry_Name_Less>> used(result.entries.size());
    dirs[0] = root.get();
    for (std::size_t i = 1; i < result.entries.size(); ++i) {
        const Salvaged_Entry& e = result.entries[i];
        Cfb_Fs_Item_DirNode* parent = dirs[static_cast<std::size_t>(e.parent)];
        if (parent == nullptr) continue;
        const std::vector<Written_Stream> items =
            e.is_storage() ? std::vector<Written_Stream>{{e.name, nullptr}}
                           : streams_to_write(e, keep);
        for (const Written_Stream& w : items) {
            const std::u16string base = w.name.substr(0, 31);
            std::u16string name = base.empty() ? u"_" : base;
            // Each try has a different suffix; a storage has fewer children than tries.
            for (uint32_t n = 2;
                 used[static_cast<std::size_t>(e.parent)].count(name) != 0 && n < 100000; ++n) {
                const std::string suffix = "~" + std::to_string(n);
                name = base.substr(0, 31 - suffix.size()) +
                       std::u16string(suffix.begin(), suffix.end());
            }
            used[static_cast<std::size_t>(e.parent)].insert(name);
            if (e.is_storage()) {
                Cfb_Fs_Item_DirNode& d = parent->add_storage(name);
                copy_meta(e, d);
                dirs[i] = &d;
            } else if (streams != nullptr) {
                Cfb_Fs_Item_FileNode& f = parent->add_stream(name, {});
                copy_meta(e, f);
                (*streams)[&f] = w.pieces;
            } else {
                Cfb_Fs_Item_FileNode& f =
                    parent->add_stream(name, salvaged_bytes(input, *w.pieces));
                copy_meta(e, f);
            }
        }
    }
    return root;
}

// Streams straight from the input's verified pieces; missing ranges before the last piece
// read as zeros, as salvaged_bytes gives them.
class Pieces_Source final : public Stream_Source {
  public:
    Pieces_Source(const salvage::Salvage_Input& input, Stream_Pieces streams)
        : m_input(input), m_streams(std::move(streams)) {}

    uint64_t size(const Cfb_Fs_Item_FileNode& item) const override {
        uint64_t end = 0;
        for (const Salvage_Piece& p : pieces(item)) end = std::max(end, p.stream_offset + p.length);
        return end;
    }

    void write(const Cfb_Fs_Item_FileNode& item, const Bytes_Out& out) const override {
        write_or_copy(item, out, nullptr);
    }

    [[nodiscard]] const platform::Input_File* input_file() const override { return m_input.file(); }

    // Long runs are copied from the file; short ones (mini streams) come from the map.
    void write_or_copy(const Cfb_Fs_Item_FileNode& item, const Bytes_Out& out,
                       const Range_Out& copy) const override {
        constexpr uint64_t kCopiedRun = 64 * 1024;
        static const uint8_t zeros[4096] = {};
        uint64_t at = 0;
        for (const Salvage_Piece& p : pieces(item)) {
            // Pieces come in ascending stream order; zeros fill a missing range.
            for (uint64_t gap = p.stream_offset - std::min(at, p.stream_offset); gap > 0;) {
                const auto n = static_cast<std::size_t>(std::min<uint64_t>(gap, sizeof zeros));
                out(zeros, n);
                gap -= n;
            }
            if (copy && p.length >= kCopiedRun) {
                copy(p.file_offset, p.length);
            } else {
                read_out(p, out);
            }
            at = p.stream_offset + p.length;
        }
    }

  private:
    const std::vector<Salvage_Piece>& pieces(const Cfb_Fs_Item_FileNode& item) const {
        static const std::vector<Salvage_Piece> none;
        const auto found = m_streams.find(&item);
        if (found == m_streams.end()) return none;
        // Only pieces inside the input: salvaged_bytes refuses the others the same way.
        for (const Salvage_Piece& p : *found->second) {
            if (!range_inside(p.file_offset, p.length, m_input.size())) return none;
        }
        return *found->second;
    }

    // The piece's bytes in blocks; a file that no longer holds them fails the write.
    void read_out(const Salvage_Piece& p, const Bytes_Out& out) const {
        constexpr uint64_t kBlock = 64 * 1024;
        for (uint64_t done = 0; done < p.length;) {
            const auto n = static_cast<std::size_t>(std::min(kBlock, p.length - done));
            const uint8_t* bytes = m_input.bytes(p.file_offset + done, n);
            if (bytes == nullptr) {
                throw std::runtime_error("cannot read the input at offset " +
                                         std::to_string(p.file_offset + done) +
                                         ": the file ended early");
            }
            out(bytes, n);
            done += n;
        }
    }

    const salvage::Salvage_Input& m_input;
    Stream_Pieces m_streams;
};

}  // namespace

std::unique_ptr<Cfb_Fs_Item_DirNode> salvage_tree(const uint8_t* data, uint64_t size,
                                                  const Salvage_Result& result,
                                                  const Salvage_Keep& keep) {
    return tree_of(salvage::Salvage_Input(data, size, nullptr), result, keep, nullptr);
}

bool salvage_write(const uint8_t* data, uint64_t size, const Salvage_Result& result,
                   const std::wstring& path, const Salvage_Keep& keep, std::string& error,
                   const platform::Input_File* file, platform::Create_Mode mode) {
    return salvage_write(salvage::Salvage_Input(data, size, file), result, path, keep, error, mode);
}

bool salvage_write(const salvage::Salvage_Input& input, const Salvage_Result& result,
                   const std::wstring& path, const Salvage_Keep& keep, std::string& error,
                   platform::Create_Mode mode, Prepared_Output* prepared) {
    const platform::Input_File* file = input.file();
    Stream_Pieces streams;
    const auto tree = tree_of(input, result, keep, &streams);
    const Pieces_Source source(input, std::move(streams));
    // The output must never be the input the streams are read from.
    platform::File_Identity identity;
    const bool input_known = file != nullptr && file->identity(identity);
    const Write_Target target{path, mode, input_known ? &identity : nullptr, prepared};
    try {
        switch (write_compound_file(target, *tree, source)) {
            case Write_Result::written:
                return true;
            case Write_Result::is_input:
                error = "it is the input file; nothing was written";
                return false;
            case Write_Result::failed:
                break;
        }
    } catch (const std::exception& e) {
        error = e.what();
        return false;
    }
    error = "cannot write " + platform::to_utf8(path);
    return false;
}

std::unique_ptr<Prepared_Output> prepare_salvage_write(const salvage::Salvage_Input& input,
                                                       const std::wstring& path) {
    // Below this the write is short enough that a thread and a second pass gain nothing.
    constexpr uint64_t kWorthIt = uint64_t{64} << 20;
    const platform::Input_File* file = input.file();
    platform::File_Identity identity;
    if (input.size() < kWorthIt || file == nullptr || !file->identity(identity)) return nullptr;
    // The rebuilt file is about as long as the input.
    return std::make_unique<Prepared_Output>(
        Write_Target{path, platform::Create_Mode::staged, &identity}, input.size());
}

}  // namespace vrk
