#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "cfb_vornak/model/Cfb_Directory_Tree.h"
#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/model/Tree_Release.h"
#include "cfb_vornak/reports/Cfb_Reports.h"
#include "common/platform.h"
#include "support/analysis_samples.h"
#include "support/cfb_patch.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

using test::Temp_Folder;

class ReleaseTest : public ::testing::Test {
  protected:
    // Builds `root`, lets `patch` damage the bytes, writes and parses the file.
    template <typename Patch>
    void open(const Cfb_Fs_Item_DirNode& root, Patch patch) {
        bytes = build_compound_file(root, {}, &layout);
        patch(bytes);
        source = folder.wide(true) + L"sample.cfb";
        ASSERT_TRUE(test::write_bytes_to_file(source, bytes));
        output = folder.wide(true) + L"out";
        file = test::open_parsed(source, output);
        file->m_output = test::describe(with_one_trailing_separator(output));
        target = release_folder(*file);
        try {
            released = release_cfb_directory_tree(*file);
        } catch (const std::logic_error& failure) {
            thrown = failure.what();
        }
    }
    void open(const Cfb_Fs_Item_DirNode& root) {
        open(root, [](std::vector<uint8_t>&) {});
    }
    uint32_t did_of(const std::u16string& path) const {
        for (const auto& place : layout.streams) {
            if (place.path == path) {
                return place.did;
            }
        }
        ADD_FAILURE() << "no stream";
        return 0;
    }
    std::vector<uint8_t> released_bytes(const std::string& name, bool* exists = nullptr) const {
        return test::read_bytes(target + platform::from_utf8(name), exists);
    }

    Temp_Folder folder{"release"};
    Build_Layout layout;
    std::vector<uint8_t> bytes;
    std::wstring source;
    std::wstring output;
    std::wstring target;
    std::unique_ptr<Cfb_File> file;
    uint32_t released = 0;
    std::string thrown;  // the failure that ended the release
};

TEST_F(ReleaseTest, EveryStreamUnderTheRootComesOutWhole) {
    const std::map<std::string, std::size_t> sizes = {
        {"one", 1},      {"s63", 63},     {"s64", 64},       {"s65", 65},     {"s4095", 4095},
        {"s4097", 4097}, {"s5000", 5000}, {"s70000", 70000}, {"数据流", 777}, {"s512", 512}};
    Cfb_Fs_Item_DirNode root;
    std::map<std::string, std::vector<uint8_t>> data;
    uint32_t seed = 10;
    for (const auto& [name, size] : sizes) {
        data[name] = test::random_bytes(size, seed++);
        const std::wstring wide = platform::from_utf8(name);
        root.add_stream(std::u16string(wide.begin(), wide.end()), data[name]);
    }
    root.add_stream(u"empty", {});
    open(root);
    EXPECT_EQ(released, sizes.size());
    for (const auto& [name, expected] : data) {
        EXPECT_EQ(released_bytes(name), expected) << name;
    }
    bool exists = true;
    released_bytes("empty", &exists);
    EXPECT_FALSE(exists);
}

TEST_F(ReleaseTest, StoragesBecomeEmptyFoldersOneLevelOnly) {
    Cfb_Fs_Item_DirNode root;
    auto& sub = root.add_storage(u"Sub");
    sub.add_stream(u"Inner", test::random_bytes(100, 1));
    sub.add_storage(u"Deeper").add_stream(u"X", test::random_bytes(5000, 2));
    root.add_stream(u"Top", test::random_bytes(10, 3));
    open(root);
    EXPECT_EQ(test::tree_names(target), (std::set<std::string>{"Sub", "Top"}));
    EXPECT_TRUE(test::folder_names(target + L"Sub").empty());
}

TEST_F(ReleaseTest, EmptyRootGivesAnEmptyReleaseFolder) {
    open(Cfb_Fs_Item_DirNode{});
    EXPECT_EQ(released, 0u);
    EXPECT_TRUE(test::folder_names(target).empty());
    EXPECT_EQ(test::folder_names(output + platform::kSeparator +
                                 platform::from_utf8(report_names::kTreeFolder)),
              (std::set<std::string>{report_names::kReleaseFolder}));
}

