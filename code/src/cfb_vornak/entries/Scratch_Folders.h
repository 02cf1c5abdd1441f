// The work folder and the two scratch folders below it that the analysis and repair entries
// prepare before they open a compound file.
#pragma once

#include <memory>
#include <string>

namespace vrk {

struct Private_Scratch;

struct Scratch_Folders {
    std::wstring work_folder;
    std::wstring release_folder;   // <work>\tmp_release_dir_for_fixing_cfb\ (absolute)
    std::wstring raw_data_folder;  // <work>\lib_cfb_tmp\ (absolute)
    // The analysis makes the folders before it empties them: nothing else makes them for it.
    // The repair only empties them; its Cfb_File makes them when it is handed them.
    bool make_before_clearing = true;
    // Held while the folders lie in the process's private scratch folder, which is removed
    // only once VrkCfbDestroy has let go of it and no call holds it any more.
    std::shared_ptr<const Private_Scratch> private_scratch;
};

// 1. The work folder from the library's slot, when it is set and can be made a folder;
//    otherwise a private folder of this process's own in the system's temporary folder
//    (made once, exclusively, readable by its owner only; shared by the calls of every
//    thread, never a fixed shared path); failing that `fallback_folder` (the folder of the
//    output).
// 2. The free space of the work folder's drive must be readable (no minimum is asked):
//    otherwise code 2 is pushed, the failure logged, and false returned.
// 3. Both scratch folders are formed, logged and emptied (clear_scratch_folders).
[[nodiscard]] bool prepare_scratch_folders(const std::wstring& fallback_folder,
                                           Scratch_Folders& folders);

// Logs "clearFolder~" and empties both scratch folders.
void clear_scratch_folders(const Scratch_Folders& folders);

// Empties one scratch folder (path ending in a separator); a failure is logged, not thrown,
// and does not stop the caller.
void clear_scratch_folder(const Scratch_Folders& folders, const std::wstring& folder);

// Lets go of the private scratch folder (VrkCfbDestroy): it is removed, with everything in it
// and without following links, once no call holds it; a later call makes a new one.
void release_private_scratch();

}  // namespace vrk
