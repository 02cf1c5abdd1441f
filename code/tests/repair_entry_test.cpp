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

std::string arg(const stdfs::path& path) {
    return platform::narrow(platform::from_path(path));
}

// A sample document of the kind (0 word processing, 1 spreadsheet, 2 presentation) written to
// `name`, with `patch` applied to its bytes.
stdfs::path write_sample(const test::Temp_Folder& folder, const std::string& name,
                         int32_t document_kind,
                         void (*patch)(std::vector<uint8_t>&, const Build_Layout&) = nullptr) {
    const test::Sample_Shape shape = test::shape_with_document("nested_storages", document_kind);
    Build_Layout layout;
    auto bytes = build_compound_file(*shape.root, shape.options, &layout);
    if (patch != nullptr) patch(bytes, layout);
    EXPECT_TRUE(test::write_bytes_to_file(platform::from_path(folder / name), bytes));
    return folder / name;
}

// The folded result of one call on a thread of its own (so that no earlier record of this
// thread shows through), and the result code it left on that thread.
template <typename Call>
std::pair<int32_t, int32_t> on_fresh_thread(Call call) {
    std::pair<int32_t, int32_t> result;
    std::thread thread([&] {
        result.first = call();
        result.second = last_error_code(get_error_store());
    });
    thread.join();
    return result;
}

std::pair<int32_t, int32_t> general_repair(const std::string& input, const std::string& output) {
    return on_fresh_thread([&] { return VrkCfbGeneralRepair(input.c_str(), output.c_str()); });
}

bool any_output(const stdfs::path& stem) {
    for (const char* extension : {".cfb", ".doc", ".xls", ".ppt"}) {
        if (stdfs::exists(stem.string() + extension)) return true;
    }
    return false;
}

bool folder_is_empty(const stdfs::path& folder) {
    return stdfs::is_directory(folder) && stdfs::is_empty(folder);
}

TEST(RepairEntry, MakesTheOutputFolderAndNamesTheOutputByTheDocument) {
    test::Temp_Folder folder("named");
    const stdfs::path input = write_sample(folder, "sheet.bin", 1);
    const std::string before = test::read_file(input);
    // The scratch folders are emptied before and after.
    const stdfs::path raw = stdfs::path(kWorkFolder) / "lib_cfb_tmp";
    const stdfs::path release = stdfs::path(kWorkFolder) / "tmp_release_dir_for_fixing_cfb";
    test::write_file(raw / "stale.bin", "left over");
    test::write_file(release / "stale" / "inner.bin", "left over");

    EXPECT_EQ(general_repair(arg(input), arg(folder / "out" / "b.doc")).first, 0);
    EXPECT_TRUE(stdfs::exists(folder / "out" / "b.xls"));
    EXPECT_FALSE(stdfs::exists(folder / "out" / "b.doc") ||
                 stdfs::exists(folder / "out" / "b.cfb"));
    EXPECT_EQ(stdfs::file_size(folder / "out" / "b.xls"), before.size());
    EXPECT_EQ(test::read_file(input), before);
    EXPECT_TRUE(folder_is_empty(raw));
    EXPECT_TRUE(folder_is_empty(release));

    // A name without a dot keeps it whole and gains the extension.
    EXPECT_EQ(
        general_repair(arg(write_sample(folder, "slides.bin", 2)), arg(folder / "result")).first,
        0);
    EXPECT_TRUE(stdfs::exists(folder / "result.ppt"));
}