TEST_F(ReleaseTest, TwoSectorStreamUnderALowCutoff) {
    Cfb_Fs_Item_DirNode root;
    root.add_stream(u"Big", test::random_bytes(5000, 4));
    open(root, [&](std::vector<uint8_t>& file_bytes) {
        test::patch_u32(file_bytes, 56, 600);  // cutoff below 700
        test::patch_u32(file_bytes, test::directory_entry_offset(layout, 1) + 120, 700);
    });
    const auto& chain = layout.streams.at(0).chain;
    ASSERT_GE(chain.size(), 2u);
    std::vector<uint8_t> expected(bytes.begin() + layout.file_offset_of(chain[0]),
                                  bytes.begin() + layout.file_offset_of(chain[0]) + 512);
    expected.insert(expected.end(), bytes.begin() + layout.file_offset_of(chain[1]),
                    bytes.begin() + layout.file_offset_of(chain[1]) + 188);
    EXPECT_EQ(released_bytes("Big"), expected);
}

// One SAT entry of a stream of ten full sectors is changed: entry `at` of its chain points to chain
// position `to` (FREESECT when negative). `kept` are the byte ranges of the data released, in
// order; none means that no file is written.
struct Chain_Damage {
    const char* name;
    std::size_t at;
    int to;
    std::vector<std::pair<std::size_t, std::size_t>> kept;
};

class ReleaseDamageTest : public ReleaseTest, public ::testing::WithParamInterface<Chain_Damage> {};

TEST_P(ReleaseDamageTest, FileHoldsTheSectorsWalked) {
    const Chain_Damage& damage = GetParam();
    const std::vector<uint8_t> data = test::random_bytes(5120, 5);
    Cfb_Fs_Item_DirNode root;
    root.add_stream(u"Big", data);
    root.add_stream(u"Fine", test::random_bytes(6000, 6));
    open(root, [&](std::vector<uint8_t>& file_bytes) {
        const auto& chain = layout.streams.at(0).path == u"Big" ? layout.streams.at(0).chain
                                                                : layout.streams.at(1).chain;
        test::patch_u32(file_bytes, test::sat_entry_offset(layout, chain.at(damage.at)),
                        damage.to < 0 ? FREESECT : chain.at(damage.to));
    });
    EXPECT_EQ(released_bytes("Fine"), test::random_bytes(6000, 6));
    bool exists = false;
    const std::vector<uint8_t> released = released_bytes("Big", &exists);
    ASSERT_EQ(exists, !damage.kept.empty());
    std::vector<uint8_t> expected;
    for (const auto& [begin, end] : damage.kept) {
        expected.insert(expected.end(), data.begin() + begin, data.begin() + end);
    }
    EXPECT_EQ(released, expected);
}

INSTANTIATE_TEST_SUITE_P(
    Chains, ReleaseDamageTest,
    ::testing::Values(Chain_Damage{"FreeSector", 2, -1, {}},
                      Chain_Damage{"Ring", 2, 0, {{0, 1536}}},
                      // Sector 1 skipped: two runs of the file, the file one sector short.
                      Chain_Damage{"Skip", 0, 2, {{0, 512}, {1024, 5120}}},
                      // Back to sector 1 from 9: the ring closes after every sector was read.
                      Chain_Damage{"RingAtTheEnd", 9, 1, {{0, 5120}}}),
    [](const auto& info) { return std::string(info.param.name); });

// The sample of the damage table, in the tree's order: the normal stream "d" (5000 bytes,
// sectors 6 to 15), the mini stream "b" (300 bytes, mini sectors 1 to 5), the normal stream
// "z" (70000 bytes, sectors 16 to 152, the last of the file), and the mini streams "a" (40
// bytes, mini sector 0) and "e" (40 bytes, mini sector 6). The container is sector 5.
struct Damage_Sample {
    const Build_Layout& layout;
    const std::vector<uint8_t>& bytes;      // as damaged
    const std::vector<std::string>& order;  // names of the root's children in the tree

    const Build_Layout::Stream_Place& place(const char16_t* name) const {
        return test::stream_place(layout, name);
    }
};

