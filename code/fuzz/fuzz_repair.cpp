// Arbitrary bytes as a compound file through VrkCfbGeneralRepair into a scratch folder. Aborts
// when the input changes, when the folder gains anything beside the input, the output folder
// and the library's own folders, or when the output folder holds anything but the one output
// the repair may write (the prefix with .cfb, .doc, .xls or .ppt).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <system_error>

#include "cfb_vornak/cfb_vornak_api.h"
#include "common/platform.h"

namespace {

namespace stdfs = std::filesystem;

std::string narrow(const stdfs::path& path) {
    return vrk::platform::narrow(vrk::platform::from_path(path));
}

const stdfs::path& scratch() {
    static const stdfs::path folder = [] {
        const stdfs::path path =
            stdfs::absolute(stdfs::current_path() / "fuzz_repair_tmp" /
                            std::to_string(vrk::platform::current_process_id()));
        stdfs::create_directories(path);
        VrkCfbInit(narrow(path / "logs").c_str(), narrow(path / "config").c_str(),
                   narrow(path / "work").c_str());
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
    const stdfs::path input = base / "in.doc";
    const stdfs::path output = base / "out";
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    {
        std::ofstream out(input, std::ios::binary | std::ios::trunc);
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }
    VrkCfbGeneralRepair(narrow(input).c_str(), narrow(output / "repaired.doc").c_str());

    if (read_all(input) != bytes) std::abort();
    const std::set<std::string> allowed_here = {"in.doc", "out", "work", "logs", "config"};
    for (const auto& item : stdfs::directory_iterator(base)) {
        if (allowed_here.count(item.path().filename().string()) == 0) std::abort();
    }
    const std::set<std::string> allowed_out = {"repaired.cfb", "repaired.doc", "repaired.xls",
                                               "repaired.ppt"};
    std::error_code ec;
    if (stdfs::is_directory(output, ec)) {
        std::size_t outputs = 0;
        for (const auto& item : stdfs::directory_iterator(output)) {
            if (allowed_out.count(item.path().filename().string()) == 0) std::abort();
            // The output is the header followed by the input from offset 512 on.
            if (size >= 1024 && stdfs::file_size(item.path()) != size) std::abort();
            ++outputs;
        }
        if (outputs > 1) std::abort();
    }
    stdfs::remove_all(output, ec);
    return 0;
}
