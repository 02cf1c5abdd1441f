// The release of a parsed file's streams: files and failures over a table of damages, refused
// names, the chain walk, and the joined runs against the literal release (one id at a time).
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/model/Tree_Release.h"
#include "cfb_vornak/reports/Cfb_Reports.h"
#include "common/platform.h"
#include "support/analysis_samples.h"
#include "support/cfb_patch.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

using Patch = std::function<void(std::vector<uint8_t>&, const Build_Layout&)>;

class ReleaseTest : public ::testing::Test {
  protected:
    // Builds `root`, lets `patch` damage the bytes, writes, parses and releases the file.
    void open(const Cfb_Fs_Item_DirNode& root, const Patch& patch = {}) {
        bytes = build_compound_file(root, {}, &layout);
        if (patch) patch(bytes, layout);
        source = folder.wide(true) + L"sample.cfb";
        ASSERT_TRUE(test::write_bytes_to_file(source, bytes));
        output = folder.wide(true) + L"out";
        file = test::open_parsed(source, output);
        file->m_output = test::describe(with_one_trailing_separator(output));
        target = release_folder(*file);
        try {
            release_cfb_directory_tree(*file);
        } catch (const std::logic_error& failure) {
            thrown = failure.what();
        }
    }
    std::vector<uint8_t> released_bytes(const std::string& name) const {
        return test::read_bytes(target + platform::from_utf8(name));
    }

    test::Temp_Folder folder{"release"};
    Build_Layout layout;
    std::vector<uint8_t> bytes;
    std::wstring source, output, target;
    std::unique_ptr<Cfb_File> file;
    std::string thrown;
};

// The damage table's sample, in the tree's order: "d" (5000 bytes, sectors 6 to 15), "b" (300,
// mini sectors 1 to 5), "z" (70000, sectors 16 to 152, the last of the file), "a" (40, mini
// sector 0), "e" (40, mini sector 6); the container is sector 5. A stream's expected bytes are
// taken from the damaged input along its chain, as the literal release does, or given as runs
// (offset, length) where the damage changes what is read.
using Runs = std::vector<std::pair<uint64_t, uint64_t>>;

Runs by_ids(const Build_Layout& l, const char16_t* name, uint64_t base, uint64_t unit) {
    const auto& place = test::stream_place(l, name);
    Runs runs;
    uint64_t left = place.size;
    for (std::size_t i = 0; i < place.chain.size() && left > 0; ++i) {
        runs.emplace_back(base + place.chain[i] * unit, std::min(left, unit));
        left -= runs.back().second;
    }
    return runs;
}

// Entry `at` of the SAT chain of "d" set to `value`, or to its chain's entry `to`.
Patch link_d(std::size_t at, sid_t value, std::size_t to = 0) {
    return [=](std::vector<uint8_t>& b, const Build_Layout& l) {
        const auto& chain = test::stream_place(l, u"d").chain;
        test::patch_u32(b, test::sat_entry_offset(l, chain.at(at)),
                        value == 0 ? chain.at(to) : value);
    };
}
Patch shift(uint64_t field, uint16_t value) {
    return [=](std::vector<uint8_t>& b, const Build_Layout&) { test::patch_u16(b, field, value); };
}
Patch cut_d_at_cutoff_600(uint32_t size) {
    return [=](std::vector<uint8_t>& b, const Build_Layout& l) {
        test::patch_u32(b, test::offsets::kMiniStreamCutoff, 600);
        const uint64_t d = test::directory_entry_offset(l, test::stream_place(l, u"d").did);
        test::patch_u32(b, d + test::offsets::kEntrySize, size);
    };
}
Patch cut_in_z(std::size_t index, uint16_t sector_shift = 9) {
    return [=](std::vector<uint8_t>& b, const Build_Layout& l) {
        test::truncate(b, l.file_offset_of(test::stream_place(l, u"z").chain.at(index)) + 200);
        test::patch_u16(b, test::offsets::kSectorShift, sector_shift);
    };
}

