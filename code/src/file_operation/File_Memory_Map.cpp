#include "file_operation/File_Memory_Map.h"

#include <fstream>

#include "file_operation/door_failure.h"

namespace vrk {

File_Memory_Map::File_Memory_Map(const std::wstring& path, const Read_Site& site) : m_view(site) {
    {
        std::ifstream stream(platform::to_path(path), std::ios::in | std::ios::binary);
        if (!stream.is_open()) {
            m_state = Door_State::failed;
            throw_door_failure("File_Memory_Map construct failed ! the file [" +
                                   platform::to_utf8(path) + "]can not open! \n",
                               357, 358, __func__);
        }
        stream.seekg(0, std::ios::end);
        const std::streamoff end = stream.tellg();
        m_file_size = end > 0 ? static_cast<uint64_t>(end) : 0;
    }

    // The texts name the step that failed and carry the C library's errno text, not the
    // platform's own error code.
    switch (m_view.open(path)) {
        case platform::Map_Step::ok:
            break;
        case platform::Map_Step::open_file:
            log_door_error("Error opening file: [" + platform::errno_text() + "]\n", 368);
            m_state = Door_State::failed;
            return;
        case platform::Map_Step::create_mapping:
            log_door_error("Error creating file mapping:   [" + platform::errno_text() + "]\n",
                           378);
            m_state = Door_State::failed;
            return;
        case platform::Map_Step::map_view:
            log_door_error("Error mapping view of file: e:  [" + platform::errno_text() + "]\n",
                           389);
            m_state = Door_State::failed;
            return;
    }
    m_state = Door_State::fine;
}

File_Memory_Map::~File_Memory_Map() {
    if (!m_view.close()) {
        log_door_error(
            "~File_Memory_Map Error unmapping view of file:  [" + platform::errno_text() + "]\n",
            449);
    }
}

}  // namespace vrk
