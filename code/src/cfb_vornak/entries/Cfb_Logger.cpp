#include "cfb_vornak/entries/Cfb_Logger.h"

#include <cstdio>
#include <exception>
#include <mutex>

#include "common/fs_utils.h"
#include "common/kv_log.h"
#include "common/platform.h"

namespace vrk {

namespace {

// Level below which the filtered writes drop a line.
constexpr int kLowestLoggedLevel = 2;
constexpr const char* kLineFormat = "[%s:%d]->info: %s";

std::string default_log_dir() {
    return std::string(".") + static_cast<char>(platform::kSeparator) + "Logs";
}

struct Logger_State {
    std::mutex mutex;
    bool initialised = false;
    std::string config_dir;
    std::string log_dir = default_log_dir();
    std::string tag;
};

Logger_State& state() {
    static Logger_State s;
    return s;
}

std::string log_file_path(const Logger_State& s) {
    return s.log_dir + static_cast<char>(platform::kSeparator) + s.tag + ".log";
}

void log_line(const Logger_State& s, const std::string& message, const char* source_file, int line,
              int level) {
    LogEx(s.tag.c_str(), static_cast<uint32_t>(level), kLineFormat,
          source_file != nullptr ? source_file : "", line, message.c_str());
}

}  // namespace

bool Cfb_Logger::start(const std::string& config_dir, const std::string& tag,
                       const std::string& log_dir) {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.initialised) return true;
    s.config_dir = config_dir;
    s.log_dir = log_dir;
    s.tag = tag;
    if (InitLogEx(s.config_dir.c_str(), s.tag.c_str(), log_file_path(s).c_str()) == 0) {
        s.initialised = true;
        return true;
    }
    // Fallback to the defaults; the library counts as started even if this fails too.
    s.config_dir = "config";
    s.log_dir = default_log_dir();
    s.tag = "cfb_repair_sdk";
    try {
        (void)fs::create_directories(platform::widen(s.log_dir));  // reported below if missing
    } catch (const std::exception&) {
        // InitLogEx below reports the folder's absence in its turn.
    }
    InitLogEx(s.config_dir.c_str(), s.tag.c_str(), log_file_path(s).c_str());
    s.initialised = true;
    const std::string diagnostic = "\n init log parameter error! \nconfig_folder :" + s.config_dir +
                                   "\nlog_file_dir_str :" + s.log_dir + "\ntag :" + s.tag + "\n";
    std::fwrite(diagnostic.data(), 1, diagnostic.size(), stderr);
    return true;
}

bool Cfb_Logger::is_init() {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.initialised;
}

bool Cfb_Logger::get_log_dir(std::string& log_dir) {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (!s.initialised) return false;
    log_dir = s.log_dir;
    return true;
}

bool Cfb_Logger::writes(int level) {
    return level >= kLowestLoggedLevel;
}

void Cfb_Logger::write(const std::string& message, const char* source_file, int line, int level) {
    if (!writes(level)) return;
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (!s.initialised) return;
    log_line(s, message, source_file, line, level);
}

void Cfb_Logger::write(const std::wstring& message, const char* source_file, int line, int level) {
    if (level < kLowestLoggedLevel) return;
    // The log file is UTF-8 throughout, like the narrow texts of the library.
    write(platform::to_utf8(message), source_file, line, level);
}

void Cfb_Logger::write_unfiltered(const std::string& message, const char* source_file, int line,
                                  int level) {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (!s.initialised) return;
    log_line(s, message, source_file, line, level);
}

}  // namespace vrk
