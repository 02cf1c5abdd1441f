// Arbitrary bytes, written to a file, through VrkCfbFileCheck. The probe's fast passes are
// also compared with their literal byte-wise forms, and any difference aborts.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "cfb_vornak/cfb_vornak_api.h"
#include "common/platform.h"
#include "scratch_frame.h"
#include "support/literal_procedures.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const std::filesystem::path path = vrk::fuzz::scratch_folder("fuzz_check") / "input.doc";
    vrk::fuzz::write_input(path, data, size);
    const std::wstring wide = vrk::platform::from_path(path);
    const int32_t result = VrkCfbFileCheck(vrk::platform::narrow(wide).c_str());
    if (result > 0 || result < -3114) std::abort();
    const vrk::File_Description input{wide, wide, vrk::platform::to_utf8(wide)};
    if (!vrk::test::probe_difference(input, data, size).empty()) std::abort();
    return 0;
}
