#include "cfb_vornak/model/Cfb_File.h"

#include "cfb_vornak/model/Cfb_Directory_Tree.h"
#include "common/byte_order.h"

namespace vrk {
namespace {

// Offsets of the header fields (the header_disat entries start at 76).
constexpr uint64_t kMagicOffset = 0;
constexpr uint64_t kFileIdOffset = 8;
constexpr uint64_t kMinorVersionOffset = 24;
constexpr uint64_t kMajorVersionOffset = 26;
constexpr uint64_t kEndianOffset = 28;
constexpr uint64_t kSectorShiftOffset = 30;
constexpr uint64_t kMiniSectorShiftOffset = 32;
constexpr uint64_t kReservedWordOffset = 34;
constexpr uint64_t kReservedDwordOffset = 36;
constexpr uint64_t kNumDirSecsOffset = 40;
constexpr uint64_t kNumSatSecsOffset = 44;
constexpr uint64_t kFirstDirSidOffset = 48;
constexpr uint64_t kTransactionOffset = 52;
constexpr uint64_t kMiniCutoffOffset = 56;
constexpr uint64_t kFirstMinisatSidOffset = 60;
constexpr uint64_t kNumMinisatSecsOffset = 64;
constexpr uint64_t kFirstDisatSidOffset = 68;
constexpr uint64_t kNumDisatSecsOffset = 72;
constexpr uint64_t kHeaderDisatOffset = 76;

constexpr uint64_t kSmallestCompoundFile = 1024;

}  // namespace

Cfb_File::Cfb_File(const File_Description& input) : m_input(input) {
    Door_Config config;
    config.cache_block_count = 10;
    config.block_size_shift = 32;
    config.access_mode = 2;
    config.use_mutex = false;
    m_door = std::make_unique<File_Anywhere_Door>(m_input.open_path_wstr, config);
    file_size = m_door->file_size();
    if (file_size < kSmallestCompoundFile) {
        object_state = 1;
        return;
    }
    max_sid = ((file_size - sector0_offset) >> fixed_sector_shift) - 1;

    standard_header.magic = Cfb_Header::kSignature;
    standard_header.minor_version = {0x3E, 0x00};
    standard_header.major_version = {0x03, 0x00};
    standard_header.endian = {0xFE, 0xFF};
    standard_header.sector_shift = 9;
    standard_header.mini_sector_shift = 6;
    standard_header.first_dir_sid = 0;
    standard_header.mini_stream_cutoff_size = expected_mini_stream_cutoff;
    standard_header.first_minisat_sid = ENDOFCHAIN;
    standard_header.first_disat_sid = ENDOFCHAIN;
}

Cfb_File::Cfb_File(const File_Description& input, const File_Description& output)
    : Cfb_File(input) {
    if (object_state == 1) {
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
    cfb_directory_tree->build_cfb_directory_tree(directory_entrys);

    Directory_Entry root;
    for (const Directory_Entry& entry : directory_entrys) {
        if (entry.object_type == 5) {
            root = entry;
            break;
        }
    }
    root_entry = root;
    extract_cfb_short_stream_container(root_entry);
    object_state = 2;
}

Cfb_File::~Cfb_File() = default;

int32_t Cfb_File::parse_header() {
    // Each field is its own run through the door, so a short file fails at the field that
    // runs past its end.
    File_Anywhere_Door& in = *m_door;
    uint8_t bytes[8];
    auto u16 = [&](uint64_t offset) {
        in.copy_data_to_mem(offset, 2, bytes);
        return read_u16_le(bytes);
    };
    auto u32 = [&](uint64_t offset) {
        in.copy_data_to_mem(offset, 4, bytes);
        return read_u32_le(bytes);
    };

    in.copy_data_to_mem(kMagicOffset, 8, bytes);
    header.magic = read_u64_le(bytes);
    in.copy_data_to_mem(kFileIdOffset, header.file_id.size(), header.file_id.data());
    in.copy_data_to_mem(kMinorVersionOffset, 2, header.minor_version.data());
    in.copy_data_to_mem(kMajorVersionOffset, 2, header.major_version.data());
    in.copy_data_to_mem(kEndianOffset, 2, header.endian.data());
    header.sector_shift = u16(kSectorShiftOffset);
    header.mini_sector_shift = u16(kMiniSectorShiftOffset);
    header.reserved_word = u16(kReservedWordOffset);
    in.copy_data_to_mem(kReservedDwordOffset, 4, header.reserved_dword.data());
    header.num_of_dir_secs = u32(kNumDirSecsOffset);
    header.num_of_sat_secs = u32(kNumSatSecsOffset);
    header.first_dir_sid = u32(kFirstDirSidOffset);
    in.copy_data_to_mem(kTransactionOffset, 4, header.transaction_sign_num.data());
    header.mini_stream_cutoff_size = u32(kMiniCutoffOffset);
    header.first_minisat_sid = u32(kFirstMinisatSidOffset);
    header.num_of_minisat_secs = u32(kNumMinisatSecsOffset);
    header.first_disat_sid = u32(kFirstDisatSidOffset);
    header.num_of_disat_secs = u32(kNumDisatSecsOffset);
    return 0;
}

Error_Code Cfb_File::validate_header() {
    // The bounds against max_sid are strict: the last whole sector is refused too.
    if (header.magic != standard_header.magic) {
        return ec::kMagic;
    }
    if (header.minor_version_value() != 0x003E) {
        return ec::kMinorVersion;
    }
    if (header.major_version_value() != 3) {
        return ec::kMajorVersion;
    }
    if (header.endian_value() != 0xFFFE) {
        return ec::kEndian;
    }
    if (header.sector_shift != 9) {
        return ec::kSectorShift;
    }
    if (header.mini_sector_shift != 6) {
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
    if (header.mini_stream_cutoff_size != expected_mini_stream_cutoff) {
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
    m_door->copy_data_to_mem(kHeaderDisatOffset, sizeof(entries), entries);
    for (std::size_t i = 0; i < Cfb_Header::kHeaderDisatCount; ++i) {
        const sid_t sid = read_u32_le(entries + 4 * i);
        if (!(sid < max_sid || sid == FREESECT)) {
            return ec::kHeaderDisatSid;
        }
    }
    return ec::kSuccess;
}

}  // namespace vrk
