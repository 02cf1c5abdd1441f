// POSIX side of the platform layer: UTF-8 narrow text, kernel thread ids, statvfs, mmap,
// in-kernel copies between files.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <system_error>
#include <vector>

#include "common/platform.h"
#include "common/unicode.h"

namespace vrk::platform {

namespace stdfs = std::filesystem;

// Arguments and file-system names are bytes here: a name that is not UTF-8 keeps its bytes
// through the wide string (see unicode::bytes_to_wide), so that every such file can be opened.
std::wstring widen(const std::string& narrow) {
    return unicode::bytes_to_wide(narrow);
}

std::string narrow(const std::wstring& wide) {
    return unicode::wide_to_bytes(wide);
}

stdfs::path to_path(const std::wstring& wide) {
    return stdfs::path(unicode::wide_to_bytes(wide));
}

std::wstring from_path(const stdfs::path& path) {
    return unicode::bytes_to_wide(path.native());
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

void populate_for_writing(void* data, std::size_t size) {
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    if (page == 0 || size < page) return;
    // Whole pages only: from the first page boundary inside the range to the last.
    const std::size_t lead = (page - reinterpret_cast<uintptr_t>(data) % page) % page;
    const std::size_t length = (size - lead) / page * page;
    // Kernels before 5.14 refuse the advice; the pages then come on first write as usual.
    if (length > 0) ::madvise(static_cast<uint8_t*>(data) + lead, length, MADV_POPULATE_WRITE);
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

namespace {

int descriptor(intptr_t handle) {
    return static_cast<int>(handle);
}

// One call's worth: the kernel calls take at most about 2 GB at a time.
std::size_t chunk(uint64_t left) {
    return static_cast<std::size_t>(std::min<uint64_t>(left, uint64_t{1} << 30));
}

bool write_all(int fd, const uint8_t* data, std::size_t size) {
    while (size > 0) {
        const ssize_t done = ::write(fd, data, size);
        if (done < 0 && errno == EINTR) continue;
        if (done <= 0) return false;
        data += done;
        size -= static_cast<std::size_t>(done);
    }
    return true;
}

// The last resort: positioned reads into a buffer, written at the output's position.
uint64_t copy_by_reads(int in, int out, uint64_t offset, uint64_t length) {
    constexpr std::size_t kBlock = std::size_t{4} << 20;
    std::vector<uint8_t> block(static_cast<std::size_t>(std::min<uint64_t>(length, kBlock)));
    uint64_t copied = 0;
    while (copied < length) {
        const std::size_t want = std::min<std::size_t>(block.size(), chunk(length - copied));
        const ssize_t got = ::pread(in, block.data(), want, static_cast<off_t>(offset + copied));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0 || !write_all(out, block.data(), static_cast<std::size_t>(got))) break;
        copied += static_cast<uint64_t>(got);
    }
    return copied;
}

// Kernel-side copies: copy_file_range, then sendfile where the file systems or the kernel
// refuse it. Either may stop early (0 or an error) on files they do not support; the caller
// goes on with reads from where they stopped.
uint64_t copy_in_kernel(int in, int out, uint64_t offset, uint64_t length) {
    uint64_t copied = 0;
    bool use_sendfile = false;
    while (copied < length) {
        auto from = static_cast<off_t>(offset + copied);
        const ssize_t done =
            use_sendfile ? ::sendfile(out, in, &from, chunk(length - copied))
                         : ::copy_file_range(in, &from, out, nullptr, chunk(length - copied), 0);
        if (done < 0 && errno == EINTR) continue;
        if (done > 0) {
            copied += static_cast<uint64_t>(done);
            continue;
        }
        if (use_sendfile || done == 0) break;
        if (errno != EXDEV && errno != ENOSYS && errno != EOPNOTSUPP && errno != EINVAL) break;
        use_sendfile = true;
    }
    return copied;
}

}  // namespace

Input_File::~Input_File() {
    close();
}

bool Input_File::open(const std::wstring& path) {
    close();
    const int fd = ::open(to_path(path).c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    m_handle = fd;
    return true;
}

void Input_File::close() {
    if (m_handle != kNoHandle) ::close(descriptor(m_handle));
    m_handle = kNoHandle;
}

std::size_t Input_File::read_at(uint64_t offset, void* buffer, std::size_t size) const {
    const auto largest = static_cast<uint64_t>(std::numeric_limits<off_t>::max());
    if (!is_open() || offset > largest) return 0;
    auto* out = static_cast<uint8_t*>(buffer);
    std::size_t done = 0;
    while (done < size && offset + done <= largest) {
        const ssize_t got = ::pread(descriptor(m_handle), out + done, chunk(size - done),
                                    static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        done += static_cast<std::size_t>(got);
    }
    return done;
}

Output_File::~Output_File() {
    close();
}

bool Output_File::create(const std::wstring& path) {
    close();
    const int fd = ::open(to_path(path).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) return false;
    m_handle = fd;
    return true;
}

bool Output_File::write(const void* data, std::size_t size) {
    return is_open() && write_all(descriptor(m_handle), static_cast<const uint8_t*>(data), size);
}

uint64_t Output_File::append_range(const Input_File& source, uint64_t offset, uint64_t length) {
    if (!is_open() || !source.is_open()) return 0;
    // Offsets past what off_t holds cannot name a byte of any file.
    const auto largest = static_cast<uint64_t>(std::numeric_limits<off_t>::max());
    if (offset > largest) return 0;
    length = std::min(length, largest - offset);
    const int in = descriptor(source.m_handle);
    const int out = descriptor(m_handle);
    uint64_t copied = copy_in_kernel(in, out, offset, length);
    if (copied < length) copied += copy_by_reads(in, out, offset + copied, length - copied);
    return copied;
}

bool Output_File::close() {
    if (m_handle == kNoHandle) return true;
    const bool ok = ::close(descriptor(m_handle)) == 0;
    m_handle = kNoHandle;
    return ok;
}

// ---- Standard streams of the command-line tool

bool standard_error_is_terminal() {
    return ::isatty(STDERR_FILENO) == 1;
}

void set_standard_output_binary() {}

}  // namespace vrk::platform
