// Small documents for the damage probe's tests, built with the compound-file builder; the byte
// patches that damage them are in cfb_patch.h.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "cfb_vornak/builder/Cfb_Builder.h"
#include "support/cfb_patch.h"
#include "support/test_folders.h"

namespace vrk::test {

enum class Sample_Kind { word, sheet, slides, none };

struct Sample_File {
    std::vector<uint8_t> bytes;
    Build_Layout layout;

    // File offset of the directory entry of the stream at `path`.
    uint64_t entry_of(const std::u16string& path) const {
        return directory_entry_offset(layout, stream_place(layout, path).did);
    }
    // The highest sector id wholly inside the file.
    uint32_t max_sid() const { return static_cast<uint32_t>(((bytes.size() - 512) >> 9) - 1); }
    void write(const std::filesystem::path& path) const {
        write_file(path, std::string(bytes.begin(), bytes.end()));
    }
};

// A document of the kind with its core stream, a large stream, a few small ones and a
// storage: at least two directory sectors. Stream contents are pseudo-random from `seed`.
inline Sample_File build_sample(Sample_Kind kind, uint32_t seed = 1) {
    const auto noise = [&seed](std::size_t size) { return random_bytes(size, ++seed); };
    Cfb_Fs_Item_DirNode root;
    if (kind == Sample_Kind::word) {
        root.add_stream(u"WordDocument", noise(6000));
        root.add_stream(u"1Table", noise(1500));
    } else if (kind == Sample_Kind::sheet) {
        root.add_stream(u"Workbook", noise(7000));
    } else if (kind == Sample_Kind::slides) {
        root.add_stream(u"PowerPoint Document", noise(6500));
        root.add_stream(u"Current User", noise(60));
    } else {
        root.add_stream(u"Contents", noise(5000));
    }
    root.add_stream(u"\x05SummaryInformation", noise(400));
    root.add_stream(u"\005DocumentSummaryInformation", noise(300));
    root.add_storage(u"ObjectPool").add_stream(u"Data", noise(200));
    Sample_File sample;
    sample.bytes = build_compound_file(root, {}, &sample.layout);
    return sample;
}

}  // namespace vrk::test
