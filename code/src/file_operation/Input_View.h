// The one checked view of an input file. Every reader of the input goes through it: a range is
// served only when it lies wholly inside the file, and anything else fails exactly as the
// door's byte reads do (the out-of-range failure names the first byte that could not be read).
//
// On Windows the file is mapped whole and ranges point into the map: a mapped file cannot be
// shortened there. Elsewhere the file is read with positioned reads into buffers the view owns,
// so that another process cutting the file short can never kill the host with SIGBUS; a read
// that comes up short fails like a read past the end, at the first byte it did not get.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "common/aligned_bytes.h"
#include "common/byte_order.h"
#include "common/platform.h"
#include "file_operation/door_failure.h"

namespace vrk {

class Input_View {
  public:
    // A closed view; its reads fail with the state failure of `site` until open() succeeds.
    explicit Input_View(const Read_Site& site = kNoMutexSite);
    // A view of `size` bytes that the caller holds in memory and keeps alive for as long as the
    // view lives (test images, bytes already read). file() is not open.
    Input_View(const uint8_t* data, uint64_t size, const Read_Site& site = kNoMutexSite);
    Input_View(const Input_View&) = delete;
    Input_View& operator=(const Input_View&) = delete;
    ~Input_View();

    // Opens `path` read-only and fixes its size. On failure returns the step that failed (errno
    // set for platform::errno_text()) and the view stays closed. A zero-length file (or one
    // that is not a regular file) fails at create_mapping on every platform, as the Windows
    // mapping call refuses it.
    [[nodiscard]] platform::Map_Step open(const std::wstring& path);
    // Closes the file (a view of memory forgets it); false, with errno set, when the map could
    // not be unmapped. Reads then fail with the state failure.
    [[nodiscard]] bool close();

    [[nodiscard]] bool is_open() const { return m_open; }
    // The file's size when it was opened; nothing at or past it is ever served.
    [[nodiscard]] uint64_t size() const { return m_size; }
    // How many of the `length` bytes from `offset` lie inside the file (0 when closed).
    [[nodiscard]] uint64_t available(uint64_t offset, uint64_t length) const {
        return offset >= m_size ? 0 : (length <= m_size - offset ? length : m_size - offset);
    }

    // The `length` bytes at `offset`, valid until the next read through this view. Meant for
    // records and sectors: a range longer than a few hundred KB costs a buffer of its size
    // (use copy() or Input_Blocks). Length 0 never fails and gives a pointer not to be read.
    // A closed view fails with the state failure of `site`, a range not wholly inside the file
    // (wrap-around included) with the out-of-range failure for its first byte past the end,
    // a read that comes up short with that failure for the first byte it did not get.
    [[nodiscard]] const uint8_t* bytes(uint64_t offset, std::size_t length, const Read_Site& site) {
        if (m_mapped != nullptr && length != 0 && inside(offset, length)) {
            return m_mapped + offset;
        }
        const Window& hot = m_windows[m_hot];
        if (length != 0 && offset >= hot.start && offset - hot.start <= hot.filled &&
            length <= hot.filled - (offset - hot.start)) {
            return hot.bytes.data() + (offset - hot.start);
        }
        return bytes_slow(offset, length, site);
    }
    [[nodiscard]] const uint8_t* bytes(uint64_t offset, std::size_t length) {
        return bytes(offset, length, m_site);
    }
    // Copies `length` bytes from `offset` into `destination`. On failure (as bytes()) every
    // byte before the failing one has been copied, as a byte-wise read would leave them.
    void copy(uint64_t offset, uint64_t length, uint8_t* destination, const Read_Site& site);
    void copy(uint64_t offset, uint64_t length, uint8_t* destination) {
        copy(offset, length, destination, m_site);
    }
    // Copies up to `length` bytes from `offset` into `destination`, stopping at the end of the
    // file or where a read comes up short; returns how many. Never fails (0 when closed).
    [[nodiscard]] uint64_t read_up_to(uint64_t offset, uint64_t length, uint8_t* destination);
    // As read_up_to, but through none of the view's windows: it changes nothing in the view, so
    // another thread may call it while this one reads through the view.
    [[nodiscard]] uint64_t read_up_to_beside(uint64_t offset, uint64_t length,
                                             uint8_t* destination) const;
    // Throws the failure of a read whose first byte not read is `offset`: the state failure
    // when the view is closed, the out-of-range failure otherwise.
    [[noreturn]] void fail_at(uint64_t offset) const;

    // The open file, for copies the system makes between files; not open for a view of memory.
    [[nodiscard]] const platform::Input_File& file() const { return m_file; }
    // True when ranges point into memory that holds the whole file (a map or the caller's
    // bytes) and stay valid for as long as the view lives.
    [[nodiscard]] bool in_memory() const { return m_mapped != nullptr; }

  private:
    // Bytes read at `start`: the first `filled` of `bytes` are the file's.
    struct Window {
        uint64_t start = 0;
        std::size_t filled = 0;
        std::size_t read_ahead = 0;  // the size of the read that filled it
        uint64_t last_use = 0;
        Aligned_Bytes bytes;
    };
    // Scattered reads fetch one page around what they need; reads that go on where a window
    // ends double that window's next read, up to kMaxReadAhead. Four windows keep a few
    // scattered places (a table sector, a directory sector, a chain) at hand at once.
    static constexpr std::size_t kPage = std::size_t{4} << 10;
    static constexpr std::size_t kMaxReadAhead = std::size_t{256} << 10;
    static constexpr std::size_t kWindowCount = 4;

    [[nodiscard]] bool inside(uint64_t offset, uint64_t length) const {
        return range_inside(offset, length, m_size);
    }
    const uint8_t* bytes_slow(uint64_t offset, std::size_t length, const Read_Site& site);
    // A window holding as much of [offset, offset + length), a range inside the file, as the
    // file gave: all of it unless a read came up short.
    const Window& window_for(uint64_t offset, std::size_t length);
    // How many bytes from `offset` on, up to `length`, `window` holds.
    static uint64_t held(const Window& window, uint64_t offset, uint64_t length);

    Read_Site m_site;
    bool m_open = false;
    uint64_t m_size = 0;
    const uint8_t* m_mapped = nullptr;  // the map (Windows) or the caller's memory; else null
    platform::Input_File m_file;
    platform::Mapped_File m_map;
    std::array<Window, kWindowCount> m_windows;
    std::size_t m_hot = 0;  // the window the last read was served from
    uint64_t m_clock = 0;
};

}  // namespace vrk
