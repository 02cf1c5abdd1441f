// One 128-byte directory entry as read from the file, plus its own index (DID), and the one
// decoder of an entry's bytes (the offsets are in Cfb_Layout.h).
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "cfb_vornak/format/Cfb_Layout.h"
#include "cfb_vornak/format/cfb_types.h"

namespace vrk {

struct Directory_Entry {
    static constexpr std::size_t kSize = layout::kDirectoryEntrySize;

    std::array<uint8_t, 64> name{};          // 0: UTF-16LE name, raw
    uint16_t name_valid_size = 0;            // 64: name length in bytes with its zero
    uint8_t object_type = 0;                 // 66: 0 unallocated, 1 storage, 2 stream, 5 root
    uint8_t color_flag = 0;                  // 67: 0 red, 1 black
    uint32_t left_sibling_id = NOSTREAM;     // 68
    uint32_t right_sibling_id = NOSTREAM;    // 72
    uint32_t child_id = NOSTREAM;            // 76
    std::array<uint8_t, 16> clsid{};         // 80
    std::array<uint8_t, 4> state_bits{};     // 96
    std::array<uint8_t, 8> creation_time{};  // 100: FILETIME, raw
    std::array<uint8_t, 8> modified_time{};  // 108: FILETIME, raw
    sid_t start_sid = 0;                     // 116
    uint32_t stream_size = 0;                // 120: low half only; bytes 124..127 are never read
    uint32_t did = 0;                        // in memory only: index in directory_entrys

    // The UTF-16 units of `name` up to the first zero unit (at most 32).
    std::u16string name_units() const;
};

// Decodes the fields of an entry whose first `have` bytes (at most layout::kEntryBytesRead) are
// at `bytes`, in file order, and stops at the first field that runs past `have`: the fields
// before it are kept, and so are the bytes before the cut of a raw byte field. True when
// every field was whole. `did` is left as it is.
[[nodiscard]] bool decode_directory_entry(const uint8_t* bytes, std::size_t have,
                                          Directory_Entry& record);
// The entry whose layout::kEntryBytesRead bytes are at `bytes`, with index `did`.
[[nodiscard]] Directory_Entry decode_directory_entry(const uint8_t* bytes, uint32_t did);

// The 128 bytes of `record` at `bytes`, the high half of the size zero.
void encode_directory_entry(const Directory_Entry& record, uint8_t* bytes);

// "UNKNOWN_OR_UNALLOCATED", "STORAGE", "STREAM", "ROOT_STORAGE" or 未知的数值-<signed byte>.
std::string object_type_text(uint8_t object_type);
// "RED", "BLACK" or 未知的颜色-<signed byte>.
std::string color_flag_text(uint8_t color_flag);

}  // namespace vrk
