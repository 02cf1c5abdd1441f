// The hex dump of a compound file cut into its 512-byte blocks: one text file per block below
// output folder + "物理切割后各个单元" + separator. Block 0 goes to "Header", block i >= 1 to
// "sector<i-1>[<offset in hex, at least four digits>H]". A final block shorter than 512
// bytes is not dumped.
#pragma once

#include <cstdint>
#include <string>

namespace vrk {

class Cfb_File;

// The name of the dump file of block `block` (0 for the header).
std::string sector_unit_file_name(uint64_t block);

// output folder + "物理切割后各个单元" + separator.
std::wstring sector_units_folder(const std::wstring& output_folder);

// Dumps the object's input file into its output folder; returns the number of blocks dumped.
// A source that cannot be opened is logged and nothing is written.
uint64_t split_to_sector_units(const Cfb_File& file);

// The same for any source file and target folder (ending in a separator).
uint64_t split_to_sector_units(const std::wstring& source, const std::wstring& folder);

}  // namespace vrk
