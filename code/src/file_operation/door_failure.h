// The one way the random-access file layer fails: the message goes to the private log at
// level 3 under the layer's source name and its first line number, then a std::logic_error
// carries "[source:line->function] message\n" with the second line number.
#pragma once

#include <string>

namespace vrk {

// The source name every log line and failure text of the file layer carries.
inline constexpr char kDoorSourceFile[] = "code/src/file_operation/File_Anywhere_Door";

// Writes `message` to the private log at level 3 with `log_line`.
void log_door_error(const std::string& message, int log_line);

// Logs with `log_line`, then throws std::logic_error with the text formatted with
// `throw_line` and `function`.
[[noreturn]] void throw_door_failure(const std::string& message, int log_line, int throw_line,
                                     const char* function);

}  // namespace vrk
