// Pieces shared by the benchmarks: a scratch folder removed at exit, the started library,
// random contents and a large word-processing document built from them, a warm page cache,
// wall-clock seconds, and the anonymous resident memory (RssAnon) with a 1 ms sampler.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <random>
#include <thread>
#include <vector>

#include "cfb_vornak/builder/Cfb_Builder.h"

namespace vrk::bench {

inline constexpr uint64_t kMiB = uint64_t{1} << 20;

// <temp>/<program>_<pid>, created on first use and removed with everything below it when the
// program exits. Folders left by runs that were killed are removed at the next first use.
const std::filesystem::path& scratch_folder();

// VrkCfbInit with the log, configuration and work folders below the scratch folder, once;
// aborts when the library refuses to start.
void start_library();

// `count` bytes of `random`'s output.
std::vector<uint8_t> random_bytes(std::size_t count, std::mt19937_64& random);

// Writes a word-processing document of about `megabytes` MB: a small "1Table" stream and
// streams of up to 64 MB of random bytes (seeded by the size), the first "WordDocument".
// Aborts when the file cannot be written.
void write_word_document(const std::filesystem::path& path, uint64_t megabytes,
                         const Builder_Options& options = {});

// Writes every dirty page of the system out, so that the write-back of a sample just built
// does not run during the timings.
void settle_page_cache();

// Reads the whole file once, so that it is in the page cache.
void warm(const std::filesystem::path& path);

double seconds_since(std::chrono::steady_clock::time_point start);

// This process's RssAnon from /proc/self/status, in KiB; 0 when it cannot be read.
uint64_t rss_anon_kib();

// Samples RssAnon every millisecond on its own thread while alive; stop() gives the peak.
class Rss_Sampler {
  public:
    Rss_Sampler();
    ~Rss_Sampler();
    Rss_Sampler(const Rss_Sampler&) = delete;
    Rss_Sampler& operator=(const Rss_Sampler&) = delete;
    uint64_t stop();

  private:
    std::atomic<bool> m_stop{false};
    std::atomic<uint64_t> m_peak{0};
    std::thread m_thread;
};

}  // namespace vrk::bench
