// cfbvornak build-sample: writes a sound sample document and damaged copies into a folder.
#include <filesystem>
#include <iostream>
#include <string>
#include <system_error>
#include <vector>

#include "cli.h"
#include "common/platform.h"
#include "sample_documents.h"
#include "tool_common.h"

namespace vrk::cli {

namespace {

constexpr const char* kHelp =
    "usage: cfbvornak build-sample [--seed N] [--json] FOLDER\n"
    "\nWrites into FOLDER a sound word-processing document (sample.doc), sound spreadsheet\n"
    "and presentation documents, and copies of sample.doc with one structure damaged each\n"
    "(zeroed signature, wrong minor version, wiped root entry name, implausible root entry,\n"
    "wrong extension). Stream contents are pseudo-random from --seed (default 1).\n";

int run_build_sample(const Context&, const std::vector<std::string>& args) {
    if (wants_help(args)) {
        std::cout << kHelp;
        return kExitOk;
    }
    Parsed_Args parsed;
    std::string error;
    if (!parse_args(args, {"--json"}, {"--seed"}, parsed, error) || parsed.positional.size() != 1) {
        print_error(error.empty() ? "build-sample needs one folder" : error);
        std::cerr << kHelp;
        return kExitUsage;
    }
    uint32_t seed = 1;
    if (parsed.options.count("--seed") != 0) {
        try {
            seed = static_cast<uint32_t>(std::stoul(parsed.options["--seed"]));
        } catch (const std::exception&) {
            print_error("--seed needs a number");
            return kExitUsage;
        }
    }
    const std::filesystem::path folder =
        platform::to_path(platform::widen(user_path(parsed.positional[0])));
    std::error_code made;
    std::filesystem::create_directories(folder, made);
    if (made) {
        print_error("cannot make the folder: " + made.message());
        return kExitUsage;
    }
    for (const Sample_Document& document : sample_documents(seed)) {
        const std::filesystem::path path = folder / document.file_name;
        // Staged: a file appears under its name only once it is whole.
        platform::Output_File out;
        const bool written = out.create(platform::from_path(path), platform::Create_Mode::staged,
                                        nullptr) == platform::Create_Result::created &&
                             out.write(document.bytes.data(), document.bytes.size()) &&
                             out.commit();
        if (!written) {
            print_error("cannot write " + document.file_name);
            return kExitPartial;
        }
        const std::string shown = platform::narrow(platform::from_path(path));
        if (parsed.flags.count("--json") != 0) {
            print_json_line(
                {{"file", shown}, {"bytes", document.bytes.size()}, {"damage", document.damage}});
        } else {
            std::cout << shown << " (" << document.bytes.size() << " bytes): " << document.damage
                      << '\n';
        }
    }
    return kExitOk;
}

const Registrar registrar({"build-sample", "write a sample document and damaged copies",
                           run_build_sample});

}  // namespace

}  // namespace vrk::cli
