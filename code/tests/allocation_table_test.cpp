#include <gtest/gtest.h>

#include <stdexcept>

#include "cfb_vornak/Cfb_File.h"
#include "cfb_vornak/Sector_Chains.h"
#include "support/parse_samples.h"

namespace vrk {
namespace {

using test::Raw_Cfb;
using test::write_sample;

constexpr char kSource[] = "[code/src/cfb_vornak/Cfb_File:";
const std::string kRing = "parse_sat_form_disat have ring~";
const std::string kTooLong = "parse_sat_form_disat error~";

// Parses the header, the DISAT and the SAT of `image`.
struct Parsed {
    explicit Parsed(const Raw_Cfb& image) : file(write_sample("tables.cfb", image.bytes)) {
        test::new_error_lines();
        file.parse_header();
        file.parse_disat();
        file.parse_sat_form_disat();
        errors = test::new_error_lines();
    }
    Cfb_File file;
    std::vector<std::string> errors;
};

TEST(Disat, ZeroCountReadsNoSectorEvenWithAFirstSector) {
    Raw_Cfb image(8);
    image.u32_at(test::kHdrFirstDisatSid, 2);
    Parsed p(image);
    EXPECT_TRUE(p.file.disat_sids.empty());
    EXPECT_TRUE(p.file.disat_sector_entries.empty());
    EXPECT_EQ(p.file.header_disat[0], FREESECT);
}

TEST(Disat, WalkFollowsNextSectorAndEndsOnlyThroughMaxSid) {
    Raw_Cfb image(8);
    image.fill(2, FREESECT);
    image.fill(5, FREESECT);
    image.entry(2, 0, 7);
    image.entry(2, 127, 5);
    image.entry(5, 126, 6);
    image.entry(5, 127, ENDOFCHAIN);  // count says more, but ENDOFCHAIN > max_sid
    image.u32_at(test::kHdrFirstDisatSid, 2);
    image.u32_at(test::kHdrNumDisatSecs, 9);
    image.fill(7, FREESECT);
    image.fill(6, FREESECT);
    Parsed p(image);
    EXPECT_EQ(p.file.disat_sids, (sids_array{2, 5}));
    ASSERT_EQ(p.file.disat_sector_entries.size(), 2u);
    EXPECT_EQ(p.file.disat_sector_entries[0].size(), 127u);
    EXPECT_EQ(p.file.disat_sector_entries[0][0], 7u);
    EXPECT_EQ(p.file.disat_sector_entries[1][126], 6u);
    // SAT sectors named in the DISAT sectors are read after the header's.
    EXPECT_EQ(p.file.big_sids_array.size(), 2u * 128);
    EXPECT_EQ(p.file.sat_sector_dicts.count(7), 1u);
    EXPECT_EQ(p.file.sat_sector_dicts.count(6), 1u);
    EXPECT_TRUE(p.errors.empty());
}

TEST(Disat, CountBoundsTheWalk) {
    Raw_Cfb image(8);
    image.entry(2, 127, 3);
    image.entry(3, 127, 4);
    image.u32_at(test::kHdrFirstDisatSid, 2);
    image.u32_at(test::kHdrNumDisatSecs, 2);
    Cfb_File file(write_sample("disat.cfb", image.bytes));
    file.parse_header();
    file.parse_disat();
    EXPECT_EQ(file.disat_sids, (sids_array{2, 3}));
}

// A DISAT sector that names itself as the next one, in a file of 8 sectors (max_sid 7).
class DisatRing : public ::testing::Test {
  protected:
    Parsed parse(uint32_t count) {
        image.fill(3, FREESECT);
        image.entry(3, 127, 3);
        image.u32_at(test::kHdrFirstDisatSid, 3);
        image.u32_at(test::kHdrNumDisatSecs, count);
        return Parsed(image);
    }
    Raw_Cfb image{8};
};

TEST_F(DisatRing, AsManySectorsAsTheFileHasAreRead) {
    const Parsed p = parse(8);
    EXPECT_EQ(p.file.disat_sids, sids_array(8, 3));
    EXPECT_TRUE(p.errors.empty());
}

TEST_F(DisatRing, ALargerCountIsCutAndLogged) {
    for (const uint32_t count : {9u, 0xFFFFFFFFu}) {
        const Parsed p = parse(count);
        EXPECT_EQ(p.file.disat_sids, sids_array(8, 3));
        ASSERT_EQ(p.errors.size(), 1u);
        EXPECT_EQ(p.errors[0].rfind(kSource, 0), 0u) << p.errors[0];
        EXPECT_EQ(test::message_of(p.errors[0]),
                  "parse_disat stopped after 8 DISAT sectors, as many as the file has sectors; "
                  "the header asks for " +
                      std::to_string(count));
    }
}

TEST(Sat, SpecialHeaderEntriesAreSkippedNotEnds) {
    Raw_Cfb image(8);
    image.fill(0, 1);
    image.fill(5, 2);
    image.u32_at(test::kHdrDisat, 0);
    image.u32_at(test::kHdrDisat + 4, FREESECT);
    image.u32_at(test::kHdrDisat + 8, 5);
    Parsed p(image);
    ASSERT_EQ(p.file.sat_sector_dicts.size(), 2u);
    EXPECT_EQ(p.file.sat_sector_dicts.at(0), sids_array(128, 1));
    EXPECT_EQ(p.file.sat_sector_dicts.at(5), sids_array(128, 2));
    ASSERT_EQ(p.file.big_sids_array.size(), 256u);
    EXPECT_EQ(p.file.big_sids_array[127], 1u);
    EXPECT_EQ(p.file.big_sids_array[128], 2u);
}

TEST(Sat, ASectorNamedTwiceIsReadTwice) {
    Raw_Cfb image(4);
    image.single_sat(0);
    image.u32_at(test::kHdrDisat + 4, 0);
    Parsed p(image);
    EXPECT_EQ(p.file.sat_sector_dicts.at(0).size(), 256u);
    EXPECT_EQ(p.file.big_sids_array.size(), 256u);
}

TEST(Sat, SectorIdsWrapAt32Bits) {
    EXPECT_EQ(Cfb_File::sector_offset(0), 512u);
    EXPECT_EQ(Cfb_File::sector_offset(0x007FFFFF), 0u);
    EXPECT_EQ(Cfb_File::sector_offset(0x00800000), 512u);
    EXPECT_EQ(Cfb_File::sector_offset(0xFFFFFFFB), 0xFFFFF800u);
    // 0x00800000 reads the bytes of sector 0.
    Raw_Cfb image(4);
    image.fill(0, 9);
    image.u32_at(test::kHdrDisat, 0x00800000);
    Parsed p(image);
    EXPECT_EQ(p.file.sat_sector_dicts.at(0x00800000), sids_array(128, 9));
}

TEST(Sat, ASectorPastTheEndFailsAtTheFirstByteOutside) {
    Raw_Cfb image(4, 100);  // file size 2660
    image.u32_at(test::kHdrDisat, 9);
    Cfb_File file(write_sample("past.cfb", image.bytes));
    file.parse_header();
    file.parse_disat();
    try {
        file.parse_sat_form_disat();
        ADD_FAILURE() << "no failure";
    } catch (const std::logic_error& failure) {
        EXPECT_NE(std::string(failure.what()).find("the offset [5120]is  out of  range"),
                  std::string::npos)
            << failure.what();
    }
    // A sector that starts inside the file and ends past it keeps the entries read before.
    image.u32_at(test::kHdrDisat, 4);
    Cfb_File partial(write_sample("partial.cfb", image.bytes));
    partial.parse_header();
    partial.parse_disat();
    try {
        partial.parse_sat_form_disat();
        ADD_FAILURE() << "no failure";
    } catch (const std::logic_error& failure) {
        EXPECT_NE(std::string(failure.what()).find("the offset [2660]is  out of  range"),
                  std::string::npos)
            << failure.what();
    }
    EXPECT_EQ(partial.big_sids_array.size(), 25u);
}

// Header DISAT: sector 0 named 109 times; DISAT sector 1 names sector 0 `extra` more times.
// The file has 8 sectors, so at most 2 * 8 + 109 SAT sectors are read.
Parsed parse_with_extra_sat_sectors(uint32_t extra) {
    Raw_Cfb image(8);
    for (uint64_t i = 0; i < 109; ++i) image.u32_at(test::kHdrDisat + 4 * i, 0);
    image.fill(0, FREESECT);
    image.fill(1, FREESECT);
    for (uint32_t i = 0; i < extra; ++i) image.entry(1, i, 0);
    image.u32_at(test::kHdrFirstDisatSid, 1);
    image.u32_at(test::kHdrNumDisatSecs, 1);
    return Parsed(image);
}

TEST(Sat, SectorsUpToTheSafetyBoundAreRead) {
    const Parsed p = parse_with_extra_sat_sectors(16);
    EXPECT_EQ(p.file.sat_sector_dicts.at(0).size(), 125u * 128);
    EXPECT_EQ(p.file.big_sids_array.size(), 125u * 128);
    EXPECT_TRUE(p.errors.empty());
}

TEST(Sat, SectorsPastTheSafetyBoundAreCutAndLogged) {
    const Parsed p = parse_with_extra_sat_sectors(127);
    EXPECT_EQ(p.file.big_sids_array.size(), 125u * 128);
    ASSERT_EQ(p.errors.size(), 1u);
    EXPECT_EQ(p.errors[0].rfind(kSource, 0), 0u) << p.errors[0];
    EXPECT_EQ(test::message_of(p.errors[0]),
              "parse_sat_form_disat stopped after 125 SAT sectors, twice as many as the file "
              "has sectors");
}

TEST(SatChains, ClosedRingIsNoChainAndNoMessage) {
    Raw_Cfb image(8);
    image.single_sat(0);
    image.link(3, 4);
    image.link(4, 3);
    Parsed p(image);
    for (const sids_list& chain : p.file.sat_sids_lists) {
        for (const sid_t sid : chain) {
            EXPECT_NE(sid, 3u);
            EXPECT_NE(sid, 4u);
        }
    }
    EXPECT_TRUE(p.errors.empty());
    // Heads: 0 (FATSECT), 1, 2, 5..127 (FREESECT); 3 and 4 are linked to.
    EXPECT_EQ(p.file.sat_sids_lists.size(), 126u);
    EXPECT_EQ(p.file.sat_sids_lists[0], (sids_list{0, FATSECT}));
    EXPECT_EQ(p.file.sat_sids_lists[1], (sids_list{1, FREESECT}));
}

TEST(SatChains, RingEnteredFromOutsideDropsTheChainWithAMessage) {
    Raw_Cfb image(8);
    image.single_sat(0);
    image.link(2, 3);
    image.link(3, 4);
    image.link(4, 3);
    Parsed p(image);
    ASSERT_EQ(p.errors.size(), 1u);
    EXPECT_EQ(p.errors[0].rfind(kSource, 0), 0u) << p.errors[0];
    EXPECT_EQ(test::message_of(p.errors[0]), kRing);
    for (const sids_list& chain : p.file.sat_sids_lists) EXPECT_NE(chain.front(), 2u);
}

TEST(SatChains, SharedSectorLiesInTwoChains) {
    Raw_Cfb image(8);
    image.single_sat(0);
    image.link(1, 3);
    image.link(2, 3);
    image.link(3, ENDOFCHAIN);
    Parsed p(image);
    EXPECT_EQ(p.file.sat_sids_lists[1], (sids_list{1, 3, ENDOFCHAIN}));
    EXPECT_EQ(p.file.sat_sids_lists[2], (sids_list{2, 3, ENDOFCHAIN}));
    EXPECT_EQ(p.file.sat_sids_lists[3], (sids_list{4, FREESECT}));
}

TEST(SatChains, ChainEndsWithAnIdOutsideTheTable) {
    Raw_Cfb image(8);
    image.single_sat(0);
    image.link(1, 128);
    image.link(2, 500);
    Parsed p(image);
    EXPECT_EQ(p.file.sat_sids_lists[1], (sids_list{1, 128}));
    EXPECT_EQ(p.file.sat_sids_lists[2], (sids_list{2, 500}));
}

TEST(SatChains, EmptyTableHasNoChains) {
    Parsed p(Raw_Cfb(4));
    EXPECT_TRUE(p.file.big_sids_array.empty());
    EXPECT_TRUE(p.file.sat_sids_lists.empty());
}

// A table where `head` starts a chain of `length` ids ending in ENDOFCHAIN, and 0 -> 1 -> END
// comes before it.
sids_array long_chain_table(uint32_t length) {
    const uint32_t head = 2;
    sids_array table(head + length + 2, FREESECT);
    table[0] = 1;
    table[1] = ENDOFCHAIN;
    for (uint32_t i = 0; i + 1 < length; ++i) table[head + i] = head + i + 1;
    table[head + length - 1] = ENDOFCHAIN;
    return table;
}

TEST(SatChains, ChainOf100001IdsIsKeptOneMoreIsDroppedAndEndsExtraction) {
    std::vector<Chain_Event> events;
    const auto record = [&](Chain_Event e) { events.push_back(e); };
    const sids_array kept_table = long_chain_table(100001);
    const std::vector<sids_list> kept = extract_sector_chains(kept_table, record);
    EXPECT_TRUE(events.empty());
    ASSERT_EQ(kept.size(), 4u);  // 0, the long one, and the two free ids after it
    EXPECT_EQ(kept[1].size(), 100002u);

    const sids_array long_table = long_chain_table(100002);
    const std::vector<sids_list> cut = extract_sector_chains(long_table, record);
    ASSERT_EQ(events, std::vector<Chain_Event>{Chain_Event::too_long});
    ASSERT_EQ(cut.size(), 1u);
    EXPECT_EQ(cut[0], (sids_list{0, 1, ENDOFCHAIN}));
}

TEST(SatChains, TooLongChainIsLoggedThroughTheParser) {
    // 782 SAT sectors (0..781) link every id to the next one: a single chain of 100,096 ids.
    // Sectors 782..787 are the DISAT that names the SAT sectors past the header's 109.
    constexpr uint32_t kSatSectors = 782;
    constexpr uint32_t kFirstDisat = 782;
    Raw_Cfb image(800);
    for (uint32_t s = 0; s < kSatSectors; ++s) {
        for (uint32_t i = 0; i < 128; ++i) image.entry(s, i, s * 128 + i + 1);
    }
    image.entry(kSatSectors - 1, 127, ENDOFCHAIN);
    for (uint32_t i = 0; i < 109; ++i) image.u32_at(test::kHdrDisat + 4 * i, i);
    for (uint32_t d = 0; d < 6; ++d) {
        image.fill(kFirstDisat + d, FREESECT);
        for (uint32_t k = 0; k < 127; ++k) {
            const uint32_t sat = 109 + 127 * d + k;
            if (sat < kSatSectors) image.entry(kFirstDisat + d, k, sat);
        }
        image.entry(kFirstDisat + d, 127, kFirstDisat + d + 1);
    }
    image.u32_at(test::kHdrFirstDisatSid, kFirstDisat);
    image.u32_at(test::kHdrNumDisatSecs, 6);
    Parsed p(image);
    EXPECT_EQ(p.file.big_sids_array.size(), kSatSectors * 128u);
    ASSERT_EQ(p.errors.size(), 1u);
    EXPECT_EQ(p.errors[0].rfind(kSource, 0), 0u) << p.errors[0];
    EXPECT_EQ(test::message_of(p.errors[0]), kTooLong);
    EXPECT_TRUE(p.file.sat_sids_lists.empty());
}

TEST(ChainWalk, FreeSectorIsKeptThenTheWalkEnds) {
    Raw_Cfb image(8);
    image.single_sat(0);
    image.link(7, FREESECT);
    Parsed p(image);
    EXPECT_EQ(p.file.get_sids_list(7), (sids_list{7, FREESECT, ENDOFCHAIN}));
}

TEST(ChainWalk, RingAndEndOfChainEndSilently) {
    Raw_Cfb image(8);
    image.single_sat(0);
    image.link(1, 2);
    image.link(2, 3);
    image.link(3, 1);
    image.link(4, ENDOFCHAIN);
    Parsed p(image);
    EXPECT_EQ(p.file.get_sids_list(1), (sids_list{1, 2, 3, ENDOFCHAIN}));
    EXPECT_EQ(p.file.get_sids_list(4), (sids_list{4, ENDOFCHAIN}));
}

TEST(ChainWalk, IdAtOrPastTheTableEndsTheWalk) {
    const sids_array table{1, 4, 0, 3};
    EXPECT_EQ(walk_sector_chain(table, 0), (sids_list{0, 1, 4, ENDOFCHAIN}));
    EXPECT_EQ(walk_sector_chain(table, 4), (sids_list{4, ENDOFCHAIN}));
    EXPECT_EQ(walk_sector_chain(table, 3), (sids_list{3, ENDOFCHAIN}));
    EXPECT_EQ(walk_sector_chain({}, 0), (sids_list{0, ENDOFCHAIN}));
}

TEST(ChainWalk, StopsAfter9999Links) {
    Cfb_File file(write_sample("walk.cfb", Raw_Cfb(2).bytes));
    file.big_sids_array.resize(20001);
    for (uint32_t i = 0; i < 20000; ++i) file.big_sids_array[i] = i + 1;
    file.big_sids_array[20000] = ENDOFCHAIN;
    const sids_list chain = file.get_sids_list(0);
    ASSERT_EQ(chain.size(), 10001u);
    EXPECT_EQ(chain[9999], 9999u);
    EXPECT_EQ(chain[10000], ENDOFCHAIN);
}

}  // namespace
}  // namespace vrk
