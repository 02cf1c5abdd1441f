// Data safety of the folders the library empties or makes on its own: scratch folders that are
// links to folders holding files, an empty work folder shared by two threads, the file check
// in a current folder that cannot be written.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "cfb_vornak/builder/Cfb_Builder.h"
#include "cfb_vornak/cfb_vornak_api.h"
#include "common/platform.h"
#include "support/analysis_samples.h"
#include "support/cfb_patch.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

namespace stdfs = std::filesystem;

std::string arg(const stdfs::path& path) {
    return platform::narrow(platform::from_path(path));
}

// The result of an export is the calling thread's last record: each call gets a fresh thread.
int32_t on_fresh_thread(const std::function<int32_t()>& work) {
    int32_t result = 0;
    std::thread([&] { result = work(); }).join();
    return result;
}

stdfs::path write_sample(const test::Temp_Folder& folder, const std::string& name) {
    Cfb_Fs_Item_DirNode root;
    root.add_stream(u"WordDocument", test::random_bytes(6000, 1));
    root.add_stream(u"1Table", test::random_bytes(300, 2));
    stdfs::path path = folder / name;
    EXPECT_TRUE(test::write_bytes_to_file(platform::from_path(path), build_compound_file(root)));
    return path;
}

// The folders in the temporary folder that this process made for its scratch folders.
std::vector<stdfs::path> private_scratch_folders() {
    const std::string prefix = "cfb_vornak_" + std::to_string(platform::current_process_id()) + "_";
    std::vector<stdfs::path> found;
    for (const auto& item : stdfs::directory_iterator(stdfs::temp_directory_path())) {
        if (item.path().filename().string().rfind(prefix, 0) == 0) found.push_back(item.path());
    }
    return found;
}

class ScratchSafetyTest : public ::testing::Test {
  protected:
    // The logger starts once per process: its folders outlive every test's own folder.
    static void init(const std::string& work) {
        ASSERT_EQ(VrkCfbInit("scratch_logs", "scratch_config", work.c_str()), 0);
    }
    int32_t analyse(const stdfs::path& input, const stdfs::path& output) {
        return on_fresh_thread(
            [&] { return VrkCfbAnalysis(arg(input).c_str(), arg(output).c_str()); });
    }
    int32_t repair(const stdfs::path& input, const stdfs::path& output) {
        return on_fresh_thread(
            [&] { return VrkCfbGeneralRepair(arg(input).c_str(), arg(output).c_str()); });
    }

    test::Temp_Folder base{"scratch_safety"};
};

// A scratch folder below the work folder is a link to a folder of someone else's files: the
// link goes, a folder of the library's own takes its place, and every file survives.
TEST_F(ScratchSafetyTest, ScratchFolderThatIsALinkKeepsTheFilesBehindIt) {
    const stdfs::path work = base / "work";
    const stdfs::path victim = base / "victim";
    test::write_file(victim / "raw" / "keep.txt", "raw");
    test::write_file(victim / "release" / "sub" / "keep.txt", "release");
    stdfs::create_directories(work);
    std::error_code ec;
    stdfs::create_directory_symlink(victim / "raw", work / "lib_cfb_tmp", ec);
    stdfs::create_directory_symlink(victim / "release", work / "tmp_release_dir_for_fixing_cfb",
                                    ec);
    if (ec) GTEST_SKIP() << "links to folders cannot be made here: " << ec.message();
    init(arg(work));
    const stdfs::path input = write_sample(base, "sample.doc");

    EXPECT_EQ(analyse(input, base / "out"), 0);
    EXPECT_EQ(repair(input, base / "repaired.doc"), 0);
    EXPECT_EQ(test::read_file(victim / "raw" / "keep.txt"), "raw");
    EXPECT_EQ(test::read_file(victim / "release" / "sub" / "keep.txt"), "release");
    for (const char* scratch : {"lib_cfb_tmp", "tmp_release_dir_for_fixing_cfb"}) {
        EXPECT_TRUE(stdfs::is_directory(stdfs::symlink_status(work / scratch))) << scratch;
    }
}

