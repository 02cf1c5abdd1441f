// The header repair of a large compound file against a plain copy of the same file.
//
// Setup (outside the timings): a word-processing document of about the argument in MB, the
// core streams plus 64 MB streams of random bytes, written once under the temp folder; the
// library is started with its folders there. Every iteration first removes the outputs and
// reads the input once (warm page cache), then times `cp --reflink=never` of the input and
// VrkCfbGeneralRepair of it into the same folder; the repair's time is the reported one, the
// copy's and their ratio are counters, and so is the highest RssAnon seen during the repair.
// BM_Classification times the probe and the sorting of the sectors (the repair's stages 1 to
// 3) on a fully parsed file; rebuilding the header and naming the output read no sector.
#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "cfb_vornak/Cfb_Builder.h"
#include "cfb_vornak/Cfb_File.h"
#include "cfb_vornak/Cfb_Fs_Item.h"
#include "cfb_vornak/Repair_Sectors.h"
#include "cfb_vornak/cfb_vornak_api.h"
#include "common/platform.h"

namespace {

namespace stdfs = std::filesystem;

constexpr uint64_t kMiB = uint64_t{1} << 20;
constexpr uint64_t kStreamSize = 64 * kMiB;
constexpr double kGiB = 1024.0 * 1024.0 * 1024.0;

const stdfs::path& bench_folder() {
    static const stdfs::path folder =
        stdfs::temp_directory_path() /
        ("cfb_repair_bench_" + std::to_string(vrk::platform::current_process_id()));
    return folder;
}

// Touches the folder name first, so that it outlives this object at exit.
struct Folder_Cleanup {
    Folder_Cleanup() { bench_folder(); }
    ~Folder_Cleanup() {
        std::error_code error;
        stdfs::remove_all(bench_folder(), error);
    }
} g_cleanup;

// The library's folders below the bench folder, started once.
void start_library() {
    static const bool started = [] {
        stdfs::create_directories(bench_folder() / "work");
        const std::string base = bench_folder().string();
        return VrkCfbInit((base + "/logs").c_str(), (base + "/config").c_str(),
                          (base + "/work").c_str()) == 0;
    }();
    if (!started) std::abort();
}

// A word-processing document of about `megabytes` MB, built once per size. The streams are
// freed once written, so that they do not count in the resident memory of the repair.
const stdfs::path& document(uint64_t megabytes) {
    static std::map<uint64_t, stdfs::path> built;
    const auto found = built.find(megabytes);
    if (found != built.end()) return found->second;

    start_library();
    std::mt19937_64 random(megabytes);
    auto root = std::make_unique<vrk::Cfb_Fs_Item_DirNode>();
    root->add_stream(u"1Table", std::vector<uint8_t>(3000, 7));
    uint64_t left = megabytes * kMiB;
    for (int index = 0; left > 0; ++index) {
        std::vector<uint8_t> data(left < kStreamSize ? left : kStreamSize);
        for (std::size_t i = 0; i + 8 <= data.size(); i += 8) {
            const uint64_t value = random();
            memcpy(&data[i], &value, 8);
        }
        left -= data.size();
        root->add_stream(index == 0 ? u"WordDocument" : u"Data" + std::u16string(1, u'A' + index),
                         std::move(data));
    }
    const stdfs::path path = bench_folder() / ("doc_" + std::to_string(megabytes) + ".doc");
    if (!vrk::write_compound_file(vrk::platform::from_path(path), *root)) std::abort();
    return built.emplace(megabytes, path).first->second;
}

uint64_t rss_anon_kib() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("RssAnon:", 0) == 0) return std::stoull(line.substr(8));
    }
    return 0;
}

// Samples RssAnon every millisecond while alive; `peak` is the highest value seen.
class Rss_Sampler {
  public:
    Rss_Sampler()
        : m_thread([this] {
              while (!m_stop.load()) {
                  const uint64_t now = rss_anon_kib();
                  if (now > m_peak.load()) m_peak.store(now);
                  std::this_thread::sleep_for(std::chrono::milliseconds(1));
              }
          }) {}
    ~Rss_Sampler() { stop(); }
    uint64_t stop() {
        m_stop.store(true);
        if (m_thread.joinable()) m_thread.join();
        return m_peak.load();
    }

  private:
    std::atomic<bool> m_stop{false};
    std::atomic<uint64_t> m_peak{0};
    std::thread m_thread;
};

void warm(const stdfs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<char> block(8 * kMiB);
    while (in.read(block.data(), static_cast<std::streamsize>(block.size())) || in.gcount() > 0) {
    }
}

double seconds_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void BM_RepairVsCopy(benchmark::State& state) {
    const stdfs::path& input = document(static_cast<uint64_t>(state.range(0)));
    const stdfs::path copy = bench_folder() / "copy_out.doc";
    const stdfs::path repaired = bench_folder() / "repair_out.doc";
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
        base_kib = rss_anon_kib();
        Rss_Sampler sampler;
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
    const vrk::File_Description output = describe(bench_folder() / "classify_out.cfb");
    const double gigabytes = static_cast<double>(stdfs::file_size(input)) / kGiB;
    double total = 0;
    uint64_t sat_sectors = 0;
    for (auto _ : state) {
        warm(input);
        vrk::Cfb_File file(describe(input), output);
        const auto start = std::chrono::steady_clock::now();
        vrk::Cfb_File::check_cfb_core(file);
        vrk::Sector_Values_Reader reader(file.door());
        vrk::classify_sectors_by_markers(reader, file.max_sid, file.repair_sector_sets);
        vrk::sort_out_candidate_sectors(reader, file.mini_sector_count,
                                        vrk::expected_mini_chains(file.scanned_directory_layout,
                                                                  file.expected_mini_stream_cutoff,
                                                                  file.fixed_mini_sector_size),
                                        file.repair_sector_sets);
        const double elapsed = seconds_since(start);
        state.SetIterationTime(elapsed);
        total += elapsed;
        sat_sectors = file.repair_sector_sets.found_sat_sids.size();
    }
    state.counters["s_per_gb"] = total / static_cast<double>(state.iterations()) / gigabytes;
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
