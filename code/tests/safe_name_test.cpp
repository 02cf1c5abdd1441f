#include "cfb_vornak/Safe_Name.h"

#include <gtest/gtest.h>

#include <string>

#include "common/platform.h"

namespace vrk {
namespace {

TEST(SafeName, RefusedEverywhere) {
    for (const bool windows : {false, true}) {
        EXPECT_TRUE(is_refused_file_name(L"", windows));
        EXPECT_TRUE(is_refused_file_name(L".", windows));
        EXPECT_TRUE(is_refused_file_name(L"..", windows));
        EXPECT_TRUE(is_refused_file_name(L"a/b", windows));
        EXPECT_TRUE(is_refused_file_name(L"/", windows));
        EXPECT_TRUE(is_refused_file_name(std::wstring(L"a\0b", 3), windows));
        EXPECT_FALSE(is_refused_file_name(L"Root Entry", windows));
        EXPECT_FALSE(is_refused_file_name(L"...a", windows));
        EXPECT_FALSE(is_refused_file_name(L"\u0005SummaryInformation", false));
        EXPECT_FALSE(is_refused_file_name(L"原始数据", windows));
    }
}

TEST(SafeName, BackslashIsOrdinaryOnPosixOnly) {
    EXPECT_FALSE(is_refused_file_name(L"a\\b", false));
    EXPECT_TRUE(is_refused_file_name(L"a\\b", true));
    EXPECT_EQ(is_refused_file_name(L"a\\b"), platform::kWindows);
}

TEST(SafeName, WindowsCharactersAndEndings) {
    for (const wchar_t* name :
         {L"\u0001CompObj", L"\u0005SummaryInformation", L"a<b", L"a>b", L"c:d", L"a\"b", L"a|b",
          L"a?b", L"a*b", L"name.", L"name ", L"a\tb"}) {
        EXPECT_TRUE(is_refused_file_name(name, true)) << name;
        EXPECT_FALSE(is_refused_file_name(name, false)) << name;
    }
}

TEST(SafeName, WindowsDevices) {
    for (const wchar_t* name : {L"CON", L"con", L"Prn", L"AUX", L"nul", L"COM1", L"com9", L"LPT1",
                                L"lpt9", L"CON.txt", L"nul.tar.gz", L"COM1 .log", L"LPT\u00B9"}) {
        EXPECT_TRUE(is_refused_file_name(name, true)) << name;
        EXPECT_FALSE(is_refused_file_name(name, false)) << name;
    }
    for (const wchar_t* name :
         {L"CONSOLE", L"COM0", L"COM10", L"LPT", L"xCON", L"NULL.txt", L"Workbook", L"1Table"}) {
        EXPECT_FALSE(is_refused_file_name(name, true)) << name;
    }
}

}  // namespace
}  // namespace vrk
