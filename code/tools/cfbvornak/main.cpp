// cfbvornak: the library's exports and the salvage from the command line.
//
//   cfbvornak [GLOBAL OPTIONS] COMMAND [OPTIONS] [ARGS...]   (global options go anywhere)
//
// Commands that call the exports start the library with the three folders (absolute; defaults
// under the user's own state and configuration folders), run from the work folder, and call
// each export on a fresh thread so that one call's result never leaks into the next.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "cfb_vornak/cfb_vornak_api.h"
#include "cli.h"
#include "common/platform.h"
#include "tool_common.h"

#ifndef CFBVORNAK_VERSION
#error "CFBVORNAK_VERSION comes from the project version in CMake"
#endif

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
    Context context{narrow_of(state / "logs"), narrow_of(config), narrow_of(state / "work")};
    // The locale the messages follow: LC_ALL, then LC_MESSAGES, then LANG.
    std::string locale = environment("LC_ALL");
    if (locale.empty()) locale = environment("LC_MESSAGES");
    if (locale.empty()) locale = environment("LANG");
    context.english_only = locale.find("zh") == std::string::npos;
    return context;
}

// The library's folders must exist before it starts, and it runs from the work folder (unless
// the start folder is gone: relative paths must then keep failing, not reach the work folder).
bool enter_work_folder(const Context& context) {
    std::error_code error;
    std::filesystem::create_directories(native(context.work_dir), error);
    if (!error && start_folder_known()) {
        std::filesystem::current_path(native(context.work_dir), error);
    }
    if (error) {
        print_error("cannot use the work folder " + context.work_dir + ": " + error.message());
        return false;
    }
    return true;
}

// Edits (insertions, deletions, substitutions) between two short words.
std::size_t edit_distance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] != b[j - 1])});
            diagonal = above;
        }
    }
    return row[b.size()];
}

// The name within two edits of `word` (being its beginning counts as one), the nearest first;
// empty when none is.
std::string nearest_name(const std::string& word, const std::vector<std::string>& names) {
    std::string best;
    std::size_t best_distance = 3;
    for (const std::string& name : names) {
        const std::size_t distance =
            name.rfind(word, 0) == 0 && !word.empty() ? 1 : edit_distance(word, name);
        if (distance < best_distance) {
            best_distance = distance;
            best = name;
        }
    }
    return best;
}

std::string with_suggestion(std::string text, const std::string& suggestion) {
    if (!suggestion.empty()) text += "; did you mean '" + suggestion + "'?";
    return text;
}

// "unknown command 'chek'; did you mean 'check'?" when one command is near enough.
std::string unknown_command_text(const std::string& word) {
    std::vector<std::string> names;
    for (const Command& command : registry()) names.emplace_back(command.name);
    return with_suggestion("unknown command '" + word + "'", nearest_name(word, names));
}

// "unexpected argument '--jsno' for check; did you mean '--json'?": options are looked up among
// the command's own and the global ones.
std::string unexpected_argument_text(const std::string& word, const CLI::App& command) {
    std::string text = "unexpected argument '" + word + "' for " + command.get_name();
    if (word.size() < 2 || word[0] != '-') return text;
    std::vector<std::string> names;
    for (const CLI::App* app : {&command, command.get_parent()}) {
        for (const CLI::Option* option : app->get_options()) {
            for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
            for (const std::string& name : option->get_snames()) names.push_back("-" + name);
        }
    }
    return with_suggestion(text, nearest_name(word.substr(0, word.find('=')), names));
}

constexpr const char* kGlobalOptions =
    "Global options (anywhere on the line): --log-dir DIR, --config-dir DIR, --work-dir DIR,\n"
    "--lang en|zh (en: the tool's own lines in English only; default from LANG), --version.";

// Starts the library from the work folder, runs `work`, and leaves the error records of the
// run in the log folder.
int with_library(const Context& context, const std::function<int()>& work) {
    if (!enter_work_folder(context)) return kExitUsage;
    const int32_t init =
        VrkCfbInit(context.log_dir.c_str(), context.config_dir.c_str(), context.work_dir.c_str());
    if (init != 0) {
        print_error("the library did not start (code " + std::to_string(init) + ")");
        return kExitUsage;
    }
    const int status = work();
    run_on_fresh_thread([] { return VrkCfbDestroy(); });
    return status;
}

