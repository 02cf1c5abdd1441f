#include "support/test_folders.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

#include "common/fs_utils.h"
#include "common/platform.h"

namespace vrk::test {

namespace stdfs = std::filesystem;

Temp_Folder::Temp_Folder(const std::string& hint) {
    static std::atomic<unsigned> counter{0};
    const auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
    const stdfs::path base = stdfs::absolute(stdfs::current_path() / "test_tmp");
    for (;;) {
        m_path = base / (hint + "_" + std::to_string(platform::current_process_id()) + "_" +
                         std::to_string(stamp) + "_" + std::to_string(counter++));
        std::error_code ec;
        stdfs::create_directories(base, ec);
        if (stdfs::create_directory(m_path, ec)) break;
        if (ec) throw stdfs::filesystem_error("Temp_Folder", m_path, ec);
    }
}

std::wstring Temp_Folder::wide(bool trailing_separator) const {
    std::wstring text = platform::from_path(m_path);
    if (trailing_separator) text.push_back(platform::kSeparator);
    return text;
}

std::string Temp_Folder::narrow() const {
    return test::narrow(m_path);
}

std::string read_file(const stdfs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void write_file(const stdfs::path& path, const std::string& bytes) {
    if (path.has_parent_path()) stdfs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

void remove_tree(const stdfs::path& path) noexcept {
    try {
        std::error_code ec;
        if (!stdfs::exists(stdfs::symlink_status(path, ec))) return;
        if (platform::is_link(path)) {
            platform::remove_link(path);
            return;
        }
        if (stdfs::is_directory(path, ec)) {
            fs::clear_folder(platform::from_path(path) + platform::kSeparator);
            platform::set_normal_attributes(path);
        }
        stdfs::remove(path);
    } catch (...) {
        // Left behind: the next run's folders have names of their own.
    }
}

std::string narrow(const stdfs::path& path) {
    return platform::narrow(platform::from_path(path));
}

std::string quote(const std::string& word) {
    if (platform::kWindows) return "\"" + word + "\"";
    std::string quoted = "'";
    for (const char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

std::string tool_line(const std::vector<std::string>& args) {
    const stdfs::path here = stdfs::current_path();
    std::string line = quote(
        narrow(here / ".." / ".." / "bin" / (platform::kWindows ? "cfbvornak.exe" : "cfbvornak")));
    for (const std::string& a : args) line += " " + quote(a);
    for (const char* folder : {"log", "config", "work"})
        line += std::string(" --") + folder + "-dir " + quote(narrow(here / "tool_state" / folder));
    return line;
}

int run_shell(std::string line) {
    // cmd.exe takes off one pair of outer quotes; POSIX keeps the exit status in the second byte.
    if (platform::kWindows) line = "\"" + line + "\"";
    const int status = std::system(line.c_str());
    return platform::kWindows ? status : (status >> 8) & 0xFF;
}

std::size_t count_of(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

std::string door_failure(int line, const std::string& function, const std::string& message) {
    return "[code/src/file_operation/File_Anywhere_Door:" + std::to_string(line) + "->" + function +
           "] " + message + "\n";
}

std::string out_of_range(const std::string& unit, uint64_t offset) {
    return unit + " access is illegal ! the offset [" + std::to_string(offset) +
           "]is  out of  range! \n";
}

std::string thrown(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::logic_error& error) {
        return error.what();
    }
    return "";
}

}  // namespace vrk::test
