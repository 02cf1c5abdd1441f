// The salvage of a large compound file against a plain copy of the same file.
//
// Setup (outside the timings): a compound file of about the argument in MB, with big streams of
// a few MB and a thousand small ones, random contents, written once as built and once with its
// header zeroed, under the scratch folder. Every iteration removes the outputs, reads the input
// once (warm page cache) and times `cp --reflink=never` of it; then reads it again and times
// mapping it, salvaging it and writing what came back: every recovered stream into a fresh
// folder (--extract) or a fresh compound file (--out). The salvage's time is the reported one;
// the copy's, their ratio, the streams recovered, and the RssAnon before the salvage and the
// highest during it (sampled every millisecond; the mapped file is not anonymous memory, so
// the peak bounds the memory beyond the map) are counters.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "bench_support.h"
#include "cfb_vornak/builder/Cfb_Builder.h"
#include "cfb_vornak/builder/Cfb_Fs_Item.h"
#include "cfb_vornak/salvage/Salvage.h"
#include "cfb_vornak/salvage/Salvage_Output.h"
#include "common/platform.h"
#include "file_operation/Input_View.h"

namespace {

namespace stdfs = std::filesystem;
using vrk::bench::seconds_since;
using vrk::bench::warm;

struct Sample {
    stdfs::path sound;
    stdfs::path zeroed;
};

std::u16string letters(const char16_t* prefix, uint64_t i, char16_t first) {
    return prefix + std::u16string(1, char16_t(first + i % 26)) +
           std::u16string(1, char16_t(first + i / 26 % 26)) +
           std::u16string(1, char16_t(first + i / 676 % 26));
}

// Random stream contents made as the file is written: the setup leaves no large heap behind to
// hide the salvage's own memory.
class Random_Source final : public vrk::Stream_Source {
  public:
    void add(vrk::Cfb_Fs_Item_DirNode& root, const std::u16string& name, uint64_t size,
             uint64_t seed) {
        m_streams[&root.add_stream(name, {})] = {size, seed};
    }
    uint64_t size(const vrk::Cfb_Fs_Item_FileNode& item) const override {
        return m_streams.at(&item).first;
    }
    void write(const vrk::Cfb_Fs_Item_FileNode& item,
               const std::function<void(const uint8_t*, std::size_t)>& out) const override {
        const auto [size, seed] = m_streams.at(&item);
        std::mt19937_64 random(seed);
        for (uint64_t done = 0; done < size;) {
            const std::vector<uint8_t> block = vrk::bench::random_bytes(
                static_cast<std::size_t>(std::min<uint64_t>(size - done, vrk::bench::kMiB)),
                random);
            out(block.data(), block.size());
            done += block.size();
        }
    }

