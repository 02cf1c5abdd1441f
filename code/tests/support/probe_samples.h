// Small documents for the damage probe's tests, built with the compound-file builder; the byte
// patches that damage them are in cfb_patch.h.
#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "cfb_vornak/builder/Cfb_Builder.h"

namespace vrk::test {

enum class Sample_Kind { word, sheet, slides, none };

struct Sample_File {
    std::vector<uint8_t> bytes;
    Build_Layout layout;

    // File offset of the directory entry of the stream at `path`.
    uint64_t entry_of(const std::u16string& path) const;
    // The highest sector id wholly inside the file.
    uint32_t max_sid() const { return static_cast<uint32_t>(((bytes.size() - 512) >> 9) - 1); }
    void write(const std::filesystem::path& path) const;
};

// A document of the kind with its core stream, a large stream, a few small ones and a
// storage: at least two directory sectors. Stream contents are pseudo-random from `seed`.
Sample_File build_sample(Sample_Kind kind, uint32_t seed = 1);

}  // namespace vrk::test
