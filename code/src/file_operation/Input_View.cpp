#include "file_operation/Input_View.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace vrk {

namespace {

// What a read of no bytes points to.
constexpr uint8_t kNothing = 0;

}  // namespace

Input_View::Input_View(const Read_Site& site) : m_site(site) {}

Input_View::Input_View(const uint8_t* data, uint64_t size, const Read_Site& site)
    : m_site(site), m_open(true), m_size(data != nullptr ? size : 0), m_mapped(data) {}

Input_View::~Input_View() = default;

bool Input_View::close() {
    m_open = false;
    m_size = 0;
    m_mapped = nullptr;
    for (Window& window : m_windows) {
        window.start = 0;
        window.filled = 0;
    }
    m_file.close();
    return platform::unmap_file(m_map);
}

platform::Map_Step Input_View::open(const std::wstring& path) {
    (void)close();  // a view that was open is replaced; its unmapping cannot fail the open
    if (!m_file.open(path)) return platform::Map_Step::open_file;
    uint64_t size = 0;
    const bool sized = m_file.size(size);
    if (!sized || size == 0) {
        // An empty file cannot be mapped on Windows; it fails at the same step everywhere.
        const int error = sized ? EINVAL : errno;
        m_file.close();
        errno = error;
        return platform::Map_Step::create_mapping;
    }
    if (platform::kMapsInput) {
        const platform::Map_Step step = platform::map_file(path, m_map);
        if (step != platform::Map_Step::ok) {
            const int error = errno;
            m_file.close();
            errno = error;
            return step;
        }
        m_mapped = m_map.data;
        size = m_map.size;
    }
    m_size = size;
    m_open = true;
    return platform::Map_Step::ok;
}

void Input_View::fail_at(uint64_t offset) const {
    if (!m_open) throw_not_fine(offset, m_site);
    throw_out_of_range(offset, m_site);
}

const uint8_t* Input_View::bytes_slow(uint64_t offset, std::size_t length, const Read_Site& site) {
    if (!m_open) throw_not_fine(offset, site);
    if (length == 0) return &kNothing;
    if (!inside(offset, length)) throw_out_of_range(std::max(offset, m_size), site);
    if (m_mapped != nullptr) {
        // Inside the map or the caller's memory: the range was checked just above.
        return m_mapped + offset;
    }
    const Window& window = window_for(offset, length);
    const uint64_t got = held(window, offset, length);
    if (got < length) throw_out_of_range(offset + got, site);
    return window.bytes.data() + (offset - window.start);
}

void Input_View::copy(uint64_t offset, uint64_t length, uint8_t* destination,
                      const Read_Site& site) {
    if (length == 0) return;
    if (!m_open) throw_not_fine(offset, site);
    const uint64_t got = read_up_to(offset, length, destination);
    // The first byte not copied: past the end, or where a read came up short.
    if (got < length) throw_out_of_range(offset + got, site);
}

uint64_t Input_View::read_up_to(uint64_t offset, uint64_t length, uint8_t* destination) {
    const uint64_t inside = m_open ? available(offset, length) : 0;
    // Mapped bytes need no window, and long runs go straight into the caller's memory.
    if (inside == 0 || m_mapped != nullptr || inside >= kMaxReadAhead) {
        return read_up_to_beside(offset, inside, destination);
    }
    const Window& window = window_for(offset, static_cast<std::size_t>(inside));
    const uint64_t got = held(window, offset, inside);
    std::memcpy(destination, window.bytes.data() + (offset - window.start),
                static_cast<std::size_t>(got));
    return got;
}

uint64_t Input_View::read_up_to_beside(uint64_t offset, uint64_t length,
                                       uint8_t* destination) const {
    const uint64_t inside = m_open ? available(offset, length) : 0;
    if (inside == 0) return 0;
    if (m_mapped != nullptr) {
        std::memcpy(destination, m_mapped + offset, static_cast<std::size_t>(inside));
        return inside;
    }
    return m_file.read_at(offset, destination, static_cast<std::size_t>(inside));
}

uint64_t Input_View::held(const Window& window, uint64_t offset, uint64_t length) {
    const uint64_t end = window.start + window.filled;
    if (offset < window.start || offset >= end) return 0;
    return std::min(length, end - offset);
}

const Input_View::Window& Input_View::window_for(uint64_t offset, std::size_t length) {
    for (std::size_t i = 0; i < kWindowCount; ++i) {
        if (held(m_windows[i], offset, length) == length) {
            m_hot = i;
            m_windows[i].last_use = ++m_clock;
            return m_windows[i];
        }
    }
    // A range that starts inside a window, or right where it ends, goes on with that window's
    // run; anything else fetches a page into the window used least recently.
    std::size_t chosen = kWindowCount;
    for (std::size_t i = 0; i < kWindowCount && chosen == kWindowCount; ++i) {
        const Window& window = m_windows[i];
        if (window.filled != 0 && offset >= window.start &&
            offset - window.start <= window.filled) {
            chosen = i;
        }
    }
    uint64_t start = offset;
    std::size_t read_size = 0;
    if (chosen != kWindowCount) {
        read_size = std::min(std::max(2 * m_windows[chosen].read_ahead, kPage), kMaxReadAhead);
    } else {
        chosen = 0;
        for (std::size_t i = 1; i < kWindowCount; ++i) {
            if (m_windows[i].last_use < m_windows[chosen].last_use) chosen = i;
        }
        start = offset - offset % kPage;
        read_size = kPage;
    }
    // The caller checked that [offset, offset + length) lies inside the file.
    const uint64_t end = std::min(std::max(start + read_size, offset + length), m_size);
    const auto wanted = static_cast<std::size_t>(end - start);
    Window& window = m_windows[chosen];
    if (window.bytes.size() < wanted) window.bytes.resize(wanted);
    window.start = start;
    window.read_ahead = read_size;
    window.filled = m_file.read_at(start, window.bytes.data(), wanted);
    window.last_use = ++m_clock;
    m_hot = chosen;
    return window;
}

}  // namespace vrk
