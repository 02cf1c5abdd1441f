// Salvage of damaged compound files made by the builder: one table of damages, each applied
// over the writer layouts, and random files under random damage. Every check compares the
// salvaged bytes with the bytes the file was built from, never with the salvage's own output.
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

using test::minisat_entry_offset;
using test::sat_entry_offset;

struct Sample {
    std::vector<uint8_t> bytes;
    Build_Layout layout;
    std::map<std::u16string, std::vector<uint8_t>> streams;  // path -> original bytes
    // The older save's streams: where the live directory is gone, its streams are the file's.
    std::map<std::u16string, std::vector<uint8_t>> older;
};

// A tree of random shape: up to `budget` streams, mini and big, storages to depth 3.
void fill_tree(Cfb_Fs_Item_DirNode& dir, std::mt19937& rng, int depth, int& budget) {
    const int children = 1 + static_cast<int>(rng() % 6);
    for (int i = 0; i < children && budget > 0; ++i) {
        const std::u16string name = u"S" + std::u16string(1, static_cast<char16_t>(u'a' + i)) +
                                    std::u16string(1, static_cast<char16_t>(u'0' + depth));
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

Sample build(const Cfb_Fs_Item_DirNode& root, const Builder_Options& options) {
    Sample s;
    s.bytes = build_compound_file(root, options, &s.layout);
    std::vector<test::Expected_Stream> streams;
    std::vector<std::u16string> storages;
    test::collect_expected(root, streams, storages);
    for (const auto& e : streams) s.streams[e.path] = e.node->data;
    return s;
}

Sample random_sample(uint32_t seed, const Builder_Options& options, int max_streams = 12) {
    std::mt19937 rng(seed);
    Cfb_Fs_Item_DirNode root;
    int budget = max_streams;
    fill_tree(root, rng, 0, budget);
    return build(root, options);
}

// An older save of a random file with other bytes, for Builder_Options::older_save.
Sample older_save(uint32_t seed, const Builder_Options& options) {
    Builder_Options older = options;
    older.older_save.clear();
    older.orphans = 0;
    older.bad_record = Bad_Record::none;
    return random_sample(seed ^ 0x5A5Au, older);
}

// A random sample with an older save of another random file before it.
Sample with_older_save(uint32_t seed, Builder_Options options, int max_streams) {
    Sample earlier = older_save(seed, options);
    options.older_save = earlier.bytes;
    Sample s = random_sample(seed, options, max_streams);
    s.older = std::move(earlier.streams);
    return s;
}

struct Outcome {
    Salvage_Result result;
    std::size_t recovered = 0;
    std::size_t wrong = 0;           // reported recovered but differing from the original
    std::size_t stale = 0;           // recovered with the older save's bytes, not the live ones
    std::size_t inferred_wrong = 0;  // inferred, differing: a guess, but a file laid out in
                                     // runs should not make it
    std::map<std::u16string, Salvage_State> states;
};

// The path of the original a salvaged stream stands for: its own (an orphan's below
// "orphans/"), or, for a record with a broken name, the original's of that directory id.
std::u16string original_path(const Sample& s, const Salvage_Result& r, std::size_t i) {
    const Salvaged_Entry& e = r.entries[i];
    for (const auto& place : s.layout.streams) {
        if (e.bad_name && place.bad_name && place.did == e.did) return place.path;
    }
    const std::u16string path = r.path_of(i);
    return e.orphan ? path.substr(std::u16string(u"orphans/").size()) : path;
}

// Outcome::states is keyed by the originals' paths.
Outcome run(const Sample& s, const std::vector<uint8_t>& damaged) {
    Outcome o;
    o.result = salvage_bytes(damaged.data(), damaged.size());
    for (std::size_t i = 0; i < o.result.entries.size(); ++i) {
        const Salvaged_Entry& e = o.result.entries[i];
        if (e.object_type != 2) continue;
        const std::u16string path = original_path(s, o.result, i);
        o.states[path] = e.state;
        if (e.state != Salvage_State::recovered && e.state != Salvage_State::inferred) continue;
        const std::vector<uint8_t> got = salvaged_bytes(damaged.data(), damaged.size(), e.pieces);
        // An orphan whose storage is gone may stand for a stream deeper in the tree.
        auto matches = [&](const std::map<std::u16string, std::vector<uint8_t>>& originals) {
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
        } else {
            ++(right ? o.recovered : o.wrong);
            o.stale += right && !live ? 1 : 0;
        }
    }
    return o;
}

// Streams that depend on a SAT entry in [lo, hi): a link of their own chain, of the directory,
// or, for small streams, of the container or the MiniSAT. The last sector of a chain needs no
// link.
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

using Damage = std::function<void(const Sample&, std::vector<uint8_t>&)>;
using Check = std::function<void(const Sample&, const Outcome&, const std::string&)>;

// Every stream back whole, orphans under "orphans", broken names as record_<id>.
void all_back(const Sample& s, const Outcome& o, const std::string& where) {
    EXPECT_EQ(o.wrong + o.inferred_wrong + o.stale, 0u) << where;
    EXPECT_EQ(o.recovered, s.streams.size()) << where << ": " << o.result.reason;
}

// All but the streams the damage describes; those may come back only as far as verified.
Check all_but(std::function<std::set<std::u16string>(const Sample&)> hit) {
    return [hit](const Sample& s, const Outcome& o, const std::string& where) {
        EXPECT_EQ(o.wrong + o.inferred_wrong, 0u) << where;
        const std::set<std::u16string> lost = hit(s);
        for (const auto& [path, bytes] : s.streams) {
            if (lost.count(path) != 0) continue;
            const auto state = o.states.find(path);
            EXPECT_TRUE(state != o.states.end() && state->second == Salvage_State::recovered)
                << where << " " << test::utf16_to_utf8(path);
        }
    };
}

void none_wrong(const Sample&, const Outcome& o, const std::string& where) {
    EXPECT_EQ(o.wrong, 0u) << where;
}

void zero_sat_position(const Sample& s, std::vector<uint8_t>& d, std::size_t position) {
    test::zero_range(d, s.layout.file_offset_of(s.layout.sat_sids[position]), s.layout.sector_size);
}

// The header's damages: whole, random, the DISAT array, then each field in turn.
std::vector<std::pair<std::string, Damage>> header_damages() {
    using namespace test::offsets;
    std::vector<std::pair<std::string, Damage>> out = {
        {"header zeroed", [](const Sample&, auto& d) { test::zero_range(d, 0, 512); }},
        {"header random",
         [](const Sample&, auto& d) { test::patch_bytes(d, 0, test::random_bytes(512, 9)); }},
        {"DISAT array wiped", [](const Sample&, auto& d) { test::zero_range(d, 76, 4 * 109); }},
        {"header zeroed, directory link broken",
         [](const Sample& s, auto& d) {
             test::zero_range(d, 0, 512);
             test::patch_u32(d, sat_entry_offset(s.layout, s.layout.directory_sids[0]), FREESECT);
         }},
        {"header zeroed, root name wiped", [](const Sample& s, auto& d) {
             test::zero_range(d, 0, 512);
             test::zero_range(d, test::directory_entry_offset(s.layout, 0), 66);
         }}};
    // 16-bit fields (versions, byte order, shifts) below 40, 32-bit ones from 40 on.
    const std::vector<std::pair<uint64_t, uint32_t>> fields = {
        {0, 0x12345678},        {kMinorVersion, 0xFFFF},   {kMajorVersion, 0x7777},
        {kByteOrder, 0x1234},   {kSectorShift, 0x0011},    {kSectorShift, 9},
        {kMiniSectorShift, 0},  {kNumDirSecs, 0x7FFFFFFF}, {kNumSatSecs, 0x7FFFFFFF},
        {kNumSatSecs, 0},       {kFirstDirSid, 1},         {kFirstDirSid, ENDOFCHAIN},
        {kMiniStreamCutoff, 1}, {kFirstMinisatSid, 2},     {kFirstMinisatSid, ENDOFCHAIN},
        {kNumMinisatSecs, 7},   {kFirstDisatSid, 3},       {kNumDisatSecs, 0x7FFFFFFF},
        {kHeaderDisat, 5},      {kHeaderDisat, FREESECT}};
    for (const auto& [offset, value] : fields) {
        out.push_back({"field at " + std::to_string(offset) + " = " + std::to_string(value),
                       [offset = offset, value = value](const Sample&, auto& d) {
                           if (offset > 0 && offset < kNumDirSecs) {
                               test::patch_u16(d, offset, static_cast<uint16_t>(value));
                           } else {
                               test::patch_u32(d, offset, value);
                           }
                       }});
    }
    return out;
}

struct Layout_Row {
    const char* name;
    Builder_Options options;
    bool older_save = false;  // an older save of another file before the live one
};

Sample sample_for(const Layout_Row& row, uint32_t seed, int max_streams) {
    return row.older_save ? with_older_save(seed, row.options, max_streams)
                          : random_sample(seed, row.options, max_streams);
}

// The writer layouts every damage runs over.
std::vector<Layout_Row> writer_layouts() {
    std::vector<Layout_Row> out{{"default", {}}};
    Builder_Options o;
    o.tables_at_end = true;
    out.push_back({"tables at end", o});
    o = {};
    o.sat_in_last_sector = true;
    out.push_back({"SAT in last sector", o});
    o = {};
    o.minor_version = 0x003B;
    o.sibling_chain = true;
    out.push_back({"sibling chain, minor 0x3B", o});
    o = {};
    o.major_version = 4;
    out.push_back({"version 4", o});
    o = {};
    o.slack_sectors = 2;
    out.push_back({"slack chains", o});
    o = {};
    o.tables_at_end = true;
    o.free_after_directory = 2;
    out.push_back({"tables at end, free sectors after the directory", o});
    o = {};
    o.orphans = 2;
    out.push_back({"orphans", o});
    o = {};
    o.bad_record = Bad_Record::name_length;
    out.push_back({"bad name length", o});
    o = {};
    o.bad_record = Bad_Record::nul_in_name;
    o.tables_at_end = true;
    out.push_back({"NUL in a name", o});
    o = {};
    out.push_back({"older save", o, true});
    o.tables_at_end = true;
    out.push_back({"older save, tables at end", o, true});
    return out;
}

struct Damage_Row {
    std::string name;
    Damage damage;
    Check check;
};

std::vector<Damage_Row> damage_table() {
    std::vector<Damage_Row> rows{{"none", [](const Sample&, auto&) {}, all_back}};
    for (auto& [name, damage] : header_damages()) rows.push_back({name, damage, all_back});
    auto stream_with = [](const Sample& s, bool mini) -> const Build_Layout::Stream_Place* {
        for (const auto& p : s.layout.streams) {
            if (p.in_mini == mini && p.chain.size() >= 2 && !p.orphan) return &p;
        }
        return nullptr;
    };
    const std::vector<Damage_Row> more = {
        // A SAT sector zeroed: what it does not describe comes back; what it does is inferred
        // (right in files laid out in runs), partial or lost, never recovered wrong.
        {"first SAT sector zeroed", [](const Sample& s, auto& d) { zero_sat_position(s, d, 0); },
         all_but([](const Sample& s) {
             const uint64_t per = s.layout.sector_size / 4;
             return touched(s.layout, 0, per);
         })},
        {"last SAT sector zeroed",
         [](const Sample& s, auto& d) { zero_sat_position(s, d, s.layout.sat_sids.size() - 1); },
         all_but([](const Sample& s) {
             const uint64_t per = s.layout.sector_size / 4;
             const uint64_t p = s.layout.sat_sids.size() - 1;
             return touched(s.layout, p * per, (p + 1) * per);
         })},
        {"rings: a stream's last sector links to its first",
         [=](const Sample& s, auto& d) {
             if (const auto* p = stream_with(s, false))
                 test::patch_u32(d, sat_entry_offset(s.layout, p->chain.back()), p->chain.front());
         },
         all_but([=](const Sample& s) {
             const auto* p = stream_with(s, false);
             return p == nullptr ? std::set<std::u16string>{} : std::set<std::u16string>{p->path};
         })},
        {"rings: the directory chain closes on itself",
         [](const Sample& s, auto& d) {
             test::patch_u32(d, sat_entry_offset(s.layout, s.layout.directory_sids.back()),
                             s.layout.directory_sids.front());
         },
         all_back},
        {"rings: a mini stream's chain closes on itself",
         [=](const Sample& s, auto& d) {
             if (const auto* p = stream_with(s, true))
                 test::patch_u32(d, minisat_entry_offset(s.layout, p->chain.back()),
                                 p->chain.front());
         },
         all_but([=](const Sample& s) {
             const auto* p = stream_with(s, true);
             return p == nullptr ? std::set<std::u16string>{} : std::set<std::u16string>{p->path};
         })},
        {"cut inside the directory",
         [](const Sample& s, auto& d) {
             d.resize(s.layout.file_offset_of(s.layout.directory_sids[0]) + 200);
         },
         none_wrong},
        {"junk appended",
         [](const Sample&, auto& d) {
             const std::vector<uint8_t> junk = test::random_bytes(3000, 5);
             d.insert(d.end(), junk.begin(), junk.end());
         },
         all_back},
    };
    rows.insert(rows.end(), more.begin(), more.end());
    return rows;
}

// Every damage of the table over every writer layout and a few trees; the header's damages
// also over every sample shape.
TEST(SalvageDamage, Table) {
    const std::vector<Damage_Row> rows = damage_table();
    for (const Layout_Row& layout : writer_layouts()) {
        for (uint32_t seed = 1; seed <= 3; ++seed) {
            const Sample s = sample_for(layout, seed * 31 + 7, 20);
            for (const Damage_Row& row : rows) {
                std::vector<uint8_t> d = s.bytes;
                row.damage(s, d);
                row.check(
                    s, run(s, d),
                    std::string(layout.name) + ", seed " + std::to_string(seed) + ", " + row.name);
            }
        }
    }
    for (const std::string& name : test::sample_shape_names()) {
        const test::Sample_Shape shape = test::make_sample_shape(name);
        const Sample s = build(*shape.root, shape.options);
        for (const auto& [damage_name, damage] : header_damages()) {
            std::vector<uint8_t> d = s.bytes;
            damage(s, d);
            all_back(s, run(s, d), name + ", " + damage_name);
        }
    }
}

// What the reports say besides the bytes: orphans and broken names where they belong, a
// sound file complete, the older save's directory seen and not taken.
TEST(SalvageDamage, OrphansNamesAndCopies) {
    Builder_Options o;
    o.orphans = 1;
    o.bad_record = Bad_Record::name_length;
    o.tables_at_end = true;
    Sample s = with_older_save(11, o, 20);
    test::zero_range(s.bytes, 0, 512);
    const Outcome out = run(s, s.bytes);
    all_back(s, out, "orphans, bad name, older save");
    EXPECT_TRUE(out.result.complete());
    std::set<std::u16string> salvaged;
    for (std::size_t i = 0; i < out.result.entries.size(); ++i)
        salvaged.insert(out.result.path_of(i));
    for (const auto& place : s.layout.streams) {
        const std::string did = std::to_string(place.did);
        const std::u16string name =
            place.bad_name ? u"record_" + std::u16string(did.begin(), did.end()) : place.path;
        const std::u16string path = place.orphan ? u"orphans/" + name : name;
        EXPECT_EQ(salvaged.count(path), 1u) << test::utf16_to_utf8(path);
    }
    ASSERT_EQ(out.result.directories.size(), 2u);
    EXPECT_FALSE(out.result.directories[0].taken);  // the older save's, first in the file
    EXPECT_TRUE(out.result.directories[1].taken);
    EXPECT_EQ(out.result.layout(), "content");
}

// A header whose DISAT names the older save's SAT sector (the file's first sector, a sound
// table of its own that marks the live directory's sector free) beside the live directory: the
// header contradicts itself, and the later save wins.
TEST(SalvageDamage, HeaderNamingAnOlderSatSector) {
    for (uint32_t seed = 1; seed <= 4; ++seed) {
        Cfb_Fs_Item_DirNode older;
        older.add_stream(u"Current User", test::random_bytes(47, seed));
        older.add_stream(u"Data", test::random_bytes(5000, seed + 1));
        Builder_Options o;
        o.older_save = build_compound_file(older);
        Cfb_Fs_Item_DirNode live;
        live.add_stream(u"Current User", test::random_bytes(62, seed));
        live.add_stream(u"Data", test::random_bytes(6000 + seed, seed + 2));
        Sample s = build(live, o);
        ASSERT_LT(s.layout.directory_sids.front(), s.layout.sector_size / 4);
        test::patch_u32(s.bytes, test::offsets::kHeaderDisat, 0);
        all_back(s, run(s, s.bytes), "seed " + std::to_string(seed));
    }
}

// Two copies of the directory that the evidence cannot tell apart (the copy, in a sector the
// SAT gives a chain of its own amid the stream data, says "Current User" is shorter): the
// stream they give other bytes is ambiguous, with both answers as candidates; the others come
// back.
TEST(SalvageDamage, IndistinguishableCopiesAreAmbiguous) {
    Cfb_Fs_Item_DirNode live;
    live.add_stream(u"Current User", test::random_bytes(62, 2));
    live.add_stream(u"Same", test::random_bytes(5000, 3));
    live.add_stream(u"Later", test::random_bytes(5000, 4));  // written after "Same"
    Builder_Options o;
    o.slack_sectors = 1;
    Sample s = build(live, o);
    const Build_Layout::Stream_Place& same = test::stream_place(s.layout, u"Same");
    const sid_t copy = same.chain.back() + 1;  // the chain's slack sector
    test::patch_u32(s.bytes, sat_entry_offset(s.layout, same.chain.back()), ENDOFCHAIN);
    const uint64_t dir = s.layout.file_offset_of(s.layout.directory_sids[0]);
    std::vector<uint8_t> sector(s.bytes.begin() + static_cast<std::ptrdiff_t>(dir),
                                s.bytes.begin() + static_cast<std::ptrdiff_t>(dir + 512));
    const uint32_t did = test::stream_place(s.layout, u"Current User").did;
    write_u32_le(sector.data() + 128 * did + test::offsets::kEntrySize, 47);
    test::patch_bytes(s.bytes, s.layout.file_offset_of(copy), sector);
    test::zero_range(s.bytes, 0, 512);
    const Outcome out = run(s, s.bytes);
    EXPECT_EQ(out.wrong, 0u);
    EXPECT_EQ(out.states.at(u"Same"), Salvage_State::recovered);
    ASSERT_EQ(out.states.at(u"Current User"), Salvage_State::ambiguous) << out.result.reason;
    const std::vector<uint8_t> whole = test::random_bytes(62, 2);
    for (const Salvaged_Entry& e : out.result.entries) {
        if (e.name != u"Current User") continue;
        ASSERT_EQ(e.candidates.size(), 2u);
        std::set<std::vector<uint8_t>> answers;
        for (const auto& c : e.candidates)
            answers.insert(salvaged_bytes(s.bytes.data(), s.bytes.size(), c.pieces));
        EXPECT_EQ(answers, (std::set<std::vector<uint8_t>>{
                               whole, std::vector<uint8_t>(whole.begin(), whole.begin() + 47)}));
    }
}

// Tables of a size where DISAT sectors are in use and the MiniSAT outnumbers the SAT (a
// MiniSAT sector's mini chains look just like SAT links), and compound files kept as streams
// before the directory: their root records must not hide the file's own.
TEST(SalvageDamage, LargeTablesAndEmbeddedFiles) {
    Cfb_Fs_Item_DirNode root;
    for (int i = 0; i < 2000; ++i) {
        root.add_stream(u"m" + std::u16string(1, char16_t(u'a' + i % 26)) +
                            std::u16string(1, char16_t(u'a' + i / 26 % 26)) +
                            std::u16string(1, char16_t(u'a' + i / 676)),
                        test::random_bytes(1 + (i * 7919) % 4000, i));
    }
    for (int i = 0; i < 6; ++i)
        root.add_stream(u"big" + std::u16string(1, char16_t(u'0' + i)),
                        test::random_bytes(1000000, i));
    Cfb_Fs_Item_DirNode inner;
    inner.add_stream(u"x", test::random_bytes(3000, 1));
    for (int i = 0; i < 12; ++i)
        root.add_stream(u"obj" + std::u16string(1, char16_t(u'a' + i)), build_compound_file(inner));
    for (const bool at_end : {false, true}) {
        Builder_Options o;
        o.tables_at_end = at_end;
        const Sample s = build(root, o);
        ASSERT_FALSE(s.layout.disat_sids.empty());
        ASSERT_GT(s.layout.minisat_sids.size(), s.layout.sat_sids.size());
        const std::vector<std::pair<uint64_t, uint64_t>> zeroed = {
            {0, 512}, {76, 4 * 109}, {s.layout.file_offset_of(s.layout.disat_sids[0]), 512}};
        for (const auto& [offset, length] : zeroed) {
            std::vector<uint8_t> d = s.bytes;
            test::zero_range(d, offset, length);
            all_back(s, run(s, d), "large tables, zeroed at " + std::to_string(offset));
        }
    }
}

// A root record in a sector that reads as a table (in a file past 160 MB a SAT sector's ids
// carry the root's type byte) starts no directory chain; a candidate from it would have no
// first sector.
TEST(SalvageInput, RootRecordInATableSector) {
    salvage::Sector_Classes classes(salvage::Sector_Geometry(512, 3 * 512));
    classes.flags = {salvage::kDirOk | salvage::kTableLike | salvage::kRootFirst,
                     salvage::kDirOk | salvage::kDirLike};
    const salvage::Sat_Table sat;
    for (const salvage::Dir_Candidate& c :
         salvage::directory_candidates(classes, sat, salvage::Header_Evidence{}, false))
        EXPECT_FALSE(c.sectors.empty());
}

TEST(SalvageInput, NotACompoundFile) {
    for (std::size_t n : {0u, 100u, 512u, 4096u, 70000u}) {
        const std::vector<uint8_t> junk = test::random_bytes(n, n);
        const Salvage_Result r = salvage_bytes(junk.data(), junk.size());
        EXPECT_FALSE(r.is_compound_file);
        EXPECT_EQ(r.stream_count(), 0u);
        EXPECT_FALSE(r.complete());
    }
}

// Random shapes in random writer layouts under random damage: nothing reported recovered
// (or inferred) may differ from the original.
TEST(SalvageProperty, NoWrongByteReportedRecovered) {
    const std::vector<Layout_Row> layouts = writer_layouts();
    std::size_t streams = 0;
    std::size_t recovered = 0;
    for (int c = 0; c < 1000; ++c) {
        std::mt19937 rng(static_cast<uint32_t>(7000 + c));
        const Layout_Row& layout = layouts[rng() % layouts.size()];
        if (layout.options.major_version == 4 && c % 3 != 0) continue;
        const Sample s = sample_for(layout, rng(), 1 + static_cast<int>(rng() % 16));
        std::vector<uint8_t> d = s.bytes;
        const Build_Layout& l = s.layout;
        const uint32_t ss = l.sector_size;
        switch (rng() % 11) {
            case 0:
                test::zero_range(d, 0, 512);
                break;
            case 1:
                test::patch_bytes(d, 0, test::random_bytes(512, rng()));
                break;
            case 2:
                test::patch_u32(d, 4 * (rng() % 128), rng());
                break;
            case 3:
                zero_sat_position(s, d, rng() % l.sat_sids.size());
                break;
            case 4:
                test::patch_u32(
                    d, sat_entry_offset(l, l.directory_sids[rng() % l.directory_sids.size()]),
                    rng() % 2 ? FREESECT : rng() % (d.size() / ss));
                break;
            case 5:
                test::zero_range(d, l.file_offset_of(l.directory_sids[0]), 66);
                break;
            case 6:
                d.resize(512 + rng() % (d.size() - 512));
                break;
            case 7: {
                const std::vector<uint8_t> junk = test::random_bytes(rng() % 9000, rng());
                d.insert(d.end(), junk.begin(), junk.end());
                break;
            }
            case 8:
                test::patch_u32(d, sat_entry_offset(l, rng() % (d.size() / ss - 1)),
                                static_cast<sid_t>(rng() % (d.size() / ss)));
                break;
            case 9:
                if (!l.minisat_sids.empty()) {
                    test::patch_u32(d, l.file_offset_of(l.minisat_sids[0]) + 4 * (rng() % (ss / 4)),
                                    rng() % 64);
                }
                break;
            default:
                test::zero_range(d, 0, 512);
                test::patch_u32(d, sat_entry_offset(l, l.directory_sids[0]), FREESECT);
                break;
        }
        const Outcome o = run(s, d);
        ASSERT_EQ(o.wrong, 0u) << "case " << c << " (" << layout.name << ")";
        streams += s.streams.size();
        recovered += o.recovered;
    }
    EXPECT_GT(recovered, streams / 2);
}

}  // namespace
}  // namespace vrk
