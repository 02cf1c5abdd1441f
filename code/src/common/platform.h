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

// ---- Input files

// Whether the library's view of an input file maps it. Windows refuses to shorten a mapped file,
// so a map there is safe and saves a copy; elsewhere another process may truncate the file under
// a map, and the next access to a vanished page kills the process (SIGBUS), so the input is read
// with positioned reads into buffers the library owns.
inline constexpr bool kMapsInput = kWindows;

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

// ---- Folders without following links (scratch folders)

// Empties `folder` (a trailing separator is allowed), keeping it. The folder itself is opened
// without following a link: a symbolic link or junction standing there is removed as a link,
// nothing behind it touched, and an empty folder is made in its place. Entries inside are
// removed without following links, read-only ones too; attributes are changed only on the
// entries themselves, never through a link. Throws std::filesystem::filesystem_error (a
// missing folder, a file standing there, an entry that cannot be removed).
void clear_folder_no_follow(const std::wstring& folder);

// Removes `folder` with everything in it, as clear_folder_no_follow empties it. Throws
// std::filesystem::filesystem_error.
void remove_folder_no_follow(const std::wstring& folder);

// Creates a new folder of this process's own in `parent`: a unique name that begins with
// `prefix`, created exclusively (never an existing folder or link), readable only by its
// owner on POSIX (mode 0700; on Windows it takes the permissions of `parent`). The path, with
// a trailing separator, goes to `folder`; false with the system's error text on failure.
bool make_private_folder(const std::wstring& parent, const std::wstring& prefix,
                         std::wstring& folder, std::string& error_text);

// Backs `size` bytes of this process's memory from `data` with pages now, in one call, rather
// than one page fault at a time on first write (Linux MADV_POPULATE_WRITE; elsewhere nothing).
// Only pages wholly inside the range are touched; a hint whose failure changes nothing.
void populate_for_writing(void* data, std::size_t size);

// A read-only view of a whole file, unmapped (and its handles closed) when it goes.
struct Mapped_File {
    Mapped_File() = default;
    ~Mapped_File();
    Mapped_File(const Mapped_File&) = delete;
    Mapped_File& operator=(const Mapped_File&) = delete;

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

struct File_Identity;  // in the outputs' section below

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
    // The size of the open file; false (with errno set) when it cannot be had or the file is
    // not a regular file.
    [[nodiscard]] bool size(uint64_t& bytes) const;
    // Reads up to `size` bytes from `offset` on into `buffer`; fewer only at the file's end or
    // on an error. For whole-file passes: on some virtual machines touching every page of a
    // large mapping costs several times what copying the same bytes out of the cache does.
    std::size_t read_at(uint64_t offset, void* buffer, std::size_t size) const;
    // Which file is open (see File_Identity below); false when none is or it cannot be asked.
    [[nodiscard]] bool identity(File_Identity& identity) const;

  private:
    friend class Output_File;
    static constexpr intptr_t kNoHandle = -1;  // also INVALID_HANDLE_VALUE
    intptr_t m_handle = kNoHandle;
};

// ---- Outputs: file identity, how output files are created, folders created without links

// Which file a name or a handle reaches: device and inode on POSIX, volume serial number and
// file index on Windows. Two names of one file (hard links, a link and its target) are equal.
struct File_Identity {
    uint64_t volume = 0;
    uint64_t index = 0;
    bool operator==(const File_Identity& other) const {
        return volume == other.volume && index == other.index;
    }
    bool operator!=(const File_Identity& other) const { return !(*this == other); }
};

// Whether a final symbolic link (or reparse point) in a path is followed.
enum class Link_Rule { follow, no_follow };

// The identity of the file `path` names; false when it names nothing (or cannot be asked).
[[nodiscard]] bool identity_of(const std::wstring& path, Link_Rule rule, File_Identity& identity);
// True when `path`, through any final link, names the file `identity` names.
[[nodiscard]] bool is_same_file(const std::wstring& path, const File_Identity& identity);

enum class Create_Mode {
    replace,    // create, or truncate the file at the name (a link there is replaced)
    exclusive,  // a new file only, never through a link: a taken name gives exists
    staged,     // a new temporary file in the same folder; commit() renames it over the path
};

enum class Create_Result { created, exists, is_input, failed };

// Test hook: every Output_File of the process fails once `at` bytes of its file are written,
// as a full disk (the write reports an error) or a short write (the write stops early and then
// writes nothing). Off by default; when off it costs one relaxed load per write.
enum class Write_Fault { none, disk_full, short_write };
void set_write_fault_for_tests(Write_Fault fault, uint64_t at);

// A file created for writing; every write goes to its current end.
class Output_File {
  public:
    Output_File() = default;
    // An uncommitted staged file is removed.
    ~Output_File();
    Output_File(const Output_File&) = delete;
    Output_File& operator=(const Output_File&) = delete;

