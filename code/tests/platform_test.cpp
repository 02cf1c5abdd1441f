#include "common/platform.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <thread>

#include "support/test_folders.h"

namespace vrk {
namespace {

TEST(PlatformText, Utf8RoundTripAndReplacement) {
    const std::wstring wide = L"Root Entry 根目录 \U0001F600";
    EXPECT_EQ(platform::from_utf8(platform::to_utf8(wide)), wide);
    EXPECT_EQ(platform::to_utf8(L"根"), "\xE6\xA0\xB9");
    // Truncated, overlong and surrogate-coding sequences each become U+FFFD.
    EXPECT_EQ(platform::from_utf8("a\xE6\xA0"), L"a\xFFFD");
    EXPECT_EQ(platform::from_utf8("\xC0\xAF"), L"\xFFFD\xFFFD");
    EXPECT_EQ(platform::from_utf8("\xED\xA0\x80z"), L"\xFFFDz");
    EXPECT_EQ(platform::from_utf8("\xF5\x80"), L"\xFFFD\xFFFD");
}

TEST(PlatformText, Utf16UnitsPairSurrogatesAndReplaceLoneOnes) {
    const char16_t paired[] = {u'A', 0xD83D, 0xDE00, u'B'};
    EXPECT_EQ(platform::to_utf8(platform::from_utf16(paired, 4)),
              "A\xF0\x9F\x98\x80"
              "B");
    const char16_t lone[] = {0xDC00, u'x', 0xD800};
    EXPECT_EQ(platform::to_utf8(platform::from_utf16(lone, 3)), "\xEF\xBF\xBDx\xEF\xBF\xBD");
    EXPECT_TRUE(platform::from_utf16(nullptr, 0).empty());
}

TEST(PlatformText, NarrowArgumentsOfPlainAscii) {
    EXPECT_EQ(platform::widen("C:/x/y.doc"), L"C:/x/y.doc");
    EXPECT_EQ(platform::narrow(L"out.doc"), "out.doc");
    EXPECT_TRUE(platform::widen("").empty());
}

TEST(PlatformThreads, IdsDifferBetweenLiveThreads) {
    const uint32_t mine = platform::current_thread_id();
    EXPECT_EQ(mine, platform::current_thread_id());
    uint32_t other = mine;
    std::thread([&other] { other = platform::current_thread_id(); }).join();
    EXPECT_NE(other, mine);
}

TEST(PlatformMapping, MapsAWholeFileReadOnly) {
    test::Temp_Folder folder("map");
    test::write_file(folder / "data.bin", std::string("abc\0def", 7));
    platform::Mapped_File mapped;
    ASSERT_EQ(platform::map_file(folder.wide(true) + L"data.bin", mapped), platform::Map_Step::ok);
    ASSERT_EQ(mapped.size, 7U);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(mapped.data), 7),
              std::string("abc\0def", 7));
    EXPECT_TRUE(platform::unmap_file(mapped));
    EXPECT_EQ(mapped.data, nullptr);
}

TEST(PlatformMapping, FailuresNameTheirStep) {
    test::Temp_Folder folder("map_fail");
    platform::Mapped_File mapped;
    errno = 0;
    EXPECT_EQ(platform::map_file(folder.wide(true) + L"missing.bin", mapped),
              platform::Map_Step::open_file);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(platform::errno_text().empty());

    test::write_file(folder / "empty.bin", "");
    EXPECT_EQ(platform::map_file(folder.wide(true) + L"empty.bin", mapped),
              platform::Map_Step::create_mapping);
    EXPECT_EQ(mapped.data, nullptr);
}

}  // namespace
}  // namespace vrk
