// One thread for work beside the calling thread. Starting it may fail (the caller then does the
// work itself), and it is always joined before it goes, so the work never outlives what it uses.
#pragma once

#include <exception>
#include <system_error>
#include <thread>
#include <utility>

namespace vrk {

class Beside_Thread {
  public:
    Beside_Thread() = default;
    ~Beside_Thread() { (void)join(); }
    Beside_Thread(const Beside_Thread&) = delete;
    Beside_Thread& operator=(const Beside_Thread&) = delete;

    // Runs `work` on a thread of its own; false when no thread could be started.
    template <class Work>
    [[nodiscard]] bool start(Work&& work) noexcept {
        try {
            m_thread = std::thread(std::forward<Work>(work));
            return true;
        } catch (const std::exception&) {
            return false;
        }
    }
    // Waits for the work to end; false when the thread could not be joined (it is then left to
    // end by itself: nothing else is possible).
    [[nodiscard]] bool join() noexcept {
        if (!m_thread.joinable()) return true;
        try {
            m_thread.join();
            return true;
        } catch (const std::system_error&) {
            m_thread.detach();
            return false;
        }
    }

  private:
    std::thread m_thread;
};

}  // namespace vrk
