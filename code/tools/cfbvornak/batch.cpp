#include "batch.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <mutex>
#include <thread>

#include "common/platform.h"
#include "tool_common.h"

namespace vrk::cli {

namespace {

using Clock = std::chrono::steady_clock;

// The progress line: rewritten in place, cleared before any other output.
class Progress {
  public:
    Progress(bool shown, std::size_t total) : m_shown(shown), m_total(total) {}

    void clear() {
        if (m_width == 0) return;
        std::cerr << '\r' << std::string(m_width, ' ') << '\r';
        m_width = 0;
    }

    void update(std::size_t done) {
        const Clock::time_point now = Clock::now();
        if (!m_shown || now - m_last < std::chrono::milliseconds(200)) return;
        m_last = now;
        const double seconds = std::chrono::duration<double>(now - m_start).count();
        const double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0;
        std::string line = "[" + grouped(done) + "/" + grouped(m_total) + "]";
        char buffer[64];
        std::snprintf(buffer, sizeof buffer, " %.1f files/s", rate);
        line += buffer;
        if (rate > 0) {
            const auto left = static_cast<uint64_t>(static_cast<double>(m_total - done) / rate);
            std::snprintf(buffer, sizeof buffer, ", %llu:%02llu:%02llu left",
                          static_cast<unsigned long long>(left / 3600),
                          static_cast<unsigned long long>(left / 60 % 60),
                          static_cast<unsigned long long>(left % 60));
            line += buffer;
        }
        clear();
        std::cerr << line << std::flush;
        m_width = line.size();
    }

  private:
    bool m_shown;
    std::size_t m_total;
    std::size_t m_width = 0;
    Clock::time_point m_start = Clock::now();
    Clock::time_point m_last{};
};

}  // namespace

Batch_Inputs collect_inputs(const std::vector<std::string>& given, bool recursive) {
    Batch_Inputs inputs;
    for (const std::string& name : given) {
        const std::string path = user_path(name);
        const std::filesystem::path native = platform::to_path(platform::widen(path));
        if (!is_folder(path)) {
            inputs.files.push_back(path);
            inputs.relative.push_back(platform::narrow(platform::from_path(native.filename())));
        } else if (!recursive) {
            inputs.problems.push_back(name + ": is a folder (use --recursive)");
        } else {
            for (std::string& file : files_below(path, inputs.problems)) {
                const std::filesystem::path below =
                    platform::to_path(platform::widen(file)).lexically_relative(native);
                inputs.relative.push_back(platform::narrow(platform::from_path(below)));
                inputs.files.push_back(std::move(file));
            }
        }
    }
    return inputs;
}

std::vector<std::size_t> run_batch(const std::vector<std::string>& files, unsigned jobs,
                                   bool progress, std::size_t categories,
                                   const std::function<Batch_Item(std::size_t)>& work) {
    std::vector<std::size_t> counts(categories, 0);
    if (jobs == 0) jobs = std::max(1u, std::thread::hardware_concurrency());
    jobs =
        static_cast<unsigned>(std::min<std::size_t>(jobs, std::max<std::size_t>(files.size(), 1)));
    std::atomic<std::size_t> next{0};
    std::mutex output;
    std::size_t done = 0;
    Progress line(progress, files.size());

    auto worker = [&] {
        for (std::size_t i = next++; i < files.size(); i = next++) {
            Batch_Item item;
            try {
                item = work(i);
            } catch (const std::exception& failure) {
                item.err = "cfbvornak: " + files[i] + ": " + failure.what() + "\n";
                item.category = static_cast<int>(categories) - 1;
            }
            const std::lock_guard<std::mutex> lock(output);
            line.clear();
            std::cout << item.out << std::flush;
            std::cerr << item.err;
            ++counts[static_cast<std::size_t>(item.category)];
            ++done;
            // Output nobody reads ends the run: the rest would be lost as well.
            if (!std::cout) next = files.size();
            line.update(done);
        }
    };
    if (jobs == 1) {
        worker();
    } else {
        std::vector<std::thread> threads;
        threads.reserve(jobs);
        for (unsigned j = 0; j < jobs; ++j) threads.emplace_back(worker);
        for (std::thread& thread : threads) thread.join();
    }
    line.clear();
    return counts;
}

}  // namespace vrk::cli
