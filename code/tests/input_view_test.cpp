// The one checked input view, and the writer thread that hands its blocks to the output.
#include "file_operation/Input_View.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#include "common/background_writer.h"
#include "common/platform.h"
#include "file_operation/Input_Blocks.h"
#include "support/cfb_patch.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

constexpr uint64_t kSize = (uint64_t{1} << 20) + 37;
constexpr uint64_t kInside = ~uint64_t{0};  // a range that does not fail

using test::thrown;

// The door's failure at `offset`: out of range, or (closed) the state failure.
std::string failure(const Read_Site& site, bool range, uint64_t offset) {
    const std::string door = "File_Anywhere_Door";
    return range ? test::door_failure(site.range_throw_line, site.function,
                                      test::out_of_range(door, offset))
                 : test::door_failure(site.state_throw_line, site.function,
                                      door + " state is not fine ! the file [" +
                                          std::to_string(offset) + "]can not access! \n");
}

std::string as_text(const uint8_t* data, uint64_t length) {
    return {reinterpret_cast<const char*>(data), static_cast<std::size_t>(length)};
}

class Input_View_Test : public ::testing::Test {
  protected:
    Input_View_Test() { test::write_file(m_path, m_bytes); }
    std::wstring path() const { return platform::from_path(m_path); }

    test::Temp_Folder m_folder{"input_view"};
    std::filesystem::path m_path = m_folder / "input.bin";
    std::vector<uint8_t> m_memory = test::random_bytes(kSize, 5);
    std::string m_bytes{m_memory.begin(), m_memory.end()};
};

TEST_F(Input_View_Test, RangesInsideAreServedAndOthersFailAsTheDoor) {
    const struct {
        uint64_t offset, length, fails_at;
    } ranges[] = {
        {4090, 20, kInside},        {kSize - 4, 4, kInside},
        {kSize + 9, 0, kInside},    {0, kSize, kInside},
        {kSize - 3, 4, kSize},      {kSize + 9, 4, kSize + 9},
        {100, ~uint64_t{0}, kSize}, {~uint64_t{0} - 1, 4, ~uint64_t{0} - 1},  // wraps around
    };
    for (const Read_Site* site : {&kNoMutexSite, &kWithMutexSite}) {
        Input_View file(*site);
        ASSERT_EQ(file.open(path()), platform::Map_Step::ok);
        Input_View held(m_memory.data(), m_memory.size(), *site);
        for (Input_View* view : {&file, &held}) {
            ASSERT_EQ(view->size(), kSize);
            for (const auto& c : ranges) {
                const bool ok = c.fails_at == kInside;
                const std::string expected = ok ? "" : failure(*site, true, c.fails_at);
                SCOPED_TRACE(std::to_string(c.offset) + "+" + std::to_string(c.length));
                const uint8_t* data = nullptr;
                EXPECT_EQ(thrown([&] { data = view->bytes(c.offset, c.length); }), expected);
                if (ok && c.length > 0) {
                    EXPECT_EQ(as_text(data, c.length), m_bytes.substr(c.offset, c.length));
                }
                if (!ok) {
                    EXPECT_EQ(thrown([&] { view->fail_at(c.fails_at); }), expected);
                }
                if (c.length > kSize + 1) continue;
                // A copy leaves what lies inside the file before the failure, nothing else.
                std::string copied(c.length, '?');
                EXPECT_EQ(thrown([&] {
                              view->copy(c.offset, c.length,
                                         reinterpret_cast<uint8_t*>(copied.data()));
                          }),
                          expected);
                const uint64_t inside = view->available(c.offset, c.length);
                EXPECT_EQ(copied, m_bytes.substr(std::min(c.offset, kSize), inside) +
                                      std::string(c.length - inside, '?'));
            }
        }
    }
}

