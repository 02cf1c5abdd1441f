// The damage probe's passes against their literal byte-wise forms, and the scan's rules.
#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <stdexcept>
#include <string>

#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/probe/Root_Signature_Search.h"
#include "common/platform.h"
#include "support/cfb_patch.h"
#include "support/literal_probe.h"
#include "support/probe_samples.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

using test::build_sample;
using test::patch_u16;
using test::patch_u32;
using test::Sample_File;
using test::Sample_Kind;

File_Description describe(const std::filesystem::path& path) {
    const std::wstring wide = platform::from_path(path);
    return {wide, wide, platform::to_utf8(wide)};
}

// The fast scan and the literal one on the same file: the same verdict, the same records,
// or the same failure text.
void expect_scan_matches_literal(const std::filesystem::path& path, const std::string& what) {
    SCOPED_TRACE(what);
    Cfb_File fast(describe(path));
    Cfb_File slow(describe(path));
    std::string fast_failure;
    std::string slow_failure;
    uint32_t fast_result = 0;
    test::Literal_Scan_Result literal;
    try {
        fast_result = fast.find_root_entry_by_scan();
    } catch (const std::logic_error& failure) {
        fast_failure = failure.what();
    }
    try {
        literal = test::literal_root_entry_scan(slow);
    } catch (const std::logic_error& failure) {
        slow_failure = failure.what();
    }
    ASSERT_EQ(fast_failure, slow_failure);
    if (!fast_failure.empty()) return;
    ASSERT_EQ(fast_result, literal.result);
    EXPECT_TRUE(test::same_layout(fast.scanned_directory_layout, literal.layout));
    EXPECT_EQ(fast.mini_sector_count, literal.mini_sector_count);
    if (literal.result == 0) {
        EXPECT_TRUE(test::same_entry(fast.root_entry, literal.root));
    }
}

// The classification reads the file once (name search and slot test together); it must
// decide as the literal search followed by the door's scan does, failures included.
void expect_classification_matches_separate_passes(const std::filesystem::path& path) {
    const File_Description input = describe(path);
    std::string fused_failure;
    std::string separate_failure;
    Error_Code fused = -1;
    Error_Code separate = -1;
    try {
        fused = Cfb_File::get_cfb_file_damaged_type(input);
    } catch (const std::logic_error& failure) {
        fused_failure = failure.what();
    }
    try {
        if (test::literal_root_signature_search(input.open_path_wstr)) {
            Cfb_File file(input);
            separate = Cfb_File::check_cfb_core(file);
        } else {
            separate = ec::kNotCfb;
        }
    } catch (const std::logic_error& failure) {
        separate_failure = failure.what();
    }
    EXPECT_EQ(fused_failure, separate_failure);
    EXPECT_EQ(fused, separate);
}

class Probe : public ::testing::Test {
  protected:
    std::filesystem::path save(const Sample_File& sample, const std::string& name = "s.doc") {
        sample.write(folder / name);
        return folder / name;
    }
    std::filesystem::path save(const std::vector<uint8_t>& bytes, const std::string& name) {
        return save(Sample_File{bytes, {}}, name);
    }

    test::Temp_Folder folder{"probe"};
};

TEST_F(Probe, SignatureSearchMatchesLiteralOnJunk) {
    std::mt19937 random(7);
    // Junk made of the signature's own bytes, with whole and cut-off signatures planted,
    // so that near misses are frequent.
    const uint8_t alphabet[] = {0x00, 0x52, 0x6F, 0x74, 0x20, 0x45, 0x6E, 0x72, 0x79, 0xFF};
    for (int round = 0; round < 150; ++round) {
        std::vector<uint8_t> bytes(random() % 2500);
        for (auto& b : bytes) b = alphabet[random() % sizeof(alphabet)];
        if (round < 3) {  // empty, a lone signature, a signature one byte short
            bytes.assign(kRootEntrySignature.begin(), kRootEntrySignature.end() - (round == 2));
            if (round == 0) bytes.clear();
        } else if (!bytes.empty() && random() % 2 == 0) {
            const std::size_t keep = 18 + random() % 5;  // 22 is a whole signature
            const std::size_t at = random() % bytes.size();
            for (std::size_t i = 0; i < keep && at + i < bytes.size(); ++i) {
                bytes[at + i] = kRootEntrySignature[i];
            }
        }
        const auto path = save(bytes, "junk.bin");
        const File_Description input = describe(path);
        ASSERT_EQ(Cfb_File::search_root_entry_signature(input),
                  test::literal_root_signature_search(input.open_path_wstr))
            << "round " << round;
    }
    EXPECT_FALSE(Cfb_File::search_root_entry_signature(describe(folder / "missing.doc")));
}

