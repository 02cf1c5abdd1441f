// The repair exports: argument checks, the output's folder and name, the scratch folders, the
// result codes, and how the result relates to the thread's earlier records.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "cfb_vornak/cfb_vornak_api.h"
#include "common/error_codes.h"
#include "common/error_store.h"
#include "common/platform.h"
#include "support/analysis_samples.h"
#include "support/cfb_patch.h"
#include "support/repair_samples.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

namespace stdfs = std::filesystem;

class RepairEntry : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        ASSERT_EQ(VrkCfbInit("repair_logs", "repair_config", "repair_work"), 0);
    }
    std::string arg(const std::string& name) const { return test::narrow(folder / name); }
    // A sample document of the kind (0 word processing, 1 spreadsheet, 2 presentation) saved as
    // `name`, with the root's first name unit or the sector shift patched when not 0.
    std::string sample(const std::string& name, int32_t kind, uint16_t root_name = 0,
                       uint16_t shift = 0) const {
        const test::Sample_Shape shape = test::shape_with_document("nested_storages", kind);
        Build_Layout layout;
        auto bytes = build_compound_file(*shape.root, shape.options, &layout);
        if (root_name != 0)
            test::patch_u16(bytes, test::directory_entry_offset(layout, 0), root_name);
        if (shift != 0) test::patch_u16(bytes, test::offsets::kSectorShift, shift);
        EXPECT_TRUE(test::write_bytes_to_file(platform::from_path(folder / name), bytes));
        return arg(name);
    }
    test::Temp_Folder folder{"repair"};
};

// The folded result of a repair (with a password: the advance one) on a thread of its own, so
// that no earlier record of this thread shows through, and the code it left on that thread.
std::pair<int32_t, int32_t> repair(const char* input, const std::string& output,
                                   const char* password = nullptr) {
    std::pair<int32_t, int32_t> result;
    std::thread([&] {
        result.first = password == nullptr ? VrkCfbGeneralRepair(input, output.c_str())
                                           : VrkCfbAdvanceRepair(input, output.c_str(), password);
        result.second = last_error_code(get_error_store());
    }).join();
    return result;
}

TEST_F(RepairEntry, MakesTheOutputFolderAndNamesTheOutputByTheDocument) {
    const std::string input = sample("sheet.bin", 1);
    // The scratch folders are emptied before and after.
    const stdfs::path raw = stdfs::path("repair_work") / "lib_cfb_tmp";
    const stdfs::path release = stdfs::path("repair_work") / "tmp_release_dir_for_fixing_cfb";
    test::write_file(raw / "stale.bin", "left over");
    test::write_file(release / "stale" / "inner.bin", "left over");
    EXPECT_EQ(repair(input.c_str(), arg("out/b.doc")).first, 0);
    EXPECT_EQ(test::folder_names(platform::from_path(folder / "out")),
              std::set<std::string>{"b.xls"});
    EXPECT_EQ(stdfs::file_size(folder / "out" / "b.xls"), stdfs::file_size(input));
    EXPECT_TRUE(stdfs::is_empty(raw) && stdfs::is_empty(release));
    // A name without a dot keeps it whole and gains the extension; a password is stored first.
    EXPECT_EQ(repair(sample("slides.bin", 2).c_str(), arg("result"), "secret").first, 0);
    EXPECT_TRUE(stdfs::exists(folder / "result.ppt"));
}

// Unusable paths are refused; a file too short for the probe's directory scan, and one whose 1 MiB
// sectors make the parse read past the end, end in the entry's handler. Nothing is written.
TEST_F(RepairEntry, RefusalsAndFileLayerFailuresWriteNothing) {
    const std::string input = sample("sheet.bin", 1);
    test::write_file(folder / "short.doc", std::string(600, '\0'));
    const std::string wide = sample("wide.bin", 1, 0, 20);
    const std::string out = arg("out.xls");
    const std::pair<int32_t, int32_t> invalid{-3101, ec::kInvalidArgument};
    for (const std::string& bad : {std::string(), folder.narrow(), arg("missing.bin")})
        EXPECT_EQ(repair(bad.c_str(), out), invalid) << bad;
    EXPECT_EQ(repair(input.c_str(), ""), invalid);
    EXPECT_EQ(repair(input.c_str(), folder.narrow()), invalid);
    EXPECT_EQ(repair(nullptr, out).first, -3101);
    const std::pair<int32_t, int32_t> internal{-3101, ec::kInternalError};
    EXPECT_EQ(repair(arg("short.doc").c_str(), out), internal);
    EXPECT_EQ(repair(wide.c_str(), out), internal);
    EXPECT_EQ(test::folder_names(folder.wide()),
              (std::set<std::string>{"sheet.bin", "short.doc", "wide.bin"}));
}

// Information lines are dropped, except the repair's echo of its two paths (time, the level in
// five characters, " [source:line]->info: ", the message); with a path missing it is an error.
TEST_F(RepairEntry, ThePathEchoReachesTheLog) {
    const std::string input = sample("echo_in.bin", 0);
    const stdfs::path log = stdfs::path("repair_logs") / "cfb_repair_sdk.log";
    const std::size_t before = test::read_file(log).size();
    EXPECT_EQ(repair(input.c_str(), arg("echo_out.doc")).first, 0);
    EXPECT_EQ(repair(nullptr, "echo_null.doc").first, -3101);
    std::vector<std::string> echoes;
    std::istringstream lines(test::read_file(log).substr(before));
    for (std::string l; std::getline(lines, l);)
        if (l.find("_path = ") != std::string::npos && l.find("]->info: ") != std::string::npos)
            echoes.push_back(l.substr(l.find(" [") - 5, 5) + l.substr(l.find("]->info: ") + 9));
    EXPECT_EQ(echoes,
              (std::vector<std::string>{
                  "INFO input_file_path = " + input, "INFO out_file_path = " + arg("echo_out.doc"),
                  "ERRORinput_file_path = ", "ERRORout_file_path = echo_null.doc"}));
}

// A successful repair pushes no record: its result is the thread's earlier one (the check's).
TEST_F(RepairEntry, WithoutTheRootNameTheRepairGoesOnWithTheThreadsEarlierResult) {
    const std::string input = sample("sheet.bin", 1, 'X');
    int32_t check = 0, repaired = 0;
    std::thread([&] {
        check = VrkCfbFileCheck(input.c_str());
        repaired = VrkCfbGeneralRepair(input.c_str(), arg("out.doc").c_str());
    }).join();
    EXPECT_EQ(check, to_api_result_code(ec::kNotCfb));
    EXPECT_EQ(repaired, check);
    EXPECT_TRUE(stdfs::exists(folder / "out.xls"));
}

}  // namespace
}  // namespace vrk
