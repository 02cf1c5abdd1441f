// cfbvornak salvage: recovers what a damaged compound file still holds, and
// says which bytes can be trusted.
#include <cstddef>
#include <filesystem>
#include <iostream>
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
#include "tool_common.h"

namespace vrk::cli {

namespace {

constexpr const char* kBatchHelp =
    "\nMany files: cfbvornak salvage -r IN... [--extract DIR] [-j N] [--json] [--keep-partial]\n"
    "           [--keep-inferred]\n"
    "  -r, --recursive  also salvage every file below each folder IN\n"
    "  -j, --jobs N     worker threads (0: one per processor; default 1)\n"
    "One line per file (with --json one object per file, its report under \"report\"), then the\n"
    "totals (with --json one summary object); a progress line on standard error when that is a\n"
    "terminal. With --extract each file's tree goes to DIR/PATH, PATH being the file's path\n"
    "below the folder it was found in (or its name). --out takes a single input.\n"
    "Exit status: 0 every stream of every file recovered, 1 some file not recovered whole or\n"
    "not a compound file, 2 usage error, an input that cannot be read or a tree that cannot be\n"
    "written.\n";

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

// The input mapped read-only for the time of one file's salvage.
struct Mapped_Input {
    platform::Mapped_File mapped;
    platform::Map_Step step = platform::Map_Step::open_file;
    ~Mapped_Input() {
        if (step == platform::Map_Step::ok) platform::unmap_file(mapped);
    }
};

// One file of a batch: its summary line (or JSON object) and its tree under DIR/PATH.
Batch_Item salvage_in_batch(const Batch_Options& options, const std::string& input,
                            const std::string& relative) {
    Batch_Item item;
    std::string error = input_problem(input);
    Mapped_Input in;
    if (error.empty()) {
        in.step = platform::map_file(platform::widen(input), in.mapped);
        std::string size_error;
        // An empty file cannot be mapped, but it is an answer (not a compound file).
        if (in.step != platform::Map_Step::ok &&
            (in.step != platform::Map_Step::create_mapping ||
             fs::get_file_size(platform::widen(input), size_error) != 0)) {
            error = platform::errno_text();
        }
    }
    if (!error.empty()) {
        item.category = kFailed;
        item.err = "cfbvornak: cannot read " + input + ": " + error + "\n";
        if (options.json) {
            item.out = Json_Object().text("file", input).text("error", error).str() + "\n";
        }
        return item;
    }
    const bool mapped = in.step == platform::Map_Step::ok;
    const uint8_t* data = mapped ? in.mapped.data : nullptr;
    const uint64_t size = mapped ? in.mapped.size : 0;
    platform::Input_File file;
    const platform::Input_File* reader = file.open(platform::widen(input)) ? &file : nullptr;
    const Salvage_Result result = salvage_bytes(data, size, false, reader);
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
        if (folder.empty() || !salvage_extract(data, size, result, platform::widen(folder),
                                               options.keep, error, reader)) {
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

// The value of -j / --jobs; false when it is not a count.
bool read_jobs(const Parsed_Args& parsed, unsigned& jobs) {
    const auto given =
        parsed.options.count("-j") != 0 ? parsed.options.find("-j") : parsed.options.find("--jobs");
    if (given == parsed.options.end()) return true;
    const std::string& text = given->second;
    if (text.empty() || text.size() > 4 ||
        text.find_first_not_of("0123456789") != std::string::npos) {
        return false;
    }
    jobs = static_cast<unsigned>(std::stoul(text));
    return true;
}

constexpr const char* kHelp =
    "usage: cfbvornak salvage IN [--out FILE] [--extract DIR] [--keep-partial] "
    "[--keep-inferred] [--json]\n"
    "\nRecovers the directory tree and the streams of a damaged compound file. The layout\n"
    "(sector size, SAT, directory, MiniSAT) is rebuilt from the header and from the sectors'\n"
    "contents, and every stream is reported as recovered (every sector came through a\n"
    "verified chain), partial (which bytes are missing), ambiguous (candidate layouts that\n"
    "the evidence cannot tell apart give other bytes), inferred (links lost with their SAT\n"
    "sector rebuilt as runs; likely, not verified) or lost. Entries no link from the root\n"
    "reaches are kept under \"orphans\".\n"
    "\n  --out FILE       write a fresh version-3 compound file of the recovered tree\n"
    "  --extract DIR    write the recovered tree as folders and files, with the chains no\n"
    "                   entry claims under DIR/lost\n"
    "  --keep-partial   also write the verified part of partial streams, and every candidate\n"
    "                   of an ambiguous one as NAME#1, NAME#2, ...\n"
    "  --keep-inferred  also write inferred streams\n"
    "  --json           the report as one JSON object\n"
    "\nExit status: 0 every stream record the file holds recovered, 1 some or all not (or\n"
    "not a compound file), 2 usage or environment error.\n";

int run_salvage(const Context&, const std::vector<std::string>& args) {
    if (wants_help(args)) {
        std::cout << kHelp << kBatchHelp;
        return kExitOk;
    }
    Parsed_Args parsed;
    std::string error;
    unsigned jobs = 1;
    if (!parse_args(args, {"--json", "--keep-partial", "--keep-inferred", "-r", "--recursive"},
                    {"--out", "--extract", "-j", "--jobs"}, parsed, error) ||
        parsed.positional.empty() || !read_jobs(parsed, jobs)) {
        print_error(error.empty() ? "salvage needs an input file and -j a count" : error);
        std::cerr << kHelp;
        return kExitUsage;
    }
    Salvage_Keep keep;
    keep.partial = parsed.flags.count("--keep-partial") != 0;
    keep.inferred = parsed.flags.count("--keep-inferred") != 0;
    const bool recursive = parsed.flags.count("-r") + parsed.flags.count("--recursive") != 0;
    if (recursive || parsed.positional.size() > 1) {
        if (parsed.options.count("--out") != 0) {
            print_error("--out writes one file: salvage a single input with it");
            return kExitUsage;
        }
        Batch_Options batch;
        batch.json = parsed.flags.count("--json") != 0;
        batch.keep = keep;
        if (parsed.options.count("--extract") != 0)
            batch.extract = user_path(parsed.options["--extract"]);
        return run_batch_salvage(parsed.positional, recursive, jobs, batch);
    }
    const bool json = parsed.flags.count("--json") != 0;
    const std::string input = user_path(parsed.positional[0]);

    const std::string problem = input_problem(input);
    if (!problem.empty()) {
        print_error("cannot read " + input + ": " + problem +
                    (is_folder(input) ? " (use --recursive)" : ""));
        return kExitUsage;
    }
    platform::Mapped_File mapped;
    const platform::Map_Step step = platform::map_file(platform::widen(input), mapped);
    // An empty file cannot be mapped, but it is an answer, not an environment
    // failure.
    std::string size_error;
    const bool empty_file = step == platform::Map_Step::create_mapping &&
                            fs::get_file_size(platform::widen(input), size_error) == 0;
    if (step != platform::Map_Step::ok && !empty_file) {
        print_error("cannot read " + input + ": " + platform::errno_text());
        return kExitUsage;
    }
    const uint8_t* data = step == platform::Map_Step::ok ? mapped.data : nullptr;
    const uint64_t size = step == platform::Map_Step::ok ? mapped.size : 0;

    // Passes over the whole file and the copies of long runs read through an open file.
    platform::Input_File file;
    const platform::Input_File* reader = file.open(platform::widen(input)) ? &file : nullptr;
    const Salvage_Result result = salvage_bytes(data, size, false, reader);
    const std::string prefix = "salvage " + input + ": ";
    for (const std::string& line : result.log) {
        Cfb_Logger::write_unfiltered(prefix + line, __FILE__, __LINE__, Cfb_Logger::kInfo);
    }
    std::cout << (json ? salvage_report_json(result) : salvage_report_text(result));

    int status = result.complete() ? kExitOk : kExitPartial;
    if (result.is_compound_file && parsed.options.count("--extract") != 0) {
        const std::string folder = user_path(parsed.options["--extract"]);
        if (!salvage_extract(data, size, result, platform::widen(folder), keep, error, reader)) {
            print_error(error);
            status = kExitUsage;
        }
    }
    if (result.is_compound_file && parsed.options.count("--out") != 0) {
        const std::string out = user_path(parsed.options["--out"]);
        // Staged: the file appears under its name only once it is whole. The open input is
        // what tells whether the name reaches it.
        if (reader == nullptr) {
            error = "the input cannot be opened to compare it with the output";
        }
        if (reader == nullptr || !salvage_write(data, size, result, platform::widen(out), keep,
                                                error, reader, platform::Create_Mode::staged)) {
            print_error("cannot write " + out + ": " + error);
            status = kExitUsage;
        }
    }
    return status;
}

const Registrar registrar({"salvage", "recover the streams of a damaged compound file",
                           run_salvage});

}  // namespace

}  // namespace vrk::cli
