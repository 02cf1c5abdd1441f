// The input file as the salvage reads it: every range checked against the file's size before it
// is served.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/byte_order.h"

namespace vrk::platform {
class Input_File;
}

namespace vrk::salvage {

class Salvage_Input {
  public:
    Salvage_Input(const uint8_t* data, uint64_t size, const platform::Input_File* file)
        : m_data(data), m_size(size), m_file(file) {}

    [[nodiscard]] uint64_t size() const { return m_size; }
    // The same input open for reading, for passes in large blocks and copies between files;
    // may be null.
    [[nodiscard]] const platform::Input_File* file() const { return m_file; }
    // The `length` bytes at `offset`, or null when the range does not lie wholly inside the
    // file. Read what is needed before the next call.
    [[nodiscard]] const uint8_t* bytes(uint64_t offset, std::size_t length) const {
        return m_data != nullptr && range_inside(offset, length, m_size) ? m_data + offset
                                                                         : nullptr;
    }
    // The little-endian value at `offset`; `fallback` outside the file.
    [[nodiscard]] uint32_t u32(uint64_t offset, uint32_t fallback) const {
        const uint8_t* p = bytes(offset, 4);
        return p == nullptr ? fallback : read_u32_le(p);
    }

  private:
    const uint8_t* m_data;
    uint64_t m_size;
    const platform::Input_File* m_file;
};

}  // namespace vrk::salvage
