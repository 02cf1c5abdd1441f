// The fast table and directory readers against the literal byte-wise procedures, on built
// files and on randomly damaged ones: the same results, the same error lines, the same failure
// text.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <stdexcept>

#include "cfb_vornak/builder/Cfb_Builder.h"
#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/model/Sector_Chains.h"
#include "support/cfb_patch.h"
#include "support/literal_procedures.h"
#include "support/parse_samples.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

using test::Literal_Parse;
namespace off = test::offsets;

struct Random_Image {
    uint32_t pick(uint32_t low, uint32_t high) {
        return std::uniform_int_distribution<uint32_t>(low, high)(rng);
    }

    // A sector id as damaged tables hold them: ids inside the file, markers, and at
    // `past_per_mille` ids past the end of the file (which fail as SAT sector ids).
    sid_t sid(uint32_t sectors, uint32_t past_per_mille) {
        if (pick(0, 999) < past_per_mille) {
            const sid_t past[] = {pick(sectors, sectors + 3), pick(sectors, 300), 0xFFFFFFFBu,
                                  pick(0, 0xFFFFFFFFu)};
            return past[pick(0, 3)];
        }
        return pick(0, 1) != 0 ? pick(0, sectors - 1) : 0xFFFFFFFCu + pick(0, 3);
    }

    std::vector<uint8_t> raw_image() {
        const uint32_t sectors = pick(2, 40);
        const uint32_t bad = std::array<uint32_t, 4>{0, 0, 3, 100}[pick(0, 3)];
        test::Raw_Cfb image(sectors, pick(0, 2) == 0 ? pick(1, 511) : 0);
        for (sid_t s = 0; s < sectors; ++s) {
            for (uint32_t i = 0; i < 128; ++i) image.entry(s, i, sid(sectors, bad));
        }
        const uint8_t types[] = {0, 1, 2, 5, 5, 7, 200};
        for (uint32_t n = pick(0, 3); n > 0; --n) {
            image.directory_entry(pick(0, sectors - 1), pick(0, 3), u"Root Entry",
                                  types[pick(0, 6)], sid(sectors, bad),
                                  pick(0, 3) == 0 ? pick(0, 0xFFFFFFFFu) : pick(0, 6000));
        }
        for (uint32_t i = 0, n = pick(0, 5); i < n; ++i) {
            image.u32_at(off::kHeaderDisat + 4 * i,
                         pick(0, 9) == 0 ? sid(sectors, 300) : pick(0, sectors - 1));
        }
        if (pick(0, 4) == 0) image.u32_at(off::kHeaderDisat + 4 * pick(0, 108), ENDOFCHAIN);
        const uint32_t disat_counts[] = {0, 0, 1, 2, 3, sectors, sectors + 1, 0xFFFFFFFFu};
        image.u32_at(off::kNumDisatSecs, disat_counts[pick(0, 7)]);
        image.u32_at(off::kFirstDisatSid, sid(sectors, bad));
        image.u32_at(off::kFirstMinisatSid, sid(sectors, bad));
        image.u32_at(off::kNumMinisatSecs, pick(0, 5) == 0 ? 0xFFFFFFFFu : pick(0, 4));
        image.u32_at(off::kFirstDirSid, sid(sectors, bad));
        if (pick(0, 9) == 0) image.u16_at(off::kSectorShift, static_cast<uint16_t>(pick(0, 40)));
        if (pick(0, 19) == 0) {
            // Huge sectors whose wrapped offsets repeat: the container reaches the file size.
            image.u16_at(off::kSectorShift, static_cast<uint16_t>(pick(28, 31)));
            image.directory_entry(0, 0, u"Root Entry", 5, pick(0, sectors - 1), pick(0, 1u << 20));
            image.u32_at(off::kFirstDirSid, 0);
        }
        if (pick(0, 9) == 0)
            image.u16_at(off::kMiniSectorShift, static_cast<uint16_t>(pick(0, 40)));
        return image.bytes;
    }