// What one stream's file holds, as runs (offset, length) of the damaged input; no file when
// `written` is false.
struct Expected_File {
    bool written = true;
    std::vector<std::pair<uint64_t, uint64_t>> runs;
};
const Expected_File kNoFile{false, {}};

struct Release_Damage {
    const char* name;
    std::function<void(std::vector<uint8_t>&, const Build_Layout&)> damage;
    // The files expected by name, and the offset at which the release fails (0: it does not).
    std::function<std::map<std::string, Expected_File>(const Damage_Sample&)> files;
    uint64_t failing_offset;
};

// A stream's runs in the input, taken `unit` bytes per sector id at (id + 1) * unit.
Expected_File by_sectors(const Build_Layout::Stream_Place& place, uint64_t unit, std::size_t ids) {
    Expected_File file;
    uint64_t left = place.size;
    for (std::size_t i = 0; i < ids && left > 0; ++i) {
        const uint64_t n = std::min(left, unit);
        file.runs.emplace_back((place.chain.at(i) + uint64_t{1}) * unit, n);
        left -= n;
    }
    return file;
}

// A mini stream's runs: `unit` bytes per mini id at id * unit in the container, which is
// one sector read whole from `container` on.
Expected_File by_mini_sectors(const Build_Layout::Stream_Place& place, uint64_t container,
                              uint64_t unit, std::size_t ids) {
    Expected_File file;
    uint64_t left = place.size;
    for (std::size_t i = 0; i < ids && left > 0; ++i) {
        const uint64_t n = std::min(left, unit);
        file.runs.emplace_back(container + place.chain.at(i) * unit, n);
        left -= n;
    }
    return file;
}

Expected_File whole(const Damage_Sample& s, const char16_t* name) {
    const auto& place = s.place(name);
    return place.in_mini
               ? by_mini_sectors(place, s.layout.file_offset_of(5), 64, place.chain.size())
               : by_sectors(place, 512, place.chain.size());
}

void set_shift(std::vector<uint8_t>& bytes, uint64_t field, uint16_t shift, bool version_4) {
    test::patch_u16(bytes, field, shift);
    if (version_4) test::patch_u16(bytes, test::offsets::kMajorVersion, 4);
}

// Cuts the file `into` bytes into the sector of `name` that is `index`-th in its chain.
void cut_in(std::vector<uint8_t>& bytes, const Build_Layout& layout, const char16_t* name,
            std::size_t index, uint64_t into) {
    test::truncate(bytes,
                   layout.file_offset_of(test::stream_place(layout, name).chain.at(index)) + into);
}

std::map<std::string, Expected_File> shift_12_files(const Damage_Sample& s) {
    EXPECT_EQ(s.order, (std::vector<std::string>{"d", "b", "z", "a", "e", "", ""}));
    // The container is read from (5 + 1) * 4096 on.
    return {{"d", by_sectors(s.place(u"d"), 4096, 2)},
            {"b", by_mini_sectors(s.place(u"b"), (5 + 1) * 4096, 64, 5)},
            {"z", kNoFile},
            {"a", kNoFile},
            {"e", kNoFile}};
}

