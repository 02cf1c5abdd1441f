// Windows side of the platform layer: process code page for narrow text, W-APIs for paths,
// file mapping for reads, large blocks for copies between files.
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "common/platform.h"

namespace vrk::platform {

namespace stdfs = std::filesystem;

namespace {

// The mapping texts come from errno, so the system's last error is carried over into it.
void set_errno_from_last_error(DWORD error) {
    switch (error) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
        case ERROR_INVALID_DRIVE:
            errno = ENOENT;
            break;
        case ERROR_ACCESS_DENIED:
        case ERROR_SHARING_VIOLATION:
        case ERROR_LOCK_VIOLATION:
            errno = EACCES;
            break;
        case ERROR_NOT_ENOUGH_MEMORY:
        case ERROR_OUTOFMEMORY:
            errno = ENOMEM;
            break;
        case ERROR_TOO_MANY_OPEN_FILES:
            errno = EMFILE;
            break;
        default:
            errno = EINVAL;
            break;
    }
}

std::wstring multibyte_to_wide(UINT code_page, const std::string& text) {
    if (text.empty()) return {};
    const int count =
        ::MultiByteToWideChar(code_page, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    if (count <= 0) return {};
    std::wstring out(static_cast<std::size_t>(count), L'\0');
    ::MultiByteToWideChar(code_page, 0, text.data(), static_cast<int>(text.size()), out.data(),
                          count);
    return out;
}

std::string wide_to_multibyte(UINT code_page, const std::wstring& text) {
    if (text.empty()) return {};
    const int count = ::WideCharToMultiByte(
        code_page, 0, text.data(), static_cast<int>(text.size()), nullptr, 0, nullptr, nullptr);
    if (count <= 0) return {};
    std::string out(static_cast<std::size_t>(count), '\0');
    ::WideCharToMultiByte(code_page, 0, text.data(), static_cast<int>(text.size()), out.data(),
                          count, nullptr, nullptr);
    return out;
}

}  // namespace

std::wstring widen(const std::string& narrow) {
    return multibyte_to_wide(CP_ACP, narrow);
}

std::string narrow(const std::wstring& wide) {
    return wide_to_multibyte(CP_ACP, wide);
}

stdfs::path to_path(const std::wstring& wide) {
    return stdfs::path(wide);
}

std::wstring from_path(const stdfs::path& path) {
    return path.native();
}

std::wstring make_absolute(const std::wstring& path) {
    if (path.empty()) return path;
    const DWORD needed = ::GetFullPathNameW(path.c_str(), 0, nullptr, nullptr);
    if (needed == 0) return path;
    std::vector<wchar_t> buffer(needed + 1, L'\0');
    const DWORD written =
        ::GetFullPathNameW(path.c_str(), static_cast<DWORD>(buffer.size()), buffer.data(), nullptr);
    if (written == 0 || written >= buffer.size()) return path;
    return std::wstring(buffer.data(), written);
}

bool available_space(const std::wstring& path, uint64_t& bytes) {
    // The drive root such as "C:\": only the first three characters are asked about.
    const std::wstring root = path.substr(0, 3);
    ULARGE_INTEGER available{};
    if (!::GetDiskFreeSpaceExW(root.c_str(), &available, nullptr, nullptr)) return false;
    bytes = available.QuadPart;
    return true;
}

bool temp_directory(std::wstring& folder, std::string& error_text) {
    wchar_t buffer[MAX_PATH + 2] = {};
    const DWORD length = ::GetTempPathW(MAX_PATH + 1, buffer);
    if (length == 0 || length > MAX_PATH + 1) {
        error_text = std::system_category().message(static_cast<int>(::GetLastError()));
        return false;
    }
    folder.assign(buffer, length);
    return true;
}

uint32_t current_thread_id() {
    return static_cast<uint32_t>(::GetCurrentThreadId());
}

void populate_for_writing(void* /*data*/, std::size_t /*size*/) {}

uint32_t current_process_id() {
    return static_cast<uint32_t>(::GetCurrentProcessId());
}

std::string errno_text() {
    return std::generic_category().message(errno);
}

void set_normal_attributes(const stdfs::path& path) {
    ::SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
}

bool is_link(const stdfs::path& path) {
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    return attributes != INVALID_FILE_ATTRIBUTES &&
           (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

void remove_link(const stdfs::path& path) {
    const DWORD attributes = ::GetFileAttributesW(path.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_READONLY) != 0) {
        ::SetFileAttributesW(path.c_str(),
                             attributes & ~static_cast<DWORD>(FILE_ATTRIBUTE_READONLY));
    }
    // A junction or a link to a folder is removed as a folder entry, which deletes only the
    // reparse point, never the target's contents.
    const bool folder_link =
        attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    const BOOL ok = folder_link ? ::RemoveDirectoryW(path.c_str()) : ::DeleteFileW(path.c_str());
    if (!ok) {
        throw stdfs::filesystem_error(
            "remove_link", path,
            std::error_code(static_cast<int>(::GetLastError()), std::system_category()));
    }
}

Map_Step map_file(const std::wstring& path, Mapped_File& mapped) {
    HANDLE file = ::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        set_errno_from_last_error(::GetLastError());
        return Map_Step::open_file;
    }
    LARGE_INTEGER size{};
    const BOOL got_size = ::GetFileSizeEx(file, &size);
    if (!got_size || size.QuadPart <= 0) {
        // The mapping call refuses an empty file; failing here gives the same step everywhere.
        const DWORD error = got_size ? ERROR_FILE_INVALID : ::GetLastError();
        ::CloseHandle(file);
        set_errno_from_last_error(error);
        return Map_Step::create_mapping;
    }
    HANDLE mapping = ::CreateFileMappingW(file, nullptr, PAGE_READONLY, 0, 0, nullptr);
    if (mapping == nullptr) {
        const DWORD error = ::GetLastError();
        ::CloseHandle(file);
        set_errno_from_last_error(error);
        return Map_Step::create_mapping;
    }
    const void* view = ::MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0);
    if (view == nullptr) {
        const DWORD error = ::GetLastError();
        ::CloseHandle(mapping);
        ::CloseHandle(file);
        set_errno_from_last_error(error);
        return Map_Step::map_view;
    }
    mapped.data = static_cast<const uint8_t*>(view);
    mapped.size = static_cast<uint64_t>(size.QuadPart);
    mapped.file_handle = file;
    mapped.mapping_handle = mapping;
    return Map_Step::ok;
}

