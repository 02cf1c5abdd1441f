// POSIX side of the platform layer: UTF-8 narrow text, kernel thread ids, statvfs, mmap.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "common/platform.h"
#include "common/unicode.h"

namespace vrk::platform {

namespace stdfs = std::filesystem;

std::wstring widen(const std::string& narrow) {
    return unicode::utf8_to_wide(narrow);
}

std::string narrow(const std::wstring& wide) {
    return unicode::wide_to_utf8(wide);
}

std::string to_utf8(const std::wstring& wide) {
    return unicode::wide_to_utf8(wide);
}

std::wstring from_utf8(const std::string& utf8) {
    return unicode::utf8_to_wide(utf8);
}

std::wstring from_utf16(const char16_t* units, std::size_t count) {
    return unicode::utf16_to_wide(units, count);
}

stdfs::path to_path(const std::wstring& wide) {
    return stdfs::path(to_utf8(wide));
}

std::wstring from_path(const stdfs::path& path) {
    return from_utf8(path.native());
}

std::wstring make_absolute(const std::wstring& path) {
    if (path.empty()) return path;
    std::error_code ec;
    const stdfs::path absolute = stdfs::absolute(to_path(path), ec);
    if (ec) return path;
    // Lexical clean-up of "." and "..", as the Windows full-path call does.
    return from_path(absolute.lexically_normal());
}

bool available_space(const std::wstring& path, uint64_t& bytes) {
    // The volume is that of the nearest folder that exists, so a path still to be created
    // reports the space it will get.
    std::error_code ec;
    stdfs::path probe = stdfs::absolute(path.empty() ? stdfs::path(".") : to_path(path), ec);
    if (ec) return false;
    while (!stdfs::is_directory(probe, ec)) {
        if (!probe.has_relative_path()) break;
        probe = probe.parent_path();
    }
    struct statvfs info {};
    if (::statvfs(probe.c_str(), &info) != 0) return false;
    bytes = static_cast<uint64_t>(info.f_bavail) * static_cast<uint64_t>(info.f_frsize);
    return true;
}

bool temp_directory(std::wstring& folder, std::string& error_text) {
    std::error_code ec;
    const stdfs::path temp = stdfs::temp_directory_path(ec);
    if (ec) {
        error_text = ec.message();
        return false;
    }
    folder = from_path(temp);
    if (folder.empty() || folder.back() != kSeparator) folder.push_back(kSeparator);
    return true;
}

uint32_t current_thread_id() {
    return static_cast<uint32_t>(::gettid());
}

uint32_t current_process_id() {
    return static_cast<uint32_t>(::getpid());
}

std::string errno_text() {
    return std::generic_category().message(errno);
}

void set_normal_attributes(const stdfs::path& path) {
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0 || S_ISLNK(info.st_mode)) return;
    const mode_t wanted = S_ISDIR(info.st_mode) ? S_IRWXU : (S_IRUSR | S_IWUSR);
    if ((info.st_mode & wanted) != wanted) ::chmod(path.c_str(), info.st_mode | wanted);
}

bool is_link(const stdfs::path& path) {
    std::error_code ec;
    return stdfs::is_symlink(stdfs::symlink_status(path, ec));
}

void remove_link(const stdfs::path& path) {
    if (::unlink(path.c_str()) != 0) {
        throw stdfs::filesystem_error("remove_link", path,
                                      std::error_code(errno, std::generic_category()));
    }
}

Map_Step map_file(const std::wstring& path, Mapped_File& mapped) {
    const stdfs::path native = to_path(path);
    const int fd = ::open(native.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return Map_Step::open_file;
    struct stat info {};
    if (::fstat(fd, &info) != 0) {
        const int saved = errno;
        ::close(fd);
        errno = saved;
        return Map_Step::create_mapping;
    }
    // A mapping of nothing is refused, as the Windows mapping call refuses an empty file.
    if (info.st_size <= 0 || !S_ISREG(info.st_mode)) {
        ::close(fd);
        errno = EINVAL;
        return Map_Step::create_mapping;
    }
    const auto size = static_cast<uint64_t>(info.st_size);
    void* view = ::mmap(nullptr, static_cast<std::size_t>(size), PROT_READ, MAP_PRIVATE, fd, 0);
    const int saved = errno;
    ::close(fd);  // the mapping keeps the file referenced
    if (view == MAP_FAILED) {
        errno = saved;
        return Map_Step::map_view;
    }
    mapped.data = static_cast<const uint8_t*>(view);
    mapped.size = size;
    return Map_Step::ok;
}

bool unmap_file(Mapped_File& mapped) {
    if (mapped.data == nullptr) return true;
    const bool ok =
        ::munmap(const_cast<uint8_t*>(mapped.data), static_cast<std::size_t>(mapped.size)) == 0;
    mapped.data = nullptr;
    mapped.size = 0;
    return ok;
}

}  // namespace vrk::platform
