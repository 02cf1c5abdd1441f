#include "cfb_vornak/Cfb_Logger.h"
#include "cfb_vornak/Entries.h"
#include "common/error_store.h"

namespace vrk {

int32_t file_check_entry(const char* /*input*/) {
    if (!Cfb_Logger::is_init()) {
        VRK_PUSH_ERROR(ec::kObjectInitFailed);
        return last_error_code(get_error_store());
    }
    VRK_PUSH_ERROR(ec::kNotImplemented);
    return last_error_code(get_error_store());
}

}  // namespace vrk