    // Built files under the damage real files show: random words, headers whose sector or
    // mini sector size is not the file's, a header DISAT entry naming the last sector (whose
    // data then stands for the SAT), files cut anywhere, the container cut away included.
    std::vector<uint8_t> damaged_built_image() {
        Cfb_Fs_Item_DirNode root;
        for (uint32_t n = pick(1, 6); n > 0; --n) {
            root.add_stream(std::u16string(u"s") + static_cast<char16_t>(u'a' + n),
                            test::random_bytes(pick(0, 9000), pick(0, 0xFFFFFFFFu)));
        }
        if (pick(0, 1) != 0) {
            root.add_storage(u"store").add_stream(u"inner", std::vector<uint8_t>(pick(0, 6000), 7));
        }
        std::vector<uint8_t> bytes = build_compound_file(root);
        const auto sectors = static_cast<uint32_t>(bytes.size() / 512 - 1);
        for (uint32_t n = pick(0, 6); n > 0; --n) {
            test::patch_u32(bytes,
                            4 * uint64_t{pick(0, static_cast<uint32_t>(bytes.size() / 4 - 1))},
                            sid(sectors, 100));
        }
        if (pick(0, 4) == 0) {
            // Version 4's 4096-byte sectors over a file of 512-byte sectors, or any shift.
            if (pick(0, 1) != 0) test::patch_u16(bytes, off::kMajorVersion, 4);
            test::patch_u16(bytes, off::kSectorShift,
                            static_cast<uint16_t>(pick(0, 2) != 0 ? 12 : pick(0, 40)));
        }
        if (pick(0, 4) == 0) {
            test::patch_u16(bytes, off::kMiniSectorShift,
                            static_cast<uint16_t>(pick(0, 2) != 0 ? 7 : pick(0, 40)));
        }
        if (pick(0, 6) == 0)
            test::patch_u32(bytes, off::kHeaderDisat + 4 * pick(0, 1), sectors - 1);
        const uint32_t cut = pick(0, 5);
        if (cut == 0) bytes.resize(bytes.size() - pick(1, 700));
        if (cut == 1) bytes.resize(pick(1024, static_cast<uint32_t>(bytes.size())));
        return bytes;
    }

    std::mt19937 rng;
};

void check_case(const std::vector<uint8_t>& bytes, const std::string& label) {
    if (bytes.size() < 1024) return;
    const File_Description in = test::write_sample("equivalence.cfb", bytes);
    Cfb_File literal_file(in);
    literal_file.parse_header();
    const Literal_Parse l = test::literal_parse(literal_file);

    // The steps of the full parse after the header, on a light object.
    Cfb_File fast(in);
    fast.parse_header();
    test::new_error_lines();
    const std::string thrown = test::thrown([&] {
        fast.parse_disat();
        fast.parse_sat_form_disat();
        fast.parse_minisat();
        fast.parse_directory_entrys();
        const auto& entries = fast.directory_entrys;
        const auto root = std::find_if(entries.begin(), entries.end(),
                                       [](const Directory_Entry& e) { return e.object_type == 5; });
        fast.extract_cfb_short_stream_container(root == entries.end() ? Directory_Entry{} : *root);
    });
    std::vector<std::string> errors;
    for (const std::string& line : test::new_error_lines())
        errors.push_back(test::message_of(line));
    ASSERT_EQ(thrown, l.thrown) << label;
    ASSERT_EQ(errors, l.errors) << label;
    ASSERT_EQ(test::parse_difference(fast, l), "") << label;

    // The full constructor runs the same steps (and the tree) with the same outcome.
    const std::string full_thrown = test::thrown([&] {
        Cfb_File full(in, File_Description{});
        EXPECT_EQ(test::parse_difference(full, l), "") << label << " (full)";
        EXPECT_EQ(full.object_state, Object_State::parsed);
    });
    EXPECT_EQ(full_thrown, l.thrown) << label << " (full)";

    // Single chains from every start the parser could be asked for.
    for (sid_t start = 0; start < fast.max_sid + 2; ++start) {
        ASSERT_EQ(fast.get_sids_list(start), test::literal_walk(l.big_sids_array, start))
            << label << " start " << start;
    }
}

TEST(ParseEquivalence, RandomlyDamagedRawAndBuiltImages) {
    Random_Image random{std::mt19937(20241123)};
    for (int i = 0; i < 700 && !HasFatalFailure(); ++i)
        check_case(random.raw_image(), "raw " + std::to_string(i));
    Random_Image built{std::mt19937(777)};
    for (int i = 0; i < 400 && !HasFatalFailure(); ++i) {
        check_case(built.damaged_built_image(), "built " + std::to_string(i));
    }
}

}  // namespace
}  // namespace vrk