const Release_Damage kReleaseDamage[] = {
    {"Sound", [](auto&, const auto&) {},
     [](const Damage_Sample& s) {
         return std::map<std::string, Expected_File>{{"a", whole(s, u"a")},
                                                     {"b", whole(s, u"b")},
                                                     {"d", whole(s, u"d")},
                                                     {"z", whole(s, u"z")},
                                                     {"e", whole(s, u"e")}};
     },
     0},
    // 4096-byte sectors over a file of 512-byte ones (78848 bytes). The container is read
    // from (5 + 1) * 4096 on. "d" (5000 bytes) is read as 4096 bytes at (6 + 1) * 4096 and
    // 904 at (7 + 1) * 4096; "b" from the container as it was read; "z" reads 4096 bytes at
    // (16 + 1) * 4096 and at (17 + 1) * 4096, then its third sector, (18 + 1) * 4096 = 77824,
    // runs past the end: the read fails at 78848, "z" gets no file, and "a" and "e", which
    // come after it, are never reached.
    {"SectorShift12",
     [](auto& bytes, const auto&) { set_shift(bytes, test::offsets::kSectorShift, 12, false); },
     shift_12_files, 78848},
    {"Version4Shift12",
     [](auto& bytes, const auto&) { set_shift(bytes, test::offsets::kSectorShift, 12, true); },
     shift_12_files, 78848},
    // 128-byte mini sectors: the container's 448 bytes hold mini ids 0 to 2. "a" takes 40
    // bytes of id 0; "b" starts at id 1, takes 128 bytes there and 128 at id 2, then meets
    // id 3: no file. "e" starts at id 6: no file.
    {"MiniSectorShift7",
     [](auto& bytes, const auto&) { set_shift(bytes, test::offsets::kMiniSectorShift, 7, false); },
     [](const Damage_Sample& s) {
         return std::map<std::string, Expected_File>{
             {"a", by_mini_sectors(s.place(u"a"), s.layout.file_offset_of(5), 128, 1)},
             {"b", kNoFile},
             {"d", whole(s, u"d")},
             {"z", whole(s, u"z")},
             {"e", kNoFile}};
     },
     0},
    // 512-byte mini sectors: the container's 448 bytes hold no whole one, so no mini id
    // exists and no mini stream gets a file, not even "a" whose 40 bytes lie inside.
    {"MiniSectorShift9",
     [](auto& bytes, const auto&) { set_shift(bytes, test::offsets::kMiniSectorShift, 9, false); },
     [](const Damage_Sample& s) {
         return std::map<std::string, Expected_File>{{"a", kNoFile},
                                                     {"b", kNoFile},
                                                     {"d", whole(s, u"d")},
                                                     {"z", whole(s, u"z")},
                                                     {"e", kNoFile}};
     },
     0},
    // The header's first SAT sector is the file's last sector, which holds 0xFF bytes: every
    // chain runs into FREESECT, the directory's (one sector: "d", "b", "a" under the root)
    // and the container's, which stays empty. No mini sector id exists: "a", whose mini
    // chain is id 0 alone, gets no file, no more than "b"; "d" runs into FREESECT.
    {"SatInTheLastSectorEmptiesTheContainer",
     [](auto& bytes, const Build_Layout& layout) {
         const auto last = static_cast<sid_t>(bytes.size() / 512 - 2);
         test::patch_u32(bytes, test::header_disat_offset(0), last);
         test::patch_bytes(bytes, layout.file_offset_of(last), std::vector<uint8_t>(512, 0xFF));
     },
     [](const Damage_Sample& s) {
         EXPECT_EQ(s.layout.file_offset_of(s.place(u"z").chain.back()) + 512, s.bytes.size());
         return std::map<std::string, Expected_File>{};
     },
     0},
    // The file ends inside the container's sector: the container's chain names a sector past
    // the last whole one, and the container stays empty. Every later sector is gone as well.
    {"ContainerCutAway",
     [](auto& bytes, const Build_Layout& layout) {
         test::truncate(bytes, layout.file_offset_of(layout.container_sids.at(0)) + 100);
     },
     [](const Damage_Sample&) { return std::map<std::string, Expected_File>{}; }, 0},
    // Cut in the middle of the third sector of "z": "z" meets an id past the last whole sector.
    {"CutInANormalStream",
     [](auto& bytes, const Build_Layout& layout) { cut_in(bytes, layout, u"z", 2, 200); },
     [](const Damage_Sample& s) {
         return std::map<std::string, Expected_File>{{"a", whole(s, u"a")},
                                                     {"b", whole(s, u"b")},
                                                     {"d", whole(s, u"d")},
                                                     {"e", whole(s, u"e")}};
     },
     0},
    // Cut in the middle of the hundredth sector of "z", 59592 bytes, under 4096-byte
    // sectors: as in SectorShift12, but the first sector of "z" already ends past the end of
    // the shorter file: the read fails at (16 + 1) * 4096 = 69632.
    {"CutInANormalStreamWithShift12",
     [](auto& bytes, const Build_Layout& layout) {
         cut_in(bytes, layout, u"z", 99, 200);
         set_shift(bytes, test::offsets::kSectorShift, 12, false);
     },
     shift_12_files, 69632},
};

class ReleaseDamageTableTest : public ReleaseTest,
                               public ::testing::WithParamInterface<Release_Damage> {};