Mapped_File::~Mapped_File() {
    unmap_file(*this);
}

bool unmap_file(Mapped_File& mapped) {
    bool ok = true;
    if (mapped.data != nullptr && !::UnmapViewOfFile(mapped.data)) {
        set_errno_from_last_error(::GetLastError());
        ok = false;
    }
    if (mapped.mapping_handle != nullptr) ::CloseHandle(mapped.mapping_handle);
    if (mapped.file_handle != nullptr) ::CloseHandle(mapped.file_handle);
    mapped.data = nullptr;
    mapped.size = 0;
    mapped.file_handle = nullptr;
    mapped.mapping_handle = nullptr;
    return ok;
}

namespace {

HANDLE native_handle(intptr_t handle) {
    return reinterpret_cast<HANDLE>(handle);
}

std::atomic<Write_Fault> g_write_fault{Write_Fault::none};
std::atomic<uint64_t> g_write_fault_at{0};

// How many of `wanted` bytes may go to a file that holds `written` bytes before the test
// hook's fault strikes: all of them while the hook is off.
std::size_t bytes_before_fault(uint64_t written, std::size_t wanted, Write_Fault& fault) {
    fault = g_write_fault.load(std::memory_order_relaxed);
    if (fault == Write_Fault::none) return wanted;
    const uint64_t at = g_write_fault_at.load(std::memory_order_relaxed);
    return static_cast<std::size_t>(std::min<uint64_t>(at - std::min(at, written), wanted));
}

// Writes everything at the handle's position; false on the first failed or empty write.
bool write_all(HANDLE file, const uint8_t* data, std::size_t size, uint64_t& written) {
    while (size > 0) {
        Write_Fault fault = Write_Fault::none;
        const std::size_t allowed =
            bytes_before_fault(written, std::min<std::size_t>(size, std::size_t{1} << 30), fault);
        if (allowed == 0) {
            // The test hook: a full disk reports an error, a short write just writes nothing.
            errno = fault == Write_Fault::disk_full ? ENOSPC : EIO;
            return false;
        }
        DWORD done = 0;
        if (!::WriteFile(file, data, static_cast<DWORD>(allowed), &done, nullptr) || done == 0) {
            set_errno_from_last_error(::GetLastError());
            return false;
        }
        data += done;
        size -= done;
        written += done;
    }
    return true;
}

File_Identity identity_from(const BY_HANDLE_FILE_INFORMATION& info) {
    return File_Identity{info.dwVolumeSerialNumber,
                         (static_cast<uint64_t>(info.nFileIndexHigh) << 32) | info.nFileIndexLow};
}

bool identity_of_handle(HANDLE file, File_Identity& identity) {
    BY_HANDLE_FILE_INFORMATION info{};
    if (!::GetFileInformationByHandle(file, &info)) return false;
    identity = identity_from(info);
    return true;
}

bool is_exists_error(DWORD error) {
    return error == ERROR_FILE_EXISTS || error == ERROR_ALREADY_EXISTS;
}

// A name for a staged file in `folder` (empty: the current folder) that no other writer of
// this process or another one picks: the process id and a counter.
std::wstring staged_name(const stdfs::path& folder) {
    static std::atomic<uint32_t> counter{0};
    const std::wstring name = L".cfbvornak-" + std::to_wstring(::GetCurrentProcessId()) + L"-" +
                              std::to_wstring(counter.fetch_add(1)) + L".tmp";
    return folder.empty() ? name : (folder / name).native();
}

// Share modes of a held output folder: no delete sharing, so that nobody can rename it,
// remove it or put a link in its place while entries are made in it.
constexpr DWORD kFolderShare = FILE_SHARE_READ | FILE_SHARE_WRITE;

HANDLE open_folder(const std::wstring& path, DWORD extra_flags) {
    return ::CreateFileW(path.c_str(), FILE_LIST_DIRECTORY | FILE_READ_ATTRIBUTES, kFolderShare,
                         nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | extra_flags, nullptr);
}

}  // namespace

