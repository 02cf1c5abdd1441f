#include "cfb_vornak/Cfb_Logger.h"
#include "cfb_vornak/Entries.h"
#include "common/error_store.h"

namespace vrk {

int32_t analysis_entry(const char* /*input*/, const char* /*out_dir*/) {
    if (!Cfb_Logger::is_init()) {
        CFB_LOG_ERROR("Cfb_Logger::is_init == false ");
        VRK_PUSH_ERROR(ec::kObjectInitFailed);
        return last_error_code(get_error_store());
    }
    VRK_PUSH_ERROR(ec::kNotImplemented);
    return last_error_code(get_error_store());
}

}  // namespace vrk
