// The compound file builder. Its files are read by outside readers (olefile and gsf, through
// olefile_check.py) and by the salvage (salvage_test); here: what those readers cannot see
// (table order, the library's strict header checks, sibling trees) and the refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "cfb_vornak/builder/Cfb_Builder.h"
#include "cfb_vornak/builder/Sibling_Tree_Layout.h"
#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/salvage/Salvage.h"
#include "cfb_vornak/salvage/Salvage_Output.h"
#include "common/error_codes.h"
#include "common/platform.h"
#include "support/cfb_patch.h"
#include "support/sample_shapes.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

// olefile (Debian's python3-olefile) and gsf (libgsf-bin) read every shape as its manifest
// says, and so the file the salvage rebuilds from a copy with its header zeroed.
TEST(Builder, OutsideReadersAgree) {
    if (platform::kWindows) GTEST_SKIP() << "olefile and gsf run natively only";
    test::Temp_Folder folder("builder_samples");
    for (const std::string& name : test::sample_shape_names()) {
        test::Sample_Shape shape = test::make_sample_shape(name);
        std::string error;
        ASSERT_TRUE(test::write_sample_files(folder.wide(), shape, error)) << error;
        std::vector<uint8_t> bytes = build_compound_file(*shape.root, shape.options);
        test::zero_range(bytes, 0, 512);
        const Salvage_Result salvaged = salvage_bytes(bytes.data(), bytes.size());
        shape.name += "_salvaged";
        ASSERT_TRUE(salvage_write(
            bytes.data(), bytes.size(), salvaged,
            folder.wide() + platform::kSeparator + platform::widen(shape.name + ".cfb"), {}, error))
            << error;
        test::write_file(folder / (shape.name + ".cfb.json"), test::manifest_json(shape));
    }
    const std::string command =
        std::string("/usr/bin/python3 ") + CFB_OLEFILE_CHECK + " " + folder.path().string();
    EXPECT_EQ(std::system(command.c_str()), 0);
}

// Written files hold the built bytes, or nothing is written. The library's own strict header
// checks accept every default-built shape and reject each option that departs from a sound
// version-3 file at the field it changes.
TEST(Builder, HeaderChecksOfTheLibrary) {
    for (const std::string& name : test::sample_shape_names()) {
        const test::Sample_Shape shape = test::make_sample_shape(name);
        File_Description in;
        in.path_utf8 = "checked_" + name + ".cfb";
        in.path_wstr = in.open_path_wstr = platform::from_utf8(in.path_utf8);
        ASSERT_TRUE(write_compound_file(in.path_wstr, *shape.root, shape.options));
        const std::vector<uint8_t> bytes = build_compound_file(*shape.root, shape.options);
        EXPECT_EQ(test::read_file(in.path_utf8), std::string(bytes.begin(), bytes.end()));
        Error_Code expected = ec::kSuccess;
        if (shape.options.major_version == 4) {
            expected = ec::kMajorVersion;
        } else if (shape.options.minor_version != 0x003E) {
            expected = ec::kMinorVersion;
        } else if (shape.options.sat_in_last_sector) {
            expected = ec::kHeaderDisatSid;
        }
        {
            Cfb_File file(in);
            EXPECT_EQ(file.parse_header(), 0) << name;
            EXPECT_EQ(file.validate_header(), expected) << name;
        }
        std::filesystem::remove(platform::to_path(in.path_wstr));
    }
    EXPECT_FALSE(write_compound_file(
        std::wstring(L"no_such_folder") + platform::kSeparator + L"x.cfb", Cfb_Fs_Item_DirNode{}));
}

TEST(Builder, SmallestFileAndTableOrders) {
    // Header, SAT, directory, a free sector: the smallest file whose SAT count (1) is below
    // max_sid and whose directory is not the last sector.
    EXPECT_EQ(build_compound_file(Cfb_Fs_Item_DirNode{}).size(), 2048u);
    const auto shape = test::make_sample_shape("stream_sizes");
    Build_Layout plain;
    build_compound_file(*shape.root, {}, &plain);
    const sid_t three_mib = test::stream_place(plain, u"ThreeMiB").chain.front();
    EXPECT_LT(plain.sat_sids.back(), plain.minisat_sids.front());
    EXPECT_LT(plain.minisat_sids.back(), plain.directory_sids.front());
    EXPECT_LT(plain.directory_sids.back(), plain.container_sids.front());
    EXPECT_LT(plain.container_sids.back(), three_mib);
    Builder_Options at_end;
    at_end.tables_at_end = true;
    Build_Layout tail;
    build_compound_file(*shape.root, at_end, &tail);
    EXPECT_EQ(tail.container_sids.front(), 0u);
    EXPECT_LT(test::stream_place(tail, u"ThreeMiB").chain.back(), tail.directory_sids.front());
    EXPECT_LT(tail.directory_sids.back(), tail.minisat_sids.front());
    EXPECT_LT(tail.minisat_sids.back(), tail.sat_sids.front());
}

