#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "cfb_vornak/builder/Cfb_Builder.h"
#include "cfb_vornak/cfb_vornak_api.h"
#include "cfb_vornak/reports/Cfb_Reports.h"
#include "common/platform.h"
#include "support/analysis_samples.h"
#include "support/cfb_patch.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

using test::Temp_Folder;

std::wstring W(const char* utf8) {
    return platform::from_utf8(utf8);
}

// The result of an export is the calling thread's last record: each call gets a fresh thread.
int32_t analyse(const std::string& input, const std::string& output) {
    int32_t result = 0;
    std::thread([&] { result = VrkCfbAnalysis(input.c_str(), output.c_str()); }).join();
    return result;
}

int32_t analyse(const std::wstring& input, const std::wstring& output) {
    return analyse(platform::narrow(input), platform::narrow(output));
}

class AnalysisEntryTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        static Temp_Folder base("analysis_entry");
        work = new std::wstring(base.wide(true) + L"work");
        log_file = new std::filesystem::path(base / "logs" / "cfb_repair_sdk.log");
        const std::string logs = base.narrow() + "/logs";
        const std::string config = base.narrow() + "/config";
        ASSERT_EQ(VrkCfbInit(logs.c_str(), config.c_str(), platform::narrow(*work).c_str()), 0);
    }

    void SetUp() override {
        Cfb_Fs_Item_DirNode root;
        root.add_stream(u"Alpha", test::random_bytes(100, 1));
        root.add_storage(u"Sub").add_stream(u"Beta", test::random_bytes(5000, 2));
        root.add_stream(u"Gamma", test::random_bytes(7000, 3));
        source = folder.wide(true) + L"sample.cfb";
        ASSERT_TRUE(write_compound_file(source, root));
    }

    static std::wstring* work;
    static std::filesystem::path* log_file;
    Temp_Folder folder{"entry"};
    std::wstring source;
};

std::wstring* AnalysisEntryTest::work = nullptr;
std::filesystem::path* AnalysisEntryTest::log_file = nullptr;

TEST_F(AnalysisEntryTest, CreatesTheOutputFolderWithParentsWritesTheReportsAndEmptiesRawData) {
    // Chinese folder names reach the export only where the process code page holds them.
    std::wstring first = W("新建");
    if (platform::widen(platform::narrow(first)) != first) first = L"new";
    const std::wstring out =
        folder.wide(true) + first + platform::kSeparator + L"a" + platform::kSeparator + L"reports";
    const std::vector<uint8_t> before = test::read_bytes(source);
    EXPECT_EQ(analyse(source, out), 0);
    EXPECT_EQ(test::read_bytes(source), before);
    EXPECT_EQ(test::tree_names(out).count(
                  "cfb_directory_tree信息分析/原始cfb_directory_tree释放文件夹/Sub"),
              1u);
    EXPECT_EQ(test::read_bytes(out + platform::kSeparator + W("cfb_directory_tree信息分析") +
                               platform::kSeparator + W("原始cfb_directory_tree释放文件夹") +
                               platform::kSeparator + L"Gamma"),
              test::random_bytes(7000, 3));
    // The work folder's raw data folder is emptied afterwards; the release folder is kept.
    EXPECT_TRUE(test::folder_names(*work + platform::kSeparator + L"lib_cfb_tmp").empty());
    EXPECT_EQ(test::folder_names(*work).count("tmp_release_dir_for_fixing_cfb"), 1u);
}

TEST_F(AnalysisEntryTest, BadInputsAreRefused) {
    const std::string out = folder.narrow() + "/out";
    EXPECT_EQ(analyse("", out), -3101);
    int32_t null_input = 0;
    std::thread([&] { null_input = VrkCfbAnalysis(nullptr, out.c_str()); }).join();
    EXPECT_EQ(null_input, -3101);
    EXPECT_EQ(analyse(folder.narrow(), out), -3101);
    EXPECT_EQ(analyse(folder.narrow() + "/missing.cfb", out), -3101);
    EXPECT_EQ(analyse(platform::narrow(source), ""), -3101);
    // An output path naming a file is refused and the file left alone.
    const std::wstring plain = folder.wide(true) + L"plain.txt";
    ASSERT_TRUE(test::write_bytes_to_file(plain, {'x'}));
    EXPECT_EQ(analyse(source, plain), -3101);
    EXPECT_EQ(test::read_bytes(plain), std::vector<uint8_t>{'x'});
}

TEST_F(AnalysisEntryTest, ShortOrEmptyInputStillEndsInAResult) {
    const std::wstring tiny = folder.wide(true) + L"tiny.bin";
    ASSERT_TRUE(test::write_bytes_to_file(tiny, test::random_bytes(700, 5)));
    const std::wstring out = folder.wide(true) + L"out";
    analyse(tiny, out);
    EXPECT_EQ(test::folder_names(out).count("头部信息分析"), 1u);

    const std::wstring empty = folder.wide(true) + L"empty.bin";
    ASSERT_TRUE(test::write_bytes_to_file(empty, {}));
    EXPECT_EQ(analyse(empty, out), -3101);
}

// Sectors of 4096 bytes over a file of 512-byte sectors (the sample of release_test's damage
// table): "d" and "b" are released, the third sector of "z" runs past the end, and the file
// layer's failure ends the analysis in its handler. The reports written before stay.
TEST_F(AnalysisEntryTest, ASectorPastTheEndOfTheFileEndsTheAnalysis) {
    Cfb_Fs_Item_DirNode root;
    const std::pair<const char16_t*, std::size_t> sample[] = {
        {u"a", 40}, {u"b", 300}, {u"d", 5000}, {u"z", 70000}, {u"e", 40}};
    for (std::size_t i = 0; i < 5; ++i) {
        root.add_stream(sample[i].first, test::random_bytes(sample[i].second, i + 1));
    }
    std::vector<uint8_t> bytes = build_compound_file(root);
    ASSERT_EQ(bytes.size(), 78848u);
    test::patch_u16(bytes, test::offsets::kSectorShift, 12);
    const std::wstring damaged = folder.wide(true) + L"shift12.cfb";
    ASSERT_TRUE(test::write_bytes_to_file(damaged, bytes));
    const std::size_t log_before = test::read_file(*log_file).size();

    const std::wstring out = folder.wide(true) + L"out";
    EXPECT_EQ(analyse(damaged, out), -3101);
    EXPECT_EQ(test::folder_names(out + platform::kSeparator + W("cfb_directory_tree信息分析") +
                                 platform::kSeparator + W("原始cfb_directory_tree释放文件夹")),
              (std::set<std::string>{"b", "d"}));
    EXPECT_EQ(test::folder_names(out).count("头部信息分析"), 1u);
    const std::string log = test::read_file(*log_file).substr(log_before);
    EXPECT_NE(log.find("->info: When analysising cfb exception :[code/src/file_operation/"
                       "File_Anywhere_Door:"),
              std::string::npos)
        << log;
    EXPECT_NE(log.find("the offset [78848]is  out of  range! \n\n!"), std::string::npos) << log;
}

}  // namespace
}  // namespace vrk
