// The input's bytes for a pass that visits every sector once in file order, served from blocks
// read through a file handle of its own rather than off the door's map: on some virtual
// machines touching every page of a large mapping costs several times what copying the same
// bytes out of the page cache does. Where the handle cannot be opened, or a read comes up
// short (the file's end, an error), at() gives null and the caller reads through the door as
// it would otherwise; so the bytes a pass sees, and its failures, stay the same.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "common/aligned_bytes.h"
#include "common/byte_order.h"
#include "common/platform.h"

namespace vrk {

class Sector_Blocks {
  public:
    // Blocks of 256 KB: large enough for few reads, small enough to stay in the core's cache
    // while a pass works through them.
    static constexpr std::size_t kBlockSize = std::size_t{256} << 10;

    // Nothing at or past `size`, the file's size as the door knows it, is ever served.
    Sector_Blocks(const std::wstring& path, uint64_t size, std::size_t block_size = kBlockSize);
    // Reads through `input`, opened by the caller and kept open while this lives; with null,
    // at() always gives null.
    Sector_Blocks(const platform::Input_File* input, uint64_t size,
                  std::size_t block_size = kBlockSize);

    // The `length` bytes (at most the block size) at `offset`, or null. A range outside the
    // current block refills it from `offset` on, so ascending offsets read the file once.
    [[nodiscard]] const uint8_t* at(uint64_t offset, std::size_t length) {
        if (m_input == nullptr || !m_input->is_open()) return nullptr;
        if (!holds(offset, length)) fill(offset);
        return holds(offset, length) ? m_block.data() + (offset - m_start) : nullptr;
    }

  private:
    [[nodiscard]] bool holds(uint64_t offset, std::size_t length) const {
        return offset >= m_start && range_inside(offset - m_start, length, m_filled);
    }
    void fill(uint64_t offset);

    platform::Input_File m_own;  // the handle opened from a path
    const platform::Input_File* m_input = nullptr;
    Aligned_Bytes m_block;
    uint64_t m_size;
    uint64_t m_start = 0;
    uint64_t m_filled = 0;  // bytes of the block read from m_start on
};

}  // namespace vrk
