// Named byte patches for damaging built compound files in tests, and deterministic test data.
// A patch that leaves the buffer throws std::out_of_range: a test aiming wrong fails loudly.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cfb_vornak/builder/Cfb_Builder.h"

namespace vrk::test {

void patch_u16(std::vector<uint8_t>& bytes, uint64_t offset, uint16_t value);
void patch_u32(std::vector<uint8_t>& bytes, uint64_t offset, uint32_t value);
void patch_bytes(std::vector<uint8_t>& bytes, uint64_t offset, const std::vector<uint8_t>& value);
void zero_range(std::vector<uint8_t>& bytes, uint64_t offset, uint64_t len);
// Keeps the first n bytes (n larger than the buffer throws).
void truncate(std::vector<uint8_t>& bytes, uint64_t n);

// Writes (replaces) the file; false when it cannot be written.
bool write_bytes_to_file(const std::wstring& path, const std::vector<uint8_t>& bytes);

// Reproducible pseudo-random bytes (splitmix64): the same seed gives the same bytes everywhere.
std::vector<uint8_t> random_bytes(std::size_t n, uint64_t seed);

// File offsets of the format's fields in a built file.
namespace offsets {
inline constexpr uint64_t kMinorVersion = 24;
inline constexpr uint64_t kMajorVersion = 26;
inline constexpr uint64_t kByteOrder = 28;
inline constexpr uint64_t kSectorShift = 30;
inline constexpr uint64_t kMiniSectorShift = 32;
inline constexpr uint64_t kNumDirSecs = 40;
inline constexpr uint64_t kNumSatSecs = 44;
inline constexpr uint64_t kFirstDirSid = 48;
inline constexpr uint64_t kMiniStreamCutoff = 56;
inline constexpr uint64_t kFirstMinisatSid = 60;
inline constexpr uint64_t kNumMinisatSecs = 64;
inline constexpr uint64_t kFirstDisatSid = 68;
inline constexpr uint64_t kNumDisatSecs = 72;
inline constexpr uint64_t kHeaderDisat = 76;  // 109 entries of 4 bytes
// Fields inside a 128-byte directory entry.
inline constexpr uint64_t kEntryChild = 76;
inline constexpr uint64_t kEntrySize = 120;
}  // namespace offsets

// Offsets of the SAT entry of sector `sid` (the link to its successor), the MiniSAT entry of mini
// sector `mini_sid`, the 128-byte directory entry `did`.
[[nodiscard]] uint64_t sat_entry_offset(const Build_Layout& layout, sid_t sid);
[[nodiscard]] uint64_t minisat_entry_offset(const Build_Layout& layout, sid_t mini_sid);
[[nodiscard]] uint64_t directory_entry_offset(const Build_Layout& layout, uint32_t did);
// The placement of the stream at `path` ("Storage/Stream"); throws std::out_of_range if absent.
[[nodiscard]] const Build_Layout::Stream_Place& stream_place(const Build_Layout& layout,
                                                             const std::u16string& path);

}  // namespace vrk::test
