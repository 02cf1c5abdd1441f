// The header repair: sector classification, the sorting out of candidates with its scoring,
// the output path rules, and the whole pipeline on built and damaged files.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <stdexcept>
#include <tuple>
#include <vector>

#include "cfb_vornak/Repair_Output_Path.h"
#include "cfb_vornak/Repair_Sectors.h"
#include "common/byte_order.h"
#include "common/platform.h"

namespace vrk {
namespace {

// A file image of a 512-byte header and `sectors` sectors, all values FREESECT unless set;
// max_sid is sectors - 1.
struct Sector_Image {
    explicit Sector_Image(uint32_t sectors) : bytes(512 + 512 * std::size_t{sectors}, 0xFF) {}

    void set(sid_t sid, std::size_t slot, uint32_t value) {
        write_u32_le(&bytes.at(512 + 512 * std::size_t{sid} + 4 * slot), value);
    }
    // Slots 0.. hold first, first + 1, ...: distinct ordinary values.
    void counting(sid_t sid, uint32_t first, std::size_t count = kValuesPerSector) {
        for (std::size_t slot = 0; slot < count; ++slot) set(sid, slot, first + slot);
    }
    uint64_t max_sid() const { return (bytes.size() - 512) / 512 - 1; }
    Sector_Values_Reader reader() const { return Sector_Values_Reader(bytes.data(), bytes.size()); }

