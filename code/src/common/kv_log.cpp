#include "common/kv_log.h"

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

#include "common/fs_utils.h"
#include "common/platform.h"

namespace vrk {

namespace {

struct Kv_Log_State {
    std::mutex mutex;
    std::ofstream file;
};

Kv_Log_State& state() {
    static Kv_Log_State s;
    return s;
}

// "2026-01-31 23:59:59.123Z" from the system clock, UTC (civil-from-days, no time-zone
// tables needed).
std::string utc_timestamp() {
    using namespace std::chrono;
    const auto now = time_point_cast<milliseconds>(system_clock::now());
    const int64_t ms_total = now.time_since_epoch().count();
    int64_t days = ms_total / 86400000;
    int64_t ms_of_day = ms_total % 86400000;
    if (ms_of_day < 0) {
        ms_of_day += 86400000;
        --days;
    }
    const int64_t z = days + 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const int64_t doe = z - era * 146097;
    const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const int64_t mp = (5 * doy + 2) / 153;
    const int64_t day = doy - (153 * mp + 2) / 5 + 1;
    const int64_t month = mp < 10 ? mp + 3 : mp - 9;
    const int64_t year = yoe + era * 400 + (month <= 2 ? 1 : 0);
    char text[96];
    std::snprintf(
        text, sizeof text, "%04lld-%02lld-%02lld %02lld:%02lld:%02lld.%03lldZ",
        static_cast<long long>(year), static_cast<long long>(month), static_cast<long long>(day),
        static_cast<long long>(ms_of_day / 3600000), static_cast<long long>(ms_of_day / 60000 % 60),
        static_cast<long long>(ms_of_day / 1000 % 60), static_cast<long long>(ms_of_day % 1000));
    return text;
}

const char* level_name(uint32_t level) {
    switch (level) {
        case 1:
            return "INFO ";
        case 2:
            return "WARN ";
        case 3:
            return "ERROR";
        default:
            return "LEVEL";
    }
}

}  // namespace

int InitLogEx(const char* /*config_dir*/, const char* /*tag*/, const char* log_file_path) {
    if (log_file_path == nullptr || *log_file_path == '\0') return 1;
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.file.is_open()) s.file.close();
    s.file.clear();
    fs::remove_link_at(platform::widen(log_file_path));
    s.file.open(platform::to_path(platform::widen(log_file_path)),
                std::ios::out | std::ios::app | std::ios::binary);
    return s.file.is_open() ? 0 : 1;
}

void LogEx(const char* /*tag*/, uint32_t level, const char* format, ...) {
    if (format == nullptr) return;
    va_list args;
    va_start(args, format);
    va_list measure;
    va_copy(measure, args);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the analyzer does not model va_copy
    const int length = std::vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    std::vector<char> message(length > 0 ? static_cast<std::size_t>(length) + 1 : 1, '\0');
    if (length > 0) std::vsnprintf(message.data(), message.size(), format, args);
    va_end(args);

    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (!s.file.is_open()) return;
    s.file << utc_timestamp() << ' ' << level_name(level);
    if (level < 1 || level > 3) s.file << level;
    s.file << ' ' << message.data() << '\n';
    s.file.flush();
}

}  // namespace vrk
