// The directory stream: 128-byte entries, four to each 512-byte sector of its chain.
#include <algorithm>
#include <cstring>

#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/model/Cfb_File_Log.h"
#include "cfb_vornak/model/Sector_Reader.h"
#include "cfb_vornak/model/Sids_Text.h"
#include "common/byte_order.h"

namespace vrk {
namespace {

// Bytes of an entry that are read; 124..127 (the high half of a version 4 stream size) never
// are.
constexpr uint64_t kEntryBytesRead = 124;

// Field offsets inside a 128-byte entry.
constexpr uint64_t kName = 0;
constexpr uint64_t kNameValidSize = 64;
constexpr uint64_t kObjectType = 66;
constexpr uint64_t kColorFlag = 67;
constexpr uint64_t kLeftSibling = 68;
constexpr uint64_t kRightSibling = 72;
constexpr uint64_t kChild = 76;
constexpr uint64_t kClsid = 80;
constexpr uint64_t kStateBits = 96;
constexpr uint64_t kCreationTime = 100;
constexpr uint64_t kModifiedTime = 108;
constexpr uint64_t kStartSid = 116;
constexpr uint64_t kStreamSize = 120;

}  // namespace

int32_t Cfb_File::read_a_directory_entry(uint64_t offset, Directory_Entry& record) {
    // Fields are taken in file order; when the entry runs past the end of the file, the fields
    // wholly before the end are kept and the read fails at the first byte past it.
    Sector_Reader in(*m_door);
    uint8_t bytes[kEntryBytesRead];
    const uint64_t have = in.available(offset, kEntryBytesRead);
    in.copy_inside(offset, have, bytes);
    auto whole = [&](uint64_t field, uint64_t size) {
        if (field + size > have) {
            in.fail_past_end(offset + have);
        }
        return bytes + field;
    };
    // A raw field is copied byte by byte in the file order, so the bytes before the end stay
    // in it even when the field itself runs past the end.
    auto raw = [&](uint64_t field, auto& destination) {
        const uint64_t inside =
            have > field ? std::min<uint64_t>(have - field, destination.size()) : 0;
        std::memcpy(destination.data(), bytes + field, static_cast<std::size_t>(inside));
        whole(field, destination.size());
    };

    raw(kName, record.name);
    record.name_valid_size = read_u16_le(whole(kNameValidSize, 2));
    record.object_type = *whole(kObjectType, 1);
    record.color_flag = *whole(kColorFlag, 1);
    record.left_sibling_id = read_u32_le(whole(kLeftSibling, 4));
    record.right_sibling_id = read_u32_le(whole(kRightSibling, 4));
    record.child_id = read_u32_le(whole(kChild, 4));
    raw(kClsid, record.clsid);
    raw(kStateBits, record.state_bits);
    raw(kCreationTime, record.creation_time);
    raw(kModifiedTime, record.modified_time);
    record.start_sid = read_u32_le(whole(kStartSid, 4));
    record.stream_size = read_u32_le(whole(kStreamSize, 4));
    return 0;
}

void Cfb_File::parse_directory_entrys() {
    const sid_t start = header.first_dir_sid;
    if (is_special(start) || start > max_sid) {
        return;
    }
    directory_entrys_sids_list = get_sids_list(start);
    CFB_FILE_LOG_INFO(print_sids_list(directory_entrys_sids_list));

    // The walk ends every chain with one ENDOFCHAIN of its own, which names no sector.
    const std::size_t sectors = directory_entrys_sids_list.size() - 1;
    for (std::size_t i = 0; i < sectors; ++i) {
        const sid_t sid = directory_entrys_sids_list[i];
        if (sid > max_sid) {
            break;
        }
        std::vector<Directory_Entry>& layout = directory_entry_layout_dicts[sid];
        for (uint32_t slot = 0; slot < directory_entries_per_sector; ++slot) {
            Directory_Entry record;
            record.did = static_cast<uint32_t>(directory_entrys.size());
            read_a_directory_entry(uint64_t{sector_offset(sid)} + directory_entry_size * slot,
                                   record);
            layout.push_back(record);
            directory_entrys.push_back(record);
        }
    }
}

}  // namespace vrk
