#include "cfb_vornak/entries/Scratch_Folders.h"

#include <cstdint>
#include <exception>

#include "cfb_vornak/entries/Cfb_Logger.h"
#include "cfb_vornak/entries/Library_State.h"
#include "common/error_store.h"
#include "common/fs_utils.h"
#include "common/platform.h"

namespace vrk {

namespace {

// The scratch folder `name` below `work_folder`, absolute, with a separator at the end.
std::wstring scratch_folder(const std::wstring& work_folder, const wchar_t* name) {
    std::wstring path = work_folder;
    if (path.empty() || path.back() != platform::kSeparator) {
        path.push_back(platform::kSeparator);
    }
    return fs::make_absolute(path + name + platform::kSeparator);
}

}  // namespace

void clear_scratch_folder(const Scratch_Folders& folders, const std::wstring& folder) {
    try {
        if (folders.make_before_clearing) {
            fs::create_directories(folder);
        }
        fs::clear_folder(folder);
    } catch (const std::exception& error) {
        CFB_LOG_ERROR(std::string("clearFolder failed! error info is:") + error.what());
    }
}

void clear_scratch_folders(const Scratch_Folders& folders) {
    CFB_LOG_INFO("clearFolder~");
    clear_scratch_folder(folders, folders.release_folder);
    clear_scratch_folder(folders, folders.raw_data_folder);
}

bool prepare_scratch_folders(const std::wstring& fallback_folder, Scratch_Folders& folders) {
    if (!access_work_folder(kSlotRead, nullptr, &folders.work_folder)) {
        std::string error_text;
        if (!fs::get_temp_folder(folders.work_folder, error_text)) {
            CFB_LOG_ERROR("get_tmp_dir_in_windows failed! error info is:" + error_text);
            folders.work_folder = fallback_folder;
            CFB_LOG_ERROR(L"hence we will use the output dir " + fallback_folder);
        }
    }
    uint64_t available = 0;
    if (!fs::get_available_space(folders.work_folder, available)) {
        VRK_PUSH_ERROR(ec::kInternalError);
        CFB_LOG_ERROR("get the_available_space_in_this_disk  failed !");
        return false;
    }
    folders.release_folder = scratch_folder(folders.work_folder, L"tmp_release_dir_for_fixing_cfb");
    folders.raw_data_folder = scratch_folder(folders.work_folder, L"lib_cfb_tmp");
    CFB_LOG_INFO(L"tmp_release_dir_for_fixing_cfb is:" + folders.release_folder);
    CFB_LOG_INFO(L"tmp_dir_for_raw_data_when_fixing_cfb is:" + folders.raw_data_folder);
    clear_scratch_folders(folders);
    return true;
}

}  // namespace vrk
