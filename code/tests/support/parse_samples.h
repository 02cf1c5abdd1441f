// Compound file images assembled entry by entry, for tests that need exact control over the
// tables, and a reader of the error lines that the parser writes through Cfb_Logger.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cfb_vornak/format/cfb_types.h"
#include "common/byte_order.h"

namespace vrk::test {

// A version 3 image: a sound header without tables (every header DISAT entry FREESECT,
// first_dir_sid ENDOFCHAIN, which alone fails validation), then `sectors` 512-byte sectors of
// `fill` bytes, then `tail` of them in a partial sector.
class Raw_Cfb {
  public:
    explicit Raw_Cfb(uint32_t sectors, uint32_t tail = 0, uint8_t fill = 0);

    void u8_at(uint64_t offset, uint8_t value) { bytes.at(offset) = value; }
    void u16_at(uint64_t offset, uint16_t value) { write_u16_le(&bytes.at(offset + 1) - 1, value); }
    void u32_at(uint64_t offset, uint32_t value) { write_u32_le(&bytes.at(offset + 3) - 3, value); }
    // Entry `index` (0..127) of sector `sid`.
    void entry(sid_t sid, uint32_t index, uint32_t value) {
        u32_at((uint64_t{sid} + 1) * 512 + 4 * uint64_t{index}, value);
    }
    // Every entry of sector `sid`.
    void fill(sid_t sid, uint32_t value) { counting(sid, value, 128, 0); }
    // Entries 0 .. count - 1 of sector `sid` hold first, first + step, ...
    void counting(sid_t sid, uint32_t first, uint32_t count = 128, uint32_t step = 1) {
        for (uint32_t i = 0; i < count; ++i) entry(sid, i, first + i * step);
    }
    // Sector `sat` becomes the only SAT sector (header DISAT entry 0), all FREESECT, marked
    // FATSECT in itself.
    void single_sat(sid_t sat);
    // Links `from` -> `to` in the SAT sector named by header DISAT entry 0.
    void link(sid_t from, sid_t to) { entry(sat_sector, from, to); }
    // A directory record in slot `slot` (0..3) of sector `sid`, over a zeroed slot.
    void directory_entry(sid_t sid, uint32_t slot, const std::u16string& name, uint8_t type,
                         sid_t start, uint32_t size, uint32_t child = NOSTREAM,
                         uint32_t left = NOSTREAM, uint32_t right = NOSTREAM);
    // The last whole sector (the repair's max_sid), for images of two sectors or more.
    [[nodiscard]] uint64_t max_sid() const { return (bytes.size() - 512) / 512 - 1; }

    std::vector<uint8_t> bytes;
    sid_t sat_sector = FREESECT;
};

// Writes `bytes` to `name` in the current folder; the description names it for Cfb_File.
File_Description write_sample(const std::string& name, const std::vector<uint8_t>& bytes);

// The error-level lines written through Cfb_Logger since the previous call, each as
// "[source:line]->info: message". The first call starts the logger in the current folder.
std::vector<std::string> new_error_lines();
// The message part of such a line.
std::string message_of(const std::string& line);

}  // namespace vrk::test
