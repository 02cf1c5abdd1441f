// VrkCfbAnalysis: validates the paths, prepares the work folders as the repair does, and runs
// the analysis driver. Unlike the repair, only the raw-data folder is emptied afterwards: the
// release folder keeps its contents until the next analysis or repair.
#include <exception>
#include <memory>
#include <string>

#include "cfb_vornak/Cfb_Analysis.h"
#include "cfb_vornak/Cfb_File.h"
#include "cfb_vornak/Cfb_Logger.h"
#include "cfb_vornak/Entries.h"
#include "cfb_vornak/Scratch_Folders.h"
#include "common/error_store.h"
#include "common/fs_utils.h"
#include "common/platform.h"

namespace vrk {

namespace {

std::wstring widen_argument(const char* text) {
    return text == nullptr ? std::wstring() : platform::widen(text);
}

// Creates the output folder; a path the file system refuses is reported by the checks after.
void try_create_output_folder(const std::wstring& folder) {
    try {
        fs::create_directories(folder);
    } catch (const std::exception&) {
        return;
    }
}

}  // namespace

int32_t analysis_entry(const char* input, const char* out_dir) {
    Error_Store& store = get_error_store();
    CFB_LOG_INFO("_VrkCfbAnalysis");
    CFB_LOG_INFO(std::string("input_file_path = ") + (input == nullptr ? "" : input));
    CFB_LOG_INFO(std::string("out_dir_path = ") + (out_dir == nullptr ? "" : out_dir));

    if (!Cfb_Logger::is_init()) {
        CFB_LOG_ERROR("Cfb_Logger::is_init == false ");
        VRK_PUSH_ERROR(ec::kObjectInitFailed);
        return last_error_code(store);
    }
    std::string log_dir;
    if (!Cfb_Logger::get_log_dir(log_dir)) {
        CFB_LOG_ERROR("Cfb_Logger::get_log_dir == false ");
        VRK_PUSH_ERROR(ec::kObjectInitFailed);
        return last_error_code(store);
    }
    CFB_LOG_INFO("log_dir = " + log_dir);

    const std::wstring input_wstr = widen_argument(input);
    if (input_wstr.empty()) {
        VRK_PUSH_ERROR(ec::kInvalidArgument);
        CFB_LOG_ERROR("the input file path is illegel!");
        return last_error_code(store);
    }
    if (fs::is_folder(input_wstr)) {
        VRK_PUSH_ERROR(ec::kInvalidArgument);
        CFB_LOG_ERROR("the input file path is illegel!Due to the path is a dir not a file ");
        return last_error_code(store);
    }
    std::string error_text;
    if (fs::get_file_size(input_wstr, error_text) == -1) {
        VRK_PUSH_ERROR(ec::kInvalidArgument);
        CFB_LOG_ERROR("the input file path get size failed! error info is:" + error_text);
        return last_error_code(store);
    }

    // The input itself is the working file: it is only ever read.
    File_Description working;
    try {
        working = File_Description{input_wstr, input_wstr, platform::to_utf8(input_wstr)};
    } catch (const std::exception& error) {
        CFB_LOG_ERROR(std::string("copy origin file failed ! exception") + error.what());
        VRK_PUSH_ERROR(ec::kOpenFileFailed);
        return last_error_code(store);
    } catch (...) {
        CFB_LOG_ERROR("copy origin file failed ! unknown exception");
        VRK_PUSH_ERROR(ec::kOpenFileFailed);
        return last_error_code(store);
    }

    const std::wstring out_dir_wstr = widen_argument(out_dir);
    if (!out_dir_wstr.empty()) {
        try_create_output_folder(out_dir_wstr);
    }
    if (out_dir_wstr.empty()) {
        VRK_PUSH_ERROR(ec::kInvalidArgument);
        CFB_LOG_ERROR("the output dir path is illegel!");
        return last_error_code(store);
    }
    if (!fs::is_folder(out_dir_wstr)) {
        VRK_PUSH_ERROR(ec::kInvalidArgument);
        CFB_LOG_ERROR("the output file path is illegel!Due to the path is a dir not a file ");
        return last_error_code(store);
    }
    try {
        fs::create_directories(out_dir_wstr);
    } catch (const std::exception& error) {
        CFB_LOG_ERROR(std::string("make dir for the output file failed ! exception") +
                      error.what());
        VRK_PUSH_ERROR(ec::kMakeDirFailed);
        return last_error_code(store);
    } catch (...) {
        CFB_LOG_ERROR("make dir for the output file failed ! unknown exception");
        VRK_PUSH_ERROR(ec::kMakeDirFailed);
        return last_error_code(store);
    }

    Scratch_Folders folders;
    if (!prepare_scratch_folders(out_dir_wstr, folders)) {
        return last_error_code(store);
    }

    std::unique_ptr<Cfb_File> file;
    try {
        // Opened on the working file as the repair does; the driver parses its own object.
        file = std::make_unique<Cfb_File>(working);
        run_cfb_analysis(working, out_dir_wstr);
    } catch (const std::exception& error) {
        CFB_LOG_ERROR(std::string("When analysising cfb exception :") + error.what() + "!");
        VRK_PUSH_ERROR(ec::kInternalError);
    } catch (...) {
        CFB_LOG_ERROR("When analysising cfb unkown exception!");
        VRK_PUSH_ERROR(ec::kInternalError);
    }
    file.reset();

    CFB_LOG_INFO("clearFolder~");
    clear_scratch_folder(folders, folders.raw_data_folder);

    CFB_LOG_INFO("my inner error code" + std::to_string(last_error_code(store)));
    return last_error_code(store);
}

}  // namespace vrk
