// Sector ids and the markers of the compound file format.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vrk {

using sid_t = uint32_t;

inline constexpr sid_t FREESECT = 0xFFFFFFFFu;     // unallocated sector
inline constexpr sid_t ENDOFCHAIN = 0xFFFFFFFEu;   // last sector of a chain
inline constexpr sid_t FATSECT = 0xFFFFFFFDu;      // sector holds part of the SAT
inline constexpr sid_t DIFSECT = 0xFFFFFFFCu;      // sector holds part of the DISAT
inline constexpr sid_t MAXREGSECT = 0xFFFFFFFBu;   // highest ordinary id
inline constexpr uint32_t NOSTREAM = 0xFFFFFFFFu;  // no sibling / child

// Every value above MAXREGSECT is a marker.
[[nodiscard]] constexpr bool is_special(sid_t sid) {
    return sid > MAXREGSECT;
}

using sids_array = std::vector<sid_t>;
using sids_list = std::vector<sid_t>;

// Input, output or working file: the wide path, the wide path actually opened, and a UTF-8 copy.
struct File_Description {
    std::wstring path_wstr;
    std::wstring open_path_wstr;
    std::string path_utf8;
};

}  // namespace vrk
