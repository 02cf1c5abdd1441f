#include "cfb_vornak/model/Sector_Reader.h"

#include <cstring>

#include "common/byte_order.h"

namespace vrk {

Sector_Reader::Sector_Reader(File_Anywhere_Door& door)
    : m_door(door), m_data(door.mapped_data()), m_size(door.file_size()) {}

uint64_t Sector_Reader::available(uint64_t offset, uint64_t length) const {
    if (offset >= m_size) {
        return 0;
    }
    return length <= m_size - offset ? length : m_size - offset;
}

void Sector_Reader::fail_past_end(uint64_t offset) const {
    // The byte-wise read fails at its first byte at or past the end.
    m_door.throw_out_of_range(offset < m_size ? m_size : offset);
}

void Sector_Reader::copy_inside(uint64_t offset, uint64_t length, uint8_t* destination) const {
    if (length == 0) {
        return;
    }
    if (m_data != nullptr) {
        // The view is read-only and as long as the file; the caller checked the range.
        std::memcpy(destination, m_data + offset, static_cast<std::size_t>(length));
        return;
    }
    for (uint64_t i = 0; i < length; ++i) {
        destination[i] = m_door.uses_mutex() ? m_door.get_with_mutex(offset + i)
                                             : m_door.get_no_mutex(offset + i);
    }
}

uint32_t Sector_Reader::u32(uint64_t offset) const {
    if (available(offset, 4) != 4) {
        fail_past_end(offset);
    }
    if (m_data != nullptr) {
        return read_u32_le(m_data + offset);
    }
    uint8_t bytes[4];
    copy_inside(offset, 4, bytes);
    return read_u32_le(bytes);
}

uint32_t Sector_Reader::u32_run(uint64_t offset, uint32_t count, uint32_t* out) const {
    const auto inside = static_cast<uint32_t>(available(offset, uint64_t{count} * 4) / 4);
    if (m_data == nullptr) {
        for (uint32_t i = 0; i < inside; ++i) {
            out[i] = u32(offset + 4 * i);
        }
        return inside;
    }
    const uint8_t* bytes = m_data + offset;
    for (uint32_t i = 0; i < inside; ++i) {
        out[i] = read_u32_le(bytes + 4 * i);
    }
    return inside;
}

}  // namespace vrk
