#include "cfb_vornak/entries/Scratch_Folders.h"

#include <cstdint>
#include <exception>
#include <mutex>
#include <string>
#include <utility>

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

// The process's private scratch folder: removed when the last holder lets go.
struct Private_Scratch {
    std::wstring folder;  // with a trailing separator
    explicit Private_Scratch(std::wstring path) : folder(std::move(path)) {}
    Private_Scratch(const Private_Scratch&) = delete;
    Private_Scratch& operator=(const Private_Scratch&) = delete;
    ~Private_Scratch() {
        try {
            platform::remove_folder_no_follow(folder);
        } catch (const std::exception& error) {
            CFB_LOG_ERROR(std::string("remove the private scratch folder failed! error info is:") +
                          error.what());
        }
    }
};

namespace {

// The folder in use. A function-level static: made after the logger's state (the library is
// started before any call needs the folder), so at exit it goes, and its folder with it,
// while the logger can still report.
struct Private_Slot {
    std::mutex mutex;
    std::shared_ptr<const Private_Scratch> scratch;
};

Private_Slot& private_slot() {
    static Private_Slot slot;
    return slot;
}

// The private scratch folder, made on first need; null with the system's error text when
// neither the temporary folder nor a folder in it can be had.
std::shared_ptr<const Private_Scratch> hold_private_scratch(std::string& error_text) {
    Private_Slot& slot = private_slot();
    const std::lock_guard<std::mutex> lock(slot.mutex);
    if (!slot.scratch) {
        std::wstring temp;
        std::wstring folder;
        if (!fs::get_temp_folder(temp, error_text) ||
            !platform::make_private_folder(temp, L"cfb_vornak_", folder, error_text)) {
            return nullptr;
        }
        slot.scratch = std::make_shared<const Private_Scratch>(folder);
    }
    return slot.scratch;
}

// A configured work folder serves when it is, or can be made, a folder.
bool usable_work_folder(const std::wstring& folder) {
    try {
        return fs::create_directories(folder);
    } catch (const std::exception& error) {
        CFB_LOG_ERROR(L"the work folder is unusable: " + folder);
        CFB_LOG_ERROR(std::string("error info is:") + error.what());
        return false;
    }
}

}  // namespace

void release_private_scratch() {
    std::shared_ptr<const Private_Scratch> released;
    Private_Slot& slot = private_slot();
    {
        const std::lock_guard<std::mutex> lock(slot.mutex);
        released.swap(slot.scratch);
    }
    // The folder goes here unless a call still holds it; then when that call ends.
}

void clear_scratch_folder(const Scratch_Folders& folders, const std::wstring& folder) {
    try {
        if (folders.make_before_clearing) {
            (void)fs::create_directories(folder);  // clearing reports a missing folder
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
    if (!access_work_folder(kSlotRead, nullptr, &folders.work_folder) ||
        !usable_work_folder(folders.work_folder)) {
        // Never a fixed path in the shared temporary folder: another user could plant links
        // there, and processes would empty each other's folders.
        std::string error_text;
        folders.private_scratch = hold_private_scratch(error_text);
        if (folders.private_scratch) {
            folders.work_folder = folders.private_scratch->folder;
        } else {
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
