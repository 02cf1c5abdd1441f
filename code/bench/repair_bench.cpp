// The header repair of a large compound file against a plain copy of the same file.
//
// Setup (outside the timings): a word-processing document of about the argument in MB, the
// core streams plus 64 MB streams of random bytes, written once under the temp folder; the
// library is started with its folders there. Every iteration first removes the outputs and
// reads the input once (warm page cache), then times `cp --reflink=never` of the input and
// VrkCfbGeneralRepair of it into the same folder; the repair's time is the reported one, the
// copy's and their ratio are counters, and so is the highest RssAnon seen during the repair.
// BM_Classification times the probe and the sorting of the sectors (the repair's stages 1 to
// 3, the whole-file passes reading blocks as the repair does) on a fully parsed file, in
// wall-clock and in CPU seconds per GB (the latter less disturbed by a busy machine);
// rebuilding the header and naming the output read no sector.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <map>
#include <string>

#include "bench_support.h"
#include "cfb_vornak/cfb_vornak_api.h"
#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/repair/Repair_Sectors.h"
#include "common/platform.h"
#include "file_operation/Input_Blocks.h"

namespace {

namespace stdfs = std::filesystem;
using vrk::bench::seconds_since;
using vrk::bench::warm;

constexpr double kGiB = 1024.0 * 1024.0 * 1024.0;

// A word-processing document of about `megabytes` MB, built once per size.
const stdfs::path& document(uint64_t megabytes) {
    static std::map<uint64_t, stdfs::path> built;
    const auto found = built.find(megabytes);
    if (found != built.end()) return found->second;

    vrk::bench::start_library();
    const stdfs::path path =
        vrk::bench::scratch_folder() / ("doc_" + std::to_string(megabytes) + ".doc");
    vrk::bench::write_word_document(path, megabytes);
    return built.emplace(megabytes, path).first->second;
}

void BM_RepairVsCopy(benchmark::State& state) {
    const stdfs::path& input = document(static_cast<uint64_t>(state.range(0)));
    const stdfs::path copy = vrk::bench::scratch_folder() / "copy_out.doc";
    const stdfs::path repaired = vrk::bench::scratch_folder() / "repair_out.doc";
    const std::string copy_command =
        "cp --reflink=never '" + input.string() + "' '" + copy.string() + "'";
    double copy_seconds = 0;
    double repair_seconds = 0;
    uint64_t peak_kib = 0;
    uint64_t base_kib = 0;
    for (auto _ : state) {
        stdfs::remove(copy);
        stdfs::remove(repaired);
        warm(input);
        auto start = std::chrono::steady_clock::now();
        if (std::system(copy_command.c_str()) != 0) {
            state.SkipWithError("cp failed");
            break;
        }
        const double copy_time = seconds_since(start);
        stdfs::remove(copy);

        warm(input);
        base_kib = vrk::bench::rss_anon_kib();
        vrk::bench::Rss_Sampler sampler;
        start = std::chrono::steady_clock::now();
        const int32_t result =
            VrkCfbGeneralRepair(input.string().c_str(), repaired.string().c_str());
        const double repair_time = seconds_since(start);
        peak_kib = std::max(peak_kib, sampler.stop());
        if (result != 0 || !stdfs::exists(repaired)) {
            state.SkipWithError("repair failed");
            break;
        }
        state.SetIterationTime(repair_time);
        copy_seconds += copy_time;
        repair_seconds += repair_time;
    }
    stdfs::remove(repaired);
    const auto runs = static_cast<double>(state.iterations());
    state.counters["copy_ms"] = 1000.0 * copy_seconds / runs;
    state.counters["repair_per_copy"] = copy_seconds > 0 ? repair_seconds / copy_seconds : 0.0;
    state.counters["peak_rss_anon_mb"] = static_cast<double>(peak_kib) / 1024.0;
    state.counters["base_rss_anon_mb"] = static_cast<double>(base_kib) / 1024.0;
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * stdfs::file_size(input)));
}

vrk::File_Description describe(const stdfs::path& path) {
    const std::wstring wide = vrk::platform::from_path(path);
    return {wide, wide, vrk::platform::to_utf8(wide)};
}

void BM_Classification(benchmark::State& state) {
    const stdfs::path& input = document(static_cast<uint64_t>(state.range(0)));
    const vrk::File_Description output =
        describe(vrk::bench::scratch_folder() / "classify_out.cfb");
    const double gigabytes = static_cast<double>(stdfs::file_size(input)) / kGiB;
    double total = 0;
    double cpu_total = 0;
    uint64_t sat_sectors = 0;
    for (auto _ : state) {
        warm(input);
        vrk::Cfb_File file(describe(input), output);
        const auto start = std::chrono::steady_clock::now();
        const std::clock_t cpu_start = std::clock();
        (void)vrk::Cfb_File::check_cfb_core(file);  // the scan is what is timed
        vrk::Sector_Values_Reader reader(file.door().view());
        vrk::Input_Blocks blocks(file.door().view());
        vrk::Repair_Sector_Sets sets;
        vrk::classify_sectors_by_markers(reader, file.max_sid, file.mini_sector_count, sets,
                                         &blocks);
        vrk::sort_out_candidate_sectors(
            reader,
            vrk::expected_mini_chains(file.scanned_directory_layout, vrk::layout::kMiniStreamCutoff,
                                      vrk::layout::kMiniSectorSize),
            sets);
        const double elapsed = seconds_since(start);
        cpu_total += static_cast<double>(std::clock() - cpu_start) / CLOCKS_PER_SEC;
        state.SetIterationTime(elapsed);
        total += elapsed;
        sat_sectors = sets.found_sat_sids.size();
    }
    state.counters["s_per_gb"] = total / static_cast<double>(state.iterations()) / gigabytes;
    state.counters["cpu_s_per_gb"] =
        cpu_total / static_cast<double>(state.iterations()) / gigabytes;
    state.counters["sat_sectors"] = static_cast<double>(sat_sectors);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * stdfs::file_size(input)));
}

BENCHMARK(BM_RepairVsCopy)
    ->Arg(100)
    ->Arg(1024)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime()
    ->Iterations(3);
BENCHMARK(BM_Classification)
    ->Arg(100)
    ->Arg(1024)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime()
    ->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
