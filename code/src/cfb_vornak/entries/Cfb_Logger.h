// Process-wide logger facade over InitLogEx/LogEx. Information-level lines (1) passed to the
// filtered writes are dropped by design; errors (3) reach the log file once started.
#pragma once

#include <string>

namespace vrk {

class Cfb_Logger {
  public:
    static constexpr int kInfo = 1;
    static constexpr int kError = 3;

    // Starts once per process; always true. Later calls change nothing.
    [[nodiscard]] static bool start(const std::string& config_dir, const std::string& tag,
                                    const std::string& log_dir);
    static bool is_init();
    // Whether lines of `level` reach the log at all (information lines are dropped).
    static bool writes(int level);
    // The log folder, copied under the mutex; false when not started.
    static bool get_log_dir(std::string& log_dir);

    static void write(const std::string& message, const char* source_file, int line, int level);
    static void write(const std::wstring& message, const char* source_file, int line, int level);
    static void write_unfiltered(const std::string& message, const char* source_file, int line,
                                 int level);
};

}  // namespace vrk

#define CFB_LOG_INFO(msg) \
    ::vrk::Cfb_Logger::write((msg), __FILE__, __LINE__, ::vrk::Cfb_Logger::kInfo)
#define CFB_LOG_ERROR(msg) \
    ::vrk::Cfb_Logger::write((msg), __FILE__, __LINE__, ::vrk::Cfb_Logger::kError)
