#include "salvage_source.h"

#include "common/fs_utils.h"
#include "common/platform.h"
#include "tool_common.h"

namespace vrk::cli {

bool Salvage_Source::open(const std::string& path, std::string& error) {
    error = input_problem(path);
    if (!error.empty()) return false;
    const std::wstring wide = platform::widen(path);
    const platform::Map_Step step = m_view.open(wide);
    if (step == platform::Map_Step::ok) {
        m_input = std::make_unique<salvage::Salvage_Input>(m_view);
        return true;
    }
    error = platform::errno_text();
    std::string size_error;
    if (step != platform::Map_Step::create_mapping || fs::get_file_size(wide, size_error) != 0) {
        return false;
    }
    error.clear();
    return true;
}

}  // namespace vrk::cli
