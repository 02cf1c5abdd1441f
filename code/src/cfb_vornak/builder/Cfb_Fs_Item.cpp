#include "cfb_vornak/builder/Cfb_Fs_Item.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>
#include <type_traits>
#include <utility>

#include "common/platform.h"

namespace vrk {

namespace {

constexpr std::size_t kMaxNameUnits = 31;

// Wide text (UTF-16 on Windows, UTF-32 elsewhere) as the UTF-16 units a directory entry stores.
std::u16string to_utf16(const std::wstring& wide) {
    std::u16string units;
    units.reserve(wide.size());
    for (const wchar_t c : wide) {
        if constexpr (sizeof(wchar_t) == 2) {
            units.push_back(static_cast<char16_t>(c));
            continue;
        }
        const auto code = static_cast<uint32_t>(static_cast<std::make_unsigned_t<wchar_t>>(c));
        if (code >= 0x10000 && code <= 0x10FFFF) {
            const uint32_t v = code - 0x10000;
            units.push_back(static_cast<char16_t>(0xD800 + (v >> 10)));
            units.push_back(static_cast<char16_t>(0xDC00 + (v & 0x3FF)));
        } else if (code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
            units.push_back(u'\uFFFD');
        } else {
            units.push_back(static_cast<char16_t>(code));
        }
    }
    return units;
}

std::u16string entry_name(const std::filesystem::path& path) {
    std::u16string name = to_utf16(platform::from_path(path.filename()));
    if (name.size() > kMaxNameUnits) {
        throw std::runtime_error("scan_folder_tree: the name of " +
                                 platform::to_utf8(platform::from_path(path)) + " has " +
                                 std::to_string(name.size()) +
                                 " UTF-16 units; a compound file allows at most 31");
    }
    return name;
}

std::vector<uint8_t> read_whole_file(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw std::runtime_error("scan_folder_tree: cannot open " +
                                 platform::to_utf8(platform::from_path(path)));
    }
    std::vector<uint8_t> bytes;
    std::error_code ec;
    const auto size = std::filesystem::file_size(path, ec);
    if (!ec) bytes.reserve(static_cast<std::size_t>(size));
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    if (in.bad()) {
        throw std::runtime_error("scan_folder_tree: cannot read " +
                                 platform::to_utf8(platform::from_path(path)));
    }
    return bytes;
}

// Symbolic links are left out, so a link back up the tree cannot make the scan endless; the
// depth is that of the real folder tree.
void scan_into(const std::filesystem::path& folder, Cfb_Fs_Item_DirNode& storage) {
    std::vector<std::filesystem::directory_entry> entries;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) entries.push_back(entry);
    std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) {
        return a.path().filename() < b.path().filename();
    });
    for (const auto& entry : entries) {
        if (entry.is_symlink()) continue;
        if (entry.is_directory()) {
            scan_into(entry.path(), storage.add_storage(entry_name(entry.path())));
        } else if (entry.is_regular_file()) {
            storage.add_stream(entry_name(entry.path()), read_whole_file(entry.path()));
        }
    }
}

}  // namespace

Cfb_Fs_Item_DirNode& Cfb_Fs_Item_DirNode::add_storage(const std::u16string& child_name) {
    auto child = std::make_unique<Cfb_Fs_Item_DirNode>();
    child->name = child_name;
    Cfb_Fs_Item_DirNode& ref = *child;
    children.push_back(std::move(child));
    return ref;
}

Cfb_Fs_Item_FileNode& Cfb_Fs_Item_DirNode::add_stream(const std::u16string& child_name,
                                                      std::vector<uint8_t> bytes) {
    auto child = std::make_unique<Cfb_Fs_Item_FileNode>();
    child->name = child_name;
    child->data = std::move(bytes);
    Cfb_Fs_Item_FileNode& ref = *child;
    children.push_back(std::move(child));
    return ref;
}

std::unique_ptr<Cfb_Fs_Item_DirNode> scan_folder_tree(const std::wstring& folder) {
    auto root = std::make_unique<Cfb_Fs_Item_DirNode>();
    root->name = u"Root Entry";
    try {
        scan_into(platform::to_path(folder), *root);
    } catch (const std::filesystem::filesystem_error& e) {
        throw std::runtime_error(std::string("scan_folder_tree: ") + e.what());
    }
    return root;
}

}  // namespace vrk
