#include "bench_support.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <system_error>
#include <utility>

#include "cfb_vornak/builder/Cfb_Fs_Item.h"
#include "cfb_vornak/cfb_vornak_api.h"
#include "common/platform.h"

namespace vrk::bench {

namespace stdfs = std::filesystem;

namespace {

constexpr uint64_t kStreamSize = 64 * kMiB;

// Removes <prefix><pid> folders whose process is gone (no /proc entry).
void remove_abandoned(const stdfs::path& parent, const std::string& prefix) {
    std::error_code error;
    for (const auto& entry : stdfs::directory_iterator(parent, error)) {
        const std::string name = entry.path().filename().string();
        if (name.size() <= prefix.size() || name.compare(0, prefix.size(), prefix) != 0) continue;
        const std::string pid = name.substr(prefix.size());
        if (pid.find_first_not_of("0123456789") != std::string::npos) continue;
        std::error_code ignored;
        if (!stdfs::exists("/proc/" + pid, ignored)) stdfs::remove_all(entry.path(), ignored);
    }
}

void remove_scratch_folder() {
    std::error_code error;
    stdfs::remove_all(scratch_folder(), error);
}

}  // namespace

const stdfs::path& scratch_folder() {
    // Never destroyed: the removal at exit still needs it.
    static const stdfs::path* const folder = [] {
        const stdfs::path parent = stdfs::temp_directory_path();
        const std::string prefix = std::string(program_invocation_short_name) + "_";
        remove_abandoned(parent, prefix);
        auto* path = new stdfs::path(
            parent / (prefix + std::to_string(vrk::platform::current_process_id())));
        stdfs::create_directories(*path);
        std::atexit(remove_scratch_folder);
        return path;
    }();
    return *folder;
}

void start_library() {
    static const bool started = [] {
        const stdfs::path& base = scratch_folder();
        stdfs::create_directories(base / "work");
        return VrkCfbInit((base / "logs").string().c_str(), (base / "config").string().c_str(),
                          (base / "work").string().c_str()) == 0;
    }();
    if (!started) std::abort();
}

std::vector<uint8_t> random_bytes(std::size_t count, std::mt19937_64& random) {
    std::vector<uint8_t> bytes(count);
    std::size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const uint64_t value = random();
        std::memcpy(&bytes[i], &value, 8);
    }
    for (; i < count; ++i) bytes[i] = static_cast<uint8_t>(random());
    return bytes;
}

void write_word_document(const stdfs::path& path, uint64_t megabytes,
                         const Builder_Options& options) {
    std::mt19937_64 random(megabytes);
    auto root = std::make_unique<Cfb_Fs_Item_DirNode>();
    root->add_stream(u"1Table", std::vector<uint8_t>(3000, 7));
    uint64_t left = megabytes * kMiB;
    for (int index = 0; left > 0; ++index) {
        const auto size = static_cast<std::size_t>(std::min(left, kStreamSize));
        left -= size;
        root->add_stream(index == 0 ? u"WordDocument" : u"Data" + std::u16string(1, u'A' + index),
                         random_bytes(size, random));
    }
    if (!write_compound_file(vrk::platform::from_path(path), *root, options)) std::abort();
    settle_page_cache();
}

void settle_page_cache() {
    ::sync();
}

void warm(const stdfs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<char> block(8 * kMiB);
    while (in.read(block.data(), static_cast<std::streamsize>(block.size())) || in.gcount() > 0) {
    }
}

double seconds_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

uint64_t rss_anon_kib() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("RssAnon:", 0) == 0) return std::stoull(line.substr(8));
    }
    return 0;
}

Rss_Sampler::Rss_Sampler()
    : m_thread([this] {
          while (!m_stop.load()) {
              const uint64_t now = rss_anon_kib();
              if (now > m_peak.load()) m_peak.store(now);
              std::this_thread::sleep_for(std::chrono::milliseconds(1));
          }
      }) {}

Rss_Sampler::~Rss_Sampler() {
    stop();
}

uint64_t Rss_Sampler::stop() {
    m_stop.store(true);
    if (m_thread.joinable()) m_thread.join();
    return m_peak.load();
}

}  // namespace vrk::bench