  private:
    std::map<const vrk::Cfb_Fs_Item_FileNode*, std::pair<uint64_t, uint64_t>> m_streams;
};

// The sound file and its header-zeroed copy for `megabytes`, made once per size.
const Sample& sample(uint64_t megabytes) {
    static std::map<uint64_t, Sample> made;
    const auto found = made.find(megabytes);
    if (found != made.end()) return found->second;
    std::mt19937_64 random(megabytes);
    vrk::Cfb_Fs_Item_DirNode root;
    Random_Source source;
    for (uint64_t i = 0; i < 1000; ++i)
        source.add(root, letters(u"m", i, u'a'), 1 + random() % 4000, random());
    const uint64_t big = megabytes * vrk::bench::kMiB;
    for (uint64_t done = 0, i = 0; done < big; ++i) {
        const uint64_t size = std::min<uint64_t>(big - done, 4096 + random() % (8 << 20));
        source.add(root, letters(u"big", i, u'A'), size, random());
        done += size;
    }
    Sample result;
    const std::string name = std::to_string(megabytes) + ".cfb";
    result.sound = vrk::bench::scratch_folder() / ("sound_" + name);
    result.zeroed = vrk::bench::scratch_folder() / ("zeroed_" + name);
    if (!vrk::write_compound_file(vrk::platform::from_path(result.sound), root, source))
        std::abort();
    stdfs::copy_file(result.sound, result.zeroed, stdfs::copy_options::overwrite_existing);
    std::fstream patch(result.zeroed, std::ios::binary | std::ios::in | std::ios::out);
    const std::string zeros(512, '\0');
    patch.write(zeros.data(), static_cast<std::streamsize>(zeros.size()));
    patch.close();
    vrk::bench::settle_page_cache();
    return made.emplace(megabytes, result).first->second;
}

// Reads `input` through the checked input view, salvages it and writes the result to `output`
// (a folder, or a compound file when `to_file`), as the tool does; the streams recovered, or -1
// on a failure.
int64_t salvage_once(const stdfs::path& input, const stdfs::path& output, bool to_file) {
    vrk::Input_View view;
    if (view.open(vrk::platform::from_path(input)) != vrk::platform::Map_Step::ok) return -1;
    const vrk::salvage::Salvage_Input source(view);
    const vrk::Salvage_Result result = vrk::salvage_input(source);
    std::string error;
    const std::wstring out = vrk::platform::from_path(output);
    const bool written = to_file ? vrk::salvage_write(source, result, out, {}, error)
                                 : vrk::salvage_extract(source, result, out, {}, error);
    return written ? static_cast<int64_t>(result.count(vrk::Salvage_State::recovered)) : -1;
}

void salvage_vs_copy(benchmark::State& state, bool zeroed, bool to_file) {
    const Sample& made = sample(static_cast<uint64_t>(state.range(0)));
    const stdfs::path& input = zeroed ? made.zeroed : made.sound;
    const stdfs::path copy = vrk::bench::scratch_folder() / "copy_out.cfb";
    const stdfs::path output = vrk::bench::scratch_folder() / "salvage_out";
    const std::string copy_command =
        "cp --reflink=never '" + input.string() + "' '" + copy.string() + "'";
    double copy_seconds = 0;
    double salvage_seconds = 0;
    uint64_t peak_kib = 0;
    uint64_t base_kib = 0;
    int64_t recovered = 0;
    for (auto _ : state) {
        stdfs::remove(copy);
        stdfs::remove_all(output);
        warm(input);
        auto start = std::chrono::steady_clock::now();
        if (std::system(copy_command.c_str()) != 0) {
            state.SkipWithError("cp failed");
            break;
        }
        copy_seconds += seconds_since(start);
        stdfs::remove(copy);

        warm(input);
        base_kib = vrk::bench::rss_anon_kib();
        vrk::bench::Rss_Sampler sampler;
        start = std::chrono::steady_clock::now();
        recovered = salvage_once(input, output, to_file);
        const double salvage_time = seconds_since(start);
        peak_kib = std::max(peak_kib, sampler.stop());
        if (recovered < 0) {
            state.SkipWithError("salvage failed");
            break;
        }
        state.SetIterationTime(salvage_time);
        salvage_seconds += salvage_time;
    }
    stdfs::remove_all(output);
    const auto runs = static_cast<double>(state.iterations());
    state.counters["copy_ms"] = 1000.0 * copy_seconds / runs;
    state.counters["salvage_per_copy"] = copy_seconds > 0 ? salvage_seconds / copy_seconds : 0.0;
    state.counters["peak_rss_anon_mb"] = static_cast<double>(peak_kib) / 1024.0;
    state.counters["base_rss_anon_mb"] = static_cast<double>(base_kib) / 1024.0;
    state.counters["recovered"] = static_cast<double>(recovered);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * stdfs::file_size(input)));
}

void sizes(benchmark::internal::Benchmark* b) {
    b->Arg(100)->Arg(1024)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(3);
}

BENCHMARK_CAPTURE(salvage_vs_copy, extract, false, false)->Apply(sizes);
BENCHMARK_CAPTURE(salvage_vs_copy, extract_header_zeroed, true, false)->Apply(sizes);
BENCHMARK_CAPTURE(salvage_vs_copy, out, false, true)->Apply(sizes);
BENCHMARK_CAPTURE(salvage_vs_copy, out_header_zeroed, true, true)->Apply(sizes);

}  // namespace

BENCHMARK_MAIN();
