// Helpers every cfbvornak command shares: argument parsing, paths given by the user, JSON
// lines, and the texts of the library's results.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

namespace vrk::cli {

// Arguments of one command: --flag, --option VALUE / --option=VALUE, and the rest in order.
// "--" ends the options.
struct Parsed_Args {
    std::set<std::string> flags;
    std::map<std::string, std::string> options;
    std::vector<std::string> positional;
};

// False (with a message in `error`) on an unknown option or a missing value.
bool parse_args(const std::vector<std::string>& args, const std::set<std::string>& flag_names,
                const std::set<std::string>& option_names, Parsed_Args& parsed, std::string& error);

// True when the arguments ask for help (--help or -h anywhere before "--").
bool wants_help(const std::vector<std::string>& args);

// main() records the folder the tool was started in before it moves to the work folder;
// every path the user typed is resolved against it.
void remember_start_folder();
std::string user_path(const std::string& path);

// Regular files below `folder`, sorted; unreadable parts are skipped.
std::vector<std::string> files_below(const std::string& folder);
bool is_folder(const std::string& path);

// One JSON object on one line of standard output; invalid UTF-8 in strings is replaced.
void print_json_line(const nlohmann::json& object);

// A short English reading of a folded export result ("ok", "damaged header", ...).
std::string result_gloss(int32_t api_result);
// English meaning of a damage type (the library's own descriptions are Chinese).
std::string damage_gloss(int32_t damage_type);
// The library's description of a damage type, or the error text for other codes.
std::string damage_description(int32_t code);

// Runs a library entry (entries/Entries.h) the way its export does: the raw code folded into
// the public result, an exception that escapes recorded as code 2. The tool calls the entries
// rather than the exports where it wants their results through the out-parameters.
int32_t folded_entry(const std::function<int32_t()>& entry);

// Prints "cfbvornak: " + message to standard error.
void print_error(const std::string& message);

}  // namespace vrk::cli
