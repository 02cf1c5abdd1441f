#include "tool_common.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <system_error>

#include "common/error_codes.h"
#include "common/error_store.h"
#include "common/platform.h"

namespace vrk::cli {

namespace {
std::filesystem::path& start_folder() {
    static std::filesystem::path folder;
    return folder;
}

std::filesystem::path native(const std::string& path) {
    return platform::to_path(platform::widen(path));
}

std::string narrow_of(const std::filesystem::path& path) {
    return platform::narrow(platform::from_path(path));
}
}  // namespace

bool parse_args(const std::vector<std::string>& args, const std::set<std::string>& flag_names,
                const std::set<std::string>& option_names, Parsed_Args& parsed,
                std::string& error) {
    bool options_done = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (options_done || arg.size() < 2 || arg[0] != '-') {
            parsed.positional.push_back(arg);
            continue;
        }
        if (arg == "--") {
            options_done = true;
            continue;
        }
        const std::size_t equals = arg.find('=');
        const std::string name = arg.substr(0, equals);
        if (equals == std::string::npos && flag_names.count(name) != 0) {
            parsed.flags.insert(name);
        } else if (option_names.count(name) != 0) {
            if (equals != std::string::npos) {
                parsed.options[name] = arg.substr(equals + 1);
            } else if (i + 1 < args.size()) {
                parsed.options[name] = args[++i];
            } else {
                error = "option " + name + " needs a value";
                return false;
            }
        } else {
            error = "unknown option " + arg;
            return false;
        }
    }
    return true;
}

bool wants_help(const std::vector<std::string>& args) {
    for (const std::string& arg : args) {
        if (arg == "--") return false;
        if (arg == "--help" || arg == "-h") return true;
    }
    return false;
}

void remember_start_folder() {
    std::error_code error;
    start_folder() = std::filesystem::current_path(error);
}

std::string user_path(const std::string& path) {
    const std::filesystem::path given = native(path);
    if (given.is_absolute() || start_folder().empty()) return path;
    return narrow_of((start_folder() / given).lexically_normal());
}

std::vector<std::string> files_below(const std::string& folder) {
    std::vector<std::string> files;
    std::error_code error;
    std::filesystem::recursive_directory_iterator it(
        native(folder), std::filesystem::directory_options::skip_permission_denied, error);
    for (; !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error)) {
        std::error_code type_error;
        if (it->is_regular_file(type_error)) files.push_back(narrow_of(it->path()));
    }
    std::sort(files.begin(), files.end());
    return files;
}

bool is_folder(const std::string& path) {
    std::error_code error;
    return std::filesystem::is_directory(native(path), error);
}

void print_json_line(const nlohmann::json& object) {
    std::cout << object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << '\n';
}

int32_t folded_entry(const std::function<int32_t()>& entry) {
    try {
        return to_api_result_code(entry());
    } catch (...) {
        VRK_PUSH_ERROR(ec::kInternalError);
        return to_api_result_code(ec::kInternalError);
    }
}

std::string result_gloss(int32_t api_result) {
    switch (api_result) {
        case 0:
            return "ok";
        case -3101:
            return "invalid argument or internal error";
        case -3102:
            return "out of memory";
        case -3103:
            return "library not initialised";
        case -3104:
            return "library error";
        case -3105:
            return "cannot open a file or make a folder";
        case -3106:
            return "illegal input or output path";
        case -3107:
            return "cannot open the compound file";
        case -3108:
            return "damaged header";
        case -3109:
            return "cannot be repaired";
        case -3110:
            return "root directory entry lost";
        case -3111:
            return "core directory entry lost";
        case -3112:
            return "not a compound file";
        case -3113:
            return "disk full";
        case -3114:
            return "extension does not fit the document kind";
        default:
            return "failed";
    }
}

std::string damage_gloss(int32_t damage_type) {
    switch (damage_type) {
        case 0:
            return "the file is in all likelihood fine";
        case 59:
            return "header signature wrong";
        case 60:
            return "header minor version wrong";
        case 61:
            return "header major version wrong";
        case 62:
            return "header byte-order mark wrong";
        case 63:
            return "header sector shift wrong";
        case 64:
            return "header mini sector shift wrong";
        case 65:
            return "header count of directory sectors wrong";
        case 66:
            return "header count of SAT sectors wrong";
        case 67:
            return "header first directory sector wrong";
        case 68:
            return "header mini stream cutoff wrong";
        case 69:
            return "header first DISAT sector wrong";
        case 70:
            return "header count of DISAT sectors wrong";
        case 71:
            return "a SAT sector id in the header is wrong";
        case 74:
            return "root directory entry lost, cannot be saved";
        case 75:
            return "core directory entry lost, cannot be saved";
        case 76:
            return "not a compound file at all";
        case 77:
            return "file name extension does not fit the document kind";
        default:
            return error_code_text(damage_type);
    }
}

std::string damage_description(int32_t code) {
    const bool damage_type = code == 0 || (code >= 59 && code <= 71) || (code >= 74 && code <= 77);
    return damage_type ? damaged_type_description(code) : std::string(error_code_text(code));
}

void print_error(const std::string& message) {
    std::cerr << "cfbvornak: " << message << '\n';
}

}  // namespace vrk::cli