TEST(Builder, RefusesTreesItCannotWrite) {
    Cfb_Fs_Item_DirNode long_name;
    long_name.add_stream(std::u16string(32, u'x'), {});
    EXPECT_THROW(build_compound_file(long_name), std::invalid_argument);
    Cfb_Fs_Item_DirNode longest;
    longest.add_stream(std::u16string(31, u'x'), {});
    EXPECT_NO_THROW(build_compound_file(longest));
    // Names that differ only in case collide under the format's ordering.
    Cfb_Fs_Item_DirNode twins;
    twins.add_storage(u"Data");
    twins.add_stream(u"dATA", {1});
    EXPECT_THROW(build_compound_file(twins), std::invalid_argument);
    Builder_Options v5;
    v5.major_version = 5;
    EXPECT_THROW(build_compound_file(longest, v5), std::invalid_argument);
}

TEST(Builder, NameOrderIsLengthThenUpperCase) {
    struct Case {
        const char16_t* a;
        const char16_t* b;
        int sign;
    };
    // Units are upper-cased before comparing: '_' (0x5F) sorts after 'a' (0x41 as 'A').
    for (const Case c :
         {Case{u"z", u"aa", -1}, Case{u"abc", u"ABC", 0}, Case{u"abc", u"ABD", -1},
          Case{u"b", u"A", 1}, Case{u"é", u"É", 0}, Case{u"_", u"a", 1}, Case{u"文", u"档", -1}}) {
        const int got = compare_entry_names(c.a, c.b);
        EXPECT_EQ((got > 0) - (got < 0), c.sign) << test::utf16_to_utf8(c.a);
    }
}

// Every size of sibling set gives a red-black tree: in order, no red under red, the same black
// height on every path, a black top.
TEST(Builder, SiblingTreesAreRedBlackForEverySize) {
    for (uint32_t n = 0; n <= 300; ++n) {
        std::vector<Sibling_Links> links(n);
        std::vector<uint32_t> order(n);
        for (uint32_t i = 0; i < n; ++i) order[i] = i;
        std::vector<uint32_t> visited;
        // The black height below `did`; -1 for a broken subtree.
        const auto height = [&](const auto& self, uint32_t did, bool parent_red) -> int {
            if (did == NOSTREAM) return 1;
            if (did >= n) return -1;
            const bool red = links[did].color == 0;
            const int left = self(self, links[did].left, red);
            visited.push_back(did);
            const int right = self(self, links[did].right, red);
            if (left < 0 || left != right || (red && parent_red)) return -1;
            return left + (red ? 0 : 1);
        };
        const uint32_t top = link_siblings(links, order, false);
        EXPECT_GT(height(height, top, true), 0) << n;
        EXPECT_EQ(visited, order) << n;
    }
}

TEST(Builder, ScanFolderTree) {
    test::Temp_Folder top("scan_input");
    test::write_file(top / "a.bin", "12345");
    test::write_file(top / "sub" / "deeper" / "f.txt", "abc");
    test::write_file(top / "sub" / "empty", "");
    std::filesystem::create_directories(top.path() / platform::to_path(L"中文目录"));
    const auto root = scan_folder_tree(top.wide());
    std::vector<test::Expected_Stream> streams;
    std::vector<std::u16string> storages;
    test::collect_expected(*root, streams, storages);
    std::vector<std::u16string> paths;
    for (const auto& s : streams) {
        paths.push_back(s.path);
        if (s.path == u"a.bin") {
            EXPECT_EQ(s.node->data, (std::vector<uint8_t>{'1', '2', '3', '4', '5'}));
        }
    }
    std::sort(paths.begin(), paths.end());
    std::sort(storages.begin(), storages.end());
    EXPECT_EQ(paths, (std::vector<std::u16string>{u"a.bin", u"sub/deeper/f.txt", u"sub/empty"}));
    EXPECT_EQ(storages, (std::vector<std::u16string>{u"sub", u"sub/deeper", u"中文目录"}));
    test::write_file(top / std::string(32, 'n'), "");
    EXPECT_THROW(scan_folder_tree(top.wide()), std::runtime_error);
    EXPECT_THROW(scan_folder_tree(L"no_such_scan_folder"), std::runtime_error);
}

}  // namespace
}  // namespace vrk
