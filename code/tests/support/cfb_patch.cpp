#include "support/cfb_patch.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>

#include "common/byte_order.h"
#include "common/platform.h"

namespace vrk::test {

namespace {

void require_range(const std::vector<uint8_t>& bytes, uint64_t offset, uint64_t len,
                   const char* what) {
    if (!range_inside(offset, len, bytes.size()))
        throw std::out_of_range(std::string(what) + ": " + std::to_string(len) + " bytes at " +
                                std::to_string(offset) + " leave the buffer");
}

// Offset of entry `index` of a table stored in the sectors `sids`, `width` bytes per entry.
uint64_t table_offset(const Build_Layout& layout, const std::vector<sid_t>& sids, uint32_t index,
                      uint32_t width, const char* what) {
    const uint32_t per_sector = layout.sector_size / width;
    if (index / per_sector >= sids.size())
        throw std::out_of_range(std::string(what) + ": " + std::to_string(index) + " past the end");
    return layout.file_offset_of(sids[index / per_sector]) + uint64_t{width} * (index % per_sector);
}

}  // namespace

void patch_u16(std::vector<uint8_t>& bytes, uint64_t offset, uint16_t value) {
    require_range(bytes, offset, 2, __func__);
    write_u16_le(bytes.data() + offset, value);
}

void patch_u32(std::vector<uint8_t>& bytes, uint64_t offset, uint32_t value) {
    require_range(bytes, offset, 4, __func__);
    write_u32_le(bytes.data() + offset, value);
}

void patch_bytes(std::vector<uint8_t>& bytes, uint64_t offset, const std::vector<uint8_t>& value) {
    require_range(bytes, offset, value.size(), __func__);
    std::copy(value.begin(), value.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset));
}

void zero_range(std::vector<uint8_t>& bytes, uint64_t offset, uint64_t len) {
    require_range(bytes, offset, len, __func__);
    std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(offset), len, 0);
}

void truncate(std::vector<uint8_t>& bytes, uint64_t n) {
    require_range(bytes, 0, n, __func__);
    bytes.resize(static_cast<std::size_t>(n));
}

bool write_bytes_to_file(const std::wstring& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(platform::to_path(path), std::ios::binary | std::ios::trunc);
    if (!out) return false;
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    out.close();
    return !out.fail();
}

std::vector<uint8_t> random_bytes(std::size_t n, uint64_t seed) {
    std::vector<uint8_t> bytes(n);
    uint64_t state = seed;
    for (std::size_t i = 0; i < n;) {
        state += 0x9E3779B97F4A7C15ull;
        uint64_t z = state;
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        z ^= z >> 31;
        for (int b = 0; b < 8 && i < n; ++b, ++i) bytes[i] = static_cast<uint8_t>(z >> (8 * b));
    }
    return bytes;
}

uint64_t sat_entry_offset(const Build_Layout& layout, sid_t sid) {
    return table_offset(layout, layout.sat_sids, sid, 4, __func__);
}

uint64_t minisat_entry_offset(const Build_Layout& layout, sid_t mini_sid) {
    return table_offset(layout, layout.minisat_sids, mini_sid, 4, __func__);
}

uint64_t directory_entry_offset(const Build_Layout& layout, uint32_t did) {
    return table_offset(layout, layout.directory_sids, did, 128, __func__);
}

const Build_Layout::Stream_Place& stream_place(const Build_Layout& layout,
                                               const std::u16string& path) {
    for (const auto& place : layout.streams)
        if (place.path == path) return place;
    throw std::out_of_range("stream_place: no stream with that path");
}

}  // namespace vrk::test