Input_File::~Input_File() {
    close();
}

bool Input_File::open(const std::wstring& path) {
    close();
    // Sharing as the C library's own opens do, so that a mapping of the same file coexists.
    HANDLE file = ::CreateFileW(path.c_str(), GENERIC_READ,
                                FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        set_errno_from_last_error(::GetLastError());
        return false;
    }
    m_handle = reinterpret_cast<intptr_t>(file);
    return true;
}

void Input_File::close() {
    if (m_handle != kNoHandle) ::CloseHandle(native_handle(m_handle));
    m_handle = kNoHandle;
}

bool Input_File::size(uint64_t& bytes) const {
    if (!is_open()) {
        errno = EBADF;
        return false;
    }
    if (::GetFileType(native_handle(m_handle)) != FILE_TYPE_DISK) {
        errno = EINVAL;
        return false;
    }
    LARGE_INTEGER size{};
    if (!::GetFileSizeEx(native_handle(m_handle), &size)) {
        set_errno_from_last_error(::GetLastError());
        return false;
    }
    bytes = size.QuadPart > 0 ? static_cast<uint64_t>(size.QuadPart) : 0;
    return true;
}

std::size_t Input_File::read_at(uint64_t offset, void* buffer, std::size_t size) const {
    if (!is_open()) return 0;
    auto* out = static_cast<uint8_t*>(buffer);
    std::size_t done = 0;
    while (done < size) {
        const uint64_t at = offset + done;
        if (at < offset) break;  // past the largest offset
        // Reads name their offset, so the handle's own position plays no part.
        OVERLAPPED position{};
        position.Offset = static_cast<DWORD>(at);
        position.OffsetHigh = static_cast<DWORD>(at >> 32);
        const auto want = static_cast<DWORD>(std::min<std::size_t>(size - done, DWORD{1} << 30));
        DWORD got = 0;
        if (!::ReadFile(native_handle(m_handle), out + done, want, &got, &position)) {
            const DWORD error = ::GetLastError();
            if (error != ERROR_HANDLE_EOF) set_errno_from_last_error(error);
            break;
        }
        if (got == 0) break;
        done += got;
    }
    return done;
}

