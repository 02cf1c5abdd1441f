// Arbitrary bytes through the salvage into a scratch folder. Aborts when anything is written
// outside the extraction folder, or when the compound file rebuilt from the salvaged tree does
// not itself salvage completely with the same bytes.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <system_error>
#include <vector>

#include "cfb_vornak/builder/Cfb_Builder.h"
#include "cfb_vornak/salvage/Salvage.h"
#include "cfb_vornak/salvage/Salvage_Output.h"
#include "common/platform.h"

namespace {

namespace stdfs = std::filesystem;

const stdfs::path& scratch() {
    static const stdfs::path folder = stdfs::absolute(stdfs::current_path() / "fuzz_salvage_tmp");
    return folder;
}

// Every stream of the rebuilt file must come back whole, with the bytes it was built from.
void check_rebuilt(const uint8_t* data, std::size_t size, const vrk::Salvage_Result& result) {
    vrk::Salvage_Keep keep;
    keep.partial = true;
    keep.inferred = true;
    const auto tree = vrk::salvage_tree(data, size, result, keep);
    std::map<std::u16string, std::vector<uint8_t>> expected;
    std::vector<std::pair<const vrk::Cfb_Fs_Item_DirNode*, std::u16string>> todo{{tree.get(), u""}};
    // Each storage is visited once; the tree is finite.
    while (!todo.empty()) {
        const auto [dir, prefix] = todo.back();
        todo.pop_back();
        for (const auto& child : dir->children) {
            const std::u16string path = prefix.empty() ? child->name : prefix + u"/" + child->name;
            if (child->is_dir()) {
                todo.emplace_back(static_cast<const vrk::Cfb_Fs_Item_DirNode*>(child.get()), path);
            } else {
                expected[path] = static_cast<const vrk::Cfb_Fs_Item_FileNode*>(child.get())->data;
            }
        }
    }
    const std::vector<uint8_t> rebuilt = vrk::build_compound_file(*tree);
    const vrk::Salvage_Result again = vrk::salvage_bytes(rebuilt.data(), rebuilt.size());
    if (again.stream_count() != expected.size()) std::abort();
    for (std::size_t i = 0; i < again.entries.size(); ++i) {
        const vrk::Salvaged_Entry& e = again.entries[i];
        if (e.object_type != 2) continue;
        if (e.state != vrk::Salvage_State::recovered) std::abort();
        const auto it = expected.find(again.path_of(i));
        if (it == expected.end()) std::abort();
        if (vrk::salvaged_bytes(rebuilt.data(), rebuilt.size(), e.pieces) != it->second)
            std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const vrk::Salvage_Result result = vrk::salvage_bytes(data, size);
    (void)vrk::salvage_report_text(result);
    (void)vrk::salvage_report_json(result);
    if (!result.is_compound_file) return 0;

    std::error_code ec;
    stdfs::remove_all(scratch(), ec);
    const stdfs::path out = scratch() / "out";
    std::string error;
    vrk::Salvage_Keep keep;
    keep.partial = true;
    keep.inferred = true;
    if (vrk::salvage_extract(data, size, result, vrk::platform::from_path(out), keep, error)) {
        for (stdfs::recursive_directory_iterator it(scratch(), ec), end; !ec && it != end;
             it.increment(ec)) {
            const stdfs::path rel = it->path().lexically_relative(out);
            if (rel.empty() || *rel.begin() == "..") {
                if (it->path() != out) std::abort();
            }
        }
    }
    stdfs::remove_all(scratch(), ec);
    check_rebuilt(data, size, result);
    return 0;
}
