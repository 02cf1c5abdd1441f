// The mini stream: small streams kept in 64-byte mini sectors inside the root's short-stream
// container. The values are the layout's (Cfb_Layout.h).
#pragma once

#include <cstdint>

#include "cfb_vornak/format/Cfb_Layout.h"

namespace vrk {

struct Mini_Stream {
    // Mini sector size (mini sector shift 6).
    static constexpr uint32_t kSectorSize = layout::kMiniSectorSize;
    // Streams below this size live in mini sectors.
    static constexpr uint32_t kCutoff = layout::kMiniStreamCutoff;
};

}  // namespace vrk
