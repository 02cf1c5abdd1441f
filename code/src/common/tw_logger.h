// The private logger of the file layer and the common utilities: lines go to standard error
// and to a file "<process id>_qtw_private.log" in the ".\Logs\" folder of the current folder,
// opened at the first line written (loading the library creates nothing).
#pragma once

#include <cstdint>
#include <string>

namespace vrk {

class TW_Logger {
public:
    static TW_Logger& instance();
    // Level 3 is an error; lines below the minimum level (3) are dropped.
    void write(const std::string& message, const char* source_file, int line, int level);
    int minimum_level() const { return m_min_level; }

private:
    TW_Logger() = default;
    int m_min_level = 3;
};

}  // namespace vrk
