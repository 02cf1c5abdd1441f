#include "support/literal_procedures.h"

#include <algorithm>
#include <memory>
#include <set>
#include <stdexcept>
#include <tuple>

#include "cfb_vornak/probe/Root_Signature_Search.h"

namespace vrk::test {
namespace {

uint32_t entry_at(File_Anywhere_Door& door, uint64_t offset) {
    uint32_t value = 0;
    for (uint64_t i = 0; i < 4; ++i) value += uint32_t{door.get_no_mutex(offset + i)} << (8 * i);
    return value;
}

uint32_t sector_at(sid_t sid) {
    return (sid + 1u) * 512u;
}

Directory_Entry literal_directory_entry(File_Anywhere_Door& door, uint64_t at, uint32_t did) {
    Directory_Entry e;
    e.did = did;
    const auto copy = [&](uint64_t offset, auto& field) {
        door.copy_data_to_mem(at + offset, field.size(), field.data());
    };
    const auto number = [&](uint64_t offset, std::size_t size) {
        std::array<uint8_t, 4> b{};
        door.copy_data_to_mem(at + offset, size, b.data());
        return b[0] + 256u * b[1] + 65536u * b[2] + 16777216u * b[3];
    };
    copy(0, e.name);
    e.name_valid_size = static_cast<uint16_t>(number(64, 2));
    e.object_type = static_cast<uint8_t>(number(66, 1));
    e.color_flag = static_cast<uint8_t>(number(67, 1));
    e.left_sibling_id = number(68, 4);
    e.right_sibling_id = number(72, 4);
    e.child_id = number(76, 4);
    copy(80, e.clsid);
    copy(96, e.state_bits);
    copy(100, e.creation_time);
    copy(108, e.modified_time);
    e.start_sid = number(116, 4);
    e.stream_size = number(120, 4);
    return e;
}

bool same_entries(const std::vector<Directory_Entry>& a, const std::vector<Directory_Entry>& b) {
    const auto fields = [](const Directory_Entry& e) {
        return std::tie(e.name, e.name_valid_size, e.object_type, e.color_flag, e.left_sibling_id,
                        e.right_sibling_id, e.child_id, e.clsid, e.state_bits, e.creation_time,
                        e.modified_time, e.start_sid, e.stream_size, e.did);
    };
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(),
                      [&](const auto& x, const auto& y) { return fields(x) == fields(y); });
}

template <typename Key>
bool same_layout(const std::map<Key, std::vector<Directory_Entry>>& a,
                 const std::map<Key, std::vector<Directory_Entry>>& b) {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](const auto& x, const auto& y) {
               return x.first == y.first && same_entries(x.second, y.second);
           });
}

// The chains of a table, from every id no entry names; each dropped chain adds its message
// to `errors`.
std::vector<sids_list> literal_extract_chains(const sids_array& table,
                                              std::vector<std::string>& errors) {
    std::vector<sids_list> chains;
    const std::set<sid_t> values(table.begin(), table.end());
    for (sid_t head = 0; head < table.size(); ++head) {
        if (values.count(head) != 0) continue;
        sids_list chain{head};
        for (std::set<sid_t> visited{head};;) {
            if (chain.back() >= table.size()) {
                chains.push_back(chain);
                break;
            }
            const sid_t next = table[chain.back()];
            if (next > 0xFFFFFFFBu) {
                chain.push_back(next);
                chains.push_back(chain);
                break;
            }
            if (!visited.insert(next).second) {
                errors.emplace_back("parse_sat_form_disat have ring~");
                break;
            }
            if (chain.size() > 100000) {
                errors.emplace_back("parse_sat_form_disat error~");
                return chains;
            }
            chain.push_back(next);
        }
    }
    return chains;
}

