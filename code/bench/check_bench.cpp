// The file check on large documents against one plain memmem pass over a map of the same
// file (counting every occurrence of the 22-byte root entry name), page cache warm. Files of
// ~100 MB and ~1 GB with random stream contents are built once in the system's temporary
// folder and removed at exit; "tail" variants keep the directory after the stream data, so
// that the name search runs over the whole file. The peak anonymous resident memory while
// the check runs is sampled from /proc/self/status (RssAnon) and reported as a counter.
#include <benchmark/benchmark.h>
#include <string.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "cfb_vornak/Cfb_Builder.h"
#include "cfb_vornak/Root_Signature_Search.h"
#include "cfb_vornak/cfb_vornak_api.h"
#include "common/platform.h"

namespace {

namespace stdfs = std::filesystem;

constexpr uint64_t kMiB = uint64_t{1} << 20;
constexpr uint64_t kStreamSize = 64 * kMiB;

const stdfs::path& bench_folder() {
    // Never destroyed: the clean-up at exit still needs it.
    static const stdfs::path* const folder = [] {
        const stdfs::path path =
            stdfs::temp_directory_path() /
            ("cfb_check_bench_" + std::to_string(vrk::platform::current_process_id()));
        stdfs::create_directories(path / "work");
        const std::string base = path.string();
        VrkCfbInit((base + "/logs").c_str(), (base + "/config").c_str(), (base + "/work").c_str());
        return new stdfs::path(path);
    }();
    return *folder;
}

struct Folder_Cleanup {
    ~Folder_Cleanup() {
        std::error_code error;
        stdfs::remove_all(bench_folder(), error);
    }
};

// A word-processing document of about `megabytes` MB: the core streams plus 64 MB streams
// of random bytes. Built once per shape.
const std::string& document(uint64_t megabytes, bool tables_at_end) {
    static std::map<std::pair<uint64_t, bool>, std::string> built;
    const auto key = std::make_pair(megabytes, tables_at_end);
    const auto found = built.find(key);
    if (found != built.end()) return found->second;

    std::mt19937_64 random(megabytes);
    vrk::Cfb_Fs_Item_DirNode root;
    root.add_stream(u"1Table", std::vector<uint8_t>(3000, 7));
    uint64_t left = megabytes * kMiB;
    for (int index = 0; left > 0; ++index) {
        std::vector<uint8_t> data(left < kStreamSize ? left : kStreamSize);
        for (std::size_t i = 0; i + 8 <= data.size(); i += 8) {
            const uint64_t value = random();
            memcpy(&data[i], &value, 8);
        }
        left -= data.size();
        root.add_stream(index == 0 ? u"WordDocument" : u"Data" + std::u16string(1, u'A' + index),
                        std::move(data));
    }
    vrk::Builder_Options options;
    options.tables_at_end = tables_at_end;
    const stdfs::path path = bench_folder() / ("doc_" + std::to_string(megabytes) +
                                               (tables_at_end ? "_tail" : "") + ".doc");
    vrk::write_compound_file(vrk::platform::from_path(path), root, options);
    return built.emplace(key, path.string()).first->second;
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

void warm(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<char> block(8 * kMiB);
    while (in.read(block.data(), static_cast<std::streamsize>(block.size())) || in.gcount() > 0) {
    }
}

void BM_FileCheck(benchmark::State& state) {
    const std::string& path = document(static_cast<uint64_t>(state.range(0)), state.range(1) != 0);
    warm(path);
    int32_t result = 0;
    Rss_Sampler sampler;
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
    warm(path);
    uint64_t hits = 0;
    for (auto _ : state) {
        vrk::platform::Mapped_File mapped;
        vrk::platform::map_file(vrk::platform::from_path(path), mapped);
        hits = 0;
        const auto* at = mapped.data;
        const auto* const end = mapped.data + mapped.size;
        const auto& needle = vrk::kRootEntrySignature;
        while (const void* hit =
                   memmem(at, static_cast<std::size_t>(end - at), needle.data(), needle.size())) {
            ++hits;
            at = static_cast<const uint8_t*>(hit) + 1;
        }
        vrk::platform::unmap_file(mapped);
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

const Folder_Cleanup cleanup;

}  // namespace

BENCHMARK_MAIN();
