#include "support/repair_samples.h"

#include <algorithm>

#include "support/cfb_patch.h"

namespace vrk::test {

namespace {

constexpr std::size_t kHeaderSize = 512;
constexpr std::size_t kSectorSize = 512;
constexpr std::size_t kEntrySize = 128;

}  // namespace

Raw_Image::Raw_Image(uint32_t sectors)
    : bytes(kHeaderSize + kSectorSize * std::size_t{sectors}, 0xFF) {
    std::fill(bytes.begin(), bytes.begin() + kHeaderSize, 0);
}

void Raw_Image::set(sid_t sid, std::size_t slot, uint32_t value) {
    patch_u32(bytes, kHeaderSize + kSectorSize * std::size_t{sid} + 4 * slot, value);
}

void Raw_Image::counting(sid_t sid, uint32_t first, std::size_t count) {
    for (std::size_t slot = 0; slot < count; ++slot) {
        set(sid, slot, first + static_cast<uint32_t>(slot));
    }
}

void Raw_Image::zero_sector(sid_t sid) {
    zero_range(bytes, kHeaderSize + kSectorSize * std::size_t{sid}, kSectorSize);
}

void Raw_Image::put_entry(sid_t sid, uint32_t slot, const std::u16string& name, uint8_t object_type,
                          sid_t start_sid, uint32_t stream_size) {
    const uint64_t at = kHeaderSize + kSectorSize * std::size_t{sid} + kEntrySize * slot;
    zero_range(bytes, at, kEntrySize);
    for (std::size_t i = 0; i < name.size() && i < 31; ++i) {
        patch_u16(bytes, at + 2 * i, static_cast<uint16_t>(name[i]));
    }
    patch_u16(bytes, at + offsets::kEntryNameSize, static_cast<uint16_t>(2 * (name.size() + 1)));
    patch_u8(bytes, at + offsets::kEntryType, object_type);
    patch_u8(bytes, at + offsets::kEntryColor, 1);
    patch_u32(bytes, at + offsets::kEntryLeft, NOSTREAM);
    patch_u32(bytes, at + offsets::kEntryRight, NOSTREAM);
    patch_u32(bytes, at + offsets::kEntryChild, NOSTREAM);
    patch_u32(bytes, at + offsets::kEntryStartSid, start_sid);
    patch_u32(bytes, at + offsets::kEntrySize, stream_size);
}

std::u16string core_stream_name(int32_t document_kind) {
    switch (document_kind) {
        case 0:
            return u"1Table";
        case 1:
            return u"Workbook";
        case 2:
            return u"PowerPoint Document";
        default:
            return u"";
    }
}

Sample_Shape shape_with_document(const std::string& shape_name, int32_t document_kind) {
    Sample_Shape shape = make_sample_shape(shape_name);
    const std::u16string core = core_stream_name(document_kind);
    if (!core.empty()) shape.root->add_stream(core, random_bytes(300, 77));
    shape.streams.clear();
    shape.storages.clear();
    collect_expected(*shape.root, shape.streams, shape.storages);
    return shape;
}

}  // namespace vrk::test
