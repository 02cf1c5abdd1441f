// The release's file writes on two threads. The calling thread works out each stream (its chain
// walk, its log lines, its runs) in order and hands the stream over; the stream's file is then
// written by whichever thread is free: the calling thread, while enough streams wait, or the
// one beside it. The thread beside first runs other work handed to start() (the analysis's
// reports). Neither that work nor the writes log or record errors, so every log line and error
// record of the release stays on the calling thread in the order of a one-thread release; the
// caller keeps writes whose order the file system could notice (two names of one file) apart
// with drain() and write_alone(). Where no thread can be started, the calling thread does all.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <string>
#include <vector>

#include "cfb_vornak/model/Tree_Release.h"
#include "common/platform.h"
#include "common/writer_pool.h"

namespace vrk {

// One stream's file: its runs of the input file, or of the short-stream container.
struct Release_Job {
    std::wstring path;
    std::vector<Byte_Run> runs;
    bool in_container = false;
    uint64_t unread_at = 0;  // set by the lanes: the first byte that could not be read
};

class Release_Lanes {
  public:
    // `input` (open) and `container` must outlive the object and stay unchanged meanwhile.
    Release_Lanes(const platform::Input_File& input, const std::vector<uint8_t>& container);
    // Writes every stream handed over, then ends the thread.
    ~Release_Lanes();
    Release_Lanes(const Release_Lanes&) = delete;
    Release_Lanes& operator=(const Release_Lanes&) = delete;

    // Runs `work` on the thread beside before it takes streams. Where no thread can be started
    // the work runs here and now, and what it throws passes through.
    void start(const std::function<void()>& work);
    // Hands a stream over; while more are waiting than a small bound, the calling thread
    // writes the oldest itself.
    void add(Release_Job&& job);
    // Writes `job` on the calling thread once every stream handed over is written, so that its
    // file is made after theirs and before any later one.
    void write_alone(Release_Job&& job);
    // Returns once every stream handed over is written, writing waiting ones itself.
    void drain();
    // Drains, then waits for the thread's work and ends the thread; rethrows what the work
    // threw.
    void finish();

    // True once the work beside has thrown or a stream's bytes could not be read: the caller
    // hands over no more streams.
    [[nodiscard]] bool stopped() const;
    // The files written completely (made, every byte written, closed).
    [[nodiscard]] uint32_t written() const { return m_written.load(); }
    // The first byte that could not be read, of the earliest stream handed over that met one;
    // false when none did (known once drained).
    [[nodiscard]] bool unread(uint64_t& offset) const;

  private:
    // False only when the stream's bytes could not be read all.
    bool write_job(Release_Job& job, std::size_t lane) noexcept;

    const platform::Input_File& m_input;
    const std::vector<uint8_t>& m_container;
    std::vector<uint8_t> m_blocks[2];  // each lane's read buffer, made on first need
    std::atomic<uint32_t> m_written{0};
    std::atomic<bool> m_work_failed{false};
    std::exception_ptr m_work_failure;  // read once the thread has ended
    bool m_unread = false;
    uint64_t m_unread_at = 0;
    Writer_Pool<Release_Job> m_pool;  // last: ended before the rest goes
};

}  // namespace vrk
