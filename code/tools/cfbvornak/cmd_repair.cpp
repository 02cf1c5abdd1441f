// cfbvornak repair: the general repair (or, with --password, the advance repair) of one file,
// through the repair entry so that the final path and the rebuilt header come back with it;
// then how many streams the written file resolves against how many the input resolves.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <string>

#include "cfb_vornak/entries/Entries.h"
#include "cfb_vornak/repair/Repair_Outcome.h"
#include "cfb_vornak/salvage/Salvage.h"
#include "cli.h"
#include "common/error_codes.h"
#include "common/error_store.h"
#include "common/platform.h"
#include "tool_common.h"

namespace vrk::cli {

namespace {

constexpr const char* kExitStatuses =
    "The header is rebuilt from what the sectors show (which sectors hold the allocation tables,\n"
    "where the directory starts); every byte after it is copied unchanged. The output's\n"
    "extension follows the document found in IN (.doc, .xls or .ppt; .cfb when unknown),\n"
    "whatever extension OUT has: the path written is printed. The output never replaces IN (by\n"
    "any name or link that reaches it) and appears under its name only once it is whole. Unless\n"
    "--no-verify, the streams that resolve under each file's own header are counted in both,\n"
    "and those resolving in both are compared byte for byte.\n"
    "\n"
    "Exit status: 0 repaired (and the output resolves no fewer streams than IN, none to other\n"
    "bytes), 1 not repaired or the output is worse than IN (salvage --out then gets the streams\n"
    "back), 2 usage error, an input that cannot be read, an output that would be IN or could\n"
    "not be written.";

struct Options {
    std::string input;
    std::string output;
    std::string password;
    bool password_given = false;
    bool no_verify = false;
};

std::string sector_text(uint32_t sid) {
    return sid == ENDOFCHAIN ? std::string("none") : std::to_string(sid);
}

// The fields of the written header that the repair recomputes. The DISAT count field holds the
// number of MiniSAT sectors whenever a DISAT sector was found: that is how the header is built.
void print_rebuilt_header(const Cfb_Header& header) {
    std::cout << "rebuilt header: SAT sectors " << header.num_of_sat_secs << ", MiniSAT sectors "
              << header.num_of_minisat_secs << " (first " << sector_text(header.first_minisat_sid)
              << "), first DISAT sector " << sector_text(header.first_disat_sid) << " (count field "
              << header.num_of_disat_secs << "), first directory sector " << header.first_dir_sid
              << '\n';
}

int run_repair(const Options& options) {
    const std::string input = user_path(options.input);
    const std::string output = user_path(options.output);
    const std::string problem = input_problem(input);
    if (!problem.empty()) {
        print_error("cannot read " + options.input + ": " + problem);
        return kExitUsage;
    }

    // The output is staged and renamed over its name once whole: a failure or a kill leaves
    // whatever held the name before.
    Repair_Outcome outcome;
    int32_t result = 0;
    int32_t code = 0;
    run_on_fresh_thread([&] {
        result = folded_entry([&] {
            if (options.password_given) {
                // As VrkCfbAdvanceRepair: a refused password ends the call.
                const Error_Code password_code = set_password_entry(options.password.c_str());
                if (to_api_result_code(password_code) != 0) return password_code;
            }
            return general_repair_entry(input.c_str(), output.c_str(), &outcome,
                                        platform::Create_Mode::staged);
        });
        code = last_error_code(get_error_store());
        return 0;
    });
    std::cout << "result " << result << " (" << result_gloss(result) << "), code " << code << '\n';
    if (outcome.output_is_input) {
        print_error("refused: the output " + options.output +
                    " (with the extension of the document) is the input file " + options.input +
                    "; nothing was written");
        return kExitUsage;
    }
    if (code == ec::kWriteFailed) {
        print_error("cannot write the repaired file for " + options.output +
                    "; nothing was left under its name");
        return kExitUsage;
    }
    if (result != 0) return kExitPartial;

    const std::string written = platform::narrow(outcome.output_path);
    std::cout << "written: " << written;
    if (platform::widen(written) != platform::widen(output)) {
        std::cout << " (not " << options.output << ": the extension follows the document kind)";
    }
    std::cout << '\n';
    print_rebuilt_header(outcome.header);
    if (options.no_verify) return kExitOk;

    const Repair_Comparison compared =
        compare_repaired(platform::widen(input), outcome.output_path);
    if (!compared.output.read) {
        print_error("the repaired file " + written + " cannot be read back");
        return kExitPartial;
    }
    std::cout << "streams resolving under the file's own header: "
              << grouped(compared.input.resolved) << " of " << grouped(compared.input.streams)
              << " in the input, " << grouped(compared.output.resolved) << " of "
              << grouped(compared.output.streams) << " in the repaired file\n";
    if (compared.output.resolved < compared.input.resolved) {
        print_warning("the repaired file is worse than the input (" +
                      grouped(compared.output.resolved) + " streams resolve instead of " +
                      grouped(compared.input.resolved) + "); 'cfbvornak salvage " + options.input +
                      " --out FILE' writes a sound file of what the input still holds");
        return kExitPartial;
    }
    if (compared.changed > 0) {
        print_warning("the repaired file is worse than the input (" + grouped(compared.changed) +
                      " streams resolve to other bytes than in the input: its header leads to "
                      "an older copy of a table or the directory); 'cfbvornak salvage " +
                      options.input + " --out FILE' writes a sound file of what the input holds");
        return kExitPartial;
    }
    return kExitOk;
}

Runner setup(CLI::App& app) {
    auto options = std::make_shared<Options>();
    app.add_option("IN", options->input, "the damaged compound file")->type_name("")->required();
    app.add_option("OUT", options->output,
                   "where the repaired copy goes (its extension follows the document)")
        ->type_name("")
        ->required();
    app.add_option("-p,--password", options->password,
                   "hand a document password to the repair (the advance repair)")
        ->type_name("P")
        ->each([options](const std::string&) { options->password_given = true; });
    app.add_flag("--no-verify", options->no_verify,
                 "do not count the streams that resolve in the input and the output");
    return [options](const Context&) { return run_repair(*options); };
}

const Registrar registrar(Command{"repair", "write a copy with the header rebuilt from the sectors",
                                  kExitStatuses, true, setup});

}  // namespace

}  // namespace vrk::cli