void literal_disat(Cfb_File& f, Literal_Parse& r) {
    for (uint64_t i = 0; i < 109; ++i) r.header_disat[i] = entry_at(f.door(), 76 + 4 * i);
    const uint64_t count = f.header.num_of_disat_secs;
    sid_t sid = f.header.first_disat_sid;
    for (uint64_t k = 0; k < count && sid <= f.max_sid; ++k) {
        if (k == f.max_sid + 1) {
            r.errors.push_back("parse_disat stopped after " + std::to_string(k) +
                               " DISAT sectors, as many as the file has sectors; the header " +
                               "asks for " + std::to_string(count));
            return;
        }
        r.disat_sids.push_back(sid);
        sids_array entries;
        for (uint64_t i = 0; i < 127; ++i)
            entries.push_back(entry_at(f.door(), sector_at(sid) + 4 * i));
        r.disat_sector_entries.push_back(entries);
        sid = entry_at(f.door(), sector_at(sid) + 508);
    }
}

// The SAT (`mini` false: the sectors the header and the DISAT name, at most twice the file's
// sector count plus 109) or the MiniSAT (the run of sectors from the header's first one).
void literal_table(Cfb_File& f, Literal_Parse& r, bool mini) {
    auto& dicts = mini ? r.minisat_sector_dicts : r.sat_sector_dicts;
    auto& table = mini ? r.minisat_big_sids_array : r.big_sids_array;
    const uint64_t limit = 2 * (f.max_sid + 1) + 109;
    uint64_t read = 0;
    const auto sector = [&](sid_t sid) {
        if (sid > 0xFFFFFFFBu || read > limit) return;
        if (read++ == limit) {
            r.errors.push_back("parse_sat_form_disat stopped after " + std::to_string(limit) +
                               " SAT sectors, twice as many as the file has sectors");
            return;
        }
        for (uint64_t i = 0; i < 128; ++i) {
            table.push_back(entry_at(f.door(), sector_at(sid) + 4 * i));
            dicts[sid].push_back(table.back());
        }
    };
    const sid_t first = f.header.first_minisat_sid;
    if (!mini) {
        for (const sid_t sid : r.header_disat) sector(sid);
        for (const sids_array& entries : r.disat_sector_entries) {
            for (const sid_t sid : entries) sector(sid);
        }
    } else if (first <= 0xFFFFFFFBu && first <= f.max_sid) {
        for (uint64_t s = first;
             s < first + uint64_t{f.header.num_of_minisat_secs} && s <= f.max_sid; ++s) {
            sector(static_cast<sid_t>(s));
        }
    }
    (mini ? r.minisat_sids_lists : r.sat_sids_lists) = literal_extract_chains(table, r.errors);
}

void literal_directory(Cfb_File& f, Literal_Parse& r) {
    const sid_t start = f.header.first_dir_sid;
    if (start > 0xFFFFFFFBu || start > f.max_sid) return;
    r.directory_entrys_sids_list = literal_walk(r.big_sids_array, start);
    for (std::size_t i = 0; i + 1 < r.directory_entrys_sids_list.size(); ++i) {
        const sid_t sid = r.directory_entrys_sids_list[i];
        if (sid > f.max_sid) break;
        for (uint32_t slot = 0; slot < 4; ++slot) {
            const Directory_Entry e =
                literal_directory_entry(f.door(), uint64_t{sector_at(sid)} + 128 * slot,
                                        static_cast<uint32_t>(r.directory_entrys.size()));
            r.directory_entry_layout_dicts[sid].push_back(e);
            r.directory_entrys.push_back(e);
        }
    }
}

