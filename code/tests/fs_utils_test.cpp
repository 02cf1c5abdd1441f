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
constexpr wchar_t kSep = platform::kSeparator;

// Writes `path` paths with "/" as the native separator, so one table serves both platforms.
std::wstring native(std::wstring path) {
    for (auto& c : path) {
        if (c == L'/') c = kSep;
    }
    return path;
}

void make_read_only(const stdfs::path& path) {
    stdfs::permissions(
        path, stdfs::perms::owner_write | stdfs::perms::group_write | stdfs::perms::others_write,
        stdfs::perm_options::remove);
}

TEST(FsFolders, CreateNestedFoldersAndParents) {
    test::Temp_Folder root("create");
    const std::wstring nested = root.wide() + native(L"/a/b/c");
    EXPECT_TRUE(fs::create_directories(nested));
    EXPECT_TRUE(fs::is_folder(nested));
    EXPECT_TRUE(fs::create_directories(nested));  // already there

    const std::wstring file = root.wide() + native(L"/x/y/out.doc");
    EXPECT_TRUE(fs::make_parent_folder(file));
    EXPECT_TRUE(fs::is_folder(root.wide() + native(L"/x/y")));
    EXPECT_FALSE(fs::exists(file));
    EXPECT_TRUE(fs::make_parent_folder(L"no_folder_part.doc"));

    // A file standing where a folder must go is an error the file system reports.
    test::write_file(root / "blocker", "x");
    EXPECT_THROW((void)fs::create_directories(root.wide() + native(L"/blocker/sub")),
                 stdfs::filesystem_error);
    EXPECT_FALSE(fs::is_folder(root.wide() + native(L"/blocker")));
    EXPECT_TRUE(fs::exists(root.wide() + native(L"/blocker")));
}

TEST(FsFiles, SizeOfAFileOrMinusOneWithText) {
    test::Temp_Folder root("size");
    test::write_file(root / "five.bin", "12345");
    std::string error;
    EXPECT_EQ(fs::get_file_size(root.wide() + native(L"/five.bin"), error), 5);
    EXPECT_EQ(fs::get_file_size(root.wide() + native(L"/missing.bin"), error), -1);
    EXPECT_FALSE(error.empty());
}

TEST(FsClearFolder, RemovesReadOnlyFilesAndNestedFoldersAndKeepsTheFolder) {
    test::Temp_Folder root("clear_full");
    fs::clear_folder(root.wide(true));
    EXPECT_TRUE(stdfs::is_empty(root.path()));
    test::write_file(root / "read_only.txt", "r");
    make_read_only(root / "read_only.txt");
    test::write_file(root / "a" / "b" / "deep.txt", "d");
    make_read_only(root / "a" / "b" / "deep.txt");
    stdfs::create_directories(root / "empty" / "sub");
    make_read_only(root / "a" / "b");
    fs::clear_folder(root.wide(true));
    EXPECT_TRUE(stdfs::is_directory(root.path()));
    EXPECT_TRUE(stdfs::is_empty(root.path()));
    EXPECT_THROW(fs::clear_folder(root.wide() + native(L"/missing/")), stdfs::filesystem_error);
}

TEST(FsClearFolder, LinksAreRemovedNotFollowed) {
    test::Temp_Folder outside("outside");
    test::write_file(outside / "keep.txt", "keep");
    test::Temp_Folder root("clear_links");
    std::error_code ec;
    stdfs::create_directory_symlink(outside.path(), root / "folder_link", ec);
    if (ec) GTEST_SKIP() << "links to folders cannot be made here: " << ec.message();
    stdfs::create_symlink(outside / "keep.txt", root / "file_link", ec);
    test::write_file(root / "sub" / "plain.txt", "p");
    stdfs::create_directory_symlink(outside.path(), root / "sub" / "nested_link", ec);

    fs::clear_folder(root.wide(true));
    EXPECT_TRUE(stdfs::is_empty(root.path()));
    EXPECT_EQ(test::read_file(outside / "keep.txt"), "keep");
}

