#include "cfb_vornak/format/Directory_Entry.h"

#include <algorithm>
#include <cstring>

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
    have = std::min(have, layout::kEntryBytesRead);
    const auto whole = [&](std::size_t field, std::size_t size) {
        return size <= have && field <= have - size;
    };
    // A raw field keeps the bytes before the cut even when the field itself runs past it.
    const auto raw = [&](std::size_t field, auto& destination) {
        const std::size_t inside = have > field ? std::min(have - field, destination.size()) : 0;
        std::memcpy(destination.data(), bytes + field, inside);
        return whole(field, destination.size());
    };
    if (!raw(at::kName, record.name)) return false;
    if (!whole(at::kNameValidSize, 2)) return false;
    record.name_valid_size = read_u16_le(bytes + at::kNameValidSize);
    if (!whole(at::kObjectType, 1)) return false;
    record.object_type = bytes[at::kObjectType];
    if (!whole(at::kColorFlag, 1)) return false;
    record.color_flag = bytes[at::kColorFlag];
    if (!whole(at::kLeftSibling, 4)) return false;
    record.left_sibling_id = read_u32_le(bytes + at::kLeftSibling);
    if (!whole(at::kRightSibling, 4)) return false;
    record.right_sibling_id = read_u32_le(bytes + at::kRightSibling);
    if (!whole(at::kChild, 4)) return false;
    record.child_id = read_u32_le(bytes + at::kChild);
    if (!raw(at::kClsid, record.clsid)) return false;
    if (!raw(at::kStateBits, record.state_bits)) return false;
    if (!raw(at::kCreationTime, record.creation_time)) return false;
    if (!raw(at::kModifiedTime, record.modified_time)) return false;
    if (!whole(at::kStartSid, 4)) return false;
    record.start_sid = read_u32_le(bytes + at::kStartSid);
    if (!whole(at::kStreamSize, 4)) return false;
    record.stream_size = read_u32_le(bytes + at::kStreamSize);
    return true;
}

Directory_Entry decode_directory_entry(const uint8_t* bytes, uint32_t did) {
    Directory_Entry record;
    record.did = did;
    // Every field lies inside the bytes read, so the decode cannot stop early.
    (void)decode_directory_entry(bytes, layout::kEntryBytesRead, record);
    return record;
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
