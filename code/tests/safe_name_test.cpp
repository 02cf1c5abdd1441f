#include "cfb_vornak/model/Safe_Name.h"

#include <gtest/gtest.h>

#include <string>

#include "common/platform.h"

namespace vrk {
namespace {

void expect_refused(const std::wstring& name, bool on_posix, bool on_windows) {
    EXPECT_EQ(is_refused_file_name(name, false), on_posix) << platform::to_utf8(name);
    EXPECT_EQ(is_refused_file_name(name, true), on_windows) << platform::to_utf8(name);
}

TEST(SafeName, RefusedOnWhichSystems) {
    for (const wchar_t* name : {L"", L".", L"..", L"a/b", L"/"}) expect_refused(name, true, true);
    expect_refused(std::wstring(L"a\0b", 3), true, true);
    for (const wchar_t* name :
         {L"Root Entry", L"...a", L"原始数据", L"CONSOLE", L"COM0", L"COM10", L"LPT", L"xCON"}) {
        expect_refused(name, false, false);
    }
    // Characters, endings and device names only Windows refuses; "\" is ordinary on POSIX.
    for (const wchar_t* name :
         {L"a\\b", L"\u0001CompObj", L"a<b",        L"c:d",       L"a\"b",     L"a|b",
          L"a?b",  L"a*b",           L"name.",      L"name ",     L"a\tb",     L"con",
          L"Prn",  L"AUX",           L"nul",        L"COM1",      L"com9",     L"LPT1",
          L"lpt9", L"CON.txt",       L"nul.tar.gz", L"COM1 .log", L"LPT\u00B9"}) {
        expect_refused(name, false, true);
    }
    EXPECT_EQ(is_refused_file_name(L"a\\b"), platform::kWindows);
}

}  // namespace
}  // namespace vrk
