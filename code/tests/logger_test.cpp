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

// Each line of the file at `path` matches "YYYY-MM-DD hh:mm:ss.mmmZ" followed by its tail.
void expect_lines(const stdfs::path& path, const std::vector<std::string>& tails) {
    std::istringstream in(test::read_file(path));
    std::size_t i = 0;
    for (std::string l; std::getline(in, l); ++i) {
        ASSERT_LT(i, tails.size()) << l;
        EXPECT_TRUE(l.size() == 24 + tails[i].size() && l[4] == '-' && l[10] == ' ' &&
                    l[23] == 'Z' && l.compare(24, std::string::npos, tails[i]) == 0)
            << l;
    }
    EXPECT_EQ(i, tails.size());
}

// The logger is started once per process, so its whole life is one test, in order.
TEST(CfbLogger, StartsOnceFiltersLevelsAndFormatsLines) {
    test::Temp_Folder first("first");
    test::Temp_Folder second("second");
    // Before start: nothing is written and nothing blocks.
    std::string log_dir;
    EXPECT_FALSE(Cfb_Logger::is_init() || Cfb_Logger::get_log_dir(log_dir));
    CFB_LOG_ERROR("before start");
    LogEx("tag", 3, "%s", "before InitLogEx");
    ASSERT_TRUE(Cfb_Logger::start(first.narrow(), "tag_one", first.narrow()));
    EXPECT_TRUE(Cfb_Logger::is_init());
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
    expect_lines(first / "tag_one.log",
                 {" ERROR [code/src/a.cpp:12]->info: error kept",
                  " ERROR [code/src/a.cpp:13]->info: 宽 error",
                  " WARN  [code/src/a.cpp:14]->info: level two kept",
                  " INFO  [code/src/a.cpp:15]->info: unfiltered info",
                  " ERROR [code/tests/logger_test.cpp:" + std::to_string(error_line) +
                      "]->info: after second start"});
    // The back end on its own: a new file, printf formatting, one flushed line per call.
    const stdfs::path direct = second / "direct.log";
    EXPECT_EQ(InitLogEx("cfg", "direct", test::narrow(direct).c_str()), 0);
    LogEx("direct", 3, "%s-%d", "value", 42);
    LogEx("direct", 7, "%s", "odd level");
    expect_lines(direct, {" ERROR value-42", " LEVEL7 odd level"});
    EXPECT_NE(InitLogEx("cfg", "direct", test::narrow(second / "no" / "such.log").c_str()), 0);
    EXPECT_NE(InitLogEx("cfg", "direct", ""), 0);
    const stdfs::path file = stdfs::path(".") / "Logs" /
                             (std::to_string(platform::current_process_id()) + "_qtw_private.log");
    stdfs::remove(file);  // of an earlier run whose process had the same id (Wine reuses them)
    auto& logger = TW_Logger::instance();
    logger.write("dropped", "code/src/common/x.cpp", 5, 2);
    EXPECT_FALSE(stdfs::exists(file));  // opened at the first line written, not before
    logger.write("kept 错误", "code/src/common/x.cpp", 6, 3);
    logger.write("also kept", "code/src/common/x.cpp", 7, 4);
    EXPECT_EQ(test::read_file(file),
              "File[ code/src/common/x.cpp ], Line[ 6 ], Infomation[ kept 错误 ]\n"
              "File[ code/src/common/x.cpp ], Line[ 7 ], Infomation[ also kept ]\n");
}

}  // namespace
}  // namespace vrk
