// The work folder and the two scratch folders below it that the analysis and repair entries
// prepare before they open a compound file.
#pragma once

#include <string>

namespace vrk {

struct Scratch_Folders {
    std::wstring work_folder;
    std::wstring release_folder;   // <work>\tmp_release_dir_for_fixing_cfb\ (absolute)
    std::wstring raw_data_folder;  // <work>\lib_cfb_tmp\ (absolute)
};

// 1. The work folder from the library's slot; failing that the system's temporary folder;
//    failing that `fallback_folder` (the folder of the output).
// 2. The free space of the work folder's drive must be readable (no minimum is asked):
//    otherwise code 2 is pushed, the failure logged, and false returned.
// 3. Both scratch folders are formed, logged, created and emptied; a failure to empty them
//    is logged and does not stop the caller.
bool prepare_scratch_folders(const std::wstring& fallback_folder, Scratch_Folders& folders);

// Empties one scratch folder (path ending in a separator); a failure is logged, not thrown.
void clear_scratch_folder(const std::wstring& folder);

}  // namespace vrk
