// VrkCfbFileCheck end to end: every damage type on built files with one structure broken,
// and the path failures.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "cfb_vornak/cfb_vornak_api.h"
#include "common/error_store.h"
#include "support/cfb_patch.h"
#include "support/probe_samples.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

using test::build_sample;
using test::Sample_File;
using test::Sample_Kind;

const std::filesystem::path kScratch = "qtw_tmp_cfb_cfb_file_output";

class Check_Entry : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { ASSERT_EQ(VrkCfbInit("logs", "config", "work"), 0); }

    // Checks `sample` saved as `name`; also returns the raw damage type pushed.
    int32_t check(const Sample_File& sample, const std::string& name,
                  Error_Code* pushed = nullptr) {
        sample.write(folder / name);
        return check_path((folder / name).u8string(), pushed);
    }
    static int32_t check_path(const std::string& path, Error_Code* pushed = nullptr) {
        const int32_t result = VrkCfbFileCheck(path.c_str());
        if (pushed != nullptr) *pushed = last_error_code(get_error_store());
        return result;
    }

    test::Temp_Folder folder{"check"};
};

TEST_F(Check_Entry, SoundFilesPassAndLeaveTheScratchFolderEmpty) {
    Error_Code pushed = -1;
    EXPECT_EQ(check(build_sample(Sample_Kind::word), "a.doc", &pushed), 0);
    EXPECT_EQ(pushed, ec::kSuccess);
    EXPECT_EQ(check(build_sample(Sample_Kind::sheet), "b.XLS"), 0);
    EXPECT_EQ(check(build_sample(Sample_Kind::slides), "c.ppt"), 0);
    EXPECT_EQ(check(build_sample(Sample_Kind::slides), "c.docx"), 0);
    EXPECT_EQ(check(build_sample(Sample_Kind::word), "noextension"), 0);
    ASSERT_TRUE(std::filesystem::is_directory(kScratch));
    EXPECT_TRUE(std::filesystem::is_empty(kScratch));
}

TEST_F(Check_Entry, NotACompoundFile) {
    Error_Code pushed = 0;
    EXPECT_EQ(check(Sample_File{}, "empty.doc", &pushed), -3112);
    EXPECT_EQ(pushed, ec::kNotCfb);
    Sample_File nameless = build_sample(Sample_Kind::word);
    test::zero_range(nameless.bytes, test::directory_entry_offset(nameless.layout, 0), 20);
    EXPECT_EQ(check(nameless, "nameless.doc"), -3112);
}

TEST_F(Check_Entry, RootEntryLost) {
    Sample_File sample = build_sample(Sample_Kind::word);
    // child_id beyond any directory
    test::patch_u32(sample.bytes, test::directory_entry_offset(sample.layout, 0) + 76, 20000);
    Error_Code pushed = 0;
    EXPECT_EQ(check(sample, "root.doc", &pushed), -3110);
    EXPECT_EQ(pushed, ec::kRootLost);
}

TEST_F(Check_Entry, CoreEntryLost) {
    Error_Code pushed = 0;
    EXPECT_EQ(check(build_sample(Sample_Kind::none), "core.doc", &pushed), -3111);
    EXPECT_EQ(pushed, ec::kCoreLost);
    Sample_File renamed = build_sample(Sample_Kind::word);
    renamed.bytes.at(renamed.entry_of(u"1Table")) = '2';
    EXPECT_EQ(check(renamed, "renamed.doc"), -3111);
}

// Each header field's own damage type is the header checks' (cfb_file_test); here the entry
// reports it as -3108, and a field one below max_sid passes.
TEST_F(Check_Entry, HeaderDamage) {
    const std::pair<uint64_t, Error_Code> damages[] = {{24, 60}, {76 + 4 * 50, 71}};
    for (const auto& [offset, expected] : damages) {
        Sample_File sample = build_sample(Sample_Kind::sheet);
        test::patch_u32(sample.bytes, offset, offset == 24 ? 0x003B : sample.max_sid());
        Error_Code pushed = 0;
        EXPECT_EQ(check(sample, "header.xls", &pushed), -3108) << offset;
        EXPECT_EQ(pushed, expected) << offset;
    }
    Sample_File fine = build_sample(Sample_Kind::sheet);
    test::patch_u32(fine.bytes, 48, fine.max_sid() - 1);
    test::patch_u32(fine.bytes, 68, 0xFFFFFFFE);
    EXPECT_EQ(check(fine, "fine.xls"), 0);
}

TEST_F(Check_Entry, ExtensionMustFitTheKind) {
    Error_Code pushed = 0;
    EXPECT_EQ(check(build_sample(Sample_Kind::slides), "slides.DOC", &pushed), -3114);
    EXPECT_EQ(pushed, ec::kExtension);
    EXPECT_EQ(check(build_sample(Sample_Kind::word), "word.Xls"), -3114);
    EXPECT_EQ(check(build_sample(Sample_Kind::sheet), "sheet.ppt"), -3114);
    EXPECT_EQ(check(build_sample(Sample_Kind::sheet), "sheet.xlsx"), 0);
}

TEST_F(Check_Entry, FolderIsRefusedAndLeftAlone) {
    const auto inside = folder / "dir" / "keep.txt";
    test::write_file(inside, "keep");
    Error_Code pushed = 0;
    EXPECT_EQ(check_path((folder / "dir").u8string(), &pushed), -3101);
    EXPECT_EQ(pushed, ec::kInvalidArgument);
    EXPECT_EQ(test::read_file(inside), "keep");
}

TEST_F(Check_Entry, MissingFileAndNullPath) {
    EXPECT_EQ(check_path((folder / "missing.doc").u8string()), -3101);
    EXPECT_EQ(check_path(""), -3101);
    EXPECT_EQ(VrkCfbFileCheck(nullptr), -3101);
}

TEST_F(Check_Entry, ReadPastTheEndOfAShortFileIsAnInternalError) {
    Sample_File tiny;
    tiny.bytes.assign(700, 0);  // the second slot of sector 0 runs past the end
    const char name[] = "R\0o\0o\0t\0 \0E\0n\0t\0r\0y\0\0";
    std::copy(name, name + 22, tiny.bytes.begin());
    Error_Code pushed = 0;
    EXPECT_EQ(check(tiny, "tiny.doc", &pushed), -3101);
    EXPECT_EQ(pushed, ec::kInternalError);
}

}  // namespace
}  // namespace vrk