// A link standing where the folder is goes as a link; an empty folder takes its place and
// nothing behind the link is touched, whether the link's path ends in a separator or not.
TEST(FsClearFolder, ALinkAtTheFolderItselfIsNotFollowed) {
    test::Temp_Folder outside("outside_self");
    test::write_file(outside / "keep.txt", "keep");
    test::write_file(outside / "sub" / "deep.txt", "deep");
    test::Temp_Folder root("clear_self");
    for (const wchar_t* tail : {L"", L"/"}) {
        std::error_code ec;
        stdfs::create_directory_symlink(outside.path(), root / "scratch", ec);
        if (ec) GTEST_SKIP() << "links to folders cannot be made here: " << ec.message();
        fs::clear_folder(root.wide() + native(std::wstring(L"/scratch") + tail));
        EXPECT_FALSE(stdfs::is_symlink(stdfs::symlink_status(root / "scratch")));
        EXPECT_TRUE(stdfs::is_directory(root / "scratch"));
        EXPECT_TRUE(stdfs::is_empty(root / "scratch"));
        EXPECT_EQ(test::read_file(outside / "keep.txt"), "keep");
        EXPECT_EQ(test::read_file(outside / "sub" / "deep.txt"), "deep");
        stdfs::remove(root / "scratch");
    }
    // A link to a file, or a file, where the folder should be: refused, nothing touched.
    std::error_code ec;
    stdfs::create_symlink(outside / "keep.txt", root / "file_link", ec);
    if (!ec) {
        fs::clear_folder(root.wide() + native(L"/file_link/"));
        EXPECT_TRUE(stdfs::is_directory(stdfs::symlink_status(root / "file_link")));
        EXPECT_EQ(test::read_file(outside / "keep.txt"), "keep");
    }
    test::write_file(root / "plain.txt", "p");
    EXPECT_THROW(fs::clear_folder(root.wide() + native(L"/plain.txt/")), stdfs::filesystem_error);
    EXPECT_EQ(test::read_file(root / "plain.txt"), "p");
}

TEST(FsPaths, RemoveExtension) {
    const std::pair<const wchar_t*, const wchar_t*> cases[] = {
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
    for (const auto& [path, expected] : cases) {
        EXPECT_EQ(fs::remove_extension(native(path)), native(expected)) << native(path).size();
    }
}

TEST(FsPaths, CollapseRunsOfTheNativeSeparator) {
    EXPECT_EQ(fs::collapse_separators(native(L"//a///b/c//")), native(L"/a/b/c/"));
    EXPECT_EQ(fs::collapse_separators(native(L"a/b")), native(L"a/b"));
    EXPECT_EQ(fs::collapse_separators(L""), L"");
}

TEST(FsPaths, WindowsSeparatorsAndStreams) {
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
        EXPECT_EQ(fs::remove_extension(L"/x/a\\b.c"), L"/x/a\\b");
        EXPECT_EQ(fs::remove_extension(L"/x/a.b\\c"), L"/x/a");
        EXPECT_EQ(fs::remove_extension(L"/x/y.doc:stream"), L"/x/y");
        EXPECT_EQ(fs::collapse_separators(L"/a\\\\b"), L"/a\\\\b");
    }
}

TEST(FsPaths, MakeAbsolute) {
    const std::wstring cwd = platform::from_path(stdfs::current_path());
    EXPECT_EQ(fs::make_absolute(native(L"a/../b/c")), cwd + native(L"/b/c"));
    EXPECT_EQ(fs::make_absolute(native(L"w/")), cwd + native(L"/w/"));
    EXPECT_EQ(fs::make_absolute(cwd), cwd);
}

TEST(FsSystem, TemporaryFolderAndFreeSpace) {
    std::wstring temp;
    std::string error;
    ASSERT_TRUE(fs::get_temp_folder(temp, error)) << error;
    ASSERT_FALSE(temp.empty());
    EXPECT_EQ(temp.back(), kSep);
    EXPECT_TRUE(fs::is_folder(temp));

    uint64_t bytes = 0;
    EXPECT_TRUE(fs::get_available_space(platform::from_path(stdfs::current_path()), bytes));
    if constexpr (platform::kWindows) {
        // Only the drive root counts: whatever follows it need not exist.
        EXPECT_TRUE(fs::get_available_space(L"C:\\no\\such\\folder", bytes));
        EXPECT_FALSE(fs::get_available_space(L"", bytes));
    } else {
        // The nearest existing folder counts.
        EXPECT_TRUE(fs::get_available_space(temp + L"no/such/folder", bytes));
        EXPECT_TRUE(fs::get_available_space(L"relative/missing", bytes));
    }
}

}  // namespace
}  // namespace vrk
