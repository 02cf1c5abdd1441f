// The release on two threads against the one-thread release of the same damaged file.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include "cfb_vornak/model/Tree_Release.h"
#include "cfb_vornak/reports/Cfb_Reports.h"
#include "common/fs_utils.h"
#include "support/analysis_samples.h"
#include "support/cfb_patch.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

struct Lanes_Case {
    const char* name;
    const char16_t* rename;  // of "s07": to reach the file of "s03", the folder "St", a short name
    uint16_t shift;
    uint64_t disk_full_at;  // the file size a full disk allows
    bool beside_throws;     // the two-thread release then stops with that failure
    const char16_t* cut;    // the input cut after parsing, part-way through this stream
};
constexpr uint64_t kAny = ~uint64_t{0};
const Lanes_Case kCases[] = {
    {"Sound", nullptr, 0, kAny, false, {}},        {"OneName", u"s03", 0, kAny, false, {}},
    {"OtherCase", u"S03", 0, kAny, false, {}},     {"StorageName", u"st", 0, kAny, false, {}},
    {"ShortName", u"S0~1", 0, kAny, false, {}},    {"SectorShift12", nullptr, 12, kAny, false, {}},
    {"DiskFull", nullptr, 0, 3000, false, {}},     {"BesideThrows", nullptr, 0, kAny, true, {}},
    {"CutFirst", nullptr, 0, kAny, false, u"s11"}, {"CutSecond", nullptr, 0, kAny, false, u"s05"}};

class ReleaseLanesTable : public ::testing::TestWithParam<Lanes_Case> {};
TEST_P(ReleaseLanesTable, TwoThreadsReleaseAsOne) {
    const Lanes_Case& row = GetParam();
    Cfb_Fs_Item_DirNode root;
    root.add_storage(u"St");
    for (char16_t i = 0; i < 24; ++i)
        root.add_stream(std::u16string{u's', char16_t(u'0' + i / 10), char16_t(u'0' + i % 10)},
                        test::random_bytes(i % 3 == 0 ? 100 * i : 9000 + 1500 * i, i + 1));
    Build_Layout layout;
    std::vector<uint8_t> bytes = build_compound_file(root, {}, &layout);
    if (row.rename)
        test::set_entry_name(bytes, layout, test::stream_place(layout, u"s07").did, row.rename);
    if (row.shift) test::patch_u16(bytes, test::offsets::kSectorShift, row.shift);
    const uint64_t cut_at =
        row.cut ? layout.file_offset_of(test::stream_place(layout, row.cut).chain[0]) + 1300 : 0;
    test::Temp_Folder folder{"lanes"};
    std::wstring targets[2];
    uint32_t released[2] = {0, 0};
    std::string thrown[2];
    platform::set_write_fault_for_tests(platform::Write_Fault::disk_full, row.disk_full_at);
    // Cut, the thread beside waits until the caller has met "s11" (released first, unreadable)
    // with more streams handed over after it.
    const auto beside = [&] {
        if (row.beside_throws) throw std::logic_error("beside");
        for (int i = 0; row.cut && i < 5000 && !fs::exists(targets[1] + L"s11"); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    };
    for (int two = 0; two < 2; ++two) {
        const std::wstring output = folder.wide(true) + (two == 0 ? L"one" : L"two");
        ASSERT_TRUE(test::write_bytes_to_file(folder.wide(true) + L"s.cfb", bytes));
        auto file = test::open_parsed(folder.wide(true) + L"s.cfb", output);
        std::error_code cut;  // where the open input cannot be cut (a mapped file), there is no row
        if (row.cut) std::filesystem::resize_file(folder.path() / "s.cfb", cut_at, cut);
        if (cut) GTEST_SKIP() << cut.message();
        file->m_output = test::describe(with_one_trailing_separator(output));
        targets[two] = release_folder(*file);
        try {
            released[two] = two == 0 ? release_cfb_directory_tree(*file)
                                     : release_cfb_directory_tree(*file, beside);
        } catch (const std::logic_error& failure) {
            thrown[two] = failure.what();
        }
    }
    platform::set_write_fault_for_tests(platform::Write_Fault::none, kAny);
    EXPECT_EQ(thrown[1], row.beside_throws ? "beside" : thrown[0]);
    EXPECT_EQ(thrown[0].empty(), row.shift == 0 && !row.cut);
    if (row.beside_throws || row.cut) return;
    EXPECT_EQ(released[1], released[0]);
    EXPECT_EQ(test::tree_names(targets[1]), test::tree_names(targets[0]));
    for (const std::string& name : test::tree_names(targets[0]))
        if (!fs::is_folder(targets[0] + platform::from_utf8(name))) {
            EXPECT_EQ(test::read_bytes(targets[1] + platform::from_utf8(name)),
                      test::read_bytes(targets[0] + platform::from_utf8(name)));
        }
}

INSTANTIATE_TEST_SUITE_P(Damage, ReleaseLanesTable, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace vrk