bool Input_File::identity(File_Identity& identity) const {
    return is_open() && identity_of_handle(native_handle(m_handle), identity);
}

// ---- Outputs: file identity, how output files are created, folders created without links

bool identity_of(const std::wstring& path, Link_Rule rule, File_Identity& identity) {
    // No access asked for: this open never meets a sharing violation.
    const DWORD flags = FILE_FLAG_BACKUP_SEMANTICS |
                        (rule == Link_Rule::no_follow ? FILE_FLAG_OPEN_REPARSE_POINT : 0);
    HANDLE file =
        ::CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                      nullptr, OPEN_EXISTING, flags, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    const bool known = identity_of_handle(file, identity);
    ::CloseHandle(file);
    return known;
}

bool is_same_file(const std::wstring& path, const File_Identity& identity) {
    File_Identity found;
    return identity_of(path, Link_Rule::follow, found) && found == identity;
}

void set_write_fault_for_tests(Write_Fault fault, uint64_t at) {
    g_write_fault_at.store(at, std::memory_order_relaxed);
    g_write_fault.store(fault, std::memory_order_relaxed);
}

Output_File::~Output_File() {
    discard_staged();
}

bool Output_File::create(const std::wstring& path) {
    return create(path, Create_Mode::replace, nullptr) == Create_Result::created;
}

Create_Result Output_File::create(const std::wstring& path, Create_Mode mode,
                                  const File_Identity* input) {
    discard_staged();
    m_written = 0;
    m_check_input = input != nullptr;
    if (input != nullptr) m_input = *input;
    if (input != nullptr && mode != Create_Mode::exclusive && is_same_file(path, *input)) {
        return Create_Result::is_input;
    }
    if (mode == Create_Mode::exclusive) {
        // A new file is never the input, and CREATE_NEW on the reparse point itself refuses
        // a link of any kind.
        HANDLE file =
            ::CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_NEW,
                          FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
        if (file == INVALID_HANDLE_VALUE) {
            const DWORD error = ::GetLastError();
            set_errno_from_last_error(error);
            return is_exists_error(error) ? Create_Result::exists : Create_Result::failed;
        }
        m_handle = reinterpret_cast<intptr_t>(file);
        return Create_Result::created;
    }
    if (mode == Create_Mode::staged) {
        const stdfs::path folder = stdfs::path(path).parent_path();
        for (;;) {
            const std::wstring temp = staged_name(folder);
            HANDLE file =
                ::CreateFileW(temp.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_NEW,
                              FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
            if (file == INVALID_HANDLE_VALUE) {
                const DWORD error = ::GetLastError();
                if (is_exists_error(error)) continue;
                set_errno_from_last_error(error);
                return Create_Result::failed;
            }
            m_handle = reinterpret_cast<intptr_t>(file);
            m_staged_path = temp;
            m_final_path = path;
            return Create_Result::created;
        }
    }
    // Opened without truncation first, on the entry itself, never through a link: the handle
    // tells which file the name reached. A link at the name is removed and a new file made in
    // its place, as on POSIX; a link to a folder cannot be opened for writing, so a failed open
    // looks for one too.
    constexpr DWORD kEntry = FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT;
    HANDLE file = ::CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                                kEntry, nullptr);
    DWORD error = file == INVALID_HANDLE_VALUE ? ::GetLastError() : ERROR_SUCCESS;
    BY_HANDLE_FILE_INFORMATION entry{};
    bool known = file != INVALID_HANDLE_VALUE && ::GetFileInformationByHandle(file, &entry);
    const bool at_link = known ? (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0
                               : file == INVALID_HANDLE_VALUE && is_link(path);
    if (at_link) {
        if (file != INVALID_HANDLE_VALUE) ::CloseHandle(file);
        try {
            remove_link(path);
        } catch (const stdfs::filesystem_error&) {
            errno = EEXIST;
            return Create_Result::failed;
        }
        file = ::CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_NEW,
                             kEntry, nullptr);
        error = file == INVALID_HANDLE_VALUE ? ::GetLastError() : ERROR_SUCCESS;
        known = file != INVALID_HANDLE_VALUE && ::GetFileInformationByHandle(file, &entry);
    }
    if (file == INVALID_HANDLE_VALUE) {
        set_errno_from_last_error(error);
        return Create_Result::failed;
    }
    if (!known || (input != nullptr && identity_from(entry) == *input)) {
        ::CloseHandle(file);
        errno = EEXIST;
        return known ? Create_Result::is_input : Create_Result::failed;
    }
    if (!::SetEndOfFile(file)) {
        set_errno_from_last_error(::GetLastError());
        ::CloseHandle(file);
        return Create_Result::failed;
    }
    m_handle = reinterpret_cast<intptr_t>(file);
    return Create_Result::created;
}

