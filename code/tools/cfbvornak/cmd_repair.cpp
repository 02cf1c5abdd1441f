// cfbvornak repair: VrkCfbGeneralRepair (or VrkCfbAdvanceRepair with --password) on one file.
#include <array>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "cfb_vornak/cfb_vornak_api.h"
#include "cfb_vornak/entries/Repair_Output_Path.h"
#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/salvage/Salvage.h"
#include "cli.h"
#include "common/byte_order.h"
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
    "\nExit status: 0 repaired, 1 not repaired, 2 usage error.\n";

// The document kind the repair will find: it probes the file the same way.
int32_t probe_document_kind(const std::wstring& input) {
    int32_t kind = 3;
    run_on_fresh_thread([&] {
        try {
            Cfb_File file(File_Description{input, input, platform::to_utf8(input)});
            Cfb_File::check_cfb_core(file);
            kind = file.document_kind;
        } catch (const std::exception&) {
            // Unreadable: the repair fails as well and writes nothing.
        }
        return 0;
    });
    return kind;
}

std::string sector_text(uint32_t sid) {
    return sid == ENDOFCHAIN ? std::string("none") : std::to_string(sid);
}

// The fields of the written header that the repair recomputes. The DISAT count field holds the
// number of MiniSAT sectors whenever a DISAT sector was found: that is how the header is built.
void print_rebuilt_header(const std::wstring& output) {
    std::ifstream in(platform::to_path(output), std::ios::in | std::ios::binary);
    std::array<uint8_t, 76> bytes{};
    if (!in.read(reinterpret_cast<char*>(bytes.data()), bytes.size())) {
        std::cout << "rebuilt header: unreadable\n";
        return;
    }
    std::cout << "rebuilt header: SAT sectors " << read_u32_le(&bytes[44]) << ", MiniSAT sectors "
              << read_u32_le(&bytes[64]) << " (first " << sector_text(read_u32_le(&bytes[60]))
              << "), first DISAT sector " << sector_text(read_u32_le(&bytes[68]))
              << " (count field " << read_u32_le(&bytes[72]) << "), first directory sector "
              << read_u32_le(&bytes[48]) << '\n';
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

    int32_t result = 0;
    int32_t code = 0;
    run_on_fresh_thread([&] {
        result = password == parsed.options.end()
                     ? VrkCfbGeneralRepair(input.c_str(), output.c_str())
                     : VrkCfbAdvanceRepair(input.c_str(), output.c_str(), password->second.c_str());
        code = last_error_code(get_error_store());
        return 0;
    });
    std::cout << "result " << result << " (" << result_gloss(result) << "), code " << code << '\n';
    if (result != 0) return kExitPartial;

    const std::wstring final_path = repair_final_output_path(
        repair_cfb_output_path(repair_output_prefix(platform::widen(output))),
        probe_document_kind(platform::widen(input)));
    std::cout << "output " << platform::narrow(final_path) << '\n';
    print_rebuilt_header(final_path);
    if (parsed.flags.count("--verify") != 0) {
        std::size_t resolved = 0;
        std::size_t streams = 0;
        if (!count_resolving_streams(final_path, resolved, streams)) {
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
