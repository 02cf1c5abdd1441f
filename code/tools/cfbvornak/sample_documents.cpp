#include "sample_documents.h"

#include <algorithm>
#include <random>

#include "cfb_vornak/builder/Cfb_Builder.h"
#include "common/byte_order.h"

namespace vrk::cli {

namespace {

struct Built {
    std::vector<uint8_t> bytes;
    Build_Layout layout;
};

Built build(const std::u16string& core_name, uint32_t seed) {
    std::mt19937 random(seed);
    const auto noise = [&](std::size_t size) {
        std::vector<uint8_t> data(size);
        for (auto& b : data) b = static_cast<uint8_t>(random());
        return data;
    };
    Cfb_Fs_Item_DirNode root;
    if (core_name == u"1Table") {
        root.add_stream(u"WordDocument", noise(9000));
        root.add_stream(u"1Table", noise(2500));
        root.add_stream(u"Data", noise(5000));
    } else {
        root.add_stream(core_name, noise(7000));
    }
    root.add_stream(u"\x05SummaryInformation", noise(400));
    root.add_stream(
        u"\x05"
        u"DocumentSummaryInformation",
        noise(300));
    root.add_storage(u"ObjectPool")
        .add_stream(
            u"\x01"
            u"CompObj",
            noise(100));
    Built built;
    built.bytes = build_compound_file(root, {}, &built.layout);
    return built;
}

}  // namespace

std::vector<Sample_Document> sample_documents(uint32_t seed) {
    const Built word = build(u"1Table", seed);
    std::vector<Sample_Document> documents;
    documents.push_back({"sample.doc", word.bytes, "sound"});
    documents.push_back({"sample.xls", build(u"Workbook", seed + 1).bytes, "sound"});
    documents.push_back({"sample.ppt", build(u"PowerPoint Document", seed + 2).bytes, "sound"});

    const auto damaged = [&](const std::string& name, const std::string& damage, auto&& patch) {
        std::vector<uint8_t> bytes = word.bytes;
        patch(bytes);
        documents.push_back({name, std::move(bytes), damage});
    };
    const uint64_t root_entry = word.layout.file_offset_of(word.layout.directory_sids.at(0));
    damaged("zeroed-signature.doc", "header signature zeroed",
            [](std::vector<uint8_t>& b) { std::fill_n(b.begin(), 8, 0); });
    damaged("wrong-minor-version.doc", "header minor version 0x003B",
            [](std::vector<uint8_t>& b) { write_u16_le(&b[24], 0x003B); });
    damaged("wiped-root-name.doc", "root entry name wiped", [&](std::vector<uint8_t>& b) {
        std::fill_n(b.begin() + static_cast<std::ptrdiff_t>(root_entry), 64, 0);
    });
    damaged("implausible-root.doc", "root entry child id 20000",
            [&](std::vector<uint8_t>& b) { write_u32_le(&b[root_entry + 76], 20000); });
    damaged("wrong-extension.xls", "word-processing document named .xls",
            [](std::vector<uint8_t>&) {});
    return documents;
}

}  // namespace vrk::cli
