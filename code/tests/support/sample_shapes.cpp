#include "support/sample_shapes.h"

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "common/platform.h"
#include "common/unicode.h"
#include "support/analysis_samples.h"
#include "support/cfb_patch.h"

namespace vrk::test {

namespace {

// Each stream gets its own seed, so equal sizes still have different contents.
std::vector<uint8_t> data(std::size_t size, uint64_t& seed) {
    return random_bytes(size, ++seed);
}

void stream_sizes_tree(Cfb_Fs_Item_DirNode& root) {
    uint64_t seed = 100;
    for (const std::size_t size : {0, 63, 64, 4095, 4096, 4097})
        root.add_stream(ascii("Size" + std::to_string(size)), data(size, seed));
    root.add_stream(u"ThreeMiB", data(3u << 20, seed));
    root.add_storage(u"Box").add_stream(u"Inner4097", data(4097, seed));
}

void nested_tree(Cfb_Fs_Item_DirNode& root) {
    uint64_t seed = 200;
    root.add_stream(u"Top", data(700, seed));
    Cfb_Fs_Item_DirNode* level = &root;
    for (int depth = 1; depth <= 4; ++depth) {
        level = &level->add_storage(ascii("Level" + std::to_string(depth)));
        level->add_stream(u"Small", data(100 * depth, seed));
        level->add_stream(u"Large", data(5000 * depth, seed));
    }
    root.add_storage(u"Empty");
    root.add_storage(u"Level1b").add_storage(u"Deeper").add_stream(u"Leaf", data(1, seed));
}

void unicode_tree(Cfb_Fs_Item_DirNode& root) {
    uint64_t seed = 300;
    root.add_stream(u"文档", data(1000, seed));
    root.add_stream(u"ABCDEFGHIJKLMNOPQRSTUVWXYZabcde", data(31, seed));
    root.add_stream(u"b", data(10, seed));
    root.add_stream(u"A", data(11, seed));
    root.add_stream(u"aa", data(12, seed));
    root.add_stream(u"Zz", data(13, seed));
    root.add_stream(u"\u0001CompObj", data(5000, seed));
    Cfb_Fs_Item_DirNode& box = root.add_storage(u"中文存储");
    box.add_stream(u"工作表数据", data(4500, seed));
    box.add_stream(u"Écrit", data(20, seed));
}

void many_streams_tree(Cfb_Fs_Item_DirNode& root) {
    uint64_t seed = 400;
    for (int i = 0; i < 300; ++i) {
        const std::string digits = std::to_string(10000 + i).substr(1);
        root.add_stream(ascii("Stream" + digits), data((i * 131) % 6000, seed));
    }
}

void disat_tree(Cfb_Fs_Item_DirNode& root) {
    uint64_t seed = 500;
    root.add_stream(u"Big", data(8u << 20, seed));
    root.add_stream(u"Small", data(200, seed));
}

void item_fields_tree(Cfb_Fs_Item_DirNode& root) {
    uint64_t seed = 600;
    auto mark = [](Cfb_Fs_Item_AbstractNode& node, uint8_t base) {
        for (std::size_t i = 0; i < node.clsid.size(); ++i) node.clsid[i] = base + i;
        for (std::size_t i = 0; i < node.state_bits.size(); ++i) node.state_bits[i] = base ^ i;
        for (std::size_t i = 0; i < 8; ++i) {
            node.creation_time[i] = base + 0x20 + i;
            node.modified_time[i] = base + 0x40 + i;
        }
    };
    mark(root, 0x10);
    Cfb_Fs_Item_DirNode& box = root.add_storage(u"Box");
    mark(box, 0x60);
    mark(box.add_stream(u"Inside", data(300, seed)), 0x90);
    mark(root.add_stream(u"Outside", data(5000, seed)), 0xA0);
}

void mixed_tree(Cfb_Fs_Item_DirNode& root) {
    nested_tree(root.add_storage(u"Nested"));
    stream_sizes_tree(root.add_storage(u"Sizes"));
    unicode_tree(root.add_storage(u"Names"));
}

struct Recipe {
    std::string name;
    std::function<void(Cfb_Fs_Item_DirNode&)> fill;
    std::function<void(Builder_Options&)> options = [](Builder_Options&) {};
};

// clang-format off
const std::vector<Recipe>& recipes() {
    static const std::vector<Recipe> all = {
        {"empty_root", [](Cfb_Fs_Item_DirNode&) {}},  // the root without children
        {"nested_storages", nested_tree},     // four levels, streams at each, an empty storage
        {"unicode_names", unicode_tree},      // Chinese, 31 units, ordered by length and case
        {"stream_sizes", stream_sizes_tree},  // 0, 63, 64, 4095, 4096, 4097 bytes, 3 MiB
        {"many_streams", many_streams_tree},  // 300: directory sectors, a deep sibling tree
        {"disat", disat_tree},                // 8 MiB: more than 109 SAT sectors, so DISAT sectors
        {"item_fields", item_fields_tree},    // clsid, state bits, times on every item
        {"version4", stream_sizes_tree, [](Builder_Options& o) { o.major_version = 4; }},
        {"minor_3b", nested_tree, [](Builder_Options& o) { o.minor_version = 0x003B; }},
        {"sibling_chain", mixed_tree, [](Builder_Options& o) { o.sibling_chain = true; }},
        {"tables_at_end", mixed_tree, [](Builder_Options& o) { o.tables_at_end = true; }},
        {"sat_in_last_sector", mixed_tree, [](Builder_Options& o) { o.sat_in_last_sector = true; }},
        {"all_options", mixed_tree, [](Builder_Options& o) {
             o.sibling_chain = o.tables_at_end = o.sat_in_last_sector = true; }},
        // 3 sectors of slack after chains and the container; 2 free after the directory.
        {"slack_chains", mixed_tree, [](Builder_Options& o) {
             o.slack_sectors = 3;
             o.free_after_directory = 2; }},
        // Nested storages after an older save of other streams, in free sectors.
        {"older_save", nested_tree, [](Builder_Options& o) {
             Cfb_Fs_Item_DirNode earlier;
             stream_sizes_tree(earlier);
             o.older_save = build_compound_file(earlier); }}};
    return all;
}
// clang-format on

// The CRC-32 of zlib (reflected, polynomial 0xEDB88320): Python's zlib.crc32 checks it.
uint32_t crc32(const std::vector<uint8_t>& bytes) {
    uint32_t crc = 0xFFFFFFFFu;
    for (const uint8_t b : bytes) {
        crc ^= b;
        for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

}  // namespace

std::vector<std::string> sample_shape_names() {
    std::vector<std::string> names;
    for (const Recipe& recipe : recipes()) names.push_back(recipe.name);
    return names;
}

Sample_Shape make_sample_shape(const std::string& name) {
    for (const Recipe& recipe : recipes()) {
        if (recipe.name != name) continue;
        Sample_Shape shape;
        shape.name = name;
        recipe.options(shape.options);
        shape.root = std::make_unique<Cfb_Fs_Item_DirNode>();
        shape.root->name = u"Root Entry";
        recipe.fill(*shape.root);
        collect_expected(*shape.root, shape.streams, shape.storages);
        return shape;
    }
    throw std::invalid_argument("make_sample_shape: no shape named " + name);
}

void collect_expected(const Cfb_Fs_Item_DirNode& root, std::vector<Expected_Stream>& streams,
                      std::vector<std::u16string>& storages, const std::u16string& prefix) {
    if (prefix.empty()) {
        streams.clear();
        storages.clear();
    }
    for (const auto& child : root.children) {
        const std::u16string path = prefix + child->name;
        if (!child->is_dir()) {
            streams.push_back({path, static_cast<const Cfb_Fs_Item_FileNode*>(child.get())});
            continue;
        }
        storages.push_back(path);
        collect_expected(static_cast<const Cfb_Fs_Item_DirNode&>(*child), streams, storages,
                         path + u"/");
    }
}

std::u16string ascii(const std::string& name) {
    return {name.begin(), name.end()};
}

std::string utf16_to_utf8(const std::u16string& units) {
    return unicode::wide_to_utf8(unicode::utf16_to_wide(units.data(), units.size()));
}

std::string manifest_json(const Sample_Shape& shape) {
    nlohmann::json manifest{{"streams", nlohmann::json::array()},
                            {"storages", nlohmann::json::array()}};
    for (const auto& stream : shape.streams) {
        const std::vector<uint8_t>& bytes = stream.node->data;
        manifest["streams"].push_back({{"path", utf16_to_utf8(stream.path)},
                                       {"size", bytes.size()},
                                       {"crc32", crc32(bytes)}});
    }
    for (const auto& storage : shape.storages)
        manifest["storages"].push_back(utf16_to_utf8(storage));
    return manifest.dump(2) + "\n";
}

bool write_sample_files(const std::wstring& folder, const Sample_Shape& shape, std::string& error) {
    const std::wstring base = folder + platform::kSeparator + platform::widen(shape.name) + L".cfb";
    const std::string manifest = manifest_json(shape);
    if (!write_compound_file(base, *shape.root, shape.options) ||
        !write_bytes_to_file(base + L".json",
                             std::vector<uint8_t>(manifest.begin(), manifest.end()))) {
        error = "cannot write " + platform::to_utf8(base) + " or its manifest";
        return false;
    }
    return true;
}

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

std::unique_ptr<Cfb_File> open_parsed(const std::wstring& path, const std::wstring& output) {
    return std::make_unique<Cfb_File>(describe(path), describe(output));
}

void set_entry_name(std::vector<uint8_t>& file, const Build_Layout& layout, uint32_t did,
                    const std::u16string& name) {
    const uint64_t offset = directory_entry_offset(layout, did);
    for (std::size_t i = 0; i < 32; ++i)
        patch_u16(file, offset + 2 * i, i < name.size() ? name[i] : 0);
    patch_u16(file, offset + 64, static_cast<uint16_t>(name.empty() ? 0 : 2 * (name.size() + 1)));
}

}  // namespace vrk::test
