#include "support/test_folders.h"

#include <atomic>
#include <chrono>
#include <fstream>
#include <iterator>
#include <system_error>

#include "common/fs_utils.h"
#include "common/platform.h"

namespace vrk::test {

namespace stdfs = std::filesystem;

namespace {

std::atomic<unsigned> g_counter{0};

}  // namespace

Temp_Folder::Temp_Folder(const std::string& hint) {
    const auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
    const stdfs::path base = stdfs::absolute(stdfs::current_path() / "test_tmp");
    for (;;) {
        m_path = base / (hint + "_" + std::to_string(platform::current_process_id()) + "_" +
                         std::to_string(stamp) + "_" + std::to_string(g_counter++));
        std::error_code ec;
        stdfs::create_directories(base, ec);
        if (stdfs::create_directory(m_path, ec)) break;
        if (ec) throw stdfs::filesystem_error("Temp_Folder", m_path, ec);
    }
}

Temp_Folder::~Temp_Folder() {
    try {
        remove_tree(m_path);
    } catch (...) {
        // A folder left behind must not end the test run.
    }
}

std::wstring Temp_Folder::wide(bool trailing_separator) const {
    std::wstring text = platform::from_path(m_path);
    if (trailing_separator) text.push_back(platform::kSeparator);
    return text;
}

std::string Temp_Folder::narrow() const {
    return platform::narrow(wide());
}

std::string read_file(const stdfs::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return {};
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void write_file(const stdfs::path& path, const std::string& bytes) {
    if (path.has_parent_path()) stdfs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

void remove_tree(const stdfs::path& path) {
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
}

}  // namespace vrk::test
