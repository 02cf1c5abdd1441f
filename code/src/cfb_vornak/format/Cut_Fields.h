// The fields of a record of which only the first `have` bytes are at hand (a file that ends
// inside it), read in file order: a field that runs past the cut is not whole and is not read,
// except that a raw byte field keeps the bytes before the cut. Decoders chain the reads with &&,
// so that the first field that is not whole ends the decode.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "common/byte_order.h"

namespace vrk {

class Cut_Fields {
  public:
    Cut_Fields(const uint8_t* bytes, std::size_t have) : m_bytes(bytes), m_have(have) {}

    [[nodiscard]] bool whole(std::size_t field, std::size_t size) const {
        return size <= m_have && field <= m_have - size;
    }
    template <std::size_t N>
    [[nodiscard]] bool raw(std::size_t field, std::array<uint8_t, N>& destination) const {
        const std::size_t inside = m_have > field ? std::min(m_have - field, N) : 0;
        std::memcpy(destination.data(), m_bytes + field, inside);
        return whole(field, N);
    }
    [[nodiscard]] bool u8(std::size_t field, uint8_t& value) const {
        if (!whole(field, 1)) return false;
        value = m_bytes[field];
        return true;
    }
    [[nodiscard]] bool u16(std::size_t field, uint16_t& value) const {
        if (!whole(field, 2)) return false;
        value = read_u16_le(m_bytes + field);
        return true;
    }
    [[nodiscard]] bool u32(std::size_t field, uint32_t& value) const {
        if (!whole(field, 4)) return false;
        value = read_u32_le(m_bytes + field);
        return true;
    }
    [[nodiscard]] bool u64(std::size_t field, uint64_t& value) const {
        if (!whole(field, 8)) return false;
        value = read_u64_le(m_bytes + field);
        return true;
    }

  private:
    const uint8_t* m_bytes;
    std::size_t m_have;
};

}  // namespace vrk
