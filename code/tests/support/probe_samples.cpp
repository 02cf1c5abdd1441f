#include "support/probe_samples.h"

#include <fstream>
#include <random>
#include <stdexcept>

#include "common/byte_order.h"

namespace vrk::test {

uint64_t Sample_File::entry_offset(uint32_t did) const {
    return layout.file_offset_of(layout.directory_sids.at(did / 4)) + 128u * (did % 4);
}

uint32_t Sample_File::did_of(const std::u16string& path) const {
    for (const auto& stream : layout.streams) {
        if (stream.path == path) return stream.did;
    }
    return 0;
}

void Sample_File::put_u16(uint64_t offset, uint16_t value) {
    write_u16_le(&bytes.at(offset), value);
}

void Sample_File::put_u32(uint64_t offset, uint32_t value) {
    bytes.at(offset + 3);
    write_u32_le(&bytes[offset], value);
}

void Sample_File::fill(uint64_t offset, uint64_t length, uint8_t value) {
    for (uint64_t i = 0; i < length; ++i) bytes.at(offset + i) = value;
}

void Sample_File::write(const std::filesystem::path& path) const {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()),
              static_cast<std::streamsize>(bytes.size()));
    if (!out) throw std::runtime_error("cannot write the sample file");
}

Sample_File build_sample(Sample_Kind kind, uint32_t seed) {
    std::mt19937 random(seed);
    const auto noise = [&](std::size_t size) {
        std::vector<uint8_t> data(size);
        for (auto& b : data) b = static_cast<uint8_t>(random());
        return data;
    };
    Cfb_Fs_Item_DirNode root;
    switch (kind) {
        case Sample_Kind::word:
            root.add_stream(u"WordDocument", noise(6000));
            root.add_stream(u"1Table", noise(1500));
            break;
        case Sample_Kind::sheet:
            root.add_stream(u"Workbook", noise(7000));
            break;
        case Sample_Kind::slides:
            root.add_stream(u"PowerPoint Document", noise(6500));
            root.add_stream(u"Current User", noise(60));
            break;
        case Sample_Kind::none:
            root.add_stream(u"Contents", noise(5000));
            break;
    }
    root.add_stream(u"\x05SummaryInformation", noise(400));
    root.add_stream(
        u"\x05"
        u"DocumentSummaryInformation",
        noise(300));
    auto& storage = root.add_storage(u"ObjectPool");
    storage.add_stream(u"Data", noise(200));
    Sample_File sample;
    sample.bytes = build_compound_file(root, {}, &sample.layout);
    return sample;
}

}  // namespace vrk::test
