// Runs a fuzz target over the files named on the command line (folders: every file in
// them), for builds without libFuzzer.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size);

namespace {

void replay(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                                     std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

}  // namespace

int main(int argc, char** argv) {
    std::size_t count = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path given = argv[i];
        if (given.string().rfind('-', 0) == 0) continue;  // libFuzzer options
        std::error_code error;
        if (std::filesystem::is_directory(given, error)) {
            for (const auto& entry : std::filesystem::directory_iterator(given, error)) {
                if (entry.is_regular_file(error)) {
                    replay(entry.path());
                    ++count;
                }
            }
        } else {
            replay(given);
            ++count;
        }
    }
    std::printf("replayed %zu input(s)\n", count);
    return 0;
}
