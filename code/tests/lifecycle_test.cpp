#include <gtest/gtest.h>

#include <filesystem>
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

std::size_t count_of(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

// The logger starts once per process, so this executable's story is one test, in order.
TEST(Lifecycle, InitFallsBackDestroyDumpsAndSecondInitKeepsTheLogger) {
    stdfs::remove_all("Logs");
    stdfs::remove_all("config");

    // Empty folders fall back to .\Logs and .\config; the final record is 0.
    ASSERT_EQ(VrkCfbInit("", "", "work"), 0);
    EXPECT_TRUE(Cfb_Logger::is_init());
    EXPECT_TRUE(stdfs::is_directory("Logs"));
    EXPECT_TRUE(stdfs::is_directory("config"));
    EXPECT_TRUE(stdfs::exists(stdfs::path("Logs") / "cfb_repair_sdk.log"));
    std::string log_dir;
    ASSERT_TRUE(Cfb_Logger::get_log_dir(log_dir));
    EXPECT_EQ(log_dir, std::string(".") + static_cast<char>(kSep) + "Logs");

    std::wstring work;
    ASSERT_TRUE(access_work_folder(kSlotRead, nullptr, &work));
    EXPECT_EQ(work, fs::make_absolute(std::wstring(L"work") + kSep));
    EXPECT_FALSE(stdfs::exists("work"));  // only remembered, not created
    std::wstring password = L"stale";
    ASSERT_TRUE(access_password(kSlotRead, nullptr, &password));
    EXPECT_TRUE(password.empty());

    // The two fallbacks left records with code 4 before the closing 0 (the dump counts them).
    EXPECT_EQ(last_error_code(get_error_store()), 0);

    // Destroy writes the whole dump, and a second destroy replaces it with a newer one.
    const stdfs::path dump_file = stdfs::path("Logs") / "occur_error_when_fixing_file.log";
    ASSERT_EQ(VrkCfbDestroy(), 0);
    const std::string first = test::read_file(dump_file);
    EXPECT_EQ(first.rfind("dump_all_error_info begin -----------------------\n", 0), 0U);
    EXPECT_EQ(count_of(first, "dump_all_error_info begin"), 1U);
    EXPECT_EQ(count_of(first, "err_info:[Invalid argument] \n"), 2U);

    std::thread([] { VRK_PUSH_ERROR(ec::kCfbOpenFailed); }).join();
    ASSERT_EQ(VrkCfbDestroy(), 0);
    const std::string second = test::read_file(dump_file);
    EXPECT_EQ(count_of(second, "dump_all_error_info begin"), 1U);
    EXPECT_EQ(count_of(second, "dump_all_error_info   end -----------------------\n"), 1U);
    EXPECT_GT(second.size(), first.size());
    EXPECT_NE(second.find("err_info:[cfb file open failed] \n"), std::string::npos);
    EXPECT_EQ(VrkCfbDestroy(), 0);  // still usable

    // A second init creates its folders and replaces the work folder, but the logger keeps
    // the folders and tag of the first start.
    test::Temp_Folder other("second_init");
    const std::string logs2 = platform::narrow(other.wide() + kSep + L"logs2");
    const std::string config2 = platform::narrow(other.wide() + kSep + L"config2");
    ASSERT_TRUE(access_password(kSlotStore, &password, nullptr));
    EXPECT_EQ(VrkCfbInit(logs2.c_str(), config2.c_str(), "work2"), 0);
    EXPECT_TRUE(stdfs::is_directory(other / "logs2"));
    EXPECT_TRUE(stdfs::is_directory(other / "config2"));
    ASSERT_TRUE(Cfb_Logger::get_log_dir(log_dir));
    EXPECT_EQ(log_dir, std::string(".") + static_cast<char>(kSep) + "Logs");
    ASSERT_TRUE(access_work_folder(kSlotRead, nullptr, &work));
    EXPECT_EQ(work, fs::make_absolute(std::wstring(L"work2") + kSep));

    // A null work folder leaves the slots as they are.
    EXPECT_EQ(VrkCfbInit("", "", nullptr), 4);
    ASSERT_TRUE(access_work_folder(kSlotRead, nullptr, &work));
    EXPECT_EQ(work, fs::make_absolute(std::wstring(L"work2") + kSep));

    // An empty work folder leaves the slot empty, so that callers use the temporary folder.
    EXPECT_EQ(VrkCfbInit("", "", ""), 0);
    EXPECT_FALSE(access_work_folder(kSlotRead, nullptr, &work));

    // A log folder that cannot be made (a file is in the way) falls back to .\Logs too.
    test::write_file(other / "blocker", "x");
    const std::string blocked = platform::narrow(other.wide() + kSep + L"blocker" + kSep + L"logs");
    EXPECT_EQ(VrkCfbInit(blocked.c_str(), "", "work"), 0);
}

TEST(Lifecycle, DestroyReportsAnUnwritableDumpFile) {
    // The dump file's name taken by a folder cannot be opened for writing.
    ASSERT_EQ(VrkCfbInit("", "", "work"), 0);
    const stdfs::path dump_file = stdfs::path("Logs") / "occur_error_when_fixing_file.log";
    stdfs::remove(dump_file);
    stdfs::create_directory(dump_file);
    EXPECT_EQ(VrkCfbDestroy(), 53);
    EXPECT_EQ(last_error_code(get_error_store()), ec::kSelfRecordFailed);
    const std::string log = test::read_file(stdfs::path("Logs") / "cfb_repair_sdk.log");
    EXPECT_NE(log.find("open the file failed !opf_file_path_wstr:["), std::string::npos);
    stdfs::remove(dump_file);
    EXPECT_EQ(VrkCfbDestroy(), 0);
}

TEST(Lifecycle, PasswordSetterStoresTheText) {
    ASSERT_EQ(VrkCfbInit("", "", "work"), 0);
    EXPECT_EQ(set_password_entry("pa55 word"), 0);
    std::wstring password;
    ASSERT_TRUE(access_password(kSlotRead, nullptr, &password));
    EXPECT_EQ(password, L"pa55 word");
    EXPECT_EQ(set_password_entry(nullptr), ec::kInvalidArgument);
    EXPECT_EQ(set_password_entry(""), ec::kInvalidArgument);  // no record of its own
    ASSERT_TRUE(access_password(kSlotRead, nullptr, &password));
    EXPECT_TRUE(password.empty());
    // Success pushes nothing: the thread's previous record is the setter's result.
    VRK_PUSH_ERROR(ec::kNotCfb);
    EXPECT_EQ(set_password_entry("x"), ec::kNotCfb);
    EXPECT_EQ(VrkCfbAdvanceRepair("in.doc", "out.doc", "x"), -3112);
}

}  // namespace
}  // namespace vrk
