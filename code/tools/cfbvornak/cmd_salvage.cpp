// cfbvornak salvage: recovers what a damaged compound file still holds, and
// says which bytes can be trusted.
#include <CLI/CLI.hpp>
#include <cstddef>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "batch.h"
#include "cfb_vornak/entries/Cfb_Logger.h"
#include "cfb_vornak/salvage/Salvage.h"
#include "cfb_vornak/salvage/Salvage_Output.h"
#include "cli.h"
#include "common/fs_utils.h"
#include "common/platform.h"
#include "json_text.h"
#include "salvage_source.h"
#include "tool_common.h"

namespace vrk::cli {

namespace {

constexpr const char* kExitStatuses =
    "The layout (sector size, SAT, directory, MiniSAT) is rebuilt from the header and from the\n"
    "sectors' contents, and every stream is reported as recovered (every sector came through a\n"
    "verified chain), partial (which bytes are missing), ambiguous (candidate layouts that\n"
    "the evidence cannot tell apart give other bytes), inferred (links lost with their SAT\n"
    "sector rebuilt as runs; likely, not verified) or lost. Entries no link from the root\n"
    "reaches are kept under \"orphans\".\n"
    "\n"
    "Many files (-r, or more than one IN): one line per file (with --json one object per file,\n"
    "its report under \"report\"), then the totals (with --json one summary object); a progress\n"
    "line on standard error when that is a terminal. With --extract each file's tree goes to\n"
    "DIR/PATH, PATH being the file's path below the folder it was found in (or its name). --out\n"
    "takes a single input.\n"
    "\n"
    "Exit status: 0 every stream record the file holds recovered, 1 some or all not (or\n"
    "not a compound file), 2 usage or environment error. Many files: 0 every stream of every\n"
    "file recovered, 1 some file not recovered whole or not a compound file, 2 usage error, an\n"
    "input that cannot be read or a tree that cannot be written.";

struct Options {
    std::vector<std::string> inputs;
    std::string out;
    std::string extract;
    bool out_given = false;
    bool extract_given = false;
    bool json = false;
    bool recursive = false;
    Salvage_Keep keep;
    unsigned jobs = 1;
};

// How the files of a batch ended, for the totals.
enum Batch_Category { kWhole, kIncomplete, kNotCompound, kFailed, kBatchCategories };

struct Batch_Options {
    bool json = false;
    Salvage_Keep keep;
    std::string extract;  // the tree's root folder; empty: nothing written
};

// DIR/PATH for a file of the batch. A link below DIR on the way is refused (empty result), as
// the tree itself is never written through one.
std::string batch_folder(const std::string& root, const std::string& relative, std::string& error) {
    std::filesystem::path folder = platform::to_path(platform::widen(root));
    for (const std::filesystem::path& part : platform::to_path(platform::widen(relative))) {
        folder /= part;
        std::error_code ignored;
        if (std::filesystem::is_symlink(std::filesystem::symlink_status(folder, ignored))) {
            error = platform::narrow(platform::from_path(folder)) + " is a link";
            return {};
        }
    }
    return platform::narrow(platform::from_path(folder));
}

// One file of a batch: its summary line (or JSON object) and its tree under DIR/PATH.
Batch_Item salvage_in_batch(const Batch_Options& options, const std::string& input,
                            const std::string& relative) {
    Batch_Item item;
    std::string error;
    Salvage_Source source;
    if (!source.open(input, error)) {
        item.category = kFailed;
        item.err = "cfbvornak: cannot read " + input + ": " + error + "\n";
        if (options.json) {
            item.out = Json_Object().text("file", input).text("error", error).str() + "\n";
        }
        return item;
    }
    const Salvage_Result result = salvage_input(source.input());
    const std::string prefix = "salvage " + input + ": ";
    for (const std::string& line : result.log) {
        Cfb_Logger::write_unfiltered(prefix + line, __FILE__, __LINE__, Cfb_Logger::kInfo);
    }
    item.category = !result.is_compound_file ? kNotCompound
                    : result.complete()      ? kWhole
                                             : kIncomplete;
    std::string folder;
    if (result.is_compound_file && !options.extract.empty()) {
        folder = batch_folder(options.extract, relative, error);
        if (folder.empty() || !salvage_extract(source.input(), result, platform::widen(folder),
                                               options.keep, error)) {
            item.category = kFailed;
            item.err = "cfbvornak: " + input + ": " + error + "\n";
            folder.clear();
        }
    }
    if (options.json) {
        Json_Object object;
        object.text("file", input);
        if (!folder.empty()) object.text("extracted", folder);
        if (!error.empty()) object.text("error", error);
        std::string report = salvage_report_json(result);
        while (!report.empty() && report.back() == '\n') report.pop_back();
        item.out = object.raw("report", report).str() + "\n";
    } else {
        item.out = input + ": " +
                   (result.is_compound_file ? salvage_summary(result)
                                            : "not a compound file: " + result.reason) +
                   (folder.empty() ? "" : " -> " + folder) + "\n";
    }
    return item;
}

int run_batch_salvage(const std::vector<std::string>& given, bool recursive, unsigned jobs,
                      const Batch_Options& options) {
    const Batch_Inputs inputs = collect_inputs(given, recursive);
    for (const std::string& problem : inputs.problems) print_error(problem);
    const std::vector<std::size_t> counts = run_batch(
        inputs.files, jobs, standard_error_is_terminal(), kBatchCategories, [&](std::size_t i) {
            return salvage_in_batch(options, inputs.files[i], inputs.relative[i]);
        });
    const std::size_t files = inputs.files.size() + inputs.problems.size();
    const std::size_t failed = counts[kFailed] + inputs.problems.size();
    if (options.json) {
        std::cout << Json_Object()
                         .raw("summary", Json_Object()
                                             .unsigned_number("files", files)
                                             .unsigned_number("recovered", counts[kWhole])
                                             .unsigned_number("incomplete", counts[kIncomplete])
                                             .unsigned_number("not_compound", counts[kNotCompound])
                                             .unsigned_number("failed", failed)
                                             .str())
                         .str()
                  << '\n';
    } else {
        std::cout << "totals: " << grouped(files) << " files: " << grouped(counts[kWhole])
                  << " recovered whole, " << grouped(counts[kIncomplete]) << " incomplete, "
                  << grouped(counts[kNotCompound]) << " not compound files, " << grouped(failed)
                  << " failed\n";
    }
    if (failed != 0) return kExitUsage;
    return counts[kIncomplete] + counts[kNotCompound] == 0 ? kExitOk : kExitPartial;
}

int run_salvage(const Options& options) {
    if (options.recursive || options.inputs.size() > 1) {
        if (options.out_given) {
            print_error("--out writes one file: salvage a single input with it");
            return kExitUsage;
        }
        Batch_Options batch;
        batch.json = options.json;
        batch.keep = options.keep;
        if (options.extract_given) batch.extract = user_path(options.extract);
        return run_batch_salvage(options.inputs, options.recursive, options.jobs, batch);
    }
    const std::string input = user_path(options.inputs[0]);

    std::string error;
    Salvage_Source source;
    if (!source.open(input, error)) {
        print_error("cannot read " + input + ": " + error +
                    (is_folder(input) ? " (use --recursive)" : ""));
        return kExitUsage;
    }
    // Passes over the whole file and the copies of long runs read through the open file.
    const platform::Input_File* reader = source.input().file();
    // The output file is made, and its space set aside, while the salvage runs.
    const std::string out = user_path(options.out);
    const auto prepared =
        options.out_given ? prepare_salvage_write(source.input(), platform::widen(out)) : nullptr;
    const Salvage_Result result = salvage_input(source.input());
    const std::string prefix = "salvage " + input + ": ";
    for (const std::string& line : result.log) {
        Cfb_Logger::write_unfiltered(prefix + line, __FILE__, __LINE__, Cfb_Logger::kInfo);
    }
    std::cout << (options.json ? salvage_report_json(result) : salvage_report_text(result));

    int status = result.complete() ? kExitOk : kExitPartial;
    if (result.is_compound_file && options.extract_given) {
        const std::string folder = user_path(options.extract);
        if (!salvage_extract(source.input(), result, platform::widen(folder), options.keep,
                             error)) {
            print_error(error);
            status = kExitUsage;
        }
    }
    if (result.is_compound_file && options.out_given) {
        // Staged: the file appears under its name only once it is whole. The open input is
        // what tells whether the name reaches it.
        if (reader == nullptr) {
            error = "the input cannot be opened to compare it with the output";
        }
        if (reader == nullptr ||
            !salvage_write(source.input(), result, platform::widen(out), options.keep, error,
                           platform::Create_Mode::staged, prepared.get())) {
            print_error("cannot write " + out + ": " + error);
            status = kExitUsage;
        }
    }
    return status;
}

Runner setup(CLI::App& app) {
    auto options = std::make_shared<Options>();
    app.add_option("IN", options->inputs,
                   "the damaged compound file (several files, or folders with --recursive)")
        ->type_name("")
        ->required();
    app.add_option("--out", options->out,
                   "write a fresh version-3 compound file of the recovered tree")
        ->type_name("FILE")
        ->each([options](const std::string&) { options->out_given = true; });
    app.add_option("--extract", options->extract,
                   "write the recovered tree as folders and files, with the chains no entry "
                   "claims under DIR/lost")
        ->type_name("DIR")
        ->each([options](const std::string&) { options->extract_given = true; });
    app.add_flag("--keep-partial", options->keep.partial,
                 "also write the verified part of partial streams, and every candidate of an "
                 "ambiguous one as NAME#1, NAME#2, ...");
    app.add_flag("--keep-inferred", options->keep.inferred, "also write inferred streams");
    app.add_flag("--json", options->json,
                 "the report as one JSON object (many files: one per file, and a summary object)");
    app.add_flag("-r,--recursive", options->recursive,
                 "also salvage every file below each folder IN");
    // Up to four digits, as a count of threads a machine could use; the bound stays out of the
    // help's N.
    app.add_option("-j,--jobs", options->jobs, "worker threads (0: one per processor; default 1)")
        ->type_name("N")
        ->check(CLI::Range(0U, 9999U).description(""));
    return [options](const Context&) { return run_salvage(*options); };
}

const Registrar registrar(Command{"salvage", "recover the streams of a damaged compound file",
                                  kExitStatuses, true, setup});

}  // namespace

}  // namespace vrk::cli
