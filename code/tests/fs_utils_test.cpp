// The file-system utilities and the platform layer: folders, paths, text, refused names.
#include "common/fs_utils.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <system_error>

#include "cfb_vornak/model/Safe_Name.h"
#include "common/platform.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

namespace stdfs = std::filesystem;

// `path` with "/" as the native separator, so that one table serves both platforms.
std::wstring native(std::wstring path) {
    std::replace(path.begin(), path.end(), L'/', platform::kSeparator);
    return path;
}

TEST(FsFolders, CreateNestedFoldersParentsAndSizes) {
    test::Temp_Folder root("create");
    const auto at = [&](const wchar_t* path) { return root.wide() + native(path); };
    EXPECT_TRUE(fs::create_directories(at(L"/a/b/c")) && fs::create_directories(at(L"/a/b/c")));
    EXPECT_TRUE(fs::make_parent_folder(at(L"/x/y/out.doc")));
    EXPECT_TRUE(fs::is_folder(at(L"/x/y")) && !fs::exists(at(L"/x/y/out.doc")));
    EXPECT_TRUE(fs::make_parent_folder(L"no_folder_part.doc"));
    // A file where a folder must go is an error the file system reports.
    test::write_file(root / "blocker", "12345");
    EXPECT_THROW((void)fs::create_directories(at(L"/blocker/sub")), stdfs::filesystem_error);
    EXPECT_FALSE(fs::is_folder(at(L"/blocker")));
    std::string error;
    EXPECT_EQ(fs::get_file_size(at(L"/blocker"), error), 5);
    EXPECT_EQ(fs::get_file_size(at(L"/missing.bin"), error), -1);
    EXPECT_FALSE(error.empty());
}

// Read-only entries and nested folders go and the folder stays; links, nested or standing
// where the folder itself is (with or without a trailing separator), go as links and nothing
// behind them is touched; a file, or a link to one, where the folder should be is refused.
TEST(FsClearFolder, RemovesEverythingInsideAndNeverFollowsALink) {
    test::Temp_Folder outside("outside");
    test::write_file(outside / "sub" / "keep.txt", "keep");
    test::Temp_Folder root("clear");
    for (const char* name : {"read_only.txt", "a/b/deep.txt"}) {
        test::write_file(root / name, "r");
        stdfs::permissions(root / name, stdfs::perms::owner_read);
    }
    stdfs::create_directories(root / "empty" / "sub");
    stdfs::permissions(root / "a" / "b", stdfs::perms::owner_read | stdfs::perms::owner_exec);
    std::error_code ec;
    stdfs::create_directory_symlink(outside.path(), root / "a" / "folder_link", ec);
    const bool links = !ec;
    stdfs::create_symlink(outside / "sub" / "keep.txt", root / "file_link", ec);
    fs::clear_folder(root.wide(true));
    EXPECT_TRUE(stdfs::is_directory(root.path()) && stdfs::is_empty(root.path()));
    EXPECT_THROW(fs::clear_folder(root.wide() + native(L"/missing/")), stdfs::filesystem_error);
    test::write_file(root / "plain.txt", "p");
    EXPECT_THROW(fs::clear_folder(root.wide() + native(L"/plain.txt/")), stdfs::filesystem_error);
    EXPECT_EQ(test::read_file(root / "plain.txt"), "p");
    EXPECT_EQ(test::read_file(outside / "sub" / "keep.txt"), "keep");
    if (!links) GTEST_SKIP() << "links to folders cannot be made here: " << ec.message();
    for (const wchar_t* tail : {L"", L"/"}) {
        stdfs::create_directory_symlink(outside.path(), root / "scratch");
        fs::clear_folder(root.wide() + native(std::wstring(L"/scratch") + tail));
        EXPECT_FALSE(stdfs::is_symlink(stdfs::symlink_status(root / "scratch")));
        EXPECT_TRUE(stdfs::is_directory(root / "scratch") && stdfs::is_empty(root / "scratch"));
        stdfs::remove(root / "scratch");
    }
    stdfs::create_symlink(outside / "sub" / "keep.txt", root / "file_link");
    fs::clear_folder(root.wide() + native(L"/file_link/"));
    EXPECT_TRUE(stdfs::is_directory(stdfs::symlink_status(root / "file_link")));
    EXPECT_EQ(test::read_file(outside / "sub" / "keep.txt"), "keep");
}

