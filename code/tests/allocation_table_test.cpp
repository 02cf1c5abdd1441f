// The allocation tables' limits and log texts. How the tables are read from random damaged
// images is held to the literal walks in parse_equivalence_test.
#include <gtest/gtest.h>

#include <stdexcept>

#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/model/Sector_Chains.h"
#include "support/cfb_patch.h"
#include "support/parse_samples.h"

namespace vrk {
namespace {

namespace off = test::offsets;
using test::Raw_Cfb;
using test::write_sample;

constexpr char kSource[] = "[code/src/cfb_vornak/Cfb_File:";

// Parses the header, the DISAT and the SAT of `image`.
struct Parsed {
    explicit Parsed(const Raw_Cfb& image) : file(write_sample("tables.cfb", image.bytes)) {
        test::new_error_lines();
        file.parse_header();
        file.parse_disat();
        file.parse_sat_form_disat();
        errors = test::new_error_lines();
    }
    // The one error line, from the parser's source, and its message.
    std::string only_message() const {
        EXPECT_EQ(errors.size(), 1u);
        if (errors.size() != 1) return {};
        EXPECT_EQ(errors[0].rfind(kSource, 0), 0u) << errors[0];
        return test::message_of(errors[0]);
    }
    Cfb_File file;
    std::vector<std::string> errors;
};

TEST(Disat, RingIsReadAsManyTimesAsTheFileHasSectorsAndALargerCountLogged) {
    for (const uint32_t count : {8u, 9u, 0xFFFFFFFFu}) {
        Raw_Cfb image(8);
        image.fill(3, FREESECT);
        image.entry(3, 127, 3);
        image.u32_at(off::kFirstDisatSid, 3);
        image.u32_at(off::kNumDisatSecs, count);
        const Parsed p(image);
        EXPECT_EQ(p.file.disat_sids, sids_array(8, 3));
        if (count == 8) {
            EXPECT_TRUE(p.errors.empty());
            continue;
        }
        EXPECT_EQ(p.only_message(),
                  "parse_disat stopped after 8 DISAT sectors, as many as the "
                  "file has sectors; the header asks for " +
                      std::to_string(count));
    }
}

TEST(Sat, SectorIdsWrapAt32Bits) {
    EXPECT_EQ(Cfb_File::sector_offset(0), 512u);
    EXPECT_EQ(Cfb_File::sector_offset(0x007FFFFF), 0u);
    EXPECT_EQ(Cfb_File::sector_offset(0xFFFFFFFB), 0xFFFFF800u);
    // 0x00800000 reads the bytes of sector 0.
    Raw_Cfb image(4);
    image.fill(0, 9);
    image.u32_at(off::kHeaderDisat, 0x00800000);
    Parsed p(image);
    EXPECT_EQ(p.file.sat_sector_dicts, (std::vector<Table_Sector>{{0x00800000, 128, 0}}));
    EXPECT_EQ(p.file.big_sids_array, sids_array(128, 9));
}

TEST(Sat, SectorsPastTheSafetyBoundAreCutAndLogged) {
    // Sector 0 named 109 times in the header and `extra` times in DISAT sector 1;
    // the file has 8 sectors, so at most 2 * 8 + 109 SAT sectors are read.
    for (const uint32_t extra : {16u, 127u}) {
        Raw_Cfb image(8);
        for (uint64_t i = 0; i < 109; ++i) image.u32_at(off::kHeaderDisat + 4 * i, 0);
        image.fill(0, FREESECT);
        image.fill(1, FREESECT);
        for (uint32_t i = 0; i < extra; ++i) image.entry(1, i, 0);
        image.u32_at(off::kFirstDisatSid, 1);
        image.u32_at(off::kNumDisatSecs, 1);
        const Parsed p(image);
        EXPECT_EQ(p.file.big_sids_array.size(), 125u * 128);
        if (extra == 16) {
            EXPECT_TRUE(p.errors.empty());
            continue;
        }
        EXPECT_EQ(p.only_message(),
                  "parse_sat_form_disat stopped after 125 SAT sectors, twice as "
                  "many as the file has sectors");
    }
}

// A table where 0 -> 1 -> END comes first, then a chain of `length` ids from 2.
sids_array long_chain_table(uint32_t length) {
    sids_array table(length + 4, FREESECT);
    table[0] = 1;
    table[1] = ENDOFCHAIN;
    for (uint32_t i = 0; i + 1 < length; ++i) table[2 + i] = 3 + i;
    table[1 + length] = ENDOFCHAIN;
    return table;
}

TEST(SatChains, ChainOf100001IdsIsKeptOneMoreIsDroppedAndEndsExtraction) {
    std::vector<Chain_Event> events;
    const auto record = [&](Chain_Event e) { events.push_back(e); };
    const std::vector<Chain_Extent> kept = extract_sector_chains(long_chain_table(100001), record);
    EXPECT_TRUE(events.empty());
    ASSERT_EQ(kept.size(), 4u);  // 0, the long one, and the two free ids after it
    EXPECT_EQ(kept[1], (Chain_Extent{2, 100002}));
    const std::vector<Chain_Extent> cut = extract_sector_chains(long_chain_table(100002), record);
    ASSERT_EQ(events, std::vector<Chain_Event>{Chain_Event::too_long});
    EXPECT_EQ(cut, (std::vector<Chain_Extent>{{0, 3}}));
}

TEST(SatChains, RingAndTooLongChainAreLoggedThroughTheParser) {
    {  // closed before the next image is written: Windows keeps an open file's name
        Raw_Cfb ring(8);
        ring.single_sat(0);
        ring.link(2, 3);
        ring.link(3, 4);
        ring.link(4, 3);
        const Parsed with_ring(ring);
        EXPECT_EQ(with_ring.only_message(), "parse_sat_form_disat have ring~");
        for (const Chain_Extent& chain : with_ring.file.sat_sids_lists) EXPECT_NE(chain.head, 2u);
    }

    // 782 SAT sectors (0..781) link every id to the next one: a single chain of 100,096 ids.
    // Sectors 782..787 are the DISAT that names the SAT sectors past the header's 109.
    constexpr uint32_t kSatSectors = 782;
    Raw_Cfb image(800);
    for (uint32_t s = 0; s < kSatSectors; ++s) {
        for (uint32_t i = 0; i < 128; ++i) image.entry(s, i, s * 128 + i + 1);
    }
    image.entry(kSatSectors - 1, 127, ENDOFCHAIN);
    for (uint32_t i = 0; i < 109; ++i) image.u32_at(off::kHeaderDisat + 4 * i, i);
    for (uint32_t d = 0; d < 6; ++d) {
        image.fill(kSatSectors + d, FREESECT);
        for (uint32_t k = 0; k < 127 && 109 + 127 * d + k < kSatSectors; ++k) {
            image.entry(kSatSectors + d, k, 109 + 127 * d + k);
        }
        image.entry(kSatSectors + d, 127, kSatSectors + d + 1);
    }
    image.u32_at(off::kFirstDisatSid, kSatSectors);
    image.u32_at(off::kNumDisatSecs, 6);
    const Parsed p(image);
    EXPECT_EQ(p.file.big_sids_array.size(), kSatSectors * 128u);
    EXPECT_EQ(p.only_message(), "parse_sat_form_disat error~");
    EXPECT_TRUE(p.file.sat_sids_lists.empty());
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
