#include "cfb_vornak/reports/Sector_Units.h"

#include <array>
#include <charconv>
#include <fstream>
#include <vector>

#include "cfb_vornak/entries/Cfb_Logger.h"
#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/reports/Cfb_Reports.h"
#include "common/fs_utils.h"
#include "common/platform.h"

namespace vrk {

namespace {

constexpr std::size_t kBlock = layout::kSectorSize;

void append_hex4(std::string& text, uint64_t value) {
    std::array<char, 24> digits{};
    const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), value, 16);
    const auto length = static_cast<std::size_t>(result.ptr - digits.data());
    if (length < 4) {
        text.append(4 - length, '0');
    }
    text.append(digits.data(), length);
}

std::string block_text(const uint8_t* bytes, uint64_t block_offset) {
    static const char kUpper[] = "0123456789ABCDEF";
    std::string text =
        "我是表头吖~  0  1  2  3  4  5  6  7  8  9  a  b  c  d  e  f \n"
        "            ↓  ↓  ↓  ↓  ↓  ↓  ↓  ↓  ↓  ↓  ↓  ↓  ↓  ↓  ↓  ↓  ";
    for (std::size_t j = 0; j < kBlock; ++j) {
        if (j % 16 == 0) {
            text.push_back('\n');
            append_hex4(text, block_offset + j);
            text.append("H:      ");
        }
        text.push_back(kUpper[bytes[j] >> 4]);
        text.push_back(kUpper[bytes[j] & 0x0F]);
        text.push_back(' ');
    }
    return text;
}

}  // namespace

std::string sector_unit_file_name(uint64_t block) {
    if (block == 0) {
        return "Header";
    }
    std::string name = "sector" + std::to_string(block - 1) + "[";
    append_hex4(name, (block - 1) * kBlock);
    name.append("H]");
    return name;
}

uint64_t split_to_sector_units(const std::wstring& source, const std::wstring& folder) {
    std::ifstream in(platform::to_path(source), std::ios::binary);
    if (!in.is_open()) {
        CFB_LOG_ERROR("Failed to open CFB file:" + platform::to_utf8(source));
        return 0;
    }
    (void)fs::create_directories(folder);  // a missing folder fails each unit's open
    std::array<uint8_t, kBlock> bytes{};
    uint64_t block = 0;
    // Every pass consumes one whole block of the source, so the walk ends with the file.
    while (in.read(reinterpret_cast<char*>(bytes.data()), kBlock)) {
        const std::wstring path = folder + platform::from_utf8(sector_unit_file_name(block));
        fs::remove_link_at(path);
        std::ofstream out(platform::to_path(path), std::ios::binary | std::ios::trunc);
        if (out.is_open()) {
            const std::string text = block_text(bytes.data(), block * kBlock);
            out.write(text.data(), static_cast<std::streamsize>(text.size()));
        }
        ++block;
    }
    return block;
}

std::wstring sector_units_folder(const std::wstring& output_folder) {
    return with_one_trailing_separator(output_folder) +
           platform::from_utf8(report_names::kSectorUnitsFolder) + platform::kSeparator;
}

uint64_t split_to_sector_units(const Cfb_File& file) {
    if (file.m_output.path_wstr.empty()) {
        return 0;
    }
    const std::wstring& source =
        file.m_input.open_path_wstr.empty() ? file.m_input.path_wstr : file.m_input.open_path_wstr;
    return split_to_sector_units(source, sector_units_folder(file.m_output.path_wstr));
}

}  // namespace vrk
