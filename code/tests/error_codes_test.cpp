#include "common/error_codes.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

namespace vrk {
namespace {

TEST(ErrorCodeText, KnownCodesKeepTheirExactBlanks) {
    EXPECT_STREQ(error_code_text(0), "Success");
    EXPECT_STREQ(error_code_text(31), " thirty  lib error");
    EXPECT_STREQ(error_code_text(48), "error !self make epub opf file open failed ");
    EXPECT_STREQ(error_code_text(52), "error !open debug classifed resources file  failed");
    EXPECT_STREQ(error_code_text(64), "cfb file  mini sector shift not right");
    EXPECT_STREQ(error_code_text(72), "cfb file is fine");
    EXPECT_STREQ(error_code_text(77), "cfb file ext not right");
    EXPECT_STREQ(error_code_text(81), "rtf file group is not match");
}

TEST(ErrorCodeText, AbsentCodesAreUnknown) {
    for (Error_Code code : {40, 43, 54, 56, 78, 79, 82, 1000}) {
        EXPECT_STREQ(error_code_text(code), "Error code unknown") << code;
    }
    EXPECT_STREQ(error_code_text(std::numeric_limits<int32_t>::min()), "Error code unknown");
}

TEST(ErrorCodeText, NegativeCodesResolveByMagnitude) {
    EXPECT_STREQ(error_code_text(-72), "cfb file is fine");
    EXPECT_STREQ(error_code_text(-57), "cfb file open failed");
    EXPECT_STREQ(error_code_text(-40), "Error code unknown");
}

TEST(FindErrorCodeExact, NoMagnitudeLookup) {
    const char* text = nullptr;
    EXPECT_TRUE(find_error_code_exact(4, &text));
    EXPECT_STREQ(text, "Invalid argument");
    text = nullptr;
    EXPECT_FALSE(find_error_code_exact(-4, &text));
    EXPECT_FALSE(find_error_code_exact(40, &text));
    EXPECT_EQ(text, nullptr);
}

TEST(DamagedTypeDescription, KnownTypes) {
    EXPECT_EQ(damaged_type_description(0), "文件大概率没逝~");
    EXPECT_EQ(damaged_type_description(59), "文件头部魔数错误~");
    EXPECT_EQ(damaged_type_description(71), "文件头部disat的109个sid错误~");
    EXPECT_EQ(damaged_type_description(74), "文件根目录项丢失，没救了~");
    EXPECT_EQ(damaged_type_description(76), "文件完全就不是一个cfb~");
}

TEST(DamagedTypeDescription, UnknownTypesShowTheUnsignedValue) {
    EXPECT_EQ(damaged_type_description(72), "未知错误[72]~");
    EXPECT_EQ(damaged_type_description(73), "未知错误[73]~");
    EXPECT_EQ(damaged_type_description(77), "未知错误[77]~");
    EXPECT_EQ(damaged_type_description(-1), "未知错误[4294967295]~");
    EXPECT_EQ(damaged_type_description(std::numeric_limits<int32_t>::min()),
              "未知错误[2147483648]~");
}

TEST(ToApiResultCode, FoldingTable) {
    struct Case {
        Error_Code code;
        Api_Result_Code expected;
    };
    const Case cases[] = {
        {0, 0},
        {72, 0},
        {1, -3101},
        {5, -3101},
        {6, -3102},
        {7, -3100},
        {10, -3103},
        {13, -3103},
        {52, -3103},
        {53, -3103},
        {19, -3113},
        {31, -3104},
        {32, -3105},
        {33, -3105},
        {34, -3106},
        {38, -3106},
        {39, -3100},
        {57, -3107},
        {58, -3107},
        {59, -3108},
        {71, -3108},
        {73, -3109},
        {74, -3110},
        {75, -3111},
        {76, -3112},
        {77, -3114},
        {78, -3100},
        {81, -3100},
        {-5, -3100},
        {-72, -3100},
        {std::numeric_limits<int32_t>::min(), -3100},
        {std::numeric_limits<int32_t>::max(), -3100},
    };
    for (const auto& c : cases) EXPECT_EQ(to_api_result_code(c.code), c.expected) << c.code;
}

TEST(ToApiResultCode, EveryCodeFoldsIntoThePublicRange) {
    for (Error_Code code = -100; code <= 200; ++code) {
        const Api_Result_Code result = to_api_result_code(code);
        EXPECT_TRUE(result == 0 || (result <= -3100 && result >= -3114)) << code;
    }
}

}  // namespace
}  // namespace vrk
