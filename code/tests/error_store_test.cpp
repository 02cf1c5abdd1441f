#include "common/error_store.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "common/platform.h"

namespace vrk {
namespace {

// Each test uses a store of its own: the process-wide one is shared by every test here.
void push(Error_Store& store, Error_Code code, int32_t line) {
    push_error(store, code, std::string("code/src/x.cpp"), line);
}

std::string dump(Error_Store& store) {
    std::ostringstream out;
    dump_all_error_info(store, out);
    return out.str();
}

TEST(ErrorStore, ThreadWithoutRecordsReadsEmptyAndIsListedAfterwards) {
    Error_Store store;
    const Error_Record record = last_error(store);
    EXPECT_EQ(record.code, 0);
    EXPECT_EQ(record.text, nullptr);
    EXPECT_TRUE(record.occur_file.empty());
    EXPECT_TRUE(record.line.empty());
    EXPECT_EQ(dump(store),
              "dump_all_error_info begin -----------------------\n"
              "std::thread::id :[" +
                  std::to_string(platform::current_thread_id()) +
                  "] errors:\n"
                  "dump_all_error_info   end -----------------------\n");
}

TEST(ErrorStore, PushRecordsCodeTextFileAndLine) {
    Error_Store store;
    std::string file = "code/src/cfb_vornak/Cfb_File.cpp";
    push_error(store, 57, std::move(file), 123);
    EXPECT_TRUE(file.empty());  // NOLINT(bugprone-use-after-move): taken by move, left empty
    const Error_Record record = last_error(store);
    EXPECT_EQ(record.code, 57);
    EXPECT_STREQ(record.text, "cfb file open failed");
    EXPECT_EQ(record.occur_file, "code/src/cfb_vornak/Cfb_File.cpp");
    EXPECT_EQ(record.line, "123");
    EXPECT_EQ(last_error_code(store), 57);
}

TEST(ErrorStore, UnknownCodeRepeatsThePreviousCodeAndText) {
    Error_Store store;
    push(store, 4, 10);
    push(store, 40, 11);
    const Error_Record record = last_error(store);
    EXPECT_EQ(record.code, 4);
    EXPECT_STREQ(record.text, "Invalid argument");
    EXPECT_EQ(record.line, "11");
    push(store, -4, 12);  // exact lookup: -4 is unknown too
    EXPECT_EQ(last_error_code(store), 4);
}

TEST(ErrorStore, UnknownCodeFirstOfAllLeavesTheEmptyRecord) {
    Error_Store store;
    push(store, 78, 1);
    const Error_Record record = last_error(store);
    EXPECT_EQ(record.code, 0);
    EXPECT_EQ(record.text, nullptr);
    EXPECT_EQ(record.line, "1");
}

TEST(ErrorStore, UnknownCodeFallsBackToAnotherThreadsPush) {
    Error_Store store;
    std::thread([&store] { push(store, 59, 1); }).join();
    push(store, 43, 2);
    EXPECT_EQ(last_error_code(store), 59);
}

TEST(ErrorStore, TwoThousandthPushKeepsTheNewestThousand) {
    Error_Store store;
    for (int32_t i = 1; i <= 1999; ++i) push(store, 1, i);
    EXPECT_EQ(store.by_thread.at(platform::current_thread_id()).size(), 1999U);
    push(store, 2, 2000);
    const auto& records = store.by_thread.at(platform::current_thread_id());
    ASSERT_EQ(records.size(), 1000U);
    EXPECT_EQ(records.front().line, "1001");
    EXPECT_EQ(records.back().line, "2000");
    EXPECT_EQ(last_error_code(store), 2);

    const std::string text = dump(store);
    EXPECT_NE(text.find("err_index:[0] \nerr_no:[1] \nerr_info:[General Failed] \n"
                        "occur_file:[code/src/x.cpp] \nerr_line:[1001] \n"),
              std::string::npos);
    EXPECT_NE(text.find("err_index:[999] \nerr_no:[2] \n"), std::string::npos);
    EXPECT_EQ(text.find("err_index:[1000] "), std::string::npos);
}

TEST(ErrorStore, DumpFormatIsExact) {
    Error_Store store;
    push(store, 0, 7);
    push(store, 76, 8);
    const std::string id = std::to_string(platform::current_thread_id());
    EXPECT_EQ(dump(store),
              "dump_all_error_info begin -----------------------\n"
              "std::thread::id :[" +
                  id +
                  "] errors:\n"
                  "err_index:[0] \n"
                  "err_no:[0] \n"
                  "err_info:[Success] \n"
                  "occur_file:[code/src/x.cpp] \n"
                  "err_line:[7] \n"
                  "err_index:[1] \n"
                  "err_no:[76] \n"
                  "err_info:[cfb file totally not a cfb] \n"
                  "occur_file:[code/src/x.cpp] \n"
                  "err_line:[8] \n"
                  "dump_all_error_info   end -----------------------\n");
}

TEST(ErrorStore, DumpToAFailedStreamWritesNothing) {
    Error_Store store;
    push(store, 1, 1);
    std::ostringstream out;
    out.setstate(std::ios::badbit);
    dump_all_error_info(store, out);
    EXPECT_TRUE(out.str().empty());
    EXPECT_EQ(store.by_thread.size(), 1U);
}

TEST(ErrorStore, ThreadsPushingAtOnceKeepSeparateHistories) {
    Error_Store store;
    constexpr int kPushes = 500;
    std::vector<uint32_t> ids(2);
    auto worker = [&store, &ids](int which, Error_Code code) {
        ids[which] = platform::current_thread_id();
        for (int i = 0; i < kPushes; ++i) push(store, code, i);
        EXPECT_EQ(last_error_code(store), code);
    };
    std::thread a(worker, 0, 59);
    std::thread b(worker, 1, 74);
    a.join();
    b.join();
    ASSERT_NE(ids[0], ids[1]);
    for (int which = 0; which < 2; ++which) {
        const auto& records = store.by_thread.at(ids[which]);
        ASSERT_EQ(records.size(), static_cast<size_t>(kPushes));
        for (int i = 0; i < kPushes; ++i) {
            EXPECT_EQ(records[i].code, which == 0 ? 59 : 74);
            EXPECT_EQ(records[i].line, std::to_string(i));
        }
    }
    // Threads appear in ascending id order.
    const std::string text = dump(store);
    const auto low = std::to_string(std::min(ids[0], ids[1]));
    const auto high = std::to_string(std::max(ids[0], ids[1]));
    EXPECT_LT(text.find("std::thread::id :[" + low + "]"),
              text.find("std::thread::id :[" + high + "]"));
}

TEST(ErrorStore, MacroNamesTheSourceFileRelativeToTheCheckout) {
    const int push_line = __LINE__ + 1;
    VRK_PUSH_ERROR(ec::kCfbEmpty);
    const Error_Record record = last_error(get_error_store());
    EXPECT_EQ(record.code, ec::kCfbEmpty);
    EXPECT_EQ(record.occur_file, "code/tests/error_store_test.cpp");
    EXPECT_EQ(record.line, std::to_string(push_line));
}

}  // namespace
}  // namespace vrk