TEST(Signature_Memory, EveryPlacementAndZeroRuns) {
    // The search probes one byte pair in twenty: a signature at every offset of a buffer,
    // over zeros (where pairs of the signature abound) and over other bytes.
    for (const uint8_t fill : {uint8_t{0}, uint8_t{0x52}, uint8_t{0xA5}}) {
        for (std::size_t size = 0; size < 70; ++size) {
            for (std::size_t at = 0; at + kRootEntrySignature.size() <= size; ++at) {
                std::vector<uint8_t> bytes(size, fill);
                std::copy(kRootEntrySignature.begin(), kRootEntrySignature.end(),
                          bytes.begin() + static_cast<std::ptrdiff_t>(at));
                ASSERT_TRUE(contains_root_entry_signature(bytes.data(), bytes.size()))
                    << size << " " << at;
                bytes[at + 10] = 0x46;
                ASSERT_FALSE(contains_root_entry_signature(bytes.data(), bytes.size()))
                    << size << " " << at;
            }
        }
    }
}

TEST(Signature_Stream, FindsMatchesAcrossBlockBorders) {
    const std::size_t block = std::size_t{1} << 20;
    for (const std::size_t at :
         {block - 22, block - 21, block - 11, block - 1, block, 2 * block - 5, 3 * block - 22}) {
        std::string bytes(3 * block, '\0');
        std::copy(kRootEntrySignature.begin(), kRootEntrySignature.end(), bytes.begin() + at);
        std::istringstream whole(bytes);
        EXPECT_TRUE(stream_holds_root_entry_signature(whole)) << at;
        bytes[at + 21] = 'x';
        std::istringstream broken(bytes);
        EXPECT_FALSE(stream_holds_root_entry_signature(broken)) << at;
    }
    std::istringstream empty;
    EXPECT_FALSE(stream_holds_root_entry_signature(empty));
}

TEST_F(Probe, ScanMatchesLiteralOnRandomlyDamagedFiles) {
    std::mt19937 random(11);
    for (int round = 0; round < 40; ++round) {
        Sample_File sample = build_sample(static_cast<Sample_Kind>(round % 4), round);
        const auto& dir = sample.layout.directory_sids;
        const int damages = 1 + static_cast<int>(random() % 6);
        for (int d = 0; d < damages; ++d) {
            const uint32_t did = random() % (4 * dir.size());
            const uint64_t entry = test::directory_entry_offset(sample.layout, did);
            switch (random() % 7) {
                case 0:  // a second root storage somewhere in the directory
                    sample.bytes[entry + 66] = 5;
                    break;
                case 1:  // a name length that may or may not fit the name
                    patch_u16(sample.bytes, entry + 64, static_cast<uint16_t>(random() % 70));
                    break;
                case 2:  // a link out of range, or exactly at the limit
                    patch_u32(sample.bytes, entry + 68 + 4 * (random() % 3),
                              random() % 2 ? 10000u : 10001u + random() % 5);
                    break;
                case 3:  // a stream size around the cutoff with a far start
                    patch_u32(sample.bytes, entry + 120, 4094 + random() % 4);
                    patch_u32(sample.bytes, entry + 116, random() % 200);
                    break;
                case 4: {  // a copy of an entry in some sector far from the directory
                    const uint64_t to =
                        512 + 128 * (random() % ((sample.bytes.size() - 512) / 128));
                    std::copy_n(sample.bytes.begin() + static_cast<std::ptrdiff_t>(entry), 128,
                                sample.bytes.begin() + static_cast<std::ptrdiff_t>(to));
                    break;
                }
                case 5:  // a stray byte in a name's tail
                    sample.bytes[entry + 40 + random() % 24] = 0x41;
                    break;
                default:  // cut the file short, sometimes below two sectors
                    sample.bytes.resize(random() % 3 == 0
                                            ? 512 + random() % 512
                                            : 1024 + random() % (sample.bytes.size() - 1024));
                    break;
            }
            if (sample.bytes.size() < 1024) break;
        }
        const auto path = save(sample, "damaged.doc");
        expect_scan_matches_literal(path, "round " + std::to_string(round));
        expect_classification_matches_separate_passes(path);
    }
}

