// The file check on large documents against one plain memmem pass over a map of the same
// file (counting every occurrence of the 22-byte root entry name), page cache warm. Files of
// ~100 MB and ~1 GB with random stream contents are built once in the system's temporary
// folder and removed at exit; "tail" variants keep the directory after the stream data, so
// that the name search runs over the whole file. The peak anonymous resident memory while
// the check runs is sampled from /proc/self/status (RssAnon) and reported as a counter.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <utility>

#include "bench_support.h"
#include "cfb_vornak/cfb_vornak_api.h"
#include "common/platform.h"
#include "memmem_count.h"

namespace {

namespace stdfs = std::filesystem;

// A word-processing document of about `megabytes` MB, built once per shape.
const std::string& document(uint64_t megabytes, bool tables_at_end) {
    static std::map<std::pair<uint64_t, bool>, std::string> built;
    const auto key = std::make_pair(megabytes, tables_at_end);
    const auto found = built.find(key);
    if (found != built.end()) return found->second;

    vrk::bench::start_library();
    vrk::Builder_Options options;
    options.tables_at_end = tables_at_end;
    const stdfs::path path =
        vrk::bench::scratch_folder() /
        ("doc_" + std::to_string(megabytes) + (tables_at_end ? "_tail" : "") + ".doc");
    vrk::bench::write_word_document(path, megabytes, options);
    return built.emplace(key, path.string()).first->second;
}

void BM_FileCheck(benchmark::State& state) {
    const std::string& path = document(static_cast<uint64_t>(state.range(0)), state.range(1) != 0);
    vrk::bench::warm(path);
    int32_t result = 0;
    vrk::bench::Rss_Sampler sampler;
    for (auto _ : state) {
        result = VrkCfbFileCheck(path.c_str());
        benchmark::DoNotOptimize(result);
    }
    state.counters["peak_rss_anon_mb"] = static_cast<double>(sampler.stop()) / 1024.0;
    state.counters["result"] = result;
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * stdfs::file_size(path)));
}

void BM_MemmemPass(benchmark::State& state) {
    const std::string& path = document(static_cast<uint64_t>(state.range(0)), state.range(1) != 0);
    vrk::bench::warm(path);
    uint64_t hits = 0;
    for (auto _ : state) {
        vrk::platform::Mapped_File mapped;
        vrk::platform::map_file(vrk::platform::from_path(path), mapped);
        hits = vrk::bench::count_root_names(mapped.data, mapped.size);
        benchmark::DoNotOptimize(hits);
    }
    state.counters["occurrences"] = static_cast<double>(hits);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * stdfs::file_size(path)));
}

// {size in MB, directory after the data}
void shapes(benchmark::internal::Benchmark* bench) {
    for (const int64_t megabytes : {100, 1024}) {
        for (const int64_t tail : {0, 1}) bench->Args({megabytes, tail});
    }
    bench->Unit(benchmark::kMillisecond)->MinTime(3.0)->UseRealTime();
}

// The plain pass runs first, so that a freshly written file's write-back is over before the
// check is timed.
BENCHMARK(BM_MemmemPass)->Apply(shapes);
BENCHMARK(BM_FileCheck)->Apply(shapes);

}  // namespace

BENCHMARK_MAIN();
