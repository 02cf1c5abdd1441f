// cfbvornak salvage: recovers what a damaged compound file still holds, and
// says which bytes can be trusted.
#include <iostream>
#include <string>
#include <vector>

#include "cfb_vornak/entries/Cfb_Logger.h"
#include "cfb_vornak/salvage/Salvage.h"
#include "cfb_vornak/salvage/Salvage_Output.h"
#include "cli.h"
#include "common/fs_utils.h"
#include "common/platform.h"
#include "tool_common.h"

namespace vrk::cli {

namespace {

constexpr const char* kHelp =
    "usage: cfbvornak salvage IN [--out FILE] [--extract DIR] [--keep-partial] "
    "[--json]\n"
    "\nRecovers the directory tree and the streams of a damaged compound file. "
    "The layout\n"
    "(sector size, SAT, directory, MiniSAT) is rebuilt from the header and "
    "from the sectors'\n"
    "contents, and every stream is reported as recovered (every sector came "
    "through a verified\n"
    "chain), partial (which bytes are missing) or lost.\n"
    "\n  --out FILE      write a fresh version-3 compound file of the "
    "recovered tree\n"
    "  --extract DIR   write the recovered tree as folders and files, with the "
    "chains no entry\n"
    "                  claims under DIR/lost\n"
    "  --keep-partial  also write the verified part of streams that did not "
    "come back whole\n"
    "  --json          the report as one JSON object\n"
    "\nExit status: 0 every stream recovered, 1 some or all not (or not a "
    "compound file),\n"
    "2 usage or environment error.\n";

int run_salvage(const Context&, const std::vector<std::string>& args) {
    if (wants_help(args)) {
        std::cout << kHelp;
        return kExitOk;
    }
    Parsed_Args parsed;
    std::string error;
    if (!parse_args(args, {"--json", "--keep-partial"}, {"--out", "--extract"}, parsed, error) ||
        parsed.positional.size() != 1) {
        print_error(error.empty() ? "salvage needs exactly one input file" : error);
        std::cerr << kHelp;
        return kExitUsage;
    }
    const bool json = parsed.flags.count("--json") != 0;
    const bool keep_partial = parsed.flags.count("--keep-partial") != 0;
    const std::string input = user_path(parsed.positional[0]);

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

    int status =
        result.is_compound_file && result.count(Salvage_State::recovered) == result.stream_count()
            ? kExitOk
            : kExitPartial;
    if (result.is_compound_file && parsed.options.count("--extract") != 0) {
        const std::string folder = user_path(parsed.options["--extract"]);
        if (!salvage_extract(data, size, result, platform::widen(folder), keep_partial, error,
                             reader)) {
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
        if (reader == nullptr ||
            !salvage_write(data, size, result, platform::widen(out), keep_partial, error, reader,
                           platform::Create_Mode::staged)) {
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
