// The one table of header damage: each row breaks one header field of any file the tests make,
// and names the damage type the header checks give it. The check entry and the repair run it.
#pragma once

#include <cstdint>
#include <vector>

#include "common/error_codes.h"
#include "support/cfb_patch.h"

namespace vrk::test {

struct Header_Damage {
    uint64_t offset;
    int width;  // 2 or 4 bytes
    uint32_t value;
    Error_Code code;
};

inline const std::vector<Header_Damage> kHeaderDamage{
    {0, 4, 0, ec::kMagic},
    {offsets::kMinorVersion, 2, 0x3B, ec::kMinorVersion},
    {offsets::kMajorVersion, 2, 4, ec::kMajorVersion},
    {offsets::kByteOrder, 2, 0xFEFF, ec::kEndian},
    // Not above 9: the repair's parse reads the short-stream container in sectors of
    // 1 << sector_shift, and larger ones would run past the end of small files.
    {offsets::kSectorShift, 2, 8, ec::kSectorShift},
    {offsets::kMiniSectorShift, 2, 7, ec::kMiniSectorShift},
    {offsets::kNumDirSecs, 4, 0xFFFFFFF0u, ec::kNumDirSecs},
    {offsets::kNumSatSecs, 4, 0xFFFFFFF0u, ec::kNumSatSecs},
    {offsets::kFirstDirSid, 4, ENDOFCHAIN, ec::kFirstDirSid},
    {offsets::kMiniStreamCutoff, 4, 4095, ec::kMiniCutoff},
    {offsets::kFirstDisatSid, 4, FREESECT, ec::kFirstDisatSid},
    {offsets::kNumDisatSecs, 4, 0x7FFFFFFFu, ec::kNumDisatSecs},
    {offsets::kHeaderDisat + 4, 4, ENDOFCHAIN, ec::kHeaderDisatSid},
};

// `bytes` with the row's field overwritten.
[[nodiscard]] inline std::vector<uint8_t> damaged(std::vector<uint8_t> bytes,
                                                  const Header_Damage& row) {
    if (row.width == 2) patch_u16(bytes, row.offset, static_cast<uint16_t>(row.value));
    if (row.width == 4) patch_u32(bytes, row.offset, row.value);
    return bytes;
}

}  // namespace vrk::test
