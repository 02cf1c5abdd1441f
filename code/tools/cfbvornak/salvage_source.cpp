#include "input_bytes.h"

#include <limits>

#include "common/fs_utils.h"
#include "tool_common.h"

namespace vrk::cli {

bool Input_Bytes::open(const std::string& path, std::string& error) {
    error = input_problem(path);
    if (!error.empty()) return false;
    const std::wstring wide = platform::widen(path);
    const platform::Map_Step step = m_view.open(wide);
    if (step != platform::Map_Step::ok) {
        error = platform::errno_text();
        // An empty file cannot be mapped, but it is an answer, not a failure.
        std::string size_error;
        if (step != platform::Map_Step::create_mapping ||
            fs::get_file_size(wide, size_error) != 0) {
            return false;
        }
        error.clear();
        return true;
    }
    if (m_view.size() > std::numeric_limits<std::size_t>::max()) {
        error = "the file is too large to be read into memory";
        return false;
    }
    if (m_view.in_memory()) {
        m_size = m_view.size();
        m_data = m_view.bytes(0, static_cast<std::size_t>(m_size));
        return true;
    }
    m_copy.resize(static_cast<std::size_t>(m_view.size()));
    // A file cut short while it is read keeps the bytes it still gave.
    m_size = m_view.read_up_to(0, m_copy.size(), m_copy.data());
    m_data = m_copy.data();
    return true;
}

}  // namespace vrk::cli
