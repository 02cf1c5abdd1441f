#include "file_operation/File_Anywhere_Door.h"

#include <filesystem>
#include <limits>
#include <system_error>

#include "common/platform.h"
#include "file_operation/door_failure.h"

namespace vrk {

File_Anywhere_Door::File_Anywhere_Door(const std::wstring& path, const Door_Config& config) {
    const std::filesystem::path native = platform::to_path(path);
    std::error_code error;
    if (!std::filesystem::exists(native, error)) {
        m_state = Door_State::failed;
        throw_door_failure("File_Anywhere_Door construct failed ! the file [" +
                               platform::to_utf8(path) + "]is not exist! \n",
                           531, 532, __func__);
    }
    {
        // A folder does not open as a file on Windows; refuse it the same way everywhere.
        std::ifstream stream;
        if (!std::filesystem::is_directory(native, error)) {
            stream.open(native, std::ios::in | std::ios::binary);
        }
        if (!stream.is_open()) {
            m_state = Door_State::failed;
            throw_door_failure("File_Anywhere_Door construct failed ! the file [" +
                                   platform::to_utf8(path) + "]can not open! \n",
                               543, 544, __func__);
        }
        m_path_wstr = path;
        m_path_str = platform::narrow(path);
        stream.seekg(0, std::ios::end);
        const std::streamoff end = stream.tellg();
        m_file_size = end > 0 ? static_cast<uint64_t>(end) : 0;
    }

    m_access_mode = config.access_mode;
    m_use_mutex = config.use_mutex;
    switch (m_access_mode) {
        case Access_Mode::block_cache:
            m_file_block_cache = std::make_unique<File_Block_Cache>(path, config.block_size_shift,
                                                                    config.cache_block_count);
            if (m_file_block_cache->state() != Door_State::fine) {
                m_state = Door_State::failed;
                throw_door_failure(
                    "File_Anywhere_Door construct failed ! the m_file_block_cache init failed! \n",
                    565, 566, __func__);
            }
            break;
        case Access_Mode::direct_stream:
            m_stream.open(native, std::ios::in | std::ios::binary);
            if (!m_stream.is_open()) {
                m_state = Door_State::failed;
                throw_door_failure("File_Anywhere_Door construct failed ! the file [" +
                                       platform::to_utf8(path) + "]can not open! \n",
                                   584, 585, __func__);
            }
            break;
        case Access_Mode::memory_map:
            m_file_memory_map = std::make_unique<File_Memory_Map>(
                path, m_use_mutex ? kWithMutexSite : kNoMutexSite);
            if (m_file_memory_map->state() != Door_State::fine) {
                m_state = Door_State::failed;
                throw_door_failure(
                    "File_Anywhere_Door construct failed ! the m_file_memory_map init failed! \n",
                    599, 600, __func__);
            }
            // The view's size, fixed when it opened, bounds every read of this mode.
            m_view = &m_file_memory_map->view();
            m_file_size = m_view->size();
            break;
        default:
            m_state = Door_State::failed;
            return;
    }
    m_state = Door_State::fine;
}

uint8_t File_Anywhere_Door::get_no_mutex_checked(uint64_t offset) {
    return read_checked(offset, kNoMutexSite);
}

uint8_t File_Anywhere_Door::get_with_mutex_checked(uint64_t offset) {
    const std::lock_guard<std::mutex> lock(m_door_mutex);
    return read_checked(offset, kWithMutexSite);
}

void File_Anywhere_Door::copy_data_to_mem(uint64_t offset, uint64_t length, uint8_t* destination) {
    if (destination == nullptr) {
        log_door_error("File_Anywhere_Door copy_data_to_mem destination is null ! \n", 718);
        return;
    }
    if (length == 0) {
        return;
    }
    const Read_Site& site = m_use_mutex ? kWithMutexSite : kNoMutexSite;
    if (m_view != nullptr) {
        // The same bytes and the same failure as reading byte by byte: everything up to the
        // first byte that cannot be read is copied, then that byte fails.
        m_view->copy(offset, length, destination, site);
        return;
    }
    for (uint64_t i = 0; i < length; ++i) {
        destination[i] = m_use_mutex ? get_with_mutex(offset + i) : get_no_mutex(offset + i);
    }
}

void File_Anywhere_Door::check_readable(uint64_t offset, const Read_Site& site) const {
    if (m_state != Door_State::fine) throw_not_fine(offset, site);
    // Unsigned on purpose: for a file of size 0 the limit wraps and every offset passes.
    if (offset > m_file_size - 1) {
        vrk::throw_out_of_range(offset, site);
    }
}

uint8_t File_Anywhere_Door::read_checked(uint64_t offset, const Read_Site& site) {
    check_readable(offset, site);
    switch (m_access_mode) {
        case Access_Mode::block_cache:
            return m_file_block_cache->get_char_in_offset(offset);
        case Access_Mode::direct_stream:
            return read_stream_byte(offset);
        default:
            return 0;
    }
}

uint8_t File_Anywhere_Door::read_stream_byte(uint64_t offset) {
    if (m_stream.fail()) {
        m_stream.clear();
    }
    // Only a file of size 0 lets such offsets through; there is nothing to read there.
    if (offset > static_cast<uint64_t>(std::numeric_limits<std::streamoff>::max())) {
        return 0;
    }
    m_stream.seekg(static_cast<std::streamoff>(offset), std::ios::beg);
    char byte = 0;
    m_stream.read(&byte, 1);
    return m_stream.gcount() == 1 ? static_cast<uint8_t>(byte) : 0;
}

}  // namespace vrk
