// Mode 2 of the file door: the checked view of the whole file (Input_View.h): a read-only map on
// Windows, positioned reads into the view's own buffers elsewhere.
#pragma once

#include <cstdint>
#include <string>

#include "file_operation/Door_State.h"
#include "file_operation/Input_View.h"

namespace vrk {

class File_Memory_Map {
  public:
    // A file that does not open is a failure (thrown). A file that opens but cannot be mapped
    // (a zero-length file among them) is logged and leaves it failed without throwing. Reads
    // through the view fail with the texts of `site`.
    explicit File_Memory_Map(const std::wstring& path, const Read_Site& site = kNoMutexSite);
    ~File_Memory_Map();
    File_Memory_Map(const File_Memory_Map&) = delete;
    File_Memory_Map& operator=(const File_Memory_Map&) = delete;

    Door_State state() const { return m_state; }
    // Size measured through a stream before mapping.
    uint64_t file_size() const { return m_file_size; }
    // The view; open only when fine, its size fixed when it was opened.
    Input_View& view() { return m_view; }

  private:
    Door_State m_state = Door_State::constructing;
    uint64_t m_file_size = 0;
    Input_View m_view;
};

}  // namespace vrk
