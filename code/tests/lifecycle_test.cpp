#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include "cfb_vornak/cfb_vornak_api.h"
#include "cfb_vornak/entries/Cfb_Logger.h"
#include "cfb_vornak/entries/Entries.h"
#include "cfb_vornak/entries/Library_State.h"
#include "common/error_store.h"
#include "common/fs_utils.h"
#include "common/platform.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

namespace stdfs = std::filesystem;
constexpr wchar_t kSep = platform::kSeparator;
const std::string kDefaultLogs = std::string(".") + static_cast<char>(kSep) + "Logs";
const stdfs::path kDumpFile = stdfs::path("Logs") / "occur_error_when_fixing_file.log";
using test::count_of;

std::wstring work_folder() {
    std::wstring work;
    return access_work_folder(kSlotRead, nullptr, &work) ? work : L"(none)";
}

std::string log_dir() {
    std::string dir;
    return Cfb_Logger::get_log_dir(dir) ? dir : "(none)";
}

std::set<std::string> current_folder_listing() {
    std::set<std::string> names;
    for (const auto& e : stdfs::recursive_directory_iterator(".")) names.insert(e.path().string());
    return names;
}

TEST(Lifecycle, BeforeInitExportsRefuseAndWriteNothing) {
    const auto before = current_folder_listing();
    EXPECT_EQ(VrkCfbDestroy(), 0);
    EXPECT_EQ(VrkCfbFileCheck("input.doc"), -3103);
    EXPECT_EQ(last_error_code(get_error_store()), ec::kObjectInitFailed);
    EXPECT_EQ(VrkCfbAnalysis("input.doc", "out"), -3103);
    EXPECT_EQ(VrkCfbAnalysis(nullptr, nullptr), -3103);  // before the arguments are looked at
    // The password is checked first. A stored password pushes no record: the thread's previous
    // record (4) is the result and the repair does not run; after a Destroy (0) it does.
    EXPECT_EQ(VrkCfbAdvanceRepair("input.doc", "out.doc", nullptr), -3101);
    EXPECT_EQ(last_error_code(get_error_store()), ec::kInvalidArgument);
    EXPECT_EQ(VrkCfbAdvanceRepair("input.doc", "out.doc", "secret"), -3101);
    EXPECT_EQ(VrkCfbDestroy(), 0);
    EXPECT_EQ(VrkCfbAdvanceRepair("input.doc", "out.doc", "secret"), -3103);
    // A null work folder is refused before anything is created or started.
    EXPECT_EQ(VrkCfbInit("logs", "config", nullptr), 4);
    EXPECT_FALSE(Cfb_Logger::is_init());
    EXPECT_EQ(work_folder(), L"(none)");
    EXPECT_EQ(current_folder_listing(), before);
}

TEST(Lifecycle, InitFallsBackDestroyDumpsAndSecondInitKeepsTheLogger) {
    stdfs::remove_all("config");
    std::ostringstream before;
    dump_all_error_info(get_error_store(), before);
    const std::size_t earlier = count_of(before.str(), "err_info:[Invalid argument] \n");
    // Empty folders fall back to .\Logs and .\config, each with a record of code 4; the final
    // record is 0. The work folder is only remembered, not created; the password slot cleared.
    std::wstring password = L"stale";
    ASSERT_TRUE(access_password(kSlotStore, &password, nullptr));
    ASSERT_EQ(VrkCfbInit("", "", "work"), 0);
    EXPECT_TRUE(stdfs::is_directory("config"));
    EXPECT_EQ(log_dir(), kDefaultLogs);
    EXPECT_EQ(work_folder(), fs::make_absolute(std::wstring(L"work") + kSep));
    EXPECT_FALSE(stdfs::exists("work"));
    ASSERT_TRUE(access_password(kSlotRead, nullptr, &password));
    EXPECT_TRUE(password.empty());
    EXPECT_EQ(last_error_code(get_error_store()), 0);

    // Destroy writes the whole dump; a second one replaces it with a newer one.
    ASSERT_EQ(VrkCfbDestroy(), 0);
    const std::string first = test::read_file(kDumpFile);
    EXPECT_EQ(first.rfind("dump_all_error_info begin -----------------------\n", 0), 0U);
    EXPECT_EQ(count_of(first, "err_info:[Invalid argument] \n"), earlier + 2);
    std::thread([] { VRK_PUSH_ERROR(ec::kCfbOpenFailed); }).join();
    ASSERT_EQ(VrkCfbDestroy(), 0);
    const std::string second = test::read_file(kDumpFile);
    EXPECT_EQ(count_of(second, "dump_all_error_info begin"), 1U);
    EXPECT_GT(second.size(), first.size());
    EXPECT_NE(second.find("err_info:[cfb file open failed] \n"), std::string::npos);

    // A second init creates its folders and replaces the work folder, but the logger keeps
    // the folders and tag of the first start.
    test::Temp_Folder other("second_init");
    const std::string at = other.narrow();
    EXPECT_EQ(VrkCfbInit((at + "/logs2").c_str(), (at + "/config2").c_str(), "work2"), 0);
    EXPECT_TRUE(stdfs::is_directory(other / "logs2") && stdfs::is_directory(other / "config2"));
    EXPECT_EQ(log_dir(), kDefaultLogs);
    EXPECT_EQ(work_folder(), fs::make_absolute(std::wstring(L"work2") + kSep));
    // A null work folder leaves the slots as they are; an empty one empties the slot, so that
    // callers use the temporary folder.
    EXPECT_EQ(VrkCfbInit("", "", nullptr), 4);
    EXPECT_EQ(work_folder(), fs::make_absolute(std::wstring(L"work2") + kSep));
    EXPECT_EQ(VrkCfbInit("", "", ""), 0);
    EXPECT_EQ(work_folder(), L"(none)");
    // A log folder that cannot be made (a file is in the way) falls back to .\Logs too.
    test::write_file(other / "blocker", "x");
    EXPECT_EQ(VrkCfbInit((at + "/blocker/logs").c_str(), "", "work"), 0);
    // Destroy reports a dump file it cannot write; the password setter stores the text.
    stdfs::remove(kDumpFile);
    stdfs::create_directory(kDumpFile);  // a folder cannot be opened for writing
    EXPECT_EQ(VrkCfbDestroy(), 53);
    EXPECT_EQ(last_error_code(get_error_store()), ec::kSelfRecordFailed);
    const std::string log = test::read_file(stdfs::path("Logs") / "cfb_repair_sdk.log");
    EXPECT_NE(log.find("open the file failed !opf_file_path_wstr:["), std::string::npos);
    stdfs::remove(kDumpFile);
    EXPECT_EQ(VrkCfbDestroy(), 0);
    ASSERT_EQ(VrkCfbInit("", "", "work"), 0);
    EXPECT_EQ(set_password_entry("pa55 word"), 0);
    ASSERT_TRUE(access_password(kSlotRead, nullptr, &password));
    EXPECT_EQ(password, L"pa55 word");
    EXPECT_EQ(set_password_entry(nullptr), ec::kInvalidArgument);
    EXPECT_EQ(set_password_entry(""), ec::kInvalidArgument);  // no record of its own
    ASSERT_TRUE(access_password(kSlotRead, nullptr, &password));
    EXPECT_TRUE(password.empty());
}

}  // namespace
}  // namespace vrk
