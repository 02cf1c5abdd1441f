#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>

#include "cfb_vornak/cfb_vornak_api.h"
#include "cfb_vornak/entries/Cfb_Logger.h"
#include "cfb_vornak/entries/Library_State.h"
#include "common/error_store.h"

namespace vrk {
namespace {

namespace stdfs = std::filesystem;

std::set<std::string> current_folder_listing() {
    std::set<std::string> names;
    for (const auto& entry : stdfs::recursive_directory_iterator(stdfs::current_path())) {
        names.insert(entry.path().string());
    }
    return names;
}

// Everything here runs before any VrkCfbInit of this process, and leaves no trace on disk.
TEST(LifecycleBeforeInit, ExportsRefuseAndWriteNothing) {
    const auto before = current_folder_listing();

    EXPECT_EQ(VrkCfbDestroy(), 0);
    EXPECT_EQ(VrkCfbFileCheck("input.doc"), -3103);
    EXPECT_EQ(last_error_code(get_error_store()), ec::kObjectInitFailed);
    EXPECT_EQ(VrkCfbAnalysis("input.doc", "out"), -3103);
    EXPECT_EQ(VrkCfbGeneralRepair("input.doc", "out.doc"), -3103);
    EXPECT_EQ(VrkCfbAnalysis(nullptr, nullptr), -3103);  // before the arguments are looked at

    // The password is checked first: null is refused without any repair.
    EXPECT_EQ(VrkCfbAdvanceRepair("input.doc", "out.doc", nullptr), -3101);
    EXPECT_EQ(last_error_code(get_error_store()), ec::kInvalidArgument);
    // A stored password pushes no record, so the thread's previous record (code 4 above)
    // is still the setter's result and the repair does not run.
    EXPECT_EQ(VrkCfbAdvanceRepair("input.doc", "out.doc", "secret"), -3101);
    EXPECT_EQ(VrkCfbFileCheck("input.doc"), -3103);
    // After a success-neutral record the repair runs and finds the library not started.
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

}  // namespace
}  // namespace vrk
