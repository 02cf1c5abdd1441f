// Sector id lists and the description of a file the library opens; the markers live in
// Cfb_Layout.h.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cfb_vornak/format/Cfb_Layout.h"

namespace vrk {

using sids_array = std::vector<sid_t>;
using sids_list = std::vector<sid_t>;

// Input, output or working file: the wide path, the wide path actually opened, and a UTF-8 copy.
struct File_Description {
    std::wstring path_wstr;
    std::wstring open_path_wstr;
    std::string path_utf8;
};

}  // namespace vrk
