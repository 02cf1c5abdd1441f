#include "cfb_vornak/model/Release_Lanes.h"

#include <algorithm>
#include <utility>

#include "common/fs_utils.h"

namespace vrk {

namespace {

// Streams waiting at most, counted and by their runs: enough to keep the thread beside busy,
// few enough that waiting streams hold little memory.
constexpr Writer_Pool_Shape kShape{1, 8, std::size_t{1} << 16, true, false};
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
    : m_input(input),
      m_container(container),
      m_pool(kShape, [this](Release_Job& job, std::size_t lane) { return write_job(job, lane); }) {}

Release_Lanes::~Release_Lanes() {
    // Streams handed over are written even where the release ends early.
    try {
        drain();
    } catch (const std::exception&) {
        return;
    }
}

void Release_Lanes::start(const std::function<void()>& work) {
    const auto beside = [this, work] {
        try {
            if (work) work();
        } catch (...) {
            m_work_failure = std::current_exception();
            m_work_failed = true;
        }
    };
    if (!m_pool.start(beside) && work) work();
}

void Release_Lanes::add(Release_Job&& job) {
    const std::size_t runs = job.runs.size();
    (void)m_pool.add(std::move(job), runs);
}

void Release_Lanes::write_alone(Release_Job&& job) {
    drain();
    add(std::move(job));
    // The thread beside may take it first: either way it is written before anything later is
    // handed over, as the caller waits for it here.
    drain();
}

void Release_Lanes::drain() {
    for (const auto& entry : m_pool.drain()) {
        // The earliest stream that met an unreadable byte fails the release: it would have been
        // met first.
        if (entry.failed && !m_unread) {
            m_unread = true;
            m_unread_at = entry.job.unread_at;
        }
    }
}

void Release_Lanes::finish() {
    drain();
    m_pool.stop();
    if (m_work_failure) std::rethrow_exception(m_work_failure);
}

bool Release_Lanes::stopped() const {
    return m_unread || m_work_failed || m_pool.failed();
}

bool Release_Lanes::unread(uint64_t& offset) const {
    offset = m_unread_at;
    return m_unread;
}

bool Release_Lanes::write_job(Release_Job& job, std::size_t lane) noexcept {
    // Nothing may leave a writer: anything thrown counts as a file not written.
    try {
        // The parent folder is made only when the file cannot be created without it.
        platform::Output_File out;
        if (!out.create(job.path)) {
            try_make_parent_folder(job.path);
            if (!out.create(job.path)) return true;
        }
        std::vector<uint8_t>& block = m_blocks[lane];
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
                    job.unread_at = run.offset + done + got;
                    return false;
                }
                ok = out.write(block.data(), block.size());
                done += n;
            }
            if (!ok) break;
        }
        if (out.close() && ok) ++m_written;
    } catch (...) {
        return true;
    }
    return true;
}

}  // namespace vrk
