// VrkCfbFileCheck end to end: every damage type on built files with one structure broken,
// and the path failures.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>

#include "cfb_vornak/cfb_vornak_api.h"
#include "common/error_store.h"
#include "support/cfb_patch.h"
#include "support/header_damage.h"
#include "support/probe_samples.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

using test::build_sample;
using test::Sample_File;
using test::Sample_Kind;

class Check_Entry : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { ASSERT_EQ(VrkCfbInit("logs", "config", "work"), 0); }

    // Checks `sample` saved as `name`; `pushed` gets the damage type recorded.
    int32_t check(const Sample_File& sample, const std::string& name, Error_Code* pushed) {
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

TEST_F(Check_Entry, EachDamageTypeOnABuiltFile) {
    using Patch = std::function<void(Sample_File&)>;
    const Patch none = [](Sample_File&) {};
    struct Case {
        Sample_Kind kind;
        const char* name;
        Patch patch;
        int32_t result;
        Error_Code pushed;
    };
    const Case cases[] = {
        {Sample_Kind::word, "a.doc", none, 0, ec::kSuccess},
        {Sample_Kind::sheet, "b.XLS", none, 0, ec::kSuccess},
        {Sample_Kind::slides, "c.docx", none, 0, ec::kSuccess},
        {Sample_Kind::word, "noextension", none, 0, ec::kSuccess},
        {Sample_Kind::sheet, "sheet.xlsx", none, 0, ec::kSuccess},
        {Sample_Kind::word, "empty.doc", [](Sample_File& s) { s.bytes.clear(); }, -3112,
         ec::kNotCfb},
        {Sample_Kind::word, "nameless.doc",
         [](Sample_File& s) {
             test::zero_range(s.bytes, test::directory_entry_offset(s.layout, 0), 20);
         },
         -3112, ec::kNotCfb},
        // child_id beyond any directory
        {Sample_Kind::word, "root.doc",
         [](Sample_File& s) {
             test::patch_u32(s.bytes, test::directory_entry_offset(s.layout, 0) + 76, 20000);
         },
         -3110, ec::kRootLost},
        {Sample_Kind::none, "core.doc", none, -3111, ec::kCoreLost},
        {Sample_Kind::word, "renamed.doc",
         [](Sample_File& s) { s.bytes.at(s.entry_of(u"1Table")) = '2'; }, -3111, ec::kCoreLost},
        {Sample_Kind::slides, "slides.DOC", none, -3114, ec::kExtension},
        {Sample_Kind::word, "word.Xls", none, -3114, ec::kExtension},
        {Sample_Kind::sheet, "sheet.ppt", none, -3114, ec::kExtension},
        // The header's sector bounds: max_sid fails, one below passes.
        {Sample_Kind::sheet, "bound.xls",
         [](Sample_File& s) { test::patch_u32(s.bytes, 76 + 4 * 50, s.max_sid()); }, -3108,
         ec::kHeaderDisatSid},
        {Sample_Kind::sheet, "fine.xls",
         [](Sample_File& s) {
             test::patch_u32(s.bytes, 48, s.max_sid() - 1);
             test::patch_u32(s.bytes, 68, 0xFFFFFFFE);
         },
         0, ec::kSuccess},
    };
    for (const Case& c : cases) {
        Sample_File sample = build_sample(c.kind);
        c.patch(sample);
        Error_Code pushed = -1;
        EXPECT_EQ(check(sample, c.name, &pushed), c.result) << c.name;
        EXPECT_EQ(pushed, c.pushed) << c.name;
    }
    // Every header field's own damage type is pushed; the entry returns -3108 for each.
    for (const test::Header_Damage& row : test::kHeaderDamage) {
        Sample_File sample = build_sample(Sample_Kind::sheet);
        sample.bytes = test::damaged(sample.bytes, row);
        Error_Code pushed = -1;
        EXPECT_EQ(check(sample, "header.xls", &pushed), -3108) << row.offset;
        EXPECT_EQ(pushed, row.code) << row.offset;
    }
    // A check leaves the scratch folder empty.
    const std::filesystem::path scratch = "qtw_tmp_cfb_cfb_file_output";
    ASSERT_TRUE(std::filesystem::is_directory(scratch));
    EXPECT_TRUE(std::filesystem::is_empty(scratch));
}

TEST_F(Check_Entry, UnusablePaths) {
    const auto inside = folder / "dir" / "keep.txt";
    test::write_file(inside, "keep");
    Error_Code pushed = 0;
    EXPECT_EQ(check_path((folder / "dir").u8string(), &pushed), -3101);  // a folder, left alone
    EXPECT_EQ(pushed, ec::kInvalidArgument);
    EXPECT_EQ(test::read_file(inside), "keep");
    EXPECT_EQ(check_path((folder / "missing.doc").u8string()), -3101);
    EXPECT_EQ(check_path(""), -3101);
    EXPECT_EQ(VrkCfbFileCheck(nullptr), -3101);

    // A read past the end of a short file is an internal error.
    Sample_File tiny;
    tiny.bytes.assign(700, 0);  // the second slot of sector 0 runs past the end
    const char name[] = "R\0o\0o\0t\0 \0E\0n\0t\0r\0y\0\0";
    std::copy(name, name + 22, tiny.bytes.begin());
    EXPECT_EQ(check(tiny, "tiny.doc", &pushed), -3101);
    EXPECT_EQ(pushed, ec::kInternalError);
}

}  // namespace
}  // namespace vrk
