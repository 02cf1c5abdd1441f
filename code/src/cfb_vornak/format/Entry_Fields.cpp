#include "cfb_vornak/format/Entry_Fields.h"

#include <cstdio>

#include "common/byte_order.h"

namespace vrk {

namespace {

constexpr uint64_t kTicksPerSecond = 10000000;
// Seconds from 1601-01-01 to 1970-01-01.
constexpr uint64_t kSecondsBefore1970 = 11644473600;
// Seconds from 1601-01-01 to 10000-01-01: later times need a fifth digit of year.
constexpr uint64_t kSecondsBefore10000 = 265046774400;

struct Civil_Date {
    int64_t year;
    unsigned month;
    unsigned day;
};

// The proleptic Gregorian date of a day counted from 1970-01-01 (negative before).
Civil_Date civil_from_days(int64_t days) {
    days += 719468;
    const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const auto day_of_era = static_cast<uint64_t>(days - era * 146097);
    const uint64_t year_of_era =
        (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
    const uint64_t day_of_year =
        day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    const uint64_t mp = (5 * day_of_year + 2) / 153;
    const auto day = static_cast<unsigned>(day_of_year - (153 * mp + 2) / 5 + 1);
    const auto month = static_cast<unsigned>(mp < 10 ? mp + 3 : mp - 9);
    const int64_t year = static_cast<int64_t>(year_of_era) + era * 400 + (month <= 2 ? 1 : 0);
    return Civil_Date{year, month, day};
}

}  // namespace

std::string clsid_text(const std::array<uint8_t, 16>& clsid) {
    char buffer[96];
    std::snprintf(buffer, sizeof buffer, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                  static_cast<unsigned>(read_u32_le(clsid.data())),
                  static_cast<unsigned>(read_u16_le(clsid.data() + 4)),
                  static_cast<unsigned>(read_u16_le(clsid.data() + 6)), clsid[8], clsid[9],
                  clsid[10], clsid[11], clsid[12], clsid[13], clsid[14], clsid[15]);
    return buffer;
}

bool clsid_is_null(const std::array<uint8_t, 16>& clsid) {
    for (const uint8_t byte : clsid) {
        if (byte != 0) return false;
    }
    return true;
}

bool filetime_text(const std::array<uint8_t, 8>& filetime, std::string& text) {
    text.clear();
    const uint64_t ticks = read_u64_le(filetime.data());
    if (ticks == 0) return true;
    const uint64_t seconds = ticks / kTicksPerSecond;
    const uint64_t fraction = ticks % kTicksPerSecond;
    if (seconds >= kSecondsBefore10000) return false;
    const int64_t since_1970 =
        static_cast<int64_t>(seconds) - static_cast<int64_t>(kSecondsBefore1970);
    const int64_t days = (since_1970 >= 0 ? since_1970 : since_1970 - 86399) / 86400;
    const auto in_day = static_cast<unsigned>(since_1970 - days * 86400);
    const Civil_Date date = civil_from_days(days);
    char buffer[96];
    std::snprintf(buffer, sizeof buffer, "%04lld-%02u-%02uT%02u:%02u:%02u",
                  static_cast<long long>(date.year), date.month, date.day, in_day / 3600,
                  in_day / 60 % 60, in_day % 60);
    text = buffer;
    if (fraction != 0) {
        std::snprintf(buffer, sizeof buffer, ".%07llu", static_cast<unsigned long long>(fraction));
        text += buffer;
    }
    text += 'Z';
    return true;
}

uint32_t state_bits_value(const std::array<uint8_t, 4>& state_bits) {
    return read_u32_le(state_bits.data());
}

}  // namespace vrk
