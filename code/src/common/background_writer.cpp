#include "common/background_writer.h"

#include <algorithm>

namespace vrk {

Background_Writer::Background_Writer(platform::Output_File& out, std::size_t depth)
    : m_pool({1, std::max<std::size_t>(depth, 1) - 1, std::numeric_limits<std::size_t>::max(),
              false, true},
             [&out](Range& range, std::size_t /*lane*/) {
                 return out.write(range.bytes, range.size);
             }) {}

Background_Writer::~Background_Writer() {
    try {
        (void)finish();
    } catch (const std::exception&) {
        return;
    }
}

void Background_Writer::write(const uint8_t* bytes, std::size_t size) {
    if (!m_failed) (void)m_pool.add(Range{bytes, size});
}

bool Background_Writer::finish() {
    m_failed = !m_pool.drain().empty() || m_failed;
    return !m_failed;
}

}  // namespace vrk
