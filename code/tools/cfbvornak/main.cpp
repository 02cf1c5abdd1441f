// cfbvornak: the library's exports from the command line.
//
//   cfbvornak [--log-dir DIR] [--config-dir DIR] [--work-dir DIR] COMMAND [ARGS...]
//
// The tool starts the library with the three folders (absolute; defaults under the user's
// own state and configuration folders), runs from the work folder, and calls each export on
// a fresh thread so that one call's result never leaks into the next.
#include <algorithm>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "cfb_vornak/cfb_vornak_api.h"
#include "cli.h"
#include "common/platform.h"
#include "tool_common.h"

namespace vrk::cli {

namespace {

std::vector<Command>& registry() {
    static std::vector<Command> commands;
    return commands;
}

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

std::filesystem::path native(const std::string& path) {
    return platform::to_path(platform::widen(path));
}

std::string narrow_of(const std::filesystem::path& path) {
    return platform::narrow(platform::from_path(path));
}

// %LOCALAPPDATA%\cfbvornak on Windows; elsewhere $XDG_STATE_HOME/cfbvornak (or
// ~/.local/state/cfbvornak) for logs and work, $XDG_CONFIG_HOME/cfbvornak (or
// ~/.config/cfbvornak) for configuration. The system's temporary folder when none is set.
Context default_context() {
    std::filesystem::path state;
    std::filesystem::path config;
    if (platform::kWindows) {
        const std::string local = environment("LOCALAPPDATA");
        if (!local.empty()) state = native(local) / "cfbvornak";
        config = state.empty() ? state : state / "config";
    } else {
        const std::string home = environment("HOME");
        const std::string xdg_state = environment("XDG_STATE_HOME");
        const std::string xdg_config = environment("XDG_CONFIG_HOME");
        if (!xdg_state.empty()) {
            state = native(xdg_state) / "cfbvornak";
        } else if (!home.empty()) {
            state = native(home) / ".local" / "state" / "cfbvornak";
        }
        if (!xdg_config.empty()) {
            config = native(xdg_config) / "cfbvornak";
        } else if (!home.empty()) {
            config = native(home) / ".config" / "cfbvornak";
        }
    }
    if (state.empty() || config.empty()) {
        std::wstring temp;
        std::string error;
        const std::filesystem::path base = platform::temp_directory(temp, error)
                                               ? platform::to_path(temp) / "cfbvornak"
                                               : std::filesystem::path("cfbvornak");
        if (state.empty()) state = base;
        if (config.empty()) config = base / "config";
    }
    return Context{narrow_of(state / "logs"), narrow_of(config), narrow_of(state / "work")};
}

void print_usage(std::ostream& out) {
    out << "usage: cfbvornak [--log-dir DIR] [--config-dir DIR] [--work-dir DIR] COMMAND [ARGS]\n"
           "\nChecks, analyses and repairs damaged compound files (.doc, .xls, .ppt).\n"
           "\nglobal options:\n"
           "  --log-dir DIR     the library's log folder\n"
           "  --config-dir DIR  the library's configuration folder\n"
           "  --work-dir DIR    scratch folders go here; the library runs from it\n"
           "\ncommands:\n";
    std::vector<Command> commands = registry();
    std::sort(commands.begin(), commands.end(),
              [](const Command& a, const Command& b) { return std::string(a.name) < b.name; });
    for (const Command& command : commands) {
        std::string name = command.name;
        name.resize(std::max<std::size_t>(name.size() + 2, 16), ' ');
        out << "  " << name << command.summary << '\n';
    }
    out << "\nRun 'cfbvornak COMMAND --help' for a command's options.\n"
           "Exit status: 0 all sound / done, 1 damaged or partly done, 2 usage or environment "
           "error.\n";
}

// The library's folders must exist before it starts, and it runs from the work folder.
bool enter_work_folder(const Context& context) {
    std::error_code error;
    std::filesystem::create_directories(native(context.work_dir), error);
    if (!error) std::filesystem::current_path(native(context.work_dir), error);
    if (error) {
        print_error("cannot use the work folder " + context.work_dir + ": " + error.message());
        return false;
    }
    return true;
}

int run_tool(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    Context context = default_context();
    remember_start_folder();
    std::size_t next = 0;
    // Global options, then the command name.
    for (; next < args.size(); ++next) {
        const std::string& arg = args[next];
        if (arg == "--help" || arg == "-h") {
            print_usage(std::cout);
            return kExitOk;
        }
        std::string* slot = nullptr;
        std::string name = arg.substr(0, arg.find('='));
        if (name == "--log-dir") slot = &context.log_dir;
        if (name == "--config-dir") slot = &context.config_dir;
        if (name == "--work-dir") slot = &context.work_dir;
        if (slot == nullptr) break;
        if (name.size() < arg.size()) {
            *slot = arg.substr(name.size() + 1);
        } else if (next + 1 < args.size()) {
            *slot = args[++next];
        } else {
            print_error("option " + name + " needs a value");
            return kExitUsage;
        }
        *slot = user_path(*slot);
    }
    if (next == args.size()) {
        print_usage(std::cerr);
        return kExitUsage;
    }
    const std::string name = args[next];
    const auto& commands = registry();
    const auto command = std::find_if(commands.begin(), commands.end(),
                                      [&](const Command& c) { return name == c.name; });
    if (command == commands.end()) {
        print_error("unknown command '" + name + "'");
        print_usage(std::cerr);
        return kExitUsage;
    }
    const std::vector<std::string> command_args(
        args.begin() + static_cast<std::ptrdiff_t>(next) + 1, args.end());
    // Help needs no library and must not create its folders.
    if (wants_help(command_args)) return command->run(context, command_args);

    if (!enter_work_folder(context)) return kExitUsage;
    const int32_t init =
        VrkCfbInit(context.log_dir.c_str(), context.config_dir.c_str(), context.work_dir.c_str());
    if (init != 0) {
        print_error("the library did not start (code " + std::to_string(init) + ")");
        return kExitUsage;
    }
    const int status = command->run(context, command_args);
    // Leaves the error records of this run in the log folder for later reading.
    run_on_fresh_thread([] { return VrkCfbDestroy(); });
    return status;
}

}  // namespace

Registrar::Registrar(Command command) {
    registry().push_back(std::move(command));
}

int run_on_fresh_thread(const std::function<int()>& work) {
    int result = 0;
    std::exception_ptr failure;
    std::thread thread([&] {
        try {
            result = work();
        } catch (...) {
            failure = std::current_exception();
        }
    });
    thread.join();
    if (failure) std::rethrow_exception(failure);
    return result;
}

}  // namespace vrk::cli

int main(int argc, char** argv) {
    try {
        return vrk::cli::run_tool(argc, argv);
    } catch (const std::exception& failure) {
        vrk::cli::print_error(failure.what());
    } catch (...) {
        vrk::cli::print_error("unexpected failure");
    }
    return vrk::cli::kExitUsage;
}
