#include "cfb_vornak/model/Cfb_File.h"

#include <algorithm>

#include "cfb_vornak/model/Cfb_Directory_Tree.h"
// For the destructor: the repair's sector sets are owned here but known only to the repair.
#include "cfb_vornak/repair/Repair_Sectors.h"
#include "common/byte_order.h"

namespace vrk {

Cfb_File::Cfb_File(const File_Description& input) : m_input(input) {
    Door_Config config;
    config.cache_block_count = 10;
    config.block_size_shift = 32;
    config.access_mode = Access_Mode::memory_map;
    config.use_mutex = false;
    m_door = std::make_unique<File_Anywhere_Door>(m_input.open_path_wstr, config);
    file_size = m_door->file_size();
    if (file_size < layout::kSmallestCompoundFile) {
        object_state = Object_State::too_small;
        return;
    }
    max_sid = ((file_size - layout::kSector0Offset) >> layout::kSectorShift) - 1;

    standard_header.magic = layout::kSignature;
    write_u16_le(standard_header.minor_version.data(), layout::kMinorVersion);
    write_u16_le(standard_header.major_version.data(), layout::kMajorVersion);
    write_u16_le(standard_header.endian.data(), layout::kByteOrderMark);
    standard_header.sector_shift = layout::kSectorShift;
    standard_header.mini_sector_shift = layout::kMiniSectorShift;
    standard_header.first_dir_sid = 0;
    standard_header.mini_stream_cutoff_size = layout::kMiniStreamCutoff;
    standard_header.first_minisat_sid = ENDOFCHAIN;
    standard_header.first_disat_sid = ENDOFCHAIN;
}

Cfb_File::Cfb_File(const File_Description& input, const File_Description& output)
    : Cfb_File(input) {
    if (object_state == Object_State::too_small) {
        return;
    }
    m_output = output;
    // Each step records what it finds; none stops the next.
    parse_header();
    parse_disat();
    parse_sat_form_disat();
    parse_minisat();
    parse_directory_entrys();
    cfb_directory_tree = std::make_unique<Cfb_Directory_Tree>();
    // An empty or rootless directory leaves the tree unbuilt, which its state records.
    (void)cfb_directory_tree->build_cfb_directory_tree(directory_entrys);

    Directory_Entry root;
    for (const Directory_Entry& entry : directory_entrys) {
        if (entry.object_type == layout::kTypeRootStorage) {
            root = entry;
            break;
        }
    }
    root_entry = root;
    extract_cfb_short_stream_container(root_entry);
    object_state = Object_State::parsed;
}

Cfb_File::~Cfb_File() = default;

int32_t Cfb_File::parse_header() {
    // A file that ends inside the fields keeps the whole fields before its end and then fails
    // at its first missing byte, as the door fails any run past the end.
    File_Anywhere_Door& in = *m_door;
    uint8_t bytes[layout::header::kFieldsEnd];
    const auto have = static_cast<std::size_t>(std::min<uint64_t>(in.file_size(), sizeof bytes));
    in.copy_data_to_mem(0, have, bytes);
    if (!decode_header(bytes, have, header)) in.copy_data_to_mem(have, 1, bytes);
    return 0;
}

Error_Code Cfb_File::validate_header() {
    // The bounds against max_sid are strict: the last whole sector is refused too.
    if (header.magic != standard_header.magic) {
        return ec::kMagic;
    }
    if (header.minor_version_value() != layout::kMinorVersion) {
        return ec::kMinorVersion;
    }
    if (header.major_version_value() != layout::kMajorVersion) {
        return ec::kMajorVersion;
    }
    if (header.endian_value() != layout::kByteOrderMark) {
        return ec::kEndian;
    }
    if (header.sector_shift != layout::kSectorShift) {
        return ec::kSectorShift;
    }
    if (header.mini_sector_shift != layout::kMiniSectorShift) {
        return ec::kMiniSectorShift;
    }
    if (!(header.num_of_dir_secs < max_sid)) {
        return ec::kNumDirSecs;
    }
    if (!(header.num_of_sat_secs < max_sid)) {
        return ec::kNumSatSecs;
    }
    if (!(header.first_dir_sid < max_sid)) {
        return ec::kFirstDirSid;
    }
    if (header.mini_stream_cutoff_size != layout::kMiniStreamCutoff) {
        return ec::kMiniCutoff;
    }
    if (!(header.first_disat_sid < max_sid || header.first_disat_sid == ENDOFCHAIN)) {
        return ec::kFirstDisatSid;
    }
    if (!(header.num_of_disat_secs < max_sid)) {
        return ec::kNumDisatSecs;
    }
    // The header DISAT is read afresh: a vacant entry must be FREESECT, not ENDOFCHAIN.
    uint8_t entries[Cfb_Header::kHeaderDisatCount * 4];
    m_door->copy_data_to_mem(layout::header::kHeaderDisat, sizeof(entries), entries);
    for (std::size_t i = 0; i < Cfb_Header::kHeaderDisatCount; ++i) {
        const sid_t sid = read_u32_le(entries + 4 * i);
        if (!(sid < max_sid || sid == FREESECT)) {
            return ec::kHeaderDisatSid;
        }
    }
    return ec::kSuccess;
}

}  // namespace vrk
