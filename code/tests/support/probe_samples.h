// Small documents for the damage probe's tests, built with the compound-file builder, and
// the byte patches that damage exactly one structure.
#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "cfb_vornak/Cfb_Builder.h"

namespace vrk::test {

enum class Sample_Kind { word, sheet, slides, none };

struct Sample_File {
    std::vector<uint8_t> bytes;
    Build_Layout layout;

    // File offset of the directory entry with this DID.
    uint64_t entry_offset(uint32_t did) const;
    // The DID of the entry at `path` (names joined by '/'); 0 (the root) when absent.
    uint32_t did_of(const std::u16string& path) const;
    // The highest sector id wholly inside the file.
    uint32_t max_sid() const { return static_cast<uint32_t>(((bytes.size() - 512) >> 9) - 1); }
    void put_u16(uint64_t offset, uint16_t value);
    void put_u32(uint64_t offset, uint32_t value);
    void fill(uint64_t offset, uint64_t length, uint8_t value);
    void write(const std::filesystem::path& path) const;
};

// A document of the kind with its core stream, a large stream, a few small ones and a
// storage: at least two directory sectors. Stream contents are pseudo-random from `seed`.
Sample_File build_sample(Sample_Kind kind, uint32_t seed = 1);

}  // namespace vrk::test
