// The 512-byte header at the start of a compound file: its fields as read (the offsets are in
// Cfb_Layout.h), and the one encoder of a header this library writes.
#pragma once

#include <array>
#include <cstdint>

#include "cfb_vornak/format/Cfb_Layout.h"
#include "cfb_vornak/format/cfb_types.h"

namespace vrk {

struct Cfb_Header {
    static constexpr std::size_t kSize = layout::kHeaderSize;
    static constexpr std::size_t kHeaderDisatCount = layout::kHeaderDisatCount;
    static constexpr uint64_t kSignature = layout::kSignature;

    uint64_t magic = 0;                             // 0: signature, as one little-endian value
    std::array<uint8_t, 16> file_id{};              // 8: class id, zero in a sound file
    std::array<uint8_t, 2> minor_version{};         // 24: 0x003E (raw bytes)
    std::array<uint8_t, 2> major_version{};         // 26: 3 (raw bytes)
    std::array<uint8_t, 2> endian{};                // 28: FE FF (raw bytes)
    uint16_t sector_shift = 0;                      // 30: 9 for 512-byte sectors
    uint16_t mini_sector_shift = 0;                 // 32: 6 for 64-byte mini sectors
    uint16_t reserved_word = 0;                     // 34
    std::array<uint8_t, 4> reserved_dword{};        // 36
    uint32_t num_of_dir_secs = 0;                   // 40: 0 in version 3
    uint32_t num_of_sat_secs = 0;                   // 44
    sid_t first_dir_sid = 0;                        // 48
    std::array<uint8_t, 4> transaction_sign_num{};  // 52
    uint32_t mini_stream_cutoff_size = 0;           // 56: 4096
    sid_t first_minisat_sid = 0;                    // 60
    uint32_t num_of_minisat_secs = 0;               // 64
    sid_t first_disat_sid = 0;                      // 68
    uint32_t num_of_disat_secs = 0;                 // 72
    // 76..511: header_disat, 109 SAT sector ids (kept by the allocation-table reader)

    uint16_t minor_version_value() const {
        return static_cast<uint16_t>(minor_version[0] | (minor_version[1] << 8));
    }
    uint16_t major_version_value() const {
        return static_cast<uint16_t>(major_version[0] | (major_version[1] << 8));
    }
    uint16_t endian_value() const { return static_cast<uint16_t>(endian[0] | (endian[1] << 8)); }
};

// Decodes the fields before the header's SAT ids from the first `have` bytes at `bytes`, in
// file order, and stops at the first field that runs past `have`: the fields before it are
// kept, and so are the bytes before the cut of a raw byte field. True when every field was
// whole.
[[nodiscard]] bool decode_header(const uint8_t* bytes, std::size_t have, Cfb_Header& header);

// The 512 bytes of `header`: its 76 bytes of fields, then the first 109 entries of `disat`
// (zero where it holds fewer).
[[nodiscard]] std::array<uint8_t, Cfb_Header::kSize> encode_header(const Cfb_Header& header,
                                                                   const sids_array& disat);

}  // namespace vrk