int run_command(int argc, char** argv) {
    Context context = default_context();
    remember_start_folder();

    CLI::App app(
        "Checks, analyses, repairs and salvages damaged compound files (.doc, .xls, "
        ".ppt).",
        "cfbvornak");
    app.get_formatter()->column_width(26);
    app.get_formatter()->label("REQUIRED", "(required)");
    app.get_formatter()->label("Positionals", "Arguments");
    app.get_formatter()->label("SUBCOMMAND", "COMMAND");
    app.set_version_flag("--version", std::string("cfbvornak ") + CFBVORNAK_VERSION);
    // Global options reach every command; a word the table does not know is kept for the
    // suggestion below instead of failing inside the parser.
    app.fallthrough();
    app.allow_extras();
    std::string lang;
    app.add_option("--log-dir", context.log_dir, "the library's log folder")->type_name("DIR");
    app.add_option("--config-dir", context.config_dir, "the library's configuration folder")
        ->type_name("DIR");
    app.add_option("--work-dir", context.work_dir,
                   "scratch folders go here; the library runs "
                   "from it")
        ->type_name("DIR");
    app.add_option("--lang", lang, "en: the tool's own lines in English only (default: LANG)")
        ->type_name("en|zh");
    app.footer(
        "Run 'cfbvornak COMMAND --help' for a command's options and exit statuses.\n"
        "Exit status: 0 all sound / done, 1 damaged or partly done, 2 usage or environment "
        "error.");

    std::vector<Command> commands = registry();
    std::sort(commands.begin(), commands.end(),
              [](const Command& a, const Command& b) { return std::string(a.name) < b.name; });
    std::vector<std::pair<CLI::App*, Runner>> runners;
    for (const Command& command : commands) {
        CLI::App* sub = app.add_subcommand(command.name, command.summary);
        sub->group("Commands");
        sub->footer(std::string(kGlobalOptions) + "\n\n" + command.exit_statuses);
        runners.emplace_back(sub, command.setup(*sub));
    }

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);  // --help, --version
        print_error(error.what());
        std::cerr << "Run 'cfbvornak --help' or 'cfbvornak COMMAND --help'.\n";
        return kExitUsage;
    }
    const std::vector<std::string> extras = app.remaining();
    const auto chosen = std::find_if(runners.begin(), runners.end(),
                                     [](const auto& entry) { return entry.first->parsed(); });
    if (chosen == runners.end()) {
        if (extras.empty()) {
            std::cerr << app.help();
        } else {
            print_error(unknown_command_text(extras.front()));
        }
        return kExitUsage;
    }
    if (!extras.empty()) {
        print_error(unexpected_argument_text(extras.front(), *chosen->first));
        std::cerr << "Run 'cfbvornak " << chosen->first->get_name() << " --help'.\n";
        return kExitUsage;
    }
    if (!lang.empty() && lang != "en" && lang != "zh") {
        print_error("--lang takes en or zh, not '" + lang + "'");
        return kExitUsage;
    }
    if (!lang.empty()) context.english_only = lang == "en";
    for (std::string* folder : {&context.log_dir, &context.config_dir, &context.work_dir}) {
        *folder = user_path(*folder);
    }

    const Command& command = *std::find_if(commands.begin(), commands.end(), [&](const Command& c) {
        return chosen->first->get_name() == c.name;
    });
    const Runner& runner = chosen->second;
    return command.needs_library ? with_library(context, [&] { return runner(context); })
                                 : runner(context);
}

int run_tool(int argc, char** argv) {
    const int status = run_command(argc, argv);
    // A report that did not reach its reader is no report: a failed write is an error.
    std::string reason;
    if (!finish_standard_output(reason)) {
        print_error("cannot write to standard output: " + reason);
        return kExitUsage;
    }
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
