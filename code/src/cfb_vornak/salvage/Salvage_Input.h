// The input file as the salvage reads it: every range checked against the file's size before it
// is served. Backed by bytes in memory (tests, a map) or by the checked input view, which on
// POSIX reads with positioned reads into buffers of its own: a file cut short while it is
// salvaged then reads as ending early, and nothing is ever touched past its end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "common/aligned_bytes.h"
#include "common/byte_order.h"
#include "file_operation/Input_View.h"

namespace vrk::platform {
class Input_File;
}

namespace vrk::salvage {

class Salvage_Input {
  public:
    Salvage_Input(const uint8_t* data, uint64_t size, const platform::Input_File* file)
        : m_data(data), m_size(size), m_file(file) {}
    // The file `view` has open; the view must outlive this object.
    explicit Salvage_Input(Input_View& view)
        : m_view(view.in_memory() ? nullptr : &view),
          m_size(view.size()),
          m_file(view.file().is_open() ? &view.file() : nullptr) {
        if (view.in_memory() && m_size != 0)
            m_data = view.bytes(0, static_cast<std::size_t>(m_size));
    }

    [[nodiscard]] uint64_t size() const { return m_size; }
    // The same input open for reading, for passes in large blocks and copies between files;
    // may be null.
    [[nodiscard]] const platform::Input_File* file() const { return m_file; }
    // The `length` bytes at `offset`, or null when the range does not lie wholly inside the
    // file (or the file no longer holds it). Read what is needed before the next call.
    [[nodiscard]] const uint8_t* bytes(uint64_t offset, std::size_t length) const {
        if (!range_inside(offset, length, m_size)) return nullptr;
        if (m_view == nullptr) return m_data != nullptr ? m_data + offset : nullptr;
        if (m_buffer.size() < length) m_buffer.resize(length);
        return m_view->read_up_to(offset, length, m_buffer.data()) == length ? m_buffer.data()
                                                                             : nullptr;
    }
    // Copies the `length` bytes at `offset` to `destination`; false (with what could be read
    // copied) when the file does not hold them all.
    [[nodiscard]] bool copy(uint64_t offset, uint64_t length, uint8_t* destination) const {
        if (!range_inside(offset, length, m_size)) return false;
        if (m_view != nullptr) return m_view->read_up_to(offset, length, destination) == length;
        if (m_data == nullptr) return length == 0;
        std::memcpy(destination, m_data + offset, static_cast<std::size_t>(length));
        return true;
    }
    // As bytes() and copy(), through none of the view's buffers (bytes_beside reads into
    // `buffer`): another thread may call them while this one reads through the view.
    [[nodiscard]] const uint8_t* bytes_beside(uint64_t offset, std::size_t length,
                                              Aligned_Bytes& buffer) const {
        if (!range_inside(offset, length, m_size)) return nullptr;
        if (m_view == nullptr) return m_data != nullptr ? m_data + offset : nullptr;
        buffer.resize(length);
        return m_view->read_up_to_beside(offset, length, buffer.data()) == length ? buffer.data()
                                                                                  : nullptr;
    }
    [[nodiscard]] bool copy_beside(uint64_t offset, uint64_t length, uint8_t* destination) const {
        if (m_view == nullptr) return copy(offset, length, destination);
        return range_inside(offset, length, m_size) &&
               m_view->read_up_to_beside(offset, length, destination) == length;
    }
    // The little-endian value at `offset`; `fallback` outside the file.
    [[nodiscard]] uint32_t u32(uint64_t offset, uint32_t fallback) const {
        const uint8_t* p = bytes(offset, 4);
        return p == nullptr ? fallback : read_u32_le(p);
    }

  private:
    const uint8_t* m_data = nullptr;
    Input_View* m_view = nullptr;  // reads through the view when set
    uint64_t m_size;
    const platform::Input_File* m_file;
    mutable Aligned_Bytes m_buffer;  // what bytes() last read through the view
};

}  // namespace vrk::salvage
