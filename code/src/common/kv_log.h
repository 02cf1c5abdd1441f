// The logging back end: each line, with a timestamp and its level, goes to the file named at
// start and is flushed at once, so nothing is lost when the host dies. Thread-safe.
#pragma once

#include <cstdint>

namespace vrk {

// Opens (appending) the log file `log_file_path`, creating it if needed. 0 on success.
int InitLogEx(const char* config_dir, const char* tag, const char* log_file_path);
// Formats one line and appends it to the file given at start; does nothing before a start.
void LogEx(const char* tag, uint32_t level, const char* format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 3, 4)))
#endif
    ;

}  // namespace vrk
