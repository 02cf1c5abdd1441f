// The header repair: sector classification, the sorting out of candidates with its scoring,
// the output path rules, and the whole pipeline on built and damaged files.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "cfb_vornak/entries/Repair_Output_Path.h"
#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/repair/Repair_Sectors.h"
#include "common/byte_order.h"
#include "common/platform.h"
#include "file_operation/Input_Blocks.h"
#include "file_operation/Input_View.h"
#include "support/cfb_patch.h"
#include "support/repair_samples.h"
#include "support/sample_shapes.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

using test::Raw_Image;

// The image as the repair reads it: through a view of the bytes in memory.
struct Image_Reader {
    explicit Image_Reader(const Raw_Image& image) : view(image.bytes.data(), image.bytes.size()) {}
    Input_View view;
    Sector_Values_Reader reader{view};
};

using Sids = std::vector<sid_t>;

// ---- stage 2

TEST(ClassifySectors, MarkersDecideBetweenSatAndCandidate) {
    Raw_Image image(8);  // max_sid 7
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

    Image_Reader image_reader(image);
    auto& reader = image_reader.reader;
    Repair_Sector_Sets sets;
    classify_sectors_by_markers(reader, image.max_sid(), 0, sets);
    EXPECT_EQ(sets.found_sat_sids.members(), (Sids{0}));
    EXPECT_EQ(sets.candidate_sids.members(), (Sids{2, 3, 5, 6}));
    EXPECT_EQ(sets.beyond_end_sids.members(), (Sids{3}));
}

TEST(ClassifySectors, NoSectorIsReadWhenMaxSidIsZero) {
    // A view of nothing throws on any read.
    Input_View nothing(nullptr, 0);
    Sector_Values_Reader reader(nothing);
    Repair_Sector_Sets sets;
    classify_sectors_by_markers(reader, 0, 0, sets);
    EXPECT_TRUE(sets.candidate_sids.empty());
    EXPECT_TRUE(sets.found_sat_sids.empty());
    Sector_Values values{};
    EXPECT_THROW(reader.read(0, values), std::logic_error);
}

TEST(ClassifySectors, RepeatsAreFoundWhereverTheyStand) {
    // Values that collide in a small hash table, repeated far apart.
    for (const std::size_t second_slot : {std::size_t{1}, std::size_t{64}, std::size_t{127}}) {
        Raw_Image image(4);
        image.set(0, 0, FATSECT);
        for (std::size_t slot = 1; slot < kValuesPerSector; ++slot) {
            image.set(0, slot, static_cast<uint32_t>(slot % 2));  // FREESECT elsewhere
            // Distinct values k * 0x10001 share a hash with each other and with FREESECT.
            image.set(2, slot, static_cast<uint32_t>(slot * 0x10001u));
        }
        image.counting(1, 0);
        image.set(1, second_slot, 0);
        image.set(2, second_slot, FREESECT);
        Image_Reader image_reader(image);
        auto& reader = image_reader.reader;
        Repair_Sector_Sets sets;
        classify_sectors_by_markers(reader, image.max_sid(), 1000, sets);
        EXPECT_TRUE(sets.found_sat_sids.empty());
        EXPECT_EQ(sets.candidate_sids.members(), (Sids{2})) << second_slot;
    }
}

// ---- stage 3

TEST(SortOutCandidates, SectorsNamingOnlyCandidatesAreDisat) {
    Raw_Image image(300);
    // Candidates 10..137 (distinct small values), and sector 5 naming exactly them.
    for (sid_t sid = 10; sid < 138; ++sid) image.counting(sid, 0, 2);
    image.set(1, 0, FATSECT);  // a SAT sector
    image.counting(5, 10);
    image.counting(6, 10);
    image.set(6, 127, 1);  // names the SAT sector
    // Sectors past the file name no candidate, but can be named: 200 is a candidate, 201
    // (a repeat) is not.
    image.counting(200, 2000);
    image.counting(201, 2000);
    image.set(201, 127, 2000);
    image.counting(7, 10, 127);
    image.set(7, 127, 200);
    image.counting(8, 10, 127);
    image.set(8, 127, 201);
    Image_Reader image_reader(image);
    auto& reader = image_reader.reader;
    Repair_Sector_Sets sets;
    classify_sectors_by_markers(reader, image.max_sid(), 1000, sets);
    sort_out_candidate_sectors(reader, {}, sets);
    EXPECT_EQ(sets.found_disat_sids.members(), (Sids{5, 7}));
    EXPECT_TRUE(sets.candidate_sids.empty());
}

