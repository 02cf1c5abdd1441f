// Readable forms of the directory entry fields that the format keeps as raw bytes: the class
// id, the FILETIME stamps and the state bits.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace vrk {

// "{00020906-0000-0000-C000-000000000046}": the first three groups little-endian, the last
// eight bytes in file order, upper-case hexadecimal.
[[nodiscard]] std::string clsid_text(const std::array<uint8_t, 16>& clsid);
[[nodiscard]] bool clsid_is_null(const std::array<uint8_t, 16>& clsid);

// A FILETIME (100-nanosecond ticks since 1601-01-01 UTC, little-endian) as ISO 8601 UTC:
// "2023-05-01T12:34:56Z", with seven fraction digits when the ticks carry a fraction. Empty
// for zero (no time recorded); false for a time past the year 9999, which ISO 8601's four-digit
// years cannot show.
[[nodiscard]] bool filetime_text(const std::array<uint8_t, 8>& filetime, std::string& text);

// The state bits as one little-endian value.
[[nodiscard]] uint32_t state_bits_value(const std::array<uint8_t, 4>& state_bits);

}  // namespace vrk
