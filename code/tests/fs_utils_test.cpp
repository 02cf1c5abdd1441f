#include "common/fs_utils.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <system_error>

#include "common/platform.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

namespace stdfs = std::filesystem;

// `path` with "/" as the native separator, so that one table serves both platforms.
std::wstring native(std::wstring path) {
    for (auto& c : path) {
        if (c == L'/') c = platform::kSeparator;
    }
    return path;
}

TEST(FsFolders, CreateNestedFoldersParentsAndSizes) {
    test::Temp_Folder root("create");
    const std::wstring nested = root.wide() + native(L"/a/b/c");
    EXPECT_TRUE(fs::create_directories(nested));
    EXPECT_TRUE(fs::create_directories(nested));  // already there
    EXPECT_TRUE(fs::make_parent_folder(root.wide() + native(L"/x/y/out.doc")));
    EXPECT_TRUE(fs::is_folder(root.wide() + native(L"/x/y")));
    EXPECT_FALSE(fs::exists(root.wide() + native(L"/x/y/out.doc")));
    EXPECT_TRUE(fs::make_parent_folder(L"no_folder_part.doc"));
    // A file where a folder must go is an error the file system reports.
    test::write_file(root / "blocker", "12345");
    EXPECT_THROW((void)fs::create_directories(root.wide() + native(L"/blocker/sub")),
                 stdfs::filesystem_error);
    EXPECT_FALSE(fs::is_folder(root.wide() + native(L"/blocker")));
    std::string error;
    EXPECT_EQ(fs::get_file_size(root.wide() + native(L"/blocker"), error), 5);
    EXPECT_EQ(fs::get_file_size(root.wide() + native(L"/missing.bin"), error), -1);
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
    EXPECT_TRUE(stdfs::is_directory(root.path()));
    EXPECT_TRUE(stdfs::is_empty(root.path()));
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
    const std::pair<const wchar_t*, const wchar_t*> extensions[] = {
        {L"/a.b/c", L"/a.b/c"},         // the dot belongs to a folder
        {L"/x/.cfg", L"/x/.cfg"},       // only dot first: no extension
        {L"/x/y.", L"/x/y"},            // a trailing dot is an extension of its own
        {L"/x/y.tar.gz", L"/x/y.tar"},  // only the last extension
        {L"/x/.a.b", L"/x/.a"},
        {L"/x/..", L"/x/.."},
        {L"..", L".."},
        {L"a.doc", L"a"},
        {L"", L""},
        {L"/x/", L"/x/"},
    };
    for (const auto& [path, expected] : extensions) {
        EXPECT_EQ(fs::remove_extension(native(path)), native(expected)) << native(path).size();
    }
    EXPECT_EQ(fs::collapse_separators(native(L"//a///b/c//")), native(L"/a/b/c/"));
    EXPECT_EQ(fs::collapse_separators(L""), L"");
    const std::wstring cwd = platform::from_path(stdfs::current_path());
    EXPECT_EQ(fs::make_absolute(native(L"a/../b/c")), cwd + native(L"/b/c"));
    EXPECT_EQ(fs::make_absolute(native(L"w/")), cwd + native(L"/w/"));
    EXPECT_EQ(fs::make_absolute(cwd), cwd);
    if constexpr (platform::kWindows) {
        EXPECT_EQ(fs::normalise_separators(L"C:/a/b\\c"), L"C:\\a\\b\\c");
        EXPECT_EQ(fs::remove_extension(L"C:\\a.b\\c"), L"C:\\a.b\\c");
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

// The temporary folder ends in a separator; free space is that of the drive root on Windows
// (whatever follows it need not exist), of the nearest existing folder elsewhere.
TEST(FsSystem, TemporaryFolderAndFreeSpace) {
    std::wstring temp;
    std::string error;
    ASSERT_TRUE(fs::get_temp_folder(temp, error)) << error;
    EXPECT_TRUE(fs::is_folder(temp) && temp.back() == platform::kSeparator);
    uint64_t bytes = 0;
    EXPECT_TRUE(fs::get_available_space(platform::from_path(stdfs::current_path()), bytes));
    EXPECT_TRUE(
        fs::get_available_space(platform::kWindows ? L"C:\\no\\such" : L"relative/missing", bytes));
    EXPECT_TRUE(fs::get_available_space(temp + native(L"no/such/folder"), bytes));
    EXPECT_EQ(fs::get_available_space(L"", bytes), !platform::kWindows);
}

}  // namespace
}  // namespace vrk
