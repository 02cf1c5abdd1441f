// Runs a fuzz target over the files named on the command line (folders: every file in them), for
// builds without libFuzzer; options (libFuzzer's) are skipped.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size);

int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    std::vector<fs::path> files;
    for (int i = 1; i < argc; ++i) {
        std::error_code error;
        if (argv[i][0] == '-') continue;
        if (!fs::is_directory(argv[i], error)) files.emplace_back(argv[i]);
        for (const auto& entry : fs::directory_iterator(argv[i], error))
            if (entry.is_regular_file(error)) files.push_back(entry.path());
    }
    for (const fs::path& file : files) {
        std::ifstream in(file, std::ios::binary);
        const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                                         std::istreambuf_iterator<char>());
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    std::printf("replayed %zu input(s)\n", files.size());
    return 0;
}
