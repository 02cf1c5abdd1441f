#include "cfb_vornak/model/Release_Lanes.h"

#include <algorithm>
#include <utility>

#include "common/fs_utils.h"

namespace vrk {

namespace {

// Streams waiting at most, counted and by their runs: enough to keep the thread beside busy,
// few enough that waiting streams hold little memory.
constexpr std::size_t kMostWaiting = 8;
constexpr std::size_t kMostWaitingRuns = std::size_t{1} << 16;
// What the writes read at a time where the system copy stops short.
constexpr uint64_t kBlock = uint64_t{1} << 20;

// Makes the folder holding `file`; a refusal of the file system leaves the file unmade.
void try_make_parent_folder(const std::wstring& file) {
    try {
        (void)fs::make_parent_folder(file);
    } catch (const std::exception&) {
        return;
    }
}

}  // namespace

Release_Lanes::Release_Lanes(const platform::Input_File& input,
                             const std::vector<uint8_t>& container)
    : m_input(input), m_container(container) {}

Release_Lanes::~Release_Lanes() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_closing = true;
    }
    m_changed.notify_all();
    (void)m_thread.join();
    // Without a thread (or after it ended) the streams still waiting are written here.
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_waiting.empty()) write_front(lock, m_block);
}

void Release_Lanes::start(std::function<void()> work) {
    m_work = std::move(work);
    m_started = m_thread.start([this] { run(); });
    if (!m_started) {
        const std::function<void()> here = std::move(m_work);
        m_work = nullptr;
        if (here) here();
    }
}

void Release_Lanes::add(Release_Job&& job) {
    std::unique_lock<std::mutex> lock(m_mutex);
    job.order = m_next_order++;
    m_waiting_runs += job.runs.size();
    m_waiting.push_back(std::move(job));
    m_changed.notify_all();
    while (m_waiting.size() > kMostWaiting || m_waiting_runs > kMostWaitingRuns) {
        write_front(lock, m_block);
    }
}

void Release_Lanes::write_alone(Release_Job&& job) {
    drain();
    std::unique_lock<std::mutex> lock(m_mutex);
    job.order = m_next_order++;
    m_waiting_runs += job.runs.size();
    m_waiting.push_back(std::move(job));
    // The thread beside may take it first: either way it is written before anything later is
    // handed over, as the caller waits for it here.
    while (!m_waiting.empty()) write_front(lock, m_block);
    m_changed.wait(lock, [this] { return m_writing == 0; });
}

void Release_Lanes::drain() {
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_waiting.empty()) write_front(lock, m_block);
    m_changed.wait(lock, [this] { return m_writing == 0; });
}

void Release_Lanes::finish() {
    drain();
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_closing = true;
    }
    m_changed.notify_all();
    (void)m_thread.join();
    if (m_work_failure) std::rethrow_exception(m_work_failure);
}

bool Release_Lanes::stopped() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_stopped;
}

uint32_t Release_Lanes::written() const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_written;
}

bool Release_Lanes::unread(uint64_t& offset) const {
    const std::lock_guard<std::mutex> lock(m_mutex);
    offset = m_unread_offset;
    return m_unread;
}

Release_Lanes::Outcome Release_Lanes::write_job(const Release_Job& job,
                                                std::vector<uint8_t>& block) const noexcept {
    Outcome outcome;
    // Nothing may leave a writer: anything thrown counts as a file not written.
    try {
        // The parent folder is made only when the file cannot be created without it.
        platform::Output_File out;
        if (!out.create(job.path)) {
            try_make_parent_folder(job.path);
            if (!out.create(job.path)) return outcome;
        }
        bool ok = true;
        for (const Byte_Run& run : job.runs) {
            if (job.in_container) {
                ok = out.write(m_container.data() + run.offset,
                               static_cast<std::size_t>(run.length));
                if (!ok) break;
                continue;
            }
            // The system copies what it can; the rest is read in bounded blocks, and a block
            // that cannot be read whole ends the stream there, before that block is written.
            uint64_t done = out.append_range(m_input, run.offset, run.length);
            while (ok && done < run.length) {
                const uint64_t n = std::min(kBlock, run.length - done);
                block.resize(static_cast<std::size_t>(n));
                const std::size_t got =
                    m_input.read_at(run.offset + done, block.data(), block.size());
                if (got < block.size()) {
                    outcome.unread = true;
                    outcome.unread_offset = run.offset + done + got;
                    return outcome;
                }
                ok = out.write(block.data(), block.size());
                done += n;
            }
            if (!ok) break;
        }
        outcome.written = out.close() && ok;
    } catch (...) {
        outcome.written = false;
    }
    return outcome;
}

void Release_Lanes::write_front(std::unique_lock<std::mutex>& lock, std::vector<uint8_t>& block) {
    Release_Job job = std::move(m_waiting.front());
    m_waiting.pop_front();
    m_waiting_runs -= job.runs.size();
    ++m_writing;
    lock.unlock();
    const Outcome outcome = write_job(job, block);
    lock.lock();
    --m_writing;
    if (outcome.written) ++m_written;
    if (outcome.unread && (!m_unread || job.order < m_unread_order)) {
        m_unread = true;
        m_unread_order = job.order;
        m_unread_offset = outcome.unread_offset;
        m_stopped = true;
    }
    m_changed.notify_all();
}

void Release_Lanes::run() noexcept {
    if (m_work) {
        try {
            m_work();
        } catch (...) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_work_failure = std::current_exception();
            m_stopped = true;
        }
    }
    std::vector<uint8_t> block;
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return !m_waiting.empty() || m_closing; });
        if (m_waiting.empty()) return;
        write_front(lock, block);
    }
}

}  // namespace vrk
