// Appends byte ranges to an output file on a thread of its own, in the order they are handed
// over, so that the kernel's copy of one block into the file overlaps the caller's work on the
// next. The file ends up as if the caller had written each range itself, in turn: after a
// failed write nothing more is written. The thread only writes; it neither logs nor records
// errors, and where no thread can be started the caller writes each range itself.
#pragma once

#include <cstddef>
#include <cstdint>

#include "common/platform.h"
#include "common/writer_pool.h"

namespace vrk {

class Background_Writer {
  public:
    // At most `depth` ranges (at least 1) are queued or being written at a time.
    Background_Writer(platform::Output_File& out, std::size_t depth);
    // Writes what was handed over, then ends the thread.
    ~Background_Writer();
    Background_Writer(const Background_Writer&) = delete;
    Background_Writer& operator=(const Background_Writer&) = delete;

    // Queues `size` bytes at `bytes`, first waiting while `depth` ranges are still pending. The
    // bytes must stay unchanged until `depth` later ranges have been handed over, or until
    // finish(). Once a write has failed, what follows is dropped.
    void write(const uint8_t* bytes, std::size_t size);
    // Waits until every range handed over is written (the file is the caller's again); false
    // when a write failed.
    [[nodiscard]] bool finish();

  private:
    struct Range {
        const uint8_t* bytes;
        std::size_t size;
    };

    bool m_failed = false;
    Writer_Pool<Range> m_pool;  // last: ended before the rest goes
};

}  // namespace vrk
