// The items a compound file is built from: storages and streams, scanned from a folder tree
// or assembled in memory.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace vrk {

class Cfb_Fs_Item_AbstractNode {
  public:
    virtual ~Cfb_Fs_Item_AbstractNode() = default;
    virtual bool is_dir() const = 0;

    std::u16string name;  // at most 31 UTF-16 units
    std::array<uint8_t, 16> clsid{};
    std::array<uint8_t, 4> state_bits{};
    std::array<uint8_t, 8> creation_time{};  // FILETIME, little-endian
    std::array<uint8_t, 8> modified_time{};
};

class Cfb_Fs_Item_FileNode : public Cfb_Fs_Item_AbstractNode {
  public:
    bool is_dir() const override { return false; }
    std::vector<uint8_t> data;
};

class Cfb_Fs_Item_DirNode : public Cfb_Fs_Item_AbstractNode {
  public:
    bool is_dir() const override { return true; }
    Cfb_Fs_Item_DirNode& add_storage(const std::u16string& child_name);
    Cfb_Fs_Item_FileNode& add_stream(const std::u16string& child_name, std::vector<uint8_t> bytes);

    std::vector<std::unique_ptr<Cfb_Fs_Item_AbstractNode>> children;
};

// The tree of a folder: sub-folders become storages, files become streams (names converted
// to UTF-16, longer than 31 units refused). Throws std::runtime_error on a read failure.
std::unique_ptr<Cfb_Fs_Item_DirNode> scan_folder_tree(const std::wstring& folder);

}  // namespace vrk
