// The repair exports: argument checks, the output's folder and name, the scratch folders, the
// result codes, and how the result relates to the thread's earlier records.
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "cfb_vornak/cfb_vornak_api.h"
#include "common/error_codes.h"
#include "common/error_store.h"
#include "common/platform.h"
#include "support/cfb_patch.h"
#include "support/repair_samples.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

namespace stdfs = std::filesystem;

const char* const kWorkFolder = "repair_work";

// The library is started once per process, with its folders below the test's own folder.
class Started_Library : public ::testing::Environment {
  public:
    void SetUp() override { ASSERT_EQ(VrkCfbInit("repair_logs", "repair_config", kWorkFolder), 0); }
};
const auto* const g_library = ::testing::AddGlobalTestEnvironment(new Started_Library);

// Runs `work` on a thread of its own, so that no earlier record of this thread shows through.
template <typename Work>
int32_t on_fresh_thread(Work work) {
    int32_t result = 0;
    std::thread thread([&] { result = work(); });
    thread.join();
    return result;
}

std::string arg(const stdfs::path& path) {
    return platform::narrow(platform::from_path(path));
}

stdfs::path write_sample(const test::Temp_Folder& folder, const std::string& name,
                         int32_t document_kind, Build_Layout* layout = nullptr) {
    const test::Sample_Shape shape = test::shape_with_document("nested_storages", document_kind);
    stdfs::path path = folder / name;
    const auto bytes = build_compound_file(*shape.root, shape.options, layout);
    EXPECT_TRUE(test::write_bytes_to_file(platform::from_path(path), bytes));
    return path;
}

int32_t general_repair(const stdfs::path& input, const stdfs::path& output) {
    return on_fresh_thread(
        [&] { return VrkCfbGeneralRepair(arg(input).c_str(), arg(output).c_str()); });
}

bool folder_is_empty(const stdfs::path& folder) {
    return stdfs::is_directory(folder) &&
           stdfs::directory_iterator(folder) == stdfs::directory_iterator();
}

TEST(RepairEntry, MakesTheOutputFolderAndNamesTheOutputByTheDocument) {
    test::Temp_Folder folder("named");
    const stdfs::path input = write_sample(folder, "sheet.bin", 1);
    const std::string before = test::read_file(input);

    EXPECT_EQ(general_repair(input, folder / "out" / "b.doc"), 0);
    EXPECT_TRUE(stdfs::exists(folder / "out" / "b.xls"));
    EXPECT_FALSE(stdfs::exists(folder / "out" / "b.doc"));
    EXPECT_FALSE(stdfs::exists(folder / "out" / "b.cfb"));
    EXPECT_EQ(stdfs::file_size(folder / "out" / "b.xls"), before.size());
    EXPECT_EQ(test::read_file(input), before);

    // A name without a dot keeps it whole and gains the extension.
    EXPECT_EQ(general_repair(write_sample(folder, "slides.bin", 2), folder / "result"), 0);
    EXPECT_TRUE(stdfs::exists(folder / "result.ppt"));
}

// Information lines are dropped, except the repair's echo of its two paths: the log shows
// which files were repaired. With a path missing the echo is an error line.
TEST(RepairEntry, ThePathEchoReachesTheLog) {
    test::Temp_Folder folder("echo");
    const stdfs::path input = write_sample(folder, "echo_in.bin", 0);
    const stdfs::path log = stdfs::path("repair_logs") / "cfb_repair_sdk.log";
    const std::size_t before = test::read_file(log).size();
    EXPECT_EQ(general_repair(input, folder / "echo_out.doc"), 0);
    EXPECT_EQ(on_fresh_thread([&] { return VrkCfbGeneralRepair(nullptr, "echo_null.doc"); }),
              -3101);
    // Each line: time, the level in five characters, " [source:line]->info: ", the message.
    std::vector<std::string> echoes;
    std::istringstream lines(test::read_file(log).substr(before));
    for (std::string line; std::getline(lines, line);) {
        const std::size_t message = line.find("]->info: ");
        if (line.find("_path = ") != std::string::npos && message != std::string::npos) {
            echoes.push_back(line.substr(line.find(" [") - 5, 5) + line.substr(message + 9));
        }
    }
    EXPECT_EQ(echoes, (std::vector<std::string>{
                          "INFO input_file_path = " + arg(input),
                          "INFO out_file_path = " + arg(folder / "echo_out.doc"),
                          "ERRORinput_file_path = ", "ERRORout_file_path = echo_null.doc"}));
}

