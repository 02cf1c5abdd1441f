#include "file_operation/File_Block_Cache.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <new>
#include <utility>

#include "common/platform.h"
#include "file_operation/door_failure.h"

namespace vrk {

File_Block_Cache::File_Block_Cache(const std::wstring& path, uint64_t block_size_shift,
                                   uint64_t capacity) {
    m_stream.open(platform::to_path(path), std::ios::in | std::ios::binary);
    if (!m_stream.is_open()) {
        m_state = Door_State::failed;
        throw_door_failure("File_Block_Cache construct failed ! the file [" +
                               platform::to_utf8(path) + "]can not open! \n",
                           209, 210, __func__);
    }
    m_stream.seekg(0, std::ios::end);
    const std::streamoff end = m_stream.tellg();
    m_file_size = end > 0 ? static_cast<uint64_t>(end) : 0;
    m_stream.seekg(0, std::ios::beg);

    const uint64_t shift = block_size_shift % 64;
    m_block_size = uint64_t{1} << shift;
    m_block_mask = (~uint64_t{0} >> shift) << shift;
    m_list.set_capacity(capacity);
    m_state = Door_State::fine;
}

uint8_t File_Block_Cache::get_char_in_offset(uint64_t offset) {
    if (m_state != Door_State::fine) {
        throw_door_failure("File_Block_Cache state is not fine ! the file [" +
                               std::to_string(offset) + "]can not access! \n",
                           244, 245, __func__);
    }
    // Unsigned on purpose: for a file of size 0 the limit wraps and every offset passes.
    if (offset > m_file_size - 1) {
        throw_door_failure("File_Block_Cache access is illegal ! the offset [" +
                               std::to_string(offset) + "]is  out of  range! \n",
                           251, 252, __func__);
    }
    const uint64_t key = offset & m_block_mask;
    const uint64_t index = offset - key;

    const auto found = m_block_map.find(key);
    if (found != m_block_map.end() && found->second != nullptr) {
        Data_Block_Node* node = found->second;
        const uint8_t byte = node->byte_at(index);
        m_list.move_to_front(node);
        return byte;
    }

    Data_Block_Node* node = load_block(key, __func__);
    m_list.push_front(node);
    // Taken before eviction: with a capacity of 0 the new block is its own victim.
    const uint8_t byte = node->byte_at(index);
    bool new_block_evicted = false;
    if (m_list.size() > m_list.capacity()) {
        Data_Block_Node* victim = m_list.least_recent();
        const uint64_t victim_offset = victim->offset;
        new_block_evicted = victim == node;
        m_list.remove(victim);
        if (victim_offset != Data_Block_Node::kSentinelOffset) {
            m_block_map[victim_offset] = nullptr;
        }
    }
    m_block_map[key] = new_block_evicted ? nullptr : node;
    return byte;
}

// Reads the block starting at `key`; failures name `function`. Only the bytes the file holds are
// read and kept (never more than the file can supply, whatever the block size); the rest of the
// block reads as 0.
Data_Block_Node* File_Block_Cache::load_block(uint64_t key, const char* function) {
    const uint64_t available = m_file_size > key ? m_file_size - key : 0;
    const uint64_t length = std::min(m_block_size, available);

    std::unique_ptr<uint8_t[]> buffer(new (std::nothrow) uint8_t[length == 0 ? 1 : length]());
    if (!buffer) {
        throw_door_failure("mem out of range when add cache block! {malloc tmp_block_data} \n", 280,
                           281, function);
    }
    if (length > 0) {
        if (m_stream.fail()) {
            m_stream.clear();
        }
        m_stream.seekg(static_cast<std::streamoff>(key), std::ios::beg);
        m_stream.read(reinterpret_cast<char*>(buffer.get()), static_cast<std::streamsize>(length));
        // A short read (the file shrank) leaves the rest of the buffer zero.
    }

    auto* node = new (std::nothrow) Data_Block_Node(key, std::move(buffer), length);
    if (node == nullptr) {
        throw_door_failure("mem out of range when add cache block! {new Data_Block}\n", 307, 308,
                           function);
    }
    return node;
}

}  // namespace vrk
