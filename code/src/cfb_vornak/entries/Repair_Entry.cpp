#include <exception>
#include <memory>
#include <string>

#include "cfb_vornak/entries/Cfb_Logger.h"
#include "cfb_vornak/entries/Entries.h"
#include "cfb_vornak/entries/Entry_Steps.h"
#include "cfb_vornak/entries/Library_State.h"
#include "cfb_vornak/entries/Repair_Output_Path.h"
#include "cfb_vornak/entries/Scratch_Folders.h"
#include "cfb_vornak/model/Cfb_File.h"
#include "common/error_store.h"
#include "common/fs_utils.h"
#include "common/platform.h"

namespace vrk {

int32_t set_password_entry(const char* password) {
    auto& store = get_error_store();
    if (password == nullptr) {
        CFB_LOG_ERROR("password is nullptr ");
        VRK_PUSH_ERROR(ec::kInvalidArgument);
        return last_error_code(store);
    }
    std::wstring password_wstr;
    try {
        password_wstr = platform::widen(password);
    } catch (const std::exception&) {
        CFB_LOG_ERROR("password transform  failed!");
        VRK_PUSH_ERROR(ec::kInvalidArgument);
        return last_error_code(store);
    }
    if (!access_password(kSlotStore, &password_wstr, nullptr)) {
        CFB_LOG_ERROR("set password failed!");
        VRK_PUSH_ERROR(ec::kInternalError);
        return last_error_code(store);
    }
    CFB_LOG_INFO("set password successfully!");
    CFB_LOG_INFO(L"the password is!" + password_wstr);
    // No record of its own on success: the thread's previous record decides.
    return last_error_code(store);
}

namespace {

constexpr const char* kVersionLine = "cfb vornak git info:[1, 0, 0, 172-m-1ebe190c]";

// The folder of the output file, as the last resort for the scratch folders.
std::wstring output_folder_of(const std::wstring& output_path) {
    return platform::from_path(platform::to_path(output_path).parent_path());
}

}  // namespace

// Validates both paths, prepares the output's folder and the two scratch folders below the
// work folder, then lets a fully parsed Cfb_File rebuild the header into prefix + ".cfb"
// (whose extension the repair may change). A success pushes no record of its own: the result
// is whatever record the thread holds last.
int32_t general_repair_entry(const char* input, const char* output, Repair_Outcome* outcome,
                             platform::Create_Mode mode) {
    auto& store = get_error_store();
    CFB_LOG_INFO(kVersionLine);
    CFB_LOG_INFO("_VrkCfbGeneralRepair");
    const std::string input_text = input != nullptr ? input : "";
    const std::string output_text = output != nullptr ? output : "";
    // The path echo passes the level filter, so that the log names every file repaired.
    const int echo_level =
        input != nullptr && output != nullptr ? Cfb_Logger::kInfo : Cfb_Logger::kError;
    Cfb_Logger::write_unfiltered("input_file_path = " + input_text, __FILE__, __LINE__, echo_level);
    Cfb_Logger::write_unfiltered("out_file_path = " + output_text, __FILE__, __LINE__, echo_level);

    if (!check_logger_started()) {
        return last_error_code(store);
    }
    const std::wstring input_wstr = platform::widen(input_text);
    File_Description working;
    if (!check_input_file(input_wstr) || !take_working_file(input_wstr, working)) {
        return last_error_code(store);
    }

    const std::wstring output_wstr = platform::widen(output_text);
    if (output_wstr.empty()) {
        VRK_PUSH_ERROR(ec::kInvalidArgument);
        CFB_LOG_ERROR("the output file path is illegel!");
        return last_error_code(store);
    }
    if (fs::is_folder(output_wstr)) {
        VRK_PUSH_ERROR(ec::kInvalidArgument);
        CFB_LOG_ERROR("the output file path is illegel!Due to the path is a dir not a file ");
        return last_error_code(store);
    }
    if (!make_output_folder(output_wstr, true)) {
        return last_error_code(store);
    }
    const std::wstring output_prefix = repair_output_prefix(output_wstr);

    Scratch_Folders folders;
    folders.make_before_clearing = false;
    if (!prepare_scratch_folders(output_folder_of(output_wstr), folders)) {
        return last_error_code(store);
    }

    std::wstring password;
    access_password(kSlotRead, nullptr, &password);

    const std::wstring cfb_output = repair_cfb_output_path(output_prefix);
    try {
        const File_Description output_description{cfb_output, cfb_output,
                                                  platform::to_utf8(cfb_output)};
        auto file = std::make_unique<Cfb_File>(working, output_description);
        file->set_password(password);
        file->set_tmp_dir_for_raw_data(folders.raw_data_folder);
        file->set_output_file_dir(folders.release_folder);
        const Error_Code result =
            file->cfb_file_head_changing(output_description, true, outcome, mode);
        if (result != ec::kSuccess) {
            CFB_LOG_ERROR("my_cfb_ptr->cfb_file_head_changing failed !");
            CFB_LOG_ERROR(L"output_file_prefix_wstr = " + cfb_output + L" !");
            VRK_PUSH_ERROR(result);
            return last_error_code(store);
        }
        CFB_LOG_INFO("my_cfb_ptr->cfb_file_head_changing success !");
        CFB_LOG_INFO(L"output_file_prefix_wstr = " + output_prefix + L" !");
    } catch (const std::exception& e) {
        CFB_LOG_ERROR(std::string("When fixing cfb exception :") + e.what() + "!");
        VRK_PUSH_ERROR(ec::kInternalError);
        clear_scratch_folders(folders);
        return last_error_code(store);
    } catch (...) {
        CFB_LOG_ERROR("When fixing cfb unkown exception!");
        VRK_PUSH_ERROR(ec::kInternalError);
        clear_scratch_folders(folders);
        return last_error_code(store);
    }
    clear_scratch_folders(folders);
    CFB_LOG_INFO("my inner error code" + std::to_string(last_error_code(store)));
    return last_error_code(store);
}

}  // namespace vrk