TEST(RepairEntry, ScratchFoldersAreEmptiedBeforeAndAfter) {
    test::Temp_Folder folder("scratch");
    const stdfs::path raw = stdfs::path(kWorkFolder) / "lib_cfb_tmp";
    const stdfs::path release = stdfs::path(kWorkFolder) / "tmp_release_dir_for_fixing_cfb";
    test::write_file(raw / "stale.bin", "left over");
    test::write_file(release / "stale" / "inner.bin", "left over");

    EXPECT_EQ(general_repair(write_sample(folder, "word.bin", 0), folder / "word.doc"), 0);
    EXPECT_TRUE(stdfs::exists(folder / "word.doc"));
    EXPECT_TRUE(folder_is_empty(raw));
    EXPECT_TRUE(folder_is_empty(release));
}

TEST(RepairEntry, UnusablePathsAreRefused) {
    test::Temp_Folder folder("paths");
    const stdfs::path input = write_sample(folder, "sheet.bin", 1);
    const std::string good_output = arg(folder / "out.xls");
    for (const auto& paths : std::vector<std::pair<std::string, std::string>>{
             {"", good_output},
             {arg(folder.path()), good_output},
             {arg(folder / "missing.bin"), good_output},
             {arg(input), ""},
             {arg(input), arg(folder.path())}}) {
        int32_t code = 0;
        const int32_t result = on_fresh_thread([&] {
            const int32_t folded = VrkCfbGeneralRepair(paths.first.c_str(), paths.second.c_str());
            code = last_error_code(get_error_store());
            return folded;
        });
        EXPECT_EQ(result, -3101) << paths.first << " -> " << paths.second;
        EXPECT_EQ(code, ec::kInvalidArgument) << paths.first << " -> " << paths.second;
    }
    EXPECT_EQ(on_fresh_thread([&] { return VrkCfbGeneralRepair(nullptr, good_output.c_str()); }),
              -3101);
    EXPECT_FALSE(stdfs::exists(folder / "out.xls"));
}

TEST(RepairEntry, AdvanceRepairNeedsAPassword) {
    test::Temp_Folder folder("password");
    const stdfs::path input = write_sample(folder, "sheet.bin", 1);
    const std::string out = arg(folder / "out.xls");
    EXPECT_EQ(on_fresh_thread(
                  [&] { return VrkCfbAdvanceRepair(arg(input).c_str(), out.c_str(), nullptr); }),
              -3101);
    EXPECT_FALSE(stdfs::exists(folder / "out.xls"));
    EXPECT_EQ(on_fresh_thread(
                  [&] { return VrkCfbAdvanceRepair(arg(input).c_str(), out.c_str(), "secret"); }),
              0);
    EXPECT_TRUE(stdfs::exists(folder / "out.xls"));
}

// The result code left on the thread and the folded result of one repair.
std::pair<int32_t, int32_t> repair_with_code(const stdfs::path& input, const stdfs::path& output) {
    int32_t code = 0;
    const int32_t result = on_fresh_thread([&] {
        const int32_t folded = VrkCfbGeneralRepair(arg(input).c_str(), arg(output).c_str());
        code = last_error_code(get_error_store());
        return folded;
    });
    return {code, result};
}

bool any_output(const stdfs::path& stem) {
    for (const char* extension : {".cfb", ".doc", ".xls", ".ppt"}) {
        if (stdfs::exists(stem.string() + extension)) return true;
    }
    return false;
}

