// The input cut short while it is read: another thread of the host, or another process, shortens
// the file at a random moment of a check, an analysis, a repair or a salvage. The host never
// dies (no SIGBUS): every call ends with one of its public results. Windows refuses to shorten a
// mapped file, so there the cuts fail and the calls see the whole file.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "cfb_vornak/builder/Cfb_Builder.h"
#include "cfb_vornak/cfb_vornak_api.h"
#include "cfb_vornak/salvage/Salvage.h"
#include "cfb_vornak/salvage/Salvage_Output.h"
#include "common/error_store.h"
#include "common/platform.h"
#include "file_operation/Input_View.h"
#include "support/cfb_patch.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

// A word-processing document of about 12 MB with its tables and directory after the data, so
// that every call reads far into the file before it is done.
std::string sample_document() {
    Cfb_Fs_Item_DirNode root;
    root.add_stream(u"WordDocument", test::random_bytes(std::size_t{2} << 20, 1));
    root.add_stream(u"1Table", test::random_bytes(3000, 2));
    for (char16_t i = 0; i < 20; ++i) {
        root.add_stream(u"data" + std::u16string(1, u'A' + i),
                        test::random_bytes(i % 2 == 0 ? 1500 : std::size_t{1} << 20, 3 + i));
    }
    Builder_Options options;
    options.tables_at_end = true;
    const std::vector<uint8_t> bytes = build_compound_file(root, options);
    return {bytes.begin(), bytes.end()};
}

// The salvage as the tool runs it with --out: 0 when the fresh file was written, 1 when it was
// not and the salvage said why, -1 otherwise.
int32_t salvage_to_file(const std::string& input, const std::string& output) {
    Input_View view;
    if (view.open(platform::widen(input)) != platform::Map_Step::ok) return 1;
    const salvage::Salvage_Input source(view);
    const Salvage_Result result = salvage_input(source);
    if (!result.is_compound_file) return result.reason.empty() ? -1 : 1;
    std::string error;
    if (salvage_write(source, result, platform::widen(output), {}, error)) return 0;
    return error.empty() ? -1 : 1;
}

TEST(Truncation, CallsEndWithAResultWhenTheirInputIsCutShort) {
    ASSERT_EQ(VrkCfbInit("logs", "config", "work"), 0);
    const std::string document = sample_document();
    test::Temp_Folder folder("truncation");
    const std::string input = (folder / "input.doc").string();
    const std::string output = (folder / "out").string();
    // An export answers with the thread's last error record: each starts from a success.
    const auto fresh = [] { VRK_PUSH_ERROR(ec::kSuccess); };
    const std::function<int32_t()> calls[] = {
        [&] { return fresh(), VrkCfbFileCheck(input.c_str()); },
        [&] { return fresh(), VrkCfbAnalysis(input.c_str(), output.c_str()); },
        [&] { return fresh(), VrkCfbGeneralRepair(input.c_str(), (output + "_repaired").c_str()); },
        [&] { return salvage_to_file(input, output + ".cfb"); },
    };
    const uint64_t size = document.size();
    const uint64_t lengths[] = {size / 2, size - 700, 1000, 0, size / 7};
    std::mt19937 random(11);
    for (std::size_t c = 0; c < std::size(calls); ++c) {
        // The cuts land anywhere in the call's run on the whole file.
        test::write_file(input, document);
        const auto start = std::chrono::steady_clock::now();
        ASSERT_EQ(calls[c](), 0) << c;
        const auto took = std::chrono::duration_cast<std::chrono::microseconds>(
            std::chrono::steady_clock::now() - start);
        for (int round = 0; round < 8; ++round) {
            const std::chrono::microseconds delay(random() % (took.count() + 1));
            const uint64_t length = lengths[round % std::size(lengths)];
            test::write_file(input, document);
            // By a thread of this process (refused on Windows while the file is mapped), or by
            // a child process where there is a shell with truncate to run.
            std::thread cutter([&] {
                std::this_thread::sleep_for(delay);
                if (!platform::kWindows && round % 2 == 1) {
                    EXPECT_EQ(
                        std::system(("truncate -s " + std::to_string(length) + " \"" + input + "\"")
                                        .c_str()),
                        0);
                } else {
                    std::error_code refused;
                    std::filesystem::resize_file(input, length, refused);
                }
            });
            const int32_t result = calls[c]();
            cutter.join();
            EXPECT_TRUE(c == 3 ? result == 0 || result == 1
                               : result == 0 || (result <= -3100 && result >= -3114))
                << "call " << c << " round " << round << " cut to " << length << " after "
                << delay.count() << " us: result " << result;
        }
    }
}

}  // namespace
}  // namespace vrk
