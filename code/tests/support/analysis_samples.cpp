#include "support/analysis_samples.h"

#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include "common/platform.h"
#include "support/cfb_patch.h"

namespace vrk::test {

File_Description describe(const std::wstring& path) {
    return File_Description{path, path, platform::to_utf8(path)};
}

std::vector<uint8_t> read_bytes(const std::wstring& path, bool* exists) {
    std::error_code ec;
    if (exists != nullptr) *exists = std::filesystem::is_regular_file(platform::to_path(path), ec);
    std::ifstream in(platform::to_path(path), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::set<std::string> folder_names(const std::wstring& folder) {
    std::set<std::string> names;
    std::error_code ec;
    for (const auto& item : std::filesystem::directory_iterator(platform::to_path(folder), ec))
        names.insert(platform::to_utf8(platform::from_path(item.path().filename())));
    return names;
}

std::set<std::string> tree_names(const std::wstring& folder) {
    std::set<std::string> names;
    std::error_code ec;
    const std::filesystem::path base = platform::to_path(folder);
    for (const auto& item : std::filesystem::recursive_directory_iterator(base, ec)) {
        std::string name;
        for (const auto& part : item.path().lexically_relative(base))
            name += (name.empty() ? "" : "/") + platform::to_utf8(platform::from_path(part));
        names.insert(name);
    }
    return names;
}

void set_entry_name(std::vector<uint8_t>& file, const Build_Layout& layout, uint32_t did,
                    const std::u16string& name) {
    const uint64_t offset = directory_entry_offset(layout, did);
    for (std::size_t i = 0; i < 32; ++i)
        patch_u16(file, offset + 2 * i, i < name.size() ? name[i] : 0);
    patch_u16(file, offset + 64, static_cast<uint16_t>(name.empty() ? 0 : 2 * (name.size() + 1)));
}

std::unique_ptr<Cfb_File> open_parsed(const std::wstring& path, const std::wstring& output) {
    return std::make_unique<Cfb_File>(describe(path), describe(output));
}

}  // namespace vrk::test
