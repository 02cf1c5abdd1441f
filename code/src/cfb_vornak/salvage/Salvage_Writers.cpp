#include "cfb_vornak/salvage/Salvage_Writers.h"

#include <algorithm>
#include <utility>

namespace vrk::salvage {

namespace {

// Files handed over and not yet written, at most: each holds an open handle.
constexpr std::size_t kDepth = 32;

}  // namespace

Salvage_Writers::Salvage_Writers(const Salvage_Input& input) : m_input(input) {}

Salvage_Writers::~Salvage_Writers() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
    }
    m_changed.notify_all();
    for (Beside_Thread& thread : m_threads) (void)thread.join();
}

bool Salvage_Writers::write(std::unique_ptr<platform::Output_File> out,
                            const platform::Output_Folder& folder, const std::wstring& name,
                            const std::string& shown, const std::vector<Salvage_Piece>& pieces) {
    Job job{std::move(out), &folder, name, shown, &pieces, Outcome::pending, nullptr};
    if (!m_started) {
        m_started = true;
        m_inline = !m_threads[0].start([this] { run(); });
        // Where only one thread starts, it writes every file.
        if (!m_inline) (void)m_threads[1].start([this] { run(); });
    }
    if (m_inline) {
        // As a one-thread extraction: what is thrown goes straight to the caller.
        job.outcome = write_job(job, m_buffer) ? Outcome::written : Outcome::failed;
        if (job.outcome == Outcome::written) return true;
        m_failed = true;
        m_jobs.push_back(std::move(job));
        return false;
    }
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_open < kDepth || m_failed; });
    // Created after a failed file, a job is skipped, and removed with it.
    const bool failed = m_failed;
    // Written files before any failure stay as they are: nothing needs them again.
    for (; m_taken > 0 && m_jobs.front().outcome == Outcome::written; --m_taken) {
        m_jobs.pop_front();
    }
    m_jobs.push_back(std::move(job));
    ++m_open;
    lock.unlock();
    m_changed.notify_all();
    return !failed;
}

bool Salvage_Writers::finish(std::string& error) {
    std::deque<Job> jobs;
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [this] { return m_open == 0; });
        jobs.swap(m_jobs);
        m_taken = 0;
        m_failed = false;
    }
    const auto first = std::find_if(jobs.begin(), jobs.end(),
                                    [](const Job& job) { return job.outcome != Outcome::written; });
    if (first == jobs.end()) return true;
    // A file whose write threw stays, as it would where the caller wrote it; the files after it
    // would never have been made.
    const std::exception_ptr thrown = first->thrown;
    for (auto it = thrown ? first + 1 : first; it != jobs.end(); ++it) {
        it->out.reset();
        it->folder->remove_file(it->name);
    }
    if (thrown) std::rethrow_exception(thrown);
    error = "cannot write " + first->shown;
    return false;
}

// Pieces that follow each other in the stream without gaps are written straight from the input
// (runs of 64 KB or more copied by the system from the input's file when it is open, the others
// read), joined where they also follow each other in the file; a stream with gaps, or one split
// into many small runs, goes through one gathered copy instead, which yields the same bytes.
bool Salvage_Writers::write_job(Job& job, Aligned_Bytes& buffer) const {
    platform::Output_File& out = *job.out;
    const std::vector<Salvage_Piece>& pieces = *job.pieces;
    const uint64_t size = m_input.size();
    const platform::Input_File* file = m_input.file();
    constexpr uint64_t kSmallRun = 64 * 1024;
    uint64_t next = 0;
    uint64_t runs = 0;
    bool gathered = false;
    for (std::size_t i = 0; i < pieces.size() && !gathered; ++i) {
        const Salvage_Piece& p = pieces[i];
        gathered =
            p.stream_offset != next || p.file_offset > size || p.length > size - p.file_offset;
        if (i == 0 || pieces[i - 1].file_offset + pieces[i - 1].length != p.file_offset) ++runs;
        next += p.length;
    }
    if (gathered || runs > 1 + next / kSmallRun) {
        const std::vector<uint8_t> bytes = salvaged_bytes(m_input, pieces, true);
        const bool written = out.write(bytes.data(), bytes.size());
        return out.close() && written;
    }
    bool ok = true;
    for (std::size_t i = 0; ok && i < pieces.size();) {
        const uint64_t start = pieces[i].file_offset;
        uint64_t length = 0;
        for (; i < pieces.size() && pieces[i].file_offset == start + length; ++i) {
            length += pieces[i].length;
        }
        // Short runs cost less as one write than as a copy between the files.
        if (file != nullptr && length >= kSmallRun) {
            ok = out.append_range(*file, start, length) == length;
        } else {
            const uint8_t* bytes =
                m_input.bytes_beside(start, static_cast<std::size_t>(length), buffer);
            ok = bytes != nullptr && out.write(bytes, static_cast<std::size_t>(length));
        }
    }
    return out.close() && ok;
}

void Salvage_Writers::run() noexcept {
    Aligned_Bytes buffer;
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_taken < m_jobs.size() || m_stopping; });
        if (m_taken >= m_jobs.size()) return;
        Job& job = m_jobs[m_taken++];
        const bool skip = m_failed || m_stopping;
        lock.unlock();
        Outcome outcome = Outcome::failed;
        std::exception_ptr thrown;
        if (!skip) {
            try {
                outcome = write_job(job, buffer) ? Outcome::written : Outcome::failed;
            } catch (...) {
                thrown = std::current_exception();
                outcome = Outcome::thrown;
            }
        }
        lock.lock();
        job.outcome = outcome;
        job.thrown = thrown;
        if (outcome != Outcome::written) m_failed = true;
        --m_open;
        m_changed.notify_all();
    }
}

}  // namespace vrk::salvage
