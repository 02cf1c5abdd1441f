#include "input_bytes.h"

#include "common/fs_utils.h"
#include "tool_common.h"

namespace vrk::cli {

bool Input_Bytes::open(const std::string& path, std::string& error) {
    error = input_problem(path);
    if (!error.empty()) return false;
    const std::wstring wide = platform::widen(path);
    const platform::Map_Step step = platform::map_file(wide, m_mapped);
    if (step != platform::Map_Step::ok) {
        error = platform::errno_text();
        // An empty file cannot be mapped, but it is an answer, not a failure.
        std::string size_error;
        if (step != platform::Map_Step::create_mapping ||
            fs::get_file_size(wide, size_error) != 0) {
            return false;
        }
        error.clear();
    }
    m_file.open(wide);
    return true;
}

}  // namespace vrk::cli