TEST_F(Input_View_Test, ClosedViewsFailWithTheStateMessageUntilAFileOpens) {
    Input_View view;
    EXPECT_EQ(thrown([&] { (void)view.bytes(5, 1); }), failure(kNoMutexSite, false, 5));
    uint8_t byte = 0xEE;
    EXPECT_EQ(thrown([&] { view.copy(7, 1, &byte, kWithMutexSite); }),
              failure(kWithMutexSite, false, 7));
    EXPECT_EQ(thrown([&] { view.fail_at(9); }), failure(kNoMutexSite, false, 9));
    EXPECT_EQ(view.read_up_to(0, 1, &byte), 0U);
    EXPECT_EQ(byte, 0xEE);
    view.copy(7, 0, &byte);  // nothing to copy never fails
    // Opening fails by step: a missing file, an empty one, a folder (not opened on Windows,
    // not sized elsewhere); the view stays closed, and opens a file afterwards.
    errno = 0;
    EXPECT_EQ(view.open(m_folder.wide(true) + L"missing.bin"), platform::Map_Step::open_file);
    EXPECT_EQ(errno, ENOENT);
    test::write_file(m_folder / "empty.bin", "");
    EXPECT_EQ(view.open(m_folder.wide(true) + L"empty.bin"), platform::Map_Step::create_mapping);
    EXPECT_NE(view.open(m_folder.wide()), platform::Map_Step::ok);
    EXPECT_FALSE(view.is_open());
    EXPECT_FALSE(view.file().is_open());
    ASSERT_EQ(view.open(path()), platform::Map_Step::ok);
    EXPECT_EQ(as_text(view.bytes(kSize - 2, 2), 2), m_bytes.substr(kSize - 2));
    EXPECT_TRUE(view.file().is_open());
}

// Runs, records anywhere and long copies interleaved as a parse does; blocks of every size.
TEST_F(Input_View_Test, ScatteredSequentialAndBlockReadsGiveTheFilesBytes) {
    Input_View view;
    ASSERT_EQ(view.open(path()), platform::Map_Step::ok);
    std::mt19937_64 random(7);
    uint64_t run = 0;
    for (int round = 0; round < 4000; ++round) {
        const int kind = round % 4;
        const uint64_t length =
            kind == 0   ? 512
            : kind == 1 ? 4
            : kind == 2 ? 1 + random() % 5000
                        : 1 + random() % (round % 40 == 3 ? kSize : 600000) % (kSize - 1);
        const uint64_t offset = kind == 0 ? run : random() % (kSize - length);
        if (kind == 0) run = (run + 512) % (kSize - 512);
        std::string got(length, '\0');
        if (kind == 3) view.copy(offset, length, reinterpret_cast<uint8_t*>(got.data()));
        if (kind != 3) got = as_text(view.bytes(offset, length), length);
        ASSERT_EQ(got, m_bytes.substr(offset, length)) << round;
    }
    Input_View held(m_memory.data(), m_memory.size());
    for (Input_View* source : {&view, &held}) {
        for (const std::size_t block :
             {std::size_t{300}, std::size_t{700}, Input_Blocks::kBlockSize}) {
            Input_Blocks blocks(*source, block);
            for (uint64_t offset = 512; offset + 512 <= kSize; offset += 512)
                ASSERT_EQ(as_text(blocks.at(offset, 512), 512), m_bytes.substr(offset, 512))
                    << block << " " << offset;
            EXPECT_EQ(thrown([&] { (void)blocks.at(kSize - 100, 512); }),
                      failure(kNoMutexSite, true, kSize));
        }
    }
    // Another process cuts the file short while it is open: what the file no longer holds fails
    // at its first missing byte, never served as zeros. Windows refuses to shorten a mapped file.
    constexpr uint64_t kCut = 100000;
    std::error_code error;
    std::filesystem::resize_file(m_path, kCut, error);
    if (platform::kMapsInput) {
        EXPECT_TRUE(error) << "a mapped file was shortened";
        return;
    }
    ASSERT_FALSE(error);
    EXPECT_EQ(view.size(), kSize);  // fixed when opened
    const std::string at_cut = failure(kNoMutexSite, true, kCut);
    EXPECT_EQ(thrown([&] { (void)view.bytes(kCut - 10, 20); }), at_cut);
    std::string copied(kSize, '?');
    EXPECT_EQ(thrown([&] { view.copy(0, kSize, reinterpret_cast<uint8_t*>(copied.data())); }),
              at_cut);
    EXPECT_EQ(copied.substr(0, kCut), m_bytes.substr(0, kCut));
    // A block fails only for the range asked for, not for what it would have read ahead.
    Input_Blocks blocks(view);
    EXPECT_EQ(as_text(blocks.at(kCut - 512, 512), 512), m_bytes.substr(kCut - 512, 512));
    EXPECT_EQ(thrown([&] { (void)blocks.at(kCut - 100, 512); }), at_cut);
}

