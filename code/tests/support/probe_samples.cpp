#include "support/probe_samples.h"

#include <stdexcept>

#include "support/cfb_patch.h"
#include "support/test_folders.h"

namespace vrk::test {

uint64_t Sample_File::entry_of(const std::u16string& path) const {
    return directory_entry_offset(layout, stream_place(layout, path).did);
}

void Sample_File::write(const std::filesystem::path& path) const {
    write_file(path, std::string(bytes.begin(), bytes.end()));
}

Sample_File build_sample(Sample_Kind kind, uint32_t seed) {
    const auto noise = [&seed](std::size_t size) { return random_bytes(size, ++seed); };
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
    root.add_storage(u"ObjectPool").add_stream(u"Data", noise(200));
    Sample_File sample;
    sample.bytes = build_compound_file(root, {}, &sample.layout);
    return sample;
}

}  // namespace vrk::test
