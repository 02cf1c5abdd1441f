// Salvage of damaged builder files: a table of damages over the writer layouts (the header's
// also over every sample shape), random damage over random files, and files built for one case
// each. Salvaged bytes are compared with the bytes the file was built from.
#include "cfb_vornak/salvage/Salvage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "cfb_vornak/builder/Cfb_Builder.h"
#include "cfb_vornak/salvage/Salvage_Layout.h"
#include "common/byte_order.h"
#include "support/cfb_patch.h"
#include "support/sample_shapes.h"

namespace vrk {
namespace {

using test::sat_entry_offset;
using Streams = std::map<std::u16string, std::vector<uint8_t>>;  // path -> original bytes

struct Sample {
    std::vector<uint8_t> bytes;
    Build_Layout layout;
    Streams streams;
    Streams older;  // an older save's: where the live directory is gone, they are the file's
};

Sample build(const Cfb_Fs_Item_DirNode& root, const Builder_Options& options = {}) {
    Sample s;
    s.bytes = build_compound_file(root, options, &s.layout);
    std::vector<test::Expected_Stream> streams;
    std::vector<std::u16string> storages;
    test::collect_expected(root, streams, storages);
    for (const auto& e : streams) s.streams[e.path] = e.node->data;
    return s;
}

// A tree of random shape: up to `budget` streams, mini and big, storages to depth 3.
void fill_tree(Cfb_Fs_Item_DirNode& dir, std::mt19937& rng, int depth, int& budget) {
    const int children = 1 + static_cast<int>(rng() % 6);
    for (int i = 0; i < children && budget > 0; ++i) {
        const std::u16string name = {u'S', static_cast<char16_t>(u'a' + i),
                                     static_cast<char16_t>(u'0' + depth)};
        if (depth < 3 && rng() % 4 == 0) {
            fill_tree(dir.add_storage(name + u"dir"), rng, depth + 1, budget);
            continue;
        }
        --budget;
        const uint32_t kind = rng() % 10;
        const std::size_t size = kind < 5 ? rng() % 4096 : (kind < 9 ? 4096 + rng() % 20000 : 0);
        dir.add_stream(name, test::random_bytes(size, rng())).state_bits[0] =
            static_cast<uint8_t>(rng());
    }
}

// A random file; with `older`, after an older save of another random file.
Sample random_sample(uint32_t seed, Builder_Options options, int max_streams, bool older) {
    Streams earlier;
    if (older) {
        Builder_Options plain = options;
        plain.orphans = 0;
        plain.bad_record = Bad_Record::none;
        Sample s = random_sample(seed ^ 0x5A5Au, plain, 12, false);
        options.older_save = s.bytes;
        earlier = std::move(s.streams);
    }
    std::mt19937 rng(seed);
    Cfb_Fs_Item_DirNode root;
    fill_tree(root, rng, 0, max_streams);
    Sample s = build(root, options);
    s.older = std::move(earlier);
    return s;
}

struct Outcome {
    Salvage_Result result;
    std::size_t recovered = 0;
    std::size_t wrong = 0;           // reported recovered but differing from the original
    std::size_t stale = 0;           // recovered with the older save's bytes
    std::size_t inferred_wrong = 0;  // inferred and differing (files laid out in runs)
    std::map<std::u16string, Salvage_State> states;  // by the originals' paths
};

// Salvages `damaged`; every stream recovered or inferred is held against its original: same
// path (an orphan's below "orphans/", maybe deeper), or a broken name's (record_<id>) by id.
Outcome run(const Sample& s, const std::vector<uint8_t>& damaged) {
    Outcome o;
    o.result = salvage_bytes(damaged.data(), damaged.size());
    for (std::size_t i = 0; i < o.result.entries.size(); ++i) {
        const Salvaged_Entry& e = o.result.entries[i];
        if (e.object_type != 2) continue;
        std::u16string path = o.result.path_of(i);
        if (e.orphan) {
            EXPECT_EQ(path.rfind(u"orphans/", 0), 0u);
            path = path.substr(std::u16string(u"orphans/").size());
        }
        for (const auto& place : s.layout.streams) {
            if (!e.bad_name || !place.bad_name || place.did != e.did) continue;
            EXPECT_EQ(e.name, test::ascii("record_" + std::to_string(e.did)));
            path = place.path;
        }
        o.states[path] = e.state;
        if (e.state != Salvage_State::recovered && e.state != Salvage_State::inferred) continue;
        const std::vector<uint8_t> got = salvaged_bytes(damaged.data(), damaged.size(), e.pieces);
        auto matches = [&](const Streams& originals) {
            for (const auto& [p, bytes] : originals) {
                const bool named = p == path || (e.orphan && p.size() > path.size() &&
                                                 p.compare(p.size() - path.size() - 1,
                                                           path.size() + 1, u"/" + path) == 0);
                if (named && bytes == got) return true;
            }
            return false;
        };
        const bool live = matches(s.streams);
        const bool right = live || matches(s.older);
        if (e.state == Salvage_State::inferred) {
            o.inferred_wrong += right ? 0 : 1;
            continue;
        }
        ++(right ? o.recovered : o.wrong);
        o.stale += right && !live ? 1 : 0;
    }
    return o;
}

// Streams that depend on a SAT entry in [lo, hi) (own chain, directory, or for small streams the
// container or the MiniSAT); a chain's last sector needs no link.
std::set<std::u16string> touched(const Build_Layout& l, uint64_t lo, uint64_t hi) {
    auto links_in = [&](const std::vector<sid_t>& chain) {
        return std::any_of(chain.begin(), chain.end() - (chain.empty() ? 0 : 1),
                           [&](sid_t s) { return s >= lo && s < hi; });
    };
    std::set<std::u16string> out;
    const bool mini = links_in(l.container_sids) || links_in(l.minisat_sids);
    for (const auto& place : l.streams) {
        if (links_in(l.directory_sids) || (place.in_mini ? mini : links_in(place.chain)))
            out.insert(place.path);
    }
    return out;
}

using Damage = std::function<void(const Sample&, std::vector<uint8_t>&, std::mt19937&)>;
using Check = std::function<void(const Sample&, const Outcome&, const std::string&)>;

// Every stream back whole, orphans under "orphans", broken names as record_<id>.
void all_back(const Sample& s, const Outcome& o, const std::string& where) {
    EXPECT_EQ(o.wrong + o.inferred_wrong + o.stale, 0u) << where;
    EXPECT_EQ(o.recovered, s.streams.size()) << where << ": " << o.result.reason;
}

// All but the streams `hit` names; those may come back only as far as verified.
Check all_but(const std::function<std::set<std::u16string>(const Sample&)>& hit) {
    return [hit](const Sample& s, const Outcome& o, const std::string& where) {
        EXPECT_EQ(o.wrong + o.inferred_wrong, 0u) << where;
        const std::set<std::u16string> lost = hit(s);
        for (const auto& [path, bytes] : s.streams) {
            const auto state = o.states.find(path);
            EXPECT_TRUE(lost.count(path) != 0 ||
                        (state != o.states.end() && state->second == Salvage_State::recovered))
                << where << " " << test::utf16_to_utf8(path);
        }
    };
}

// A big (or mini) stream of two sectors or more that the root reaches.
const Build_Layout::Stream_Place* stream_with(const Sample& s, bool mini) {
    for (const auto& p : s.layout.streams) {
        if (p.in_mini == mini && p.chain.size() >= 2 && !p.orphan) return &p;
    }
    return nullptr;
}

struct Damage_Row {
    std::string name;
    Damage damage;
    Check check = all_back;
};

// The header's damages (they also run over every sample shape), then the tables'.
constexpr std::size_t kHeaderRows = 25;
std::vector<Damage_Row> damage_table() {
    using namespace test::offsets;
    std::vector<Damage_Row> rows = {
        {"header zeroed", [](const Sample&, auto& d, auto&) { test::zero_range(d, 0, 512); }},
        {"header random",
         [](const Sample&, auto& d, auto& rng) {
             test::patch_bytes(d, 0, test::random_bytes(512, rng()));
         }},
        {"DISAT array wiped",
         [](const Sample&, auto& d, auto&) { test::zero_range(d, kHeaderDisat, 4 * 109); }},
        {"header zeroed, directory link broken",
         [](const Sample& s, auto& d, auto&) {
             test::zero_range(d, 0, 512);
             test::patch_u32(d, sat_entry_offset(s.layout, s.layout.directory_sids[0]), FREESECT);
         }},
        {"header zeroed, root name wiped", [](const Sample& s, auto& d, auto&) {
             test::zero_range(d, 0, 512);
             test::zero_range(d, test::directory_entry_offset(s.layout, 0), 66);
         }}};
    // 16-bit fields (versions, byte order, shifts) below 40, 32-bit ones from 40 on.
    const std::pair<uint64_t, uint32_t> fields[] = {
        {0, 0x12345678},        {kMinorVersion, 0xFFFF},   {kMajorVersion, 0x7777},
        {kByteOrder, 0x1234},   {kSectorShift, 0x0011},    {kSectorShift, 9},
        {kMiniSectorShift, 0},  {kNumDirSecs, 0x7FFFFFFF}, {kNumSatSecs, 0x7FFFFFFF},
        {kNumSatSecs, 0},       {kFirstDirSid, 1},         {kFirstDirSid, ENDOFCHAIN},
        {kMiniStreamCutoff, 1}, {kFirstMinisatSid, 2},     {kFirstMinisatSid, ENDOFCHAIN},
        {kNumMinisatSecs, 7},   {kFirstDisatSid, 3},       {kNumDisatSecs, 0x7FFFFFFF},
        {kHeaderDisat, 5},      {kHeaderDisat, FREESECT}};
    for (const auto& [offset, value] : fields) {
        rows.push_back({"field at " + std::to_string(offset) + " = " + std::to_string(value),
                        [offset = offset, value = value](const Sample&, auto& d, auto&) {
                            offset > 0 && offset < kNumDirSecs
                                ? test::patch_u16(d, offset, static_cast<uint16_t>(value))
                                : test::patch_u32(d, offset, value);
                        }});
    }
    rows.push_back({"none", [](const Sample&, auto&, auto&) {}});
    // What the zeroed SAT sector describes is inferred, partial or lost, never recovered wrong.
    for (const bool last : {false, true}) {
        const auto at = [last](const Sample& s) { return last ? s.layout.sat_sids.size() - 1 : 0; };
        rows.push_back({last ? "last SAT sector zeroed" : "first SAT sector zeroed",
                        [=](const Sample& s, auto& d, auto&) {
                            const uint64_t sector =
                                s.layout.file_offset_of(s.layout.sat_sids[at(s)]);
                            test::zero_range(d, sector, s.layout.sector_size);
                        },
                        all_but([=](const Sample& s) {
                            const uint64_t per = s.layout.sector_size / 4;
                            return touched(s.layout, at(s) * per, (at(s) + 1) * per);
                        })});
    }
    // A chain that closes on itself (its last link names its first sector): the others come back.
    for (const bool mini : {false, true}) {
        rows.push_back({mini ? "ring: a mini stream's chain" : "ring: a stream's chain",
                        [mini](const Sample& s, auto& d, auto&) {
                            if (const auto* p = stream_with(s, mini))
                                test::patch_u32(
                                    d,
                                    mini ? test::minisat_entry_offset(s.layout, p->chain.back())
                                         : sat_entry_offset(s.layout, p->chain.back()),
                                    p->chain.front());
                        },
                        all_but([mini](const Sample& s) {
                            const auto* p = stream_with(s, mini);
                            return p == nullptr ? std::set<std::u16string>{} : std::set{p->path};
                        })});
    }
    rows.push_back({"ring: the directory chain", [](const Sample& s, auto& d, auto&) {
                        const std::vector<sid_t>& dir = s.layout.directory_sids;
                        test::patch_u32(d, sat_entry_offset(s.layout, dir.back()), dir.front());
                    }});
    rows.push_back({"cut inside the directory",
                    [](const Sample& s, auto& d, auto&) {
                        d.resize(s.layout.file_offset_of(s.layout.directory_sids[0]) + 200);
                    },
                    [](const Sample&, const Outcome& o, const std::string& where) {
                        EXPECT_EQ(o.wrong, 0u) << where;
                    }});
    rows.push_back({"junk appended", [](const Sample&, auto& d, auto& rng) {
                        const auto junk = test::random_bytes(3000 + rng() % 6000, rng());
                        d.insert(d.end(), junk.begin(), junk.end());
                    }});
    return rows;
}

// The writer layouts every damage runs over, as sets of builder options (kChainMinor3B: sibling
// chains, minor version 0x003B; kOlderSave: an older save of another file before the live one).
// clang-format off
enum : unsigned { kAtEnd = 1, kSatLast = 2, kChainMinor3B = 4, kV4 = 8, kSlack = 16,
                  kFreeAfterDir = 32, kOrphans = 64, kBadNameLength = 128, kNulInName = 256,
                  kOlderSave = 512 };
constexpr unsigned kLayouts[] = {0, kAtEnd, kSatLast, kChainMinor3B, kV4, kSlack,
                                 kAtEnd | kFreeAfterDir, kOrphans, kBadNameLength,
                                 kNulInName | kAtEnd, kOlderSave, kOlderSave | kAtEnd};
// clang-format on

Sample layout_sample(unsigned layout, uint32_t seed, int max_streams) {
    Builder_Options o;
    o.tables_at_end = (layout & kAtEnd) != 0;
    o.sat_in_last_sector = (layout & kSatLast) != 0;
    o.sibling_chain = (layout & kChainMinor3B) != 0;
    if ((layout & kChainMinor3B) != 0) o.minor_version = 0x003B;
    if ((layout & kV4) != 0) o.major_version = 4;
    o.slack_sectors = (layout & kSlack) != 0 ? 2 : 0;
    o.free_after_directory = (layout & kFreeAfterDir) != 0 ? 2 : 0;
    o.orphans = (layout & kOrphans) != 0 ? 2 : 0;
    if ((layout & kBadNameLength) != 0) o.bad_record = Bad_Record::name_length;
    if ((layout & kNulInName) != 0) o.bad_record = Bad_Record::nul_in_name;
    return random_sample(seed, o, max_streams, (layout & kOlderSave) != 0);
}

TEST(SalvageDamage, Table) {
    const std::vector<Damage_Row> rows = damage_table();
    std::mt19937 rng(9);
    for (const unsigned layout : kLayouts) {
        for (uint32_t seed = 1; seed <= 3; ++seed) {
            const Sample s = layout_sample(layout, seed * 31 + 7, 20);
            for (const Damage_Row& row : rows) {
                std::vector<uint8_t> d = s.bytes;
                row.damage(s, d, rng);
                row.check(s, run(s, d),
                          "layout " + std::to_string(layout) + ", seed " + std::to_string(seed) +
                              ", " + row.name);
            }
        }
    }
    for (const std::string& name : test::sample_shape_names()) {
        const test::Sample_Shape shape = test::make_sample_shape(name);
        const Sample s = build(*shape.root, shape.options);
        for (std::size_t r = 0; r < kHeaderRows; ++r) {
            std::vector<uint8_t> d = s.bytes;
            rows[r].damage(s, d, rng);
            all_back(s, run(s, d), name + ", " + rows[r].name);
        }
    }
}

// Random trees in random writer layouts under random damage (the table's, or random words in
// the header, the SAT, the MiniSAT and the directory's SAT links, a zeroed root record, a
// random cut): nothing reported recovered may differ from the original.
TEST(SalvageProperty, NoWrongByteReportedRecovered) {
    std::vector<Damage> damages;
    for (const Damage_Row& row : damage_table()) damages.push_back(row.damage);
    const std::size_t table_rows = damages.size();
    const auto sectors = [](const Sample& s, const std::vector<uint8_t>& d) {
        return static_cast<uint32_t>(d.size() / s.layout.sector_size);
    };
    damages.insert(
        damages.end(),
        {[](const Sample&, auto& d, auto& rng) { test::patch_u32(d, 4 * (rng() % 128), rng()); },
         [=](const Sample& s, auto& d, auto& rng) {
             const std::vector<sid_t>& dir = s.layout.directory_sids;
             test::patch_u32(d, sat_entry_offset(s.layout, dir[rng() % dir.size()]),
                             rng() % 2 ? FREESECT : rng() % sectors(s, d));
         },
         [](const Sample& s, auto& d, auto&) {
             test::zero_range(d, s.layout.file_offset_of(s.layout.directory_sids[0]), 66);
         },
         [](const Sample&, auto& d, auto& rng) { d.resize(512 + rng() % (d.size() - 512)); },
         [=](const Sample& s, auto& d, auto& rng) {
             test::patch_u32(d, sat_entry_offset(s.layout, rng() % (sectors(s, d) - 1)),
                             rng() % sectors(s, d));
         },
         [](const Sample& s, auto& d, auto& rng) {
             if (s.layout.minisat_sids.empty()) return;
             const uint64_t at = s.layout.file_offset_of(s.layout.minisat_sids[0]);
             test::patch_u32(d, at + 4 * (rng() % (s.layout.sector_size / 4)), rng() % 64);
         }});
    std::size_t streams = 0;
    std::size_t recovered = 0;
    for (int c = 0; c < 1000; ++c) {
        std::mt19937 rng(static_cast<uint32_t>(7000 + c));
        const unsigned layout = kLayouts[rng() % std::size(kLayouts)];
        if (layout == kV4 && c % 3 != 0) continue;
        const Sample s = layout_sample(layout, rng(), 1 + static_cast<int>(rng() % 16));
        std::vector<uint8_t> d = s.bytes;
        const std::size_t pick =
            rng() % 2 ? table_rows + rng() % (damages.size() - table_rows) : rng() % table_rows;
        damages[pick](s, d, rng);
        const Outcome o = run(s, d);
        ASSERT_EQ(o.wrong, 0u) << "case " << c << ", layout " << layout;
        streams += s.streams.size();
        recovered += o.recovered;
    }
    EXPECT_GT(recovered, streams / 2);
}

// Two copies of the directory the evidence cannot tell apart (the copy, in a slack sector amid
// the stream data, says "Current User" is shorter): that stream is ambiguous, with both answers
// as candidates, and never called recovered; the others come back.
TEST(SalvageDamage, IndistinguishableCopiesAreAmbiguous) {
    Cfb_Fs_Item_DirNode live;
    live.add_stream(u"Current User", test::random_bytes(62, 2));
    live.add_stream(u"Same", test::random_bytes(5000, 3));
    live.add_stream(u"Later", test::random_bytes(5000, 4));
    Builder_Options o;
    o.slack_sectors = 1;
    Sample s = build(live, o);
    const Build_Layout::Stream_Place& same = test::stream_place(s.layout, u"Same");
    test::patch_u32(s.bytes, sat_entry_offset(s.layout, same.chain.back()), ENDOFCHAIN);
    const auto dir =
        static_cast<std::ptrdiff_t>(s.layout.file_offset_of(s.layout.directory_sids[0]));
    std::vector<uint8_t> sector(s.bytes.begin() + dir, s.bytes.begin() + dir + 512);
    const uint32_t did = test::stream_place(s.layout, u"Current User").did;
    write_u32_le(sector.data() + 128 * did + test::offsets::kEntrySize, 47);
    test::patch_bytes(s.bytes, s.layout.file_offset_of(same.chain.back() + 1), sector);
    test::zero_range(s.bytes, 0, 512);
    const Outcome out = run(s, s.bytes);
    EXPECT_EQ(out.wrong, 0u);
    EXPECT_EQ(out.states.at(u"Same"), Salvage_State::recovered);
    ASSERT_EQ(out.states.at(u"Current User"), Salvage_State::ambiguous) << out.result.reason;
    const std::vector<uint8_t> whole = test::random_bytes(62, 2);
    for (const Salvaged_Entry& e : out.result.entries) {
        if (e.name != u"Current User") continue;
        std::set<std::vector<uint8_t>> answers;
        for (const auto& c : e.candidates)
            answers.insert(salvaged_bytes(s.bytes.data(), s.bytes.size(), c.pieces));
        EXPECT_EQ(e.candidates.size(), 2u);
        EXPECT_EQ(answers, (std::set<std::vector<uint8_t>>{
                               whole, std::vector<uint8_t>(whole.begin(), whole.begin() + 47)}));
    }
}

// Every stream back whole: after an older save, with an orphan and a broken name (the older
// directory seen and not taken); a header whose DISAT names the older save's SAT sector (a sound
// table that marks the live directory's sector free: the later save wins).
TEST(SalvageDamage, BuiltCases) {
    std::vector<std::pair<std::string, Sample>> cases;
    Builder_Options o;
    o.orphans = 1;
    o.bad_record = Bad_Record::name_length;
    o.tables_at_end = true;
    cases.emplace_back("older save, orphan, bad name", random_sample(11, o, 20, true));
    test::zero_range(cases.back().second.bytes, 0, 512);
    for (uint32_t seed = 1; seed <= 4; ++seed) {
        Cfb_Fs_Item_DirNode older;
        older.add_stream(u"Current User", test::random_bytes(47, seed));
        older.add_stream(u"Data", test::random_bytes(5000, seed + 1));
        Builder_Options after;
        after.older_save = build_compound_file(older);
        Cfb_Fs_Item_DirNode live;
        live.add_stream(u"Current User", test::random_bytes(62, seed));
        live.add_stream(u"Data", test::random_bytes(6000 + seed, seed + 2));
        cases.emplace_back("DISAT names the older SAT, seed " + std::to_string(seed),
                           build(live, after));
        test::patch_u32(cases.back().second.bytes, test::offsets::kHeaderDisat, 0);
    }
    for (const auto& [name, s] : cases) all_back(s, run(s, s.bytes), name);
    const Salvage_Result first = run(cases[0].second, cases[0].second.bytes).result;
    EXPECT_TRUE(first.complete());
    ASSERT_EQ(first.directories.size(), 2u);
    EXPECT_FALSE(first.directories[0].taken);  // the older save's, first in the file
    EXPECT_TRUE(first.directories[1].taken);
    EXPECT_EQ(first.layout(), "content");
}

// A root record in a sector that reads as a table (past 160 MB a SAT sector's ids carry the
// root's type byte) starts no directory chain: a candidate from it would have no first sector.
TEST(SalvageInput, RootRecordInATableSector) {
    salvage::Sector_Classes classes(salvage::Sector_Geometry(512, 3 * 512));
    classes.flags = {salvage::kDirOk | salvage::kTableLike | salvage::kRootFirst,
                     salvage::kDirOk | salvage::kDirLike};
    for (const salvage::Dir_Candidate& c : salvage::directory_candidates(
             classes, salvage::Sat_Table{}, salvage::Header_Evidence{}, false))
        EXPECT_FALSE(c.sectors.empty());
}

}  // namespace
}  // namespace vrk
