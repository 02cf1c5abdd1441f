#include "common/tw_logger.h"

#include <cstdio>
#include <exception>
#include <filesystem>

#include "common/fs_utils.h"
#include "common/platform.h"

namespace vrk {

TW_Logger& TW_Logger::instance() {
    static TW_Logger logger;
    return logger;
}

void TW_Logger::open_file() {
    m_open_tried = true;
    const std::wstring folder =
        std::wstring(L".") + platform::kSeparator + L"Logs" + platform::kSeparator;
    bool folder_ok = false;
    try {
        folder_ok = fs::create_directories(folder);
    } catch (const std::exception&) {
        folder_ok = false;
    }
    std::fputs(folder_ok ? "log init path dir OK!\n" : "log init path dir error!\n", stderr);
    const std::wstring name =
        folder + std::to_wstring(platform::current_process_id()) + L"_qtw_private.log";
    fs::remove_link_at(name);
    m_file.open(platform::to_path(name), std::ios::out | std::ios::app | std::ios::binary);
    std::fputs(
        m_file.is_open() ? "log init path file_name OK!\n" : "log init path file_name error!\n",
        stderr);
}

void TW_Logger::write(const std::string& message, const char* source_file, int line, int level) {
    if (level < m_min_level) return;
    std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_open_tried) open_file();
    const std::string text = "File[ " + std::string(source_file != nullptr ? source_file : "") +
                             " ], Line[ " + std::to_string(line) + " ], Infomation[ " + message +
                             " ]\n";
    std::fwrite(text.data(), 1, text.size(), stderr);
    std::fflush(stderr);
    if (m_file.is_open()) {
        m_file << text;
        m_file.flush();
    }
}

}  // namespace vrk
