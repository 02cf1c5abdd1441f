// Read-only random access to the input file: one byte or a run at any offset, through a block
// cache (mode 0), a plain stream (mode 1) or the checked view of the whole file (mode 2: a
// read-only map on Windows, positioned reads elsewhere; Input_View.h). Every failure is written to
// the private log and thrown as std::logic_error carrying "[file:line->func] msg\n".
#pragma once

#include <cstdint>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>

#include "file_operation/Door_State.h"
#include "file_operation/File_Block_Cache.h"
#include "file_operation/File_Memory_Map.h"
#include "file_operation/door_failure.h"

namespace vrk {

// How a door reads the file. A configuration may carry any other value: the door then fails
// silently.
enum class Access_Mode : int32_t { block_cache = 0, direct_stream = 1, memory_map = 2 };

struct Door_Config {
    uint64_t cache_block_count = 10;  // blocks the cache keeps (mode 0)
    uint64_t block_size_shift = 32;   // block size exponent, taken mod 64 (mode 0)
    Access_Mode access_mode = Access_Mode::memory_map;
    bool use_mutex = false;  // reads go through get_with_mutex
};

class File_Anywhere_Door {
  public:
    // A missing file, a file that does not open and a mode whose backing cannot be built are
    // failures. An unknown mode leaves the door failed silently; every read then fails.
    File_Anywhere_Door(const std::wstring& path, const Door_Config& config);
    File_Anywhere_Door(const File_Anywhere_Door&) = delete;
    File_Anywhere_Door& operator=(const File_Anywhere_Door&) = delete;

    // The byte at `offset`. A door that is not fine, or an offset past the end, is a failure
    // (a file of size 0 accepts every offset in modes 0 and 1 and reads 0).
    uint8_t get_no_mutex(uint64_t offset) {
        if (m_view != nullptr) return *m_view->bytes(offset, 1, kNoMutexSite);
        return get_no_mutex_checked(offset);
    }
    // As get_no_mutex, with its own failure texts; modes 0 and 1 hold the door's mutex.
    uint8_t get_with_mutex(uint64_t offset) {
        if (m_view != nullptr) return *m_view->bytes(offset, 1, kWithMutexSite);
        return get_with_mutex_checked(offset);
    }
    // Byte-wise copy; a failure part-way leaves the bytes copied so far. Null destination logs.
    void copy_data_to_mem(uint64_t offset, uint64_t length, uint8_t* destination);

    uint64_t file_size() const { return m_file_size; }
    Door_State state() const { return m_state; }
    bool uses_mutex() const { return m_use_mutex; }
    const std::wstring& path() const { return m_path_wstr; }

    // The checked view of the input (mode 2), through which every reader of the compound-file
    // model reads; it fails as get_no_mutex, or as get_with_mutex when the door uses its mutex.
    // The other modes have no view: theirs is closed, and reads through it fail with the state
    // failure.
    Input_View& view() { return m_view != nullptr ? *m_view : m_no_view; }

  private:
    uint8_t get_no_mutex_checked(uint64_t offset);
    uint8_t get_with_mutex_checked(uint64_t offset);
    void check_readable(uint64_t offset, const Read_Site& site) const;
    uint8_t read_checked(uint64_t offset, const Read_Site& site);
    uint8_t read_stream_byte(uint64_t offset);

    Door_State m_state = Door_State::constructing;
    Access_Mode m_access_mode = Access_Mode::memory_map;
    std::unique_ptr<File_Block_Cache> m_file_block_cache;
    std::unique_ptr<File_Memory_Map> m_file_memory_map;
    std::ifstream m_stream;
    std::mutex m_door_mutex;
    bool m_use_mutex = false;
    std::wstring m_path_wstr;
    std::string m_path_str;
    uint64_t m_file_size = 0;
    // The view once a mode-2 door is fine; null otherwise.
    Input_View* m_view = nullptr;
    Input_View m_no_view;
};

}  // namespace vrk
