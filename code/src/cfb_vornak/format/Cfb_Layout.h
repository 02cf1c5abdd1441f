// The on-disk layout of a compound file, in one place: the sector id markers, the sizes this
// library works in, and the byte offsets of every header and directory-entry field. Readers
// and writers take their offsets from here; none keeps a table of its own.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vrk {

using sid_t = uint32_t;

inline constexpr sid_t FREESECT = 0xFFFFFFFFu;     // unallocated sector
inline constexpr sid_t ENDOFCHAIN = 0xFFFFFFFEu;   // last sector of a chain
inline constexpr sid_t FATSECT = 0xFFFFFFFDu;      // sector holds part of the SAT
inline constexpr sid_t DIFSECT = 0xFFFFFFFCu;      // sector holds part of the DISAT
inline constexpr sid_t MAXREGSECT = 0xFFFFFFFBu;   // highest ordinary id
inline constexpr uint32_t NOSTREAM = 0xFFFFFFFFu;  // no sibling / child

// Every value above MAXREGSECT is a marker.
[[nodiscard]] constexpr bool is_special(sid_t sid) {
    return sid > MAXREGSECT;
}

namespace layout {

// D0 CF 11 E0 A1 B1 1A E1, read as one little-endian value.
inline constexpr uint64_t kSignature = 0xE11AB1A1E011CFD0ull;
inline constexpr std::size_t kHeaderSize = 512;
// SAT sector ids held in the header itself; the DISAT sectors hold the rest.
inline constexpr std::size_t kHeaderDisatCount = 109;

// The sound values of the version and byte-order fields.
inline constexpr uint16_t kMinorVersion = 0x003E;
inline constexpr uint16_t kMajorVersion = 3;
inline constexpr uint16_t kByteOrderMark = 0xFFFE;

// The table, directory and repair readers work in 512-byte sectors whatever the header says:
// sector n starts at (n + 1) * 512.
inline constexpr uint16_t kSectorShift = 9;
inline constexpr uint16_t kSectorShiftV4 = 12;  // version 4 files: 4096-byte sectors
inline constexpr uint32_t kSectorSize = 512;
inline constexpr uint16_t kMiniSectorShift = 6;
inline constexpr uint32_t kMiniSectorSize = 64;
inline constexpr uint32_t kSector0Offset = 512;
// A sector of the SAT, the MiniSAT or the DISAT holds this many 32-bit sector ids.
inline constexpr uint32_t kIdsPerSector = kSectorSize / 4;
// A DISAT sector's last entry names the next DISAT sector.
inline constexpr uint32_t kDisatIdsPerSector = kIdsPerSector - 1;
// A header and one sector: anything shorter is not parsed.
inline constexpr uint64_t kSmallestCompoundFile = kHeaderSize + kSectorSize;

// Streams shorter than this live in the short-stream container, in mini sectors.
inline constexpr uint32_t kMiniStreamCutoff = 4096;

inline constexpr std::size_t kDirectoryEntrySize = 128;
inline constexpr uint32_t kEntriesPerSector = kSectorSize / kDirectoryEntrySize;
// Bytes of an entry that are ever read: the last four (the high half of a version 4 stream
// size) never are.
inline constexpr std::size_t kEntryBytesRead = 124;
// Highest DID a sibling or child link may name and still count as plausible.
inline constexpr uint32_t kMaxItems = 10000;

// Object types of a directory entry.
inline constexpr uint8_t kTypeUnallocated = 0;
inline constexpr uint8_t kTypeStorage = 1;
inline constexpr uint8_t kTypeStream = 2;
inline constexpr uint8_t kTypeRootStorage = 5;

static_assert(kSectorSize == 1u << kSectorShift);
static_assert(kMiniSectorSize == 1u << kMiniSectorShift);
static_assert(kSectorSize % kDirectoryEntrySize == 0);

// Byte offsets of the header fields.
namespace header {
inline constexpr std::size_t kMagic = 0;             // 8: the signature
inline constexpr std::size_t kFileId = 8;            // 16: class id, zero in a sound file
inline constexpr std::size_t kMinorVersion = 24;     // 2: 0x003E
inline constexpr std::size_t kMajorVersion = 26;     // 2: 3 for 512-byte sectors
inline constexpr std::size_t kEndian = 28;           // 2: FE FF
inline constexpr std::size_t kSectorShift = 30;      // 2: 9
inline constexpr std::size_t kMiniSectorShift = 32;  // 2: 6
inline constexpr std::size_t kReservedWord = 34;     // 2: zero
inline constexpr std::size_t kReservedDword = 36;    // 4: zero
inline constexpr std::size_t kNumDirSecs = 40;       // 4: directory sectors, 0 in version 3
inline constexpr std::size_t kNumSatSecs = 44;       // 4: SAT sectors
inline constexpr std::size_t kFirstDirSid = 48;      // 4: first directory sector
inline constexpr std::size_t kTransaction = 52;      // 4: transaction signature, zero
inline constexpr std::size_t kMiniCutoff = 56;       // 4: 4096
inline constexpr std::size_t kFirstMinisatSid = 60;  // 4: first MiniSAT sector or ENDOFCHAIN
inline constexpr std::size_t kNumMinisatSecs = 64;   // 4: MiniSAT sectors
inline constexpr std::size_t kFirstDisatSid = 68;    // 4: first DISAT sector or ENDOFCHAIN
inline constexpr std::size_t kNumDisatSecs = 72;     // 4: DISAT sectors
inline constexpr std::size_t kHeaderDisat = 76;      // 109 x 4: the first SAT sector ids
inline constexpr std::size_t kFieldsEnd = kHeaderDisat;
static_assert(kHeaderDisat + 4 * kHeaderDisatCount == kHeaderSize);
}  // namespace header

// Byte offsets of the fields of a 128-byte directory entry.
namespace entry {
inline constexpr std::size_t kName = 0;  // 64: UTF-16LE name, zero padded
inline constexpr std::size_t kNameSize = 64;
inline constexpr std::size_t kNameValidSize = 64;  // 2: name length in bytes with its zero
inline constexpr std::size_t kObjectType = 66;     // 1: 0 unallocated, 1 storage, 2 stream, 5 root
inline constexpr std::size_t kColorFlag = 67;      // 1: 0 red, 1 black
inline constexpr std::size_t kLeftSibling = 68;    // 4: DID or NOSTREAM
inline constexpr std::size_t kRightSibling = 72;   // 4: DID or NOSTREAM
inline constexpr std::size_t kChild = 76;          // 4: DID or NOSTREAM
inline constexpr std::size_t kClsid = 80;          // 16: class id of a storage
inline constexpr std::size_t kStateBits = 96;      // 4: user flags
inline constexpr std::size_t kCreationTime = 100;  // 8: FILETIME
inline constexpr std::size_t kModifiedTime = 108;  // 8: FILETIME
inline constexpr std::size_t kStartSid = 116;      // 4: first sector (or mini sector)
inline constexpr std::size_t kStreamSize = 120;    // 4: low half of the size
inline constexpr std::size_t kStreamSizeHigh = 124;  // 4: high half, never read
static_assert(kStreamSizeHigh == kEntryBytesRead);
static_assert(kStreamSizeHigh + 4 == kDirectoryEntrySize);
static_assert(kName + kNameSize == kNameValidSize);
}  // namespace entry

}  // namespace layout
}  // namespace vrk
