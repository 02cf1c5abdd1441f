#include "file_operation/Input_Blocks.h"

#include <algorithm>

namespace vrk {

Input_Blocks::Input_Blocks(Input_View& view, std::size_t block_size, std::size_t buffers)
    : m_view(view),
      m_block_size(std::max<std::size_t>(block_size, 1)),
      m_buffers(std::max<std::size_t>(buffers, 1)) {}

void Input_Blocks::finish() {
    if (m_done && m_filled != 0) m_done(m_start, m_base, static_cast<std::size_t>(m_filled));
    m_start = 0;
    m_filled = 0;
}

const uint8_t* Input_Blocks::refill(uint64_t offset, std::size_t length) {
    finish();
    const uint64_t wanted = std::max<uint64_t>(length, m_view.available(offset, m_block_size));
    if (m_view.in_memory()) {
        // Fails unless the whole range lies inside the file.
        m_base = m_view.bytes(offset, static_cast<std::size_t>(wanted));
        m_start = offset;
        m_filled = wanted;
        return m_base;
    }
    Aligned_Bytes& buffer = m_buffers[m_next_buffer];
    m_next_buffer = (m_next_buffer + 1) % m_buffers.size();
    if (buffer.size() < wanted) buffer.resize(static_cast<std::size_t>(wanted));
    m_base = buffer.data();
    m_start = offset;
    m_filled = m_view.read_up_to(offset, wanted, buffer.data());
    // Only the caller's range must be there: the rest of the block is read ahead.
    if (m_filled < length) m_view.fail_at(offset + m_filled);
    return m_base;
}

}  // namespace vrk