TEST_P(ReleaseDamageTableTest, FilesAndFailureFollowTheReleaseRules) {
    const Release_Damage& row = GetParam();
    Cfb_Fs_Item_DirNode root;
    root.add_stream(u"a", test::random_bytes(40, 1));
    root.add_stream(u"b", test::random_bytes(300, 2));
    root.add_stream(u"d", test::random_bytes(5000, 3));
    root.add_stream(u"z", test::random_bytes(70000, 4));
    root.add_stream(u"e", test::random_bytes(40, 5));
    open(root, [&](std::vector<uint8_t>& file_bytes) { row.damage(file_bytes, layout); });

    // The premises: the container is one sector (mini sectors 0 to 6), the tree's order.
    std::vector<std::string> order;
    for (const auto* child : file->cfb_directory_tree->root->children) {
        order.push_back(platform::to_utf8(entry_file_name(file->directory_entrys[child->index])));
    }
    ASSERT_EQ(layout.container_sids, std::vector<sid_t>{5});
    ASSERT_EQ(test::stream_place(layout, u"z").chain.front(), 16u);

    const Damage_Sample sample{layout, bytes, order};
    const uint64_t failing = row.failing_offset;
    if (failing == 0) {
        EXPECT_EQ(thrown, "");
    } else {
        EXPECT_NE(thrown.find("File_Anywhere_Door access is illegal ! the offset [" +
                              std::to_string(failing) + "]is  out of  range! \n"),
                  std::string::npos)
            << thrown;
    }
    std::set<std::string> expected_names;
    for (const auto& [name, expected] : row.files(sample)) {
        bool exists = false;
        const std::vector<uint8_t> released_file = released_bytes(name, &exists);
        EXPECT_EQ(exists, expected.written) << name;
        if (!expected.written) continue;
        expected_names.insert(name);
        std::vector<uint8_t> data;
        for (const auto& [offset, length] : expected.runs) {
            data.insert(data.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset),
                        bytes.begin() + static_cast<std::ptrdiff_t>(offset + length));
        }
        EXPECT_EQ(released_file, data) << name;
    }
    EXPECT_EQ(test::folder_names(target), expected_names);
}

void PrintTo(const Release_Damage& row, std::ostream* out) {
    *out << row.name;
}

