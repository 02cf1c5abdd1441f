// A directory record cut by the end of the file, and the record texts. Reading the directory
// of random damaged images is held to the literal walk in parse_equivalence_test.
#include <gtest/gtest.h>

#include <stdexcept>

#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/model/Sids_Text.h"
#include "support/parse_samples.h"

namespace vrk {
namespace {

using test::Raw_Cfb;
using test::write_sample;

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
