// The repair's slot scan of a large file, whose upper half is tested on a second thread,
// against the literal byte-wise scan: plausible slots at the first slot, on both sides of the
// split and at the last slot are kept in file order, whichever half holds the root entry.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "cfb_vornak/model/Cfb_File.h"
#include "common/platform.h"
#include "support/analysis_samples.h"
#include "support/literal_probe.h"
#include "support/probe_samples.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

// A record that passes the slot test: name "A", no links; a root storage or a storage.
void plant_record(std::vector<uint8_t>& bytes, uint64_t slot, bool root) {
    const auto at = bytes.begin() + static_cast<std::ptrdiff_t>(slot);
    std::fill_n(at, 128, 0);
    at[0] = 0x41;
    at[64] = 2;
    at[66] = root ? 5 : 1;
    std::fill_n(at + 68, 12, 0xFF);
}

TEST(Probe_Split, ALargeFileScansAsTheLiteralScan) {
    test::Temp_Folder folder("split");
    // Past the size from which the scan splits, with a partial last sector.
    const uint64_t size = (uint64_t{8} << 20) + 1024 + 77;
    const uint64_t slots_end = 512 + ((size - 512) >> 9) * 512;
    const uint64_t half = slots_end / 2 / 512 * 512;
    for (const uint64_t root : {half - 128, half, slots_end - 128}) {
        SCOPED_TRACE(root);
        std::vector<uint8_t> bytes(size, 0x5A);
        for (const uint64_t slot : {uint64_t{512}, half - 128, half, half + 128,
                                    slots_end / 4 + 128, 3 * slots_end / 4, slots_end - 128}) {
            plant_record(bytes, slot, slot == root);
        }
        test::Sample_File{bytes, {}}.write(folder / "s.doc");
        const File_Description input = test::describe(platform::from_path(folder / "s.doc"));
        Cfb_File fast(input);
        ASSERT_EQ(fast.find_root_entry_by_scan(), 0u);
        Cfb_File slow(input);
        const test::Literal_Scan_Result literal = test::literal_root_entry_scan(slow);
        ASSERT_EQ(literal.result, 0u);
        EXPECT_TRUE(test::same_layout(fast.scanned_directory_layout, literal.layout));
        std::size_t records = 0;
        for (const auto& [sector, found] : fast.scanned_directory_layout) records += found.size();
        EXPECT_EQ(records, 7u);
        EXPECT_TRUE(test::same_entry(fast.root_entry, literal.root));
    }
}

}  // namespace
}  // namespace vrk
