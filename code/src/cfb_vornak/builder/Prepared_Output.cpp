#include "cfb_vornak/builder/Prepared_Output.h"

#include <algorithm>

namespace vrk {

namespace {

// Each call holds the file's lock for its whole range, so the writer, once it starts, waits
// for at most one piece.
constexpr uint64_t kPiece = uint64_t{32} << 20;

}  // namespace

Prepared_Output::Prepared_Output(const Write_Target& target, uint64_t expected) {
    if (target.mode != platform::Create_Mode::staged) return;
    m_created =
        m_file.create(target.path, target.mode, target.input) == platform::Create_Result::created;
    uint64_t free_bytes = 0;
    if (!m_created || expected == 0 || !platform::available_space(target.path, free_bytes) ||
        free_bytes / 2 < expected) {
        return;
    }
    (void)m_thread.start([this, expected] {
        for (uint64_t done = 0; done < expected && !m_stop.load(std::memory_order_relaxed);) {
            const uint64_t piece = std::min(kPiece, expected - done);
            if (!m_file.reserve(piece)) return;
            done += piece;
        }
    });
}

bool Prepared_Output::stop() {
    m_stop.store(true, std::memory_order_relaxed);
    return m_thread.join();
}

platform::Output_File* Prepared_Output::file() {
    // A thread that could not be joined may still be using the file.
    return stop() && m_created ? &m_file : nullptr;
}

}  // namespace vrk