    // Creates or truncates `path`; false (with errno set) when it cannot be opened.
    [[nodiscard]] bool create(const std::wstring& path);
    // Creates `path` as `mode` says. With `input`, a path that reaches that file gives is_input
    // and nothing is opened, truncated or renamed; replace checks again on the open handle
    // before it truncates, so a name swapped in between is caught too.
    [[nodiscard]] Create_Result create(const std::wstring& path, Create_Mode mode,
                                       const File_Identity* input);
    [[nodiscard]] bool is_open() const { return m_handle != kNoHandle; }
    // False when not every byte was written.
    [[nodiscard]] bool write(const void* data, std::size_t size);
    // Appends up to `length` bytes of `source` from `offset` on, stopping early at its end;
    // the bytes do not pass through the caller (copy_file_range on Linux). Returns the number
    // of bytes appended; fewer than asked means the source ended or an error occurred.
    [[nodiscard]] uint64_t append_range(const Input_File& source, uint64_t offset, uint64_t length);
    // Overwrites bytes already written, from `offset` on (a header known only once the rest is
    // written); later writes still go to the end. Never extends the file: the part of `size`
    // past what was written is left out, and the answer is then false, as on a failed write.
    // Overwriting takes no new space, so the test hook leaves it alone.
    [[nodiscard]] bool write_at(uint64_t offset, const void* data, std::size_t size);
    // Sets aside room for `length` more bytes after what is already set aside, leaving the
    // file's size as it is, so that later writes find their space ready: on file systems that
    // allocate as they write (tmpfs), that moves most of a long write's cost to whoever calls
    // this, beside the writer. Room the writes did not take is given back when the file is
    // closed. False when the file system cannot do it (always on Windows).
    [[nodiscard]] bool reserve(uint64_t length);
    // Closes the file; false when the last writes could not be completed. A staged file stays
    // under its temporary name until commit() (or goes with the object).
    [[nodiscard]] bool close();
    // Closes the file and, when staged, renames it over its path (checking the input's
    // identity once more); false, with the temporary file removed, when either fails.
    [[nodiscard]] bool commit();

  private:
    friend class Output_Folder;
    static constexpr intptr_t kNoHandle = -1;
    void discard_staged();

    intptr_t m_handle = kNoHandle;
    uint64_t m_written = 0;      // bytes written so far, for the test hook
    uint64_t m_reserved = 0;     // bytes set aside by reserve(), from the start of the file
    std::wstring m_staged_path;  // the temporary name of a staged file until committed
    std::wstring m_final_path;
    bool m_check_input = false;
    File_Identity m_input;
};

// A folder held open, in which folders and files are created by name, exclusively and never
// through a link. While it is held the folder cannot be swapped for a link: on POSIX the
// names are resolved against the open folder (mkdirat, openat with O_NOFOLLOW), on Windows the
// folder is open without delete sharing, so it can be neither renamed nor removed.
class Output_Folder {
  public:
    Output_Folder() = default;
    ~Output_Folder();
    Output_Folder(Output_Folder&& other) noexcept;
    Output_Folder& operator=(Output_Folder&& other) noexcept;
    Output_Folder(const Output_Folder&) = delete;
    Output_Folder& operator=(const Output_Folder&) = delete;

    // Opens `path`, creating it and its parents when missing. The caller named this folder, so
    // links on the way to it are followed.
    [[nodiscard]] bool open(const std::wstring& path);
    [[nodiscard]] bool is_open() const { return m_handle != kNoHandle; }
    void close();
    // Creates the folder `name` (one component) in this one and opens it as `child`; exists
    // when the name is taken by anything, a link included.
    [[nodiscard]] Create_Result make_folder(const std::wstring& name, Output_Folder& child) const;
    // Creates the file `name` (one component) in this folder for writing; exists when the
    // name is taken by anything, a link included.
    [[nodiscard]] Create_Result create_file(const std::wstring& name, Output_File& file) const;
    // Removes the entry `name` of this folder, a file this object created and could not finish
    // (a link there is removed as a link, never followed).
    void remove_file(const std::wstring& name) const;
    // The folder's path, for messages and (Windows) for naming its entries.
    [[nodiscard]] const std::wstring& path() const { return m_path; }

  private:
    static constexpr intptr_t kNoHandle = -1;
    intptr_t m_handle = kNoHandle;
    std::wstring m_path;
};

// ---- Standard streams of the command-line tool

// Whether standard error is a terminal (a console on Windows).
bool standard_error_is_terminal();
// Standard output passes bytes unchanged from now on (no line-end translation on Windows).
void set_standard_output_binary();

}  // namespace vrk::platform