    std::vector<uint8_t> bytes;
};

using Sids = std::vector<sid_t>;

// ---- stage 2

TEST(ClassifySectors, MarkersDecideBetweenSatAndCandidate) {
    Sector_Image image(8);  // max_sid 7
    image.set(0, 0, FATSECT);
    image.set(0, 1, 5);  // SAT: marker, values inside the file
    image.set(1, 0, DIFSECT);
    image.set(1, 1, 8);       // marker, but a value past max_sid: nowhere
    image.counting(2, 0, 7);  // no marker: candidate
    image.set(3, 0, 9);       // no marker, past max_sid: candidate and beyond the end
    image.set(4, 0, FATSECT);
    image.set(4, 1, 7);
    image.set(4, 2, 7);  // 7 twice: skipped, however many markers
    image.set(4, 3, FATSECT);
    image.set(5, 0, ENDOFCHAIN);
    image.set(5, 1, ENDOFCHAIN);  // repeated markers are allowed: candidate
    // 6 is all FREESECT: a candidate with no ordinary value.
    image.set(7, 0, FATSECT);  // the sector max_sid is never looked at

    auto reader = image.reader();
    Repair_Sector_Sets sets;
    classify_sectors_by_markers(reader, image.max_sid(), sets);
    EXPECT_EQ(sets.found_sat_sids.members(), (Sids{0}));
    EXPECT_EQ(sets.candidate_sids.members(), (Sids{2, 3, 5, 6}));
    EXPECT_EQ(sets.beyond_end_sids.members(), (Sids{3}));
}

TEST(ClassifySectors, NoSectorIsReadWhenMaxSidIsZero) {
    // A reader over nothing throws on any read.
    Sector_Values_Reader reader(nullptr, 0);
    Repair_Sector_Sets sets;
    classify_sectors_by_markers(reader, 0, sets);
    EXPECT_TRUE(sets.candidate_sids.empty());
    EXPECT_TRUE(sets.found_sat_sids.empty());
    Sector_Values values{};
    EXPECT_THROW(reader.read(0, values), std::out_of_range);
}

TEST(ClassifySectors, RepeatsAreFoundWhereverTheyStand) {
    // Values that collide in a small hash table, repeated far apart.
    for (const std::size_t second_slot : {std::size_t{1}, std::size_t{64}, std::size_t{127}}) {
        Sector_Image image(3);
        image.set(0, 0, FATSECT);
        for (std::size_t slot = 1; slot < kValuesPerSector; ++slot) {
            image.set(0, slot, static_cast<uint32_t>(slot % 2));  // FREESECT elsewhere
        }
        image.counting(1, 0);
        image.set(1, second_slot, 0);
        auto reader = image.reader();
        Repair_Sector_Sets sets;
        classify_sectors_by_markers(reader, image.max_sid(), sets);
        EXPECT_TRUE(sets.found_sat_sids.empty());
        EXPECT_TRUE(sets.candidate_sids.empty()) << second_slot;
    }
}

// ---- stage 3

TEST(SortOutCandidates, SectorsNamingOnlyCandidatesAreDisat) {
    Sector_Image image(300);
    // Candidates 10..137 (distinct small values), and sector 5 naming exactly them.
    for (sid_t sid = 10; sid < 138; ++sid) image.counting(sid, 0, 2);
    image.set(1, 0, FATSECT);  // a SAT sector
    image.counting(5, 10);
    image.counting(6, 10);
    image.set(6, 127, 1);  // names the SAT sector
    auto reader = image.reader();
    Repair_Sector_Sets sets;
    classify_sectors_by_markers(reader, image.max_sid(), sets);
    sort_out_candidate_sectors(reader, 1000, {}, sets);
    EXPECT_EQ(sets.found_disat_sids.members(), (Sids{5}));
    EXPECT_TRUE(sets.candidate_sids.empty());
}

TEST(SortOutCandidates, ValuesPastTheMiniRangeMakeSatSectors) {
    Sector_Image image(20);
    image.counting(1, 0, 10);  // largest 9: inside a range of 10 mini sectors
    image.counting(2, 1, 10);  // largest 10: past it
    image.set(3, 0, 25);       // past the file too: dropped
    auto reader = image.reader();
    Repair_Sector_Sets sets;
    classify_sectors_by_markers(reader, image.max_sid(), sets);
    sort_out_candidate_sectors(reader, 10, {}, sets);
    // The quota 10 / 128 + 1 = 1 takes the lowest of the equal scores; the rest are SAT.
    EXPECT_EQ(sets.found_minisat_sids.members(), (Sids{0}));
    EXPECT_TRUE(sets.found_sat_sids.contains(1));
    EXPECT_TRUE(sets.found_sat_sids.contains(2));
    EXPECT_FALSE(sets.found_sat_sids.contains(3));
    EXPECT_EQ(sets.found_sat_sids.size(), 17u);
    EXPECT_TRUE(sets.candidate_sids.empty());
}

TEST(SortOutCandidates, WithNoMiniSectorsEveryOrdinaryValueIsPastTheRange) {
    Sector_Image image(6);
    image.set(0, 0, 3);
    image.set(0, 1, 3);  // skipped
    image.set(1, 0, 0);
    image.set(2, 0, 1);
    auto reader = image.reader();
    Repair_Sector_Sets sets;
    classify_sectors_by_markers(reader, image.max_sid(), sets);
    sort_out_candidate_sectors(reader, 0, {}, sets);
    // 1 (value 0) stays a candidate and, lowest of the quota of one, becomes MiniSAT.
    EXPECT_EQ(sets.found_minisat_sids.members(), (Sids{1}));
    EXPECT_EQ(sets.found_sat_sids.members(), (Sids{2, 3, 4}));
}

TEST(SortOutCandidates, MiniSatQuotaFollowsTheMiniSectorCount) {
    // Root stream sizes 4096 and 8127 give mini sector counts 65 and 129: quotas 1 and 2.
    for (const auto& [count, quota] : {std::pair<uint64_t, std::size_t>{4096 / 63, 1},
                                       std::pair<uint64_t, std::size_t>{8127 / 63, 2}}) {
        Sector_Image image(6);
        auto reader = image.reader();
        Repair_Sector_Sets sets;
        classify_sectors_by_markers(reader, image.max_sid(), sets);
        sort_out_candidate_sectors(reader, count, {}, sets);
        EXPECT_EQ(sets.found_minisat_sids.size(), quota) << count;
        EXPECT_EQ(sets.found_minisat_sids.first(), 0u);
        EXPECT_EQ(sets.found_sat_sids.size(), 5 - quota);
    }
}

TEST(SortOutCandidates, TheBestScoringSectorsAreMiniSat) {
    // Chains of two small streams: mini sectors 0,1 and 2. Sector 4 holds them (1, ENDOFCHAIN,
    // ENDOFCHAIN); sector 1 holds nothing that matches.
    Sector_Image image(6);
    image.set(4, 0, 1);
    image.set(4, 1, ENDOFCHAIN);
    image.set(4, 2, ENDOFCHAIN);
    image.set(1, 0, 3);
    const std::vector<Expected_Mini_Chain> chains{{0, 2}, {2, 1}};
    auto reader = image.reader();
    Repair_Sector_Sets sets;
    classify_sectors_by_markers(reader, image.max_sid(), sets);
    sort_out_candidate_sectors(reader, 10, chains, sets);
    EXPECT_EQ(sets.found_minisat_sids.members(), (Sids{4}));
    EXPECT_EQ(sets.found_sat_sids.members(), (Sids{0, 1, 2, 3}));
}

TEST(ExpectedMiniChains, SmallStreamsOfTheLayoutInOrder) {
    std::map<uint64_t, std::vector<Directory_Entry>> layout;
    Directory_Entry entry;
    for (const auto& [sector, start, size] : {std::tuple<uint64_t, sid_t, uint32_t>{7, 40, 65},
                                              {2, 9, 64},
                                              {2, 3, 0},
                                              {2, 8, 4096},
                                              {7, 1, 4095}}) {
        entry.start_sid = start;
        entry.stream_size = size;
        layout[sector].push_back(entry);
    }
    const auto chains = expected_mini_chains(layout, 4096, 64);
    ASSERT_EQ(chains.size(), 3u);
    EXPECT_EQ(chains[0].start, 9u);
    EXPECT_EQ(chains[0].length, 1u);
    EXPECT_EQ(chains[1].start, 40u);
    EXPECT_EQ(chains[1].length, 2u);
    EXPECT_EQ(chains[2].length, 64u);
    EXPECT_EQ(chains[1].at(1), 41u);
    EXPECT_EQ(chains[1].at(2), ENDOFCHAIN);
}

// The scoring as literally described: one pass over every chain per candidate.
uint64_t literal_score(const Sector_Values& values,
                       const std::vector<Expected_Mini_Chain>& chains) {
    uint64_t score = 0;
    uint64_t m = 0;
    for (const Expected_Mini_Chain& chain : chains) {
        const uint32_t p = chain.start % 128;
        for (uint32_t k = 0; k < chain.length; ++k) {
            if (p + k > 127) {
                m = chain.length;
                break;
            }
            if (values[p + k] != chain.at(k + 1)) break;
            ++m;
        }
        score += m / chain.length;
    }
    return score;
}

TEST(MiniChainScorer, MatchesCarryOverFromChainToChain) {
    // The first chain matches 2 of 2; the next two match nothing but still gain 2 / 1 and
    // 2 / 2 from the carried counter.
    Sector_Values values{};
    values.fill(FREESECT);
    values[0] = 1;
    values[1] = ENDOFCHAIN;
    const std::vector<Expected_Mini_Chain> chains{{0, 2}, {5, 1}, {7, 2}};
    EXPECT_EQ(Mini_Chain_Scorer(chains).score(values), 1u + 2u + 1u);
    EXPECT_EQ(literal_score(values, chains), 4u);
}

TEST(MiniChainScorer, AChainRunningPastTheSectorCountsWhole) {
    Sector_Values values{};
    values.fill(FREESECT);
    values[126] = 127;
    values[127] = 128;
    const std::vector<Expected_Mini_Chain> chains{{126, 5}, {126, 5}};
    // 2 matches, then slot 128 does not exist: m = 5, and again for the second chain.
    EXPECT_EQ(Mini_Chain_Scorer(chains).score(values), 2u);
    values[127] = 0;
    EXPECT_EQ(Mini_Chain_Scorer(chains).score(values), 0u);
}

TEST(MiniChainScorer, AgreesWithTheLiteralScoring) {
    std::mt19937 random(7);
    int scored = 0;
    for (int round = 0; round < 300; ++round) {
        // Few distinct values, so that chains and sectors match often and partly.
        std::uniform_int_distribution<uint32_t> small(0, 12);
        std::uniform_int_distribution<uint32_t> length(1, round % 2 == 0 ? 3 : 64);
        std::vector<Expected_Mini_Chain> chains(random() % 40);
        for (auto& chain : chains) {
            const uint32_t slot_base = (random() % 2 == 0) ? 0 : 120;
            chain.start = slot_base + small(random) + 128 * (random() % 3);
            chain.length = length(random);
        }
        const Mini_Chain_Scorer scorer(chains);
        for (int candidate = 0; candidate < 20; ++candidate) {
            Sector_Values values{};
            for (std::size_t slot = 0; slot < values.size(); ++slot) {
                const uint32_t pick = small(random);
                values[slot] = pick == 12 ? ENDOFCHAIN : static_cast<uint32_t>(slot) + pick % 3;
            }
            const uint64_t expected = literal_score(values, chains);
            ASSERT_EQ(scorer.score(values), expected)
                << "round " << round << " candidate " << candidate;
            scored += expected != 0 ? 1 : 0;
        }
    }
    // The samples must reach the interesting cases, not only zero scores.
    EXPECT_GT(scored, 1000);
}

// ---- output paths

std::wstring native(const std::wstring& path) {
    std::wstring out = path;
    for (auto& c : out) {
        if (c == L'|') c = platform::kSeparator;
    }
    return out;
}

TEST(RepairOutputPath, PrefixDropsTheExtensionAndTidiesSeparators) {
    EXPECT_EQ(repair_output_prefix(L"out/b.doc"), native(L"out|b"));
    EXPECT_EQ(repair_cfb_output_path(repair_output_prefix(L"out/b.doc")), native(L"out|b.cfb"));
    // A last component without a dot keeps its whole name. On POSIX a backslash is an
    // ordinary character, so the whole text is one name there.
    EXPECT_EQ(repair_output_prefix(L"C:\\x\\result"), L"C:\\x\\result");
    if (platform::kWindows) {
        EXPECT_EQ(repair_output_prefix(L"C:/x//y/z.tmp"), L"C:\\x\\y\\z");
    } else {
        EXPECT_EQ(repair_output_prefix(L"C:/x//y/z.tmp"), L"C:/x/y/z");
    }
    EXPECT_EQ(repair_output_prefix(L"a/.hidden"), native(L"a|.hidden"));
    EXPECT_EQ(repair_output_prefix(L"a/b.c/.."), native(L"a|b.c|.."));
    EXPECT_EQ(repair_output_prefix(L"a/name."), native(L"a|name"));
}

TEST(RepairOutputPath, TheDocumentKindChoosesTheExtension) {
    EXPECT_EQ(repair_final_output_path(L"out/b.cfb", 0), L"out/b.doc");
    EXPECT_EQ(repair_final_output_path(L"out/b.cfb", 1), L"out/b.xls");
    EXPECT_EQ(repair_final_output_path(L"out/b.cfb", 2), L"out/b.ppt");
    EXPECT_EQ(repair_final_output_path(L"out/b.cfb", 3), L"out/b.cfb");
    EXPECT_EQ(repair_final_output_path(L"out/b.cfb", -1), L"out/b.cfb");
    // A name whose only dot leads has no extension: the new one is appended.
    EXPECT_EQ(repair_final_output_path(L"out/.cfb", 1), L"out/.cfb.xls");
    EXPECT_EQ(repair_final_output_path(L"表格.cfb", 1), L"表格.xls");
}

}  // namespace
}  // namespace vrk
