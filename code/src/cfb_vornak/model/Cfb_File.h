// One compound file being checked, analysed or repaired. Owns its file door, its header and
// every parse result. The table and directory readers work in 512-byte sectors whatever the
// header declares: sector n starts at (n + 1) * 512, computed in 32 bits.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "cfb_vornak/format/Cfb_Header.h"
#include "cfb_vornak/format/Cfb_Layout.h"
#include "cfb_vornak/format/Directory_Entry.h"
#include "cfb_vornak/format/Document_Kind.h"
#include "cfb_vornak/format/cfb_types.h"
#include "cfb_vornak/model/Sector_Chains.h"
#include "common/error_codes.h"
#include "common/platform.h"
#include "file_operation/File_Anywhere_Door.h"

namespace vrk {

class Cfb_Directory_Tree;
struct Repair_Outcome;
struct Repair_Sector_Sets;

// How far the constructor got.
enum class Object_State : uint32_t {
    constructed = 0,  // the light constructor: door open, max_sid known
    too_small = 1,    // under 1024 bytes: nothing parsed
    parsed = 2,       // the full constructor ran every parse step
};

class Cfb_File {
  public:
    // Light constructor: opens the door and computes max_sid; reads nothing else.
    explicit Cfb_File(const File_Description& input);
    // Full constructor: the light one, then (unless the file is under 1024 bytes) every parse
    // step in order.
    Cfb_File(const File_Description& input, const File_Description& output);
    ~Cfb_File();
    Cfb_File(const Cfb_File&) = delete;
    Cfb_File& operator=(const Cfb_File&) = delete;

    // ---- header
    int32_t parse_header();
    // Field-by-field validation, in order; 0 or 59..71.
    [[nodiscard]] Error_Code validate_header();

    // ---- allocation tables and chains
    void parse_disat();
    void parse_sat_form_disat();
    sids_list get_sids_list(sid_t start) const;
    static uint32_t sector_offset(sid_t sid) { return (sid + 1u) * layout::kSectorSize; }

    // ---- mini allocation table and short-stream container
    void parse_minisat();
    uint32_t extract_cfb_short_stream_container(const Directory_Entry& root);
    // How many mini sectors (of the header's mini sector size) lie wholly inside the
    // short-stream container: the mini ids that exist are those below it; none when it is 0
    // (an empty container has no mini sector id at all).
    uint64_t mini_sectors_in_container() const;

    // ---- directory entries
    void parse_directory_entrys();
    int32_t read_a_directory_entry(uint64_t offset, Directory_Entry& record);

    // ---- damage classification
    [[nodiscard]] static Error_Code get_cfb_file_damaged_type(const File_Description& input);
    static bool search_root_entry_signature(const File_Description& input);
    [[nodiscard]] static Error_Code check_cfb_core(Cfb_File& file);
    uint32_t find_root_entry_by_scan();
    bool is_plausible_directory_entry(const Directory_Entry& record) const;

    // ---- repair
    // With `outcome`, what was written is reported there; `mode` says how the output is put in
    // place (the exports create and write it; the tool stages it and renames it over the name).
    [[nodiscard]] Error_Code cfb_file_head_changing(
        const File_Description& output, bool force, Repair_Outcome* outcome = nullptr,
        platform::Create_Mode mode = platform::Create_Mode::replace);
    void set_password(const std::wstring& password) { m_password_wstr = password; }

    // ---- release and reports
    void set_output_file_dir(const std::wstring& folder);
    void set_tmp_dir_for_raw_data(const std::wstring& folder);

    // Read access for the readers that take the mapped fast path.
    File_Anywhere_Door& door() { return *m_door; }

    // ---- state
    std::unique_ptr<File_Anywhere_Door> m_door;
    Object_State object_state = Object_State::constructed;
    File_Description m_input;
    File_Description m_second;
    File_Description m_output;
    uint64_t file_size = 0;
    uint64_t max_sid = 0;
    Cfb_Header header;

    // allocation tables
    std::array<sid_t, Cfb_Header::kHeaderDisatCount> header_disat{};
    sids_array disat_sids;
    std::vector<sids_array> disat_sector_entries;
    // Each table sector read (in reading order) and each chain point into the whole table
    // rather than holding copies of its entries.
    std::vector<Table_Sector> sat_sector_dicts;
    sids_array big_sids_array;  // the whole SAT, index = sector id
    std::vector<Chain_Extent> sat_sids_lists;

    // mini allocation table and container
    std::vector<Table_Sector> minisat_sector_dicts;
    sids_array minisat_big_sids_array;
    std::vector<Chain_Extent> minisat_sids_lists;
    std::vector<uint8_t> short_stream_container;
    uint64_t mini_sector_count = 0;

    // directory
    sids_list directory_entrys_sids_list;
    std::vector<Directory_Entry> directory_entrys;
    std::map<sid_t, std::vector<Directory_Entry>> directory_entry_layout_dicts;
    Directory_Entry root_entry;
    std::unique_ptr<Cfb_Directory_Tree> cfb_directory_tree;

    // probe
    std::map<uint64_t, std::vector<Directory_Entry>> scanned_directory_layout;
    Cfb_Header standard_header;
    Document_Kind document_kind = Document_Kind::unknown;
    bool switch_probe = true;
    bool switch_write = true;

    // repair
    // Candidate, beyond-end, SAT, MiniSAT and DISAT sectors; made by the repair, which alone
    // knows the type.
    std::unique_ptr<Repair_Sector_Sets> repair_sector_sets;
    sids_array rebuilt_header_disat;  // the 109 DISAT entries of the rebuilt header

    // folders and password
    std::wstring m_output_file_dir_wstr;
    std::wstring m_tmp_dir_for_raw_data_wstr;
    bool m_tmp_dir_for_raw_data_set = false;
    std::wstring m_password_wstr;
};

}  // namespace vrk
