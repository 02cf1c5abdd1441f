// Salvage of damaged compound files made by the builder. Every check compares the salvaged
// bytes with the bytes the file was built from, never with the salvage's own output.
#include "cfb_vornak/salvage/Salvage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "cfb_vornak/builder/Cfb_Builder.h"
#include "common/byte_order.h"
#include "support/cfb_patch.h"
#include "support/sample_shapes.h"

namespace vrk {
namespace {

struct Sample {
    std::vector<uint8_t> bytes;
    Build_Layout layout;
    std::map<std::u16string, std::vector<uint8_t>> streams;  // path -> original bytes
    uint32_t storages = 0;
};

std::vector<uint8_t> pattern(std::size_t n, uint64_t seed) {
    return test::random_bytes(n, seed);
}

// A tree of random shape: up to `max_streams` streams, mini and big, storages to depth 3.
void fill_tree(Cfb_Fs_Item_DirNode& dir, std::mt19937& rng, int depth, int& budget) {
    const int children = 1 + static_cast<int>(rng() % 6);
    for (int i = 0; i < children && budget > 0; ++i) {
        const std::u16string name = u"S" + std::u16string(1, static_cast<char16_t>(u'a' + i)) +
                                    std::u16string(1, static_cast<char16_t>(u'0' + depth));
        if (depth < 3 && rng() % 4 == 0) {
            Cfb_Fs_Item_DirNode& sub = dir.add_storage(name + u"dir");
            sub.clsid[0] = static_cast<uint8_t>(rng());
            fill_tree(sub, rng, depth + 1, budget);
            continue;
        }
        --budget;
        const uint32_t kind = rng() % 10;
        std::size_t size = kind < 5 ? rng() % 4096 : (kind < 9 ? 4096 + rng() % 20000 : 0);
        Cfb_Fs_Item_FileNode& f = dir.add_stream(name, pattern(size, rng()));
        f.state_bits[0] = static_cast<uint8_t>(rng());
        f.modified_time[3] = static_cast<uint8_t>(rng());
    }
}

void collect(const Cfb_Fs_Item_DirNode& dir, const std::u16string& prefix, Sample& s) {
    for (const auto& child : dir.children) {
        const std::u16string path = prefix.empty() ? child->name : prefix + u"/" + child->name;
        if (child->is_dir()) {
            ++s.storages;
            collect(static_cast<const Cfb_Fs_Item_DirNode&>(*child), path, s);
        } else {
            s.streams[path] = static_cast<const Cfb_Fs_Item_FileNode&>(*child).data;
        }
    }
}

Sample make_sample(uint32_t seed, const Builder_Options& options = {}, int max_streams = 12) {
    std::mt19937 rng(seed);
    Cfb_Fs_Item_DirNode root;
    int budget = max_streams;
    fill_tree(root, rng, 0, budget);
    Sample s;
    s.bytes = build_compound_file(root, options, &s.layout);
    collect(root, u"", s);
    return s;
}

struct Outcome {
    Salvage_Result result;
    std::size_t recovered = 0;
    std::size_t wrong = 0;  // reported recovered but differing from the original
    std::map<std::u16string, Salvage_State> states;
};

Outcome run(const Sample& s, const std::vector<uint8_t>& damaged) {
    Outcome o;
    o.result = salvage_bytes(damaged.data(), damaged.size());
    for (std::size_t i = 0; i < o.result.entries.size(); ++i) {
        const Salvaged_Entry& e = o.result.entries[i];
        if (e.object_type != 2) continue;
        const std::u16string path = o.result.path_of(i);
        o.states[path] = e.state;
        if (e.state != Salvage_State::recovered) continue;
        const auto it = s.streams.find(path);
        const std::vector<uint8_t> got = salvaged_bytes(damaged.data(), damaged.size(), e.pieces);
        if (it == s.streams.end() || got != it->second) {
            ++o.wrong;
        } else {
            ++o.recovered;
        }
    }
    return o;
}

using test::minisat_entry_offset;
using test::sat_entry_offset;

struct Named_Options {
    const char* name;
    Builder_Options options;
};

std::vector<Named_Options> real_writer_layouts() {
    std::vector<Named_Options> out;
    out.push_back({"default", {}});
    Builder_Options o;
    o.tables_at_end = true;
    out.push_back({"tables at end", o});
    o = {};
    o.sat_in_last_sector = true;
    out.push_back({"SAT in last sector", o});
    o = {};
    o.minor_version = 0x003B;
    out.push_back({"minor 0x3B", o});
    o = {};
    o.sibling_chain = true;
    out.push_back({"sibling chain", o});
    o = {};
    o.major_version = 4;
    out.push_back({"version 4", o});
    return out;
}

// Header damage: the whole header zeroed (first) or random, the DISAT array wiped, with the
// header zeroed also the directory chain's first link broken or the root's name wiped, then
// each field broken in turn. Every stream must come back whole, in every writer layout and sample
// shape.
std::vector<std::vector<uint8_t>> header_damages(const Sample& s, uint32_t seed) {
    using namespace test::offsets;
    const std::vector<std::pair<uint64_t, uint32_t>> fields = {{0, 0x12345678},
                                                               {kMinorVersion, 0xFFFF},
                                                               {kMajorVersion, 0x7777},
                                                               {kByteOrder, 0x1234},
                                                               {kSectorShift, 0x000C0009},
                                                               {kSectorShift, 0x0011},
                                                               {kMiniSectorShift, 0x22},
                                                               {kNumDirSecs, 0x7FFFFFFF},
                                                               {kNumSatSecs, 0x7FFFFFFF},
                                                               {kNumSatSecs, 0},
                                                               {kFirstDirSid, 1},
                                                               {kFirstDirSid, ENDOFCHAIN},
                                                               {kMiniStreamCutoff, 1},
                                                               {kMiniStreamCutoff, 512},
                                                               {kFirstMinisatSid, 2},
                                                               {kFirstMinisatSid, ENDOFCHAIN},
                                                               {kNumMinisatSecs, 0x7FFFFFFF},
                                                               {kFirstDisatSid, 3},
                                                               {kNumDisatSecs, 0x7FFFFFFF},
                                                               {kHeaderDisat, 5},
                                                               {kHeaderDisat, FREESECT}};
    std::vector<std::vector<uint8_t>> out(5, s.bytes);
    test::zero_range(out[0], 0, 512);
    test::patch_bytes(out[1], 0, pattern(512, seed));
    for (uint32_t i = 0; i < 109; ++i)
        test::patch_u32(out[2], test::header_disat_offset(i), FREESECT);
    out[3] = out[0];
    test::patch_u32(out[3], sat_entry_offset(s.layout, s.layout.directory_sids[0]), FREESECT);
    out[4] = out[0];
    test::zero_range(out[4], test::directory_entry_offset(s.layout, 0), 66);
    for (const auto& [offset, value] : fields) {
        out.push_back(s.bytes);
        if (offset == kMinorVersion || offset == kMajorVersion || offset == kByteOrder ||
            offset == kMiniSectorShift) {
            write_u16_le(out.back().data() + offset, static_cast<uint16_t>(value));
        } else {
            test::patch_u32(out.back(), offset, value);
        }
    }
    return out;
}

void expect_header_damage_loses_nothing(const Sample& s, const std::string& name, uint32_t seed) {
    const std::vector<std::vector<uint8_t>> damages = header_damages(s, seed);
    for (std::size_t v = 0; v < damages.size(); ++v) {
        const Outcome o = run(s, damages[v]);
        EXPECT_EQ(o.wrong, 0u) << name << " damage " << v;
        EXPECT_EQ(o.recovered, s.streams.size())
            << name << " damage " << v << ": " << o.result.reason;
    }
}

TEST(SalvageHeader, DamageLosesNothing) {
    for (const auto& lo : real_writer_layouts()) {
        for (uint32_t seed = 1; seed <= 4; ++seed) {
            expect_header_damage_loses_nothing(
                make_sample(seed, lo.options),
                lo.name + std::string(" seed ") + std::to_string(seed), seed);
        }
    }
    for (const std::string& name : test::sample_shape_names()) {
        test::Sample_Shape shape = test::make_sample_shape(name);
        Sample s;
        s.bytes = build_compound_file(*shape.root, shape.options, &s.layout);
        for (const auto& e : shape.streams) s.streams[e.path] = e.node->data;
        expect_header_damage_loses_nothing(s, name, 7);
    }
    // The layout chosen is named.
    const Sample s = make_sample(3);
    EXPECT_EQ(run(s, s.bytes).result.layout, "header");
    EXPECT_EQ(run(s, header_damages(s, 3)[0]).result.layout, "content");
}

// Allocation tables.
// One SAT sector zeroed, each in turn: big streams whose chain it describes come back in part,
// every stream it does not describe comes back whole.
TEST(SalvageTables, ZeroedSatSectorSparesUntouchedStreams) {
    for (const auto& lo : real_writer_layouts()) {
        if (lo.options.major_version == 4) continue;  // one SAT sector holds all of a small file
        const Sample s = make_sample(21, lo.options, 40);
        const uint32_t per = s.layout.sector_size / 4;
        ASSERT_GE(s.layout.sat_sids.size(), 2u) << lo.name;
        for (std::size_t position = 0; position < s.layout.sat_sids.size(); ++position) {
            auto described = [&](sid_t sid) { return sid / per == position; };
            std::vector<uint8_t> d = s.bytes;
            test::zero_range(d, s.layout.file_offset_of(s.layout.sat_sids[position]),
                             s.layout.sector_size);
            const Outcome o = run(s, d);
            EXPECT_EQ(o.wrong, 0u);
            bool mini_touched =
                std::any_of(s.layout.container_sids.begin(), s.layout.container_sids.end(),
                            described) ||
                std::any_of(s.layout.minisat_sids.begin(), s.layout.minisat_sids.end(), described);
            for (const auto& place : s.layout.streams) {
                const bool touched =
                    place.in_mini ? mini_touched
                                  : std::any_of(place.chain.begin(), place.chain.end(), described);
                const auto state = o.states.find(place.path);
                ASSERT_NE(state, o.states.end()) << lo.name << " position " << position;
                if (!touched) {
                    EXPECT_EQ(state->second, Salvage_State::recovered)
                        << lo.name << " position " << position << " "
                        << test::utf16_to_utf8(place.path);
                } else if (!place.in_mini) {
                    EXPECT_NE(state->second, Salvage_State::recovered)
                        << lo.name << " position " << position;
                }
            }
        }
    }
}

// Tables of a size where DISAT sectors are in use and the MiniSAT outnumbers the SAT (a
// MiniSAT sector's mini chains look just like SAT links): header zeroed, DISAT array wiped, a
// DISAT sector zeroed, a SAT sector zeroed (the streams it describes may come back in part).
class SalvageLargeTables : public testing::TestWithParam<bool> {};

TEST_P(SalvageLargeTables, DamagedTablesLoseNothingElse) {
    Cfb_Fs_Item_DirNode root;
    for (int i = 0; i < 2000; ++i)
        root.add_stream(u"m" + std::u16string(1, char16_t(u'a' + i % 26)) +
                            std::u16string(1, char16_t(u'a' + i / 26 % 26)) +
                            std::u16string(1, char16_t(u'a' + i / 676)),
                        pattern(1 + (i * 7919) % 4000, i));
    for (int i = 0; i < 6; ++i)
        root.add_stream(u"big" + std::u16string(1, char16_t(u'0' + i)), pattern(1000000, i));
    Builder_Options options;
    options.tables_at_end = GetParam();
    Sample s;
    s.bytes = build_compound_file(root, options, &s.layout);
    collect(root, u"", s);
    ASSERT_FALSE(s.layout.disat_sids.empty());
    ASSERT_GT(s.layout.minisat_sids.size(), s.layout.sat_sids.size());
    // The SAT sector describing the middle of a big stream.
    const auto big = std::find_if(s.layout.streams.begin(), s.layout.streams.end(),
                                  [](const Build_Layout::Stream_Place& p) { return !p.in_mini; });
    ASSERT_NE(big, s.layout.streams.end());
    const sid_t middle = big->chain[big->chain.size() / 2];
    const uint64_t sat_of_big = s.layout.file_offset_of(s.layout.sat_sids[middle / 128]);
    const struct {
        uint64_t offset;
        uint64_t length;
        std::size_t at_least;
    } damages[] = {{0, 512, s.streams.size()},
                   {76, 4 * 109, s.streams.size()},
                   {s.layout.file_offset_of(s.layout.disat_sids[0]), 512, s.streams.size()},
                   {sat_of_big, 512, s.streams.size() - 2}};
    for (const auto& damage : damages) {
        std::vector<uint8_t> d = s.bytes;
        test::zero_range(d, damage.offset, damage.length);
        const Outcome o = run(s, d);
        EXPECT_EQ(o.wrong, 0u);
        EXPECT_GE(o.recovered, damage.at_least) << damage.offset << ": " << o.result.reason;
    }
}

INSTANTIATE_TEST_SUITE_P(Layouts, SalvageLargeTables, testing::Bool());

// The directory chain broken with the header zeroed, the directory spanning several sectors.
TEST(SalvageDirectory, BrokenChainFoundByContent) {
    for (const auto& lo : real_writer_layouts()) {
        const Sample s = make_sample(31, lo.options, 30);
        // Version 4 fits 32 records in one sector: the single sector's link is broken then.
        ASSERT_GE(s.layout.directory_sids.size(), lo.options.major_version == 4 ? 1u : 2u)
            << lo.name;
        std::vector<uint8_t> d = s.bytes;
        test::patch_u32(d, sat_entry_offset(s.layout, s.layout.directory_sids[0]), FREESECT);
        test::zero_range(d, 0, 512);
        const Outcome o = run(s, d);
        EXPECT_EQ(o.wrong, 0u);
        EXPECT_EQ(o.recovered, s.streams.size()) << lo.name << ": " << o.result.reason;
    }
}

// Compound files kept as streams before the directory bring root records of their own.
TEST(SalvageDirectory, EmbeddedCompoundFilesDoNotHideTheRoot) {
    Cfb_Fs_Item_DirNode inner;
    inner.add_stream(u"x", pattern(3000, 1));
    Cfb_Fs_Item_DirNode root;
    for (int i = 0; i < 12; ++i)
        root.add_stream(u"obj" + std::u16string(1, char16_t(u'a' + i)), build_compound_file(inner));
    Builder_Options options;
    options.tables_at_end = true;
    Sample s;
    s.bytes = build_compound_file(root, options, &s.layout);
    collect(root, u"", s);
    test::zero_range(s.bytes, 0, 512);
    const Outcome o = run(s, s.bytes);
    EXPECT_EQ(o.wrong, 0u);
    EXPECT_EQ(o.recovered, s.streams.size()) << o.result.reason;
}

// Rings.
TEST(SalvageRings, StreamDirectoryAndMiniSatRings) {
    const Sample s = make_sample(41, {}, 30);
    // A big stream's last sector links back to its first.
    for (const auto& place : s.layout.streams) {
        if (place.in_mini || place.chain.size() < 2) continue;
        std::vector<uint8_t> d = s.bytes;
        test::patch_u32(d, sat_entry_offset(s.layout, place.chain.back()), place.chain.front());
        const Outcome o = run(s, d);
        EXPECT_EQ(o.wrong, 0u);
        EXPECT_NE(o.states.at(place.path), Salvage_State::recovered);
        EXPECT_EQ(o.recovered, s.streams.size() - 1);
        break;
    }
    // The directory chain closes on itself.
    {
        std::vector<uint8_t> d = s.bytes;
        test::patch_u32(d, sat_entry_offset(s.layout, s.layout.directory_sids.back()),
                        s.layout.directory_sids.front());
        const Outcome o = run(s, d);
        EXPECT_EQ(o.wrong, 0u);
        EXPECT_EQ(o.recovered, s.streams.size()) << o.result.reason;
    }
    // The MiniSAT chain closes on itself; a mini stream's chain rings.
    if (!s.layout.minisat_sids.empty()) {
        std::vector<uint8_t> d = s.bytes;
        test::patch_u32(d, sat_entry_offset(s.layout, s.layout.minisat_sids.back()),
                        s.layout.minisat_sids.front());
        const Outcome o = run(s, d);
        EXPECT_EQ(o.wrong, 0u);
        EXPECT_EQ(o.recovered, s.streams.size()) << o.result.reason;
    }
    for (const auto& place : s.layout.streams) {
        if (!place.in_mini || place.chain.size() < 2) continue;
        std::vector<uint8_t> d = s.bytes;
        test::patch_u32(d, minisat_entry_offset(s.layout, place.chain.back()), place.chain.front());
        const Outcome o = run(s, d);
        EXPECT_EQ(o.wrong, 0u);
        EXPECT_NE(o.states.at(place.path), Salvage_State::recovered);
        break;
    }
}

// Cut and grown files: a cut in the middle of the last sector loses only the stream whose
// bytes it cut, a cut inside the directory presents no wrong byte, junk appended loses nothing.
TEST(SalvageLength, CutAndGrownFiles) {
    for (const auto& lo : real_writer_layouts()) {
        const Sample s = make_sample(52, lo.options, 20);
        const uint32_t ss = s.layout.sector_size;
        std::vector<uint8_t> d(
            s.bytes.begin(),
            s.bytes.begin() + static_cast<std::ptrdiff_t>(
                                  s.layout.file_offset_of(s.layout.directory_sids[0]) + 200));
        EXPECT_EQ(run(s, d).wrong, 0u) << lo.name;
        d = s.bytes;
        const std::vector<uint8_t> junk = pattern(3000, 5);
        d.insert(d.end(), junk.begin(), junk.end());
        const Outcome grown = run(s, d);
        EXPECT_EQ(grown.wrong, 0u);
        EXPECT_EQ(grown.recovered, s.streams.size()) << lo.name << ": " << grown.result.reason;

        const sid_t last = static_cast<sid_t>(s.bytes.size() / ss - 2);
        d = s.bytes;
        test::truncate(d, d.size() - ss / 2);
        const Outcome o = run(s, d);
        EXPECT_EQ(o.wrong, 0u);
        const bool table_sector =
            std::count(s.layout.sat_sids.begin(), s.layout.sat_sids.end(), last) != 0 ||
            std::count(s.layout.directory_sids.begin(), s.layout.directory_sids.end(), last) != 0 ||
            std::count(s.layout.minisat_sids.begin(), s.layout.minisat_sids.end(), last) != 0 ||
            std::count(s.layout.container_sids.begin(), s.layout.container_sids.end(), last) != 0;
        if (table_sector) continue;  // the tables' own damage is covered elsewhere
        for (const auto& place : s.layout.streams) {
            const bool owner = !place.in_mini && !place.chain.empty() && place.chain.back() == last;
            const bool cut = owner && place.size - (place.chain.size() - 1) * ss > ss / 2;
            EXPECT_EQ(o.states.at(place.path) == Salvage_State::recovered, !cut)
                << lo.name << " " << test::utf16_to_utf8(place.path);
        }
    }
}

TEST(SalvageInput, NotACompoundFile) {
    for (std::size_t n : {0u, 100u, 512u, 4096u, 70000u}) {
        const std::vector<uint8_t> junk = pattern(n, static_cast<uint32_t>(n));
        const Salvage_Result r = salvage_bytes(junk.data(), junk.size());
        EXPECT_FALSE(r.is_compound_file);
        EXPECT_EQ(r.stream_count(), 0u);
    }
}

// Random shapes under random damage: nothing reported recovered may differ from the original.
TEST(SalvageProperty, NoWrongByteReportedRecovered) {
    const std::vector<Named_Options> layouts = real_writer_layouts();
    const int cases = 1000;
    std::size_t streams = 0;
    std::size_t recovered = 0;
    for (int c = 0; c < cases; ++c) {
        std::mt19937 rng(static_cast<uint32_t>(7000 + c));
        const Named_Options& lo = layouts[rng() % layouts.size()];
        if (lo.options.major_version == 4 && c % 3 != 0) continue;
        const Sample s = make_sample(rng(), lo.options, 1 + static_cast<int>(rng() % 16));
        std::vector<uint8_t> d = s.bytes;
        const Build_Layout& l = s.layout;
        const uint32_t ss = l.sector_size;
        switch (rng() % 11) {
            case 0:
                test::zero_range(d, 0, 512);
                break;
            case 1:
                test::patch_bytes(d, 0, pattern(512, rng()));
                break;
            case 2:
                test::patch_u32(d, 4 * (rng() % 128), rng());
                break;
            case 3:
                test::zero_range(d, l.file_offset_of(l.sat_sids[rng() % l.sat_sids.size()]), ss);
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
                const std::vector<uint8_t> junk = pattern(rng() % 9000, rng());
                d.insert(d.end(), junk.begin(), junk.end());
                break;
            }
            case 8: {
                const sid_t victim = static_cast<sid_t>(rng() % (d.size() / ss - 1));
                test::patch_u32(d, sat_entry_offset(l, victim),
                                static_cast<sid_t>(rng() % (d.size() / ss)));
                break;
            }
            case 9:
                if (!l.minisat_sids.empty()) {
                    test::patch_u32(d, l.file_offset_of(l.minisat_sids[0]) + 4 * (rng() % (ss / 4)),
                                    rng() % 64);
                }
                break;
            default: {
                test::zero_range(d, 0, 512);
                test::patch_u32(d, sat_entry_offset(l, l.directory_sids[0]), FREESECT);
                break;
            }
        }
        const Outcome o = run(s, d);
        ASSERT_EQ(o.wrong, 0u) << "case " << c << " (" << lo.name << ")";
        streams += s.streams.size();
        recovered += o.recovered;
    }
    EXPECT_GT(recovered, streams / 2);
}

}  // namespace
}  // namespace vrk
