#include "cfb_vornak/format/Cfb_Header.h"

#include <algorithm>

#include "cfb_vornak/format/Cut_Fields.h"
#include "common/byte_order.h"

namespace vrk {

bool decode_header(const uint8_t* bytes, std::size_t have, Cfb_Header& header) {
    namespace at = layout::header;
    const Cut_Fields in(bytes, std::min(have, at::kFieldsEnd));
    return in.u64(at::kMagic, header.magic) && in.raw(at::kFileId, header.file_id) &&
           in.raw(at::kMinorVersion, header.minor_version) &&
           in.raw(at::kMajorVersion, header.major_version) && in.raw(at::kEndian, header.endian) &&
           in.u16(at::kSectorShift, header.sector_shift) &&
           in.u16(at::kMiniSectorShift, header.mini_sector_shift) &&
           in.u16(at::kReservedWord, header.reserved_word) &&
           in.raw(at::kReservedDword, header.reserved_dword) &&
           in.u32(at::kNumDirSecs, header.num_of_dir_secs) &&
           in.u32(at::kNumSatSecs, header.num_of_sat_secs) &&
           in.u32(at::kFirstDirSid, header.first_dir_sid) &&
           in.raw(at::kTransaction, header.transaction_sign_num) &&
           in.u32(at::kMiniCutoff, header.mini_stream_cutoff_size) &&
           in.u32(at::kFirstMinisatSid, header.first_minisat_sid) &&
           in.u32(at::kNumMinisatSecs, header.num_of_minisat_secs) &&
           in.u32(at::kFirstDisatSid, header.first_disat_sid) &&
           in.u32(at::kNumDisatSecs, header.num_of_disat_secs);
}

std::array<uint8_t, Cfb_Header::kSize> encode_header(const Cfb_Header& header,
                                                     const sids_array& disat) {
    namespace at = layout::header;
    std::array<uint8_t, Cfb_Header::kSize> bytes{};
    uint8_t* p = bytes.data();
    write_u64_le(p + at::kMagic, header.magic);
    std::copy(header.file_id.begin(), header.file_id.end(), p + at::kFileId);
    std::copy(header.minor_version.begin(), header.minor_version.end(), p + at::kMinorVersion);
    std::copy(header.major_version.begin(), header.major_version.end(), p + at::kMajorVersion);
    std::copy(header.endian.begin(), header.endian.end(), p + at::kEndian);
    write_u16_le(p + at::kSectorShift, header.sector_shift);
    write_u16_le(p + at::kMiniSectorShift, header.mini_sector_shift);
    write_u16_le(p + at::kReservedWord, header.reserved_word);
    std::copy(header.reserved_dword.begin(), header.reserved_dword.end(), p + at::kReservedDword);
    write_u32_le(p + at::kNumDirSecs, header.num_of_dir_secs);
    write_u32_le(p + at::kNumSatSecs, header.num_of_sat_secs);
    write_u32_le(p + at::kFirstDirSid, header.first_dir_sid);
    std::copy(header.transaction_sign_num.begin(), header.transaction_sign_num.end(),
              p + at::kTransaction);
    write_u32_le(p + at::kMiniCutoff, header.mini_stream_cutoff_size);
    write_u32_le(p + at::kFirstMinisatSid, header.first_minisat_sid);
    write_u32_le(p + at::kNumMinisatSecs, header.num_of_minisat_secs);
    write_u32_le(p + at::kFirstDisatSid, header.first_disat_sid);
    write_u32_le(p + at::kNumDisatSecs, header.num_of_disat_secs);
    for (std::size_t i = 0; i < Cfb_Header::kHeaderDisatCount && i < disat.size(); ++i) {
        write_u32_le(p + at::kHeaderDisat + 4 * i, disat[i]);
    }
    return bytes;
}

}  // namespace vrk
