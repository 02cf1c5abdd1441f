#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "cfb_vornak/entries/Cfb_Logger.h"
#include "common/platform.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

namespace stdfs = std::filesystem;

// A start whose log file cannot be opened falls back to ".\Logs\cfb_repair_sdk.log" in the
// current folder and still counts as started. Needs a process of its own.
TEST(CfbLoggerFallback, UnusableLogFolderFallsBackToDefaults) {
    test::Temp_Folder folder("fallback");
    const std::string missing =
        platform::narrow(platform::from_path(folder / "missing" / "deeper"));
    stdfs::remove_all("Logs");
    ASSERT_TRUE(Cfb_Logger::start("cfg", "my_tag", missing));
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
