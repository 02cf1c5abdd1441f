// A process of its own, whose library and logger are never started before these tests.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>

#include "cfb_vornak/cfb_vornak_api.h"
#include "cfb_vornak/entries/Cfb_Logger.h"
#include "cfb_vornak/entries/Library_State.h"
#include "common/error_store.h"
#include "common/platform.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

namespace stdfs = std::filesystem;

std::set<std::string> current_folder_listing() {
    std::set<std::string> names;
    for (const auto& entry : stdfs::recursive_directory_iterator(".")) {
        names.insert(entry.path().string());
    }
    return names;
}

// Before any VrkCfbInit the exports refuse and leave no trace on disk.
TEST(LifecycleBeforeInit, ExportsRefuseAndWriteNothing) {
    const auto before = current_folder_listing();
    EXPECT_EQ(VrkCfbDestroy(), 0);
    EXPECT_EQ(VrkCfbFileCheck("input.doc"), -3103);
    EXPECT_EQ(last_error_code(get_error_store()), ec::kObjectInitFailed);
    EXPECT_EQ(VrkCfbAnalysis("input.doc", "out"), -3103);
    EXPECT_EQ(VrkCfbGeneralRepair("input.doc", "out.doc"), -3103);
    EXPECT_EQ(VrkCfbAnalysis(nullptr, nullptr), -3103);  // before the arguments are looked at
    // The password is checked first: null is refused without any repair. A stored password
    // pushes no record, so the thread's previous record (code 4) is still the setter's result
    // and the repair does not run; after a success-neutral record it runs and finds the
    // library not started.
    EXPECT_EQ(VrkCfbAdvanceRepair("input.doc", "out.doc", nullptr), -3101);
    EXPECT_EQ(last_error_code(get_error_store()), ec::kInvalidArgument);
    EXPECT_EQ(VrkCfbAdvanceRepair("input.doc", "out.doc", "secret"), -3101);
    EXPECT_EQ(VrkCfbDestroy(), 0);
    EXPECT_EQ(VrkCfbAdvanceRepair("input.doc", "out.doc", "secret"), -3103);
    // A null work folder is refused before anything is created or started.
    EXPECT_EQ(VrkCfbInit("logs", "config", nullptr), 4);
    EXPECT_FALSE(Cfb_Logger::is_init());
    std::wstring work;
    EXPECT_FALSE(access_work_folder(kSlotRead, nullptr, &work));
    EXPECT_EQ(VrkCfbDestroy(), 0);
    EXPECT_EQ(current_folder_listing(), before);
}

// A first start whose log file cannot be opened falls back to ".\Logs\cfb_repair_sdk.log" in
// the current folder and still counts as started.
TEST(LifecycleBeforeInit, AnUnusableLogFolderFallsBackToDefaults) {
    test::Temp_Folder folder("fallback");
    stdfs::remove_all("Logs");
    ASSERT_TRUE(Cfb_Logger::start("cfg", "my_tag", folder.narrow() + "/missing/deeper"));
    EXPECT_TRUE(Cfb_Logger::is_init());
    std::string log_dir;
    ASSERT_TRUE(Cfb_Logger::get_log_dir(log_dir));
    EXPECT_EQ(log_dir, std::string(".") + static_cast<char>(platform::kSeparator) + "Logs");
    EXPECT_FALSE(stdfs::exists(folder / "missing"));
    CFB_LOG_ERROR("to the fallback file");
    const std::string text = test::read_file(stdfs::path("Logs") / "cfb_repair_sdk.log");
    EXPECT_NE(text.find("]->info: to the fallback file\n"), std::string::npos) << text;
}

}  // namespace
}  // namespace vrk
