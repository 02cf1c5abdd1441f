// The analysis of a large compound file against copying the same data as plain files.
//
// Setup (outside the timings): a flat folder of streams, every one a child of the root, sizes
// spread from 100 bytes to 10 MB (never exactly 4096, which the mini/normal boundary would
// read from the wrong table), random contents, about the total given as the argument in MB;
// the compound file is built from that folder. Timed: run_cfb_analysis of the file into a
// fresh output folder (seven reports plus the release of every stream), and `cp -r` of the
// source folder. Everything lives under ./analysis_bench_data and is removed at exit.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "cfb_vornak/Cfb_Analysis.h"
#include "cfb_vornak/Cfb_Builder.h"
#include "cfb_vornak/Cfb_Fs_Item.h"
#include "common/platform.h"

namespace {

namespace stdfs = std::filesystem;

const stdfs::path& data_root() {
    static const stdfs::path root = stdfs::absolute(stdfs::current_path() / "analysis_bench_data");
    return root;
}

// Touches the folder name first, so that it outlives this object at exit.
struct Cleanup {
    Cleanup() { data_root(); }
    ~Cleanup() {
        std::error_code ec;
        stdfs::remove_all(data_root(), ec);
    }
} g_cleanup;

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
    std::wstring file;
};

const Sample& sample(int64_t megabytes) {
    static std::vector<std::pair<int64_t, Sample>> made;
    for (const auto& [size, made_sample] : made) {
        if (size == megabytes) {
            return made_sample;
        }
    }
    Sample result;
    result.folder = data_root() / ("src_" + std::to_string(megabytes));
    stdfs::create_directories(result.folder);
    std::mt19937_64 random(static_cast<uint64_t>(megabytes));
    const std::vector<uint64_t> sizes =
        stream_sizes(static_cast<uint64_t>(megabytes) << 20, random);
    std::vector<char> bytes;
    for (std::size_t i = 0; i < sizes.size(); ++i) {
        bytes.resize(sizes[i]);
        for (auto& byte : bytes) {
            byte = static_cast<char>(random());
        }
        std::ofstream out(result.folder / ("s" + std::to_string(i)), std::ios::binary);
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    }
    const auto root = vrk::scan_folder_tree(vrk::platform::from_path(result.folder));
    result.file =
        vrk::platform::from_path(data_root() / ("sample_" + std::to_string(megabytes) + ".cfb"));
    if (!vrk::write_compound_file(result.file, *root)) {
        std::abort();
    }
    made.emplace_back(megabytes, result);
    return made.back().second;
}

void BM_Analysis(benchmark::State& state) {
    const Sample& input = sample(state.range(0));
    const stdfs::path out = data_root() / "analysis_out";
    uint32_t released = 0;
    for (auto _ : state) {
        state.PauseTiming();
        stdfs::remove_all(out);
        state.ResumeTiming();
        const std::wstring file = input.file;
        const vrk::Analysis_Summary summary =
            vrk::run_cfb_analysis(vrk::File_Description{file, file, vrk::platform::to_utf8(file)},
                                  vrk::platform::from_path(out));
        released = summary.released_streams;
    }
    state.counters["streams"] = released;
    state.SetBytesProcessed(state.iterations() * (state.range(0) << 20));
}

void BM_CopyFolder(benchmark::State& state) {
    const Sample& input = sample(state.range(0));
    const stdfs::path out = data_root() / "copy_out";
    for (auto _ : state) {
        state.PauseTiming();
        stdfs::remove_all(out);
        state.ResumeTiming();
        const std::string command = "cp -r '" + input.folder.string() + "' '" + out.string() + "'";
        if (std::system(command.c_str()) != 0) {
            state.SkipWithError("cp -r failed");
        }
    }
    state.SetBytesProcessed(state.iterations() * (state.range(0) << 20));
}

BENCHMARK(BM_Analysis)->Arg(100)->Arg(1024)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_CopyFolder)->Arg(100)->Arg(1024)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
