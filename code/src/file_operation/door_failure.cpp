#include "file_operation/door_failure.h"

#include <cstdio>
#include <stdexcept>
#include <vector>

#include "common/tw_logger.h"

namespace vrk {

namespace {
// Longer texts are cut at this size, as every reader of these failures expects.
constexpr std::size_t kFailureTextCapacity = 50000;
}  // namespace

void log_door_error(const std::string& message, int log_line) {
    TW_Logger::instance().write(message, kDoorSourceFile, log_line, 3);
}

void throw_door_failure(const std::string& message, int log_line, int throw_line,
                        const char* function) {
    log_door_error(message, log_line);
    std::vector<char> text(kFailureTextCapacity, '\0');
    std::snprintf(text.data(), text.size(), "[%s:%d->%s] %s\n", kDoorSourceFile, throw_line,
                  function, message.c_str());
    throw std::logic_error(text.data());
}

}  // namespace vrk
