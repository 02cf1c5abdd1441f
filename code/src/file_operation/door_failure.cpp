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

void throw_not_fine(uint64_t offset, const Read_Site& site) {
    // The bracket holds the offset, not a file name.
    throw_door_failure("File_Anywhere_Door state is not fine ! the file [" +
                           std::to_string(offset) + "]can not access! \n",
                       site.state_log_line, site.state_throw_line, site.function);
}

void throw_out_of_range(uint64_t offset, const Read_Site& site) {
    throw_door_failure("File_Anywhere_Door access is illegal ! the offset [" +
                           std::to_string(offset) + "]is  out of  range! \n",
                       site.range_log_line, site.range_throw_line, site.function);
}

}  // namespace vrk
