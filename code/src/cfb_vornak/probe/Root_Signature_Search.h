// Search for the name of a root directory entry: "Root Entry" in UTF-16LE followed by one
// 16-bit zero, the 22 bytes that every compound file carries somewhere in its directory.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <istream>

namespace vrk {

inline constexpr std::array<uint8_t, 22> kRootEntrySignature = {
    0x52, 0x00, 0x6F, 0x00, 0x6F, 0x00, 0x74, 0x00, 0x20, 0x00, 0x45,
    0x00, 0x6E, 0x00, 0x74, 0x00, 0x72, 0x00, 0x79, 0x00, 0x00, 0x00};

// True when the signature occurs in [data, data + size). Linear in `size` whatever the
// contents (long zero runs included); touches about one byte pair in twenty on most data.
bool contains_root_entry_signature(const uint8_t* data, std::size_t size);

// True when the signature occurs anywhere in what remains of `in` (read in large blocks,
// matches across block borders included).
bool stream_holds_root_entry_signature(std::istream& in);

}  // namespace vrk
