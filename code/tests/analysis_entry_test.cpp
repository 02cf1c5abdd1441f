#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "cfb_vornak/builder/Cfb_Builder.h"
#include "cfb_vornak/cfb_vornak_api.h"
#include "common/platform.h"
#include "support/analysis_samples.h"
#include "support/cfb_patch.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

constexpr wchar_t kSep = platform::kSeparator;
const std::wstring kReleased = platform::from_utf8("cfb_directory_tree信息分析") + kSep +
                               platform::from_utf8("原始cfb_directory_tree释放文件夹");

// The result of an export is the calling thread's last record: each call gets a fresh thread.
int32_t analyse(const std::wstring& input, const std::wstring& output, bool null_input = false) {
    int32_t result = 0;
    const std::string in = platform::narrow(input);
    const std::string out = platform::narrow(output);
    std::thread([&] {
        result = VrkCfbAnalysis(null_input ? nullptr : in.c_str(), out.c_str());
    }).join();
    return result;
}

class AnalysisEntryTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        ASSERT_EQ(VrkCfbInit("analysis_logs", "analysis_config", "analysis_work"), 0);
    }

    void SetUp() override {
        Cfb_Fs_Item_DirNode root;
        root.add_stream(u"Alpha", test::random_bytes(100, 1));
        root.add_storage(u"Sub").add_stream(u"Beta", test::random_bytes(5000, 2));
        root.add_stream(u"Gamma", test::random_bytes(7000, 3));
        root.add_stream(u"数据流", test::random_bytes(65, 4));
        root.add_stream(u"empty", {});
        ASSERT_TRUE(write_compound_file(source, root));
    }

    test::Temp_Folder folder{"entry"};
    std::wstring at(const wchar_t* name) const { return folder.wide(true) + name; }
    const std::wstring source = at(L"sample.cfb");
};

TEST_F(AnalysisEntryTest, CreatesTheOutputFolderWithParentsWritesTheReportsAndEmptiesRawData) {
    // Chinese folder names reach the export only where the process code page holds them.
    std::wstring first = platform::from_utf8("新建");
    if (platform::widen(platform::narrow(first)) != first) first = L"new";
    const std::wstring out = folder.wide(true) + first + kSep + L"a" + kSep + L"reports";
    EXPECT_EQ(analyse(source, out), 0);
    const std::set<std::string> names = test::tree_names(out);
    for (const char* report : {"头部信息分析/原始头部分析.log", "disat信息分析/原始disat分析.log",
                               "sat信息分析/原始sat分析.log", "minisat信息分析/原始minisat分析.log",
                               "directory_entry_layout信息分析/原始directory_entry_layout分析.log",
                               "cfb_directory_tree信息分析/原始cfb_directory_tree分析.log",
                               "cfb_short_stream_container信息分析/原始short_stream_container.bin"})
        EXPECT_EQ(names.count(report), 1u) << report;
    // An empty stream gets no file, a storage an empty folder.
    const std::wstring released = out + kSep + kReleased + kSep;
    EXPECT_EQ(test::folder_names(released),
              (std::set<std::string>{"Alpha", "Gamma", "Sub", "数据流"}));
    EXPECT_TRUE(test::folder_names(released + L"Sub").empty());
    EXPECT_EQ(test::read_bytes(released + L"Gamma"), test::random_bytes(7000, 3));
    EXPECT_EQ(test::read_bytes(released + platform::from_utf8("数据流")),
              test::random_bytes(65, 4));
    // The raw data folder is emptied afterwards; the release folder is kept.
    EXPECT_TRUE(
        test::folder_names(L"analysis_work" + std::wstring(1, kSep) + L"lib_cfb_tmp").empty());
    EXPECT_EQ(test::folder_names(L"analysis_work").count("tmp_release_dir_for_fixing_cfb"), 1u);
}

TEST_F(AnalysisEntryTest, BadInputsAreRefusedAndShortOnesEndInAResult) {
    ASSERT_TRUE(test::write_bytes_to_file(at(L"plain.txt"), {'x'}));
    ASSERT_TRUE(test::write_bytes_to_file(at(L"empty.bin"), {}));
    // clang-format off
    const std::pair<std::wstring, std::wstring> refused[] = {
        {L"", at(L"out")}, {folder.wide(), at(L"out")}, {at(L"missing.cfb"), at(L"out")},
        {at(L"empty.bin"), at(L"out")}, {source, L""}, {source, at(L"plain.txt")}};  // left alone
    // clang-format on
    for (const auto& [in, out] : refused)
        EXPECT_EQ(analyse(in, out), -3101) << platform::to_utf8(in);
    EXPECT_EQ(analyse(L"", at(L"out"), true), -3101);
    EXPECT_EQ(test::read_bytes(at(L"plain.txt")), std::vector<uint8_t>{'x'});
    // A short file still gets its header report.
    ASSERT_TRUE(test::write_bytes_to_file(at(L"tiny.bin"), test::random_bytes(700, 5)));
    analyse(at(L"tiny.bin"), at(L"out"));
    EXPECT_EQ(test::folder_names(at(L"out")).count("头部信息分析"), 1u);
}

// 4096-byte sectors over a file of 512-byte ones (release_test's damage table): "d" and "b" are
// released, "z" runs past the end, and the failure ends the analysis; earlier reports stay.
TEST_F(AnalysisEntryTest, ASectorPastTheEndOfTheFileEndsTheAnalysis) {
    Cfb_Fs_Item_DirNode root;
    const std::pair<const char16_t*, std::size_t> sample[] = {
        {u"a", 40}, {u"b", 300}, {u"d", 5000}, {u"z", 70000}, {u"e", 40}};
    for (std::size_t i = 0; i < 5; ++i)
        root.add_stream(sample[i].first, test::random_bytes(sample[i].second, i + 1));
    std::vector<uint8_t> bytes = build_compound_file(root);
    ASSERT_EQ(bytes.size(), 78848u);
    test::patch_u16(bytes, test::offsets::kSectorShift, 12);
    ASSERT_TRUE(test::write_bytes_to_file(at(L"shift12.cfb"), bytes));
    const std::filesystem::path log_file =
        std::filesystem::path("analysis_logs") / "cfb_repair_sdk.log";
    const std::size_t log_before = test::read_file(log_file).size();
    EXPECT_EQ(analyse(at(L"shift12.cfb"), at(L"out")), -3101);
    EXPECT_EQ(test::folder_names(at(L"out") + kSep + kReleased), (std::set<std::string>{"b", "d"}));
    EXPECT_EQ(test::folder_names(at(L"out")).count("头部信息分析"), 1u);
    const std::string log = test::read_file(log_file).substr(log_before);
    EXPECT_NE(log.find("->info: When analysising cfb exception :[code/src/file_operation/"
                       "File_Anywhere_Door:"),
              std::string::npos)
        << log;
    EXPECT_NE(log.find("the offset [78848]is  out of  range! \n\n!"), std::string::npos) << log;
}

}  // namespace
}  // namespace vrk
