// Sorts the sectors of a file by what their contents could be, for one sector size: an
// allocation-table sector (entries that are markers or ids inside the file, no id twice), a
// directory sector (records that are empty or plausible), a directory sector that starts with
// a root record. A table sector also guesses its own place in the SAT from its sequential links.
#pragma once

#include <cstdint>
#include <vector>

#include "cfb_vornak/format/cfb_types.h"
#include "cfb_vornak/salvage/Salvage_Input.h"

namespace vrk::salvage {

// Sector n of a file with `sector_size`-byte sectors begins at (n + 1) * sector_size.
struct Sector_Geometry {
    uint32_t sector_size = 512;
    uint64_t file_size = 0;
    uint32_t count = 0;        // sectors with at least one byte inside the file
    uint32_t whole_count = 0;  // sectors wholly inside the file

    Sector_Geometry(uint32_t sector_size_, uint64_t file_size_);
    uint32_t entries_per_sector() const { return sector_size / 4; }
    uint64_t offset(sid_t sid) const { return (static_cast<uint64_t>(sid) + 1) * sector_size; }
    // Bytes of sector `sid` inside the file (0 past the end).
    uint64_t bytes_in_file(sid_t sid) const;
};

enum Sector_Flag : uint8_t {
    kTableLike = 1,    // could be a SAT (or MiniSAT) sector
    kDirOk = 2,        // every record empty or plausible
    kDirLike = 4,      // kDirOk with at least one plausible record
    kRootFirst = 8,    // slot 0 holds a root record
    kTableRange = 16,  // only markers and ids inside the file, some id perhaps twice
};

struct Sector_Classes {
    explicit Sector_Classes(const Sector_Geometry& g) : geometry(g) {}
    Sector_Geometry geometry;
    std::vector<uint8_t> flags;         // per sector, Sector_Flag bits
    std::vector<int32_t> sat_position;  // per sector: the SAT position its links suggest, or -1
};

// True when the whole sector holds only markers and ids below `bound`, with no id twice
// (unless `allow_twice`: a table reached through a verified chain may carry a damaged link).
bool is_table_like(const uint8_t* sector, uint32_t entries, uint64_t bound,
                   bool allow_twice = false);

// Every whole sector of the input. With the input open as a file the sectors are read from it
// in large blocks: one pass over the cache rather than a touch of every page of the mapping. A
// short read falls back to the input's checked ranges.
Sector_Classes classify_sectors(const Salvage_Input& input, const Sector_Geometry& geometry);

}  // namespace vrk::salvage
