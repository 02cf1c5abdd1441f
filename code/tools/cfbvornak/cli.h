// The cfbvornak command-line tool: one file per command, each registering itself here.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace vrk::cli {

// Exit statuses shared by every command.
inline constexpr int kExitOk = 0;       // every file sound / the operation fully succeeded
inline constexpr int kExitPartial = 1;  // damaged file, or not all of the work could be done
inline constexpr int kExitUsage = 2;    // usage error or environment failure

// Global options, parsed before the command name.
struct Context {
    std::string log_dir;     // --log-dir
    std::string config_dir;  // --config-dir
    std::string work_dir;    // --work-dir; the library runs with this as its current folder
};

struct Command {
    const char* name;
    const char* summary;
    // args: everything after the command name. Prints its own --help.
    std::function<int(const Context&, const std::vector<std::string>&)> run;
};

// Registers a command at static-initialisation time.
struct Registrar {
    explicit Registrar(Command command);
};

// Runs `work` on a fresh thread and returns its result, so that the library's per-thread
// result of one export call never leaks into the next.
int run_on_fresh_thread(const std::function<int()>& work);

}  // namespace vrk::cli