void literal_container(Cfb_File& f, Literal_Parse& r) {
    const auto root = std::find_if(r.directory_entrys.begin(), r.directory_entrys.end(),
                                   [](const Directory_Entry& e) { return e.object_type == 5; });
    if (root == r.directory_entrys.end()) return;
    const sid_t start = root->start_sid;
    const uint32_t size = root->stream_size;
    if (start > 0xFFFFFFFBu || start > f.max_sid) return;
    const sids_list chain = literal_walk(r.big_sids_array, start);
    const uint32_t sector_size = 1u << (f.header.sector_shift % 32u);
    uint32_t remaining = size;
    for (std::size_t i = 0; i < chain.size() && i < size && chain[i] != ENDOFCHAIN; ++i) {
        const sid_t sid = chain[i];
        if (sid == FREESECT || sid == FATSECT || sid == DIFSECT || sid > f.max_sid) {
            r.short_stream_container.clear();
            return;
        }
        uint64_t n = std::min(sector_size, remaining);
        const uint64_t room = f.file_size - r.short_stream_container.size();
        const bool cut = n > room;
        n = cut ? room : n;
        std::vector<uint8_t> bytes(n);
        f.door().copy_data_to_mem(static_cast<uint32_t>((sid + 1u) * sector_size), n, bytes.data());
        r.short_stream_container.insert(r.short_stream_container.end(), bytes.begin(), bytes.end());
        remaining -= static_cast<uint32_t>(n);
        if (cut) {
            r.errors.push_back("extract_cfb_short_stream_container stopped at sector " +
                               std::to_string(sid) + ": the container would outgrow the file (" +
                               std::to_string(f.file_size) + " bytes)");
            break;
        }
    }
    r.mini_sector_count = size >> (f.header.mini_sector_shift % 32u);
}

// The object's compact tables in the literal form: each sector's entries under its id (the
// readings of a sector read twice joined), each chain as its ids.
std::map<sid_t, sids_array> sector_dicts(const std::vector<Table_Sector>& sectors,
                                         const sids_array& table) {
    std::map<sid_t, sids_array> dicts;
    for (const Table_Sector& sector : sectors) {
        sids_array& entries = dicts[sector.sid];
        for (std::size_t i = 0; i < sector.count; ++i)
            entries.push_back(table.at(sector.first + i));
    }
    return dicts;
}

std::vector<sids_list> chain_lists(const std::vector<Chain_Extent>& chains,
                                   const sids_array& table) {
    std::vector<sids_list> lists;
    for (const Chain_Extent& chain : chains) {
        sids_list ids{chain.head};
        while (ids.size() < chain.length) ids.push_back(table.at(ids.back()));
        lists.push_back(ids);
    }
    return lists;
}

// What `probe` returns, or the failure text it throws.
template <typename Probe>
std::string outcome(Probe probe) {
    try {
        return std::to_string(probe());
    } catch (const std::logic_error& failure) {
        return failure.what();
    }
}

struct Literal_Scan_Result {
    uint32_t result = 0xFFFFFFFFu;
    std::map<uint64_t, std::vector<Directory_Entry>> layout;
    Directory_Entry root;
    uint64_t mini_sector_count = 0;
};

// The slot scan of `file` without touching the object's members; throws what the door throws
// for a byte past the end.
Literal_Scan_Result literal_root_entry_scan(Cfb_File& file) {
    std::map<uint64_t, std::vector<Directory_Entry>> found;
    Literal_Scan_Result out;
    for (uint64_t index = 0; index < 4 * (file.max_sid + 1); ++index) {
        const Directory_Entry r =
            literal_directory_entry(file.door(), 512 + 128 * index, static_cast<uint32_t>(index));
        if (!literal_plausible(file, r)) continue;
        found[index / 4].push_back(r);
        if (r.object_type == 5) out = {0, {}, r, 0};  // the last root storage is the root
    }
    if (out.result != 0) return out;
    out.mini_sector_count = out.root.stream_size / 63;
    for (const auto& [s, list] : found) {
        for (const auto& r : list) {
            if (r.stream_size >= 4096 || r.start_sid <= out.mini_sector_count)
                out.layout[s].push_back(r);
        }
    }
    return out;
}

}  // namespace

sids_list literal_walk(const sids_array& table, sid_t start, uint32_t limit) {
    sids_list chain{start};
    std::set<sid_t> visited{start};
    for (uint32_t steps = 0; chain.back() < table.size() && steps < limit; ++steps) {
        const sid_t next = table[chain.back()];
        if (visited.count(next) != 0 || next == ENDOFCHAIN) break;
        chain.push_back(next);
        visited.insert(next);
    }
    chain.push_back(ENDOFCHAIN);
    return chain;
}

