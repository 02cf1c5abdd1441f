// The private logger of the file layer and the common utilities: lines go to standard error
// and to a file "<process id>_qtw_private.log" in the ".\Logs\" folder of the current folder,
// opened at the first line written (loading the library creates nothing).
#pragma once

#include <cstdint>
#include <fstream>
#include <mutex>
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
    // Creates the folder and opens the file; called once, under the mutex.
    void open_file();

    std::mutex m_mutex;
    int m_min_level = 3;
    bool m_open_tried = false;
    std::ofstream m_file;
};

}  // namespace vrk
