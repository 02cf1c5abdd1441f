#include "support/parse_samples.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>

#include "cfb_vornak/entries/Cfb_Logger.h"
#include "cfb_vornak/format/Cfb_Header.h"
#include "common/platform.h"
#include "support/cfb_patch.h"

namespace vrk::test {

Raw_Cfb::Raw_Cfb(uint32_t sectors, uint32_t tail, uint8_t fill)
    : bytes(512 + uint64_t{sectors} * 512 + tail, fill) {
    std::fill_n(bytes.begin(), 512, 0);
    write_u64_le(bytes.data(), Cfb_Header::kSignature);
    u16_at(offsets::kMinorVersion, 0x003E);
    u16_at(offsets::kMajorVersion, 3);
    u16_at(offsets::kByteOrder, 0xFFFE);
    u16_at(offsets::kSectorShift, 9);
    u16_at(offsets::kMiniSectorShift, 6);
    u32_at(offsets::kFirstDirSid, ENDOFCHAIN);
    u32_at(offsets::kMiniStreamCutoff, 4096);
    u32_at(offsets::kFirstMinisatSid, ENDOFCHAIN);
    u32_at(offsets::kFirstDisatSid, ENDOFCHAIN);
    for (uint64_t i = 0; i < Cfb_Header::kHeaderDisatCount; ++i)
        u32_at(offsets::kHeaderDisat + 4 * i, FREESECT);
}

void Raw_Cfb::single_sat(sid_t sat) {
    sat_sector = sat;
    u32_at(offsets::kHeaderDisat, sat);
    u32_at(offsets::kNumSatSecs, 1);
    fill(sat, FREESECT);
    entry(sat, sat, FATSECT);
}

void Raw_Cfb::directory_entry(sid_t sid, uint32_t slot, const std::u16string& name, uint8_t type,
                              sid_t start, uint32_t size, uint32_t child, uint32_t left,
                              uint32_t right) {
    const uint64_t at = (uint64_t{sid} + 1) * 512 + 128 * uint64_t{slot};
    std::fill_n(&bytes.at(at + 127) - 127, 128, 0);
    for (std::size_t i = 0; i < name.size() && i < 31; ++i)
        u16_at(at + 2 * i, static_cast<uint16_t>(name[i]));
    u16_at(at + 64, static_cast<uint16_t>(2 * (name.size() + 1)));
    u8_at(at + 66, type);
    u8_at(at + 67, 1);
    u32_at(at + 68, left);
    u32_at(at + 72, right);
    u32_at(at + 76, child);
    u32_at(at + 116, start);
    u32_at(at + 120, size);
}

File_Description write_sample(const std::string& name, const std::vector<uint8_t>& bytes) {
    const std::wstring wide = platform::widen(name);
    if (!write_bytes_to_file(wide, bytes)) throw std::runtime_error("cannot write " + name);
    return {wide, wide, name};
}

std::vector<std::string> new_error_lines() {
    static const bool started = Cfb_Logger::start(".", "parse_test", ".");
    static std::streamoff consumed = 0;
    (void)started;
    std::ifstream in("parse_test.log", std::ios::binary);
    in.seekg(consumed);
    std::vector<std::string> lines;
    std::string line;
    while (std::getline(in, line)) {
        consumed += static_cast<std::streamoff>(line.size()) + 1;
        const std::size_t at = line.find(" ERROR [");
        if (at != std::string::npos) lines.push_back(line.substr(at + 7));
    }
    return lines;
}

std::string message_of(const std::string& line) {
    const std::size_t at = line.find("]->info: ");
    return at == std::string::npos ? line : line.substr(at + 9);
}

}  // namespace vrk::test
