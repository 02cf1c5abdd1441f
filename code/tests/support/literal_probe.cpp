#include "support/literal_probe.h"

#include <array>
#include <cstring>
#include <fstream>

#include "cfb_vornak/Root_Signature_Search.h"
#include "common/platform.h"

namespace vrk::test {

bool literal_root_signature_search(const std::wstring& path) {
    std::ifstream in(platform::to_path(path), std::ios::binary);
    if (!in.is_open()) return false;
    std::array<char, 22> buffer{};
    in.read(buffer.data(), buffer.size());
    while (in.good()) {
        if (in.gcount() == 22 &&
            std::memcmp(buffer.data(), kRootEntrySignature.data(), buffer.size()) == 0) {
            return true;
        }
        in.clear(in.rdstate() & ~std::ios::eofbit);
        in.seekg(-21, std::ios::cur);
        in.read(buffer.data(), buffer.size());
    }
    return false;
}

namespace {

uint32_t u32(File_Anywhere_Door& door, uint64_t offset) {
    std::array<uint8_t, 4> b{};
    door.copy_data_to_mem(offset, 4, b.data());
    return b[0] + 256u * b[1] + 65536u * b[2] + 16777216u * b[3];
}

template <std::size_t N>
void bytes(File_Anywhere_Door& door, uint64_t offset, std::array<uint8_t, N>& to) {
    door.copy_data_to_mem(offset, N, to.data());
}

Directory_Entry read_record(File_Anywhere_Door& door, uint64_t offset, uint32_t did) {
    Directory_Entry r;
    r.did = did;
    bytes(door, offset, r.name);
    std::array<uint8_t, 2> size{};
    bytes(door, offset + 64, size);
    r.name_valid_size = static_cast<uint16_t>(size[0] + 256 * size[1]);
    std::array<uint8_t, 1> one{};
    bytes(door, offset + 66, one);
    r.object_type = one[0];
    bytes(door, offset + 67, one);
    r.color_flag = one[0];
    r.left_sibling_id = u32(door, offset + 68);
    r.right_sibling_id = u32(door, offset + 72);
    r.child_id = u32(door, offset + 76);
    bytes(door, offset + 80, r.clsid);
    bytes(door, offset + 96, r.state_bits);
    bytes(door, offset + 100, r.creation_time);
    bytes(door, offset + 108, r.modified_time);
    r.start_sid = u32(door, offset + 116);
    r.stream_size = u32(door, offset + 120);
    return r;
}

}  // namespace

bool literal_plausible(const Cfb_File& file, const Directory_Entry& r) {
    if (r.name_valid_size < 1 || r.name_valid_size > 64) return false;
    for (std::size_t i = r.name_valid_size; i < 64; ++i) {
        if (r.name[i] != 0) return false;
    }
    for (uint32_t id : {r.left_sibling_id, r.right_sibling_id, r.child_id}) {
        if (!(id <= 10000u || id == 0xFFFFFFFFu)) return false;
    }
    if (!(r.stream_size < file.file_size - 512)) return false;
    if (r.stream_size <= 4096) return true;
    return r.start_sid <= file.max_sid;
}

Literal_Scan_Result literal_root_entry_scan(Cfb_File& file) {
    std::map<uint64_t, std::vector<Directory_Entry>> found;
    for (uint64_t s = 0; s <= file.max_sid; ++s) {
        for (uint64_t j = 0; j < 4; ++j) {
            const uint64_t index = 4 * s + j;
            Directory_Entry r =
                read_record(file.door(), 512 + 128 * index, static_cast<uint32_t>(index));
            if (literal_plausible(file, r)) found[s].push_back(r);
        }
    }
    Literal_Scan_Result out;
    const Directory_Entry* root = nullptr;
    for (const auto& [s, list] : found) {
        for (const auto& r : list) {
            if (r.object_type == 5) root = &r;
        }
    }
    if (root == nullptr) {
        out.result = 0xFFFFFFFFu;
        return out;
    }
    out.root = *root;
    out.mini_sector_count = root->stream_size / 63;
    for (const auto& [s, list] : found) {
        for (const auto& r : list) {
            if (r.stream_size < 4096 && r.start_sid > out.mini_sector_count) continue;
            out.layout[s].push_back(r);
        }
    }
    return out;
}

bool same_entry(const Directory_Entry& a, const Directory_Entry& b) {
    return a.name == b.name && a.name_valid_size == b.name_valid_size &&
           a.object_type == b.object_type && a.color_flag == b.color_flag &&
           a.left_sibling_id == b.left_sibling_id && a.right_sibling_id == b.right_sibling_id &&
           a.child_id == b.child_id && a.clsid == b.clsid && a.state_bits == b.state_bits &&
           a.creation_time == b.creation_time && a.modified_time == b.modified_time &&
           a.start_sid == b.start_sid && a.stream_size == b.stream_size && a.did == b.did;
}

bool same_layout(const std::map<uint64_t, std::vector<Directory_Entry>>& a,
                 const std::map<uint64_t, std::vector<Directory_Entry>>& b) {
    if (a.size() != b.size()) return false;
    for (auto ia = a.begin(), ib = b.begin(); ia != a.end(); ++ia, ++ib) {
        if (ia->first != ib->first || ia->second.size() != ib->second.size()) return false;
        for (std::size_t i = 0; i < ia->second.size(); ++i) {
            if (!same_entry(ia->second[i], ib->second[i])) return false;
        }
    }
    return true;
}

}  // namespace vrk::test
