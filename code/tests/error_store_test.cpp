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

const std::string kDumpBegin = "dump_all_error_info begin -----------------------\n";
const std::string kDumpEnd = "dump_all_error_info   end -----------------------\n";

std::string thread_line() {
    return "std::thread::id :[" + std::to_string(platform::current_thread_id()) + "] errors:\n";
}

TEST(ErrorStore, EmptyThenRecordsWithTextsAndExactDump) {
    Error_Store store;
    const Error_Record empty = last_error(store);
    EXPECT_EQ(empty.code, 0);
    EXPECT_EQ(empty.text, nullptr);
    EXPECT_TRUE(empty.line.empty());
    EXPECT_EQ(dump(store), kDumpBegin + thread_line() + kDumpEnd);

    push(store, 0, 7);
    push(store, 76, 8);
    const Error_Record record = last_error(store);
    EXPECT_EQ(record.code, 76);
    EXPECT_STREQ(record.text, "cfb file totally not a cfb");
    EXPECT_EQ(record.occur_file, "code/src/x.cpp");
    EXPECT_EQ(record.line, "8");
    EXPECT_EQ(dump(store), kDumpBegin + thread_line() +
                               "err_index:[0] \nerr_no:[0] \nerr_info:[Success] \n"
                               "occur_file:[code/src/x.cpp] \nerr_line:[7] \n"
                               "err_index:[1] \nerr_no:[76] \n"
                               "err_info:[cfb file totally not a cfb] \n"
                               "occur_file:[code/src/x.cpp] \nerr_line:[8] \n" +
                               kDumpEnd);

    std::ostringstream failed;
    failed.setstate(std::ios::badbit);
    dump_all_error_info(store, failed);
    EXPECT_TRUE(failed.str().empty());
}

TEST(ErrorStore, UnknownCodeRepeatsThePreviousRecordOfAnyThread) {
    Error_Store first;
    push(first, 78, 1);  // nothing before it: the empty record, with its line
    EXPECT_EQ(last_error(first).code, 0);
    EXPECT_EQ(last_error(first).text, nullptr);
    EXPECT_EQ(last_error(first).line, "1");

    Error_Store store;
    push(store, 4, 10);
    push(store, 40, 11);
    EXPECT_EQ(last_error(store).code, 4);
    EXPECT_STREQ(last_error(store).text, "Invalid argument");
    EXPECT_EQ(last_error(store).line, "11");
    push(store, -4, 12);  // exact lookup: -4 is unknown too
    EXPECT_EQ(last_error_code(store), 4);

    Error_Store other;
    std::thread([&other] { push(other, 59, 1); }).join();
    push(other, 43, 2);
    EXPECT_EQ(last_error_code(other), 59);
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
    const std::string text = dump(store);
    EXPECT_NE(text.find("err_index:[0] \nerr_no:[1] \nerr_info:[General Failed] \n"
                        "occur_file:[code/src/x.cpp] \nerr_line:[1001] \n"),
              std::string::npos);
    EXPECT_NE(text.find("err_index:[999] \nerr_no:[2] \n"), std::string::npos);
    EXPECT_EQ(text.find("err_index:[1000] "), std::string::npos);
}

TEST(ErrorStore, ThreadsPushingAtOnceKeepSeparateHistoriesListedByThreadId) {
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
    const std::string text = dump(store);
    EXPECT_LT(text.find("std::thread::id :[" + std::to_string(std::min(ids[0], ids[1])) + "]"),
              text.find("std::thread::id :[" + std::to_string(std::max(ids[0], ids[1])) + "]"));
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
