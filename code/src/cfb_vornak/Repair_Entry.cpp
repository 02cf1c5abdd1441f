#include <exception>
#include <string>

#include "cfb_vornak/Cfb_Logger.h"
#include "cfb_vornak/Entries.h"
#include "cfb_vornak/Library_State.h"
#include "common/error_store.h"
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

int32_t general_repair_entry(const char* /*input*/, const char* /*output*/) {
    if (!Cfb_Logger::is_init()) {
        CFB_LOG_ERROR("Cfb_Logger::is_init == false ");
        VRK_PUSH_ERROR(ec::kObjectInitFailed);
        return last_error_code(get_error_store());
    }
    VRK_PUSH_ERROR(ec::kNotImplemented);
    return last_error_code(get_error_store());
}

}  // namespace vrk