// 4096-byte sectors: the container at (5 + 1) * 4096, "d" 4096 bytes at (6 + 1) * 4096 and 904 at
// (7 + 1) * 4096; "z" runs past the end: the read fails before "a" and "e".
const std::map<std::string, Runs> kShift12 = {{"d", {{28672, 4096}, {32768, 904}}},
                                              {"b", {{24576 + 64, 300}}}};

struct Release_Damage {
    const char* name;
    Patch damage;
    std::set<std::string> lost;        // streams that get no file
    uint64_t failing_offset;           // where the release fails; 0: it does not
    std::map<std::string, Runs> read;  // streams not read along their whole chain
};

const Release_Damage kReleaseDamage[] = {
    {"Sound", {}, {}, 0, {}},
    // "d" runs into a free sector; "d" turns back to its first sector after three.
    {"FreeSectorInAChain", link_d(2, FREESECT), {"d"}, 0, {}},
    {"RingInAChain", link_d(2, 0, 0), {}, 0, {{"d", {{3584, 3 * 512}}}}},
    // The header's cutoff decides, not the usual 4096: "d" cut to 700 bytes over a cutoff of 600
    // is read from two sectors, the second in part; cut to 600, through the mini chain from its
    // start id 6 (that of "e", one mini sector).
    {"OverTheCutoff", cut_d_at_cutoff_600(700), {}, 0, {{"d", {{3584, 700}}}}},
    {"AtTheCutoff", cut_d_at_cutoff_600(600), {}, 0, {{"d", {{3072 + 6 * 64, 64}}}}},
    {"SectorShift12", shift(test::offsets::kSectorShift, 12), {"z", "a", "e"}, 78848, kShift12},
    // 128-byte mini sectors: the container's 448 bytes hold ids 0 to 2; "b" meets id 3.
    {"MiniSectorShift7",
     shift(test::offsets::kMiniSectorShift, 7),
     {"b", "e"},
     0,
     {{"a", {{3072, 40}}}}},
    {"ContainerCutAway",
     [](std::vector<uint8_t>& b, const Build_Layout& l) {
         test::truncate(b, l.file_offset_of(l.container_sids.at(0)) + 100);
     },
     {"a", "b", "d", "e", "z"},
     0,
     {}},
    // Cut inside the third sector of "z": "z" meets an id past the last whole sector.
    {"CutInANormalStream", cut_in_z(2), {"z"}, 0, {}},
    // Cut inside its hundredth sector under 4096-byte sectors: the first sector of "z" already
    // starts past the end, and the read fails there, at (16 + 1) * 4096.
    {"CutInANormalStreamWithShift12", cut_in_z(99, 12), {"z", "a", "e"}, 69632, kShift12},
};

class ReleaseDamageTable : public ReleaseTest,
                           public ::testing::WithParamInterface<Release_Damage> {};

TEST_P(ReleaseDamageTable, FilesAndFailureFollowTheLiteralRelease) {
    const Release_Damage& row = GetParam();
    const std::pair<const char16_t*, std::size_t> sample[] = {
        {u"a", 40}, {u"b", 300}, {u"d", 5000}, {u"z", 70000}, {u"e", 40}};
    Cfb_Fs_Item_DirNode root;
    for (std::size_t i = 0; i < std::size(sample); ++i)
        root.add_stream(sample[i].first, test::random_bytes(sample[i].second, i + 1));
    open(root, row.damage);
    ASSERT_EQ(layout.container_sids, std::vector<sid_t>{5});
    ASSERT_EQ(test::stream_place(layout, u"z").chain.front(), 16u);
    if (row.failing_offset == 0) {
        EXPECT_EQ(thrown, "");
    } else {
        EXPECT_NE(thrown.find("File_Anywhere_Door access is illegal ! the offset [" +
                              std::to_string(row.failing_offset) + "]is  out of  range! \n"),
                  std::string::npos)
            << thrown;
    }
    std::set<std::string> written;
    for (const auto& [name, size] : sample) {
        const std::string narrow(1, static_cast<char>(name[0]));
        if (row.lost.count(narrow) != 0) continue;
        written.insert(narrow);
        const auto read = row.read.find(narrow);
        const Runs runs = read != row.read.end() ? read->second
                          : test::stream_place(layout, name).in_mini
                              ? by_ids(layout, name, 3072, 64)
                              : by_ids(layout, name, 512, 512);
        std::vector<uint8_t> data;
        for (const auto& [offset, length] : runs)
            data.insert(data.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset),
                        bytes.begin() + static_cast<std::ptrdiff_t>(offset + length));
        EXPECT_EQ(released_bytes(narrow), data) << narrow;
    }
    EXPECT_EQ(test::folder_names(target), written);
}

