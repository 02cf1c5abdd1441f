#include "cfb_vornak/entries/Library_State.h"

#include "common/platform.h"

namespace vrk {

namespace {

std::wstring& work_folder_slot() {
    static std::wstring slot;
    return slot;
}

std::wstring& password_slot() {
    static std::wstring slot;
    return slot;
}

}  // namespace

bool access_work_folder(int mode, const char* new_folder, std::wstring* value) {
    auto& slot = work_folder_slot();
    switch (mode) {
        case kSlotClear:
            slot.clear();
            return true;
        case kSlotStore: {
            if (new_folder == nullptr) return false;
            if (*new_folder == '\0') {
                // An empty folder would become the root of the current drive: keep the slot
                // empty instead, so that the scratch folders go to the temporary folder.
                slot.clear();
                return true;
            }
            const std::string with_separator =
                std::string(new_folder) + static_cast<char>(platform::kSeparator);
            slot = platform::make_absolute(platform::widen(with_separator));
            return true;
        }
        case kSlotRead:
            if (value == nullptr || slot.empty()) return false;
            *value = slot;
            return true;
        default:
            return false;
    }
}

bool access_password(int mode, const std::wstring* new_password, std::wstring* value) {
    auto& slot = password_slot();
    switch (mode) {
        case kSlotClear:
            slot.clear();
            return true;
        case kSlotStore:
            if (new_password == nullptr) return false;
            slot = *new_password;
            return true;
        case kSlotRead:
            if (value == nullptr) return false;
            *value = slot;
            return true;
        default:
            return false;
    }
}

}  // namespace vrk
