#include "common/error_codes.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

namespace vrk {
namespace {

constexpr int32_t kMin = std::numeric_limits<int32_t>::min();

// Exact texts, blanks included; codes in the gaps and past the ends are unknown, negative ones
// resolve by magnitude (but not in the exact lookup).
TEST(ErrorCodeText, Table) {
    const std::pair<Error_Code, const char*> cases[] = {
        {0, "Success"},
        {31, " thirty  lib error"},
        {52, "error !open debug classifed resources file  failed"},
        {81, "rtf file group is not match"},
        {-72, "cfb file is fine"},
        {40, "Error code unknown"},
        {54, "Error code unknown"},
        {82, "Error code unknown"},
        {kMin, "Error code unknown"},
    };
    for (const auto& [code, text] : cases) EXPECT_STREQ(error_code_text(code), text) << code;
    const char* found = nullptr;
    EXPECT_FALSE(find_error_code_exact(-4, &found) || found != nullptr);
    EXPECT_TRUE(find_error_code_exact(4, &found));
    EXPECT_STREQ(found, "Invalid argument");
    const std::pair<Error_Code, const char*> damage[] = {
        {0, "文件大概率没逝~"},
        {59, "文件头部魔数错误~"},
        {74, "文件根目录项丢失，没救了~"},
        {76, "文件完全就不是一个cfb~"},
        {77, "未知错误[77]~"},
        {-1, "未知错误[4294967295]~"},
    };
    for (const auto& [code, text] : damage) EXPECT_EQ(damaged_type_description(code), text);
}

// Every range's edges; whatever the code, the result is 0 or one of -3100 to -3114.
TEST(ToApiResultCode, FoldingTable) {
    const std::pair<Error_Code, Api_Result_Code> cases[] = {
        {0, 0},      {72, 0},      {1, -3101},    {5, -3101},
        {6, -3102},  {7, -3100},   {10, -3103},   {13, -3103},
        {52, -3103}, {53, -3103},  {19, -3113},   {31, -3104},
        {32, -3105}, {33, -3105},  {34, -3106},   {38, -3106},
        {39, -3100}, {57, -3107},  {58, -3107},   {59, -3108},
        {71, -3108}, {73, -3109},  {74, -3110},   {75, -3111},
        {76, -3112}, {77, -3114},  {78, -3100},   {81, -3100},
        {-5, -3100}, {-72, -3100}, {kMin, -3100}, {std::numeric_limits<int32_t>::max(), -3100},
    };
    for (const auto& [code, result] : cases) EXPECT_EQ(to_api_result_code(code), result) << code;
}

}  // namespace
}  // namespace vrk
