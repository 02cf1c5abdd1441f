// Arbitrary bytes as a compound file through VrkCfbAnalysis into a scratch folder. Aborts when
// the input changes or anything appears in the folder beside the input, the output folder and
// the library's own folders.
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <system_error>

#include "cfb_vornak/cfb_vornak_api.h"
#include "scratch_frame.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    namespace fuzz = vrk::fuzz;
    const std::filesystem::path& base = fuzz::scratch_folder("fuzz_analysis");
    const std::filesystem::path input = base / "in.cfb";
    const std::filesystem::path output = base / "out";
    fuzz::write_input(input, data, size);
    VrkCfbAnalysis(fuzz::narrow(input).c_str(), fuzz::narrow(output).c_str());
    fuzz::require_unchanged(input, data, size);
    fuzz::require_only(base, {"in.cfb", "out", "work", "logs", "config", "Logs"});
    std::error_code ec;
    std::filesystem::remove_all(output, ec);
    return 0;
}
