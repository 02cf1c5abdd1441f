// The damage probe's two whole-file passes written the slow, literal way (one 22-byte stream
// read per byte of the file; every slot field read through the door). The library's fast
// passes must give exactly the same answers and the same failures.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "cfb_vornak/model/Cfb_File.h"
#include "support/literal_tables.h"

namespace vrk::test {

// Reads 22 bytes, compares, steps back 21, until a read comes up short.
bool literal_root_signature_search(const std::wstring& path);

struct Literal_Scan_Result {
    uint32_t result = 0;
    std::map<uint64_t, std::vector<Directory_Entry>> layout;
    Directory_Entry root;
    uint64_t mini_sector_count = 0;
};

// The slot scan of `file` without touching the object's members. Throws what the door
// throws for a byte past the end.
Literal_Scan_Result literal_root_entry_scan(Cfb_File& file);
bool literal_plausible(const Cfb_File& file, const Directory_Entry& record);

// The first difference between the probe's fast passes and the literal ones on the file
// `input` holding the `size` bytes at `data`, empty when none: the signature search (above
// 4 KiB held to a plain search of the bytes, the literal one seeking once per byte); the slot
// scan's verdict, records or failure text, and the one-read classification against the
// literal search followed by the door's scan (both only up to 1 MiB, the literal scan reading
// every byte through the door).
std::string probe_difference(const File_Description& input, const uint8_t* data, std::size_t size);

}  // namespace vrk::test
