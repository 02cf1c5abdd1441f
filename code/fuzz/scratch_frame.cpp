#include "scratch_frame.h"

#include <cstdlib>
#include <string>

#include "cfb_vornak/cfb_vornak_api.h"
#include "common/platform.h"
#include "support/test_folders.h"

namespace vrk::fuzz {

namespace stdfs = std::filesystem;

const stdfs::path& scratch_folder(const std::string& target) {
    static const stdfs::path folder = [&target] {
        const stdfs::path path = stdfs::absolute(stdfs::current_path() / (target + "_tmp") /
                                                 std::to_string(platform::current_process_id()));
        stdfs::create_directories(path);
        VrkCfbInit(narrow(path / "logs").c_str(), narrow(path / "config").c_str(),
                   narrow(path / "work").c_str());
        return path;
    }();
    return folder;
}

std::string narrow(const stdfs::path& path) {
    return test::narrow(path);
}

void write_input(const stdfs::path& path, const uint8_t* data, std::size_t size) {
    test::write_file(path, std::string(reinterpret_cast<const char*>(data), size));
}

void require_unchanged(const stdfs::path& path, const uint8_t* data, std::size_t size) {
    if (test::read_file(path) != std::string(reinterpret_cast<const char*>(data), size))
        std::abort();
}

void require_only(const stdfs::path& folder, const std::set<std::string>& allowed) {
    for (const auto& item : stdfs::directory_iterator(folder))
        if (allowed.count(item.path().filename().string()) == 0) std::abort();
}

}  // namespace vrk::fuzz
