// What the salvage writes: safe names, the extracted tree, the rebuilt compound file.
#include "cfb_vornak/salvage/Salvage_Output.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "cfb_vornak/builder/Cfb_Builder.h"
#include "cfb_vornak/builder/Prepared_Output.h"
#include "cfb_vornak/salvage/Salvage.h"
#include "common/byte_order.h"
#include "common/platform.h"
#include "support/cfb_patch.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

namespace fs = std::filesystem;

std::string text(const std::vector<uint8_t>& bytes) {
    return {bytes.begin(), bytes.end()};
}

std::vector<uint8_t> header_zeroed(const Cfb_Fs_Item_DirNode& root, const Builder_Options& o = {}) {
    std::vector<uint8_t> file = build_compound_file(root, o);
    test::zero_range(file, 0, 512);
    return file;
}

// Names that would escape the folder, clash, name devices or streams, or end in a blank: every
// stream lands inside.
TEST(SalvageExtract, NothingLeavesTheFolder) {
    Cfb_Fs_Item_DirNode root;
    Cfb_Fs_Item_DirNode& sub = root.add_storage(u".");
    const std::tuple<Cfb_Fs_Item_DirNode*, const char16_t*, std::size_t> streams[] = {
        {&root, u"..", 100}, {&root, u"a/b", 5000},  {&root, u"CON", 10},     {&root, u"lost", 20},
        {&sub, u"x", 30},    {&sub, u"y\\z", 40},    {&root, u"nul.txt", 50}, {&root, u"end ", 60},
        {&root, u"x:y", 70}, {&sub, u"\x01\x1f", 80}};
    std::set<std::string> contents;
    for (const auto& [dir, name, n] : streams)
        contents.insert(text(dir->add_stream(name, test::random_bytes(n, n)).data));
    const std::vector<uint8_t> file = header_zeroed(root);
    const Salvage_Result r = salvage_bytes(file.data(), file.size());
    ASSERT_EQ(r.count(Salvage_State::recovered), 10u) << salvage_report_text(r);
    test::Temp_Folder base("extract_hostile");
    std::string error;
    ASSERT_TRUE(
        salvage_extract(file.data(), file.size(), r, platform::from_path(base / "out"), {}, error))
        << error;
    std::set<std::string> found;
    for (const auto& e : fs::recursive_directory_iterator(base.path())) {
        if (!e.is_regular_file()) continue;
        const std::string rel = e.path().lexically_relative(base / "out").generic_string();
        EXPECT_NE(rel.substr(0, 2), "..") << rel;
        found.insert(test::read_file(e.path()));
    }
    EXPECT_EQ(found, contents);
}

// The rebuilt file (version 3 from a version-4 input) carries the tree, data and metadata and is
// sound; twins in the damaged directory (equal in the format's order) are renamed.
TEST(SalvageOut, RebuiltFileRoundTrips) {
    Cfb_Fs_Item_DirNode root;
    root.clsid[3] = 0x42;
    root.modified_time[1] = 7;
    Cfb_Fs_Item_DirNode& sub = root.add_storage(u"Objects");
    sub.clsid[0] = 9;
    sub.state_bits[2] = 5;
    sub.add_stream(u"deep", test::random_bytes(7000, 11)).creation_time[4] = 3;
    root.add_stream(u"small", test::random_bytes(300, 12));
    root.add_stream(u"empty", {});
    root.add_stream(u"ab", test::random_bytes(100, 13));
    root.add_stream(u"cd", test::random_bytes(200, 14));
    Builder_Options v4;
    v4.major_version = 4;
    Build_Layout layout;
    std::vector<uint8_t> file = build_compound_file(root, v4, &layout);
    test::zero_range(file, 0, 512);
    const uint32_t twin = test::stream_place(layout, u"cd").did;
    test::patch_bytes(file, test::directory_entry_offset(layout, twin), {'A', 0, 'B', 0});
    const Salvage_Result r = salvage_bytes(file.data(), file.size());
    ASSERT_EQ(r.count(Salvage_State::recovered), 5u) << salvage_report_text(r);
    test::Temp_Folder base("round_trip");
    std::string error;
    ASSERT_TRUE(salvage_write(file.data(), file.size(), r, platform::from_path(base / "out.cfb"),
                              {}, error))
        << error;
    const std::string rebuilt = test::read_file(base / "out.cfb");
    const auto* bytes = reinterpret_cast<const uint8_t*>(rebuilt.data());
    EXPECT_EQ(read_u16_le(bytes + 26), 3);
    const Salvage_Result again = salvage_bytes(bytes, rebuilt.size());
    EXPECT_EQ(again.layout(), "header");
    ASSERT_EQ(again.count(Salvage_State::recovered), 5u);
    EXPECT_EQ(again.entries[0].clsid[3], 0x42);
    EXPECT_EQ(again.entries[0].modified_time[1], 7);
    std::set<std::string> seen;
    for (std::size_t i = 0; i < again.entries.size(); ++i) {
        const Salvaged_Entry& e = again.entries[i];
        if (e.name == u"Objects" && e.clsid[0] == 9 && e.state_bits[2] == 5) seen.insert("Objects");
        if (again.path_of(i) == u"Objects/deep" && e.creation_time[4] == 3 &&
            salvaged_bytes(bytes, rebuilt.size(), e.pieces) == test::random_bytes(7000, 11))
            seen.insert("deep");
    }
    EXPECT_EQ(seen, (std::set<std::string>{"Objects", "deep"}));
}

