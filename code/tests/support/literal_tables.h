// The parse steps of the allocation tables, the MiniSAT, the short-stream container and the
// directory done the slow literal way: every 32-bit entry as four single-byte reads through
// the door, every directory field as its own run copy, visited and head sets as std::set. The
// equivalence tests hold the library's fast paths to these results.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/model/Sector_Chains.h"

namespace vrk::test {

struct Literal_Parse {
    std::array<sid_t, 109> header_disat{};
    sids_array disat_sids;
    std::vector<sids_array> disat_sector_entries;
    std::map<sid_t, sids_array> sat_sector_dicts;
    sids_array big_sids_array;
    std::vector<sids_list> sat_sids_lists;
    std::map<sid_t, sids_array> minisat_sector_dicts;
    sids_array minisat_big_sids_array;
    std::vector<sids_list> minisat_sids_lists;
    sids_list directory_entrys_sids_list;
    std::vector<Directory_Entry> directory_entrys;
    std::map<sid_t, std::vector<Directory_Entry>> directory_entry_layout_dicts;
    std::vector<uint8_t> short_stream_container;
    uint64_t mini_sector_count = 0;
    std::vector<std::string> errors;  // error-level messages, in order
    std::string thrown;               // the failure that ended the parse; empty when none
};

// The steps after the header, in parse order, on a file whose header has been parsed.
Literal_Parse literal_parse(Cfb_File& file);

// The chains of a table; each dropped chain adds its message to `errors`.
std::vector<sids_list> literal_extract_chains(const sids_array& table,
                                              std::vector<std::string>& errors);
// The object's compact tables in the literal form: each sector's entries under its id (the
// readings of a sector read twice joined), each chain as its ids.
std::map<sid_t, sids_array> sector_dicts(const std::vector<Table_Sector>& sectors,
                                         const sids_array& table);
std::vector<sids_list> chain_lists(const std::vector<Chain_Extent>& chains,
                                   const sids_array& table);

// The single chain from `start`: successors until ENDOFCHAIN or a repeat, or an id past the
// table (an id equal to its length included), or `limit` links; closed with ENDOFCHAIN.
sids_list literal_walk(const sids_array& table, sid_t start, uint32_t limit = 9999);

// The 128-byte directory record at `offset`, every field read as its own run copy.
Directory_Entry literal_directory_entry(File_Anywhere_Door& door, uint64_t offset, uint32_t did);

// True when every field of the two records (of the two lists, of the two layouts) is equal.
bool same_entry(const Directory_Entry& a, const Directory_Entry& b);
bool same_entries(const std::vector<Directory_Entry>& a, const std::vector<Directory_Entry>& b);
template <typename Key>
bool same_layout(const std::map<Key, std::vector<Directory_Entry>>& a,
                 const std::map<Key, std::vector<Directory_Entry>>& b) {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](const auto& x, const auto& y) {
               return x.first == y.first && same_entries(x.second, y.second);
           });
}

}  // namespace vrk::test
