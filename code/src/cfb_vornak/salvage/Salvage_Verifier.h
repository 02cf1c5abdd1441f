// Resolves the directory entries of a damaged compound file under one candidate layout and
// scores the layout by how many entries resolve exactly. Only bytes that came through a
// verified chain become pieces of the result.
#pragma once

#include <cstdint>
#include <string>

#include "cfb_vornak/salvage/Salvage.h"
#include "cfb_vornak/salvage/Salvage_Classifier.h"
#include "cfb_vornak/salvage/Salvage_Layout.h"

namespace vrk::salvage {

struct Evaluation {
    Salvage_Result result;
    uint32_t resolved = 0;  // storages reached plus streams recovered
    uint32_t reached = 0;   // entries reached from the root
    uint64_t recovered_bytes = 0;
    bool better_than(const Evaluation& other) const;
};

struct Layout_Choice {
    const Sat_Table* sat = nullptr;
    const Dir_Candidate* directory = nullptr;
    sid_t minisat_start = ENDOFCHAIN;  // ENDOFCHAIN: no MiniSAT
    uint32_t mini_stream_cutoff = kMiniStreamCutoff;
};

// With `collect_lost`, also gathers the SAT chains that nothing claims.
Evaluation evaluate_layout(const uint8_t* data, const Sector_Classes& classes,
                           const Layout_Choice& layout, bool collect_lost);

}  // namespace vrk::salvage
