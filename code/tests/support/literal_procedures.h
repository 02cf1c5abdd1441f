// The parse steps after the header and the damage probe's whole-file passes done the slow
// literal way: every 32-bit table entry as four single-byte reads through the door, every
// directory field as its own run copy, visited and head sets as std::set. The equivalence tests
// and the check's fuzz target hold the library's fast paths to these results: the same values,
// the same error lines, the same failures.
#pragma once

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

// The first member of the parsed `file` that differs from the literal results, or "".
std::string parse_difference(const Cfb_File& file, const Literal_Parse& literal);

// The single chain from `start`: successors until ENDOFCHAIN or a repeat, or an id past the
// table (an id equal to its length included), or `limit` links; closed with ENDOFCHAIN.
sids_list literal_walk(const sids_array& table, sid_t start, uint32_t limit = 9999);

// The probe's slot test of a directory record, field by field.
bool literal_plausible(const Cfb_File& file, const Directory_Entry& record);

// The first difference between the probe's fast passes and the literal ones on the file
// `input` holding the `size` bytes at `data`, or "": the signature search against a plain
// search; up to `scan_limit` bytes, the slot scan's verdict, records or failure, and the
// one-read classification against the plain search followed by the door's scan.
std::string probe_difference(const File_Description& input, const uint8_t* data, std::size_t size,
                             uint64_t scan_limit = uint64_t{1} << 20);

}  // namespace vrk::test
