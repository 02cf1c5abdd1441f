// What the header and the directory records of a damaged compound file say, each field taken
// for what it is worth: the salvage checks every value against the file before using it.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "cfb_vornak/format/Cfb_Header.h"
#include "cfb_vornak/format/Directory_Entry.h"
#include "cfb_vornak/format/Mini_Stream.h"
#include "cfb_vornak/format/cfb_types.h"

namespace vrk::salvage {

inline constexpr uint32_t kHeaderDisatEntries = Cfb_Header::kHeaderDisatCount;
inline constexpr uint32_t kDirEntrySize = Directory_Entry::kSize;
inline constexpr uint32_t kMiniSectorSize = Mini_Stream::kSectorSize;

// The header fields (offsets in the 512-byte header).
struct Header_Evidence {
    bool magic_ok = false;            // 0: D0 CF 11 E0 A1 B1 1A E1
    uint16_t minor_version = 0;       // 24: 0x003E (0x003B from older writers)
    uint16_t major_version = 0;       // 26: 3 or 4
    uint16_t byte_order = 0;          // 28: 0xFFFE
    uint16_t sector_shift = 0;        // 30: 9 (version 3) or 12 (version 4)
    uint16_t mini_sector_shift = 0;   // 32: 6
    uint32_t num_dir_secs = 0;        // 40: 0 in version 3
    uint32_t num_sat_secs = 0;        // 44
    sid_t first_dir_sid = 0;          // 48
    uint32_t mini_stream_cutoff = 0;  // 56: 4096
    sid_t first_minisat_sid = 0;      // 60
    uint32_t num_minisat_secs = 0;    // 64
    sid_t first_disat_sid = 0;        // 68
    uint32_t num_disat_secs = 0;      // 72
    std::array<sid_t, kHeaderDisatEntries> header_disat{};  // 76..511

    // 512 or 4096 when the shift says so, else 0.
    uint32_t declared_sector_size() const;
    // The sector size the header stands for: the shift's, or, with a broken shift, the one its
    // major version implies (3: 512, 4: 4096); 0 when neither says or when they disagree.
    uint32_t sector_size() const;
    // True when at least two of the fields that say "this is a compound file header" (the
    // signature, the byte order, the major version, a shift that fits it) are right: a
    // header with one broken field still speaks for the file, a zeroed or random one does not.
    bool speaks_for_file() const;
};

// Reads the header fields; a file shorter than 512 bytes gives all fields zero.
Header_Evidence read_header(const uint8_t* data, uint64_t size);

// The size of the directory record at `p` (128 bytes). Version 4 files (4096-byte sectors) keep
// a 64-bit size; version 3 writers may leave junk in the high half, so only the low half counts
// there.
uint64_t dir_record_size(const uint8_t* p, bool wide_size);

// The name the salvage gives a record: its units up to the terminating zero, at most 31 (the
// 32nd unit of a full name field is where the zero belongs).
std::u16string dir_record_name(const Directory_Entry& entry);

enum class Record_Kind { empty, valid, bad_name, invalid };

// An empty slot has object type 0. A valid one has type 1, 2 or 5, a colour of 0 or 1, links
// that are NOSTREAM or plausible ids, and a zero-terminated name whose length matches; a root
// record (type 5 without siblings) may have lost its name. A record that is valid but for its
// name (a NUL inside it, a length that does not match) is bad_name: its stream is still there.
Record_Kind classify_dir_record(const uint8_t* p);

// True when the 128 bytes at `p` hold a record of the root's type.
bool is_root_record(const uint8_t* p);

}  // namespace vrk::salvage
