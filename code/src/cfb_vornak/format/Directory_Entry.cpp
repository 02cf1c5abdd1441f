#include "cfb_vornak/format/Directory_Entry.h"

namespace vrk {
namespace {

// The byte as the signed number the texts show (200 reads as -56).
std::string signed_byte_text(uint8_t value) {
    return std::to_string(static_cast<int>(static_cast<int8_t>(value)));
}

}  // namespace

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
