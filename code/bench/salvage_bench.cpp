// The salvage of a large compound file against a plain copy of the same file.
//
// Setup (outside the timings): a compound file of about the argument in MB, with big streams of
// a few MB and a thousand small ones, random contents, written once as built and once with its
// header zeroed. Timed: mapping the file, salvaging it and extracting every recovered stream
// into a fresh folder; and copying the file. Everything lives under ./salvage_bench_data and is
// removed at exit.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#include "cfb_vornak/Cfb_Builder.h"
#include "cfb_vornak/Cfb_Fs_Item.h"
#include "cfb_vornak/Salvage.h"
#include "cfb_vornak/Salvage_Output.h"
#include "common/platform.h"

namespace {

namespace stdfs = std::filesystem;

const stdfs::path& data_root() {
    static const stdfs::path root = stdfs::absolute(stdfs::current_path() / "salvage_bench_data");
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

std::vector<uint8_t> random_bytes(std::size_t n, std::mt19937_64& random) {
    std::vector<uint8_t> out(n);
    for (std::size_t i = 0; i + 8 <= n; i += 8) {
        const uint64_t v = random();
        for (int k = 0; k < 8; ++k) out[i + k] = static_cast<uint8_t>(v >> (8 * k));
    }
    return out;
}

// The sound file and its header-zeroed copy for `megabytes`, made once per size.
struct Sample {
    std::wstring sound;
    std::wstring zeroed;
};

const Sample& sample(int64_t megabytes) {
    static std::vector<std::pair<int64_t, Sample>> made;
    for (const auto& [size, made_sample] : made) {
        if (size == megabytes) return made_sample;
    }
    stdfs::create_directories(data_root());
    std::mt19937_64 random(static_cast<uint64_t>(megabytes));
    vrk::Cfb_Fs_Item_DirNode root;
    for (int i = 0; i < 1000; ++i)
        root.add_stream(u"m" + std::u16string(1, char16_t(u'a' + i % 26)) +
                            std::u16string(1, char16_t(u'a' + i / 26 % 26)) +
                            std::u16string(1, char16_t(u'a' + i / 676)),
                        random_bytes(1 + random() % 4000, random));
    const uint64_t big = static_cast<uint64_t>(megabytes) << 20;
    for (uint64_t done = 0, i = 0; done < big; ++i) {
        const std::size_t size =
            static_cast<std::size_t>(std::min<uint64_t>(big - done, 4096 + random() % (8 << 20)));
        root.add_stream(u"big" + std::u16string(1, char16_t(u'A' + i % 26)) +
                            std::u16string(1, char16_t(u'A' + i / 26 % 26)),
                        random_bytes(size, random));
        done += size;
    }
    Sample result;
    result.sound =
        vrk::platform::from_path(data_root() / ("sound_" + std::to_string(megabytes) + ".cfb"));
    result.zeroed =
        vrk::platform::from_path(data_root() / ("zeroed_" + std::to_string(megabytes) + ".cfb"));
    if (!vrk::write_compound_file(result.sound, root)) std::abort();
    stdfs::copy_file(vrk::platform::to_path(result.sound), vrk::platform::to_path(result.zeroed),
                     stdfs::copy_options::overwrite_existing);
    std::fstream patch(vrk::platform::to_path(result.zeroed),
                       std::ios::binary | std::ios::in | std::ios::out);
    const std::string zeros(512, '\0');
    patch.write(zeros.data(), static_cast<std::streamsize>(zeros.size()));
    made.emplace_back(megabytes, result);
    return made.back().second;
}

void salvage_into(benchmark::State& state, const std::wstring& file) {
    const stdfs::path out = data_root() / "salvage_out";
    std::size_t recovered = 0;
    for (auto _ : state) {
        state.PauseTiming();
        stdfs::remove_all(out);
        state.ResumeTiming();
        vrk::platform::Mapped_File mapped;
        if (vrk::platform::map_file(file, mapped) != vrk::platform::Map_Step::ok) {
            state.SkipWithError("cannot map the sample");
            break;
        }
        const vrk::Salvage_Result result = vrk::salvage_bytes(mapped.data, mapped.size);
        std::string error;
        if (!vrk::salvage_extract(mapped.data, mapped.size, result, vrk::platform::from_path(out),
                                  false, error)) {
            state.SkipWithError(error.c_str());
        }
        recovered = result.count(vrk::Salvage_State::recovered);
        vrk::platform::unmap_file(mapped);
    }
    state.counters["recovered"] = static_cast<double>(recovered);
    state.SetBytesProcessed(state.iterations() * (state.range(0) << 20));
}

void BM_Salvage(benchmark::State& state) {
    salvage_into(state, sample(state.range(0)).sound);
}

void BM_SalvageHeaderZeroed(benchmark::State& state) {
    salvage_into(state, sample(state.range(0)).zeroed);
}

void BM_CopyFile(benchmark::State& state) {
    const Sample& input = sample(state.range(0));
    const stdfs::path out = data_root() / "copy_out.cfb";
    for (auto _ : state) {
        stdfs::copy_file(vrk::platform::to_path(input.sound), out,
                         stdfs::copy_options::overwrite_existing);
    }
    state.SetBytesProcessed(state.iterations() * (state.range(0) << 20));
}

BENCHMARK(BM_Salvage)->Arg(100)->Arg(1024)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(BM_SalvageHeaderZeroed)
    ->Arg(100)
    ->Arg(1024)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);
BENCHMARK(BM_CopyFile)->Arg(100)->Arg(1024)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
