// The five pairs of the reference file, each work beside its peer in the same run: the file
// check against one memmem pass over a map of the file, the header repair and the salvage into
// a compound file against `cp --reflink=never`, the analysis (reports and release) and the
// salvage into a folder against `7z x` (skipped when 7z is missing). The reference file is
// about 1 GB written by libgsf (code/bench/make_reference_file.sh); its path comes from
// CFB_REFERENCE_FILE (default /dev/shm/cfb_reference/reference.doc), and the outputs go to the
// scratch folder under TMPDIR: give both on tmpfs to time the work rather than a disk.
//
// Every iteration removes both outputs, reads the input once (warm page cache), times the peer
// and then ours. Ours is the reported time; counters: the peer's mean time, ours per peer
// (the ratio of the sums), and the highest RssAnon during ours above the one before it
// (sampled every millisecond).
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "bench_support.h"
#include "cfb_vornak/cfb_vornak_api.h"
#include "cfb_vornak/salvage/Salvage.h"
#include "cfb_vornak/salvage/Salvage_Output.h"
#include "common/platform.h"
#include "file_operation/Input_View.h"
#include "memmem_count.h"

namespace {

namespace stdfs = std::filesystem;
using vrk::bench::seconds_since;

stdfs::path reference_file() {
    const char* given = std::getenv("CFB_REFERENCE_FILE");
    return given != nullptr && *given != '\0' ? stdfs::path(given)
                                              : stdfs::path("/dev/shm/cfb_reference/reference.doc");
}

std::string quoted(const stdfs::path& path) {
    return "'" + path.string() + "'";
}

bool have_7z() {
    return std::system("command -v 7z >/dev/null 2>&1") == 0;
}

// One memmem pass over a fresh map of the file, counting every root entry name.
bool memmem_pass(const stdfs::path& path) {
    vrk::platform::Mapped_File mapped;
    if (vrk::platform::map_file(vrk::platform::from_path(path), mapped) !=
        vrk::platform::Map_Step::ok) {
        return false;
    }
    const uint64_t hits = vrk::bench::count_root_names(mapped.data, mapped.size);
    benchmark::DoNotOptimize(hits);
    return true;
}

bool salvage_once(const stdfs::path& input, const stdfs::path& output, bool to_file) {
    vrk::Input_View view;
    if (view.open(vrk::platform::from_path(input)) != vrk::platform::Map_Step::ok) return false;
    const vrk::salvage::Salvage_Input source(view);
    const std::wstring out = vrk::platform::from_path(output);
    // As the tool does: the compound file's output is made, and its room set aside, while the
    // sectors are classified.
    const std::unique_ptr<vrk::Prepared_Output> prepared =
        to_file ? vrk::prepare_salvage_write(source, out) : nullptr;
    const vrk::Salvage_Result result = vrk::salvage_input(source);
    std::string error;
    return to_file ? vrk::salvage_write(source, result, out, {}, error,
                                        vrk::platform::Create_Mode::replace, prepared.get())
                   : vrk::salvage_extract(source, result, out, {}, error);
}

// A work and its peer on the reference file; each returns false on a failure.
struct Pair {
    std::function<bool(const stdfs::path& input, const stdfs::path& output)> ours;
    std::function<bool(const stdfs::path& input, const stdfs::path& output)> peer;
    bool needs_7z = false;
};

bool run_command(const std::string& command) {
    return std::system(command.c_str()) == 0;
}

bool copy_peer(const stdfs::path& input, const stdfs::path& output) {
    return run_command("cp --reflink=never " + quoted(input) + " " + quoted(output / "copy.doc"));
}

bool extract_peer(const stdfs::path& input, const stdfs::path& output) {
    return run_command("7z x -o" + quoted(output) + " " + quoted(input) + " >/dev/null 2>&1");
}

void reference_pair(benchmark::State& state, const Pair& pair) {
    const stdfs::path input = reference_file();
    if (!stdfs::is_regular_file(input)) {
        state.SkipWithError("no reference file: run code/bench/make_reference_file.sh");
        return;
    }
    if (pair.needs_7z && !have_7z()) {
        state.SkipWithError("7z missing (Debian p7zip-full): peer skipped");
        return;
    }
    vrk::bench::start_library();
    // Both outputs are folders: the works write into them or below them.
    const stdfs::path ours_out = vrk::bench::scratch_folder() / "ours_out";
    const stdfs::path peer_out = vrk::bench::scratch_folder() / "peer_out";
    double peer_seconds = 0;
    double ours_seconds = 0;
    uint64_t above_kib = 0;
    for (auto _ : state) {
        stdfs::remove_all(ours_out);
        stdfs::remove_all(peer_out);
        stdfs::create_directories(ours_out);
        stdfs::create_directories(peer_out);
        vrk::bench::warm(input);
        auto start = std::chrono::steady_clock::now();
        if (!pair.peer(input, peer_out)) {
            state.SkipWithError("the peer failed");
            break;
        }
        peer_seconds += seconds_since(start);
        stdfs::remove_all(peer_out);

        vrk::bench::warm(input);
        const uint64_t base_kib = vrk::bench::rss_anon_kib();
        vrk::bench::Rss_Sampler sampler;
        start = std::chrono::steady_clock::now();
        const bool done = pair.ours(input, ours_out);
        const double ours_time = seconds_since(start);
        const uint64_t peak_kib = sampler.stop();
        if (!done) {
            state.SkipWithError("ours failed");
            break;
        }
        above_kib = std::max(above_kib, peak_kib > base_kib ? peak_kib - base_kib : 0);
        state.SetIterationTime(ours_time);
        ours_seconds += ours_time;
    }
    stdfs::remove_all(ours_out);
    stdfs::remove_all(peer_out);
    const auto runs =
        static_cast<double>(std::max<benchmark::IterationCount>(state.iterations(), 1));
    state.counters["peer_ms"] = 1000.0 * peer_seconds / runs;
    state.counters["ours_per_peer"] = peer_seconds > 0 ? ours_seconds / peer_seconds : 0.0;
    state.counters["rss_anon_above_mb"] = static_cast<double>(above_kib) / 1024.0;
}

const Pair kCheck{[](const stdfs::path& input, const stdfs::path&) {
                      return VrkCfbFileCheck(input.string().c_str()) == 0;
                  },
                  [](const stdfs::path& input, const stdfs::path&) { return memmem_pass(input); }};
const Pair kRepair{[](const stdfs::path& input, const stdfs::path& output) {
                       return VrkCfbGeneralRepair(input.string().c_str(),
                                                  (output / "repaired.doc").string().c_str()) == 0;
                   },
                   copy_peer};
const Pair kAnalysis{[](const stdfs::path& input, const stdfs::path& output) {
                         return VrkCfbAnalysis(input.string().c_str(), output.string().c_str()) ==
                                0;
                     },
                     extract_peer, true};
const Pair kExtract{[](const stdfs::path& input, const stdfs::path& output) {
                        return salvage_once(input, output / "streams", false);
                    },
                    extract_peer, true};
const Pair kOut{[](const stdfs::path& input, const stdfs::path& output) {
                    return salvage_once(input, output / "salvaged.doc", true);
                },
                copy_peer};

void settings(benchmark::internal::Benchmark* bench) {
    bench->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(5);
}

BENCHMARK_CAPTURE(reference_pair, check_vs_memmem, kCheck)->Apply(settings);
BENCHMARK_CAPTURE(reference_pair, repair_vs_cp, kRepair)->Apply(settings);
BENCHMARK_CAPTURE(reference_pair, analysis_vs_7z, kAnalysis)->Apply(settings);
BENCHMARK_CAPTURE(reference_pair, salvage_extract_vs_7z, kExtract)->Apply(settings);
BENCHMARK_CAPTURE(reference_pair, salvage_out_vs_cp, kOut)->Apply(settings);

}  // namespace

BENCHMARK_MAIN();