bool Output_File::write(const void* data, std::size_t size) {
    return is_open() &&
           write_all(native_handle(m_handle), static_cast<const uint8_t*>(data), size, m_written);
}

uint64_t Output_File::append_range(const Input_File& source, uint64_t offset, uint64_t length) {
    if (!is_open() || !source.is_open()) return 0;
    // Large blocks keep the number of system calls small.
    constexpr std::size_t kBlock = std::size_t{8} << 20;
    std::vector<uint8_t> block(static_cast<std::size_t>(std::min<uint64_t>(length, kBlock)));
    uint64_t copied = 0;
    while (copied < length) {
        const auto want =
            static_cast<std::size_t>(std::min<uint64_t>(block.size(), length - copied));
        const std::size_t got = source.read_at(offset + copied, block.data(), want);
        if (got == 0 || !write_all(native_handle(m_handle), block.data(), got, m_written)) break;
        copied += got;
    }
    return copied;
}

bool Output_File::write_at(uint64_t offset, const void* data, std::size_t size) {
    if (!is_open() || offset > m_written) return false;
    const auto inside = static_cast<std::size_t>(std::min<uint64_t>(size, m_written - offset));
    const auto* bytes = static_cast<const uint8_t*>(data);
    HANDLE file = native_handle(m_handle);
    std::size_t done = 0;
    bool ok = true;
    while (ok && done < inside) {
        const uint64_t at = offset + done;
        OVERLAPPED where{};
        where.Offset = static_cast<DWORD>(at);
        where.OffsetHigh = static_cast<DWORD>(at >> 32);
        DWORD wrote = 0;
        const auto want = static_cast<DWORD>(std::min<std::size_t>(inside - done, 1u << 30));
        ok = ::WriteFile(file, bytes + done, want, &wrote, &where) != 0 && wrote != 0;
        if (!ok) set_errno_from_last_error(::GetLastError());
        done += wrote;
    }
    // A positioned write moves the file pointer: later writes go to the end again.
    LARGE_INTEGER none{};
    ok = ::SetFilePointerEx(file, none, nullptr, FILE_END) != 0 && ok;
    return ok && inside == size;
}

bool Output_File::reserve(uint64_t /*length*/) {
    return false;
}

bool Output_File::close() {
    if (m_handle == kNoHandle) return true;
    const bool ok = ::CloseHandle(native_handle(m_handle)) != 0;
    m_handle = kNoHandle;
    return ok;
}

bool Output_File::commit() {
    const bool closed = close();
    if (m_staged_path.empty()) return closed;
    // The name may have come to reach the input since the file was created.
    const bool refused = m_check_input && is_same_file(m_final_path, m_input);
    if (!closed || refused ||
        !::MoveFileExW(m_staged_path.c_str(), m_final_path.c_str(), MOVEFILE_REPLACE_EXISTING)) {
        if (refused) {
            errno = EEXIST;
        } else if (closed) {
            set_errno_from_last_error(::GetLastError());
        }
        discard_staged();
        return false;
    }
    m_staged_path.clear();
    return true;
}

void Output_File::discard_staged() {
    (void)close();  // the file is going away: how its last writes ended no longer matters
    if (m_staged_path.empty()) return;
    const int saved = errno;
    ::DeleteFileW(m_staged_path.c_str());
    errno = saved;
    m_staged_path.clear();
}

Output_Folder::~Output_Folder() {
    close();
}

