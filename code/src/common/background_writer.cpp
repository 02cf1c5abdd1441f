#include "common/background_writer.h"

#include <algorithm>

namespace vrk {

Background_Writer::Background_Writer(platform::Output_File& out, std::size_t depth)
    : m_out(out), m_depth(std::max<std::size_t>(depth, 1)) {}

Background_Writer::~Background_Writer() {
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
    }
    m_changed.notify_all();
    (void)m_thread.join();
}

void Background_Writer::write(const uint8_t* bytes, std::size_t size) {
    if (!m_started) {
        m_started = true;
        m_inline = !m_thread.start([this] { run(); });
    }
    if (m_inline) {
        if (!m_failed) m_failed = !m_out.write(bytes, size);
        return;
    }
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_pending.size() < m_depth; });
    if (m_failed) return;
    m_pending.push_back({bytes, size});
    lock.unlock();
    m_changed.notify_all();
}

bool Background_Writer::finish() {
    if (m_inline || !m_started) return !m_failed;
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [this] { return m_pending.empty(); });
    return !m_failed;
}

void Background_Writer::run() noexcept {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return !m_pending.empty() || m_stopping; });
        if (m_pending.empty()) return;
        const Range range = m_pending.front();
        const bool skip = m_failed;
        lock.unlock();
        bool ok = skip;
        if (!skip) {
            // Nothing may leave the thread: anything thrown counts as a failed write.
            try {
                ok = m_out.write(range.bytes, range.size);
            } catch (...) {
                ok = false;
            }
        }
        lock.lock();
        if (!ok) m_failed = true;
        m_pending.pop_front();
        m_changed.notify_all();
    }
}

}  // namespace vrk
