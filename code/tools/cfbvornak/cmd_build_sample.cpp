// cfbvornak build-sample: writes a sound sample document and damaged copies into a folder.
#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "cli.h"
#include "common/fs_utils.h"
#include "common/platform.h"
#include "json_text.h"
#include "sample_documents.h"
#include "tool_common.h"

namespace vrk::cli {

namespace {

constexpr const char* kExitStatuses =
    "Exit status: 0 written, 2 usage error or a file that cannot be written.";

struct Options {
    std::string folder;
    uint32_t seed = 1;
    bool json = false;
};

int run_build_sample(const Options& options) {
    const std::wstring folder = platform::widen(user_path(options.folder));
    try {
        (void)fs::create_directories(folder);  // a missing folder fails the first write
    } catch (const std::exception& error) {
        print_error("cannot make " + options.folder + ": " + error.what());
        return kExitUsage;
    }
    for (const Sample_Document& document : sample_documents(options.seed)) {
        const std::wstring path =
            folder + platform::kSeparator + platform::widen(document.file_name);
        const std::string shown = platform::narrow(path);
        // Staged: a file appears under its name only once it is whole.
        platform::Output_File out;
        if (out.create(path, platform::Create_Mode::staged, nullptr) !=
                platform::Create_Result::created ||
            !out.write(document.bytes.data(), document.bytes.size()) || !out.commit()) {
            print_error("cannot write " + shown + ": " + platform::errno_text());
            return kExitUsage;
        }
        if (options.json) {
            std::cout << Json_Object()
                             .text("file", shown)
                             .unsigned_number("bytes", document.bytes.size())
                             .text("damage", document.damage)
                             .str()
                      << '\n';
        } else {
            std::cout << shown << " (" << document.bytes.size() << " bytes): " << document.damage
                      << '\n';
        }
    }
    return kExitOk;
}

Runner setup(CLI::App& app) {
    auto options = std::make_shared<Options>();
    app.add_option("FOLDER", options->folder, "where the samples go (created with its parents)")
        ->type_name("")
        ->required();
    app.add_option("--seed", options->seed, "stream contents are pseudo-random from N (default 1)")
        ->type_name("N");
    app.add_flag("--json", options->json, "one JSON object per file written");
    return [options](const Context&) { return run_build_sample(*options); };
}

const Registrar registrar(Command{
    "build-sample",
    "write a sound sample document (sample.doc), sound spreadsheet and presentation documents, "
    "and copies of sample.doc with one structure damaged each",
    kExitStatuses, false, setup});

}  // namespace

}  // namespace vrk::cli
