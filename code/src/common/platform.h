// Everything that differs between Windows and POSIX. Only platform_windows.cpp and
// platform_posix.cpp include system headers; the rest of the library goes through this.
//
// Wide strings are UTF-16 on Windows and UTF-32 elsewhere; file-system names are wide on
// Windows and UTF-8 elsewhere (to_path/from_path convert).
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

namespace vrk::platform {

#if defined(_WIN32)
inline constexpr wchar_t kSeparator = L'\\';
inline constexpr bool kWindows = true;
#else
inline constexpr wchar_t kSeparator = L'/';
inline constexpr bool kWindows = false;
#endif

// Narrow argument text to wide: the process code page on Windows, UTF-8 elsewhere, where
// bytes that are not UTF-8 are kept (as U+DC80 + byte) so that any file name round-trips
// through widen, narrow, to_path and from_path. Never throws.
std::wstring widen(const std::string& narrow);
// Wide to narrow in the process code page (Windows) or UTF-8 (kept bytes restored).
std::string narrow(const std::wstring& wide);
// Wide <-> UTF-8 (code page 65001 on Windows). Unpaired surrogates become U+FFFD.
std::string to_utf8(const std::wstring& wide);
std::wstring from_utf8(const std::string& utf8);
// UTF-16 code units (as stored in compound files) to wide text; unpaired surrogates -> U+FFFD.
std::wstring from_utf16(const char16_t* units, std::size_t count);

// Wide path <-> native file-system path.
std::filesystem::path to_path(const std::wstring& wide);
std::wstring from_path(const std::filesystem::path& path);

// The absolute form of a path (GetFullPathNameW on Windows); the input on failure.
std::wstring make_absolute(const std::wstring& path);

// Bytes available to the caller on the volume of `path`: the drive root named by its first
// three characters on Windows, the nearest existing folder elsewhere.
bool available_space(const std::wstring& path, uint64_t& bytes);

// The system temporary folder; false with the system's error text on failure.
bool temp_directory(std::wstring& folder, std::string& error_text);

// The platform's 32-bit id of the calling thread (GetCurrentThreadId, or the kernel tid).
uint32_t current_thread_id();

// The id of this process.
uint32_t current_process_id();

// The C library's text for the current errno.
std::string errno_text();

// Clears read-only and similar attributes so that the entry can be removed.
void set_normal_attributes(const std::filesystem::path& path);
// True for a symbolic link or (Windows) a junction or other reparse point.
bool is_link(const std::filesystem::path& path);
// Removes a link itself, never what it points to. Throws std::filesystem::filesystem_error.
void remove_link(const std::filesystem::path& path);

// Backs `size` bytes of this process's memory from `data` with pages now, in one call, rather
// than one page fault at a time on first write (Linux MADV_POPULATE_WRITE; elsewhere nothing).
// Only pages wholly inside the range are touched; a hint whose failure changes nothing.
void populate_for_writing(void* data, std::size_t size);

// A read-only view of a whole file.
struct Mapped_File {
    const uint8_t* data = nullptr;
    uint64_t size = 0;
    void* file_handle = nullptr;     // Windows: the HANDLE; POSIX: unused
    void* mapping_handle = nullptr;  // Windows: the mapping HANDLE; POSIX: unused
};

// The step at which mapping failed; the texts of the file layer name these steps.
enum class Map_Step { ok, open_file, create_mapping, map_view };

// Maps `path` read-only. On failure returns the failed step with errno set for errno_text();
// a zero-length file fails at create_mapping on every platform.
Map_Step map_file(const std::wstring& path, Mapped_File& mapped);
// Unmaps; false (with errno set) when the view could not be unmapped.
bool unmap_file(Mapped_File& mapped);

// A file opened read-only, to copy byte ranges out of.
class Input_File {
  public:
    Input_File() = default;
    ~Input_File();
    Input_File(const Input_File&) = delete;
    Input_File& operator=(const Input_File&) = delete;

    // False (with errno set) when the file cannot be opened for reading.
    bool open(const std::wstring& path);
    [[nodiscard]] bool is_open() const { return m_handle != kNoHandle; }
    void close();
    // Reads up to `size` bytes from `offset` on into `buffer`; fewer only at the file's end or
    // on an error. For whole-file passes: on some virtual machines touching every page of a
    // large mapping costs several times what copying the same bytes out of the cache does.
    std::size_t read_at(uint64_t offset, void* buffer, std::size_t size) const;

  private:
    friend class Output_File;
    static constexpr intptr_t kNoHandle = -1;  // also INVALID_HANDLE_VALUE
    intptr_t m_handle = kNoHandle;
};

// A file created (or truncated) for writing; every write goes to its current end.
class Output_File {
  public:
    Output_File() = default;
    ~Output_File();
    Output_File(const Output_File&) = delete;
    Output_File& operator=(const Output_File&) = delete;

    // Creates or truncates `path`; false (with errno set) when it cannot be opened.
    bool create(const std::wstring& path);
    [[nodiscard]] bool is_open() const { return m_handle != kNoHandle; }
    // False when not every byte was written.
    bool write(const void* data, std::size_t size);
    // Appends up to `length` bytes of `source` from `offset` on, stopping early at its end;
    // the bytes do not pass through the caller (copy_file_range on Linux). Returns the number
    // of bytes appended; fewer than asked means the source ended or an error occurred.
    uint64_t append_range(const Input_File& source, uint64_t offset, uint64_t length);
    // Closes the file; false when the last writes could not be completed.
    bool close();

  private:
    static constexpr intptr_t kNoHandle = -1;
    intptr_t m_handle = kNoHandle;
};

// ---- Standard streams of the command-line tool

// Whether standard error is a terminal (a console on Windows).
bool standard_error_is_terminal();
// Standard output passes bytes unchanged from now on (no line-end translation on Windows).
void set_standard_output_binary();

}  // namespace vrk::platform
