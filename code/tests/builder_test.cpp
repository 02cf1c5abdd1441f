// The compound file builder: outside readers (olefile and gsf) read its files; the refusals and
// the name order they cannot see.
#include <gtest/gtest.h>

#include <cstdlib>
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

// Every shape as its manifest says, and the file the salvage rebuilds from a copy with its
// header zeroed.
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

}  // namespace
}  // namespace vrk
