#include "common/platform.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "support/test_folders.h"

namespace vrk {
namespace {

// Truncated, overlong and surrogate-coding UTF-8 sequences and lone UTF-16 surrogates each
// become U+FFFD; pairs join.
TEST(PlatformText, Utf8AndUtf16WithReplacement) {
    const std::wstring wide = L"Root Entry 根目录 \U0001F600";
    EXPECT_EQ(platform::from_utf8(platform::to_utf8(wide)), wide);
    EXPECT_EQ(platform::to_utf8(L"根"), "\xE6\xA0\xB9");
    EXPECT_EQ(platform::from_utf8("a\xE6\xA0"), L"a\xFFFD");
    EXPECT_EQ(platform::from_utf8("\xC0\xAF"), L"\xFFFD\xFFFD");
    EXPECT_EQ(platform::from_utf8("\xED\xA0\x80z"), L"\xFFFDz");
    EXPECT_EQ(platform::from_utf8("\xF5\x80"), L"\xFFFD\xFFFD");
    const char16_t units[] = {0xDC00, u'A', 0xD83D, 0xDE00, 0xD800};
    EXPECT_EQ(platform::to_utf8(platform::from_utf16(units, 5)),
              "\xEF\xBF\xBD"
              "A\xF0\x9F\x98\x80\xEF\xBF\xBD");
    EXPECT_TRUE(platform::from_utf16(nullptr, 0).empty());
    EXPECT_EQ(platform::narrow(platform::widen("C:/x/y.doc")), "C:/x/y.doc");
}

// POSIX names are bytes: one that is not UTF-8 survives widen/narrow and opens.
TEST(PlatformText, NamesThatAreNotUtf8KeepTheirBytes) {
    if (platform::kWindows) GTEST_SKIP() << "Windows names are UTF-16, arguments a code page";
    for (const std::string name :
         {"a\xFF\xFE.doc", "\xED\xA0\x80z", "x\xE6\xA0", "\xC3\xA9t\xE9"}) {
        const std::wstring wide = platform::widen(name);
        EXPECT_EQ(platform::narrow(wide), name);
        EXPECT_EQ(platform::to_path(wide).string(), name);
        EXPECT_EQ(platform::from_path(platform::to_path(wide)), wide);
    }
    EXPECT_EQ(platform::widen("\xC3\xA9t\xE9"), std::wstring(L"\xE9t") + wchar_t(0xDCE9));
    EXPECT_EQ(platform::to_utf8(platform::widen("a\xFF")), "a\xEF\xBF\xBD");
    test::Temp_Folder folder("bytes");
    const std::string name = folder.narrow() + "/\xFF\xFEname";
    test::write_file(platform::to_path(platform::widen(name)), "abc");
    platform::Input_File file;
    EXPECT_TRUE(file.open(platform::widen(name)));
}

// Ranges are appended after what was written before, whatever the block sizes of the copy:
// the source is longer than one block of every copying path.
TEST(PlatformCopy, AppendsRangesAfterWrittenBytes) {
    test::Temp_Folder folder("copy");
    std::string source((9 << 20) + 3, '\0');
    for (std::size_t i = 0; i < source.size(); ++i) source[i] = static_cast<char>(i * 7 + i / 251);
    test::write_file(folder / "in.bin", source);
    platform::Input_File in;
    ASSERT_TRUE(in.open(folder.wide(true) + L"in.bin"));
    platform::Output_File out;
    ASSERT_TRUE(out.create(folder.wide(true) + L"out.bin"));
    EXPECT_TRUE(out.write("head", 4));
    EXPECT_EQ(out.append_range(in, 5, 10), 10U);
    // Asking for more than the source holds stops at its end; past the end copies nothing.
    EXPECT_EQ(out.append_range(in, 512, UINT64_MAX), source.size() - 512);
    EXPECT_EQ(out.append_range(in, source.size() + 1, 100), 0U);
    EXPECT_TRUE(out.close());
    EXPECT_TRUE(test::read_file(folder / "out.bin") ==
                "head" + source.substr(5, 10) + source.substr(512));
    std::string read(20, '?');
    EXPECT_EQ(in.read_at(source.size() - 8, read.data(), read.size()), 8U);
    EXPECT_EQ(read.substr(0, 8), source.substr(source.size() - 8));
    EXPECT_EQ(in.read_at(source.size() + 1, read.data(), read.size()), 0U);
    // Creating truncates; a file that cannot be opened reports so.
    ASSERT_TRUE(out.create(folder.wide(true) + L"out.bin"));
    EXPECT_TRUE(out.close());
    EXPECT_TRUE(test::read_file(folder / "out.bin").empty());
    EXPECT_FALSE(in.open(folder.wide(true) + L"missing.bin"));
    EXPECT_EQ(out.append_range(in, 0, 1), 0U);
    EXPECT_FALSE(out.create(folder.wide(true) + L"no_folder" + platform::kSeparator + L"x.bin"));
}

}  // namespace
}  // namespace vrk
