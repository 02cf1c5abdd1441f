// The compound file builder. Its files are read by outside readers (olefile and gsf, through
// olefile_check.py) and by the salvage (salvage_test); here: what those readers cannot see
// (table order, name order) and the refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "cfb_vornak/builder/Cfb_Builder.h"
#include "cfb_vornak/builder/Sibling_Tree_Layout.h"
#include "cfb_vornak/salvage/Salvage.h"
#include "cfb_vornak/salvage/Salvage_Output.h"
#include "common/platform.h"
#include "support/cfb_patch.h"
#include "support/sample_shapes.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

// olefile (Debian's python3-olefile) and gsf (libgsf-bin) read every shape as its manifest
// says, and so the file the salvage rebuilds from a copy with its header zeroed. Written files
// hold the built bytes.
TEST(Builder, OutsideReadersAgree) {
    if (platform::kWindows) GTEST_SKIP() << "olefile and gsf run natively only";
    test::Temp_Folder folder("builder_samples");
    for (const std::string& name : test::sample_shape_names()) {
        test::Sample_Shape shape = test::make_sample_shape(name);
        std::string error;
        ASSERT_TRUE(test::write_sample_files(folder.wide(), shape, error)) << error;
        std::vector<uint8_t> bytes = build_compound_file(*shape.root, shape.options);
        EXPECT_EQ(test::read_file(folder / (name + ".cfb")),
                  std::string(bytes.begin(), bytes.end()));
        test::zero_range(bytes, 0, 512);
        const Salvage_Result salvaged = salvage_bytes(bytes.data(), bytes.size());
        shape.name += "_salvaged";
        ASSERT_TRUE(salvage_write(bytes.data(), bytes.size(), salvaged,
                                  platform::from_path(folder / (shape.name + ".cfb")), {}, error))
            << error;
        test::write_file(folder / (shape.name + ".cfb.json"), test::manifest_json(shape));
    }
    const std::string command =
        std::string("/usr/bin/python3 ") + CFB_OLEFILE_CHECK + " " + folder.path().string();
    EXPECT_EQ(std::system(command.c_str()), 0);
}

// Tables before the data, or after it in the opposite order (as some writers lay them out).
TEST(Builder, TableOrders) {
    const auto shape = test::make_sample_shape("stream_sizes");
    Build_Layout front;
    Build_Layout end;
    Builder_Options at_end;
    at_end.tables_at_end = true;
    build_compound_file(*shape.root, {}, &front);
    build_compound_file(*shape.root, at_end, &end);
    const auto order = [](const Build_Layout& l, bool reversed) {
        const std::vector<sid_t> firsts = {l.sat_sids[0], l.minisat_sids[0], l.directory_sids[0],
                                           l.container_sids[0],
                                           test::stream_place(l, u"ThreeMiB").chain[0]};
        return reversed ? std::is_sorted(firsts.rbegin() + 1, firsts.rend()) && firsts[3] == 0
                        : std::is_sorted(firsts.begin(), firsts.end());
    };
    EXPECT_TRUE(order(front, false));
    EXPECT_TRUE(order(end, true));
}

TEST(Builder, RefusesTreesItCannotWrite) {
    Cfb_Fs_Item_DirNode longest;
    longest.add_stream(std::u16string(31, u'x'), {});
    EXPECT_EQ(build_compound_file(longest).size(), 2048u);
    longest.add_stream(std::u16string(32, u'x'), {});
    EXPECT_THROW(build_compound_file(longest), std::invalid_argument);
    // Names that differ only in case collide under the format's ordering.
    Cfb_Fs_Item_DirNode twins;
    twins.add_storage(u"Data");
    twins.add_stream(u"dATA", {1});
    EXPECT_THROW(build_compound_file(twins), std::invalid_argument);
    Builder_Options v5;
    v5.major_version = 5;
    EXPECT_THROW(build_compound_file(Cfb_Fs_Item_DirNode{}, v5), std::invalid_argument);
    EXPECT_FALSE(write_compound_file(
        std::wstring(L"no_such_folder") + platform::kSeparator + L"x.cfb", Cfb_Fs_Item_DirNode{}));
}

// By length, then unit by unit upper-cased: '_' (0x5F) sorts after 'a' (0x41 as 'A').
TEST(Builder, NameOrderIsLengthThenUpperCase) {
    const std::tuple<std::u16string, std::u16string, int> cases[] = {
        {u"z", u"aa", -1}, {u"abc", u"ABC", 0}, {u"abc", u"ABD", -1}, {u"b", u"A", 1},
        {u"é", u"É", 0},   {u"_", u"a", 1},     {u"文", u"档", -1}};
    for (const auto& [a, b, sign] : cases) {
        const int got = compare_entry_names(a, b);
        EXPECT_EQ((got > 0) - (got < 0), sign) << test::utf16_to_utf8(a);
    }
}

TEST(Builder, ScanFolderTree) {
    test::Temp_Folder top("scan_input");
    test::write_file(top / "a.bin", "12345");
    test::write_file(top / "sub" / "deeper" / "f.txt", "abc");
    std::filesystem::create_directories(top.path() / platform::to_path(L"中文目录"));
    std::vector<test::Expected_Stream> streams;
    std::vector<std::u16string> storages;
    const auto root = scan_folder_tree(top.wide());
    test::collect_expected(*root, streams, storages);
    ASSERT_EQ(streams.size(), 2u);
    EXPECT_EQ(streams[0].path + u"|" + streams[1].path, u"a.bin|sub/deeper/f.txt");
    EXPECT_EQ(streams[0].node->data, (std::vector<uint8_t>{'1', '2', '3', '4', '5'}));
    EXPECT_EQ(storages, (std::vector<std::u16string>{u"sub", u"sub/deeper", u"中文目录"}));
    test::write_file(top / std::string(32, 'n'), "");
    EXPECT_THROW(scan_folder_tree(top.wide()), std::runtime_error);
    EXPECT_THROW(scan_folder_tree(L"no_such_scan_folder"), std::runtime_error);
}

}  // namespace
}  // namespace vrk