TEST(SortOutCandidates, ValuesPastTheMiniRangeMakeSatSectors) {
    Raw_Image image(20);
    image.counting(1, 0, 10);  // largest 9: inside a range of 10 mini sectors
    image.counting(2, 1, 10);  // largest 10: past it
    image.set(3, 0, 25);       // past the file too: dropped
    Image_Reader image_reader(image);
    auto& reader = image_reader.reader;
    Repair_Sector_Sets sets;
    classify_sectors_by_markers(reader, image.max_sid(), 10, sets);
    sort_out_candidate_sectors(reader, {}, sets);
    // The quota 10 / 128 + 1 = 1 takes the lowest of the equal scores; the rest are SAT.
    EXPECT_EQ(sets.found_minisat_sids.members(), (Sids{0}));
    EXPECT_TRUE(sets.found_sat_sids.contains(1));
    EXPECT_TRUE(sets.found_sat_sids.contains(2));
    EXPECT_FALSE(sets.found_sat_sids.contains(3));
    EXPECT_EQ(sets.found_sat_sids.size(), 17u);
    EXPECT_TRUE(sets.candidate_sids.empty());
}

TEST(SortOutCandidates, WithNoMiniSectorsEveryOrdinaryValueIsPastTheRange) {
    Raw_Image image(6);
    image.set(0, 0, 3);
    image.set(0, 1, 3);  // skipped
    image.set(1, 0, 0);
    image.set(2, 0, 1);
    Image_Reader image_reader(image);
    auto& reader = image_reader.reader;
    Repair_Sector_Sets sets;
    classify_sectors_by_markers(reader, image.max_sid(), 0, sets);
    sort_out_candidate_sectors(reader, {}, sets);
    // 1 (value 0) stays a candidate and, lowest of the quota of one, becomes MiniSAT.
    EXPECT_EQ(sets.found_minisat_sids.members(), (Sids{1}));
    EXPECT_EQ(sets.found_sat_sids.members(), (Sids{2, 3, 4}));
}

TEST(SortOutCandidates, MiniSatQuotaFollowsTheMiniSectorCount) {
    // Root stream sizes 4096 and 8127 give mini sector counts 65 and 129: quotas 1 and 2.
    for (const auto& [count, quota] : {std::pair<uint64_t, std::size_t>{4096 / 63, 1},
                                       std::pair<uint64_t, std::size_t>{8127 / 63, 2}}) {
        Raw_Image image(6);
        Image_Reader image_reader(image);
        auto& reader = image_reader.reader;
        Repair_Sector_Sets sets;
        classify_sectors_by_markers(reader, image.max_sid(), count, sets);
        sort_out_candidate_sectors(reader, {}, sets);
        EXPECT_EQ(sets.found_minisat_sids.size(), quota) << count;
        EXPECT_EQ(sets.found_minisat_sids.first(), 0u);
        EXPECT_EQ(sets.found_sat_sids.size(), 5 - quota);
    }
}