// Without a work folder both threads' calls share one private folder made in the temporary
// folder (owner only, a fresh name, never "<temp>/lib_cfb_tmp"); VrkCfbDestroy removes it.
// Where the temporary folder is this test's own, links planted at the fixed names there are
// left alone.
TEST_F(ScratchSafetyTest, EmptyWorkFolderUsedByTwoThreadsAtOnce) {
    const stdfs::path temp = stdfs::temp_directory_path();
    const bool own_temp =
        stdfs::absolute(temp).string().rfind(stdfs::current_path().string(), 0) == 0;
    const stdfs::path victim = base / "victim";
    test::write_file(victim / "keep.txt", "keep");
    if (own_temp) {
        std::error_code ec;
        stdfs::create_directories(temp);
        stdfs::create_directory_symlink(victim, temp / "lib_cfb_tmp", ec);
        stdfs::create_directory_symlink(victim, temp / "tmp_release_dir_for_fixing_cfb", ec);
    }
    init("");
    ASSERT_TRUE(private_scratch_folders().empty());

    const stdfs::path input = write_sample(base, "sample.doc");
    std::vector<int32_t> results(2 * 2 * 5, -1);
    auto work = [&](int thread) {
        for (int round = 0; round < 5; ++round) {
            const std::string name = std::to_string(thread) + "_" + std::to_string(round);
            const std::size_t at =
                10 * static_cast<std::size_t>(thread) + 2 * static_cast<std::size_t>(round);
            results[at] = VrkCfbAnalysis(arg(input).c_str(), arg(base / ("out" + name)).c_str());
            results[at + 1] =
                VrkCfbGeneralRepair(arg(input).c_str(), arg(base / (name + ".doc")).c_str());
        }
    };
    std::thread first(work, 0);
    std::thread second(work, 1);
    first.join();
    second.join();
    EXPECT_EQ(results, std::vector<int32_t>(results.size(), 0));
    for (int thread = 0; thread < 2; ++thread) {
        for (int round = 0; round < 5; ++round) {
            const std::string name = std::to_string(thread) + "_" + std::to_string(round);
            EXPECT_EQ(
                test::tree_names(platform::from_path(base / ("out" + name)))
                    .count("cfb_directory_tree信息分析/原始cfb_directory_tree释放文件夹/1Table"),
                1u)
                << name;
            EXPECT_TRUE(stdfs::exists(base / (name + ".doc"))) << name;
        }
    }

    const std::vector<stdfs::path> made = private_scratch_folders();
    ASSERT_EQ(made.size(), 1u);
    EXPECT_TRUE(stdfs::is_directory(made[0] / "lib_cfb_tmp"));
    if (!platform::kWindows) {
        EXPECT_EQ(stdfs::status(made[0]).permissions() & stdfs::perms::all,
                  stdfs::perms::owner_all);
    }
    EXPECT_EQ(test::read_file(victim / "keep.txt"), "keep");
    if (own_temp) {
        EXPECT_TRUE(stdfs::is_symlink(stdfs::symlink_status(temp / "lib_cfb_tmp")));
        stdfs::remove(temp / "lib_cfb_tmp");
        stdfs::remove(temp / "tmp_release_dir_for_fixing_cfb");
    }

    EXPECT_EQ(VrkCfbDestroy(), 0);
    EXPECT_FALSE(stdfs::exists(made[0]));
    // The library stays usable: the next call makes a new folder, the next Destroy removes it.
    EXPECT_EQ(analyse(input, base / "again"), 0);
    const std::vector<stdfs::path> again = private_scratch_folders();
    ASSERT_EQ(again.size(), 1u);
    EXPECT_NE(again[0], made[0]);
    EXPECT_EQ(VrkCfbDestroy(), 0);
    EXPECT_TRUE(private_scratch_folders().empty());
    if (!own_temp) {
        GTEST_SKIP() << "links at the fixed names were not planted: the temporary folder " << temp
                     << " is shared with other processes";
    }
}

// The check makes an unused folder in the current folder; where that folder cannot be made
// the check still gives its verdict. As root, permissions do not stop writes: the current
// folder is then one that has been removed, which nobody can write into.
TEST_F(ScratchSafetyTest, CheckInACurrentFolderThatCannotBeWritten) {
    init(arg(base / "work"));
    const stdfs::path sound = write_sample(base, "sound.doc");
    const stdfs::path damaged = base / "damaged.doc";
    std::vector<uint8_t> bytes = test::read_bytes(platform::from_path(sound));
    test::patch_u16(bytes, test::offsets::kMinorVersion, 0x0021);
    ASSERT_TRUE(test::write_bytes_to_file(platform::from_path(damaged), bytes));

    const stdfs::path saved = stdfs::current_path();
    const stdfs::path here = base / "read_only";
    stdfs::create_directories(here);
    stdfs::permissions(here, stdfs::perms::owner_read | stdfs::perms::owner_exec);
    stdfs::current_path(here);
    std::error_code ec;
    if (stdfs::create_directory("probe", ec)) {
        stdfs::remove("probe");
        stdfs::permissions(here, stdfs::perms::owner_all);
        stdfs::remove(here, ec);
        if (!ec) stdfs::create_directory("probe", ec);
    }
    const bool unwritable = ec && !stdfs::exists(here / "probe");
    int32_t sound_result = 0;
    int32_t damaged_result = 0;
    if (unwritable) {
        sound_result = on_fresh_thread([&] { return VrkCfbFileCheck(arg(sound).c_str()); });
        damaged_result = on_fresh_thread([&] { return VrkCfbFileCheck(arg(damaged).c_str()); });
    }
    stdfs::current_path(saved);
    if (stdfs::exists(here)) stdfs::permissions(here, stdfs::perms::owner_all);
    if (!unwritable) GTEST_SKIP() << "no current folder that cannot be written can be made here";
    EXPECT_EQ(sound_result, 0);
    EXPECT_EQ(damaged_result, -3108);
}

}  // namespace
}  // namespace vrk
