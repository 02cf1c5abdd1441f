#include <gtest/gtest.h>

#include <stdexcept>

#include "cfb_vornak/Cfb_File.h"
#include "support/parse_samples.h"

namespace vrk {
namespace {

using test::Raw_Cfb;
using test::write_sample;

// 8 sectors: SAT in 0, a directory chain of `chain` starting at its first id.
Raw_Cfb directory_image(const std::vector<sid_t>& chain) {
    Raw_Cfb image(8);
    image.single_sat(0);
    image.u32_at(test::kHdrFirstDirSid, chain.front());
    for (std::size_t i = 0; i + 1 < chain.size(); ++i) image.link(chain[i], chain[i + 1]);
    if (chain.back() <= 7) image.link(chain.back(), ENDOFCHAIN);
    return image;
}

TEST(Directory, ThreeSectorsGiveTwelveRecordsInDidOrder) {
    Raw_Cfb image = directory_image({3, 1, 6});
    image.directory_entry(3, 0, u"Root Entry", 5, ENDOFCHAIN, 0, 1);
    image.directory_entry(1, 2, u"x", 2, 0, 10);
    image.directory_entry(6, 3, u"last", 1, ENDOFCHAIN, 0);
    Cfb_File file(write_sample("dir3.cfb", image.bytes), File_Description{});
    EXPECT_EQ(file.directory_entrys_sids_list, (sids_list{3, 1, 6, ENDOFCHAIN}));
    ASSERT_EQ(file.directory_entrys.size(), 12u);
    for (uint32_t did = 0; did < 12; ++did) EXPECT_EQ(file.directory_entrys[did].did, did);
    EXPECT_EQ(file.directory_entrys[0].name_units(), u"Root Entry");
    EXPECT_EQ(file.directory_entrys[6].name_units(), u"x");
    EXPECT_EQ(file.directory_entrys[6].stream_size, 10u);
    EXPECT_EQ(file.directory_entrys[11].name_units(), u"last");
    ASSERT_EQ(file.directory_entry_layout_dicts.size(), 3u);
    for (const auto& [sid, records] : file.directory_entry_layout_dicts) {
        EXPECT_EQ(records.size(), 4u) << sid;
    }
    EXPECT_EQ(file.directory_entry_layout_dicts.at(1)[2].did, 6u);
    EXPECT_EQ(file.directory_entry_layout_dicts.at(6)[3].did, 11u);
    EXPECT_EQ(file.root_entry.did, 0u);
}

TEST(Directory, SectorPastTheEndStopsTheReading) {
    Raw_Cfb image = directory_image({2, 50});
    image.link(50, ENDOFCHAIN);
    Cfb_File file(write_sample("dirpast.cfb", image.bytes), File_Description{});
    EXPECT_EQ(file.directory_entrys_sids_list, (sids_list{2, 50, ENDOFCHAIN}));
    EXPECT_EQ(file.directory_entrys.size(), 4u);
    EXPECT_EQ(file.directory_entry_layout_dicts.size(), 1u);
}

TEST(Directory, FreeSectorInTheChainStopsTheReading) {
    Raw_Cfb image = directory_image({2});
    image.link(2, FREESECT);
    Cfb_File file(write_sample("dirfree.cfb", image.bytes), File_Description{});
    EXPECT_EQ(file.directory_entrys_sids_list, (sids_list{2, FREESECT, ENDOFCHAIN}));
    EXPECT_EQ(file.directory_entrys.size(), 4u);
}

TEST(Directory, UnusableFirstSectorLeavesTheDirectoryEmpty) {
    for (const sid_t first : {ENDOFCHAIN, FATSECT, sid_t{8}, sid_t{0xFFFFFFFB}}) {
        Raw_Cfb image = directory_image({2});
        image.u32_at(test::kHdrFirstDirSid, first);
        Cfb_File file(write_sample("dirempty.cfb", image.bytes), File_Description{});
        EXPECT_TRUE(file.directory_entrys.empty()) << first;
        EXPECT_TRUE(file.directory_entrys_sids_list.empty()) << first;
        EXPECT_TRUE(file.short_stream_container.empty());
    }
}

TEST(Directory, EveryFieldIsReadAndTheSizeHighHalfIgnored) {
    Raw_Cfb image = directory_image({2});
    const uint64_t at = 3 * 512 + 128;  // sector 2, slot 1
    for (uint64_t i = 0; i < 128; ++i) image.u8_at(at + i, static_cast<uint8_t>(i + 1));
    // Version 4 size: low half 0x1000, high half 1.
    image.u32_at(at + 120, 0x00001000);
    image.u32_at(at + 124, 0x00000001);
    Cfb_File file(write_sample("dirfields.cfb", image.bytes), File_Description{});
    ASSERT_EQ(file.directory_entrys.size(), 4u);
    const Directory_Entry& e = file.directory_entrys[1];
    EXPECT_EQ(e.name[0], 1);
    EXPECT_EQ(e.name[63], 64);
    EXPECT_EQ(e.name_valid_size, 65 + 256 * 66);
    EXPECT_EQ(e.object_type, 67);
    EXPECT_EQ(e.color_flag, 68);
    EXPECT_EQ(e.left_sibling_id, 0x48474645u);
    EXPECT_EQ(e.right_sibling_id, 0x4C4B4A49u);
    EXPECT_EQ(e.child_id, 0x504F4E4Du);
    EXPECT_EQ(e.clsid[0], 81);
    EXPECT_EQ(e.clsid[15], 96);
    EXPECT_EQ(e.state_bits, (std::array<uint8_t, 4>{97, 98, 99, 100}));
    EXPECT_EQ(e.creation_time[0], 101);
    EXPECT_EQ(e.modified_time[7], 116);
    EXPECT_EQ(e.start_sid, 0x78777675u);
    EXPECT_EQ(e.stream_size, 4096u);
    EXPECT_EQ(e.did, 1u);
}

TEST(Directory, EntryRunningPastTheEndKeepsTheFieldsBeforeIt) {
    Raw_Cfb image(2);
    for (uint64_t i = 0; i < 128; ++i) image.u8_at(1408 + i, 0x5A);
    Cfb_File file(write_sample("dirshort.cfb", image.bytes));
    Directory_Entry record;
    const uint64_t offset = file.file_size - 100;  // creation_time (100..107) crosses the end
    try {
        file.read_a_directory_entry(offset, record);
        ADD_FAILURE() << "no failure";
    } catch (const std::logic_error& failure) {
        EXPECT_NE(std::string(failure.what())
                      .find("the offset [" + std::to_string(file.file_size) + "]is  out of  range"),
                  std::string::npos)
            << failure.what();
    }
    EXPECT_EQ(record.state_bits, (std::array<uint8_t, 4>{0x5A, 0x5A, 0x5A, 0x5A}));
    EXPECT_EQ(record.creation_time, (std::array<uint8_t, 8>{}));
    EXPECT_EQ(record.start_sid, 0u);

    Directory_Entry name_only;
    try {
        file.read_a_directory_entry(file.file_size - 10, name_only);
        ADD_FAILURE() << "no failure";
    } catch (const std::logic_error&) {
    }
    EXPECT_EQ(name_only.name[9], 0x5A);  // the name's bytes inside the file are kept
    EXPECT_EQ(name_only.name[10], 0);
    EXPECT_EQ(name_only.name_valid_size, 0);

    EXPECT_EQ(file.read_a_directory_entry(file.file_size - 124, record), 0);
}

TEST(DirectoryTexts, ObjectTypes) {
    EXPECT_EQ(object_type_text(0), "UNKNOWN_OR_UNALLOCATED");
    EXPECT_EQ(object_type_text(1), "STORAGE");
    EXPECT_EQ(object_type_text(2), "STREAM");
    EXPECT_EQ(object_type_text(5), "ROOT_STORAGE");
    EXPECT_EQ(object_type_text(7), "未知的数值-7");
    EXPECT_EQ(object_type_text(200), "未知的数值--56");
}

TEST(DirectoryTexts, Colours) {
    EXPECT_EQ(color_flag_text(0), "RED");
    EXPECT_EQ(color_flag_text(1), "BLACK");
    EXPECT_EQ(color_flag_text(2), "未知的颜色-2");
    EXPECT_EQ(color_flag_text(255), "未知的颜色--1");
}

TEST(DirectoryTexts, NameUnitsEndAtTheFirstZeroUnit) {
    Directory_Entry e;
    EXPECT_EQ(e.name_units(), u"");
    for (std::size_t i = 0; i < 64; i += 2) e.name[i] = 'a';
    EXPECT_EQ(e.name_units(), std::u16string(32, u'a'));
    e.name[4] = 0;
    e.name[5] = 0x4E;  // U+4E00: a unit with a zero low byte is no terminator
    e.name[6] = 0;
    e.name[7] = 0;
    EXPECT_EQ(e.name_units(), (std::u16string{u'a', u'a', u'\u4E00'}));
}

}  // namespace
}  // namespace vrk
