// Writes the seed corpus into each folder named on the command line: the builder's sample
// documents with their damaged copies, and a few cuts of the sound one.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "sample_documents.h"

int main(int argc, char** argv) {
    std::vector<vrk::cli::Sample_Document> seeds = vrk::cli::sample_documents(1);
    const std::vector<uint8_t> sound = seeds.front().bytes;
    for (const std::size_t cut : {512u, 1024u, 1536u, 4096u})
        if (cut < sound.size())
            seeds.push_back({"cut-" + std::to_string(cut) + ".doc",
                             {sound.begin(), sound.begin() + cut},
                             "cut"});
    for (int i = 1; i < argc; ++i) {
        std::filesystem::create_directories(argv[i]);
        for (const auto& seed : seeds) {
            std::ofstream out(std::filesystem::path(argv[i]) / ("seed-" + seed.file_name),
                              std::ios::binary);
            if (!out.write(reinterpret_cast<const char*>(seed.bytes.data()),
                           static_cast<std::streamsize>(seed.bytes.size()))) {
                std::fprintf(stderr, "cannot write into %s\n", argv[i]);
                return 1;
            }
        }
    }
    return 0;
}
