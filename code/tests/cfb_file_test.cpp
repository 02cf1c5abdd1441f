// The parsed compound file: construction, the header's fields and checks, the allocation
// tables' limits and log texts, the short-stream container, a directory record cut by the end
// of the file and the record texts. How tables, directory and container are read
// from random damaged images is held to the literal procedures in parse_equivalence_test.
#include "cfb_vornak/model/Cfb_File.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <tuple>

#include "cfb_vornak/format/Cfb_Header.h"
#include "cfb_vornak/model/Sector_Chains.h"
#include "cfb_vornak/model/Sids_Text.h"
#include "common/platform.h"
#include "support/cfb_patch.h"
#include "support/parse_samples.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

namespace off = test::offsets;
using test::Raw_Cfb;
using test::write_sample;

constexpr char kSource[] = "[code/src/cfb_vornak/Cfb_File:";

// Under 1024 bytes nothing is parsed, not even the header; max_sid counts whole sectors only;
// a missing file leaves by the door's failure.
TEST(CfbFileConstruction, SizesAndAMissingFile) {
    std::vector<uint8_t> bytes = Raw_Cfb(1).bytes;
    Cfb_File least(write_sample("min.cfb", bytes));
    EXPECT_EQ(least.object_state, Object_State::constructed);
    EXPECT_EQ(least.standard_header.magic, Cfb_Header::kSignature);
    bytes.resize(1023);
    const File_Description in = write_sample("short.cfb", bytes);
    EXPECT_EQ(Cfb_File(in).standard_header.magic, 0u);
    Cfb_File full(in, File_Description{});
    EXPECT_EQ(full.object_state, Object_State::too_small);
    EXPECT_EQ(full.header.magic, 0u);
    const std::tuple<uint32_t, uint32_t, uint64_t> sizes[] = {{1, 511, 0}, {2, 0, 1}, {7, 300, 6}};
    for (const auto& [sectors, tail, max_sid] : sizes) {
        EXPECT_EQ(Cfb_File(write_sample("size.cfb", Raw_Cfb(sectors, tail).bytes)).max_sid, max_sid)
            << sectors;
    }
    File_Description missing;
    missing.path_wstr = missing.open_path_wstr = platform::widen("no_such_file.cfb");
    EXPECT_THROW(Cfb_File file(missing), std::logic_error);
}

// Bytes 8..75 hold their own offsets, so every field has a value of its own: parsed, they
// encode back to the same bytes.
TEST(Header, ParsedFieldsEncodeBackToTheirBytes) {
    Raw_Cfb image(16);
    for (uint64_t i = 8; i < 76; ++i) image.u8_at(i, static_cast<uint8_t>(i));
    Cfb_File file(write_sample("fields.cfb", image.bytes));
    EXPECT_EQ(file.parse_header(), 0);
    const auto encoded = encode_header(file.header, {});
    EXPECT_TRUE(std::equal(encoded.begin(), encoded.begin() + 76, image.bytes.begin()));
    EXPECT_EQ(file.header.first_dir_sid, 0x33323130u);
    EXPECT_EQ(file.header.num_of_disat_secs, 0x4B4A4948u);
}

// The header of `image` checked; with `clear` the header DISAT member is overwritten after the
// parse, which the check must not consult (it reads the file again).
Error_Code validate(const Raw_Cfb& image, bool clear = false) {
    Cfb_File file(write_sample("header.cfb", image.bytes));
    file.parse_header();
    if (clear) file.header_disat.fill(ENDOFCHAIN);
    return file.validate_header();
}

TEST(Header, BoundsAreStrictEachWithItsOwnCodeAndTheFirstFailingTestDecides) {
    Raw_Cfb sound(16);  // max_sid 15
    sound.u32_at(off::kFirstDirSid, 1);
    EXPECT_EQ(validate(sound), ec::kSuccess);
    const std::pair<uint64_t, Error_Code> bounds[] = {
        {off::kNumDirSecs, ec::kNumDirSecs},
        {off::kNumSatSecs, ec::kNumSatSecs},
        {off::kFirstDirSid, ec::kFirstDirSid},
        {off::kFirstDisatSid, ec::kFirstDisatSid},
        {off::kNumDisatSecs, ec::kNumDisatSecs},
        {off::kHeaderDisat + 4 * 108, ec::kHeaderDisatSid}};
    for (const auto& [offset, code] : bounds) {
        Raw_Cfb image = sound;
        image.u32_at(offset, 15);
        EXPECT_EQ(validate(image), code) << offset;
        image.u32_at(offset, 14);
        EXPECT_EQ(validate(image, true), ec::kSuccess) << offset;
    }
    Raw_Cfb image = sound;
    image.u8_at(0, 0xD1);  // one byte of the signature
    EXPECT_EQ(validate(image), ec::kMagic);
    image = sound;
    image.u16_at(off::kMajorVersion, 4);
    image.u16_at(off::kSectorShift, 12);
    image.u32_at(off::kHeaderDisat, ENDOFCHAIN);
    EXPECT_EQ(validate(image), ec::kMajorVersion);
    image.u16_at(off::kMinorVersion, 0x0021);
    EXPECT_EQ(validate(image), ec::kMinorVersion);
}

