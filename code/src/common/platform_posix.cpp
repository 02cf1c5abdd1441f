// POSIX side of the platform layer: UTF-8 narrow text, kernel thread ids, statvfs, mmap,
// in-kernel copies between files, outputs created relative to open folders, folders emptied
// without following links.
#include <dirent.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <string>
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

Mapped_File::~Mapped_File() {
    unmap_file(*this);
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

// One write call, answered as the kernel would answer it under the test hook.
ssize_t write_once(int fd, const uint8_t* data, std::size_t size, uint64_t written) {
    Write_Fault fault = Write_Fault::none;
    const std::size_t allowed = bytes_before_fault(written, size, fault);
    if (allowed == 0 && size > 0) {
        if (fault == Write_Fault::short_write) return 0;
        errno = ENOSPC;
        return -1;
    }
    return ::write(fd, data, allowed);
}

bool write_all(int fd, const uint8_t* data, std::size_t size, uint64_t& written) {
    while (size > 0) {
        const ssize_t done = write_once(fd, data, size, written);
        if (done < 0 && errno == EINTR) continue;
        if (done <= 0) return false;
        data += done;
        size -= static_cast<std::size_t>(done);
        written += static_cast<uint64_t>(done);
    }
    return true;
}

// The last resort: positioned reads into a buffer, written at the output's position.
uint64_t copy_by_reads(int in, int out, uint64_t offset, uint64_t length, uint64_t& written) {
    constexpr std::size_t kBlock = std::size_t{4} << 20;
    std::vector<uint8_t> block(static_cast<std::size_t>(std::min<uint64_t>(length, kBlock)));
    uint64_t copied = 0;
    while (copied < length) {
        const std::size_t want = std::min<std::size_t>(block.size(), chunk(length - copied));
        const ssize_t got = ::pread(in, block.data(), want, static_cast<off_t>(offset + copied));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0 || !write_all(out, block.data(), static_cast<std::size_t>(got), written)) {
            break;
        }
        copied += static_cast<uint64_t>(got);
    }
    return copied;
}

// Kernel-side copies: copy_file_range, then sendfile where the file systems or the kernel
// refuse it. Either may stop early (0 or an error) on files they do not support; the caller
// goes on with reads from where they stopped (and the test hook's fault strikes there).
uint64_t copy_in_kernel(int in, int out, uint64_t offset, uint64_t length, uint64_t& written) {
    uint64_t copied = 0;
    bool use_sendfile = false;
    while (copied < length) {
        Write_Fault fault = Write_Fault::none;
        const std::size_t want = bytes_before_fault(written, chunk(length - copied), fault);
        if (want == 0) break;
        auto from = static_cast<off_t>(offset + copied);
        const ssize_t done = use_sendfile ? ::sendfile(out, in, &from, want)
                                          : ::copy_file_range(in, &from, out, nullptr, want, 0);
        if (done < 0 && errno == EINTR) continue;
        if (done > 0) {
            copied += static_cast<uint64_t>(done);
            written += static_cast<uint64_t>(done);
            continue;
        }
        if (use_sendfile || done == 0) break;
        if (errno != EXDEV && errno != ENOSYS && errno != EOPNOTSUPP && errno != EINVAL) break;
        use_sendfile = true;
    }
    return copied;
}

File_Identity identity_from(const struct stat& info) {
    return File_Identity{static_cast<uint64_t>(info.st_dev), static_cast<uint64_t>(info.st_ino)};
}

bool identity_of_descriptor(int fd, File_Identity& identity) {
    struct stat info {};
    if (::fstat(fd, &info) != 0) return false;
    identity = identity_from(info);
    return true;
}

void close_keeping_errno(int fd) {
    const int saved = errno;
    ::close(fd);
    errno = saved;
}

