// Arbitrary bytes as a compound file through VrkCfbAnalysis into a scratch folder. Aborts when
// the input changes or anything appears in the folder beside the input, the output folder and
// the library's own folders.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include "cfb_vornak/cfb_vornak_api.h"
#include "common/platform.h"

namespace {

namespace stdfs = std::filesystem;

const stdfs::path& scratch() {
    static const stdfs::path folder = [] {
        const stdfs::path path =
            stdfs::absolute(stdfs::current_path() / "fuzz_analysis_tmp" /
                            std::to_string(vrk::platform::current_process_id()));
        stdfs::create_directories(path);
        const std::string base = vrk::platform::narrow(vrk::platform::from_path(path));
        VrkCfbInit((base + "/logs").c_str(), (base + "/config").c_str(), (base + "/work").c_str());
        return path;
    }();
    return folder;
}

std::string read_all(const stdfs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const stdfs::path& base = scratch();
    const stdfs::path input = base / "in.cfb";
    const stdfs::path output = base / "out";
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    {
        std::ofstream out(input, std::ios::binary | std::ios::trunc);
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }
    const auto narrow = [](const stdfs::path& path) {
        return vrk::platform::narrow(vrk::platform::from_path(path));
    };
    VrkCfbAnalysis(narrow(input).c_str(), narrow(output).c_str());

    if (read_all(input) != bytes) {
        std::abort();
    }
    const std::set<std::string> allowed = {"in.cfb", "out", "work", "logs", "config", "Logs"};
    for (const auto& item : stdfs::directory_iterator(base)) {
        if (allowed.count(item.path().filename().string()) == 0) {
            std::abort();
        }
    }
    std::error_code ec;
    stdfs::remove_all(output, ec);
    return 0;
}
