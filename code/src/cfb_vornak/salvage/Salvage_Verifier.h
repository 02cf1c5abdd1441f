// Resolves the directory entries of a damaged compound file under one candidate layout and
// weighs the layout: how many entries resolve exactly, and what the allocation evidence says
// for it. Only bytes that came through a verified chain become pieces of a recovered stream.
#pragma once

#include <cstdint>

#include "cfb_vornak/salvage/Salvage.h"
#include "cfb_vornak/salvage/Salvage_Classifier.h"
#include "cfb_vornak/salvage/Salvage_Input.h"
#include "cfb_vornak/salvage/Salvage_Layout.h"

namespace vrk::salvage {

// What speaks for a layout besides the entries it resolves.
struct Layout_Support {
    uint32_t header_conflicts = 0;    // facts of a header that speaks for the file, contradicted
    uint32_t dir_contradictions = 0;  // directory sectors whose SAT entry says otherwise
    uint32_t dir_confirmations = 0;   // directory links the SAT confirms
    uint32_t dir_sectors = 0;         // directory sectors, each with one link (or the end)
    // Whether the SAT says more for this directory chain than for `other`'s: links confirmed
    // less links contradicted, per sector, so that long and short chains compare fairly.
    [[nodiscard]] int compare_dir_support(const Layout_Support& other) const;
    int64_t sat_agreement = 0;  // how far the SAT vouches for its own placement
    // The end (in bytes from the file's start) of the highest sector the layout's directory
    // and stream chains (the container's included) hold: how far into the file the layout
    // reaches. An older save describes a shorter file.
    uint64_t reach = 0;
    // When the writer last saved this directory: the root record's modification time (0 when
    // the writer left it out). A writer that saves again leaves the older root records behind.
    uint64_t root_time = 0;
};

struct Evaluation {
    Salvage_Result result;
    uint32_t resolved = 0;  // storages reached plus streams recovered, orphans included
    uint32_t reached = 0;   // entries found, orphans included
    uint32_t inferred = 0;  // streams rebuilt by the run rule
    uint32_t orphans = 0;   // entries no link from the root reaches
    // Links of the tree to nothing usable or back into it: a directory read in the wrong
    // order, or missing sectors, leaves them.
    uint32_t loose_ends = 0;
    bool dir_chain_ends = false;  // the directory chain ends on ENDOFCHAIN
    uint64_t recovered_bytes = 0;
    Layout_Support support;

    // The order of preference: fewer header facts contradicted, fewer loose ends in the tree,
    // a layout that reaches further, a root record saved later (an older save describes a
    // shorter file, written earlier), a SAT that vouches more for its own placement, more
    // support of the SAT for the directory chain, more entries resolved, more streams
    // inferred, more bytes recovered, more entries found. Which copy of the tables and the
    // directory is the file's, and in which order they are read, comes first; how much
    // resolves then settles what is left.
    bool better_than(const Evaluation& other) const;
    // True when the evidence settles the choice between this layout and `other`: this one
    // contradicts fewer of the header's facts; or its tree has fewer loose ends; or it is a
    // later save (reaches further or was
    // saved later, and is older on neither count); or, the same save, its tables vouch at
    // least as much for themselves and the directory, and more, or as much and it resolves
    // more entries. Streams that a layout not outranked resolves to other bytes are
    // ambiguous.
    bool outranks(const Evaluation& other) const;
    // Every entry found resolves, the tree has no loose ends and no orphans, the directory
    // chain ends on ENDOFCHAIN, nothing was inferred and the SAT contradicts nothing.
    bool complete() const;
};

struct Layout_Choice {
    const Sat_Table* sat = nullptr;
    const Dir_Candidate* directory = nullptr;
    sid_t minisat_start = ENDOFCHAIN;  // ENDOFCHAIN: no MiniSAT
};

// With `collect_lost`, also gathers the SAT chains that nothing claims.
Evaluation evaluate_layout(const Salvage_Input& input, const Sector_Classes& classes,
                           const Layout_Choice& layout, bool collect_lost);

}  // namespace vrk::salvage
