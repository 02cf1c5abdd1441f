// The damage probe's passes against their literal byte-wise forms (the slot scan of a large
// file, whose upper half is scanned on a second thread, included), and the scan's rules.
#include <gtest/gtest.h>

#include <random>
#include <sstream>
#include <stdexcept>
#include <string>

#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/probe/Root_Signature_Search.h"
#include "common/platform.h"
#include "support/analysis_samples.h"
#include "support/cfb_patch.h"
#include "support/literal_procedures.h"
#include "support/probe_samples.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

using test::build_sample;
using test::Sample_File;
using test::Sample_Kind;

// The fast passes and the literal ones on the file `bytes` (the slot scans up to `scan_limit`).
void expect_probe_matches_literal(const std::vector<uint8_t>& bytes, const std::string& what,
                                  uint64_t scan_limit = uint64_t{1} << 20) {
    test::Temp_Folder folder("probe");
    Sample_File{bytes, {}}.write(folder / "s.doc");
    const File_Description input = test::describe(platform::from_path(folder / "s.doc"));
    EXPECT_EQ(test::probe_difference(input, bytes.data(), bytes.size(), scan_limit), "") << what;
}

// A record that passes the slot test: name "A" (`name_size` 1 or 2), no links, of `type`.
void plant_record(std::vector<uint8_t>& bytes, uint64_t slot, uint8_t type, uint8_t name_size = 2) {
    const auto at = bytes.begin() + static_cast<std::ptrdiff_t>(slot);
    std::fill_n(at, 128, 0);
    at[0] = 0x41;
    at[64] = name_size;
    at[66] = type;
    std::fill_n(at + 68, 12, 0xFF);
}

// Built documents under random damage, and junk made of the signature's own bytes and zeros
// with whole and cut-off signatures and plausible records (some of them root storages)
// planted, so that near misses are frequent.
TEST(Probe, MatchesLiteralOnDamagedFilesAndJunk) {
    std::mt19937 random(11);
    for (int round = 0; round < 80; ++round) {
        Sample_File sample = build_sample(static_cast<Sample_Kind>(round % 4), round);
        auto& bytes = sample.bytes;
        const auto& dir = sample.layout.directory_sids;
        for (int d = 1 + static_cast<int>(random() % 6); round % 2 == 0 && d > 0; --d) {
            const uint64_t entry =
                test::directory_entry_offset(sample.layout, random() % (4 * dir.size()));
            // A second root storage; a name length that may or may not fit; a link out of range
            // or exactly at the limit; a size around the cutoff with a far start; a copy of an
            // entry far from the directory; a stray byte in a name's tail.
            const auto kind = random() % 6;
            if (kind == 0) bytes[entry + 66] = 5;
            if (kind == 1) test::patch_u16(bytes, entry + 64, static_cast<uint16_t>(random() % 70));
            if (kind == 2) {
                test::patch_u32(bytes, entry + 68 + 4 * (random() % 3),
                                random() % 2 ? 10000u : 10001u + random() % 5);
            }
            if (kind == 3) test::patch_u32(bytes, entry + 120, 4094 + random() % 4);
            if (kind == 3) test::patch_u32(bytes, entry + 116, random() % 200);
            const std::size_t far = 512 + 128 * (random() % ((bytes.size() - 512) / 128));
            if (kind == 4) std::copy_n(&bytes[entry], 128, &bytes[far]);
            if (kind == 5) bytes[entry + 40 + random() % 24] = 0x41;
        }
        if (round % 2 != 0) {
            const uint8_t alphabet[] = {0x00, 0x52, 0x6F, 0x74, 0x20, 0x45, 0x6E, 0x72, 0x79, 0xFF};
            bytes.resize(random() % 2 ? 1024 + random() % 6000 : random() % 1100);
            for (auto& b : bytes) b = random() % 3 == 0 ? alphabet[random() % 10] : 0;
            const std::size_t keep = 18 + random() % 5;  // 22 is a whole signature
            const std::size_t at = bytes.empty() ? 0 : random() % bytes.size();
            for (std::size_t i = 0; i < keep && at + i < bytes.size(); ++i)
                bytes[at + i] = kRootEntrySignature[i];
            for (int k = 0; k < 8 && bytes.size() >= 1024; ++k) {
                plant_record(bytes, 512 + 128 * (random() % ((bytes.size() - 512) / 128)),
                             random() % 2 ? 5 : 2, static_cast<uint8_t>(1 + random() % 2));
            }
        } else if (random() % 3 == 0) {  // cut short, sometimes below two sectors
            bytes.resize(random() % 3 == 0 ? 512 + random() % 512
                                           : 1024 + random() % (bytes.size() - 1024));
        }
        expect_probe_matches_literal(bytes, "round " + std::to_string(round));
    }
    // Empty, a lone signature, one byte short; under 1024 bytes (max_sid 0) the four slots of
    // sector 0 need bytes up to 1019 (a root storage record in slot 0 from 700 bytes on).
    const std::vector<uint8_t> lone(kRootEntrySignature.begin(), kRootEntrySignature.end());
    expect_probe_matches_literal({}, "empty");
    expect_probe_matches_literal(lone, "lone");
    expect_probe_matches_literal({lone.begin(), lone.end() - 1}, "short");
    for (const std::size_t size : {513u, 700u, 1019u, 1020u, 1023u}) {
        std::vector<uint8_t> bytes = lone;
        bytes.resize(size);
        if (size >= 700) plant_record(bytes, 512, 5);
        expect_probe_matches_literal(bytes, "size " + std::to_string(size));
    }
    EXPECT_FALSE(Cfb_File::search_root_entry_signature(test::describe(L"missing.doc")));
}

