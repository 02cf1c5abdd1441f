// Process-wide slots of the library: the work folder (below which analysis and repair make
// their scratch folders) and the document password. Neither slot takes a lock: VrkCfbInit
// and VrkCfbAdvanceRepair must not overlap other calls. The initialised flag belongs to
// Cfb_Logger (Cfb_Logger::is_init).
#pragma once

#include <string>

namespace vrk {

// Modes of the slot access routines.
enum Slot_Mode : int {
    kSlotClear = 0,  // empty the slot; true
    kSlotStore = 1,  // store a new value; false for a null value
    kSlotRead = 2,   // copy the value out; true
};

// kSlotStore: `new_folder` with the native separator appended, widened and made absolute; an
// empty `new_folder` leaves the slot empty. kSlotRead: false when the slot is empty, so that
// the callers fall back to the system's temporary folder. Any other mode: false.
bool access_work_folder(int mode, const char* new_folder, std::wstring* value);

// kSlotStore takes `new_password` as it is. Any other mode: false.
bool access_password(int mode, const std::wstring* new_password, std::wstring* value);

}  // namespace vrk
