#include "file_operation/Sector_Blocks.h"

#include <algorithm>

namespace vrk {

Sector_Blocks::Sector_Blocks(const std::wstring& path, uint64_t size, std::size_t block_size)
    : m_size(size) {
    if (m_own.open(path)) {
        m_input = &m_own;
        m_block.resize(block_size);
    }
}

Sector_Blocks::Sector_Blocks(const platform::Input_File* input, uint64_t size,
                             std::size_t block_size)
    : m_input(input), m_size(size) {
    if (m_input != nullptr) m_block.resize(block_size);
}

void Sector_Blocks::fill(uint64_t offset) {
    m_start = offset;
    m_filled = 0;
    if (offset >= m_size) return;
    const auto wanted =
        static_cast<std::size_t>(std::min<uint64_t>(m_block.size(), m_size - offset));
    m_filled = m_input->read_at(offset, m_block.data(), wanted);
}

}  // namespace vrk
