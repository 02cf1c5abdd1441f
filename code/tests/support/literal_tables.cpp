#include "support/literal_tables.h"

#include <algorithm>
#include <set>
#include <stdexcept>

#include "cfb_vornak/model/Cfb_Directory_Tree.h"
#include "cfb_vornak/model/Safe_Name.h"
#include "cfb_vornak/model/Tree_Release.h"
#include "common/platform.h"

namespace vrk::test {
namespace {

const std::string kRing = "parse_sat_form_disat have ring~";
const std::string kTooLong = "parse_sat_form_disat error~";

uint32_t entry_at(File_Anywhere_Door& door, uint64_t offset) {
    uint32_t value = 0;
    for (uint64_t i = 0; i < 4; ++i) {
        value += static_cast<uint32_t>(door.get_no_mutex(offset + i)) << (8 * i);
    }
    return value;
}

uint32_t sector_at(sid_t sid) {
    return (sid + 1u) * 512u;
}

void literal_disat(Cfb_File& f, Literal_Parse& r) {
    File_Anywhere_Door& door = f.door();
    for (uint64_t i = 0; i < 109; ++i) {
        r.header_disat[i] = entry_at(door, 76 + 4 * i);
    }
    const uint64_t count = f.header.num_of_disat_secs;
    if (count == 0) {
        return;
    }
    sid_t sid = f.header.first_disat_sid;
    uint64_t k = 0;
    for (;;) {
        if (sid > f.max_sid) {
            return;
        }
        if (k == f.max_sid + 1) {
            r.errors.push_back("parse_disat stopped after " + std::to_string(k) +
                               " DISAT sectors, as many as the file has sectors; the header asks "
                               "for " +
                               std::to_string(count));
            return;
        }
        r.disat_sids.push_back(sid);
        sids_array entries;
        for (uint64_t i = 0; i < 127; ++i) {
            entries.push_back(entry_at(door, sector_at(sid) + 4 * i));
        }
        r.disat_sector_entries.push_back(entries);
        const sid_t next = entry_at(door, sector_at(sid) + 508);
        ++k;
        if (k >= count) {
            return;
        }
        sid = next;
    }
}

void literal_sat(Cfb_File& f, Literal_Parse& r) {
    File_Anywhere_Door& door = f.door();
    const uint64_t limit = 2 * (f.max_sid + 1) + 109;
    uint64_t read = 0;
    bool cut = false;
    auto sector = [&](sid_t sid) {
        if (sid > 0xFFFFFFFBu || cut) {
            return;
        }
        if (read == limit) {
            cut = true;
            r.errors.push_back("parse_sat_form_disat stopped after " + std::to_string(limit) +
                               " SAT sectors, twice as many as the file has sectors");
            return;
        }
        ++read;
        for (uint64_t i = 0; i < 128; ++i) {
            const sid_t value = entry_at(door, sector_at(sid) + 4 * i);
            r.sat_sector_dicts[sid].push_back(value);
            r.big_sids_array.push_back(value);
        }
    };
    for (const sid_t sid : r.header_disat) {
        sector(sid);
    }
    for (const sids_array& entries : r.disat_sector_entries) {
        for (const sid_t sid : entries) {
            sector(sid);
        }
    }
    r.sat_sids_lists = literal_extract_chains(r.big_sids_array, r.errors);
}

void literal_minisat(Cfb_File& f, Literal_Parse& r) {
    File_Anywhere_Door& door = f.door();
    const sid_t first = f.header.first_minisat_sid;
    if (first > 0xFFFFFFFBu || first > f.max_sid) {
        return;
    }
    for (uint64_t i = 0; i < f.header.num_of_minisat_secs; ++i) {
        const uint64_t s = first + i;
        if (s > f.max_sid) {
            break;
        }
        for (uint64_t j = 0; j < 128; ++j) {
            const sid_t value = entry_at(door, sector_at(static_cast<sid_t>(s)) + 4 * j);
            r.minisat_sector_dicts[static_cast<sid_t>(s)].push_back(value);
            r.minisat_big_sids_array.push_back(value);
        }
    }
    r.minisat_sids_lists = literal_extract_chains(r.minisat_big_sids_array, r.errors);
}

template <typename Field>
void field_copy(File_Anywhere_Door& door, uint64_t offset, Field& field) {
    door.copy_data_to_mem(offset, field.size(), field.data());
}

uint32_t field_u32(File_Anywhere_Door& door, uint64_t offset) {
    std::array<uint8_t, 4> b{};
    field_copy(door, offset, b);
    return b[0] + 256u * b[1] + 65536u * b[2] + 16777216u * b[3];
}

}  // namespace

Directory_Entry literal_directory_entry(File_Anywhere_Door& door, uint64_t at, uint32_t did) {
    Directory_Entry e;
    e.did = did;
    field_copy(door, at, e.name);
    std::array<uint8_t, 2> size{};
    field_copy(door, at + 64, size);
    e.name_valid_size = static_cast<uint16_t>(size[0] + 256 * size[1]);
    std::array<uint8_t, 1> one{};
    field_copy(door, at + 66, one);
    e.object_type = one[0];
    field_copy(door, at + 67, one);
    e.color_flag = one[0];
    e.left_sibling_id = field_u32(door, at + 68);
    e.right_sibling_id = field_u32(door, at + 72);
    e.child_id = field_u32(door, at + 76);
    field_copy(door, at + 80, e.clsid);
    field_copy(door, at + 96, e.state_bits);
    field_copy(door, at + 100, e.creation_time);
    field_copy(door, at + 108, e.modified_time);
    e.start_sid = field_u32(door, at + 116);
    e.stream_size = field_u32(door, at + 120);
    return e;
}

namespace {

void literal_directory(Cfb_File& f, Literal_Parse& r) {
    const sid_t start = f.header.first_dir_sid;
    if (start > 0xFFFFFFFBu || start > f.max_sid) {
        return;
    }
    r.directory_entrys_sids_list = literal_walk(r.big_sids_array, start);
    for (std::size_t i = 0; i + 1 < r.directory_entrys_sids_list.size(); ++i) {
        const sid_t sid = r.directory_entrys_sids_list[i];
        if (sid > f.max_sid) {
            break;
        }
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
    Directory_Entry root;
    for (const Directory_Entry& e : r.directory_entrys) {
        if (e.object_type == 5) {
            root = e;
            break;
        }
    }
    r.container_result = 0xFFFFFFFFu;
    if (root.object_type != 5) {
        return;
    }
    const sid_t start = root.start_sid;
    const uint32_t size = root.stream_size;
    if (start > 0xFFFFFFFBu || start > f.max_sid) {
        return;
    }
    const sids_list chain = literal_walk(r.big_sids_array, start);
    const uint32_t sector_size = 1u << (f.header.sector_shift % 32u);
    uint32_t remaining = size;
    for (std::size_t i = 0; i < chain.size() && i < size; ++i) {
        const sid_t sid = chain[i];
        if (sid == ENDOFCHAIN) {
            break;
        }
        if (sid == FREESECT || sid == FATSECT || sid == DIFSECT || sid > f.max_sid) {
            r.short_stream_container.clear();
            return;
        }
        uint64_t n = std::min(sector_size, remaining);
        const uint64_t room = f.file_size - r.short_stream_container.size();
        const bool cut = n > room;
        if (cut) {
            n = room;
        }
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
    r.container_result = 0;
}

}  // namespace

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

std::vector<sids_list> literal_extract_chains(const sids_array& table,
                                              std::vector<std::string>& errors) {
    std::vector<sids_list> chains;
    const int64_t n = static_cast<int64_t>(table.size()) - 1;
    std::set<sid_t> values(table.begin(), table.end());
    std::set<sid_t> heads;
    for (int64_t id = 0; id <= n; ++id) {
        if (values.count(static_cast<sid_t>(id)) == 0) {
            heads.insert(static_cast<sid_t>(id));
        }
    }
    for (const sid_t head : heads) {
        sids_list chain;
        std::set<sid_t> visited;
        sid_t cur = head;
        for (;;) {
            chain.push_back(cur);
            visited.insert(cur);
            if (cur > 0xFFFFFFFBu || static_cast<int64_t>(cur) > n) {
                chains.push_back(chain);
                break;
            }
            const sid_t next = table[cur];
            if (next > 0xFFFFFFFBu) {
                chain.push_back(next);
                chains.push_back(chain);
                break;
            }
            if (visited.count(next) != 0) {
                errors.push_back(kRing);
                break;
            }
            if (chain.size() > 100000) {
                errors.push_back(kTooLong);
                return chains;
            }
            cur = next;
        }
    }
    return chains;
}

sids_list literal_walk(const sids_array& table, sid_t start) {
    sids_list chain{start};
    std::set<sid_t> visited{start};
    uint32_t steps = 0;
    sid_t cur = start;
    for (;;) {
        // A sid equal to the table's length would be looked up one place past the table: the
        // walk ends there.
        if (cur > table.size() || steps == 9999 || cur == table.size()) {
            break;
        }
        const sid_t next = table[cur];
        if (visited.count(next) != 0 || next == ENDOFCHAIN) {
            break;
        }
        chain.push_back(next);
        visited.insert(next);
        ++steps;
        cur = next;
    }
    chain.push_back(ENDOFCHAIN);
    return chain;
}

Literal_Parse literal_parse(Cfb_File& file) {
    Literal_Parse r;
    try {
        literal_disat(file, r);
        literal_sat(file, r);
        literal_minisat(file, r);
        literal_directory(file, r);
        literal_container(file, r);
    } catch (const std::logic_error& failure) {
        r.thrown = failure.what();
    }
    return r;
}

namespace {

// The release's chain: start, then successors until ENDOFCHAIN or a repeat; an id past the
// table (an id equal to its length included: there is nothing to read there) or `limit` ids
// after the start end it too. Closed with ENDOFCHAIN.
sids_list literal_release_chain(const sids_array& table, sid_t start, uint32_t limit) {
    sids_list chain{start};
    std::set<sid_t> seen{start};
    for (uint32_t k = 0;; ++k) {
        const sid_t c = chain.back();
        if (c > table.size() || k == limit || c == table.size()) break;
        const sid_t d = table[c];
        if (seen.count(d) != 0 || d == ENDOFCHAIN) break;
        chain.push_back(d);
        seen.insert(d);
    }
    chain.push_back(ENDOFCHAIN);
    return chain;
}

// One stream; false when no file is written. Throws what the door throws.
bool literal_stream(Cfb_File& f, const Directory_Entry& record, std::vector<uint8_t>& bytes) {
    const sid_t start = record.start_sid;
    const uint32_t size = record.stream_size;
    const bool normal = size > f.header.mini_stream_cutoff_size;
    const uint32_t shift = normal ? f.header.sector_shift : f.header.mini_sector_shift;
    const uint64_t unit = uint64_t{1} << (shift % 32u);
    // The highest id of each table: the last whole 512-byte sector of the file; the last mini
    // sector wholly inside the container, which has none when it is shorter than one.
    const std::vector<uint8_t>& container = f.short_stream_container;
    const bool any_mini = container.size() >= unit;
    const uint64_t highest = normal ? f.max_sid : any_mini ? container.size() / unit - 1 : 0;
    const auto past = [&](sid_t id) { return id > highest || (!normal && !any_mini); };
    if (start > 0xFFFFFFFBu || size == 0 || past(start)) return false;
    const sids_list chain = normal ? literal_release_chain(f.big_sids_array, start, 99999)
                                   : literal_release_chain(f.minisat_big_sids_array, start, 9999);
    uint64_t remaining = size;
    uint64_t taken = 0;
    for (const sid_t id : chain) {
        if (id == ENDOFCHAIN) break;
        if (id > 0xFFFFFFFBu || past(id)) return false;
        const uint64_t n = std::min<uint64_t>(remaining, unit);
        std::vector<uint8_t> piece(static_cast<std::size_t>(n));
        if (normal) {
            f.door().copy_data_to_mem((id + uint64_t{1}) * unit, n, piece.data());
        } else {
            std::copy_n(container.begin() + static_cast<std::ptrdiff_t>(id * unit), n,
                        piece.begin());
        }
        bytes.insert(bytes.end(), piece.begin(), piece.end());
        remaining -= n;
        if (++taken >= size) break;
    }
    return true;
}

}  // namespace

Literal_Release literal_release(Cfb_File& file) {
    Literal_Release r;
    const Cfb_Directory_Entry_AbstractNode* root =
        file.cfb_directory_tree ? file.cfb_directory_tree->root : nullptr;
    if (root == nullptr || !root->is_dir()) return r;
    try {
        for (const auto* child : static_cast<const Cfb_Directory_Entry_DirNode*>(root)->children) {
            if (child == nullptr || child->index >= file.directory_entrys.size()) continue;
            const Directory_Entry& record = file.directory_entrys[child->index];
            const std::wstring name = entry_file_name(record);
            if (is_refused_file_name(name)) continue;
            const std::string utf8 = platform::to_utf8(name);
            // Files and folders share one name space: whichever came first keeps the name.
            std::vector<uint8_t> bytes;
            if (child->is_dir()) {
                if (r.files.count(utf8) == 0) r.folders.insert(utf8);
            } else if (literal_stream(file, record, bytes) && r.folders.count(utf8) == 0) {
                r.files[utf8] = bytes;
            }
        }
    } catch (const std::logic_error& failure) {
        r.thrown = failure.what();
    }
    return r;
}

bool same_entry(const Directory_Entry& a, const Directory_Entry& b) {
    return a.name == b.name && a.name_valid_size == b.name_valid_size &&
           a.object_type == b.object_type && a.color_flag == b.color_flag &&
           a.left_sibling_id == b.left_sibling_id && a.right_sibling_id == b.right_sibling_id &&
           a.child_id == b.child_id && a.clsid == b.clsid && a.state_bits == b.state_bits &&
           a.creation_time == b.creation_time && a.modified_time == b.modified_time &&
           a.start_sid == b.start_sid && a.stream_size == b.stream_size && a.did == b.did;
}

bool same_entries(const std::vector<Directory_Entry>& a, const std::vector<Directory_Entry>& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), same_entry);
}

}  // namespace vrk::test