TEST(FsPaths, ExtensionsSeparatorsAndAbsolutePaths) {
    // A folder's dot, a leading dot and ".." are no extension; a trailing dot is one; only the
    // last extension goes.
    // clang-format off
    const std::pair<const wchar_t*, const wchar_t*> extensions[] = {
        {L"/a.b/c", L"/a.b/c"}, {L"/x/.cfg", L"/x/.cfg"}, {L"/x/y.", L"/x/y"},
        {L"/x/y.tar.gz", L"/x/y.tar"}, {L"/x/.a.b", L"/x/.a"}, {L"/x/..", L"/x/.."},
        {L"..", L".."}, {L"a.doc", L"a"}, {L"", L""}, {L"/x/", L"/x/"}};
    // clang-format on
    for (const auto& [path, expected] : extensions)
        EXPECT_EQ(fs::remove_extension(native(path)), native(expected)) << native(path).size();
    EXPECT_EQ(fs::collapse_separators(native(L"//a///b/c//")), native(L"/a/b/c/"));
    EXPECT_EQ(fs::collapse_separators(L""), L"");
    const std::wstring cwd = platform::from_path(stdfs::current_path());
    EXPECT_EQ(fs::make_absolute(native(L"a/../b/c")), cwd + native(L"/b/c"));
    EXPECT_EQ(fs::make_absolute(native(L"w/")), cwd + native(L"/w/"));
    EXPECT_EQ(fs::make_absolute(cwd), cwd);
    if constexpr (platform::kWindows) {
        EXPECT_EQ(fs::normalise_separators(L"C:/a/b\\c"), L"C:\\a\\b\\c");
        EXPECT_EQ(fs::remove_extension(L"C:/a.b/c.d"), L"C:/a.b/c");
        EXPECT_EQ(fs::remove_extension(L"C:\\x\\y.doc:stream"), L"C:\\x\\y:stream");
        EXPECT_EQ(fs::remove_extension(L"C:\\x\\y:s.t"), L"C:\\x\\y:s.t");
        EXPECT_EQ(fs::remove_extension(L"C:a.doc"), L"C:a");
        EXPECT_EQ(fs::collapse_separators(L"\\\\server\\share"), L"\\server\\share");
    } else {
        // "\" and ":" are ordinary name characters here.
        EXPECT_EQ(fs::normalise_separators(L"/a\\b/c"), L"/a\\b/c");
        EXPECT_EQ(fs::remove_extension(L"/x/a.b\\c"), L"/x/a");
        EXPECT_EQ(fs::remove_extension(L"/x/y.doc:stream"), L"/x/y");
        EXPECT_EQ(fs::collapse_separators(L"/a\\\\b"), L"/a\\\\b");
    }
}

// Truncated, overlong and surrogate-coding UTF-8 sequences and lone UTF-16 surrogates each
// become U+FFFD; pairs join.
TEST(PlatformText, Utf8AndUtf16WithReplacement) {
    const std::wstring wide = L"Root Entry 根目录 \U0001F600";
    EXPECT_EQ(platform::from_utf8(platform::to_utf8(wide)), wide);
    EXPECT_EQ(platform::from_utf8("a\xE6\xA0"), L"a\xFFFD");
    EXPECT_EQ(platform::from_utf8("\xC0\xAF"), L"\xFFFD\xFFFD");
    EXPECT_EQ(platform::from_utf8("\xED\xA0\x80z"), L"\xFFFDz");
    EXPECT_EQ(platform::from_utf8("\xF5\x80"), L"\xFFFD\xFFFD");
    const char16_t units[] = {0xDC00, u'A', 0xD83D, 0xDE00, 0xD800};
    EXPECT_EQ(platform::to_utf8(platform::from_utf16(units, 5)),
              "\xEF\xBF\xBD"
              "A\xF0\x9F\x98\x80\xEF\xBF\xBD");
    EXPECT_TRUE(platform::from_utf16(nullptr, 0).empty());
}

void expect_refused(const std::wstring& name, bool on_posix, bool on_windows) {
    EXPECT_EQ(is_refused_file_name(name, false), on_posix) << platform::to_utf8(name);
    EXPECT_EQ(is_refused_file_name(name, true), on_windows) << platform::to_utf8(name);
}

TEST(SafeName, RefusedOnWhichSystems) {
    for (const wchar_t* name : {L"", L".", L"..", L"a/b", L"/"}) expect_refused(name, true, true);
    expect_refused(std::wstring(L"a\0b", 3), true, true);
    for (const wchar_t* name :
         {L"Root Entry", L"...a", L"原始数据", L"CONSOLE", L"COM0", L"COM10", L"LPT", L"xCON"})
        expect_refused(name, false, false);
    // Characters, endings and device names only Windows refuses; "\" is ordinary on POSIX.
    // clang-format off
    for (const wchar_t* name : {L"a\\b", L"\u0001CompObj", L"a<b", L"c:d", L"a\"b", L"a?b",
                                L"name.", L"name ", L"a\tb", L"con", L"AUX", L"COM1", L"com9",
                                L"LPT1", L"CON.txt", L"nul.tar.gz", L"COM1 .log", L"LPT\u00B9"})
        expect_refused(name, false, true);
    // clang-format on
    EXPECT_EQ(is_refused_file_name(L"a\\b"), platform::kWindows);
}

}  // namespace
}  // namespace vrk