// Parses the header, the DISAT and the SAT of `image`; `message` holds the messages of the
// error lines (each from the parser's source), one a line.
struct Parsed {
    explicit Parsed(const Raw_Cfb& image) : file(write_sample("tables.cfb", image.bytes)) {
        test::new_error_lines();
        file.parse_header();
        file.parse_disat();
        file.parse_sat_form_disat();
        for (const std::string& line : test::new_error_lines()) {
            EXPECT_EQ(line.rfind(kSource, 0), 0u) << line;
            message += test::message_of(line) + "\n";
        }
    }
    Cfb_File file;
    std::string message;
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
        EXPECT_EQ(p.message, count == 8 ? ""
                                        : "parse_disat stopped after 8 DISAT sectors, as many as "
                                          "the file has sectors; the header asks for " +
                                              std::to_string(count) + "\n");
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
        EXPECT_EQ(p.message, extra == 16 ? ""
                                         : "parse_sat_form_disat stopped after 125 SAT sectors, "
                                           "twice as many as the file has sectors\n");
    }
}

// Every SAT entry links to the next id, but for ENDOFCHAIN after 100,001 ids (a chain kept)
// and after 100,002 more (dropped and logged, and the extraction ends). The header names the
// first 109 SAT sectors, a chain of DISAT sectors after them the rest.
TEST(SatChains, AChainOf100001IdsIsKeptOneMoreIsDroppedAndLogged) {
    constexpr uint32_t kSatSectors = 1563;
    constexpr uint32_t kDisatSectors = 12;  // 1454 SAT sectors past the header's 109
    Raw_Cfb image(kSatSectors + kDisatSectors);
    for (uint32_t s = 0; s < kSatSectors; ++s) image.counting(s, s * 128 + 1);
    image.entry(100000 / 128, 100000 % 128, ENDOFCHAIN);
    image.entry(200002 / 128, 200002 % 128, ENDOFCHAIN);
    for (uint32_t i = 0; i < 109; ++i) image.u32_at(off::kHeaderDisat + 4 * i, i);
    for (uint32_t d = 0; d < kDisatSectors; ++d) {
        image.fill(kSatSectors + d, FREESECT);
        image.counting(kSatSectors + d, 109 + 127 * d, std::min(127u, kSatSectors - 109 - 127 * d));
        image.entry(kSatSectors + d, 127, kSatSectors + d + 1);
    }
    image.u32_at(off::kFirstDisatSid, kSatSectors);
    image.u32_at(off::kNumDisatSecs, kDisatSectors);
    const Parsed p(image);
    EXPECT_EQ(p.file.big_sids_array.size(), kSatSectors * 128u);
    EXPECT_EQ(p.message, "parse_sat_form_disat error~\n");
    EXPECT_EQ(p.file.sat_sids_lists, (std::vector<Chain_Extent>{{0, 100002}}));
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

// 8 sectors: SAT in 0, directory in 1 (root entry in slot 0, root stream in 2 -> 3). The
// container copies whole sectors, then the rest up to the stream size; a second extraction
// gives the same.
TEST(ShortStreamContainer, WholeSectorsThenTheRestUpToTheStreamSize) {
    Raw_Cfb image(8);
    image.single_sat(0);
    image.u32_at(off::kFirstDirSid, 1);
    image.link(1, ENDOFCHAIN);
    image.link(2, 3);
    image.link(3, ENDOFCHAIN);
    // {stream size, bytes copied, mini sectors declared, mini sectors whole inside the copy}
    const std::array<uint32_t, 4> cases[] = {
        {1000, 1000, 15, 15}, {0, 0, 0, 0}, {100, 100, 1, 1}, {4000, 1024, 62, 16}, {50, 50, 0, 0}};
    for (const auto& [size, copied, declared, whole] : cases) {
        image.directory_entry(1, 0, u"Root Entry", 5, 2, size);
        Cfb_File file(write_sample("c.cfb", image.bytes), File_Description{});
        ASSERT_EQ(file.short_stream_container.size(), copied) << size;
        EXPECT_EQ(file.mini_sector_count, declared);
        EXPECT_EQ(file.mini_sectors_in_container(), whole);
        EXPECT_EQ(file.extract_cfb_short_stream_container(file.root_entry), 0u);
        EXPECT_EQ(file.short_stream_container.size(), copied);
    }
}

TEST(Directory, EntryRunningPastTheEndKeepsTheFieldsBeforeIt) {
    Raw_Cfb image(2);
    for (uint64_t i = 0; i < 128; ++i) image.u8_at(1408 + i, 0x5A);
    Cfb_File file(write_sample("dirshort.cfb", image.bytes));
    Directory_Entry record;  // creation_time crosses the end
    const std::string text =
        test::thrown([&] { file.read_a_directory_entry(file.file_size - 100, record); });
    EXPECT_NE(text.find("the offset [" + std::to_string(file.file_size) + "]is  out of  range"),
              std::string::npos)
        << text;
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
