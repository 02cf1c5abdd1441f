// The writer thread behind the repair's one pass: blocks read into a ring of buffers and written
// by the thread come out as the input's bytes, a block stays unchanged while the writer may
// still hold it, and a write failing at byte N leaves the first N bytes, as one thread writing
// each block in turn does.
#include "common/background_writer.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "common/platform.h"
#include "file_operation/Input_Blocks.h"
#include "file_operation/Input_View.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

constexpr std::size_t kBuffers = 4;

std::string pattern(std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(i * 131 + (i >> 9) * 17);
    return bytes;
}

struct Kept {
    const uint8_t* bytes;
    std::string copy;
};

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
    std::vector<Kept> kept;
    blocks.on_block_done([&](uint64_t, const uint8_t* bytes, std::size_t size) {
        for (const Kept& earlier : kept)
            EXPECT_EQ(
                std::string(reinterpret_cast<const char*>(earlier.bytes), earlier.copy.size()),
                earlier.copy);
        if (kept.size() == kBuffers - 1) kept.erase(kept.begin());
        kept.push_back({bytes, std::string(reinterpret_cast<const char*>(bytes), size)});
        writer.write(bytes, size);
    });
    for (uint64_t offset = 0; offset < view.size(); offset += 512) (void)blocks.at(offset, 512);
    blocks.finish();
    return writer.finish();
}

TEST(Background_Writer, BlocksComeOutInOrderAndAFailureAtByteNKeepsTheFirstN) {
    test::Temp_Folder folder("writer");
    const std::string bytes = pattern(std::size_t{40} * 4096);
    test::write_file(folder / "in.bin", bytes);
    for (const std::size_t block : {std::size_t{512}, std::size_t{4096}, std::size_t{3 * 4096}}) {
        EXPECT_TRUE(copy_through_writer(folder / "in.bin", folder / "out.bin", block)) << block;
        EXPECT_EQ(test::read_file(folder / "out.bin"), bytes) << block;
    }
    for (const uint64_t at :
         {uint64_t{0}, uint64_t{1}, uint64_t{4096}, uint64_t{4097}, uint64_t{bytes.size() - 1}}) {
        for (const auto fault :
             {platform::Write_Fault::disk_full, platform::Write_Fault::short_write}) {
            platform::set_write_fault_for_tests(fault, at);
            const bool written = copy_through_writer(folder / "in.bin", folder / "out.bin", 4096);
            platform::set_write_fault_for_tests(platform::Write_Fault::none, 0);
            EXPECT_FALSE(written) << at;
            EXPECT_EQ(test::read_file(folder / "out.bin"), bytes.substr(0, at)) << at;
        }
    }
}

// Going away without finish() (the pass threw) still writes every range handed over.
TEST(Background_Writer, WhatWasHandedOverIsWrittenWithoutFinish) {
    test::Temp_Folder folder("unwind");
    const std::string bytes = pattern(3000);
    {
        platform::Output_File out;
        ASSERT_TRUE(out.create(platform::from_path(folder / "out.bin")));
        Background_Writer writer(out, 1);
        for (std::size_t offset = 0; offset < bytes.size(); offset += 1000)
            writer.write(reinterpret_cast<const uint8_t*>(bytes.data()) + offset, 1000);
    }
    EXPECT_EQ(test::read_file(folder / "out.bin"), bytes);
}

}  // namespace
}  // namespace vrk
