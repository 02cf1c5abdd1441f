// Mode 2 of the file door: a read-only memory-mapped view of a whole file. The view never
// changes while the object lives, so reads through it need no lock.
#pragma once

#include <cstdint>
#include <string>

#include "common/platform.h"

namespace vrk {

class File_Memory_Map {
  public:
    // A file that does not open is a failure (thrown). A file that opens but cannot be mapped
    // (a zero-length file among them) is logged and leaves state 1 without throwing.
    explicit File_Memory_Map(const std::wstring& path);
    ~File_Memory_Map();
    File_Memory_Map(const File_Memory_Map&) = delete;
    File_Memory_Map& operator=(const File_Memory_Map&) = delete;

    int32_t state() const { return m_state; }
    // Size measured through a stream before mapping.
    uint64_t file_size() const { return m_file_size; }
    // The mapped bytes and their count; null and 0 unless state is 2.
    const uint8_t* data() const { return m_mapped.data; }
    uint64_t mapped_size() const { return m_mapped.size; }

  private:
    int32_t m_state = 0;  // 0 constructing, 1 failed, 2 fine
    uint64_t m_file_size = 0;
    platform::Mapped_File m_mapped;
};

}  // namespace vrk
