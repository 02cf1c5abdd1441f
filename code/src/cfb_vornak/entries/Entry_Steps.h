// Steps that the analysis and the repair entries take alike, with the same texts and codes.
// Each pushes its own record and logs its own failure; false means the entry returns at once.
#pragma once

#include <string>

#include "cfb_vornak/format/cfb_types.h"

namespace vrk {

// The logger is started and its folder still readable (code 11 otherwise); logs the folder.
bool check_logger_started();

// The widened input names something that is not a folder and whose size can be read (code 4
// otherwise).
bool check_input_file(const std::wstring& input_wstr);

// The working file is the input itself, which is only ever read; a failure to describe it is
// code 32.
[[nodiscard]] bool take_working_file(const std::wstring& input_wstr, File_Description& working);

// Creates `path` with its parents, or only the folder that will hold the file `path`; an error
// the file system raises is code 33.
[[nodiscard]] bool make_output_folder(const std::wstring& path, bool folder_of_file);

}  // namespace vrk
