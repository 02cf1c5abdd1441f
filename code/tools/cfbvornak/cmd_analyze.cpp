// cfbvornak analyze FILE OUTDIR: the structure reports and released streams of one file.
// cfbvornak sectors FILE OUTDIR: the hex dump of the file's 512-byte blocks.
#include <cstdint>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "cfb_vornak/entries/Entries.h"
#include "cfb_vornak/reports/Cfb_Analysis.h"
#include "cfb_vornak/reports/Sector_Units.h"
#include "cli.h"
#include "common/fs_utils.h"
#include "common/platform.h"
#include "tool_common.h"

namespace vrk::cli {

namespace {

int run_analyze(const Context& /*context*/, const std::vector<std::string>& args) {
    const char* usage =
        "usage: cfbvornak analyze FILE OUTDIR\n"
        "  Writes the structure reports of FILE into OUTDIR (created with its parents) and\n"
        "  releases the streams directly under the root into the tree report's release folder.\n"
        "  Prints where each report went and how many streams were released.\n";
    if (wants_help(args)) {
        std::cout << usage;
        return kExitOk;
    }
    if (args.size() != 2) {
        std::cerr << usage;
        return kExitUsage;
    }
    const std::string input = user_path(args[0]);
    const std::string output = user_path(args[1]);
    int32_t result = 0;
    Analysis_Summary summary;
    run_on_fresh_thread([&]() {
        result =
            folded_entry([&] { return analysis_entry(input.c_str(), output.c_str(), &summary); });
        return 0;
    });
    for (const std::wstring& report : summary.reports) {
        if (fs::exists(report)) {
            std::cout << "report: " << platform::to_utf8(report) << '\n';
        }
    }
    if (!summary.release_folder.empty()) {
        std::cout << "released " << summary.released_streams << " stream(s) into "
                  << platform::to_utf8(summary.release_folder) << '\n';
    }
    if (result != 0) {
        print_error("analysis of " + args[0] + " failed: " + result_gloss(result) + " (" +
                    std::to_string(result) + ")");
        return kExitPartial;
    }
    return kExitOk;
}

int run_sectors(const Context& /*context*/, const std::vector<std::string>& args) {
    const char* usage =
        "usage: cfbvornak sectors FILE OUTDIR\n"
        "  Writes a hex dump of every whole 512-byte block of FILE into\n"
        "  OUTDIR/物理切割后各个单元/: Header, sector0[0000H], sector1[0200H], ...\n";
    if (wants_help(args)) {
        std::cout << usage;
        return kExitOk;
    }
    if (args.size() != 2) {
        std::cerr << usage;
        return kExitUsage;
    }
    const std::wstring source = platform::widen(user_path(args[0]));
    if (!fs::exists(source) || fs::is_folder(source)) {
        print_error("cannot read " + args[0]);
        return kExitUsage;
    }
    const std::wstring folder = sector_units_folder(platform::widen(user_path(args[1])));
    try {
        const uint64_t blocks = split_to_sector_units(source, folder);
        std::cout << "dumped " << blocks << " block(s) into " << platform::to_utf8(folder) << '\n';
    } catch (const std::exception& error) {
        print_error(std::string("cannot write the dump: ") + error.what());
        return kExitPartial;
    }
    return kExitOk;
}

const Registrar analyze_command(Command{"analyze", "write the structure reports of a file",
                                        run_analyze});
const Registrar sectors_command(Command{"sectors", "hex dump of a file's 512-byte blocks",
                                        run_sectors});

}  // namespace

}  // namespace vrk::cli