TEST(SortOutCandidates, TheBestScoringSectorsAreMiniSat) {
    // Chains of two small streams: mini sectors 0,1 and 2. Sector 4 holds them (1, ENDOFCHAIN,
    // ENDOFCHAIN); sector 1 holds nothing that matches.
    Raw_Image image(6);
    image.set(4, 0, 1);
    image.set(4, 1, ENDOFCHAIN);
    image.set(4, 2, ENDOFCHAIN);
    image.set(1, 0, 3);
    const std::vector<Expected_Mini_Chain> chains{{0, 2}, {2, 1}};
    Image_Reader image_reader(image);
    auto& reader = image_reader.reader;
    Repair_Sector_Sets sets;
    classify_sectors_by_markers(reader, image.max_sid(), 10, sets);
    sort_out_candidate_sectors(reader, chains, sets);
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

// Stages 2 and 3 as literally described: a set of the values of each sector, ordered sets of
// sector ids, every candidate read again at each step of stage 3.
struct Literal_Sets {
    std::set<sid_t> candidate, beyond_end, sat, minisat, disat;
};

Literal_Sets literal_sort(const Raw_Image& image, uint64_t mini_sector_count,
                          const std::vector<Expected_Mini_Chain>& chains) {
    const uint64_t max_sid = image.max_sid();
    const auto values_of = [&](sid_t sid) {
        Sector_Values values;
        for (std::size_t slot = 0; slot < values.size(); ++slot) {
            values[slot] = read_u32_le(image.bytes.data() + 512 * (sid + 1) + 4 * slot);
        }
        return values;
    };
    Literal_Sets l;
    for (sid_t i = 0; i < max_sid; ++i) {
        std::set<uint32_t> seen;
        bool repeat = false;
        for (const uint32_t v : values_of(i)) repeat |= !seen.insert(v).second && v < DIFSECT;
        if (repeat) continue;
        uint32_t v = 0;
        for (const uint32_t x : seen) v = x < DIFSECT ? std::max(v, x) : v;
        if (seen.count(DIFSECT) == 0 && seen.count(FATSECT) == 0) {
            l.candidate.insert(i);
            if (v > max_sid && v <= 0xFFFFFFFBu) l.beyond_end.insert(i);
        } else if (!(v > max_sid && v < 0xFFFFFFFCu)) {
            l.sat.insert(i);
        }
    }
    for (const sid_t c : l.candidate) {
        const Sector_Values values = values_of(c);
        if (std::all_of(values.begin(), values.end(),
                        [&](uint32_t v) { return l.candidate.count(v) != 0; })) {
            l.disat.insert(c);
        }
    }
    for (const sid_t c : l.disat) l.candidate.erase(c);
    std::vector<sid_t> marked;
    for (const sid_t c : l.candidate) {
        for (const uint32_t v : values_of(c)) {
            if (v < DIFSECT && v > (mini_sector_count == 0 ? 0 : mini_sector_count - 1)) {
                marked.push_back(c);
                break;
            }
        }
    }
    for (const sid_t c : marked) {
        l.candidate.erase(c);
        if (l.beyond_end.count(c) == 0) l.sat.insert(c);
    }
    std::vector<std::pair<uint64_t, sid_t>> scored;
    for (const sid_t c : l.candidate) scored.emplace_back(literal_score(values_of(c), chains), c);
    std::stable_sort(scored.begin(), scored.end(),
                     [](const auto& a, const auto& b) { return a.first > b.first; });
    for (std::size_t rank = 0; rank < scored.size(); ++rank) {
        const sid_t c = scored[rank].second;
        l.candidate.erase(c);
        if (rank < mini_sector_count / 128 + 1) {
            l.minisat.insert(c);
        } else if (l.beyond_end.count(c) == 0) {
            l.sat.insert(c);
        }
    }
    return l;
}

Sids sorted(const std::set<sid_t>& set) {
    return {set.begin(), set.end()};
}

// Random images mixing the shapes that matter: random data, SAT-like runs near max_sid with
// markers, few distinct values (repeats), MiniSAT-like chains, sectors naming other sectors.
TEST(SortOutCandidates, AgreesWithTheLiteralStages) {
    test::Temp_Folder folder("literal");
    std::mt19937 random(11);
    const uint32_t specials[] = {FATSECT, DIFSECT, ENDOFCHAIN, FREESECT, 0, 1};
    std::map<std::string, std::size_t> reached;
    for (int round = 0; round < 40; ++round) {
        const auto sectors = static_cast<uint32_t>(2 + random() % 600);
        Raw_Image image(sectors);
        const auto max_sid = static_cast<uint32_t>(image.max_sid());
        // Shape 4 names only sectors of the shapes 1 and 3 left as they were: candidates.
        std::vector<sid_t> clean;
        for (const uint32_t shape : {0u, 1u, 2u, 3u, 4u}) {
            std::shuffle(clean.begin(), clean.end(), random);
            for (sid_t sid = shape; sid < sectors; sid += 5) {
                const uint32_t base = random() % (max_sid + 8);
                for (uint32_t slot = 0; slot < kValuesPerSector; ++slot) {
                    const uint32_t value = shape == 0   ? static_cast<uint32_t>(random())
                                           : shape == 1 ? base + slot
                                           : shape == 2 ? static_cast<uint32_t>(random() % 40)
                                           : shape == 3
                                               ? (random() % 7 == 0 ? ENDOFCHAIN : slot + 1)
                                               : (clean.empty() ? 0 : clean[slot % clean.size()]);
                    image.set(sid, slot, value);
                }
                // Some sectors get a marker or a small value somewhere, a few a repeat (which
                // shape 4 names in every other round).
                const bool changed = random() % 4 == 0;
                if (changed) image.set(sid, random() % 128, specials[random() % 6]);
                const bool repeat = random() % 8 == 0;
                if (repeat) image.set(sid, 127, read_u32_le(&image.bytes[512 * (sid + 1)]));
                if (!changed && (!repeat || round % 2 == 0) && (shape == 1 || shape == 3) &&
                    sid < max_sid) {
                    clean.push_back(sid);
                }
            }
        }
        std::vector<Expected_Mini_Chain> chains(random() % 30);
        for (auto& chain : chains) {
            chain = {static_cast<sid_t>(random() % 300), static_cast<uint32_t>(1 + random() % 5)};
        }
        const uint64_t counts[] = {0, 5, 100, 200, 300, 100000};
        const uint64_t mini_sector_count = counts[round % 6];

        Image_Reader image_reader(image);
        auto& reader = image_reader.reader;
        Repair_Sector_Sets sets;
        classify_sectors_by_markers(reader, max_sid, mini_sector_count, sets);
        // Stage 2 again through blocks read from a file: blocks that split sectors, and
        // blocks too small for any sector (each read then fills one of its own).
        const std::filesystem::path path = folder / "image.bin";
        ASSERT_TRUE(test::write_bytes_to_file(platform::from_path(path), image.bytes));
        Input_View file;
        ASSERT_EQ(file.open(platform::from_path(path)), platform::Map_Step::ok);
        Input_Blocks blocks(file, round % 3 == 0 ? 300 : 700 + 512 * (round % 5));
        // The blocks handed over, overlaps taken once, are the file from offset 512 on.
        std::vector<uint8_t> body;
        blocks.on_block_done([&](uint64_t offset, const uint8_t* bytes, std::size_t size) {
            ASSERT_LE(offset, 512 + body.size());
            const std::size_t skip = 512 + body.size() - offset;
            if (skip < size) body.insert(body.end(), bytes + skip, bytes + size);
        });
        Repair_Sector_Sets from_blocks;
        classify_sectors_by_markers(reader, max_sid, mini_sector_count, from_blocks, &blocks);
        blocks.finish();
        ASSERT_GE(body.size(), 512 * max_sid);
        ASSERT_TRUE(std::equal(body.begin(), body.end(), image.bytes.begin() + 512)) << round;
        ASSERT_EQ(from_blocks.candidate_sids.members(), sets.candidate_sids.members()) << round;
        ASSERT_EQ(from_blocks.found_sat_sids.members(), sets.found_sat_sids.members()) << round;
        ASSERT_EQ(from_blocks.past_mini_range_sids.members(), sets.past_mini_range_sids.members());
        sort_out_candidate_sectors(reader, chains, sets);
        const Literal_Sets expected = literal_sort(image, mini_sector_count, chains);
        ASSERT_EQ(sets.found_sat_sids.members(), sorted(expected.sat)) << round;
        ASSERT_EQ(sets.found_minisat_sids.members(), sorted(expected.minisat)) << round;
        ASSERT_EQ(sets.found_disat_sids.members(), sorted(expected.disat)) << round;
        EXPECT_TRUE(sets.candidate_sids.empty());
        reached["sat"] += expected.sat.size();
        reached["minisat"] += expected.minisat.size();
        reached["disat"] += expected.disat.size();
        reached["beyond"] += expected.beyond_end.size();
    }
    // The samples must reach every outcome.
    for (const auto& [outcome, count] : reached) EXPECT_GT(count, 20U) << outcome;
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
    EXPECT_EQ(repair_final_output_path(L"out/b.cfb", Document_Kind::word_processing), L"out/b.doc");
    EXPECT_EQ(repair_final_output_path(L"out/b.cfb", Document_Kind::spreadsheet), L"out/b.xls");
    EXPECT_EQ(repair_final_output_path(L"out/b.cfb", Document_Kind::presentation), L"out/b.ppt");
    EXPECT_EQ(repair_final_output_path(L"out/b.cfb", Document_Kind::unknown), L"out/b.cfb");
    EXPECT_EQ(repair_final_output_path(L"out/b.cfb", static_cast<Document_Kind>(-1)), L"out/b.cfb");
    // A name whose only dot leads has no extension: the new one is appended.
    EXPECT_EQ(repair_final_output_path(L"out/.cfb", Document_Kind::spreadsheet), L"out/.cfb.xls");
    EXPECT_EQ(repair_final_output_path(L"表格.cfb", Document_Kind::spreadsheet), L"表格.xls");
}

// ---- the whole pipeline on files

namespace stdfs = std::filesystem;

File_Description describe(const stdfs::path& path) {
    const std::wstring wide = platform::from_path(path);
    return {wide, wide, platform::to_utf8(wide)};
}

struct Repaired {
    Error_Code code = 0;
    std::unique_ptr<Cfb_File> file;
};

// Opens `input` with the full parse and repairs it into `cfb_output` (prefix + ".cfb").
Repaired repair(const stdfs::path& input, const stdfs::path& cfb_output, bool force = true) {
    const File_Description output = describe(cfb_output);
    Repaired repaired;
    repaired.file = std::make_unique<Cfb_File>(describe(input), output);
    repaired.code = repaired.file->cfb_file_head_changing(output, force);
    return repaired;
}

// The probe's verdict on a file, as the repair's first stage sees it.
Error_Code probe(const stdfs::path& input) {
    Cfb_File file(describe(input));
    return Cfb_File::check_cfb_core(file);
}

void write(const stdfs::path& path, const std::vector<uint8_t>& bytes) {
    ASSERT_TRUE(test::write_bytes_to_file(platform::from_path(path), bytes));
}

std::vector<uint8_t> read(const stdfs::path& path) {
    const std::string text = test::read_file(path);
    return {text.begin(), text.end()};
}

// Every name the output of prefix `stem` could get.
bool any_output(const stdfs::path& stem) {
    for (const char* extension : {".cfb", ".doc", ".xls", ".ppt"}) {
        if (stdfs::exists(stem.string() + extension)) return true;
    }
    return false;
}

std::vector<uint8_t> built(const test::Sample_Shape& shape, Build_Layout* layout = nullptr) {
    return build_compound_file(*shape.root, shape.options, layout);
}

TEST(RepairPipeline, ProbeRefusalsWriteNothing) {
    test::Temp_Folder folder("refuse");
    Build_Layout layout;
    auto lost_root = built(test::shape_with_document("nested_storages", 1), &layout);
    // An implausible child id makes the root record unrecognisable.
    test::patch_u32(lost_root, test::directory_entry_offset(layout, 0) + test::offsets::kEntryChild,
                    20000);
    write(folder / "lost_root.bin", lost_root);
    write(folder / "no_core.bin", built(test::shape_with_document("nested_storages", 3)));

    for (const auto& [name, code] : {std::pair<const char*, Error_Code>{"lost_root", ec::kRootLost},
                                     {"no_core", ec::kCoreLost}}) {
        const stdfs::path input = folder / (std::string(name) + ".bin");
        EXPECT_EQ(repair(input, folder / "out" / (std::string(name) + ".cfb")).code, code);
        EXPECT_FALSE(any_output(folder / "out" / name)) << name;
        EXPECT_FALSE(stdfs::exists(folder / "out")) << name;
    }
}

TEST(RepairPipeline, ASoundFileIsRewrittenOnlyWhenForced) {
    test::Temp_Folder folder("sound");
    const auto bytes = built(test::shape_with_document("nested_storages", 1));
    write(folder / "sound.bin", bytes);
    ASSERT_EQ(probe(folder / "sound.bin"), ec::kSuccess);

    EXPECT_EQ(repair(folder / "sound.bin", folder / "lazy.cfb", false).code, ec::kSuccess);
    EXPECT_FALSE(any_output(folder / "lazy"));

    const Repaired forced = repair(folder / "sound.bin", folder / "forced.cfb");
    EXPECT_EQ(forced.code, ec::kSuccess);
    // A spreadsheet: the output is named .xls, and as long as the input.
    const std::vector<uint8_t> output = read(folder / "forced.xls");
    ASSERT_EQ(output.size(), bytes.size());
    EXPECT_TRUE(std::equal(bytes.begin() + 512, bytes.end(), output.begin() + 512));
    EXPECT_EQ(read(folder / "sound.bin"), bytes);
}

TEST(RepairPipeline, EveryBrokenHeaderFieldGivesTheSameRepair) {
    test::Temp_Folder folder("fields");
    const auto sound = built(test::shape_with_document("unicode_names", 0));
    write(folder / "sound.bin", sound);
    ASSERT_EQ(repair(folder / "sound.bin", folder / "sound.cfb").code, ec::kSuccess);
    const std::vector<uint8_t> expected = read(folder / "sound.doc");
    ASSERT_EQ(expected.size(), sound.size());

    struct Break {
        uint64_t offset;
        int width;
        uint32_t value;
        Error_Code code;
    };
    namespace at = test::offsets;
    const std::vector<Break> breaks{
        {0, 4, 0, ec::kMagic},
        {at::kMinorVersion, 2, 0x3B, ec::kMinorVersion},
        {at::kMajorVersion, 2, 4, ec::kMajorVersion},
        {at::kByteOrder, 2, 0xFEFF, ec::kEndian},
        // Not above 9: the short-stream container is read in sectors of 1 << sector_shift,
        // and larger sectors would run past the end of the file during the parse.
        {at::kSectorShift, 2, 8, ec::kSectorShift},
        {at::kMiniSectorShift, 2, 7, ec::kMiniSectorShift},
        {at::kNumDirSecs, 4, 0xFFFFFFF0u, ec::kNumDirSecs},
        {at::kNumSatSecs, 4, 0xFFFFFFF0u, ec::kNumSatSecs},
        {at::kFirstDirSid, 4, 0xFFFFFFF0u, ec::kFirstDirSid},
        {at::kMiniStreamCutoff, 4, 0, ec::kMiniCutoff},
        {at::kFirstDisatSid, 4, 0x7FFFFFFFu, ec::kFirstDisatSid},
        {at::kNumDisatSecs, 4, 0x7FFFFFFFu, ec::kNumDisatSecs},
        {test::header_disat_offset(0), 4, ENDOFCHAIN, ec::kHeaderDisatSid},
    };
    for (const Break& broken : breaks) {
        auto bytes = sound;
        if (broken.width == 2) {
            test::patch_u16(bytes, broken.offset, static_cast<uint16_t>(broken.value));
        } else {
            test::patch_u32(bytes, broken.offset, broken.value);
        }
        const std::string name = "broken_" + std::to_string(broken.code);
        write(folder / (name + ".bin"), bytes);
        EXPECT_EQ(probe(folder / (name + ".bin")), broken.code);
        EXPECT_EQ(repair(folder / (name + ".bin"), folder / (name + ".cfb")).code, ec::kSuccess);
        EXPECT_EQ(read(folder / (name + ".doc")), expected) << name;
    }
}

TEST(RepairPipeline, AnExtensionThatDoesNotFitIsRepaired) {
    test::Temp_Folder folder("extension");
    write(folder / "sheet.doc", built(test::shape_with_document("nested_storages", 1)));
    ASSERT_EQ(probe(folder / "sheet.doc"), ec::kExtension);
    EXPECT_EQ(repair(folder / "sheet.doc", folder / "fixed.cfb").code, ec::kSuccess);
    EXPECT_TRUE(stdfs::exists(folder / "fixed.xls"));
}

// A directory sector (sector 0) with a root entry and a spreadsheet's core stream.
void put_spreadsheet_directory(test::Raw_Image& image, uint32_t root_size) {
    image.zero_sector(0);
    image.put_entry(0, 0, u"Root Entry", 5, 1, root_size);
    image.put_entry(0, 1, u"Workbook", 2, 0, 100);
}

uint32_t header_u32(const std::vector<uint8_t>& bytes, uint64_t offset) {
    return read_u32_le(bytes.data() + offset);
}

TEST(RepairPipeline, TwoHundredSatSectorsFillTheHeaderArrayWithTheFirst109) {
    test::Temp_Folder folder("sat200");
    test::Raw_Image image(210);
    put_spreadsheet_directory(image, 0);
    for (sid_t sid = 1; sid <= 200; ++sid) {
        image.counting(sid, 0);
        image.set(sid, 0, FATSECT);
    }
    for (sid_t sid = 201; sid < 210; ++sid) image.zero_sector(sid);
    write(folder / "in.bin", image.bytes);

    const Repaired repaired = repair(folder / "in.bin", folder / "out.cfb");
    ASSERT_EQ(repaired.code, ec::kSuccess);
    const auto output = read(folder / "out.xls");
    ASSERT_EQ(output.size(), image.bytes.size());
    EXPECT_EQ(header_u32(output, test::offsets::kNumSatSecs), 200u);
    for (uint32_t i = 0; i < 109; ++i) {
        ASSERT_EQ(header_u32(output, test::header_disat_offset(i)), i + 1) << i;
    }
    EXPECT_EQ(header_u32(output, test::offsets::kFirstDirSid), 0u);
    EXPECT_EQ(header_u32(output, test::offsets::kFirstMinisatSid), ENDOFCHAIN);
    EXPECT_EQ(header_u32(output, test::offsets::kFirstDisatSid), ENDOFCHAIN);
    EXPECT_EQ(header_u32(output, test::offsets::kNumDisatSecs), 0u);
    // The sound defaults: signature, version 3, 512-byte sectors.
    EXPECT_EQ(read_u64_le(output.data()), Cfb_Header::kSignature);
    EXPECT_EQ(read_u16_le(output.data() + test::offsets::kMajorVersion), 3u);
    EXPECT_EQ(read_u16_le(output.data() + test::offsets::kSectorShift), 9u);
}

TEST(RepairPipeline, TheDisatCountIsTheMiniSatCount) {
    test::Temp_Folder folder("disat");
    test::Raw_Image image(151);
    // 18900 / 63 = 300 mini sectors: a quota of three MiniSAT sectors.
    put_spreadsheet_directory(image, 18900);
    for (sid_t sid = 1; sid <= 3; ++sid) image.counting(sid, 0, 100);  // MiniSAT-like
    image.counting(4, 0, 20);
    image.set(4, 0, FATSECT);  // a SAT sector
    image.counting(5, 10);     // names only the empty sectors 10..137: DISAT
    for (sid_t sid = 6; sid < 10; ++sid) image.zero_sector(sid);
    for (sid_t sid = 138; sid < 151; ++sid) image.zero_sector(sid);
    write(folder / "in.bin", image.bytes);

    const Repaired repaired = repair(folder / "in.bin", folder / "out.cfb");
    ASSERT_EQ(repaired.code, ec::kSuccess);
    const auto& sets = *repaired.file->repair_sector_sets;
    EXPECT_EQ(sets.found_disat_sids.members(), (Sids{5}));
    EXPECT_EQ(sets.found_minisat_sids.members(), (Sids{1, 2, 3}));
    EXPECT_EQ(sets.found_sat_sids.size(), 1u + 128u);
    const auto output = read(folder / "out.xls");
    EXPECT_EQ(header_u32(output, test::offsets::kFirstDisatSid), 5u);
    EXPECT_EQ(header_u32(output, test::offsets::kNumDisatSecs), 3u);
    EXPECT_EQ(header_u32(output, test::offsets::kFirstMinisatSid), 1u);
    EXPECT_EQ(header_u32(output, test::offsets::kNumMinisatSecs), 3u);
    EXPECT_EQ(header_u32(output, test::offsets::kNumSatSecs), 129u);
    EXPECT_EQ(header_u32(output, test::header_disat_offset(0)), 4u);
    EXPECT_EQ(header_u32(output, test::header_disat_offset(1)), 10u);
}

// What the rebuilt header can and cannot recover, in file-format terms:
// - SAT sectors are found by their FATSECT/DIFSECT entries, or as candidates holding a value
//   past the estimated mini sector range, and listed in ascending order: the SAT's own order
//   as long as the SAT sectors ascend along their chain (the builder's do).
// - A SAT sector whose 128 entries link a run of sectors that are all candidates (stream data
//   with no FATSECT/DIFSECT value and no repeated 32-bit value, such as random bytes) is taken
//   for a DISAT sector. Any stream of more than 128 such sectors in a row does this
//   ("stream_sizes" and the shapes built around it: "sibling_chain", "tables_at_end",
//   "sat_in_last_sector", "all_options", and "slack_chains" and "older_save", whose slack and
//   older save hold such runs); the header then lacks those SAT sectors and claims a DISAT.
// - When the root's stream size / 63 exceeds the number of sectors ("many_streams": hundreds
//   of small streams in a small file), every SAT entry lies inside the estimated mini sector
//   range, so SAT sectors compete with the MiniSAT sectors on score and some are taken for
//   MiniSAT sectors.
// - More than 109 SAT sectors ("disat") cannot be recovered: the DISAT sectors hold SAT sector
//   ids, which are no candidates, so they are not recognised, and only the first 109 SAT
//   sectors reach the header.
// - A SAT sector that is the file's last whole sector ("sat_in_last_sector", "all_options") is
//   never looked at, so the SAT in the header lacks it.
// - Version 4 files ("version4") get a version 3 header with 512-byte sectors, which misplaces
//   every sector of their 4096-byte layout.
// The other shapes come back whole: their directory starts at the lowest sector holding
// plausible directory records, and their MiniSAT sector scores highest. So does a large stream
// of text, whose sectors repeat values and are therefore no candidates.
const std::set<std::string> kUnrecoverable{
    "stream_sizes",       "sibling_chain", "tables_at_end", "many_streams", "disat",
    "sat_in_last_sector", "all_options",   "version4",      "slack_chains", "older_save"};

void write_manifest(const stdfs::path& path, const std::string& json) {
    test::write_file(path, json);
}

// A spreadsheet with a 1 MiB stream of repeated text beside small streams.
test::Sample_Shape large_text_shape() {
    test::Sample_Shape shape = test::shape_with_document("empty_root", 1);
    const std::string sentence = "The quick brown fox jumps over the lazy dog. ";
    std::vector<uint8_t> text;
    while (text.size() < (1u << 20)) text.insert(text.end(), sentence.begin(), sentence.end());
    shape.root->add_stream(u"Text", text);
    shape.root->add_storage(u"Box").add_stream(u"Note", test::random_bytes(700, 5));
    shape.name = "large_text";
    shape.streams.clear();
    shape.storages.clear();
    test::collect_expected(*shape.root, shape.streams, shape.storages);
    return shape;
}

TEST(RepairRoundTrip, OlefileReadsEveryStreamOfARepairedFile) {
    test::Temp_Folder folder("roundtrip");
    const stdfs::path checked = folder / "checked";
    stdfs::create_directories(checked);
    std::vector<std::string> names = test::sample_shape_names();
    names.push_back("large_text");
    for (const std::string& name : names) {
        const test::Sample_Shape shape =
            name == "large_text" ? large_text_shape() : test::shape_with_document(name, 1);
        std::vector<uint8_t> bytes = built(shape);
        test::zero_range(bytes, 0, 512);
        const stdfs::path input = folder / (name + ".bin");
        write(input, bytes);
        const Repaired repaired = repair(input, folder / (name + ".cfb"));
        ASSERT_EQ(repaired.code, ec::kSuccess) << name;
        const stdfs::path output = folder / (name + ".xls");
        const std::vector<uint8_t> written = read(output);
        // Whatever the layout, the pipeline's output: 512 new bytes, then the input's own.
        ASSERT_EQ(written.size(), bytes.size()) << name;
        EXPECT_TRUE(std::equal(bytes.begin() + 512, bytes.end(), written.begin() + 512)) << name;
        EXPECT_EQ(read_u16_le(written.data() + test::offsets::kSectorShift), 9u) << name;
        if (kUnrecoverable.count(name) != 0) continue;
        stdfs::copy_file(output, checked / (name + ".cfb"));
        write_manifest(checked / (name + ".cfb.json"), test::manifest_json(shape));
    }
    if (platform::kWindows) GTEST_SKIP() << "olefile runs natively only";
    const std::string command =
        std::string("/usr/bin/python3 ") + CFB_OLEFILE_CHECK + " " + (folder / "checked").string();
    EXPECT_EQ(std::system(command.c_str()), 0);
}

TEST(RepairRoundTrip, SatSectorsOfRandomDataRunsAreTakenForDisat) {
    test::Temp_Folder folder("random_run");
    Build_Layout layout;
    std::vector<uint8_t> bytes = built(test::shape_with_document("stream_sizes", 1), &layout);
    test::zero_range(bytes, 0, 512);
    write(folder / "in.bin", bytes);
    const Repaired repaired = repair(folder / "in.bin", folder / "out.cfb");
    ASSERT_EQ(repaired.code, ec::kSuccess);
    // The 3 MiB stream runs through every sector the SAT sectors after the first one link.
    const std::vector<sid_t> run(layout.sat_sids.begin() + 1, layout.sat_sids.end() - 1);
    const auto& sets = *repaired.file->repair_sector_sets;
    EXPECT_EQ(sets.found_disat_sids.members(), run);
    EXPECT_EQ(sets.found_minisat_sids.members(), layout.minisat_sids);
    const auto output = read(folder / "out.xls");
    EXPECT_EQ(header_u32(output, test::offsets::kFirstDisatSid), run.front());
    EXPECT_EQ(header_u32(output, test::offsets::kNumDisatSecs), layout.minisat_sids.size());
    EXPECT_EQ(header_u32(output, test::offsets::kNumSatSecs), sets.found_sat_sids.size());
}

TEST(RepairRoundTrip, ALastSatSectorIsLeftOutOfTheHeader) {
    test::Temp_Folder folder("lastsat");
    Build_Layout layout;
    const test::Sample_Shape shape = test::shape_with_document("sat_in_last_sector", 1);
    std::vector<uint8_t> bytes = built(shape, &layout);
    test::zero_range(bytes, 0, 512);
    write(folder / "in.bin", bytes);
    const Repaired repaired = repair(folder / "in.bin", folder / "out.cfb");
    ASSERT_EQ(repaired.code, ec::kSuccess);
    const sid_t last = static_cast<sid_t>(repaired.file->max_sid);
    ASSERT_NE(std::find(layout.sat_sids.begin(), layout.sat_sids.end(), last),
              layout.sat_sids.end());
    const auto output = read(folder / "out.xls");
    for (uint32_t i = 0; i < 109; ++i) {
        EXPECT_NE(header_u32(output, test::header_disat_offset(i)), last);
    }
    EXPECT_FALSE(repaired.file->repair_sector_sets->found_sat_sids.contains(last));
}

// The body is written while the sectors are sorted and the header last, over a placeholder: a
// write failing at byte N leaves what a header-then-body copy leaves, its first N bytes (in
// place), or nothing (staged). N falls in the header, at block edges and in the copied tail.
TEST(RepairPipeline, AWriteFailingAtByteNLeavesTheFirstNBytes) {
    test::Temp_Folder folder("fault");
    const auto bytes = built(large_text_shape());
    write(folder / "in.bin", bytes);
    ASSERT_EQ(repair(folder / "in.bin", folder / "whole.cfb").code, ec::kSuccess);
    const std::vector<uint8_t> whole = read(folder / "whole.xls");
    ASSERT_EQ(whole.size(), bytes.size());
    ASSERT_TRUE(std::equal(bytes.begin() + 512, bytes.end(), whole.begin() + 512));
    const uint64_t block_end = 512 + Input_Blocks::kBlockSize;
    for (const uint64_t at : {uint64_t{0}, uint64_t{100}, uint64_t{512}, uint64_t{513},
                              block_end - 1, block_end + 1, uint64_t{whole.size() - 1}}) {
        for (const auto fault :
             {platform::Write_Fault::disk_full, platform::Write_Fault::short_write}) {
            for (const auto mode :
                 {platform::Create_Mode::replace, platform::Create_Mode::staged}) {
                const stdfs::path out = folder / "out.cfb";
                Cfb_File file(describe(folder / "in.bin"), describe(out));
                platform::set_write_fault_for_tests(fault, at);
                const Error_Code code =
                    file.cfb_file_head_changing(describe(out), true, nullptr, mode);
                platform::set_write_fault_for_tests(platform::Write_Fault::none, 0);
                if (mode == platform::Create_Mode::staged) {
                    EXPECT_EQ(code, ec::kWriteFailed) << at;
                    EXPECT_FALSE(any_output(folder / "out")) << at;
                    continue;
                }
                EXPECT_EQ(code, ec::kSuccess) << at;
                EXPECT_EQ(read(folder / "out.xls"),
                          std::vector<uint8_t>(whole.begin(),
                                               whole.begin() + static_cast<std::ptrdiff_t>(at)))
                    << at;
                stdfs::remove(folder / "out.xls");
            }
        }
    }
}

}  // namespace
}  // namespace vrk
