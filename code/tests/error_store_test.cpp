#include "common/error_store.h"

#include <gtest/gtest.h>

#include <iostream>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include "common/platform.h"

namespace vrk {
namespace {

// Each test uses a store of its own: the process-wide one is shared by every test here.
void push(Error_Store& store, Error_Code code, int32_t line) {
    push_error(store, code, std::string("code/src/x.cpp"), line);
}

TEST(ErrorStore, RecordsTextsDumpAndUnknownCodes) {
    Error_Store store;
    EXPECT_EQ(last_error(store).code, 0);
    EXPECT_EQ(last_error(store).text, nullptr);
    push(store, 0, 7);
    push(store, 76, 8);
    EXPECT_STREQ(last_error(store).text, "cfb file totally not a cfb");
    std::ostringstream dumped;
    dump_all_error_info(store, dumped);
    EXPECT_EQ(dumped.str(),
              "dump_all_error_info begin -----------------------\n"
              "std::thread::id :[" +
                  std::to_string(platform::current_thread_id()) +
                  "] errors:\n"
                  "err_index:[0] \nerr_no:[0] \nerr_info:[Success] \n"
                  "occur_file:[code/src/x.cpp] \nerr_line:[7] \n"
                  "err_index:[1] \nerr_no:[76] \n"
                  "err_info:[cfb file totally not a cfb] \n"
                  "occur_file:[code/src/x.cpp] \nerr_line:[8] \n"
                  "dump_all_error_info   end -----------------------\n");
    std::ostringstream failed;
    failed.setstate(std::ios::badbit);
    dump_all_error_info(store, failed);
    EXPECT_TRUE(failed.str().empty());
    // An unknown code (exact lookup: -4 too) takes the previous record's code and text, of any
    // thread, with its own line.
    push(store, 4, 10);
    push(store, -4, 11);
    EXPECT_EQ(last_error(store).code, 4);
    EXPECT_STREQ(last_error(store).text, "Invalid argument");
    EXPECT_EQ(last_error(store).line, "11");
    Error_Store other;
    push(other, 78, 1);
    EXPECT_EQ(last_error(other).code, 0);
    std::thread([&other] { push(other, 59, 1); }).join();
    push(other, 43, 2);
    EXPECT_EQ(last_error_code(other), 59);
    // The macro names the source file relative to the checkout; the 2000th push of a thread
    // keeps its newest thousand records.
    const int push_line = __LINE__ + 1;
    VRK_PUSH_ERROR(ec::kCfbEmpty);
    const Error_Record record = last_error(get_error_store());
    EXPECT_EQ(record.code, ec::kCfbEmpty);
    EXPECT_EQ(record.occur_file, "code/tests/error_store_test.cpp");
    EXPECT_EQ(record.line, std::to_string(push_line));
    Error_Store trimmed;
    for (int32_t i = 1; i <= 1999; ++i) push(trimmed, 1, i);
    const auto& records = trimmed.by_thread.at(platform::current_thread_id()).records;
    EXPECT_EQ(records.size(), 1999U);
    push(trimmed, 2, 2000);
    ASSERT_EQ(records.size(), 1000U);
    EXPECT_EQ(records.front().line, "1001");
    EXPECT_EQ(records.back().line, "2000");
}

// A new thread has pushed nothing, also where the system gives it the id of a thread that has
// ended (Windows does so at once, Wine after about 450 threads): it reads code 0, and the dump
// keeps the ended one's records.
TEST(ErrorStore, ANewThreadNeverReadsAnEndedThreadsRecords) {
    Error_Store store;
    std::set<uint32_t> ids;
    int stale = 0;
    constexpr int kThreads = 600;
    for (int i = 0; i < kThreads; ++i) {
        std::thread([&] {
            ids.insert(platform::current_thread_id());
            stale += last_error_code(store) == 0 ? 0 : 1;
            push(store, 57, i);
            stale += last_error_code(store) == 57 ? 0 : 1;
        }).join();
    }
    EXPECT_EQ(stale, 0);
    std::size_t kept = 0;
    for (const auto& [id, entry] : store.by_thread) kept += entry.records.size();
    EXPECT_EQ(kept, std::size_t{kThreads});
    if (ids.size() == kThreads) std::cout << "no thread id was given twice here\n";
}

}  // namespace
}  // namespace vrk
