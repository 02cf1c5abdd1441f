// Jobs, each writing one file, handed over in order and written on threads beside the caller.
// Failures reach the caller as a one-thread writer would meet them: drain() hands back the first
// failed job in the order handed over, with every job after it. A job's write neither logs nor
// records errors; what it throws counts as a failure and comes back with the job. Where no
// thread can be started, the caller writes each job as it hands it over.
#pragma once

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <utility>

#include "common/beside_thread.h"

namespace vrk {

// What sets one pool's users apart.
struct Writer_Pool_Shape {
    std::size_t threads = 1;  // beside the caller, at least 1
    // Jobs handed over and not yet begun, at most: their count and their weights summed.
    std::size_t most_waiting = 1;
    std::size_t most_waiting_weight = std::numeric_limits<std::size_t>::max();
    // Past a bound, and in drain(), the caller writes the oldest waiting job itself instead of
    // waiting for the threads.
    bool caller_writes = false;
    // Once a job has failed, the jobs not yet begun are skipped (and count as failed).
    bool skip_after_failure = false;
};

template <class Job>
class Writer_Pool {
  public:
    // Writes `job` on `lane` (0 the calling thread, 1.. the threads beside, so that each lane
    // may keep buffers of its own); false when the job failed.
    using Write = std::function<bool(Job& job, std::size_t lane)>;
    struct Entry {
        Job job;
        std::size_t weight = 1;
        bool done = false;
        bool failed = false;  // its write failed or threw, or it was skipped
        std::exception_ptr thrown;
    };

    Writer_Pool(const Writer_Pool_Shape& shape, Write write)
        : m_shape(shape),
          m_write(std::move(write)),
          m_count(std::max<std::size_t>(shape.threads, 1)),
          m_threads(std::make_unique<Beside_Thread[]>(m_count)) {}
    // Skips the jobs not yet begun (their files stay as they are), then ends the threads.
    ~Writer_Pool() { stop(); }
    Writer_Pool(const Writer_Pool&) = delete;
    Writer_Pool& operator=(const Writer_Pool&) = delete;

    // Starts the threads (add() does on first use); the first runs `first`, which must not
    // throw, before it takes jobs. False when no thread could be started: `first` is not run.
    [[nodiscard]] bool start(std::function<void()> first = nullptr) {
        m_started = true;
        m_inline = !m_threads[0].start([this, first = std::move(first)] {
            if (first) first();
            run(1);
        });
        // Where only some threads start, they write every job.
        for (std::size_t i = 1; !m_inline && i < m_count; ++i) {
            (void)m_threads[i].start([this, i] { run(i + 1); });
        }
        return !m_inline;
    }
    // Hands `job` over, of `weight` toward the bound; false once a job handed over has failed.
    [[nodiscard]] bool add(Job&& job, std::size_t weight = 1) {
        if (!m_started) (void)start();
        std::unique_lock<std::mutex> lock(m_mutex);
        m_jobs.push_back(Entry{std::move(job), weight, false, false, nullptr});
        m_waiting_weight += weight;
        m_changed.notify_all();
        while (over_bound() && !(m_shape.skip_after_failure && m_failed)) {
            if (m_inline || m_shape.caller_writes) {
                write_next(lock, 0);
            } else {
                m_changed.wait(lock);
            }
        }
        return !m_failed;
    }
    // Returns once every job handed over is written; hands back the first that failed and the
    // jobs after it, in order (none when none failed), and forgets them all.
    [[nodiscard]] std::deque<Entry> drain() {
        std::unique_lock<std::mutex> lock(m_mutex);
        for (;;) {
            if (m_taken < m_jobs.size() && (m_inline || m_shape.caller_writes)) {
                write_next(lock, 0);
            } else if (m_taken < m_jobs.size() || m_writing > 0) {
                m_changed.wait(lock);
            } else {
                break;
            }
        }
        std::deque<Entry> settled;
        settled.swap(m_jobs);
        m_taken = 0;
        m_failed = false;
        return settled;
    }
    // Skips the jobs not yet begun and ends the threads.
    void stop() noexcept {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_stopping = true;
        }
        m_changed.notify_all();
        for (std::size_t i = 0; i < m_count; ++i) (void)m_threads[i].join();
    }
    // True once a job handed over since the last drain() has failed.
    [[nodiscard]] bool failed() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_failed;
    }

  private:
    [[nodiscard]] bool over_bound() const {
        const std::size_t waiting = m_jobs.size() - m_taken;
        if (m_inline) return waiting > 0;
        return waiting > m_shape.most_waiting || m_waiting_weight > m_shape.most_waiting_weight;
    }
    // Takes the oldest waiting job, writes it with the lock released and records how it went.
    void write_next(std::unique_lock<std::mutex>& lock, std::size_t lane) {
        Entry& entry = m_jobs[m_taken++];
        m_waiting_weight -= entry.weight;
        ++m_writing;
        const bool skip = m_stopping || (m_shape.skip_after_failure && m_failed);
        lock.unlock();
        bool ok = false;
        std::exception_ptr thrown;
        if (!skip) {
            try {
                ok = m_write(entry.job, lane);
            } catch (...) {
                thrown = std::current_exception();
            }
        }
        lock.lock();
        --m_writing;
        entry.done = true;
        entry.failed = !ok;
        entry.thrown = thrown;
        if (!ok) m_failed = true;
        // Jobs written before any failure are needed no more.
        for (; m_taken > 0 && m_jobs.front().done && !m_jobs.front().failed; --m_taken) {
            m_jobs.pop_front();
        }
        m_changed.notify_all();
    }
    void run(std::size_t lane) noexcept {
        std::unique_lock<std::mutex> lock(m_mutex);
        for (;;) {
            m_changed.wait(lock, [this] { return m_taken < m_jobs.size() || m_stopping; });
            if (m_taken >= m_jobs.size()) return;
            write_next(lock, lane);
        }
    }

    const Writer_Pool_Shape m_shape;
    const Write m_write;
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Entry> m_jobs;  // in order: from the first not written whole
    std::size_t m_taken = 0;   // jobs of m_jobs begun
    std::size_t m_writing = 0;
    std::size_t m_waiting_weight = 0;
    bool m_failed = false;
    bool m_stopping = false;
    bool m_started = false;
    bool m_inline = false;  // no thread could be started: the caller writes
    const std::size_t m_count;
    std::unique_ptr<Beside_Thread[]> m_threads;  // last: joined before the rest goes
};

}  // namespace vrk
