// An extraction whose files are written on two threads fails as one written in order would: the
// first failing stream is named, the streams before it are whole, nothing after it is left.
#include "cfb_vornak/salvage/Salvage_Writers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "cfb_vornak/builder/Cfb_Builder.h"
#include "cfb_vornak/salvage/Salvage_Output.h"
#include "file_operation/Input_View.h"
#include "support/analysis_samples.h"
#include "support/cfb_patch.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

using platform::Write_Fault;

struct Row {
    std::vector<std::size_t> big;  // streams larger than the fault's point
    Write_Fault fault;
    bool through_view;  // the input read through the view (long runs copied by the system)
};

TEST(SalvageWriters, AFailureEndsTheExtractionWhereOneThreadWouldStop) {
    const Row rows[] = {{{0}, Write_Fault::disk_full, false},
                        {{1, 30}, Write_Fault::short_write, true},
                        {{25, 26}, Write_Fault::disk_full, true},
                        {{39}, Write_Fault::short_write, false},
                        {{}, Write_Fault::disk_full, true}};
    for (const Row& row : rows) {
        Cfb_Fs_Item_DirNode root;
        std::vector<std::vector<uint8_t>> bytes;
        for (std::size_t i = 0; i < 40; ++i) {
            const bool big = std::find(row.big.begin(), row.big.end(), i) != row.big.end();
            bytes.push_back(test::random_bytes(big ? 70000 : 3000 + 100 * i, i));
            const std::string text = "s" + std::to_string(100 + i);
            const std::u16string name(text.begin(), text.end());
            // The last streams each in a storage of their own: folders made after a failure.
            (i < 35 ? root : root.add_storage(u"z" + name)).add_stream(name, bytes.back());
        }
        const std::vector<uint8_t> file = build_compound_file(root);
        test::Temp_Folder folder("writers");
        ASSERT_TRUE(test::write_bytes_to_file(folder.wide(true) + L"in.cfb", file));
        Input_View view;
        ASSERT_EQ(view.open(folder.wide(true) + L"in.cfb"), platform::Map_Step::ok);
        const salvage::Salvage_Input input =
            row.through_view ? salvage::Salvage_Input(view)
                             : salvage::Salvage_Input(file.data(), file.size(), nullptr);
        const Salvage_Result result = salvage_input(input);
        ASSERT_TRUE(result.complete());
        std::string error;
        platform::set_write_fault_for_tests(row.fault, 20000);
        const bool written = salvage_extract(input, result, folder.wide(true) + L"x", {}, error);
        platform::set_write_fault_for_tests(Write_Fault::none, 0);
        EXPECT_EQ(written, row.big.empty());
        // The streams in the result's order: whole up to the first big one, then nothing.
        bool failed = false;
        for (std::size_t e = 1; e < result.entries.size(); ++e) {
            if (result.entries[e].object_type != 2) continue;
            const std::u16string path = result.path_of(e);
            const std::size_t i = std::stoul(std::string(path.end() - 3, path.end())) - 100;
            const std::wstring name = platform::from_utf16(path.data(), path.size());
            std::wstring on_disk = folder.wide(true) + L"x" + platform::kSeparator;
            for (const wchar_t c : name) on_disk += c == L'/' ? platform::kSeparator : c;
            const bool big = bytes[i].size() == 70000;
            EXPECT_TRUE(!big || failed || error == "cannot write " + platform::to_utf8(on_disk))
                << error;
            failed = failed || big;
            bool exists = false;
            const std::vector<uint8_t> got = test::read_bytes(on_disk, &exists);
            EXPECT_EQ(exists, !failed) << platform::to_utf8(on_disk);
            EXPECT_TRUE(failed || got == bytes[i]) << platform::to_utf8(on_disk);
        }
    }
}

}  // namespace
}  // namespace vrk
