// cfbvornak check: the verdict of VrkCfbFileCheck for each file, and beside it whether every
// stream still resolves under the file's own header (the salvage's count).
#include <CLI/CLI.hpp>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "batch.h"
#include "cfb_vornak/cfb_vornak_api.h"
#include "cfb_vornak/salvage/Salvage.h"
#include "cli.h"
#include "common/error_store.h"
#include "common/platform.h"
#include "json_text.h"
#include "tool_common.h"

namespace vrk::cli {

namespace {

constexpr const char* kExitStatuses =
    "Exit status: 0 every file sound (with --readable: every stream of every file readable),\n"
    "1 some file damaged (or with unreadable streams), 2 usage error or an input that cannot be\n"
    "read (missing, a folder without --recursive, not a regular file, refused).";

struct Options {
    std::vector<std::string> inputs;
    bool json = false;
    bool recursive = false;
    bool readable = false;
    unsigned jobs = 1;
};

enum Category { kSound, kDamaged, kUnreadable, kCategories };

struct Verdict {
    int32_t result = 0;        // the export's folded result
    int32_t damage_type = 0;   // the record it left: the damage type, or a path failure code
    std::size_t streams = 0;   // streams the file holds (found with every kind of evidence)
    std::size_t readable = 0;  // streams that resolve under the header's own layout
    bool counted = false;      // the streams could be counted
    bool all_readable() const { return counted && streams > 0 && readable == streams; }
};

// The export, and the record it left on its thread: the raw damage type behind the folded
// result; then the salvage verifier's count.
Verdict check_one(const std::string& path) {
    Verdict verdict;
    run_on_fresh_thread([&] {
        verdict.result = VrkCfbFileCheck(path.c_str());
        verdict.damage_type = last_error_code(get_error_store());
        return 0;
    });
    verdict.counted =
        count_resolving_streams(platform::widen(path), verdict.readable, verdict.streams);
    return verdict;
}

std::string readability_text(const Verdict& verdict) {
    if (!verdict.counted || verdict.streams == 0) return "no streams found";
    if (verdict.all_readable()) return "all " + grouped(verdict.streams) + " streams readable";
    return grouped(verdict.streams - verdict.readable) + " of " + grouped(verdict.streams) +
           " streams unreadable";
}

// The file's line (or JSON object); `damage_type` gets the library's type of a checked file.
Batch_Item report(const Context& context, const Options& options, const std::string& path,
                  int32_t& damage_type) {
    Batch_Item item;
    const std::string problem = input_problem(path);
    if (!problem.empty()) {
        item.category = kUnreadable;
        item.err = "cfbvornak: cannot read " + path + ": " + problem + "\n";
        if (options.json) {
            item.out = Json_Object().text("file", path).text("error", problem).str() + "\n";
        }
        return item;
    }
    const Verdict verdict = check_one(path);
    damage_type = verdict.damage_type;
    const bool sound = options.readable ? verdict.all_readable() : verdict.result == 0;
    item.category = sound ? kSound : kDamaged;
    if (options.json) {
        item.out = Json_Object()
                       .text("file", path)
                       .number("result", verdict.result)
                       .boolean("sound", verdict.result == 0)
                       .number("damage_type", verdict.damage_type)
                       .text("description", damage_description(verdict.damage_type))
                       .text("gloss", damage_gloss(verdict.damage_type))
                       .unsigned_number("streams", verdict.streams)
                       .unsigned_number("readable_streams", verdict.readable)
                       .boolean("readable", verdict.all_readable())
                       .str() +
                   "\n";
        return item;
    }
    item.out = path + ": " + (verdict.result == 0 ? "SOUND" : "DAMAGED") + " result " +
               std::to_string(verdict.result) + " (" + result_gloss(verdict.result) + "), " +
               damage_text(context, verdict.damage_type) + "; " + readability_text(verdict) + "\n";
    return item;
}

int run_check(const Context& context, const Options& options) {
    const Batch_Inputs inputs = collect_inputs(options.inputs, options.recursive);
    for (const std::string& problem : inputs.problems) print_error(problem);

    // Files per damage type, for the totals (the workers add to it).
    std::map<int32_t, std::size_t> per_type;
    std::mutex per_type_mutex;
    const bool progress = options.recursive && standard_error_is_terminal();
    const std::vector<std::size_t> counts =
        run_batch(inputs.files, options.jobs, progress, kCategories, [&](std::size_t i) {
            int32_t damage_type = -1;
            Batch_Item item = report(context, options, inputs.files[i], damage_type);
            if (item.category != kUnreadable) {
                const std::lock_guard<std::mutex> lock(per_type_mutex);
                ++per_type[damage_type];
            }
            return item;
        });

    const std::size_t unreadable = counts[kUnreadable] + inputs.problems.size();
    if (options.recursive || inputs.files.size() > 1) {
        const char* good = options.readable ? "readable" : "sound";
        const char* bad = options.readable ? "with_unreadable_streams" : "damaged";
        if (options.json) {
            Json_Object types;
            for (const auto& [type, count] : per_type)
                types.unsigned_number(std::to_string(type), count);
            std::cout << Json_Object()
                             .raw("summary",
                                  Json_Object()
                                      .unsigned_number("files",
                                                       inputs.files.size() + inputs.problems.size())
                                      .unsigned_number(good, counts[kSound])
                                      .unsigned_number(bad, counts[kDamaged])
                                      .unsigned_number("unreadable", unreadable)
                                      .raw("damage_types", types.str())
                                      .str())
                             .str()
                      << '\n';
        } else {
            std::cout << "totals: " << grouped(inputs.files.size() + inputs.problems.size())
                      << " files: " << grouped(counts[kSound]) << " " << good << ", "
                      << grouped(counts[kDamaged]) << " "
                      << (options.readable ? "with unreadable streams" : "damaged") << ", "
                      << grouped(unreadable) << " unreadable\n";
            for (const auto& [type, count] : per_type) {
                std::cout << "  " << grouped(count) << " x " << damage_text(context, type) << '\n';
            }
        }
    }
    if (unreadable != 0) return kExitUsage;
    return counts[kDamaged] == 0 ? kExitOk : kExitPartial;
}

Runner setup(CLI::App& app) {
    auto options = std::make_shared<Options>();
    app.add_option("FILE", options->inputs, "files, or folders with --recursive")
        ->type_name("")
        ->required();
    app.add_flag("-r,--recursive", options->recursive, "check every file below each folder");
    app.add_option("-j,--jobs", options->jobs, "worker threads (0: one per processor; default 1)")
        ->type_name("N");
    app.add_flag("--readable", options->readable,
                 "exit status from the streams' readability instead of the library's verdict");
    app.add_flag("--json", options->json,
                 "one JSON object per file (and a summary object) on standard output");
    return [options](const Context& context) { return run_check(context, *options); };
}

const Registrar registrar(Command{"check",
                                  "is each file a sound compound file; which damage if not; are "
                                  "its streams readable",
                                  kExitStatuses, true, setup});

}  // namespace

}  // namespace vrk::cli