// Reading the input through an open file gives the same result, rebuilt file and extracted files.
TEST(SalvageOut, ReadingThroughTheFileChangesNothing) {
    Cfb_Fs_Item_DirNode root;
    root.add_stream(u"big", test::random_bytes(300000, 21));
    root.add_storage(u"sub").add_stream(u"tail", test::random_bytes(70000, 22));
    root.add_stream(u"small", test::random_bytes(900, 23));
    const std::vector<uint8_t> file = header_zeroed(root);
    test::Temp_Folder base("through_file");
    test::write_file(base / "in.cfb", text(file));
    platform::Input_File in;
    ASSERT_TRUE(in.open(platform::from_path(base / "in.cfb")));
    const Salvage_Result mapped = salvage_bytes(file.data(), file.size());
    const Salvage_Result read = salvage_bytes(file.data(), file.size(), false, &in);
    EXPECT_EQ(salvage_report_json(read), salvage_report_json(mapped));
    ASSERT_EQ(read.count(Salvage_State::recovered), 3u) << salvage_report_text(read);
    std::string error;
    for (const platform::Input_File* source : {static_cast<platform::Input_File*>(nullptr), &in}) {
        const std::string name = source == nullptr ? "mapped" : "read";
        ASSERT_TRUE(salvage_write(file.data(), file.size(), read,
                                  platform::from_path(base / (name + ".cfb")), {}, error, source));
        ASSERT_TRUE(salvage_extract(file.data(), file.size(), read,
                                    platform::from_path(base / name), {}, error, source));
    }
    EXPECT_EQ(test::read_file(base / "read.cfb"), test::read_file(base / "mapped.cfb"));
    // A file made ahead of time ends the same; one never used leaves nothing behind.
    const salvage::Salvage_Input through(file.data(), file.size(), &in);
    const Write_Target target{platform::from_path(base / "ahead.cfb"),
                              platform::Create_Mode::staged};
    { const Prepared_Output unused(target, 1); }
    Prepared_Output prepared(target, uint64_t{8} << 20);
    ASSERT_TRUE(salvage_write(through, read, target.path, {}, error, target.mode, &prepared));
    EXPECT_EQ(test::read_file(base / "ahead.cfb"), test::read_file(base / "mapped.cfb"));
    std::size_t names = 0;
    for ([[maybe_unused]] const auto& entry : fs::directory_iterator(base.path())) ++names;
    EXPECT_EQ(names, 6u);  // in.cfb, the two rebuilt files and two folders, ahead.cfb
    // Room set aside and not written is given back when the file is closed. Only files in
    // memory (tmpfs) have room set aside.
    const fs::path memory =
        fs::path("/dev/shm") / ("cfb_reserve_" + std::to_string(platform::current_process_id()));
    platform::Output_File out;
    if (!platform::kWindows && out.create(platform::from_path(memory))) {
        const bool reserved = out.reserve(uint64_t{8} << 20);
        EXPECT_TRUE(out.write("x", 1) && out.close());
        const std::string blocks = "$(stat -c %b '" + memory.string() + "')";
        EXPECT_TRUE(!reserved || test::run_shell("test " + blocks + " -le 64") == 0);
        fs::remove(memory);
    }
    EXPECT_EQ(test::read_file(base / "read" / "big"), text(test::random_bytes(300000, 21)));
}

}  // namespace
}  // namespace vrk
