#include "cfb_vornak/format/Directory_Entry.h"

#include <algorithm>

#include "cfb_vornak/format/Cut_Fields.h"
#include "common/byte_order.h"

namespace vrk {
namespace {

// The byte as the signed number the texts show (200 reads as -56).
std::string signed_byte_text(uint8_t value) {
    return std::to_string(static_cast<int>(static_cast<int8_t>(value)));
}

}  // namespace

bool decode_directory_entry(const uint8_t* bytes, std::size_t have, Directory_Entry& record) {
    namespace at = layout::entry;
    const Cut_Fields in(bytes, std::min(have, layout::kEntryBytesRead));
    return in.raw(at::kName, record.name) && in.u16(at::kNameValidSize, record.name_valid_size) &&
           in.u8(at::kObjectType, record.object_type) && in.u8(at::kColorFlag, record.color_flag) &&
           in.u32(at::kLeftSibling, record.left_sibling_id) &&
           in.u32(at::kRightSibling, record.right_sibling_id) &&
           in.u32(at::kChild, record.child_id) && in.raw(at::kClsid, record.clsid) &&
           in.raw(at::kStateBits, record.state_bits) &&
           in.raw(at::kCreationTime, record.creation_time) &&
           in.raw(at::kModifiedTime, record.modified_time) &&
           in.u32(at::kStartSid, record.start_sid) && in.u32(at::kStreamSize, record.stream_size);
}

Directory_Entry decode_directory_entry(const uint8_t* bytes, uint32_t did) {
    Directory_Entry record;
    record.did = did;
    // Every field lies inside the bytes read, so the decode cannot stop early.
    (void)decode_directory_entry(bytes, layout::kEntryBytesRead, record);
    return record;
}

void encode_directory_entry(const Directory_Entry& record, uint8_t* bytes) {
    namespace at = layout::entry;
    std::copy(record.name.begin(), record.name.end(), bytes + at::kName);
    write_u16_le(bytes + at::kNameValidSize, record.name_valid_size);
    bytes[at::kObjectType] = record.object_type;
    bytes[at::kColorFlag] = record.color_flag;
    write_u32_le(bytes + at::kLeftSibling, record.left_sibling_id);
    write_u32_le(bytes + at::kRightSibling, record.right_sibling_id);
    write_u32_le(bytes + at::kChild, record.child_id);
    std::copy(record.clsid.begin(), record.clsid.end(), bytes + at::kClsid);
    std::copy(record.state_bits.begin(), record.state_bits.end(), bytes + at::kStateBits);
    std::copy(record.creation_time.begin(), record.creation_time.end(), bytes + at::kCreationTime);
    std::copy(record.modified_time.begin(), record.modified_time.end(), bytes + at::kModifiedTime);
    write_u32_le(bytes + at::kStartSid, record.start_sid);
    write_u32_le(bytes + at::kStreamSize, record.stream_size);
    write_u32_le(bytes + at::kStreamSizeHigh, 0);
}

std::u16string Directory_Entry::name_units() const {
    std::u16string units;
    for (std::size_t i = 0; i + 1 < name.size(); i += 2) {
        const auto unit = static_cast<char16_t>(name[i] | (name[i + 1] << 8));
        if (unit == 0) {
            break;
        }
        units.push_back(unit);
    }
    return units;
}

std::string object_type_text(uint8_t object_type) {
    switch (object_type) {
        case 0:
            return "UNKNOWN_OR_UNALLOCATED";
        case 1:
            return "STORAGE";
        case 2:
            return "STREAM";
        case 5:
            return "ROOT_STORAGE";
        default:
            return "未知的数值-" + signed_byte_text(object_type);
    }
}

std::string color_flag_text(uint8_t color_flag) {
    switch (color_flag) {
        case 0:
            return "RED";
        case 1:
            return "BLACK";
        default:
            return "未知的颜色-" + signed_byte_text(color_flag);
    }
}

}  // namespace vrk