TEST(Probe, SignatureAtEveryPlacementAndAcrossBlockBorders) {
    // The search probes one byte pair in twenty: a signature at every offset of a buffer,
    // over zeros (where pairs of the signature abound) and over other bytes.
    for (const uint8_t fill : {uint8_t{0}, uint8_t{0x52}, uint8_t{0xA5}}) {
        for (std::size_t size = 0; size < 70; ++size) {
            for (std::size_t at = 0; at + kRootEntrySignature.size() <= size; ++at) {
                std::vector<uint8_t> bytes(size, fill);
                std::copy(kRootEntrySignature.begin(), kRootEntrySignature.end(),
                          bytes.begin() + static_cast<std::ptrdiff_t>(at));
                ASSERT_TRUE(contains_root_entry_signature(bytes.data(), size)) << size << " " << at;
                bytes[at + 10] = 0x46;
                ASSERT_FALSE(contains_root_entry_signature(bytes.data(), size))
                    << size << " " << at;
            }
        }
    }
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

TEST(Probe, PlausibilityMatchesLiteral) {
    test::Temp_Folder folder("plausible");
    build_sample(Sample_Kind::word).write(folder / "s.doc");
    Cfb_File file(test::describe(platform::from_path(folder / "s.doc")));
    std::mt19937 random(3);
    const uint32_t ids[] = {0, 10000, 10001, 0xFFFFFFFE, 0xFFFFFFFF};
    const auto edge = [&](uint64_t around) {
        return static_cast<uint32_t>(around - 1 + random() % 3);
    };
    for (int round = 0; round < 2000; ++round) {
        Directory_Entry record;
        record.name_valid_size = static_cast<uint16_t>(random() % 67);
        for (auto& byte : record.name) byte = random() % 8 == 0 ? 0x41 : 0;
        record.left_sibling_id = ids[random() % 5];
        record.right_sibling_id = ids[random() % 5];
        record.child_id = ids[random() % 5];
        record.stream_size = random() % 2 ? edge(4096) : edge(file.file_size - 512);
        record.start_sid = edge(file.max_sid);
        ASSERT_EQ(file.is_plausible_directory_entry(record), test::literal_plausible(file, record))
            << "round " << round;
    }
}

TEST(Probe, CoreStreamRules) {
    test::Temp_Folder folder("core");
    const auto damage_type = [&](const Sample_File& sample, const char* name) {
        sample.write(folder / name);
        return Cfb_File::get_cfb_file_damaged_type(
            test::describe(platform::from_path(folder / name)));
    };
    // A small stream starting past the container's estimated mini sectors is left out; exactly
    // 4096 bytes counts as large.
    Sample_File sample = build_sample(Sample_Kind::word);
    const uint64_t table = sample.entry_of(u"1Table");
    test::patch_u32(sample.bytes, table + 116, 4000);
    EXPECT_EQ(damage_type(sample, "a.doc"), ec::kCoreLost);
    test::patch_u32(sample.bytes, table + 120, 4096);
    test::patch_u32(sample.bytes, table + 116, 3);
    EXPECT_EQ(damage_type(sample, "b.doc"), ec::kSuccess);

    // The stated name length is not consulted for the kind.
    Sample_File sheet = build_sample(Sample_Kind::sheet);
    test::patch_u16(sheet.bytes, sheet.entry_of(u"Workbook") + 64, 64);
    sheet.write(folder / "s.xls");
    Cfb_File file(test::describe(platform::from_path(folder / "s.xls")));
    EXPECT_EQ(Cfb_File::check_cfb_core(file), ec::kSuccess);
    EXPECT_EQ(file.document_kind, Document_Kind::spreadsheet);
}

// Past the size from which the scan splits, with a partial last sector: records at the first
// slot, on both sides of the split and at the last slot, whichever half holds the root.
TEST(Probe, ALargeFileScansAsTheLiteralScan) {
    const uint64_t size = (uint64_t{8} << 20) + 1024 + 77;
    const uint64_t slots_end = 512 + ((size - 512) >> 9) * 512;
    const uint64_t half = slots_end / 2 / 512 * 512;
    for (const uint64_t root : {half - 128, half, slots_end - 128}) {
        std::vector<uint8_t> bytes(size, 0x5A);
        for (const uint64_t slot : {uint64_t{512}, half - 128, half, half + 128,
                                    slots_end / 4 + 128, 3 * slots_end / 4, slots_end - 128}) {
            plant_record(bytes, slot, slot == root ? 5 : 1);
        }
        expect_probe_matches_literal(bytes, "root " + std::to_string(root), size);
    }
}

}  // namespace
}  // namespace vrk
