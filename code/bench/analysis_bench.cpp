// The analysis of a large compound file against copying the same data as plain files.
//
// Setup (outside the timings): a flat folder of streams, every one a child of the root, sizes
// spread from 100 bytes to 10 MB (never exactly 4096, which the mini/normal boundary would
// read from the wrong table), random contents, about the total given as the argument in MB;
// the compound file is built from that folder. Every iteration first removes the outputs and
// reads the inputs once (warm page cache), then times `cp -r` of the source folder and
// run_cfb_analysis of the file (seven reports plus the release of every stream) into the same
// scratch folder; the analysis's time is the reported one, the copy's and their ratio are
// counters, and so is the highest RssAnon seen during the analysis.
#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "bench_support.h"
#include "cfb_vornak/builder/Cfb_Builder.h"
#include "cfb_vornak/builder/Cfb_Fs_Item.h"
#include "cfb_vornak/reports/Cfb_Analysis.h"
#include "common/platform.h"

namespace {

namespace stdfs = std::filesystem;
using vrk::bench::seconds_since;

// Sizes log-uniform between 100 bytes and 10 MB until `total` bytes are reached.
std::vector<uint64_t> stream_sizes(uint64_t total, std::mt19937_64& random) {
    std::uniform_real_distribution<double> exponent(2.0, 7.0);
    std::vector<uint64_t> sizes;
    uint64_t sum = 0;
    while (sum < total) {
        auto size = static_cast<uint64_t>(std::pow(10.0, exponent(random)));
        if (size == 4096) {
            size = 4097;
        }
        size = std::min(size, total - sum + 100);
        sizes.push_back(size);
        sum += size;
    }
    return sizes;
}

// The source folder and the compound file for `megabytes`, made once per size.
struct Sample {
    stdfs::path folder;
    stdfs::path file;
};

void write_sample(const Sample& sample, uint64_t megabytes) {
    stdfs::create_directories(sample.folder);
    std::mt19937_64 random(megabytes);
    const std::vector<uint64_t> sizes = stream_sizes(megabytes * vrk::bench::kMiB, random);
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        const std::vector<uint8_t> bytes = vrk::bench::random_bytes(sizes[i], random);
        std::ofstream out(sample.folder / ("s" + std::to_string(i)), std::ios::binary);
        out.write(reinterpret_cast<const char*>(bytes.data()),
                  static_cast<std::streamsize>(bytes.size()));
    }
    const auto root = vrk::scan_folder_tree(vrk::platform::from_path(sample.folder));
    if (!vrk::write_compound_file(vrk::platform::from_path(sample.file), *root)) {
        std::abort();
    }
}

const Sample& sample(uint64_t megabytes) {
    static std::map<uint64_t, Sample> made;
    const auto found = made.find(megabytes);
    if (found != made.end()) {
        return found->second;
    }
    const stdfs::path base = vrk::bench::scratch_folder();
    Sample result{base / ("src_" + std::to_string(megabytes)),
                  base / ("sample_" + std::to_string(megabytes) + ".cfb")};
    // Made by a child process: the scan holds every stream at once, and the heap it leaves
    // behind would otherwise count in the RssAnon of the analysis.
    const pid_t child = fork();
    if (child == 0) {
        write_sample(result, megabytes);
        _exit(0);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status) ||
        WEXITSTATUS(status) != 0) {
        std::abort();
    }
    vrk::bench::settle_page_cache();
    return made.emplace(megabytes, result).first->second;
}

void warm_folder(const stdfs::path& folder) {
    for (const auto& entry : stdfs::directory_iterator(folder)) {
        vrk::bench::warm(entry.path());
    }
}

void BM_AnalysisVsCopy(benchmark::State& state) {
    const Sample& input = sample(static_cast<uint64_t>(state.range(0)));
    const stdfs::path copy = vrk::bench::scratch_folder() / "copy_out";
    const stdfs::path out = vrk::bench::scratch_folder() / "analysis_out";
    const std::string copy_command =
        "cp -r '" + input.folder.string() + "' '" + copy.string() + "'";
    const std::wstring file = vrk::platform::from_path(input.file);
    const vrk::File_Description description{file, file, vrk::platform::to_utf8(file)};
    double copy_seconds = 0;
    double analysis_seconds = 0;
    uint64_t peak_kib = 0;
    uint64_t base_kib = 0;
    uint32_t released = 0;
    for (auto _ : state) {
        stdfs::remove_all(copy);
        stdfs::remove_all(out);
        warm_folder(input.folder);
        auto start = std::chrono::steady_clock::now();
        if (std::system(copy_command.c_str()) != 0) {
            state.SkipWithError("cp -r failed");
            break;
        }
        // The copy stays until the next round: files removed just before the analysis would
        // make its file creation slower than the copy's on file systems that skip recently
        // freed inodes.
        const double copy_time = seconds_since(start);

        vrk::bench::warm(input.file);
        base_kib = vrk::bench::rss_anon_kib();
        vrk::bench::Rss_Sampler sampler;
        start = std::chrono::steady_clock::now();
        released =
            vrk::run_cfb_analysis(description, vrk::platform::from_path(out)).released_streams;
        const double analysis_time = seconds_since(start);
        peak_kib = std::max(peak_kib, sampler.stop());
        state.SetIterationTime(analysis_time);
        copy_seconds += copy_time;
        analysis_seconds += analysis_time;
    }
    stdfs::remove_all(copy);
    stdfs::remove_all(out);
    const auto runs = static_cast<double>(state.iterations());
    state.counters["copy_ms"] = 1000.0 * copy_seconds / runs;
    state.counters["analysis_per_copy"] = copy_seconds > 0 ? analysis_seconds / copy_seconds : 0.0;
    state.counters["peak_rss_anon_mb"] = static_cast<double>(peak_kib) / 1024.0;
    state.counters["base_rss_anon_mb"] = static_cast<double>(base_kib) / 1024.0;
    state.counters["streams"] = released;
    state.SetBytesProcessed(state.range(0) *
                            static_cast<int64_t>(state.iterations() * vrk::bench::kMiB));
}

BENCHMARK(BM_AnalysisVsCopy)
    ->Arg(100)
    ->Arg(1024)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime()
    ->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
