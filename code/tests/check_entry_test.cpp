// VrkCfbFileCheck end to end: every damage type on built files with one structure broken,
// and the path failures.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "cfb_vornak/cfb_vornak_api.h"
#include "common/error_store.h"
#include "support/probe_samples.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

using test::build_sample;
using test::Sample_File;
using test::Sample_Kind;

const std::filesystem::path kScratch = "qtw_tmp_cfb_cfb_file_output";

// Runs first: nothing has started the library in this process yet.
TEST(Check_Entry_Before_Init, ReportsNotInitialisedAndCreatesNothing) {
    std::filesystem::remove_all(kScratch);  // left by an earlier run in this folder
    EXPECT_EQ(VrkCfbFileCheck("whatever.doc"), -3103);
    EXPECT_EQ(last_error_code(get_error_store()), ec::kObjectInitFailed);
    EXPECT_FALSE(std::filesystem::exists(kScratch));
}

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
    nameless.fill(nameless.entry_offset(0), 20, 0);  // "Root Entry" wiped
    EXPECT_EQ(check(nameless, "nameless.doc"), -3112);
}

TEST_F(Check_Entry, RootEntryLost) {
    Sample_File sample = build_sample(Sample_Kind::word);
    sample.put_u32(sample.entry_offset(0) + 76, 20000);  // child_id beyond any directory
    Error_Code pushed = 0;
    EXPECT_EQ(check(sample, "root.doc", &pushed), -3110);
    EXPECT_EQ(pushed, ec::kRootLost);
}

TEST_F(Check_Entry, CoreEntryLost) {
    Error_Code pushed = 0;
    EXPECT_EQ(check(build_sample(Sample_Kind::none), "core.doc", &pushed), -3111);
    EXPECT_EQ(pushed, ec::kCoreLost);
    Sample_File renamed = build_sample(Sample_Kind::word);
    renamed.bytes.at(renamed.entry_offset(renamed.did_of(u"1Table"))) = '2';
    EXPECT_EQ(check(renamed, "renamed.doc"), -3111);
}

TEST_F(Check_Entry, EachHeaderFieldDecidesInTurn) {
    struct Damage {
        const char* what;
        uint64_t offset;
        int width;      // 2 or 4 bytes; 0: eight zero bytes
        int64_t value;  // -1: the file's max_sid
        Error_Code expected;
    };
    const Damage damages[] = {
        {"zeroed signature", 0, 0, 0, 59},
        {"minor version", 24, 2, 0x003B, 60},
        {"major version 4", 26, 2, 4, 61},
        {"byte order", 28, 2, 0xFEFF, 62},
        {"sector shift", 30, 2, 12, 63},
        {"mini sector shift", 32, 2, 7, 64},
        {"dir sectors at max_sid", 40, 4, -1, 65},
        {"sat sectors at max_sid", 44, 4, -1, 66},
        {"first dir sid at max_sid", 48, 4, -1, 67},
        {"cutoff", 56, 4, 4095, 68},
        {"first disat sid at max_sid", 68, 4, -1, 69},
        {"first disat sid free", 68, 4, 0xFFFFFFFF, 69},
        {"disat sectors at max_sid", 72, 4, -1, 70},
        {"header disat end of chain", 76 + 4 * 108, 4, 0xFFFFFFFE, 71},
        {"header disat at max_sid", 76 + 4 * 50, 4, -1, 71},
    };
    for (const Damage& damage : damages) {
        Sample_File sample = build_sample(Sample_Kind::sheet);
        const uint32_t value =
            damage.value == -1 ? sample.max_sid() : static_cast<uint32_t>(damage.value);
        if (damage.width == 0) sample.fill(damage.offset, 8, 0);
        if (damage.width == 2) sample.put_u16(damage.offset, static_cast<uint16_t>(value));
        if (damage.width == 4) sample.put_u32(damage.offset, value);
        Error_Code pushed = 0;
        EXPECT_EQ(check(sample, "header.xls", &pushed), -3108) << damage.what;
        EXPECT_EQ(pushed, damage.expected) << damage.what;
    }
    // One below max_sid and the end-of-chain first DISAT sector are both fine.
    Sample_File fine = build_sample(Sample_Kind::sheet);
    fine.put_u32(48, fine.max_sid() - 1);
    fine.put_u32(68, 0xFFFFFFFE);
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
