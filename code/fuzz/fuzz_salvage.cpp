// Arbitrary bytes through the salvage into a scratch folder. Aborts when anything is written
// outside the extraction folder, or when the compound file rebuilt from the salvaged tree does
// not itself salvage completely with the same bytes.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "cfb_vornak/builder/Cfb_Builder.h"
#include "cfb_vornak/salvage/Salvage.h"
#include "cfb_vornak/salvage/Salvage_Output.h"
#include "common/platform.h"
#include "support/sample_shapes.h"

namespace {

namespace stdfs = std::filesystem;

// Every stream of the file rebuilt from the salvaged tree comes back whole.
void check_rebuilt(const uint8_t* data, std::size_t size, const vrk::Salvage_Result& result,
                   const vrk::Salvage_Keep& keep) {
    const auto tree = vrk::salvage_tree(data, size, result, keep);
    std::vector<vrk::test::Expected_Stream> streams;
    std::vector<std::u16string> storages;
    vrk::test::collect_expected(*tree, streams, storages);
    const std::vector<uint8_t> rebuilt = vrk::build_compound_file(*tree);
    const vrk::Salvage_Result again = vrk::salvage_bytes(rebuilt.data(), rebuilt.size());
    if (again.stream_count() != streams.size()) std::abort();
    for (std::size_t i = 0; i < again.entries.size(); ++i) {
        const vrk::Salvaged_Entry& e = again.entries[i];
        if (e.object_type != 2) continue;
        if (e.state != vrk::Salvage_State::recovered) std::abort();
        const auto it = std::find_if(streams.begin(), streams.end(),
                                     [&](const auto& s) { return s.path == again.path_of(i); });
        if (it == streams.end() ||
            vrk::salvaged_bytes(rebuilt.data(), rebuilt.size(), e.pieces) != it->node->data)
            std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const vrk::Salvage_Result result = vrk::salvage_bytes(data, size);
    (void)vrk::salvage_report_text(result);
    (void)vrk::salvage_report_json(result);
    if (!result.is_compound_file) return 0;
    const stdfs::path scratch = stdfs::absolute(stdfs::current_path() / "fuzz_salvage_tmp");
    const stdfs::path out = scratch / "out";
    std::error_code ec;
    stdfs::remove_all(scratch, ec);
    const vrk::Salvage_Keep keep{true, true};
    std::string error;
    if (vrk::salvage_extract(data, size, result, vrk::platform::from_path(out), keep, error)) {
        for (stdfs::recursive_directory_iterator it(scratch, ec), end; !ec && it != end;
             it.increment(ec)) {
            const stdfs::path rel = it->path().lexically_relative(out);
            if ((rel.empty() || *rel.begin() == "..") && it->path() != out) std::abort();
        }
    }
    stdfs::remove_all(scratch, ec);
    check_rebuilt(data, size, result, keep);
    return 0;
}
