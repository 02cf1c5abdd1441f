#include "cfb_vornak/entries/Entry_Steps.h"

#include <exception>

#include "cfb_vornak/entries/Cfb_Logger.h"
#include "common/error_store.h"
#include "common/fs_utils.h"
#include "common/platform.h"

namespace vrk {

bool check_logger_started() {
    if (!Cfb_Logger::is_init()) {
        CFB_LOG_ERROR("Cfb_Logger::is_init == false ");
        VRK_PUSH_ERROR(ec::kObjectInitFailed);
        return false;
    }
    std::string log_dir;
    if (!Cfb_Logger::get_log_dir(log_dir)) {
        CFB_LOG_ERROR("Cfb_Logger::get_log_dir == false ");
        VRK_PUSH_ERROR(ec::kObjectInitFailed);
        return false;
    }
    CFB_LOG_INFO("log_dir = " + log_dir);
    return true;
}

bool check_input_file(const std::wstring& input_wstr) {
    if (input_wstr.empty()) {
        VRK_PUSH_ERROR(ec::kInvalidArgument);
        CFB_LOG_ERROR("the input file path is illegel!");
        return false;
    }
    if (fs::is_folder(input_wstr)) {
        VRK_PUSH_ERROR(ec::kInvalidArgument);
        CFB_LOG_ERROR("the input file path is illegel!Due to the path is a dir not a file ");
        return false;
    }
    std::string error_text;
    if (fs::get_file_size(input_wstr, error_text) == -1) {
        VRK_PUSH_ERROR(ec::kInvalidArgument);
        CFB_LOG_ERROR("the input file path get size failed! error info is:" + error_text);
        return false;
    }
    return true;
}

bool take_working_file(const std::wstring& input_wstr, File_Description& working) {
    try {
        working = File_Description{input_wstr, input_wstr, platform::to_utf8(input_wstr)};
        return true;
    } catch (const std::exception& error) {
        CFB_LOG_ERROR(std::string("copy origin file failed ! exception") + error.what());
    } catch (...) {
        CFB_LOG_ERROR("copy origin file failed ! unknown exception");
    }
    VRK_PUSH_ERROR(ec::kOpenFileFailed);
    return false;
}

bool make_output_folder(const std::wstring& path, bool folder_of_file) {
    try {
        // Only a refusal the file system reports (thrown) fails this step; a folder still
        // missing shows when the output is opened.
        if (folder_of_file) {
            (void)fs::make_parent_folder(path);
        } else {
            (void)fs::create_directories(path);
        }
        return true;
    } catch (const std::exception& error) {
        CFB_LOG_ERROR(std::string("make dir for the output file failed ! exception") +
                      error.what());
    } catch (...) {
        CFB_LOG_ERROR("make dir for the output file failed ! unknown exception");
    }
    VRK_PUSH_ERROR(ec::kMakeDirFailed);
    return false;
}

}  // namespace vrk