Literal_Parse literal_parse(Cfb_File& file) {
    Literal_Parse r;
    try {
        literal_disat(file, r);
        literal_table(file, r, false);
        literal_table(file, r, true);
        literal_directory(file, r);
        literal_container(file, r);
    } catch (const std::logic_error& failure) {
        r.thrown = failure.what();
    }
    return r;
}

std::string parse_difference(const Cfb_File& f, const Literal_Parse& l) {
    const std::pair<const char*, bool> same[] = {
        {"header_disat", f.header_disat == l.header_disat},
        {"disat_sids", f.disat_sids == l.disat_sids},
        {"disat_sector_entries", f.disat_sector_entries == l.disat_sector_entries},
        {"sat sectors", sector_dicts(f.sat_sector_dicts, f.big_sids_array) == l.sat_sector_dicts},
        {"big_sids_array", f.big_sids_array == l.big_sids_array},
        {"sat chains", chain_lists(f.sat_sids_lists, f.big_sids_array) == l.sat_sids_lists},
        {"minisat sectors",
         sector_dicts(f.minisat_sector_dicts, f.minisat_big_sids_array) == l.minisat_sector_dicts},
        {"minisat_big_sids_array", f.minisat_big_sids_array == l.minisat_big_sids_array},
        {"minisat chains",
         chain_lists(f.minisat_sids_lists, f.minisat_big_sids_array) == l.minisat_sids_lists},
        {"directory chain", f.directory_entrys_sids_list == l.directory_entrys_sids_list},
        {"directory_entrys", same_entries(f.directory_entrys, l.directory_entrys)},
        {"layout", same_layout(f.directory_entry_layout_dicts, l.directory_entry_layout_dicts)},
        {"container", f.short_stream_container == l.short_stream_container},
        {"mini_sector_count", f.mini_sector_count == l.mini_sector_count}};
    for (const auto& [name, equal] : same) {
        if (!equal) return name;
    }
    return {};
}

bool literal_plausible(const Cfb_File& file, const Directory_Entry& r) {
    if (r.name_valid_size < 1 || r.name_valid_size > 64) return false;
    for (std::size_t i = r.name_valid_size; i < 64; ++i) {
        if (r.name[i] != 0) return false;
    }
    for (uint32_t id : {r.left_sibling_id, r.right_sibling_id, r.child_id}) {
        if (!(id <= 10000u || id == 0xFFFFFFFFu)) return false;
    }
    if (!(r.stream_size < file.file_size - 512)) return false;
    if (r.stream_size <= 4096) return true;
    return r.start_sid <= file.max_sid;
}

std::string probe_difference(const File_Description& input, const uint8_t* data, std::size_t size,
                             uint64_t scan_limit) {
    const auto& needle = kRootEntrySignature;
    const bool found = std::search(data, data + size, needle.begin(), needle.end()) != data + size;
    if (Cfb_File::search_root_entry_signature(input) != found) return "signature search";
    if (size > scan_limit) return {};
    std::unique_ptr<Cfb_File> fast;
    Literal_Scan_Result literal;
    bool scanned = false;
    const std::string fast_scan = outcome([&] {
        fast = std::make_unique<Cfb_File>(input);
        return fast->find_root_entry_by_scan();
    });
    const std::string literal_scan = outcome([&] {
        Cfb_File slow(input);
        literal = literal_root_entry_scan(slow);
        scanned = true;
        return literal.result;
    });
    if (fast_scan != literal_scan) return "scan: " + fast_scan + " / " + literal_scan;
    if (scanned && (!same_layout(fast->scanned_directory_layout, literal.layout) ||
                    fast->mini_sector_count != literal.mini_sector_count ||
                    (literal.result == 0 && !same_entries({fast->root_entry}, {literal.root})))) {
        return "scanned records";
    }
    const std::string classified =
        outcome([&] { return Cfb_File::get_cfb_file_damaged_type(input); });
    const std::string expected = outcome([&] {
        if (!found) return ec::kNotCfb;
        Cfb_File file(input);
        return Cfb_File::check_cfb_core(file);
    });
    return classified == expected ? "" : "classification: " + classified + " / " + expected;
}

}  // namespace vrk::test
