#include "support/literal_probe.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <memory>
#include <stdexcept>

#include "cfb_vornak/probe/Root_Signature_Search.h"
#include "common/platform.h"

namespace vrk::test {
namespace {

// What `probe` returns, or the failure text it throws.
template <typename Probe>
std::string outcome(Probe probe) {
    try {
        return std::to_string(probe());
    } catch (const std::logic_error& failure) {
        return failure.what();
    }
}

}  // namespace

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
            Directory_Entry r = literal_directory_entry(file.door(), 512 + 128 * index,
                                                        static_cast<uint32_t>(index));
            if (literal_plausible(file, r)) found[s].push_back(r);
        }
    }
    Literal_Scan_Result out;
    const Directory_Entry* root = nullptr;
    for (const auto& [s, list] : found) {
        for (const auto& r : list) root = r.object_type == 5 ? &r : root;
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

std::string probe_difference(const File_Description& input, const uint8_t* data, std::size_t size) {
    const auto& needle = kRootEntrySignature;
    const bool found =
        size <= 4096 ? literal_root_signature_search(input.open_path_wstr)
                     : std::search(data, data + size, needle.begin(), needle.end()) != data + size;
    if (Cfb_File::search_root_entry_signature(input) != found) return "signature search";
    if (size > 1024 * 1024) return {};
    std::unique_ptr<Cfb_File> fast;
    Literal_Scan_Result literal;
    bool scanned = false;
    const std::string fast_scan = outcome([&] {
        fast = std::make_unique<Cfb_File>(input);
        return fast->find_root_entry_by_scan();
    });
    const std::string literal_scan = outcome([&] {
        Cfb_File slow(input);
        literal = literal_root_entry_scan(slow);
        scanned = true;
        return literal.result;
    });
    if (fast_scan != literal_scan) return "scan: " + fast_scan + " / " + literal_scan;
    if (scanned && (!same_layout(fast->scanned_directory_layout, literal.layout) ||
                    fast->mini_sector_count != literal.mini_sector_count ||
                    (literal.result == 0 && !same_entry(fast->root_entry, literal.root)))) {
        return "scanned records";
    }
    const std::string classified =
        outcome([&] { return Cfb_File::get_cfb_file_damaged_type(input); });
    const std::string expected = outcome([&] {
        if (!found) return ec::kNotCfb;
        Cfb_File file(input);
        return Cfb_File::check_cfb_core(file);
    });
    return classified == expected ? "" : "classification: " + classified + " / " + expected;
}

}  // namespace vrk::test
