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
#include <cerrno>
#include <cstdio>
#include <system_error>
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

bool unmap_file(Mapped_File& mapped) {
    bool ok = true;
    if (mapped.data != nullptr && !::UnmapViewOfFile(mapped.data)) {
        set_errno_from_last_error(::GetLastError());
        ok = false;
    }
    if (mapped.mapping_handle != nullptr) ::CloseHandle(mapped.mapping_handle);
    if (mapped.file_handle != nullptr) ::CloseHandle(mapped.file_handle);
    mapped = Mapped_File{};
    return ok;
}

namespace {

HANDLE native_handle(intptr_t handle) {
    return reinterpret_cast<HANDLE>(handle);
}

// Writes everything at the handle's position; false on the first failed or empty write.
bool write_all(HANDLE file, const uint8_t* data, std::size_t size) {
    while (size > 0) {
        const auto want = static_cast<DWORD>(std::min<std::size_t>(size, std::size_t{1} << 30));
        DWORD written = 0;
        if (!::WriteFile(file, data, want, &written, nullptr) || written == 0) {
            set_errno_from_last_error(::GetLastError());
            return false;
        }
        data += written;
        size -= written;
    }
    return true;
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

Output_File::~Output_File() {
    close();
}

bool Output_File::create(const std::wstring& path) {
    close();
    HANDLE file = ::CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        set_errno_from_last_error(::GetLastError());
        return false;
    }
    m_handle = reinterpret_cast<intptr_t>(file);
    return true;
}

bool Output_File::write(const void* data, std::size_t size) {
    return is_open() && write_all(native_handle(m_handle), static_cast<const uint8_t*>(data), size);
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
        if (got == 0 || !write_all(native_handle(m_handle), block.data(), got)) break;
        copied += got;
    }
    return copied;
}

bool Output_File::close() {
    if (m_handle == kNoHandle) return true;
    const bool ok = ::CloseHandle(native_handle(m_handle)) != 0;
    m_handle = kNoHandle;
    return ok;
}

// ---- Standard streams of the command-line tool

bool standard_error_is_terminal() {
    return ::_isatty(::_fileno(stderr)) != 0;
}

void set_standard_output_binary() {
    std::fflush(stdout);
    ::_setmode(::_fileno(stdout), _O_BINARY);
}

}  // namespace vrk::platform
