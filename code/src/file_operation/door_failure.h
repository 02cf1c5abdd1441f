// The one way the random-access file layer fails: the message goes to the private log at
// level 3 under the layer's source name and its first line number, then a std::logic_error
// carries "[source:line->function] message\n" with the second line number.
#pragma once

#include <cstdint>
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

// Where a read failure is reported: the reading function and its line numbers.
struct Read_Site {
    const char* function;
    int state_log_line;
    int state_throw_line;
    int range_log_line;
    int range_throw_line;
};

// The door's two byte reads; runs fail as the byte read the door is configured for.
inline constexpr Read_Site kNoMutexSite{"get_no_mutex", 682, 683, 688, 689};
inline constexpr Read_Site kWithMutexSite{"get_with_mutex", 648, 649, 654, 655};

// A read at `offset` from something that is not open (a door that is not fine).
[[noreturn]] void throw_not_fine(uint64_t offset, const Read_Site& site);
// A read at `offset`, which lies past the end of the file.
[[noreturn]] void throw_out_of_range(uint64_t offset, const Read_Site& site);

}  // namespace vrk
