// cfbvornak check: the verdict of VrkCfbFileCheck for each file.
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "cfb_vornak/cfb_vornak_api.h"
#include "cli.h"
#include "common/error_store.h"
#include "tool_common.h"

namespace vrk::cli {

namespace {

constexpr const char* kHelp =
    "usage: cfbvornak check [--json] [--recursive] FILE|FOLDER...\n"
    "\nTells for each file whether it is a sound compound file and, if not, which damage it\n"
    "has: the library's result, the damage type with its description, and an English gloss.\n"
    "\n  --recursive  check every file below each FOLDER (progress on standard error, a\n"
    "               summary per damage type at the end)\n"
    "  --json       one JSON object per file on standard output\n"
    "\nExit status: 0 every file sound, 1 some file damaged or not checkable, 2 usage error.\n";

struct Verdict {
    int32_t result = 0;       // the export's folded result
    int32_t damage_type = 0;  // the record it left: the damage type, or a path failure code
};

// The export, and the record it left on its thread: the raw damage type behind the folded
// result.
Verdict check_one(const std::string& path) {
    Verdict verdict;
    run_on_fresh_thread([&] {
        verdict.result = VrkCfbFileCheck(path.c_str());
        verdict.damage_type = last_error_code(get_error_store());
        return 0;
    });
    return verdict;
}

void report(const std::string& path, const Verdict& verdict, bool json) {
    if (json) {
        print_json_line({{"file", path},
                         {"result", verdict.result},
                         {"sound", verdict.result == 0},
                         {"damage_type", verdict.damage_type},
                         {"description", damage_description(verdict.damage_type)},
                         {"gloss", damage_gloss(verdict.damage_type)}});
        return;
    }
    std::cout << path << ": " << (verdict.result == 0 ? "SOUND" : "DAMAGED") << " result "
              << verdict.result << " (" << result_gloss(verdict.result) << "), type "
              << verdict.damage_type << " " << damage_description(verdict.damage_type) << " ("
              << damage_gloss(verdict.damage_type) << ")\n";
}

int run_check(const Context&, const std::vector<std::string>& args) {
    if (wants_help(args)) {
        std::cout << kHelp;
        return kExitOk;
    }
    Parsed_Args parsed;
    std::string error;
    if (!parse_args(args, {"--json", "--recursive"}, {}, parsed, error) ||
        parsed.positional.empty()) {
        print_error(error.empty() ? "check needs at least one file" : error);
        std::cerr << kHelp;
        return kExitUsage;
    }
    const bool json = parsed.flags.count("--json") != 0;
    const bool recursive = parsed.flags.count("--recursive") != 0;

    std::vector<std::string> files;
    for (const std::string& given : parsed.positional) {
        const std::string path = user_path(given);
        if (recursive && is_folder(path)) {
            const std::vector<std::string> below = files_below(path);
            files.insert(files.end(), below.begin(), below.end());
        } else {
            files.push_back(path);
        }
    }

    std::map<int32_t, std::size_t> per_type;
    bool all_sound = true;
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (recursive) std::cerr << "[" << i + 1 << "/" << files.size() << "] " << files[i] << '\n';
        const Verdict verdict = check_one(files[i]);
        report(files[i], verdict, json);
        ++per_type[verdict.damage_type];
        all_sound = all_sound && verdict.result == 0;
    }
    if (recursive) {
        std::ostream& out = json ? std::cerr : std::cout;
        out << "summary: " << files.size() << " file(s)\n";
        for (const auto& [type, count] : per_type) {
            out << "  " << count << " x type " << type << " " << damage_description(type) << " ("
                << damage_gloss(type) << ")\n";
        }
    }
    return all_sound ? kExitOk : kExitPartial;
}

const Registrar registrar({"check", "is each file a sound compound file; which damage if not",
                           run_check});

}  // namespace

}  // namespace vrk::cli
