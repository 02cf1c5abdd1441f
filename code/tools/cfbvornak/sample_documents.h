// A small sound word-processing document built with the compound-file builder, sound
// documents of the other two kinds, and damaged copies with one structure broken each.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vrk::cli {

struct Sample_Document {
    std::string file_name;
    std::vector<uint8_t> bytes;
    std::string damage;  // what was broken, or "sound"
};

// Stream contents are pseudo-random from `seed`; the structure is the same for every seed.
std::vector<Sample_Document> sample_documents(uint32_t seed);

}  // namespace vrk::cli
