// The MiniSAT run, its ring messages and the short-stream container's results. Both are read
// from random damaged images against the literal walk in parse_equivalence_test.
#include <gtest/gtest.h>

#include <stdexcept>

#include "cfb_vornak/model/Cfb_File.h"
#include "support/cfb_patch.h"
#include "support/parse_samples.h"

namespace vrk {
namespace {

namespace off = test::offsets;
using test::Raw_Cfb;
using test::write_sample;

// 8 sectors: SAT in 0, directory in 1 (root entry in slot 0, root stream in 2 -> 3), sectors
// 2 and 3 filled with 0xA2 and 0xA3.
Raw_Cfb container_image(uint32_t root_size) {
    Raw_Cfb image(8);
    image.single_sat(0);
    image.u32_at(off::kFirstDirSid, 1);
    image.link(1, ENDOFCHAIN);
    image.link(2, 3);
    image.link(3, ENDOFCHAIN);
    image.directory_entry(1, 0, u"Root Entry", 5, 2, root_size);
    image.fill(2, 0xA2A2A2A2u);
    image.fill(3, 0xA3A3A3A3u);
    return image;
}

TEST(Minisat, SectorsAreAContiguousRunNotTheChainEndingAtTheLastWholeSector) {
    Raw_Cfb image(48);
    image.single_sat(0);
    image.link(10, 40);
    image.link(40, ENDOFCHAIN);
    image.fill(10, 1);
    image.fill(11, 2);
    image.u32_at(off::kFirstMinisatSid, 10);
    image.u32_at(off::kNumMinisatSecs, 2);
    Cfb_File file(write_sample("run.cfb", image.bytes), File_Description{});
    EXPECT_EQ(file.minisat_sector_dicts, (std::vector<Table_Sector>{{10, 128, 0}, {11, 128, 128}}));

    // {first sector, count} of an 8-sector file with a partial ninth: the MiniSAT entries read.
    Raw_Cfb partial(8, 200);
    const std::pair<sid_t, uint32_t> runs[] = {{6, 5}, {8, 5}, {2, 0}, {ENDOFCHAIN, 3}};
    for (const auto& [first, count] : runs) {
        partial.u32_at(off::kFirstMinisatSid, first);
        partial.u32_at(off::kNumMinisatSecs, count);
        test::new_error_lines();
        Cfb_File run(write_sample("runend.cfb", partial.bytes), File_Description{});
        EXPECT_EQ(run.minisat_big_sids_array.size(), first == 6 ? 256u : 0u) << first;
        if (first == ENDOFCHAIN) {
            EXPECT_TRUE(test::new_error_lines().empty());
        }
    }
}

TEST(Minisat, MiniChainsAndTheirRingsAreLoggedFromTheirOwnLines) {
    Raw_Cfb image(8);
    image.single_sat(0);
    image.link(1, 2);  // SAT ring entered from 1
    image.link(2, 3);
    image.link(3, 2);
    image.fill(5, FREESECT);
    image.entry(5, 0, 1);
    image.entry(5, 1, ENDOFCHAIN);
    image.entry(5, 2, 3);  // closed mini ring 2 <-> 3
    image.entry(5, 3, 2);
    image.entry(5, 4, 5);  // mini ring 5 <-> 6 entered from 4
    image.entry(5, 5, 6);
    image.entry(5, 6, 5);
    image.u32_at(off::kFirstMinisatSid, 5);
    image.u32_at(off::kNumMinisatSecs, 1);
    test::new_error_lines();
    Cfb_File file(write_sample("minichains.cfb", image.bytes), File_Description{});
    const std::vector<std::string> errors = test::new_error_lines();
    ASSERT_EQ(errors.size(), 2u);
    EXPECT_EQ(test::message_of(errors[0]), "parse_sat_form_disat have ring~");
    EXPECT_EQ(test::message_of(errors[1]), "parse_sat_form_disat have ring~");
    EXPECT_EQ(errors[1].rfind("[code/src/cfb_vornak/Cfb_File:", 0), 0u) << errors[1];
    EXPECT_NE(errors[0], errors[1]);  // same text, other source line

    ASSERT_EQ(file.minisat_sids_lists.size(), 122u);              // heads 0, 7..127 kept; 4 dropped
    EXPECT_EQ(file.minisat_sids_lists[0], (Chain_Extent{0, 3}));  // 0, 1, ENDOFCHAIN
    EXPECT_EQ(file.minisat_sids_lists[1], (Chain_Extent{7, 2}));  // 7, FREESECT
}

TEST(ShortStreamContainer, CopiesWholeSectorsThenTheRestUpToTheStreamSize) {
    struct Case {
        uint32_t root_size;
        std::size_t copied;                   // sectors 2 and 3 hold 1024 bytes
        uint64_t mini_sectors, in_container;  // declared, and whole inside the copy
    };
    for (const Case c : {Case{1000, 1000, 15, 15}, Case{0, 0, 0, 0}, Case{100, 100, 1, 1},
                         Case{4000, 1024, 62, 16}, Case{50, 50, 0, 0}}) {
        Cfb_File file(write_sample("c.cfb", container_image(c.root_size).bytes),
                      File_Description{});
        ASSERT_EQ(file.short_stream_container.size(), c.copied) << c.root_size;
        for (std::size_t i = 0; i < c.copied; ++i) {
            ASSERT_EQ(file.short_stream_container[i], i < 512 ? 0xA2 : 0xA3) << i;
        }
        EXPECT_EQ(file.mini_sector_count, c.mini_sectors);
        EXPECT_EQ(file.mini_sectors_in_container(), c.in_container);
        EXPECT_EQ(file.extract_cfb_short_stream_container(file.root_entry), 0u);
        EXPECT_EQ(file.short_stream_container.size(), c.copied);
    }
}

TEST(ShortStreamContainer, OnlyARootEntryWithAUsableStartIsExtracted) {
    Cfb_File file(write_sample("cnot.cfb", container_image(1000).bytes), File_Description{});
    Directory_Entry entry = file.root_entry;
    entry.object_type = 2;
    EXPECT_EQ(file.extract_cfb_short_stream_container(entry), 0xFFFFFFFFu);
    entry.object_type = 5;
    entry.start_sid = ENDOFCHAIN;
    EXPECT_EQ(file.extract_cfb_short_stream_container(entry), 0xFFFFFFFFu);
    entry.start_sid = 8;  // max_sid is 7
    EXPECT_EQ(file.extract_cfb_short_stream_container(entry), 0xFFFFFFFFu);
    // The earlier container is left as it was by these refusals.
    EXPECT_EQ(file.short_stream_container.size(), 1000u);
}

}  // namespace
}  // namespace vrk