// Information lines are dropped, except the repair's echo of its two paths: the log shows
// which files were repaired. With a path missing the echo is an error line.
TEST(RepairEntry, ThePathEchoReachesTheLog) {
    test::Temp_Folder folder("echo");
    const stdfs::path input = write_sample(folder, "echo_in.bin", 0);
    const stdfs::path log = stdfs::path("repair_logs") / "cfb_repair_sdk.log";
    const std::size_t before = test::read_file(log).size();
    EXPECT_EQ(general_repair(arg(input), arg(folder / "echo_out.doc")).first, 0);
    EXPECT_EQ(on_fresh_thread([&] { return VrkCfbGeneralRepair(nullptr, "echo_null.doc"); }).first,
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

TEST(RepairEntry, UnusablePathsAndAMissingPasswordAreRefused) {
    test::Temp_Folder folder("paths");
    const std::string input = arg(write_sample(folder, "sheet.bin", 1));
    const std::string out = arg(folder / "out.xls");
    for (const auto& [from, to] :
         std::vector<std::pair<std::string, std::string>>{{"", out},
                                                          {arg(folder.path()), out},
                                                          {arg(folder / "missing.bin"), out},
                                                          {input, ""},
                                                          {input, arg(folder.path())}}) {
        EXPECT_EQ(general_repair(from, to), std::make_pair(-3101, ec::kInvalidArgument))
            << from << " -> " << to;
    }
    EXPECT_EQ(on_fresh_thread([&] { return VrkCfbGeneralRepair(nullptr, out.c_str()); }).first,
              -3101);
    EXPECT_EQ(on_fresh_thread([&] {
                  return VrkCfbAdvanceRepair(input.c_str(), out.c_str(), nullptr);
              }).first,
              -3101);
    EXPECT_FALSE(stdfs::exists(folder / "out.xls"));
    EXPECT_EQ(on_fresh_thread([&] {
                  return VrkCfbAdvanceRepair(input.c_str(), out.c_str(), "secret");
              }).first,
              0);
    EXPECT_TRUE(stdfs::exists(folder / "out.xls"));
}

TEST(RepairEntry, AFileLayerFailureEndsInTheEntrysHandler) {
    test::Temp_Folder folder("failure");
    // Too short for the probe's directory scan, which reads past the end of the file.
    test::write_file(folder / "short.doc", std::string(600, '\0'));
    // 1 MiB sectors in the header: the parse reads the short-stream container past the end.
    const stdfs::path wide = write_sample(folder, "wide.bin", 1, [](auto& bytes, const auto&) {
        test::patch_u16(bytes, test::offsets::kSectorShift, 20);
    });
    for (const auto& [input, stem] : {std::pair{folder / "short.doc", folder / "short_out"},
                                      std::pair{wide, folder / "wide_out"}}) {
        EXPECT_EQ(general_repair(arg(input), arg(stem) + ".doc"),
                  std::make_pair(-3101, ec::kInternalError));
        EXPECT_FALSE(any_output(stem));
    }
}

TEST(RepairEntry, WithoutTheRootNameTheCheckRefusesButTheRepairGoesOn) {
    test::Temp_Folder folder("noname");
    const stdfs::path input =
        write_sample(folder, "sheet.bin", 1, [](auto& bytes, const auto& layout) {
            test::patch_u16(bytes, test::directory_entry_offset(layout, 0), 'X');  // "Xoot Entry"
        });
    EXPECT_EQ(on_fresh_thread([&] { return VrkCfbFileCheck(arg(input).c_str()); }).second,
              ec::kNotCfb);
    EXPECT_EQ(general_repair(arg(input), arg(folder / "out.doc")).first, 0);
    EXPECT_TRUE(stdfs::exists(folder / "out.xls"));
}

TEST(RepairEntry, ASuccessfulRepairLeavesTheThreadsEarlierRecord) {
    test::Temp_Folder folder("earlier");
    const stdfs::path sound = write_sample(folder, "sound.bin", 1);
    const stdfs::path damaged =
        write_sample(folder, "damaged.bin", 1, [](auto& bytes, const auto&) {
            bytes[0] = 0;  // the signature
        });
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
    const auto result =
        general_repair(arg(write_sample(folder, "sheet.bin", 1)), arg(folder / "out.xls"));
    ASSERT_EQ(VrkCfbInit("repair_logs", "repair_config", kWorkFolder), 0);
    EXPECT_EQ(result.first, 0);
    EXPECT_FALSE(stdfs::exists(stdfs::path(kWorkFolder) / "out.xls"));
    EXPECT_TRUE(stdfs::exists(folder / "out.xls"));
}

}  // namespace
}  // namespace vrk