INSTANTIATE_TEST_SUITE_P(Rows, ReleaseDamageTableTest, ::testing::ValuesIn(kReleaseDamage),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(ReleaseTest, SameNameTwiceTheLaterChildWins) {
    Cfb_Fs_Item_DirNode root;
    root.add_stream(u"A", test::random_bytes(300, 8));
    root.add_stream(u"B", test::random_bytes(400, 9));
    open(root, [&](std::vector<uint8_t>& file_bytes) {
        test::set_entry_name(file_bytes, layout, did_of(u"B"), u"A");
    });
    // The root also holds the directory's unallocated entries.
    uint32_t later = 0;
    for (const auto* child : file->cfb_directory_tree->root->children) {
        if (child->index == did_of(u"A") || child->index == did_of(u"B")) {
            later = child->index;
        }
    }
    const std::vector<uint8_t> expected =
        later == did_of(u"A") ? test::random_bytes(300, 8) : test::random_bytes(400, 9);
    EXPECT_EQ(test::folder_names(target), (std::set<std::string>{"A"}));
    EXPECT_EQ(released_bytes("A"), expected);
}

TEST_F(ReleaseTest, NamesThatWouldLeaveTheFolderWriteNothing) {
    Cfb_Fs_Item_DirNode root;
    for (const char16_t* name : {u"n1", u"n2", u"n3", u"n4", u"n5"}) {
        root.add_stream(name, test::random_bytes(100, 11));
    }
    root.add_storage(u"s1");
    open(root, [&](std::vector<uint8_t>& file_bytes) {
        test::set_entry_name(file_bytes, layout, did_of(u"n1"), u"..");
        test::set_entry_name(file_bytes, layout, did_of(u"n2"), u"a/b");
        test::set_entry_name(file_bytes, layout, did_of(u"n3"), u"a\\b");
        test::set_entry_name(file_bytes, layout, did_of(u"n4"), u"");
        test::set_entry_name(file_bytes, layout, did_of(u"n5"), u".");
        // Storage names are checked the same way.
        for (uint32_t did = 0; did < 8; ++did) {
            const uint64_t offset = test::directory_entry_offset(layout, did);
            if (file_bytes[offset] == 's' && file_bytes[offset + 2] == '1') {
                test::set_entry_name(file_bytes, layout, did, u"..");
            }
        }
    });
    // Nothing next to the release folder, nothing above the output folder.
    EXPECT_EQ(test::folder_names(output + platform::kSeparator +
                                 platform::from_utf8(report_names::kTreeFolder)),
              (std::set<std::string>{report_names::kReleaseFolder}));
    EXPECT_EQ(test::folder_names(folder.wide()), (std::set<std::string>{"out", "sample.cfb"}));
    const std::set<std::string> names = test::tree_names(target);
    if (platform::kWindows) {
        EXPECT_TRUE(names.empty());
    } else {
        EXPECT_EQ(names, (std::set<std::string>{"a\\b"}));
    }
}

// A stream of exactly the cutoff is read through the mini chain; one byte more through the
// sectors. The builder keeps a 4096-byte stream in sectors, so the tables are set by hand.
TEST_F(ReleaseTest, CutoffSizeIsMiniOneMoreIsNormal) {
    Cfb_Fs_Item_DirNode root;
    root.add_stream(u"Big", test::random_bytes(5000, 12));
    open(root);
    file->short_stream_container = test::random_bytes(64 * 70, 13);
    file->mini_sector_count = 70;
    file->minisat_big_sids_array.assign(70, FREESECT);
    for (sid_t id = 0; id < 64; ++id) {
        file->minisat_big_sids_array[id] = id + 1 < 64 ? id + 1 : ENDOFCHAIN;
    }
    Directory_Entry record = file->directory_entrys.at(did_of(u"Big"));
    record.start_sid = 0;
    record.stream_size = 4096;
    const std::wstring mini = folder.wide(true) + L"mini";
    ASSERT_TRUE(write_cfb_directory_entry_to_a_file(*file, record, test::describe(mini)));
    EXPECT_EQ(test::read_bytes(mini),
              std::vector<uint8_t>(file->short_stream_container.begin(),
                                   file->short_stream_container.begin() + 4096));

    record = file->directory_entrys.at(did_of(u"Big"));
    record.stream_size = 4097;
    const std::wstring normal = folder.wide(true) + L"normal";
    ASSERT_TRUE(write_cfb_directory_entry_to_a_file(*file, record, test::describe(normal)));
    const std::vector<uint8_t> data = test::random_bytes(5000, 12);
    EXPECT_EQ(test::read_bytes(normal), std::vector<uint8_t>(data.begin(), data.begin() + 4097));
}

TEST(ReleaseChain, EndsAtMarkersRingsTableEndAndLimit) {
    const sids_array table = {1, 2, ENDOFCHAIN, 0, 3, FREESECT};
    EXPECT_EQ(release_chain(table, 0, 99999), (sids_list{0, 1, 2, ENDOFCHAIN}));
    EXPECT_EQ(release_chain(table, 3, 99999), (sids_list{3, 0, 1, 2, ENDOFCHAIN}));
    EXPECT_EQ(release_chain(table, 4, 1), (sids_list{4, 3, ENDOFCHAIN}));
    EXPECT_EQ(release_chain(table, 5, 99999), (sids_list{5, FREESECT, ENDOFCHAIN}));
    EXPECT_EQ(release_chain(table, 6, 99999), (sids_list{6, ENDOFCHAIN}));
    EXPECT_EQ(release_chain({0}, 0, 99999), (sids_list{0, ENDOFCHAIN}));
    EXPECT_EQ(release_chain({}, 0, 99999), (sids_list{0, ENDOFCHAIN}));

    sids_array long_table(200000);
    for (sid_t i = 0; i < long_table.size(); ++i) {
        long_table[i] = i + 1;
    }
    EXPECT_EQ(release_chain(long_table, 0, kNormalChainLimit).size(), 100001u);
    EXPECT_EQ(release_chain(long_table, 0, kMiniChainLimit).size(), 10001u);
}

// The bytes the release takes for a chain, collected one id at a time into a buffer; -1 when
// no file is written, the offset of the first byte read past the source when the read fails.
int64_t collect_literally(const sids_list& chain, uint32_t size, uint64_t unit, uint64_t first_unit,
                          uint64_t last_id, const std::vector<uint8_t>& source,
                          std::vector<uint8_t>& collected) {
    uint64_t remaining = size;
    uint64_t taken = 0;
    for (const sid_t id : chain) {
        if (id == ENDOFCHAIN) {
            break;
        }
        if (id > 0xFFFFFFFBu || id > last_id) {
            return -1;
        }
        const uint64_t offset = (id + first_unit) * unit;
        for (uint64_t i = 0; i < std::min(remaining, unit); ++i) {
            if (offset + i >= source.size()) {
                return static_cast<int64_t>(offset + i);
            }
            collected.push_back(source[offset + i]);
        }
        remaining = size - collected.size();
        if (++taken >= size) {
            break;
        }
    }
    return 0;
}

// Random chains (runs in order, jumps, markers, ids past the table, ids past the source) over
// random sources.
TEST(StreamRuns, JoinedRunsHoldTheBytesCollectedIdById) {
    std::mt19937 random(5);
    for (int round = 0; round < 3000; ++round) {
        const uint64_t unit = uint64_t{1} << (random() % 10);
        const uint64_t first_unit = random() % 2;
        const std::vector<uint8_t> source = test::random_bytes(random() % (unit * 40), round);
        const uint64_t last_id = random() % 45;
        sids_list chain;
        const std::size_t length = random() % 30;
        for (sid_t next = random() % 40; chain.size() < length;) {
            chain.push_back(next);
            const uint32_t pick = random() % 20;
            next = pick < 14    ? next + 1
                   : pick < 18  ? random() % 48
                   : pick == 18 ? FREESECT
                                : ENDOFCHAIN;
        }
        chain.push_back(ENDOFCHAIN);
        const auto size = static_cast<uint32_t>(random() % (unit * 32 + 2));

        std::vector<uint8_t> expected;
        const int64_t literal =
            collect_literally(chain, size, unit, first_unit, last_id, source, expected);
        Stream_Runs plan;
        stream_runs(chain, size, unit, first_unit, last_id + 1, source.size(), plan);
        if (literal < 0) {
            ASSERT_EQ(plan.outcome, Stream_Runs::Outcome::no_file) << "round " << round;
            continue;
        }
        if (literal > 0) {
            ASSERT_EQ(plan.outcome, Stream_Runs::Outcome::read_past_end) << "round " << round;
            ASSERT_EQ(plan.failing_offset, static_cast<uint64_t>(literal)) << "round " << round;
            continue;
        }
        ASSERT_EQ(plan.outcome, Stream_Runs::Outcome::write) << "round " << round;
        std::vector<uint8_t> joined;
        for (std::size_t i = 0; i < plan.runs.size(); ++i) {
            EXPECT_NE(plan.runs[i].length, 0u);
            if (i > 0) {
                EXPECT_NE(plan.runs[i - 1].offset + plan.runs[i - 1].length, plan.runs[i].offset);
            }
            joined.insert(joined.end(), source.begin() + plan.runs[i].offset,
                          source.begin() + plan.runs[i].offset + plan.runs[i].length);
        }
        ASSERT_EQ(joined, expected) << "round " << round;
    }
}

TEST(ReleaseNames, UnitsUpToTheFirstZeroWithUnpairedSurrogatesReplaced) {
    Directory_Entry entry;
    const char16_t units[] = {u'a', 0xD800, u'b', 0, u'c'};
    for (std::size_t i = 0; i < 5; ++i) {
        entry.name[2 * i] = static_cast<uint8_t>(units[i] & 0xFF);
        entry.name[2 * i + 1] = static_cast<uint8_t>(units[i] >> 8);
    }
    EXPECT_EQ(entry_file_name(entry), L"a\uFFFDb");
    entry.name.fill(0x41);  // 32 units, no zero unit
    EXPECT_EQ(entry_file_name(entry), std::wstring(32, L'\u4141'));
}

}  // namespace
}  // namespace vrk
