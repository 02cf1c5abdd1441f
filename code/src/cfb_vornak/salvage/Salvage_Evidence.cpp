#include "cfb_vornak/salvage/Salvage_Evidence.h"

#include "cfb_vornak/format/Cfb_Header.h"
#include "cfb_vornak/format/Cfb_Layout.h"
#include "cfb_vornak/format/Directory_Entry.h"
#include "common/byte_order.h"

namespace vrk::salvage {

namespace {

// Offsets of the header's and of a directory record's fields.
namespace header_at = layout::header;
namespace record_at = layout::entry;

using layout::kTypeRootStorage;
using layout::kTypeStorage;
using layout::kTypeStream;

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

uint32_t Header_Evidence::sector_size() const {
    const uint32_t declared = declared_sector_size();
    const uint32_t by_version = major_version == 3 ? 512 : major_version == 4 ? 4096 : 0;
    if (declared == 0) return by_version;
    // A shift and a version that disagree leave the size open: one of them is broken.
    return by_version == 0 || by_version == declared ? declared : 0;
}

bool Header_Evidence::speaks_for_file() const {
    const bool version = major_version == 3 || major_version == 4;
    const bool shift_fits =
        (major_version == 3 && sector_shift == 9) || (major_version == 4 && sector_shift == 12);
    const int right = int{magic_ok} + int{byte_order == 0xFFFE} + int{version} + int{shift_fits};
    return right >= 2;
}

Header_Evidence read_header(const uint8_t* data, uint64_t size) {
    Header_Evidence h;
    Cfb_Header fields;
    if (size < Cfb_Header::kSize || !decode_header(data, Cfb_Header::kSize, fields)) return h;
    h.magic_ok = fields.magic == Cfb_Header::kSignature;
    h.minor_version = fields.minor_version_value();
    h.major_version = fields.major_version_value();
    h.byte_order = fields.endian_value();
    h.sector_shift = fields.sector_shift;
    h.mini_sector_shift = fields.mini_sector_shift;
    h.num_dir_secs = fields.num_of_dir_secs;
    h.num_sat_secs = fields.num_of_sat_secs;
    h.first_dir_sid = fields.first_dir_sid;
    h.mini_stream_cutoff = fields.mini_stream_cutoff_size;
    h.first_minisat_sid = fields.first_minisat_sid;
    h.num_minisat_secs = fields.num_of_minisat_secs;
    h.first_disat_sid = fields.first_disat_sid;
    h.num_disat_secs = fields.num_of_disat_secs;
    for (uint32_t i = 0; i < kHeaderDisatEntries; ++i)
        h.header_disat[i] = read_u32_le(data + header_at::kHeaderDisat + 4 * i);
    return h;
}

uint64_t dir_record_size(const uint8_t* p, bool wide_size) {
    const uint64_t low = read_u32_le(p + record_at::kStreamSize);
    if (!wide_size) return low;
    return low | uint64_t{read_u32_le(p + record_at::kStreamSizeHigh)} << 32;
}

std::u16string dir_record_name(const Directory_Entry& entry) {
    return entry.name_units().substr(0, 31);
}

bool is_root_record(const uint8_t* p) {
    return p[record_at::kObjectType] == kTypeRootStorage;
}

Record_Kind classify_dir_record(const uint8_t* p) {
    const uint8_t type = p[record_at::kObjectType];
    if (type == 0) return Record_Kind::empty;
    if (type != kTypeStorage && type != kTypeStream && type != kTypeRootStorage)
        return Record_Kind::invalid;
    if (p[record_at::kColorFlag] > 1) return Record_Kind::invalid;
    const uint32_t left = read_u32_le(p + record_at::kLeftSibling);
    const uint32_t right = read_u32_le(p + record_at::kRightSibling);
    const uint32_t child = read_u32_le(p + record_at::kChild);
    if (!plausible_link(left) || !plausible_link(right) || !plausible_link(child))
        return Record_Kind::invalid;
    if (type == kTypeStream && child != NOSTREAM) return Record_Kind::invalid;
    const uint16_t name_length = read_u16_le(p + record_at::kNameValidSize);
    const bool name_ok = [&] {
        if (name_length < 4 || name_length > 64 || name_length % 2 != 0) return false;
        const uint32_t units = name_length / 2;
        for (uint32_t i = 0; i + 1 < units; ++i)
            if (read_u16_le(p + 2 * i) == 0) return false;
        return read_u16_le(p + 2 * (units - 1)) == 0;
    }();
    if (name_ok) return Record_Kind::valid;
    // A root whose name was wiped still shows itself by its type and its lack of siblings.
    if (type == kTypeRootStorage && left == NOSTREAM && right == NOSTREAM)
        return Record_Kind::valid;
    return Record_Kind::bad_name;
}

}  // namespace vrk::salvage
