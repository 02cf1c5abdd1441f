#include "cfb_vornak/model/Cfb_File.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "cfb_vornak/builder/Cfb_Builder.h"
#include "common/byte_order.h"
#include "common/platform.h"
#include "support/cfb_patch.h"
#include "support/header_damage.h"
#include "support/parse_samples.h"

namespace vrk {
namespace {

namespace off = test::offsets;
using test::Raw_Cfb;
using test::write_sample;

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

TEST(CfbFileConstruction, FullConstructorParsesABuiltFile) {
    Cfb_Fs_Item_DirNode root;
    root.add_stream(u"small", std::vector<uint8_t>(1000, 0x11));
    root.add_storage(u"store").add_stream(u"big", std::vector<uint8_t>(5000, 0x22));
    Cfb_File file(write_sample("built.cfb", build_compound_file(root)), File_Description{});
    EXPECT_EQ(file.object_state, Object_State::parsed);
    EXPECT_EQ(file.validate_header(), ec::kSuccess);
    EXPECT_EQ(file.root_entry.name_units(), u"Root Entry");
    ASSERT_EQ(file.short_stream_container.size(), 1024u);
    EXPECT_EQ(file.short_stream_container[999], 0x11);
    ASSERT_NE(file.cfb_directory_tree, nullptr);
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
    for (uint64_t i = 8; i < 24; ++i) image.u8_at(i, static_cast<uint8_t>(i));
    image.u16_at(off::kMiniSectorShift, 7);
    image.u16_at(34, 0xBEEF);
    image.u32_at(36, 0x04030201);
    image.u32_at(off::kNumDirSecs, 2);
    image.u32_at(off::kNumSatSecs, 3);
    image.u32_at(off::kFirstDirSid, 4);
    image.u32_at(52, 0x08070605);
    image.u32_at(off::kFirstMinisatSid, 5);
    image.u32_at(off::kNumMinisatSecs, 6);
    image.u32_at(off::kFirstDisatSid, 7);
    image.u32_at(off::kNumDisatSecs, 8);
    Cfb_File file(write_sample("fields.cfb", image.bytes));
    EXPECT_EQ(file.parse_header(), 0);
    const Cfb_Header& h = file.header;
    EXPECT_EQ(h.magic, Cfb_Header::kSignature);
    EXPECT_EQ(h.file_id[0], 8);
    EXPECT_EQ(h.file_id[15], 23);
    EXPECT_EQ(h.minor_version_value(), 0x003E);
    EXPECT_EQ(h.major_version_value(), 3);
    EXPECT_EQ(h.endian_value(), 0xFFFE);
    EXPECT_EQ(h.sector_shift, 9);
    EXPECT_EQ(h.mini_sector_shift, 7);
    EXPECT_EQ(h.reserved_word, 0xBEEF);
    EXPECT_EQ(h.reserved_dword, (std::array<uint8_t, 4>{1, 2, 3, 4}));
    EXPECT_EQ(h.num_of_dir_secs, 2u);
    EXPECT_EQ(h.num_of_sat_secs, 3u);
    EXPECT_EQ(h.first_dir_sid, 4u);
    EXPECT_EQ(h.transaction_sign_num, (std::array<uint8_t, 4>{5, 6, 7, 8}));
    EXPECT_EQ(h.mini_stream_cutoff_size, 4096u);
    EXPECT_EQ(h.first_minisat_sid, 5u);
    EXPECT_EQ(h.num_of_minisat_secs, 6u);
    EXPECT_EQ(h.first_disat_sid, 7u);
    EXPECT_EQ(h.num_of_disat_secs, 8u);
}

TEST_F(HeaderValidation, EachFieldFailsWithItsOwnCodeAndBoundsAreStrict) {
    const std::vector<uint8_t> sound = image.bytes;
    EXPECT_EQ(validate(), ec::kSuccess);
    for (const test::Header_Damage& row : test::kHeaderDamage) {
        image.bytes = test::damaged(sound, row);
        EXPECT_EQ(validate(), row.code) << "offset " << row.offset << " value " << row.value;
    }
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

}  // namespace
}  // namespace vrk
