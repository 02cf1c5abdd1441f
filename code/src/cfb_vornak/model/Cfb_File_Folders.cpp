// The two work folders of a Cfb_File that the repair entry sets before a repair.
#include <string>

#include "cfb_vornak/entries/Cfb_Logger.h"
#include "cfb_vornak/model/Cfb_File.h"
#include "common/error_store.h"
#include "common/fs_utils.h"
#include "common/platform.h"

namespace vrk {

namespace {

// Creates `folder` with its parents. False (with the error recorded and logged) when it could
// not be made or is not a folder; the caller then keeps its old setting.
bool prepare_folder(const std::wstring& folder) {
    if (!fs::create_directories(folder)) {
        VRK_PUSH_ERROR(ec::kMakeDirFailed);
        CFB_LOG_ERROR(L"touch dir " + folder + L" failed!");
        return false;
    }
    if (!fs::is_folder(folder)) {
        VRK_PUSH_ERROR(ec::kInvalidArgument);
        CFB_LOG_ERROR(folder + L"is not a dir");
        return false;
    }
    return true;
}

}  // namespace

void Cfb_File::set_output_file_dir(const std::wstring& folder) {
    CFB_LOG_INFO(L"set_output_file_dir as: " + folder);
    if (prepare_folder(folder)) m_output_file_dir_wstr = folder;
}

void Cfb_File::set_tmp_dir_for_raw_data(const std::wstring& folder) {
    CFB_LOG_INFO(L"set_tmp_dir_for_raw_data as: " + folder);
    if (!prepare_folder(folder)) return;
    m_tmp_dir_for_raw_data_wstr = folder + platform::kSeparator;
    fs::clear_folder(m_tmp_dir_for_raw_data_wstr);
    m_tmp_dir_for_raw_data_set = true;
}

}  // namespace vrk