INSTANTIATE_TEST_SUITE_P(Rows, ReleaseDamageTable, ::testing::ValuesIn(kReleaseDamage),
                         [](const auto& info) { return std::string(info.param.name); });

// Names that would leave the release folder (storages too) write nothing; "\" is a plain
// character on POSIX.
TEST_F(ReleaseTest, NamesThatWouldLeaveTheFolderWriteNothing) {
    const std::u16string bad[] = {u"..", u"a/b", u"a\\b", u"", u"."};
    Cfb_Fs_Item_DirNode root;
    for (const char16_t* name : {u"n0", u"n1", u"n2", u"n3", u"n4"})
        root.add_stream(name, test::random_bytes(100, 11));
    root.add_storage(u"s1");
    open(root, [&](std::vector<uint8_t>& b, const Build_Layout& l) {
        for (const auto& place : l.streams)
            test::set_entry_name(b, l, place.did, bad[place.path[1] - u'0']);
        for (uint32_t did = 0; did < 8; ++did) {
            const uint64_t offset = test::directory_entry_offset(l, did);
            if (b[offset] == 's' && b[offset + 2] == '1') test::set_entry_name(b, l, did, u"..");
        }
    });
    EXPECT_EQ(test::folder_names(output + platform::kSeparator +
                                 platform::from_utf8(report_names::kTreeFolder)),
              (std::set<std::string>{report_names::kReleaseFolder}));
    EXPECT_EQ(test::folder_names(folder.wide()), (std::set<std::string>{"out", "sample.cfb"}));
    EXPECT_EQ(test::tree_names(target),
              platform::kWindows ? std::set<std::string>{} : std::set<std::string>{"a\\b"});
}

// Random chains (runs in order, jumps, markers, ids past the table or the source) over random
// sources: the joined runs hold exactly what the literal release collects, one id at a time
// (no file for a marker or an id past the table; a failure at the first byte past the source).
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
        const int64_t literal = [&]() -> int64_t {  // -1: no file; above 0: the failing offset
            uint64_t taken = 0;
            for (const sid_t id : chain) {
                if (id == ENDOFCHAIN) break;
                if (id > 0xFFFFFFFBu || id > last_id) return -1;
                const uint64_t offset = (id + first_unit) * unit;
                const uint64_t n = std::min<uint64_t>(size - expected.size(), unit);
                for (uint64_t i = 0; i < n; ++i) {
                    if (offset + i >= source.size()) return static_cast<int64_t>(offset + i);
                    expected.push_back(source[offset + i]);
                }
                if (++taken >= size) break;
            }
            return 0;
        }();
        Stream_Runs plan;
        stream_runs(chain, size, unit, first_unit, last_id + 1, source.size(), plan);
        SCOPED_TRACE(round);
        if (literal != 0) {
            ASSERT_EQ(plan.outcome, literal < 0 ? Stream_Runs::Outcome::no_file
                                                : Stream_Runs::Outcome::read_past_end);
            ASSERT_EQ(plan.failing_offset, literal > 0 ? static_cast<uint64_t>(literal) : 0u);
            continue;
        }
        ASSERT_EQ(plan.outcome, Stream_Runs::Outcome::write);
        std::vector<uint8_t> joined;
        for (std::size_t i = 0; i < plan.runs.size(); ++i) {
            EXPECT_NE(plan.runs[i].length, 0u);
            // Runs that meet are joined.
            EXPECT_TRUE(i == 0 ||
                        plan.runs[i - 1].offset + plan.runs[i - 1].length != plan.runs[i].offset);
            joined.insert(joined.end(), source.begin() + plan.runs[i].offset,
                          source.begin() + plan.runs[i].offset + plan.runs[i].length);
        }
        ASSERT_EQ(joined, expected);
    }
}

}  // namespace
}  // namespace vrk
