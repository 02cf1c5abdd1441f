// Candidate layouts of a damaged compound file: which sectors hold the SAT (and in which
// order), where the directory chain runs, where the MiniSAT starts. Each candidate names its
// source so that the choice can be explained.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cfb_vornak/format/cfb_types.h"
#include "cfb_vornak/salvage/Salvage_Classifier.h"
#include "cfb_vornak/salvage/Salvage_Evidence.h"

namespace vrk::salvage {

// A SAT assembled from sectors. Entries of a position whose sector is missing or unreadable
// are unknown: a chain that needs one of them stops there.
struct Sat_Table {
    std::string source;                   // "header", "content" or "header+content"
    std::vector<sid_t> sat_sectors;       // by SAT position; FREESECT where no sector is known
    std::vector<uint8_t> fixed;           // per position: named by the header, never dropped
    std::vector<sid_t> lost_sat_sectors;  // named as SAT sectors but unreadable
    std::vector<sid_t> disat_sectors;
    std::vector<sid_t> entries;
    std::vector<uint8_t> known;  // per entry
    bool is_known(sid_t sid) const { return sid < known.size() && known[sid] != 0; }
};

// The SAT the header's DISAT array and DISAT chain name.
Sat_Table header_sat(const uint8_t* data, const Sector_Classes& classes,
                     const Header_Evidence& header);
// The SAT found by content alone: table-like sectors placed by their sequential links and by
// the FATSECT marks of the others.
Sat_Table content_sat(const uint8_t* data, const Sector_Classes& classes);
// The header's sectors where they are readable, the content's where they are not.
Sat_Table mixed_sat(const uint8_t* data, const Sector_Classes& classes, const Sat_Table& header,
                    const Sat_Table& content);

struct Dir_Candidate {
    std::string source;          // how the sectors were found
    std::vector<sid_t> sectors;  // in directory order
    bool chain_ends = false;     // the walk through the SAT ended on ENDOFCHAIN
};

// Directory chains from the header's first directory sector and from every sector that starts
// with a root record, walked through the SAT; where a walk breaks, also the same chain
// completed with the remaining directory-like sectors in ascending order.
std::vector<Dir_Candidate> directory_candidates(const Sector_Classes& classes, const Sat_Table& sat,
                                                const Header_Evidence& header, bool header_fits);

// First sectors that could start the MiniSAT: the header's, then chain heads of the SAT whose
// sector looks like a table and that nothing else starts at.
std::vector<sid_t> minisat_candidates(const uint8_t* data, const Sector_Classes& classes,
                                      const Sat_Table& sat, const Header_Evidence& header,
                                      bool header_fits, const std::vector<sid_t>& taken_starts);

}  // namespace vrk::salvage
