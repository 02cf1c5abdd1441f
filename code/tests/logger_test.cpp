#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "cfb_vornak/entries/Cfb_Logger.h"
#include "common/kv_log.h"
#include "common/platform.h"
#include "common/tw_logger.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

namespace stdfs = std::filesystem;

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

bool ends_with(const std::string& text, const std::string& tail) {
    return text.size() >= tail.size() &&
           text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// The logger is started once per process, so its whole life is one test, in order.
TEST(CfbLogger, StartsOnceFiltersLevelsAndFormatsLines) {
    test::Temp_Folder first("first");
    test::Temp_Folder second("second");

    // Before start: nothing is written and nothing blocks.
    EXPECT_FALSE(Cfb_Logger::is_init());
    std::string log_dir;
    EXPECT_FALSE(Cfb_Logger::get_log_dir(log_dir));
    CFB_LOG_ERROR("before start");
    Cfb_Logger::write_unfiltered("before start", "f.cpp", 1, 3);
    LogEx("tag", 3, "%s", "before InitLogEx");

    ASSERT_TRUE(Cfb_Logger::start(first.narrow(), "tag_one", first.narrow()));
    EXPECT_TRUE(Cfb_Logger::is_init());
    ASSERT_TRUE(Cfb_Logger::get_log_dir(log_dir));
    EXPECT_EQ(log_dir, first.narrow());
    const stdfs::path log_file = first / "tag_one.log";
    EXPECT_TRUE(stdfs::exists(log_file));

    Cfb_Logger::write(std::string("info dropped"), "code/src/a.cpp", 10, Cfb_Logger::kInfo);
    Cfb_Logger::write(std::wstring(L"wide info dropped"), "code/src/a.cpp", 11, Cfb_Logger::kInfo);
    Cfb_Logger::write(std::string("error kept"), "code/src/a.cpp", 12, Cfb_Logger::kError);
    Cfb_Logger::write(std::wstring(L"宽 error"), "code/src/a.cpp", 13, Cfb_Logger::kError);
    Cfb_Logger::write(std::string("level two kept"), "code/src/a.cpp", 14, 2);
    Cfb_Logger::write_unfiltered("unfiltered info", "code/src/a.cpp", 15, Cfb_Logger::kInfo);

    // A second start with other folders changes nothing.
    EXPECT_TRUE(Cfb_Logger::start(second.narrow(), "tag_two", second.narrow()));
    ASSERT_TRUE(Cfb_Logger::get_log_dir(log_dir));
    EXPECT_EQ(log_dir, first.narrow());
    EXPECT_FALSE(stdfs::exists(second / "tag_two.log"));
    const int error_line = __LINE__ + 1;
    CFB_LOG_ERROR("after second start");

    const auto lines = lines_of(test::read_file(log_file));
    const std::string tails[] = {" ERROR [code/src/a.cpp:12]->info: error kept",
                                 " ERROR [code/src/a.cpp:13]->info: 宽 error",
                                 " WARN  [code/src/a.cpp:14]->info: level two kept",
                                 " INFO  [code/src/a.cpp:15]->info: unfiltered info",
                                 "[code/tests/logger_test.cpp:" + std::to_string(error_line) +
                                     "]->info: after second start"};
    ASSERT_EQ(lines.size(), std::size(tails)) << test::read_file(log_file);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        EXPECT_TRUE(ends_with(lines[i], tails[i])) << lines[i];
        // A timestamp "YYYY-MM-DD hh:mm:ss.mmmZ" first.
        EXPECT_TRUE(lines[i].size() > 24 && lines[i][4] == '-' && lines[i][10] == ' ' &&
                    lines[i][23] == 'Z')
            << lines[i];
    }

    // The back end on its own: a new file, printf formatting, one flushed line per call.
    const stdfs::path other_file = second / "direct.log";
    EXPECT_EQ(InitLogEx("cfg", "direct", platform::narrow(platform::from_path(other_file)).c_str()),
              0);
    LogEx("direct", 3, "%s-%d", "value", 42);
    LogEx("direct", 7, "%s", "odd level");
    const auto direct = lines_of(test::read_file(other_file));
    ASSERT_EQ(direct.size(), 2U);
    EXPECT_TRUE(ends_with(direct[0], " ERROR value-42")) << direct[0];
    EXPECT_TRUE(ends_with(direct[1], " LEVEL7 odd level")) << direct[1];

    const std::string missing = platform::narrow(platform::from_path(second / "no" / "such.log"));
    EXPECT_NE(InitLogEx("cfg", "direct", missing.c_str()), 0);
    EXPECT_NE(InitLogEx("cfg", "direct", ""), 0);
}

TEST(TwLogger, WritesErrorsToItsPrivateFileOnly) {
    const stdfs::path file = stdfs::path(".") / "Logs" /
                             (std::to_string(platform::current_process_id()) + "_qtw_private.log");
    // A file of an earlier run whose process had the same id (Wine reuses them).
    stdfs::remove(file);
    auto& logger = TW_Logger::instance();
    EXPECT_EQ(logger.minimum_level(), 3);
    logger.write("dropped", "code/src/common/x.cpp", 5, 1);
    EXPECT_FALSE(stdfs::exists(file));  // opened at the first line written, not before
    logger.write("kept 错误", "code/src/common/x.cpp", 6, 3);
    logger.write("also kept", "code/src/common/x.cpp", 7, 4);
    EXPECT_EQ(test::read_file(file),
              "File[ code/src/common/x.cpp ], Line[ 6 ], Infomation[ kept 错误 ]\n"
              "File[ code/src/common/x.cpp ], Line[ 7 ], Infomation[ also kept ]\n");
}

}  // namespace
}  // namespace vrk
