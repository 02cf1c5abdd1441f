// VrkCfbFileCheck: validates the path, lets the damage classification decide, logs the
// verdict in words and records the damage type itself as the result.
#include <exception>
#include <filesystem>
#include <string>
#include <system_error>

#include "cfb_vornak/entries/Cfb_Logger.h"
#include "cfb_vornak/entries/Entries.h"
#include "cfb_vornak/model/Cfb_File.h"
#include "common/error_codes.h"
#include "common/error_store.h"
#include "common/fs_utils.h"
#include "common/platform.h"

namespace vrk {

namespace {

// Relative to the current folder. Made and kept for the callers that expect it; the check
// itself reads the input in place and writes nothing into it.
std::wstring check_scratch_folder() {
    return std::wstring(L".") + platform::kSeparator + L"qtw_tmp_cfb_cfb_file_output" +
           platform::kSeparator;
}

void check_file(const char* input_file) {
    CFB_LOG_INFO(std::string(input_file));
    const std::wstring input = platform::widen(input_file);
    // Deliberately not a failure of the check: nothing is written into this folder, and a
    // current folder where it cannot be made (a service started in the root folder, a program
    // in a read-only install folder) must not fail every check. Logged, and the check goes on.
    try {
        (void)fs::create_directories(check_scratch_folder());  // nothing is written there
    } catch (const std::exception& error) {
        CFB_LOG_ERROR(std::string("make dir for the file check failed! error info is:") +
                      error.what());
    }

    std::error_code status_error;
    const std::filesystem::file_status status =
        std::filesystem::status(platform::to_path(input), status_error);
    if (status_error && status.type() != std::filesystem::file_type::not_found) {
        CFB_LOG_ERROR("the input file path status query failed! error info is:" +
                      status_error.message());
        VRK_PUSH_ERROR(ec::kInternalError);
        return;
    }
    if (std::filesystem::is_directory(status)) {
        VRK_PUSH_ERROR(ec::kInvalidArgument);
        CFB_LOG_ERROR("the input file path is illegel!Due to the path is a dir not a file ");
        return;
    }
    std::string size_error;
    if (fs::get_file_size(input, size_error) == -1) {
        VRK_PUSH_ERROR(ec::kInvalidArgument);
        CFB_LOG_ERROR("the input file path get size failed! error info is:" + size_error);
        return;
    }

    const File_Description description{input, input, platform::to_utf8(input)};
    const Cfb_Damaged_Type type = Cfb_File::get_cfb_file_damaged_type(description);
    CFB_LOG_INFO("Cfb_File::get_cfb_file_damaged_type :" + damaged_type_description(type));
    VRK_PUSH_ERROR(type);
}

}  // namespace

int32_t file_check_entry(const char* input_file) {
    auto& store = get_error_store();
    if (!Cfb_Logger::is_init()) {
        VRK_PUSH_ERROR(ec::kObjectInitFailed);
        return last_error_code(store);
    }
    if (input_file == nullptr) {
        VRK_PUSH_ERROR(ec::kInvalidPointer);
        return last_error_code(store);
    }
    // The file layer and the file system fail by exception; the verdict is then an
    // internal error.
    try {
        check_file(input_file);
    } catch (const std::exception& failure) {
        CFB_LOG_ERROR(std::string("the file check failed! error info is:") + failure.what());
        VRK_PUSH_ERROR(ec::kInternalError);
    }
    return last_error_code(store);
}

}  // namespace vrk
