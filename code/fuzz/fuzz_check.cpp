// Arbitrary bytes, written to a file, through VrkCfbFileCheck. The probe's fast passes are
// also compared with their literal byte-wise forms, and any difference aborts.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "cfb_vornak/cfb_vornak_api.h"
#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/probe/Root_Signature_Search.h"
#include "common/platform.h"
#include "scratch_frame.h"
#include "support/literal_probe.h"

namespace {

namespace stdfs = std::filesystem;

// The literal stream search seeks once per byte: above this size the fast search is compared
// with a plain search over the input bytes instead.
constexpr std::size_t kStreamCompareLimit = 4 * 1024;
// The literal scan reads every byte through the door.
constexpr std::size_t kScanCompareLimit = 1024 * 1024;

void compare_searches(const vrk::File_Description& input, const uint8_t* data, std::size_t size) {
    const bool fast = vrk::Cfb_File::search_root_entry_signature(input);
    const bool slow = size <= kStreamCompareLimit
                          ? vrk::test::literal_root_signature_search(input.open_path_wstr)
                          : std::search(data, data + size, vrk::kRootEntrySignature.begin(),
                                        vrk::kRootEntrySignature.end()) != data + size;
    if (fast != slow) std::abort();
}

void compare_scans(const vrk::File_Description& input) {
    try {
        vrk::Cfb_File fast(input);
        vrk::Cfb_File slow(input);
        std::string fast_failure;
        std::string slow_failure;
        uint32_t result = 0;
        vrk::test::Literal_Scan_Result literal;
        try {
            result = fast.find_root_entry_by_scan();
        } catch (const std::logic_error& failure) {
            fast_failure = failure.what();
        }
        try {
            literal = vrk::test::literal_root_entry_scan(slow);
        } catch (const std::logic_error& failure) {
            slow_failure = failure.what();
        }
        if (fast_failure != slow_failure) std::abort();
        if (!fast_failure.empty()) return;
        if (result != literal.result || fast.mini_sector_count != literal.mini_sector_count ||
            !vrk::test::same_layout(fast.scanned_directory_layout, literal.layout)) {
            std::abort();
        }
    } catch (const std::logic_error&) {
        // The door refuses this input (a zero-length file cannot be mapped).
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    const stdfs::path path = vrk::fuzz::scratch_folder("fuzz_check") / "input.doc";
    vrk::fuzz::write_input(path, data, size);
    const std::wstring wide = vrk::platform::from_path(path);
    const int32_t result = VrkCfbFileCheck(vrk::platform::narrow(wide).c_str());
    if (result > 0 || result < -3114) std::abort();
    const vrk::File_Description input{wide, wide, vrk::platform::to_utf8(wide)};
    compare_searches(input, data, size);
    if (size <= kScanCompareLimit) compare_scans(input);
    return 0;
}