// The writer thread behind the repair's one pass: blocks read into a ring of buffers and written by
// the thread come out as the input's bytes, a block stays unchanged while the writer may still hold
// it, and a write failing at byte N leaves the first N bytes.
constexpr std::size_t kBuffers = 4;

// Copies `input` block by block as the repair's pass does; every handed-over block is compared
// with its copy while the writer may still hold it. The answer is finish()'s.
bool copy_through_writer(const std::filesystem::path& input, const std::filesystem::path& output,
                         std::size_t block) {
    Input_View view;
    EXPECT_EQ(view.open(platform::from_path(input)), platform::Map_Step::ok);
    platform::Output_File out;
    EXPECT_TRUE(out.create(platform::from_path(output)));
    Input_Blocks blocks(view, block, kBuffers);
    Background_Writer writer(out, kBuffers - 1);
    std::vector<std::pair<const uint8_t*, std::string>> kept;  // the blocks the writer may hold
    blocks.on_block_done([&](uint64_t, const uint8_t* bytes, std::size_t size) {
        for (const auto& [at, copy] : kept)
            EXPECT_EQ(std::string(reinterpret_cast<const char*>(at), copy.size()), copy);
        if (kept.size() == kBuffers - 1) kept.erase(kept.begin());
        kept.emplace_back(bytes, std::string(reinterpret_cast<const char*>(bytes), size));
        writer.write(bytes, size);
    });
    for (uint64_t offset = 0; offset < view.size(); offset += 512) (void)blocks.at(offset, 512);
    blocks.finish();
    return writer.finish();
}

TEST(Background_Writer, BlocksComeOutInOrderAndAFailureAtByteNKeepsTheFirstN) {
    test::Temp_Folder folder("writer");
    const std::vector<uint8_t> random = test::random_bytes(std::size_t{40} * 4096, 1);
    const std::string bytes(random.begin(), random.end());
    test::write_file(folder / "in.bin", bytes);
    for (const std::size_t block : {std::size_t{512}, std::size_t{4096}, std::size_t{3 * 4096}}) {
        EXPECT_TRUE(copy_through_writer(folder / "in.bin", folder / "out.bin", block)) << block;
        EXPECT_EQ(test::read_file(folder / "out.bin"), bytes) << block;
    }
    for (const uint64_t at : {uint64_t{0}, uint64_t{4096}, uint64_t{4097}, bytes.size() - 1}) {
        for (const auto fault :
             {platform::Write_Fault::disk_full, platform::Write_Fault::short_write}) {
            platform::set_write_fault_for_tests(fault, at);
            const bool written = copy_through_writer(folder / "in.bin", folder / "out.bin", 4096);
            platform::set_write_fault_for_tests(platform::Write_Fault::none, 0);
            EXPECT_FALSE(written) << at;
            EXPECT_EQ(test::read_file(folder / "out.bin"), bytes.substr(0, at)) << at;
        }
    }
    // Going away without finish() (the pass threw) still writes every range handed over.
    {
        platform::Output_File out;
        ASSERT_TRUE(out.create(platform::from_path(folder / "out.bin")));
        Background_Writer writer(out, 1);
        for (std::size_t offset = 0; offset < 3000; offset += 1000)
            writer.write(reinterpret_cast<const uint8_t*>(bytes.data()) + offset, 1000);
    }
    EXPECT_EQ(test::read_file(folder / "out.bin"), bytes.substr(0, 3000));
}

}  // namespace
}  // namespace vrk
