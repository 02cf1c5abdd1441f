// The work folder and the two scratch folders below it that the analysis and repair entries
// prepare before they open a compound file.
#pragma once

#include <string>

namespace vrk {

struct Scratch_Folders {
    std::wstring work_folder;
    std::wstring release_folder;   // <work>\tmp_release_dir_for_fixing_cfb\ (absolute)
    std::wstring raw_data_folder;  // <work>\lib_cfb_tmp\ (absolute)
    // The analysis makes the folders before it empties them: nothing else makes them for it.
    // The repair only empties them; its Cfb_File makes them when it is handed them.
    bool make_before_clearing = true;
};

// 1. The work folder from the library's slot; failing that the system's temporary folder;
//    failing that `fallback_folder` (the folder of the output).
// 2. The free space of the work folder's drive must be readable (no minimum is asked):
//    otherwise code 2 is pushed, the failure logged, and false returned.
// 3. Both scratch folders are formed, logged and emptied (clear_scratch_folders).
bool prepare_scratch_folders(const std::wstring& fallback_folder, Scratch_Folders& folders);

// Logs "clearFolder~" and empties both scratch folders.
void clear_scratch_folders(const Scratch_Folders& folders);

// Empties one scratch folder (path ending in a separator); a failure is logged, not thrown,
// and does not stop the caller.
void clear_scratch_folder(const Scratch_Folders& folders, const std::wstring& folder);

}  // namespace vrk
