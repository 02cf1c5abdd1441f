// VrkCfbAnalysis: validates the paths, prepares the work folders as the repair does, and runs
// the analysis driver. Unlike the repair, only the raw-data folder is emptied afterwards: the
// release folder keeps its contents until the next analysis or repair.
#include <exception>
#include <memory>
#include <string>
#include <utility>

#include "cfb_vornak/entries/Cfb_Logger.h"
#include "cfb_vornak/entries/Entries.h"
#include "cfb_vornak/entries/Entry_Steps.h"
#include "cfb_vornak/entries/Scratch_Folders.h"
#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/reports/Cfb_Analysis.h"
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
        (void)fs::create_directories(folder);  // the checks after report a missing folder
    } catch (const std::exception&) {
        return;
    }
}

}  // namespace

int32_t analysis_entry(const char* input, const char* out_dir, Analysis_Summary* summary) {
    Error_Store& store = get_error_store();
    CFB_LOG_INFO("_VrkCfbAnalysis");
    CFB_LOG_INFO(std::string("input_file_path = ") + (input == nullptr ? "" : input));
    CFB_LOG_INFO(std::string("out_dir_path = ") + (out_dir == nullptr ? "" : out_dir));

    if (!check_logger_started()) {
        return last_error_code(store);
    }
    const std::wstring input_wstr = widen_argument(input);
    File_Description working;
    if (!check_input_file(input_wstr) || !take_working_file(input_wstr, working)) {
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
    if (!make_output_folder(out_dir_wstr, false)) {
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
        Analysis_Summary written = run_cfb_analysis(working, out_dir_wstr);
        if (summary != nullptr) *summary = std::move(written);
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