TEST_F(Probe, ScanMatchesLiteralOnJunk) {
    std::mt19937 random(5);
    for (int round = 0; round < 30; ++round) {
        std::vector<uint8_t> bytes(1024 + random() % 6000);
        for (auto& b : bytes) b = static_cast<uint8_t>(random() % 3 == 0 ? random() : 0);
        // Plant records that pass the name and link tests, some of them root storages.
        for (int k = 0; k < 8; ++k) {
            const std::size_t at = 512 + 128 * (random() % ((bytes.size() - 512) / 128));
            std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), 64, 0);
            bytes[at] = 0x41;
            bytes[at + 64] = 2;
            bytes[at + 65] = 0;
            bytes[at + 66] = static_cast<uint8_t>(random() % 2 ? 5 : 2);
            for (int link = 0; link < 3; ++link) {
                std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(at + 68 + 4 * link), 4,
                            0xFF);
            }
        }
        const auto path = save(bytes, "junk.doc");
        expect_scan_matches_literal(path, "round " + std::to_string(round));
        expect_classification_matches_separate_passes(path);
    }
}

TEST_F(Probe, PlausibilityMatchesLiteral) {
    Sample_File sample = build_sample(Sample_Kind::word);
    Cfb_File file(describe(save(sample)));
    std::mt19937 random(3);
    const uint32_t ids[] = {0, 10000, 10001, 0xFFFFFFFE, 0xFFFFFFFF};
    const auto edge = [&](uint64_t around) {
        return static_cast<uint32_t>(around - 1 + random() % 3);
    };
    for (int round = 0; round < 2000; ++round) {
        Directory_Entry record;
        record.name_valid_size = static_cast<uint16_t>(random() % 67);
        for (std::size_t i = 0; i < record.name.size(); ++i) {
            record.name[i] = random() % 8 == 0 ? 0x41 : 0;
        }
        record.left_sibling_id = ids[random() % 5];
        record.right_sibling_id = ids[random() % 5];
        record.child_id = ids[random() % 5];
        record.stream_size = random() % 2 ? edge(4096) : edge(file.file_size - 512);
        record.start_sid = static_cast<uint32_t>(edge(file.max_sid));
        ASSERT_EQ(file.is_plausible_directory_entry(record), test::literal_plausible(file, record))
            << "round " << round;
    }
}

TEST_F(Probe, ShortFilesFailAtTheFirstByteBeyondTheEnd) {
    // Under 1024 bytes max_sid is 0, and the four slots of sector 0 need bytes up to 1019.
    for (const std::size_t size : {513u, 700u, 1000u, 1019u, 1020u, 1023u}) {
        std::vector<uint8_t> bytes(size, 0);
        std::copy(kRootEntrySignature.begin(), kRootEntrySignature.end(), bytes.begin());
        if (size > 640) {  // a root storage record in slot 0
            std::copy(kRootEntrySignature.begin(), kRootEntrySignature.end(), bytes.begin() + 512);
            bytes[512 + 64] = 22;
            bytes[512 + 66] = 5;
        }
        const auto path = save(bytes, "short.doc");
        expect_scan_matches_literal(path, "size " + std::to_string(size));
        if (size < 1020) {
            EXPECT_THROW((void)Cfb_File::get_cfb_file_damaged_type(describe(path)),
                         std::logic_error);
        }
    }
}

TEST_F(Probe, CoreStreamRules) {
    // A small stream starting past the container's estimated mini sectors is left out; exactly
    // 4096 bytes counts as large.
    Sample_File sample = build_sample(Sample_Kind::word);
    const uint64_t table = sample.entry_of(u"1Table");
    patch_u32(sample.bytes, table + 116, 4000);
    EXPECT_EQ(Cfb_File::get_cfb_file_damaged_type(describe(save(sample))), ec::kCoreLost);
    patch_u32(sample.bytes, table + 120, 4096);
    patch_u32(sample.bytes, table + 116, 3);
    EXPECT_EQ(Cfb_File::get_cfb_file_damaged_type(describe(save(sample))), ec::kSuccess);

    // The stated name length is not consulted for the kind.
    Sample_File sheet = build_sample(Sample_Kind::sheet);
    patch_u16(sheet.bytes, sheet.entry_of(u"Workbook") + 64, 64);
    Cfb_File file(describe(save(sheet, "s.xls")));
    EXPECT_EQ(Cfb_File::check_cfb_core(file), ec::kSuccess);
    EXPECT_EQ(file.document_kind, Document_Kind::spreadsheet);
}

}  // namespace
}  // namespace vrk