TEST(RepairEntry, AFileLayerFailureEndsInTheEntrysHandler) {
    test::Temp_Folder folder("failure");
    // Too short for the probe's directory scan, which reads past the end of the file.
    test::write_file(folder / "short.doc", std::string(600, '\0'));
    EXPECT_EQ(repair_with_code(folder / "short.doc", folder / "short_out.doc"),
              std::make_pair(ec::kInternalError, -3101));
    EXPECT_FALSE(any_output(folder / "short_out"));

    // 1 MiB sectors in the header: the parse reads the short-stream container past the end.
    const stdfs::path input = write_sample(folder, "wide.bin", 1);
    std::string text = test::read_file(input);
    text[test::offsets::kSectorShift] = 20;
    test::write_file(input, text);
    EXPECT_EQ(repair_with_code(input, folder / "wide_out.doc"),
              std::make_pair(ec::kInternalError, -3101));
    EXPECT_FALSE(any_output(folder / "wide_out"));
}

TEST(RepairEntry, WithoutTheRootNameTheCheckRefusesButTheRepairGoesOn) {
    test::Temp_Folder folder("noname");
    Build_Layout layout;
    const stdfs::path input = write_sample(folder, "sheet.bin", 1, &layout);
    std::vector<uint8_t> bytes;
    {
        const std::string text = test::read_file(input);
        bytes.assign(text.begin(), text.end());
    }
    test::patch_u16(bytes, test::directory_entry_offset(layout, 0), 'X');  // "Xoot Entry"
    ASSERT_TRUE(test::write_bytes_to_file(platform::from_path(input), bytes));

    int32_t check_code = 0;
    on_fresh_thread([&] {
        VrkCfbFileCheck(arg(input).c_str());
        check_code = last_error_code(get_error_store());
        return 0;
    });
    EXPECT_EQ(check_code, ec::kNotCfb);
    EXPECT_EQ(general_repair(input, folder / "out.doc"), 0);
    EXPECT_TRUE(stdfs::exists(folder / "out.xls"));
}

TEST(RepairEntry, ASuccessfulRepairLeavesTheThreadsEarlierRecord) {
    test::Temp_Folder folder("earlier");
    const stdfs::path sound = write_sample(folder, "sound.bin", 1);
    const stdfs::path damaged = write_sample(folder, "damaged.bin", 1);
    {
        std::string text = test::read_file(damaged);
        text[0] = 0;  // the signature
        test::write_file(damaged, text);
    }
    int32_t check_result = 0;
    int32_t repair_result = 0;
    std::thread thread([&] {
        check_result = VrkCfbFileCheck(arg(damaged).c_str());
        repair_result = VrkCfbGeneralRepair(arg(sound).c_str(), arg(folder / "out.xls").c_str());
    });
    thread.join();
    EXPECT_NE(check_result, 0);
    EXPECT_EQ(repair_result, check_result);
    EXPECT_TRUE(stdfs::exists(folder / "out.xls"));
}

// The scratch folders then go into a private folder in the temporary folder (see
// data_safety_test), never into a fixed path there.
TEST(RepairEntry, AnEmptyWorkFolderMeansAPrivateTemporaryFolder) {
    test::Temp_Folder folder("temp");
    ASSERT_EQ(VrkCfbInit("repair_logs", "repair_config", ""), 0);
    const int32_t result = general_repair(write_sample(folder, "sheet.bin", 1), folder / "out.xls");
    ASSERT_EQ(VrkCfbInit("repair_logs", "repair_config", kWorkFolder), 0);
    EXPECT_EQ(result, 0);
    EXPECT_FALSE(stdfs::exists(stdfs::path(kWorkFolder) / "out.xls"));
    EXPECT_TRUE(stdfs::exists(folder / "out.xls"));
}

}  // namespace
}  // namespace vrk
