// The picture of a Sector_Map: one square cell per 512-byte block, coloured by its role (each
// stream in a colour of its own), rows of 64 cells labelled with their file offset, a legend
// with the count of each role, and each run of cells named on hover (SVG <title>). Every cell
// is a <rect> whose class is the role's key, so that the picture can be counted.
#pragma once

#include <cstdint>
#include <string>

#include "common/platform.h"
#include "sector_map.h"

namespace vrk::cli {

struct Map_Picture {
    std::string title;   // the file's name as shown
    uint64_t first = 0;  // first cell drawn
    uint64_t count = 0;  // cells drawn
};

// Writes the SVG document (or, with `html`, a page holding it) to `path`, which shows it only
// once whole; false with a reason when it cannot be written or its name reaches `input`.
bool write_map(const Sector_Map& map, const Map_Picture& picture, bool html,
               const std::wstring& path, const platform::File_Identity* input, std::string& error);

}  // namespace vrk::cli
