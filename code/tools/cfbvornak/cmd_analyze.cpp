// cfbvornak analyze FILE OUTDIR: the structure reports and released streams of one file, and
// which released streams the release's sector limit cut short.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdint>
#include <exception>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "cfb_vornak/entries/Entries.h"
#include "cfb_vornak/model/Cfb_Directory_Tree.h"
#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/model/Safe_Name.h"
#include "cfb_vornak/model/Tree_Release.h"
#include "cfb_vornak/reports/Cfb_Analysis.h"
#include "cfb_vornak/salvage/Salvage.h"
#include "cli.h"
#include "common/fs_utils.h"
#include "common/platform.h"
#include "tool_common.h"

namespace vrk::cli {

namespace {

constexpr const char* kExitStatuses =
    "Exit status: 0 analysed, 1 the library reported a failure (the reports written so far\n"
    "stay), 2 usage error or an input that cannot be read.";

struct Options {
    std::string input;
    std::string output;
};

// A stream the release wrote only in part because its chain reached the sector limit.
struct Cut_Stream {
    std::u16string name;
    uint64_t released = 0;
    uint32_t size = 0;
};

// The streams under the root that the release writes from the SAT (larger than the cutoff),
// walked as the release walks them: those whose walk stopped at the limit with bytes left.
std::vector<Cut_Stream> streams_cut_by_limit(const std::wstring& input) {
    std::vector<Cut_Stream> cut;
    // A chain that reaches the limit needs that many distinct sectors inside the file: smaller
    // files are not parsed again.
    std::string size_error;
    const int64_t size = fs::get_file_size(input, size_error);
    if (size < 0 ||
        static_cast<uint64_t>(size) < (uint64_t{kNormalChainLimit} + 2) * layout::kSectorSize) {
        return cut;
    }
    const File_Description description{input, input, platform::to_utf8(input)};
    Cfb_File file(description, File_Description{});
    if (file.max_sid < kNormalChainLimit || !file.cfb_directory_tree ||
        file.cfb_directory_tree->root == nullptr) {
        return cut;
    }
    const auto* root =
        static_cast<const Cfb_Directory_Entry_DirNode*>(file.cfb_directory_tree->root);
    const uint64_t unit = uint64_t{1} << (file.header.sector_shift % 32u);
    for (const Cfb_Directory_Entry_AbstractNode* child : root->children) {
        if (child == nullptr || child->is_dir() || child->index >= file.directory_entrys.size()) {
            continue;
        }
        const Directory_Entry& record = file.directory_entrys[child->index];
        if (record.stream_size <= file.header.mini_stream_cutoff_size ||
            is_special(record.start_sid) || record.start_sid > file.max_sid ||
            is_refused_file_name(entry_file_name(record))) {
            continue;
        }
        const sids_list chain =
            release_chain(file.big_sids_array, record.start_sid, kNormalChainLimit);
        Stream_Runs plan;
        // The chain holds the closing ENDOFCHAIN besides the ids walked.
        if (chain.size() != kNormalChainLimit + 2) continue;
        stream_runs(chain, record.stream_size, unit, 1, file.max_sid + 1, file.file_size, plan);
        if (plan.outcome != Stream_Runs::Outcome::write) continue;
        const std::vector<Byte_Run>& runs = plan.runs;
        uint64_t released = 0;
        for (const Byte_Run& run : runs) released += run.length;
        const sid_t last = chain[chain.size() - 2];
        const bool chain_goes_on =
            last < file.big_sids_array.size() && file.big_sids_array[last] != ENDOFCHAIN;
        if (released < record.stream_size && chain_goes_on) {
            cut.push_back(Cut_Stream{record.name_units(), released, record.stream_size});
        }
    }
    return cut;
}

int run_analyze(const Options& options) {
    const std::string input = user_path(options.input);
    const std::string output = user_path(options.output);
    const std::string problem = input_problem(input);
    if (!problem.empty()) {
        print_error("cannot read " + options.input + ": " + problem);
        return kExitUsage;
    }
    int32_t result = 0;
    Analysis_Summary summary;
    run_on_fresh_thread([&]() {
        result =
            folded_entry([&] { return analysis_entry(input.c_str(), output.c_str(), &summary); });
        return 0;
    });
    for (const std::wstring& report : summary.reports) {
        if (fs::exists(report)) std::cout << "report: " << platform::narrow(report) << '\n';
    }
    if (!summary.release_folder.empty()) {
        std::cout << "released " << summary.released_streams << " stream(s) into "
                  << platform::narrow(summary.release_folder) << '\n';
        std::vector<Cut_Stream> cut;
        try {
            cut = streams_cut_by_limit(platform::widen(input));
        } catch (const std::exception& error) {
            print_warning(std::string("cannot tell which streams the sector limit cut: ") +
                          error.what());
        }
        for (const Cut_Stream& stream : cut) {
            std::cout << "cut: " << display_name(stream.name) << ": released "
                      << grouped(stream.released) << " of " << grouped(stream.size) << " bytes ("
                      << grouped(stream.size - stream.released)
                      << " missing): the release stops after " << grouped(kNormalChainLimit + 1)
                      << " sectors of a stream\n";
        }
        const std::vector<std::u16string> differing =
            summary.small_streams_may_differ
                ? released_with_other_bytes(platform::widen(input), summary.release_folder)
                : std::vector<std::u16string>{};
        for (const std::u16string& name : differing) {
            const bool was_cut = std::any_of(cut.begin(), cut.end(),
                                             [&](const Cut_Stream& c) { return c.name == name; });
            if (was_cut) continue;
            std::cout << "differs: " << display_name(name)
                      << ": the released file is not the stream as the file's header chains it "
                         "(the release reads the MiniSAT as one run of sectors, and a stream of "
                         "the cutoff's size as a small one); 'cfbvornak cat' gives its bytes\n";
        }
    }
    if (result != 0) {
        print_error("analysis of " + options.input + " failed: " + result_gloss(result) + " (" +
                    std::to_string(result) + ")");
        return kExitPartial;
    }
    return kExitOk;
}

Runner setup(CLI::App& app) {
    auto options = std::make_shared<Options>();
    app.add_option("FILE", options->input, "the compound file")->type_name("")->required();
    app.add_option("OUTDIR", options->output,
                   "where the reports go (created with its parents); the streams directly under "
                   "the root are released below it")
        ->type_name("")
        ->required();
    return [options](const Context&) { return run_analyze(*options); };
}

const Registrar registrar(Command{"analyze", "write the structure reports of a file", kExitStatuses,
                                  true, setup});

}  // namespace

}  // namespace vrk::cli