// A name for a staged file in `folder` (empty: the current folder) that no other writer of
// this process or another one picks: the process id and a counter.
std::string staged_name(const stdfs::path& folder) {
    static std::atomic<uint32_t> counter{0};
    const std::string name = ".cfbvornak-" + std::to_string(::getpid()) + "-" +
                             std::to_string(counter.fetch_add(1)) + ".tmp";
    return (folder.empty() ? stdfs::path(name) : folder / name).native();
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

bool Input_File::size(uint64_t& bytes) const {
    if (!is_open()) {
        errno = EBADF;
        return false;
    }
    struct stat info {};
    if (::fstat(descriptor(m_handle), &info) != 0) return false;
    if (!S_ISREG(info.st_mode) || info.st_size < 0) {
        errno = EINVAL;
        return false;
    }
    bytes = static_cast<uint64_t>(info.st_size);
    return true;
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

bool Input_File::identity(File_Identity& identity) const {
    return is_open() && identity_of_descriptor(descriptor(m_handle), identity);
}

// ---- Outputs: file identity, how output files are created, folders created without links

bool identity_of(const std::wstring& path, Link_Rule rule, File_Identity& identity) {
    const stdfs::path native = to_path(path);
    struct stat info {};
    const int status =
        rule == Link_Rule::follow ? ::stat(native.c_str(), &info) : ::lstat(native.c_str(), &info);
    if (status != 0) return false;
    identity = identity_from(info);
    return true;
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
    m_reserved = 0;
    m_check_input = input != nullptr;
    if (input != nullptr) m_input = *input;
    if (input != nullptr && mode != Create_Mode::exclusive && is_same_file(path, *input)) {
        return Create_Result::is_input;
    }
    const stdfs::path native = to_path(path);
    constexpr int kWrite = O_WRONLY | O_CREAT | O_CLOEXEC;
    if (mode == Create_Mode::exclusive) {
        // A new file is never the input, and O_EXCL refuses a link of any kind.
        const int fd = ::open(native.c_str(), kWrite | O_EXCL | O_NOFOLLOW, 0666);
        if (fd < 0) return errno == EEXIST ? Create_Result::exists : Create_Result::failed;
        m_handle = fd;
        return Create_Result::created;
    }
    if (mode == Create_Mode::staged) {
        for (;;) {
            const std::string temp = staged_name(native.parent_path());
            const int fd = ::open(temp.c_str(), kWrite | O_EXCL | O_NOFOLLOW, 0666);
            if (fd < 0 && errno == EEXIST) continue;
            if (fd < 0) return Create_Result::failed;
            m_handle = fd;
            m_staged_path = widen(temp);
            m_final_path = path;
            return Create_Result::created;
        }
    }
    // Opened without truncation first: the handle tells which file the name reached. A link at
    // the name is never written through: it is removed and a new file made in its place.
    int fd = ::open(native.c_str(), kWrite | O_NOFOLLOW, 0666);
    if (fd < 0 && errno == ELOOP && ::unlink(native.c_str()) == 0) {
        fd = ::open(native.c_str(), kWrite | O_EXCL | O_NOFOLLOW, 0666);
    }
    if (fd < 0) return Create_Result::failed;
    if (input != nullptr) {
        File_Identity opened;
        const bool known = identity_of_descriptor(fd, opened);
        if (!known || opened == *input) {
            close_keeping_errno(fd);
            return known ? Create_Result::is_input : Create_Result::failed;
        }
    }
    if (::ftruncate(fd, 0) != 0) {
        close_keeping_errno(fd);
        return Create_Result::failed;
    }
    m_handle = fd;
    return Create_Result::created;
}

bool Output_File::write(const void* data, std::size_t size) {
    return is_open() &&
           write_all(descriptor(m_handle), static_cast<const uint8_t*>(data), size, m_written);
}

uint64_t Output_File::append_range(const Input_File& source, uint64_t offset, uint64_t length) {
    if (!is_open() || !source.is_open()) return 0;
    // Offsets past what off_t holds cannot name a byte of any file.
    const auto largest = static_cast<uint64_t>(std::numeric_limits<off_t>::max());
    if (offset > largest) return 0;
    length = std::min(length, largest - offset);
    const int in = descriptor(source.m_handle);
    const int out = descriptor(m_handle);
    uint64_t copied = copy_in_kernel(in, out, offset, length, m_written);
    if (copied < length) {
        copied += copy_by_reads(in, out, offset + copied, length - copied, m_written);
    }
    return copied;
}

bool Output_File::write_at(uint64_t offset, const void* data, std::size_t size) {
    if (!is_open() || offset > m_written) return false;
    const auto inside = static_cast<std::size_t>(std::min<uint64_t>(size, m_written - offset));
    const auto* bytes = static_cast<const uint8_t*>(data);
    std::size_t done = 0;
    while (done < inside) {
        const ssize_t got = ::pwrite(descriptor(m_handle), bytes + done, chunk(inside - done),
                                     static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        done += static_cast<std::size_t>(got);
    }
    return inside == size;
}

bool Output_File::reserve(uint64_t length) {
    const auto largest = static_cast<uint64_t>(std::numeric_limits<off_t>::max());
    if (!is_open() || m_reserved > largest || length > largest - m_reserved) return false;
    // Disk file systems allocate at write-back, and space set aside there must be converted
    // when written, which costs more than it saves.
    struct statfs volume {};
    if (::fstatfs(descriptor(m_handle), &volume) != 0 || volume.f_type != TMPFS_MAGIC) return false;
    if (::fallocate(descriptor(m_handle), FALLOC_FL_KEEP_SIZE, static_cast<off_t>(m_reserved),
                    static_cast<off_t>(length)) != 0) {
        return false;
    }
    m_reserved += length;
    return true;
}

bool Output_File::close() {
    if (m_handle == kNoHandle) return true;
    // Space set aside past the end stays with the file until it is cut there; how that ends
    // changes none of the file's bytes.
    if (m_reserved > m_written)
        (void)::ftruncate(descriptor(m_handle), static_cast<off_t>(m_written));
    m_reserved = 0;
    const bool ok = ::close(descriptor(m_handle)) == 0;
    m_handle = kNoHandle;
    return ok;
}

bool Output_File::commit() {
    const bool closed = close();
    if (m_staged_path.empty()) return closed;
    const stdfs::path temp = to_path(m_staged_path);
    // The name may have come to reach the input since the file was created.
    const bool refused = m_check_input && is_same_file(m_final_path, m_input);
    if (!closed || refused || ::rename(temp.c_str(), to_path(m_final_path).c_str()) != 0) {
        if (refused) errno = EEXIST;
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
    ::unlink(to_path(m_staged_path).c_str());
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
    const stdfs::path native = to_path(path);
    std::error_code ec;
    stdfs::create_directories(native, ec);
    const int fd = ::open(native.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return false;
    m_handle = fd;
    m_path = path;
    return true;
}

void Output_Folder::close() {
    if (m_handle != kNoHandle) ::close(descriptor(m_handle));
    m_handle = kNoHandle;
}

Create_Result Output_Folder::make_folder(const std::wstring& name, Output_Folder& child) const {
    child.close();
    if (!is_open()) return Create_Result::failed;
    const std::string native = narrow(name);
    if (::mkdirat(descriptor(m_handle), native.c_str(), 0777) != 0) {
        return errno == EEXIST ? Create_Result::exists : Create_Result::failed;
    }
    // Swapped for a link since it was made: refused, not followed.
    const int fd = ::openat(descriptor(m_handle), native.c_str(),
                            O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return Create_Result::failed;
    child.m_handle = fd;
    child.m_path = m_path + kSeparator + name;
    return Create_Result::created;
}

Create_Result Output_Folder::create_file(const std::wstring& name, Output_File& file) const {
    file.discard_staged();
    file.m_written = 0;
    file.m_check_input = false;
    if (!is_open()) return Create_Result::failed;
    // A new file is never the input, and O_EXCL refuses a link of any kind.
    const int fd = ::openat(descriptor(m_handle), narrow(name).c_str(),
                            O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd < 0) return errno == EEXIST ? Create_Result::exists : Create_Result::failed;
    file.m_handle = fd;
    return Create_Result::created;
}

void Output_Folder::remove_file(const std::wstring& name) const {
    if (is_open()) ::unlinkat(descriptor(m_handle), narrow(name).c_str(), 0);
}

// ---- Standard streams of the command-line tool

bool standard_error_is_terminal() {
    return ::isatty(STDERR_FILENO) == 1;
}

void set_standard_output_binary() {}

// ---- Folders without following links (scratch folders)

namespace {

[[noreturn]] void throw_errno(const char* operation, const stdfs::path& path) {
    throw stdfs::filesystem_error(operation, path, std::error_code(errno, std::generic_category()));
}

// An open descriptor, closed on every way out.
class Descriptor {
  public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    ~Descriptor() {
        if (m_fd >= 0) ::close(m_fd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    [[nodiscard]] int get() const { return m_fd; }

  private:
    int m_fd;
};

constexpr int kFolderFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// Opens the folder `name` in `parent` (AT_FDCWD: a path) without following a link there. A
// folder the owner may not read is first given its owner's rights through a handle that
// names the folder itself, never a link (an O_PATH descriptor seen through /proc).
int open_folder_at(int parent, const std::string& name) {
    const int fd = ::openat(parent, name.c_str(), kFolderFlags);
    if (fd >= 0 || errno != EACCES) return fd;
    const Descriptor place(::openat(parent, name.c_str(), O_PATH | kFolderFlags));
    struct stat info {};
    if (place.get() < 0 || ::fstat(place.get(), &info) != 0) return -1;
    const std::string self = "/proc/self/fd/" + std::to_string(place.get());
    if (::chmod(self.c_str(), info.st_mode | S_IRWXU) != 0) return -1;
    return ::openat(parent, name.c_str(), kFolderFlags);
}

// The names in the folder open at `fd`, "." and ".." left out, all read before any goes.
std::vector<std::string> entry_names(int fd, const stdfs::path& shown) {
    const int copy = ::dup(fd);  // the listing owns and closes its descriptor
    DIR* listing = copy < 0 ? nullptr : ::fdopendir(copy);
    if (listing == nullptr) {
        const int saved = errno;
        if (copy >= 0) ::close(copy);
        errno = saved;
        throw_errno("clear_folder", shown);
    }
    std::vector<std::string> names;
    errno = 0;
    while (const dirent* entry = ::readdir(listing)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..") names.push_back(name);
        errno = 0;
    }
    const int saved = errno;
    ::closedir(listing);
    errno = saved;
    if (saved != 0) throw_errno("clear_folder", shown);
    return names;
}

// Removes everything inside the folder open at `fd`. A subfolder is opened by name relative
// to its parent's descriptor without following a link, so that no entry is reached through a
// link, even one put in place of a folder during the walk; links and other entries go with
// unlinkat, which removes the link itself.
void clear_entries_at(int fd, const stdfs::path& shown) {
    struct stat own {};
    if (::fstat(fd, &own) == 0 && (own.st_mode & S_IRWXU) != S_IRWXU) {
        ::fchmod(fd, own.st_mode | S_IRWXU);
    }
    for (const std::string& name : entry_names(fd, shown)) {
        struct stat info {};
        if (::fstatat(fd, name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
            if (errno == ENOENT) continue;
            throw_errno("clear_folder", shown / name);
        }
        if (S_ISDIR(info.st_mode)) {
            const Descriptor child(open_folder_at(fd, name));
            if (child.get() >= 0) {
                clear_entries_at(child.get(), shown / name);
                if (::unlinkat(fd, name.c_str(), AT_REMOVEDIR) != 0 && errno != ENOENT) {
                    throw_errno("clear_folder", shown / name);
                }
                continue;
            }
            if (errno == ENOENT) continue;
            // No longer a folder (a link or a file took its place): removed as what it is.
            if (errno != ELOOP && errno != ENOTDIR) throw_errno("clear_folder", shown / name);
        }
        if (::unlinkat(fd, name.c_str(), 0) != 0 && errno != ENOENT) {
            throw_errno("clear_folder", shown / name);
        }
    }
}

// `folder` without trailing separators (O_NOFOLLOW acts on the last component only when
// no separator follows it).
std::string without_trailing_separators(const std::wstring& folder) {
    std::string path = to_path(folder).native();
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    return path;
}

}  // namespace

void clear_folder_no_follow(const std::wstring& folder) {
    const std::string path = without_trailing_separators(folder);
    const Descriptor fd(open_folder_at(AT_FDCWD, path));
    if (fd.get() >= 0) {
        clear_entries_at(fd.get(), path);
        return;
    }
    if (errno != ELOOP && errno != ENOTDIR) throw_errno("clear_folder", path);
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0) throw_errno("clear_folder", path);
    if (!S_ISLNK(info.st_mode)) {
        errno = ENOTDIR;
        throw_errno("clear_folder", path);
    }
    // A link where the folder should be: the link goes, and an empty folder takes its place.
    if (::unlink(path.c_str()) != 0 || ::mkdir(path.c_str(), 0777) != 0) {
        throw_errno("clear_folder", path);
    }
}

void remove_folder_no_follow(const std::wstring& folder) {
    clear_folder_no_follow(folder);
    const std::string path = without_trailing_separators(folder);
    if (::rmdir(path.c_str()) != 0) throw_errno("remove_folder", path);
}

bool make_private_folder(const std::wstring& parent, const std::wstring& prefix,
                         std::wstring& folder, std::string& error_text) {
    std::string pattern = to_path(parent).native();
    if (pattern.empty() || pattern.back() != '/') pattern.push_back('/');
    pattern += to_path(prefix).native() + std::to_string(::getpid()) + "_XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    // mkdtemp makes the folder with mode 0700 under a fresh random name, failing rather than
    // reusing anything that exists.
    if (::mkdtemp(name.data()) == nullptr) {
        error_text = errno_text();
        return false;
    }
    folder = from_path(stdfs::path(name.data())) + kSeparator;
    return true;
}

}  // namespace vrk::platform
