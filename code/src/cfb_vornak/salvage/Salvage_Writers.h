// Writes the files of an extraction on two threads beside the caller, so that the system's copies
// into two files run at once while the caller creates the next ones. The caller creates every
// file (the names are its to choose) and hands each over with the pieces it is to receive. The
// folder ends up as a one-thread extraction leaves it: when a file cannot be written, it and
// every file handed over after it are removed, and the failure is the first in the order handed
// over; anything thrown while writing is thrown again on the caller. The threads neither log nor
// record errors; where no thread can be started the caller writes each file itself.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "cfb_vornak/salvage/Salvage.h"
#include "cfb_vornak/salvage/Salvage_Input.h"
#include "common/beside_thread.h"
#include "common/platform.h"

namespace vrk::salvage {

class Salvage_Writers {
  public:
    explicit Salvage_Writers(const Salvage_Input& input);
    // Writes nothing more (files handed over and not yet written stay as created), then ends
    // the threads.
    ~Salvage_Writers();
    Salvage_Writers(const Salvage_Writers&) = delete;
    Salvage_Writers& operator=(const Salvage_Writers&) = delete;

    // Hands over `out`, just created as `name` in `folder`, to receive the bytes of `pieces`
    // (the folder stays open and the pieces unchanged until finish()); `shown` names the file in
    // messages. False when a file handed over before has failed: the caller then stops and
    // calls finish().
    [[nodiscard]] bool write(std::unique_ptr<platform::Output_File> out,
                             const platform::Output_Folder& folder, const std::wstring& name,
                             const std::string& shown, const std::vector<Salvage_Piece>& pieces);
    // Waits until every file handed over is written. False, with "cannot write <shown>" of the
    // first that failed, when one did; that file and those handed over after it are removed.
    [[nodiscard]] bool finish(std::string& error);

  private:
    enum class Outcome { pending, written, failed, thrown };
    struct Job {
        std::unique_ptr<platform::Output_File> out;
        const platform::Output_Folder* folder;
        std::wstring name;
        std::string shown;
        const std::vector<Salvage_Piece>* pieces;
        Outcome outcome = Outcome::pending;
        std::exception_ptr thrown;
    };

    // Writes one job's file and closes it; what it throws is the caller's.
    bool write_job(Job& job, Aligned_Bytes& buffer) const;
    void run() noexcept;

    const Salvage_Input& m_input;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Job> m_jobs;   // handed over and not yet settled by finish(), in order
    std::size_t m_taken = 0;  // jobs of m_jobs a thread has taken
    std::size_t m_open = 0;   // jobs taken or waiting, not yet written
    bool m_failed = false;    // some job failed: the jobs not yet taken are skipped
    bool m_stopping = false;
    bool m_started = false;
    bool m_inline = false;       // no thread could be started: the caller writes
    Aligned_Bytes m_buffer;      // the caller's, when it writes
    Beside_Thread m_threads[2];  // last: joined before the queue goes
};

}  // namespace vrk::salvage
