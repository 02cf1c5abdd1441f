// Mode 0 of the file door: a byte-addressed view of a file read in power-of-two blocks, the
// most recently used blocks kept in memory (strict LRU, at most one eviction per read). Not
// thread-safe; the door serialises it when asked to.
#pragma once

#include <cstdint>
#include <fstream>
#include <string>
#include <unordered_map>

#include "file_operation/Data_Block_List.h"
#include "file_operation/Door_State.h"

namespace vrk {

class File_Block_Cache {
  public:
    // Opens the file read-only and shared; a file that does not open is a failure. Blocks are
    // 1 << (shift mod 64) bytes; at most `capacity` of them stay cached.
    File_Block_Cache(const std::wstring& path, uint64_t block_size_shift, uint64_t capacity);

    // The byte at `offset`. Offsets past the end fail, except that a file of size 0 accepts
    // every offset (the last valid offset wraps) and reads 0.
    uint8_t get_char_in_offset(uint64_t offset);

    Door_State state() const { return m_state; }
    uint64_t file_size() const { return m_file_size; }
    uint64_t block_size() const { return m_block_size; }
    uint64_t block_mask() const { return m_block_mask; }
    const Data_Block_List& blocks() const { return m_list; }

  private:
    Data_Block_Node* load_block(uint64_t key, const char* function);

    Door_State m_state = Door_State::constructing;
    uint64_t m_block_mask = ~uint64_t{1023};
    uint64_t m_block_size = 1024;
    Data_Block_List m_list;  // also holds the capacity
    // Block start -> node. An evicted block keeps its entry, set to null (a miss).
    std::unordered_map<uint64_t, Data_Block_Node*> m_block_map;
    std::ifstream m_stream;
    uint64_t m_file_size = 0;
};

}  // namespace vrk
