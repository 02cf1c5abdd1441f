// The parsed compound file: construction, the header's fields and checks, the allocation
// tables' limits and log texts, the MiniSAT run, the short-stream container, a directory record
// cut by the end of the file and the record texts. How tables, directory and container are read
// from random damaged images is held to the literal procedures in parse_equivalence_test.
#include "cfb_vornak/model/Cfb_File.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "cfb_vornak/model/Sector_Chains.h"
#include "cfb_vornak/model/Sids_Text.h"
#include "common/byte_order.h"
#include "common/platform.h"
#include "support/cfb_patch.h"
#include "support/parse_samples.h"

namespace vrk {
namespace {

namespace off = test::offsets;
using test::Raw_Cfb;
using test::write_sample;

constexpr char kSource[] = "[code/src/cfb_vornak/Cfb_File:";

TEST(CfbFileConstruction, FilesUnder1024BytesAreNotParsed) {
    std::vector<uint8_t> bytes = Raw_Cfb(1).bytes;
    const File_Description least = write_sample("min.cfb", bytes);
    Cfb_File file(least);
    EXPECT_EQ(file.object_state, Object_State::constructed);
    EXPECT_EQ(file.max_sid, 0u);
    EXPECT_EQ(file.standard_header.magic, Cfb_Header::kSignature);
    EXPECT_EQ(file.parse_header(), 0);
    EXPECT_EQ(file.validate_header(), ec::kNumDirSecs);

    bytes.resize(1023);
    const File_Description in = write_sample("short.cfb", bytes);
    Cfb_File light(in);
    EXPECT_EQ(light.object_state, Object_State::too_small);
    EXPECT_EQ(light.file_size, 1023u);
    EXPECT_EQ(light.standard_header.magic, 0u);
    Cfb_File full(in, File_Description{});
    EXPECT_EQ(full.object_state, Object_State::too_small);
    EXPECT_EQ(full.header.magic, 0u);  // not even the header was read
}

TEST(CfbFileConstruction, MaxSidCountsWholeSectorsOnly) {
    struct Case {
        uint32_t sectors, tail;
        uint64_t max_sid;
    };
    for (const Case c : {Case{1, 511, 0}, Case{2, 0, 1}, Case{7, 300, 6}}) {
        Cfb_File file(write_sample("size.cfb", Raw_Cfb(c.sectors, c.tail).bytes));
        EXPECT_EQ(file.max_sid, c.max_sid) << c.sectors << "+" << c.tail;
    }
}

TEST(CfbFileConstruction, MissingFileLeavesByTheDoorsFailure) {
    File_Description in;
    in.path_wstr = in.open_path_wstr = platform::widen("no_such_file.cfb");
    EXPECT_THROW(Cfb_File file(in), std::logic_error);
}

// A header that passes every check in a file of 16 sectors (max_sid 15).
class HeaderValidation : public ::testing::Test {
  protected:
    Error_Code validate() {
        Cfb_File file(write_sample("header.cfb", image.bytes));
        file.parse_header();
        return file.validate_header();
    }
    void SetUp() override { image.u32_at(off::kFirstDirSid, 1); }
    Raw_Cfb image{16};
};

TEST_F(HeaderValidation, ParseHeaderReadsEveryField) {
    // Bytes 8..75 hold their own offsets, so every field has a value of its own.
    for (uint64_t i = 8; i < 76; ++i) image.u8_at(i, static_cast<uint8_t>(i));
    Cfb_File file(write_sample("fields.cfb", image.bytes));
    EXPECT_EQ(file.parse_header(), 0);
    const Cfb_Header& h = file.header;
    EXPECT_EQ(h.magic, Cfb_Header::kSignature);
    EXPECT_EQ(h.file_id[0] + 256 * h.file_id[15], 0x1708);
    const std::pair<uint32_t, uint32_t> fields[] = {
        {h.minor_version_value(), 0x1918},
        {h.major_version_value(), 0x1B1A},
        {h.endian_value(), 0x1D1C},
        {h.sector_shift, 0x1F1E},
        {h.mini_sector_shift, 0x2120},
        {h.reserved_word, 0x2322},
        {read_u32_le(h.reserved_dword.data()), 0x27262524},
        {h.num_of_dir_secs, 0x2B2A2928},
        {h.num_of_sat_secs, 0x2F2E2D2C},
        {h.first_dir_sid, 0x33323130},
        {read_u32_le(h.transaction_sign_num.data()), 0x37363534},
        {h.mini_stream_cutoff_size, 0x3B3A3938},
        {h.first_minisat_sid, 0x3F3E3D3C},
        {h.num_of_minisat_secs, 0x43424140},
        {h.first_disat_sid, 0x47464544},
        {h.num_of_disat_secs, 0x4B4A4948}};
    for (std::size_t i = 0; i < std::size(fields); ++i)
        EXPECT_EQ(fields[i].first, fields[i].second) << i;
}

TEST_F(HeaderValidation, BoundsAreStrictEachWithItsOwnCode) {
    const std::vector<uint8_t> sound = image.bytes;
    EXPECT_EQ(validate(), ec::kSuccess);
    // Against max_sid 15: 15 fails and 14 passes; the header DISAT is read from the file again,
    // not taken from the member.
    const std::pair<uint64_t, Error_Code> bounds[] = {
        {off::kNumDirSecs, ec::kNumDirSecs},
        {off::kNumSatSecs, ec::kNumSatSecs},
        {off::kFirstDirSid, ec::kFirstDirSid},
        {off::kFirstDisatSid, ec::kFirstDisatSid},
        {off::kNumDisatSecs, ec::kNumDisatSecs},
        {off::kHeaderDisat + 4 * 108, ec::kHeaderDisatSid}};
    for (const auto& [offset, code] : bounds) {
        image.bytes = sound;
        image.u32_at(offset, 15);
        EXPECT_EQ(validate(), code) << offset;
        image.u32_at(offset, 14);
        Cfb_File file(write_sample("header.cfb", image.bytes));
        file.parse_header();
        file.header_disat.fill(ENDOFCHAIN);
        EXPECT_EQ(file.validate_header(), ec::kSuccess) << offset;
    }
    image.bytes = sound;
    image.u8_at(0, 0xD1);  // one byte of the signature
    EXPECT_EQ(validate(), ec::kMagic);
}

TEST_F(HeaderValidation, FirstFailingTestDecides) {
    image.u16_at(off::kMajorVersion, 4);
    image.u16_at(off::kSectorShift, 12);
    image.u32_at(off::kHeaderDisat, ENDOFCHAIN);
    EXPECT_EQ(validate(), ec::kMajorVersion);
    image.u16_at(off::kMinorVersion, 0x0021);
    EXPECT_EQ(validate(), ec::kMinorVersion);
}

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

TEST(SatChains, TooLongChainIsLoggedThroughTheParser) {
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
    EXPECT_EQ(errors[1].rfind(kSource, 0), 0u) << errors[1];
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
