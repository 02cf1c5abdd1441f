// The upper part of a pass over a large file, run on a thread beside the caller while the caller
// does the lower part. The thread neither logs nor throws: it goes step by step and stops where
// a step cannot be done (a read that comes up short), where anything is thrown, or where the
// owner goes first; the caller then does what is left from finish() on, as it does where no
// thread could be started.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <utility>

#include "common/beside_thread.h"

namespace vrk {

class Split_Pass {
  public:
    // Runs `step(at, end)` over [from, to) in steps of `stride`, each step false when it could
    // not be done. What `step` uses must outlive the object.
    template <class Step>
    Split_Pass(uint64_t from, uint64_t to, uint64_t stride, Step step)
        : m_from(from), m_done(from) {
        if (from < to)
            (void)m_thread.start(
                [this, from, to, stride, step = std::move(step)]() mutable noexcept {
                    try {
                        for (uint64_t at = from; at < to; at += stride) {
                            if (m_stop.load(std::memory_order_relaxed)) return;
                            if (!step(at, std::min(to, at + stride))) return;
                            m_done = std::min(to, at + stride);
                        }
                    } catch (...) {
                        // Only an allocation can fail; the caller goes on from what was done.
                    }
                });
    }
    ~Split_Pass() {
        m_stop.store(true, std::memory_order_relaxed);
        (void)m_thread.join();
    }
    Split_Pass(const Split_Pass&) = delete;
    Split_Pass& operator=(const Split_Pass&) = delete;

    // Waits for the thread; the end of what it did (`to` when it did all).
    [[nodiscard]] uint64_t finish() { return m_thread.join() ? m_done : m_from; }

  private:
    uint64_t m_from;
    uint64_t m_done;
    std::atomic<bool> m_stop{false};
    Beside_Thread m_thread;  // last: joined before the rest goes
};

}  // namespace vrk
