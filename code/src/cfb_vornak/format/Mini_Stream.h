// The mini stream: small streams kept in 64-byte mini sectors inside the root's short-stream
// container.
#pragma once

#include <cstdint>

namespace vrk {

struct Mini_Stream {
    static constexpr uint32_t kSectorSize = 64;  // mini sector size (mini sector shift 6)
    static constexpr uint32_t kCutoff = 4096;    // streams below this size live in mini sectors
};

}  // namespace vrk
