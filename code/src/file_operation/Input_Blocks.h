// The input's bytes for a pass over the whole file in ascending order, read through the checked
// view in large blocks of a buffer of the pass's own (straight from the view where it holds the
// file in memory). Blocks of this size cost few reads and stay in the core's cache while a pass
// works through them; scattered readers elsewhere keep the view's small windows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "common/aligned_bytes.h"
#include "file_operation/Input_View.h"

namespace vrk {

class Input_Blocks {
  public:
    static constexpr std::size_t kBlockSize = std::size_t{256} << 10;

    // Receives a block the pass is done with: its offset in the file and its bytes.
    using Block_Done = std::function<void(uint64_t offset, const uint8_t* bytes, std::size_t size)>;

    // With `buffers` above 1 the blocks are read into that many buffers in turn, so that a
    // receiver (on_block_done) may keep a block's bytes until buffers - 1 later blocks have
    // been handed over.
    explicit Input_Blocks(Input_View& view, std::size_t block_size = kBlockSize,
                          std::size_t buffers = 1);

    // The `length` bytes at `offset`, valid until the next call; fails as the view does. A range
    // outside the current block refills it from `offset` on (with at least `length` bytes), so
    // ascending offsets read the file once.
    [[nodiscard]] const uint8_t* at(uint64_t offset, std::size_t length) {
        if (offset >= m_start && range_inside(offset - m_start, length, m_filled)) {
            return m_base + (offset - m_start);
        }
        return refill(offset, length);
    }

    // From now on every block is handed to `done` while it is still in the cache: just before
    // the next block replaces it, and the last one at finish(). A block may begin inside the
    // one before it (a refill starts at the range asked for).
    void on_block_done(Block_Done done) { m_done = std::move(done); }
    // Hands the current block to the receiver, if any, and forgets it.
    void finish();

  private:
    const uint8_t* refill(uint64_t offset, std::size_t length);

    Input_View& m_view;
    std::size_t m_block_size;
    std::vector<Aligned_Bytes> m_buffers;
    std::size_t m_next_buffer = 0;    // the buffer the next refill reads into
    const uint8_t* m_base = nullptr;  // the block's first byte: in a buffer or the view's memory
    uint64_t m_start = 0;
    uint64_t m_filled = 0;  // bytes of the block read from m_start on
    Block_Done m_done;
};

}  // namespace vrk
