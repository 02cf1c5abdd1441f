#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <tuple>

#include "cfb_vornak/cfb_vornak_api.h"
#include "common/error_codes.h"
#include "common/error_store.h"
#include "support/cfb_patch.h"
#include "support/header_damage.h"
#include "support/probe_samples.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

using test::Sample_File;
using test::Sample_Kind;

class Check_Entry : public ::testing::Test {
  protected:
    static void SetUpTestSuite() { ASSERT_EQ(VrkCfbInit("logs", "config", "work"), 0); }

    // The check's result for `path` and the damage type it recorded.
    static std::pair<int32_t, Error_Code> check(const std::string& path) {
        const int32_t result = VrkCfbFileCheck(path.c_str());
        return {result, last_error_code(get_error_store())};
    }
    std::pair<int32_t, Error_Code> check(const Sample_File& sample, const std::string& name) {
        sample.write(folder / name);
        return check((folder / name).u8string());
    }

    test::Temp_Folder folder{"check"};
};

TEST_F(Check_Entry, EachDamageTypeAndUnusablePaths) {
    using Patch = std::function<void(Sample_File&)>;
    const Patch none = [](Sample_File&) {};
    const auto root_at = [](Sample_File& s, uint64_t field) {
        return test::directory_entry_offset(s.layout, 0) + field;
    };
    // A kind of document, its name, a patch, the damage type recorded (the result is its folding).
    const std::tuple<Sample_Kind, const char*, Patch, Error_Code> cases[] = {
        {Sample_Kind::word, "a.doc", none, ec::kSuccess},
        {Sample_Kind::sheet, "b.XLS", none, ec::kSuccess},
        {Sample_Kind::slides, "c.docx", none, ec::kSuccess},
        {Sample_Kind::word, "empty.doc", [](Sample_File& s) { s.bytes.clear(); }, ec::kNotCfb},
        {Sample_Kind::word, "nameless.doc",
         [&](Sample_File& s) { test::zero_range(s.bytes, root_at(s, 0), 20); }, ec::kNotCfb},
        {Sample_Kind::word, "root.doc",  // child_id beyond any directory
         [&](Sample_File& s) { test::patch_u32(s.bytes, root_at(s, 76), 20000); }, ec::kRootLost},
        {Sample_Kind::none, "core.doc", none, ec::kCoreLost},
        {Sample_Kind::word, "renamed.doc",
         [](Sample_File& s) { s.bytes.at(s.entry_of(u"1Table")) = '2'; }, ec::kCoreLost},
        {Sample_Kind::slides, "slides.DOC", none, ec::kExtension},
        {Sample_Kind::word, "word.Xls", none, ec::kExtension},
        {Sample_Kind::sheet, "sheet.ppt", none, ec::kExtension},
        // The header's sector bounds: max_sid fails, one below passes.
        {Sample_Kind::sheet, "bound.xls",
         [](Sample_File& s) { test::patch_u32(s.bytes, 76 + 4 * 50, s.max_sid()); },
         ec::kHeaderDisatSid},
        {Sample_Kind::sheet, "fine.xls",
         [](Sample_File& s) {
             test::patch_u32(s.bytes, 48, s.max_sid() - 1);
             test::patch_u32(s.bytes, 68, 0xFFFFFFFE);
         },
         ec::kSuccess},
    };
    for (const auto& [kind, name, patch, pushed] : cases) {
        Sample_File sample = test::build_sample(kind);
        patch(sample);
        EXPECT_EQ(check(sample, name), std::make_pair(to_api_result_code(pushed), pushed)) << name;
    }
    // Every header field's own damage type is pushed; the entry returns -3108 for each.
    for (const test::Header_Damage& row : test::kHeaderDamage) {
        Sample_File sample = test::build_sample(Sample_Kind::sheet);
        sample.bytes = test::damaged(sample.bytes, row);
        EXPECT_EQ(check(sample, "header.xls"), std::make_pair(-3108, row.code)) << row.offset;
    }
    // A check leaves the scratch folder empty.
    EXPECT_TRUE(std::filesystem::is_empty("qtw_tmp_cfb_cfb_file_output"));
    // Unusable paths.
    test::write_file(folder / "dir" / "keep.txt", "keep");
    EXPECT_EQ(check((folder / "dir").u8string()), std::make_pair(-3101, ec::kInvalidArgument));
    EXPECT_EQ(test::read_file(folder / "dir" / "keep.txt"), "keep");  // a folder, left alone
    for (const std::string& bad : {(folder / "missing.doc").u8string(), std::string()})
        EXPECT_EQ(check(bad).first, -3101) << bad;
    EXPECT_EQ(VrkCfbFileCheck(nullptr), -3101);
    // A read past the end of a short file (the second slot of sector 0) is an internal error.
    Sample_File tiny;
    tiny.bytes.assign(700, 0);
    const char name[] = "R\0o\0o\0t\0 \0E\0n\0t\0r\0y\0\0";
    std::copy(name, name + 22, tiny.bytes.begin());
    EXPECT_EQ(check(tiny, "tiny.doc"), std::make_pair(-3101, ec::kInternalError));
}

}  // namespace
}  // namespace vrk