Output_Folder::Output_Folder(Output_Folder&& other) noexcept
    : m_handle(other.m_handle), m_path(std::move(other.m_path)) {
    other.m_handle = kNoHandle;
}

Output_Folder& Output_Folder::operator=(Output_Folder&& other) noexcept {
    if (this != &other) {
        close();
        m_handle = other.m_handle;
        m_path = std::move(other.m_path);
        other.m_handle = kNoHandle;
    }
    return *this;
}

bool Output_Folder::open(const std::wstring& path) {
    close();
    std::error_code ec;
    stdfs::create_directories(stdfs::path(path), ec);
    HANDLE folder = open_folder(path, 0);
    if (folder == INVALID_HANDLE_VALUE) {
        set_errno_from_last_error(::GetLastError());
        return false;
    }
    m_handle = reinterpret_cast<intptr_t>(folder);
    m_path = path;
    return true;
}

void Output_Folder::close() {
    if (m_handle != kNoHandle) ::CloseHandle(native_handle(m_handle));
    m_handle = kNoHandle;
}

Create_Result Output_Folder::make_folder(const std::wstring& name, Output_Folder& child) const {
    child.close();
    if (!is_open()) return Create_Result::failed;
    const std::wstring path = m_path + kSeparator + name;
    if (!::CreateDirectoryW(path.c_str(), nullptr)) {
        const DWORD error = ::GetLastError();
        set_errno_from_last_error(error);
        return is_exists_error(error) ? Create_Result::exists : Create_Result::failed;
    }
    // Swapped for a link since it was made: the reparse point itself opens, and is refused.
    HANDLE folder = open_folder(path, FILE_FLAG_OPEN_REPARSE_POINT);
    if (folder == INVALID_HANDLE_VALUE) {
        set_errno_from_last_error(::GetLastError());
        return Create_Result::failed;
    }
    BY_HANDLE_FILE_INFORMATION info{};
    if (!::GetFileInformationByHandle(folder, &info) ||
        (info.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 ||
        (info.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        ::CloseHandle(folder);
        errno = EEXIST;
        return Create_Result::failed;
    }
    child.m_handle = reinterpret_cast<intptr_t>(folder);
    child.m_path = path;
    return Create_Result::created;
}

Create_Result Output_Folder::create_file(const std::wstring& name, Output_File& file) const {
    if (!is_open()) {
        file.discard_staged();
        return Create_Result::failed;
    }
    return file.create(m_path + kSeparator + name, Create_Mode::exclusive, nullptr);
}

void Output_Folder::remove_file(const std::wstring& name) const {
    if (is_open()) ::DeleteFileW((m_path + kSeparator + name).c_str());
}

// ---- Standard streams of the command-line tool

bool standard_error_is_terminal() {
    return ::_isatty(::_fileno(stderr)) != 0;
}

void set_standard_output_binary() {
    std::fflush(stdout);
    ::_setmode(::_fileno(stdout), _O_BINARY);
}

// ---- Folders without following links (scratch folders)

namespace {

[[noreturn]] void throw_last_error(const char* operation, const std::wstring& path) {
    throw stdfs::filesystem_error(
        operation, stdfs::path(path),
        std::error_code(static_cast<int>(::GetLastError()), std::system_category()));
}

// A handle closed on every way out.
class Handle {
  public:
    explicit Handle(HANDLE handle) : m_handle(handle) {}
    ~Handle() {
        if (valid()) ::CloseHandle(m_handle);
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    [[nodiscard]] bool valid() const { return m_handle != INVALID_HANDLE_VALUE; }
    [[nodiscard]] HANDLE get() const { return m_handle; }

  private:
    HANDLE m_handle;
};

// Opens the entry `path` itself: a link or junction as such, never what it points to. While
// the handle is held nobody else may delete or rename the entry, so that a folder being
// walked cannot be swapped for a junction under the walk.
HANDLE open_entry(const std::wstring& path, DWORD access) {
    return ::CreateFileW(path.c_str(), access, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                         OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT,
                         nullptr);
}

DWORD attributes_of(HANDLE entry, const std::wstring& path) {
    BY_HANDLE_FILE_INFORMATION info{};
    if (!::GetFileInformationByHandle(entry, &info)) throw_last_error("clear_folder", path);
    return info.dwFileAttributes;
}

bool is_link_attribute(DWORD attributes) {
    return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
}

// Read-only entries cannot be deleted: the attribute is cleared through the entry's own
// handle, so on a link itself, never on its target.
void clear_read_only(HANDLE entry, DWORD attributes, const std::wstring& path) {
    if ((attributes & FILE_ATTRIBUTE_READONLY) == 0) return;
    constexpr DWORD kKept = FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM |
                            FILE_ATTRIBUTE_NOT_CONTENT_INDEXED | FILE_ATTRIBUTE_OFFLINE |
                            FILE_ATTRIBUTE_TEMPORARY;
    FILE_BASIC_INFO basic{};  // times of 0 are left as they are
    basic.FileAttributes = attributes & kKept;
    if (basic.FileAttributes == 0) basic.FileAttributes = FILE_ATTRIBUTE_NORMAL;
    if (!::SetFileInformationByHandle(entry, FileBasicInfo, &basic, sizeof(basic))) {
        throw_last_error("clear_folder", path);
    }
}

// The entry open at `entry` (a link itself, for a link) goes when its handle is closed.
void delete_on_close(HANDLE entry, const std::wstring& path) {
    FILE_DISPOSITION_INFO disposition{};
    disposition.DeleteFile = TRUE;
    if (!::SetFileInformationByHandle(entry, FileDispositionInfo, &disposition,
                                      sizeof(disposition))) {
        throw_last_error("clear_folder", path);
    }
}

// An entry of a folder listing: its name and the attributes the listing gave.
struct Listed_Entry {
    std::wstring name;
    DWORD attributes = 0;
};

// The entries of the folder open at `folder` (with FILE_LIST_DIRECTORY), "." and ".." left
// out, all read before any goes. The listing goes through the handle itself, not through the
// folder's path, so that it lists the folder the handle holds.
std::vector<Listed_Entry> list_entries(HANDLE folder, const std::wstring& path) {
    // 64 KB of 8-byte units: each record starts 8-byte aligned, as the system lays them out.
    std::vector<LONGLONG> buffer(8192);
    const auto* base = reinterpret_cast<const uint8_t*>(buffer.data());
    const std::size_t size = buffer.size() * sizeof(LONGLONG);
    std::vector<Listed_Entry> entries;
    for (FILE_INFO_BY_HANDLE_CLASS request = FileIdBothDirectoryRestartInfo;;
         request = FileIdBothDirectoryInfo) {
        if (!::GetFileInformationByHandleEx(folder, request, buffer.data(),
                                            static_cast<DWORD>(size))) {
            if (::GetLastError() == ERROR_NO_MORE_FILES) break;
            throw_last_error("clear_folder", path);
        }
        // The system wrote a chain of records into the buffer; each offset and name length is
        // checked against the buffer before it is read.
        std::size_t at = 0;
        while (at <= size && sizeof(FILE_ID_BOTH_DIR_INFO) <= size - at) {
            const auto* record = reinterpret_cast<const FILE_ID_BOTH_DIR_INFO*>(base + at);
            const std::size_t name_at = at + offsetof(FILE_ID_BOTH_DIR_INFO, FileName);
            if (record->FileNameLength > size - name_at) break;
            std::wstring name(record->FileName, record->FileNameLength / sizeof(WCHAR));
            if (name != L"." && name != L"..") {
                entries.push_back(Listed_Entry{std::move(name), record->FileAttributes});
            }
            if (record->NextEntryOffset == 0) break;
            at += record->NextEntryOffset;
        }
    }
    return entries;
}

bool is_real_folder(DWORD attributes) {
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 && !is_link_attribute(attributes);
}

// Removes everything inside the folder open at `folder`. Every entry is opened as itself and
// held while it is worked on: a real subfolder is emptied through its own handle, then every
// entry is deleted through its handle.
void clear_entries(HANDLE folder, const std::wstring& path) {
    for (const Listed_Entry& listed : list_entries(folder, path)) {
        const std::wstring entry_path = path + L'\\' + listed.name;
        // Listing a folder takes a right that a file need not grant: asked for folders only.
        const DWORD listing = is_real_folder(listed.attributes) ? FILE_LIST_DIRECTORY : 0;
        const Handle entry(open_entry(
            entry_path, DELETE | FILE_READ_ATTRIBUTES | FILE_WRITE_ATTRIBUTES | listing));
        if (!entry.valid()) {
            if (::GetLastError() == ERROR_FILE_NOT_FOUND) continue;  // gone meanwhile
            throw_last_error("clear_folder", entry_path);
        }
        const DWORD attributes = attributes_of(entry.get(), entry_path);
        if (is_real_folder(attributes)) {
            if (listing == 0) {
                // A file the listing saw became a folder: not emptied through a handle that
                // cannot list it.
                ::SetLastError(ERROR_DIR_NOT_EMPTY);
                throw_last_error("clear_folder", entry_path);
            }
            clear_entries(entry.get(), entry_path);
        }
        clear_read_only(entry.get(), attributes, entry_path);
        delete_on_close(entry.get(), entry_path);
    }
}

std::wstring without_trailing_separators(const std::wstring& folder) {
    std::wstring path = folder;
    while (path.size() > 1 && (path.back() == L'\\' || path.back() == L'/') &&
           !(path.size() == 3 && path[1] == L':')) {
        path.pop_back();
    }
    return path;
}

}  // namespace

void clear_folder_no_follow(const std::wstring& folder) {
    const std::wstring path = without_trailing_separators(folder);
    {
        // The folder's own attributes stay: a read-only folder keeps nothing from being
        // removed from it.
        const Handle held(open_entry(path, FILE_LIST_DIRECTORY | FILE_READ_ATTRIBUTES));
        if (!held.valid()) throw_last_error("clear_folder", path);
        const DWORD attributes = attributes_of(held.get(), path);
        if (!is_link_attribute(attributes)) {
            if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
                ::SetLastError(ERROR_DIRECTORY);
                throw_last_error("clear_folder", path);
            }
            clear_entries(held.get(), path);
            return;
        }
    }
    // A link or junction where the folder should be: the link goes, an empty folder takes its
    // place.
    {
        const Handle link(open_entry(path, DELETE | FILE_READ_ATTRIBUTES | FILE_WRITE_ATTRIBUTES));
        if (!link.valid()) throw_last_error("clear_folder", path);
        const DWORD attributes = attributes_of(link.get(), path);
        if (!is_link_attribute(attributes)) {
            ::SetLastError(ERROR_DIRECTORY);
            throw_last_error("clear_folder", path);
        }
        clear_read_only(link.get(), attributes, path);
        delete_on_close(link.get(), path);
    }
    if (!::CreateDirectoryW(path.c_str(), nullptr)) throw_last_error("clear_folder", path);
}

void remove_folder_no_follow(const std::wstring& folder) {
    clear_folder_no_follow(folder);
    const std::wstring path = without_trailing_separators(folder);
    if (!::RemoveDirectoryW(path.c_str())) throw_last_error("remove_folder", path);
}

bool make_private_folder(const std::wstring& parent, const std::wstring& prefix,
                         std::wstring& folder, std::string& error_text) {
    std::wstring base = parent;
    if (base.empty() || (base.back() != L'\\' && base.back() != L'/')) base.push_back(L'\\');
    base += prefix + std::to_wstring(::GetCurrentProcessId()) + L'_';
    LARGE_INTEGER counter{};
    ::QueryPerformanceCounter(&counter);
    uint64_t state = static_cast<uint64_t>(counter.QuadPart) ^ ::GetTickCount64();
    // CreateDirectoryW fails on any existing name, a link included: a name is never reused.
    for (int attempt = 0; attempt < 100; ++attempt) {
        state = state * 6364136223846793005ull + 1442695040888963407ull;
        std::wstring name = base;
        for (int digit = 60; digit >= 16; digit -= 4) {
            name.push_back(L"0123456789abcdef"[(state >> digit) & 0xF]);
        }
        if (::CreateDirectoryW(name.c_str(), nullptr)) {
            folder = name + L'\\';
            return true;
        }
        if (::GetLastError() != ERROR_ALREADY_EXISTS) break;
    }
    error_text = std::system_category().message(static_cast<int>(::GetLastError()));
    return false;
}

}  // namespace vrk::platform
