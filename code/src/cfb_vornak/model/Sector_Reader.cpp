#include "cfb_vornak/model/Sector_Reader.h"

#include <algorithm>

#include "common/byte_order.h"

namespace vrk {

void Sector_Reader::fail_past_end(uint64_t offset) const {
    // The byte-wise read fails at its first byte at or past the end.
    m_view.fail_at(std::max(offset, m_view.size()));
}

uint32_t Sector_Reader::u32(uint64_t offset) const {
    return read_u32_le(m_view.bytes(offset, 4));
}

uint32_t Sector_Reader::u32_run(uint64_t offset, uint32_t count, uint32_t* out) const {
    const auto inside = static_cast<uint32_t>(available(offset, uint64_t{count} * 4) / 4);
    const uint8_t* bytes = m_view.bytes(offset, std::size_t{inside} * 4);
    for (uint32_t i = 0; i < inside; ++i) {
        out[i] = read_u32_le(bytes + 4 * i);
    }
    return inside;
}

}  // namespace vrk
