// cfbvornak repair: the general repair (or, with --password, the advance repair) of one file,
// through the repair entry so that the final path and the rebuilt header come back with it.
#include <iostream>
#include <string>
#include <vector>

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

constexpr const char* kHelp =
    "usage: cfbvornak repair [--password P] [--verify] IN OUT\n"
    "\nWrites a copy of IN with a header rebuilt from what its sectors show: which sectors hold\n"
    "the allocation tables and where the directory starts. Every byte after the header is\n"
    "copied unchanged. The output's extension follows the document found in IN (.doc, .xls,\n"
    "or .ppt; .cfb when unknown), whatever extension OUT has.\n"
    "\n  --password P  hand a document password to the repair (VrkCfbAdvanceRepair)\n"
    "  --verify      salvage the written file and print how many of its streams resolve\n"
    "\nThe output never replaces IN (by any name or link that reaches it), and it appears under\n"
    "its name only once it is whole.\n"
    "\nExit status: 0 repaired, 1 not repaired, 2 usage error, the output would be IN, or it\n"
    "could not be written.\n";

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

int run_repair(const Context&, const std::vector<std::string>& args) {
    if (wants_help(args)) {
        std::cout << kHelp;
        return kExitOk;
    }
    Parsed_Args parsed;
    std::string error;
    if (!parse_args(args, {"--verify"}, {"--password"}, parsed, error) ||
        parsed.positional.size() != 2) {
        print_error(error.empty() ? "repair needs IN and OUT" : error);
        std::cerr << kHelp;
        return kExitUsage;
    }
    const std::string input = user_path(parsed.positional[0]);
    const std::string output = user_path(parsed.positional[1]);
    const auto password = parsed.options.find("--password");

    // The output is staged and renamed over its name once whole: a failure or a kill leaves
    // whatever held the name before.
    Repair_Outcome outcome;
    int32_t result = 0;
    int32_t code = 0;
    run_on_fresh_thread([&] {
        result = folded_entry([&] {
            if (password != parsed.options.end()) {
                // As VrkCfbAdvanceRepair: a refused password ends the call.
                const Error_Code password_code = set_password_entry(password->second.c_str());
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
        print_error("refused: the output " + parsed.positional[1] +
                    " (with the extension of the document) is the input file " +
                    parsed.positional[0] + "; nothing was written");
        return kExitUsage;
    }
    if (code == ec::kWriteFailed) {
        print_error("cannot write the repaired file for " + parsed.positional[1] +
                    "; nothing was left under its name");
        return kExitUsage;
    }
    if (result != 0) return kExitPartial;

    std::cout << "output " << platform::narrow(outcome.output_path) << '\n';
    print_rebuilt_header(outcome.header);
    if (parsed.flags.count("--verify") != 0) {
        std::size_t resolved = 0;
        std::size_t streams = 0;
        if (!count_resolving_streams(outcome.output_path, resolved, streams)) {
            std::cout << "verify: the output cannot be read\n";
            return kExitPartial;
        }
        std::cout << "verify: " << resolved << " of " << streams << " streams resolve\n";
        if (resolved != streams) return kExitPartial;
    }
    return kExitOk;
}

const Registrar registrar({"repair", "write a copy with the header rebuilt from the sectors",
                           run_repair});

}  // namespace

}  // namespace vrk::cli
