#include <gtest/gtest.h>

#include <stdexcept>

#include "cfb_vornak/Cfb_File.h"
#include "cfb_vornak/Sids_Text.h"
#include "support/cfb_patch.h"
#include "support/parse_samples.h"

namespace vrk {
namespace {

namespace off = test::offsets;
using test::Raw_Cfb;
using test::write_sample;

// 8 sectors: SAT in 0, a directory chain of `chain` starting at its first id.
Raw_Cfb directory_image(const std::vector<sid_t>& chain) {
    Raw_Cfb image(8);
    image.single_sat(0);
    image.u32_at(off::kFirstDirSid, chain.front());
    for (std::size_t i = 0; i + 1 < chain.size(); ++i) image.link(chain[i], chain[i + 1]);
    if (chain.back() <= 7) image.link(chain.back(), ENDOFCHAIN);
    return image;
}

TEST(Directory, ThreeSectorsGiveTwelveRecordsInDidOrder) {
    Raw_Cfb image = directory_image({3, 1, 6});
    image.directory_entry(3, 0, u"Root Entry", 5, ENDOFCHAIN, 0, 1);
    image.directory_entry(1, 2, u"x", 2, 0, 10);
    Cfb_File file(write_sample("dir3.cfb", image.bytes), File_Description{});
    EXPECT_EQ(file.directory_entrys_sids_list, (sids_list{3, 1, 6, ENDOFCHAIN}));
    ASSERT_EQ(file.directory_entrys.size(), 12u);
    for (uint32_t did = 0; did < 12; ++did) EXPECT_EQ(file.directory_entrys[did].did, did);
    EXPECT_EQ(file.directory_entrys[6].name_units(), u"x");
    EXPECT_EQ(file.directory_entrys[6].stream_size, 10u);
    ASSERT_EQ(file.directory_entry_layout_dicts.size(), 3u);
    EXPECT_EQ(file.directory_entry_layout_dicts.at(1)[2].did, 6u);
    EXPECT_EQ(file.root_entry.did, 0u);
}

TEST(Directory, ChainsThatStopTheReading) {
    Raw_Cfb past = directory_image({2, 50});  // a sector past the end
    past.link(50, ENDOFCHAIN);
    Cfb_File after_past(write_sample("dirpast.cfb", past.bytes), File_Description{});
    EXPECT_EQ(after_past.directory_entrys_sids_list, (sids_list{2, 50, ENDOFCHAIN}));
    EXPECT_EQ(after_past.directory_entrys.size(), 4u);

    Raw_Cfb free_sector = directory_image({2});
    free_sector.link(2, FREESECT);
    Cfb_File after_free(write_sample("dirfree.cfb", free_sector.bytes), File_Description{});
    EXPECT_EQ(after_free.directory_entrys_sids_list, (sids_list{2, FREESECT, ENDOFCHAIN}));
    EXPECT_EQ(after_free.directory_entrys.size(), 4u);

    for (const sid_t first : {ENDOFCHAIN, FATSECT, sid_t{8}, sid_t{0xFFFFFFFB}}) {
        Raw_Cfb image = directory_image({2});
        image.u32_at(off::kFirstDirSid, first);
        Cfb_File file(write_sample("dirempty.cfb", image.bytes), File_Description{});
        EXPECT_TRUE(file.directory_entrys.empty()) << first;
        EXPECT_TRUE(file.directory_entrys_sids_list.empty()) << first;
    }
}

TEST(Directory, EveryFieldIsReadAndTheSizeHighHalfIgnored) {
    Raw_Cfb image = directory_image({2});
    const uint64_t at = 3 * 512 + 128;  // sector 2, slot 1
    for (uint64_t i = 0; i < 128; ++i) image.u8_at(at + i, static_cast<uint8_t>(i + 1));
    image.u32_at(at + 120, 0x00001000);
    image.u32_at(at + 124, 0x00000001);  // version 4 high half
    Cfb_File file(write_sample("dirfields.cfb", image.bytes), File_Description{});
    ASSERT_EQ(file.directory_entrys.size(), 4u);
    const Directory_Entry& e = file.directory_entrys[1];
    EXPECT_EQ(e.name[63], 64);
    EXPECT_EQ(e.name_valid_size, 65 + 256 * 66);
    EXPECT_EQ(e.object_type, 67);
    EXPECT_EQ(e.color_flag, 68);
    EXPECT_EQ(e.left_sibling_id, 0x48474645u);
    EXPECT_EQ(e.right_sibling_id, 0x4C4B4A49u);
    EXPECT_EQ(e.child_id, 0x504F4E4Du);
    EXPECT_EQ(e.clsid[15], 96);
    EXPECT_EQ(e.state_bits, (std::array<uint8_t, 4>{97, 98, 99, 100}));
    EXPECT_EQ(e.creation_time[0], 101);
    EXPECT_EQ(e.modified_time[7], 116);
    EXPECT_EQ(e.start_sid, 0x78777675u);
    EXPECT_EQ(e.stream_size, 4096u);
}

TEST(Directory, EntryRunningPastTheEndKeepsTheFieldsBeforeIt) {
    Raw_Cfb image(2);
    for (uint64_t i = 0; i < 128; ++i) image.u8_at(1408 + i, 0x5A);
    Cfb_File file(write_sample("dirshort.cfb", image.bytes));
    Directory_Entry record;
    try {
        file.read_a_directory_entry(file.file_size - 100, record);  // creation_time crosses
        ADD_FAILURE() << "no failure";
    } catch (const std::logic_error& failure) {
        EXPECT_NE(std::string(failure.what())
                      .find("the offset [" + std::to_string(file.file_size) + "]is  out of  range"),
                  std::string::npos)
            << failure.what();
    }
    EXPECT_EQ(record.state_bits, (std::array<uint8_t, 4>{0x5A, 0x5A, 0x5A, 0x5A}));
    EXPECT_EQ(record.creation_time, (std::array<uint8_t, 8>{}));

    Directory_Entry name_only;
    EXPECT_THROW(file.read_a_directory_entry(file.file_size - 10, name_only), std::logic_error);
    EXPECT_EQ(name_only.name[9], 0x5A);  // the name's bytes inside the file are kept
    EXPECT_EQ(name_only.name[10], 0);
    EXPECT_EQ(file.read_a_directory_entry(file.file_size - 124, record), 0);
}

TEST(DirectoryTexts, TypesColoursNamesAndChains) {
    const std::pair<uint8_t, const char*> types[] = {
        {0, "UNKNOWN_OR_UNALLOCATED"}, {1, "STORAGE"},      {2, "STREAM"},
        {5, "ROOT_STORAGE"},           {7, "未知的数值-7"}, {200, "未知的数值--56"}};
    for (const auto& [type, text] : types) EXPECT_EQ(object_type_text(type), text);
    const std::pair<uint8_t, const char*> colours[] = {
        {0, "RED"}, {1, "BLACK"}, {2, "未知的颜色-2"}, {255, "未知的颜色--1"}};
    for (const auto& [colour, text] : colours) EXPECT_EQ(color_flag_text(colour), text);

    Directory_Entry e;
    for (std::size_t i = 0; i < 64; i += 2) e.name[i] = 'a';
    EXPECT_EQ(e.name_units(), std::u16string(32, u'a'));
    e.name[4] = 0;
    e.name[5] = 0x4E;  // U+4E00: a unit with a zero low byte is no terminator
    e.name[6] = 0;
    e.name[7] = 0;
    EXPECT_EQ(e.name_units(), (std::u16string{u'a', u'a', u'\u4E00'}));

    const std::string head = "------------------------print_sids_list：\n[";
    EXPECT_EQ(print_sids_list({3, 1, ENDOFCHAIN}), head + "3->1->4294967294 ]\n");
    EXPECT_EQ(print_sids_list({}), head);
}

}  // namespace
}  // namespace vrk
