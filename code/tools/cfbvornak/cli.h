// The cfbvornak command-line tool: one file per command, each registering itself on the shared
// command table here. main.cpp builds the parser (CLI11) from the table.
#pragma once

#include <functional>
#include <string>

namespace CLI {
class App;
}

namespace vrk::cli {

// Exit statuses shared by every command.
inline constexpr int kExitOk = 0;       // every file sound / the operation fully succeeded
inline constexpr int kExitPartial = 1;  // damaged file, or not all of the work could be done
inline constexpr int kExitUsage = 2;    // usage error or environment failure

// Global options, accepted anywhere on the command line.
struct Context {
    std::string log_dir;        // --log-dir
    std::string config_dir;     // --config-dir
    std::string work_dir;       // --work-dir; the library runs with this as its current folder
    bool english_only = false;  // --lang en, or a LANG without "zh": no Chinese in our lines
};

using Runner = std::function<int(const Context&)>;

struct Command {
    const char* name;
    const char* summary;
    const char* exit_statuses;  // the help's last paragraph
    // Starts the library (and moves to the work folder) before the runner runs.
    bool needs_library;
    // Adds the command's options and positionals to `app` (bound to the command's own
    // storage) and returns what runs once the line is parsed.
    std::function<Runner(CLI::App& app)> setup;
};

// Registers a command at static-initialisation time.
struct Registrar {
    explicit Registrar(Command command);
};

// Runs `work` on a fresh thread and returns its result, so that the library's per-thread
// result of one export call never leaks into the next.
int run_on_fresh_thread(const std::function<int()>& work);

}  // namespace vrk::cli
