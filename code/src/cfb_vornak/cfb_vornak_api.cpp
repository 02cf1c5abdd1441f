// The six exports. Each is a thin shell with one catch-all, so that no exception reaches the
// host; the work happens in the entry functions of Entries.h.
#include "cfb_vornak/cfb_vornak_api.h"

#include <exception>
#include <fstream>
#include <string>

#include "cfb_vornak/entries/Cfb_Logger.h"
#include "cfb_vornak/entries/Entries.h"
#include "cfb_vornak/entries/Library_State.h"
#include "cfb_vornak/entries/Scratch_Folders.h"
#include "common/error_codes.h"
#include "common/error_store.h"
#include "common/fs_utils.h"
#include "common/platform.h"

namespace vrk {

namespace {

std::wstring default_folder(const wchar_t* name) {
    return std::wstring(L".") + platform::kSeparator + name;
}

// Creates `folder` (or, when it is empty or cannot be made, the relative default) and returns
// the folder in use. Each fallback leaves a record with code 4.
std::wstring prepare_folder(const char* requested, const wchar_t* default_name) {
    std::wstring folder = platform::widen(requested != nullptr ? requested : "");
    if (folder.empty()) {
        VRK_PUSH_ERROR(ec::kInvalidArgument);
        folder = default_folder(default_name);
    }
    bool created = false;
    try {
        created = fs::create_directories(folder);
    } catch (const std::exception&) {
        created = false;
    }
    if (!created) {
        VRK_PUSH_ERROR(ec::kInvalidArgument);
        folder = default_folder(default_name);
        try {
            (void)fs::create_directories(folder);  // the logger falls back on its own
        } catch (const std::exception&) {
            // The logger falls back on its own when this folder is unusable.
        }
    }
    return folder;
}

int32_t init(const char* log_dir, const char* config_dir, const char* work_dir) {
    auto& store = get_error_store();
    if (work_dir == nullptr) {
        VRK_PUSH_ERROR(ec::kInvalidArgument);
        return last_error_code(store);
    }
    VRK_PUSH_ERROR(ec::kSuccess);
    std::string summary = "\n\tvrkcfbinit: log_error_info_str\t\n";

    VRK_PUSH_ERROR(ec::kSuccess);
    const std::wstring log_folder = prepare_folder(log_dir, L"Logs");
    const std::wstring config_folder = prepare_folder(config_dir, L"config");

    const Error_Code folder_code = last_error_code(store);
    if (folder_code != ec::kSuccess) {
        summary += "error code:" + std::to_string(folder_code) +
                   "\nerror desc:" + error_code_text(folder_code) + "\n";
    } else {
        summary = "ok!";
    }

    if (Cfb_Logger::start(platform::narrow(config_folder), "cfb_repair_sdk",
                          platform::narrow(log_folder))) {
        access_work_folder(kSlotStore, work_dir, nullptr);
        access_password(kSlotClear, nullptr, nullptr);
        VRK_PUSH_ERROR(ec::kSuccess);
    } else {
        VRK_PUSH_ERROR(ec::kInitLogFailed);
    }
    // Information lines are filtered out by the logger; the summary stays in memory only.
    CFB_LOG_INFO(summary);
    return last_error_code(store);
}

int32_t destroy() {
    auto& store = get_error_store();
    release_private_scratch();
    std::string log_dir;
    if (!Cfb_Logger::get_log_dir(log_dir)) {
        VRK_PUSH_ERROR(ec::kSuccess);
        return last_error_code(store);
    }
    const std::wstring path = fs::collapse_separators(fs::normalise_separators(
        platform::widen(log_dir) + platform::kSeparator + L"occur_error_when_fixing_file.log"));
    fs::remove_link_at(path);
    std::ofstream out(platform::to_path(path), std::ios::out | std::ios::binary | std::ios::trunc);
    if (!out.is_open()) {
        CFB_LOG_ERROR(L"open the file failed !opf_file_path_wstr:[" + path + L"]");
        VRK_PUSH_ERROR(ec::kSelfRecordFailed);
        return ec::kSelfRecordFailed;
    }
    dump_all_error_info(store, out);
    out.close();
    VRK_PUSH_ERROR(ec::kSuccess);
    return last_error_code(store);
}

// Pushes code 2 for an exception that escaped an entry; must not throw itself.
void record_escaped_exception() noexcept {
    try {
        VRK_PUSH_ERROR(ec::kInternalError);
    } catch (...) {
        // Nothing is left to report with when even the record cannot be stored.
    }
}

template <typename Work>
int32_t raw_shell(Work&& work) noexcept {
    try {
        return work();
    } catch (...) {
        record_escaped_exception();
        return ec::kInternalError;
    }
}

template <typename Work>
int32_t folded_shell(Work&& work) noexcept {
    try {
        return to_api_result_code(work());
    } catch (...) {
        record_escaped_exception();
        return to_api_result_code(ec::kInternalError);
    }
}

}  // namespace

}  // namespace vrk

extern "C" {

VRK_CFB_API int32_t VRK_CFB_CALL VrkCfbInit(const char* log_dir, const char* config_dir,
                                            const char* work_dir) {
    return vrk::raw_shell([&] { return vrk::init(log_dir, config_dir, work_dir); });
}

VRK_CFB_API int32_t VRK_CFB_CALL VrkCfbDestroy(void) {
    return vrk::raw_shell([] { return vrk::destroy(); });
}

VRK_CFB_API int32_t VRK_CFB_CALL VrkCfbFileCheck(const char* input_file) {
    return vrk::folded_shell([&] { return vrk::file_check_entry(input_file); });
}

VRK_CFB_API int32_t VRK_CFB_CALL VrkCfbAnalysis(const char* input_file, const char* output_dir) {
    return vrk::folded_shell([&] { return vrk::analysis_entry(input_file, output_dir); });
}

VRK_CFB_API int32_t VRK_CFB_CALL VrkCfbGeneralRepair(const char* input_file,
                                                     const char* output_file) {
    return vrk::folded_shell([&] { return vrk::general_repair_entry(input_file, output_file); });
}

VRK_CFB_API int32_t VRK_CFB_CALL VrkCfbAdvanceRepair(const char* input_file,
                                                     const char* output_file,
                                                     const char* password) {
    return vrk::folded_shell([&] {
        // Both codes are raw here; the shell folds whichever is returned.
        const vrk::Error_Code password_code = vrk::set_password_entry(password);
        if (vrk::to_api_result_code(password_code) != 0) return password_code;
        return vrk::general_repair_entry(input_file, output_file);
    });
}

}  // extern "C"
