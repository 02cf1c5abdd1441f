// How far a file door, or the block cache or map behind it, got in its construction.
#pragma once

#include <cstdint>

namespace vrk {

enum class Door_State : int32_t {
    constructing = 0,
    failed = 1,  // logged (and, for the door, thrown); every read then fails
    fine = 2,    // reads go through
};

}  // namespace vrk
