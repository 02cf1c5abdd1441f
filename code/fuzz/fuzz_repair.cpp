// Arbitrary bytes as a compound file through VrkCfbGeneralRepair into a scratch folder. Aborts
// when the input changes, when the folder gains anything but the input, the output folder and
// the library's own, or the output folder anything but the one output the repair may write.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "cfb_vornak/cfb_vornak_api.h"
#include "scratch_frame.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    namespace stdfs = std::filesystem;
    namespace fuzz = vrk::fuzz;
    const stdfs::path& base = fuzz::scratch_folder("fuzz_repair");
    const stdfs::path input = base / "in.doc";
    const stdfs::path output = base / "out";
    fuzz::write_input(input, data, size);
    VrkCfbGeneralRepair(fuzz::narrow(input).c_str(), fuzz::narrow(output / "repaired.doc").c_str());
    fuzz::require_unchanged(input, data, size);
    fuzz::require_only(base, {"in.doc", "out", "work", "logs", "config"});
    std::error_code ec;
    if (stdfs::is_directory(output, ec)) {
        fuzz::require_only(output,
                           {"repaired.cfb", "repaired.doc", "repaired.xls", "repaired.ppt"});
        std::size_t outputs = 0;
        for (const auto& item : stdfs::directory_iterator(output)) {
            // The output is the header followed by the input from offset 512 on.
            if (size >= 1024 && stdfs::file_size(item.path()) != size) std::abort();
            ++outputs;
        }
        if (outputs > 1) std::abort();
    }
    stdfs::remove_all(output, ec);
    return 0;
}
