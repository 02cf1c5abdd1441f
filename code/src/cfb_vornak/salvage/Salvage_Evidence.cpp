#include "cfb_vornak/salvage/Salvage_Evidence.h"

#include <cstring>

#include "common/byte_order.h"

namespace vrk::salvage {

namespace {

constexpr uint8_t kMagic[8] = {0xD0, 0xCF, 0x11, 0xE0, 0xA1, 0xB1, 0x1A, 0xE1};
constexpr uint32_t kHeaderSize = 512;
// Directory ids beyond this are taken for junk: no writer makes directories of millions of entries.
constexpr uint32_t kMaxPlausibleDid = 0x00FFFFFF;

bool plausible_link(uint32_t did) {
    return did == NOSTREAM || did <= kMaxPlausibleDid;
}

}  // namespace

uint32_t Header_Evidence::declared_sector_size() const {
    if (sector_shift == 9) return 512;
    if (sector_shift == 12) return 4096;
    return 0;
}

Header_Evidence read_header(const uint8_t* data, uint64_t size) {
    Header_Evidence h;
    if (size < kHeaderSize) return h;
    h.magic_ok = std::memcmp(data, kMagic, sizeof kMagic) == 0;
    h.minor_version = read_u16_le(data + 24);
    h.major_version = read_u16_le(data + 26);
    h.byte_order = read_u16_le(data + 28);
    h.sector_shift = read_u16_le(data + 30);
    h.mini_sector_shift = read_u16_le(data + 32);
    h.num_dir_secs = read_u32_le(data + 40);
    h.num_sat_secs = read_u32_le(data + 44);
    h.first_dir_sid = read_u32_le(data + 48);
    h.mini_stream_cutoff = read_u32_le(data + 56);
    h.first_minisat_sid = read_u32_le(data + 60);
    h.num_minisat_secs = read_u32_le(data + 64);
    h.first_disat_sid = read_u32_le(data + 68);
    h.num_disat_secs = read_u32_le(data + 72);
    for (uint32_t i = 0; i < kHeaderDisatEntries; ++i)
        h.header_disat[i] = read_u32_le(data + 76 + 4 * i);
    return h;
}

std::u16string Dir_Record::name() const {
    std::u16string out;
    for (std::size_t i = 0; i + 1 < name_units.size() && name_units[i] != 0; ++i)
        out.push_back(name_units[i]);
    return out;
}

Dir_Record decode_dir_record(const uint8_t* p, bool wide_size) {
    Dir_Record r;
    for (std::size_t i = 0; i < r.name_units.size(); ++i)
        r.name_units[i] = static_cast<char16_t>(read_u16_le(p + 2 * i));
    r.name_length = read_u16_le(p + 64);
    r.object_type = p[66];
    r.color = p[67];
    r.left = read_u32_le(p + 68);
    r.right = read_u32_le(p + 72);
    r.child = read_u32_le(p + 76);
    std::memcpy(r.clsid.data(), p + 80, 16);
    std::memcpy(r.state_bits.data(), p + 96, 4);
    std::memcpy(r.creation_time.data(), p + 100, 8);
    std::memcpy(r.modified_time.data(), p + 108, 8);
    r.start = read_u32_le(p + 116);
    r.size = wide_size ? read_u64_le(p + 120) : read_u32_le(p + 120);
    return r;
}

Record_Kind classify_dir_record(const uint8_t* p) {
    const uint8_t type = p[66];
    if (type == 0) return Record_Kind::empty;
    if (type != 1 && type != 2 && type != 5) return Record_Kind::invalid;
    if (p[67] > 1) return Record_Kind::invalid;
    const uint32_t left = read_u32_le(p + 68);
    const uint32_t right = read_u32_le(p + 72);
    const uint32_t child = read_u32_le(p + 76);
    if (!plausible_link(left) || !plausible_link(right) || !plausible_link(child))
        return Record_Kind::invalid;
    if (type == 2 && child != NOSTREAM) return Record_Kind::invalid;
    const uint16_t name_length = read_u16_le(p + 64);
    const bool name_ok = [&] {
        if (name_length < 4 || name_length > 64 || name_length % 2 != 0) return false;
        const uint32_t units = name_length / 2;
        for (uint32_t i = 0; i + 1 < units; ++i)
            if (read_u16_le(p + 2 * i) == 0) return false;
        return read_u16_le(p + 2 * (units - 1)) == 0;
    }();
    if (name_ok) return Record_Kind::valid;
    // A root whose name was wiped still shows itself by its type and its lack of siblings.
    if (type == 5 && left == NOSTREAM && right == NOSTREAM) return Record_Kind::valid;
    return Record_Kind::invalid;
}

}  // namespace vrk::salvage
