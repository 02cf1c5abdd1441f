// Candidate layouts of a damaged compound file: which sectors hold the SAT (and in which
// order), where the directory chain runs, where the MiniSAT starts. Each candidate keeps its
// source as an enum; the texts that explain a choice are derived from it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "cfb_vornak/format/cfb_types.h"
#include "cfb_vornak/salvage/Salvage.h"
#include "cfb_vornak/salvage/Salvage_Chain.h"
#include "cfb_vornak/salvage/Salvage_Classifier.h"
#include "cfb_vornak/salvage/Salvage_Evidence.h"
#include "cfb_vornak/salvage/Salvage_Input.h"

namespace vrk::salvage {

// A SAT assembled from sectors. Entries of a position whose sector is missing or unreadable
// are unknown, and so are entries that name an id another entry names too (a sector two
// links lead to: one of them is wrong, and nothing tells which): a chain that needs one of
// them stops there.
struct Sat_Table {
    Sat_Source source = Sat_Source::header;
    // Content SATs: 0 for the first placement; later variants give one contested place to
    // its next contender, or keep the placement without settling its contradictions.
    uint32_t variant = 0;
    std::vector<sid_t> sat_sectors;       // by SAT position; FREESECT where no sector is known
    std::vector<uint8_t> fixed;           // per position: named by the header, never dropped
    std::vector<sid_t> lost_sat_sectors;  // named as SAT sectors but unreadable
    std::vector<sid_t> disat_sectors;
    std::vector<sid_t> entries;
    std::vector<uint8_t> known;  // per entry, an Entry_Knowledge
    [[nodiscard]] bool is_known(sid_t sid) const {
        return sid < known.size() && known[sid] == kEntryRead;
    }
    // How far the table vouches for its own placement: two for each placed sector that the
    // sector at another position marks FATSECT, one for each that marks itself (writers that
    // chain their SAT sectors or mark them ENDOFCHAIN vouch for none).
    [[nodiscard]] int64_t agreement(uint32_t count) const;
    [[nodiscard]] Link_Table links(uint64_t present) const { return {&entries, &known, present}; }
};

// The SAT the header's DISAT array and DISAT chain name. Positions past the header's SAT
// sector count, and past the positions the file's size needs, are kept only where the table
// marks their sector FATSECT: a damaged or fuzzed header lists junk there.
Sat_Table header_sat(const Salvage_Input& input, const Sector_Classes& classes,
                     const Header_Evidence& header);
// The SATs found by content alone: table-like sectors placed by their sequential links and by
// the FATSECT marks of the others. Table 0 is the most likely placement; the variants after it
// give one contested place to its next contender (a MiniSAT sector, an older copy of a SAT
// sector and the live one may all claim place 0). Each placement comes settled (positions
// that the FATSECT marks contradict dropped) and as it is (writers that mark their SAT
// sectors ENDOFCHAIN or chain them instead). The evidence is gathered once; each table is
// made on request.
class Content_Sats {
  public:
    Content_Sats(const Salvage_Input& input, const Sector_Classes& classes);
    ~Content_Sats();
    Content_Sats(const Content_Sats&) = delete;
    Content_Sats& operator=(const Content_Sats&) = delete;
    // How many tables there are.
    [[nodiscard]] std::size_t count() const;
    [[nodiscard]] Sat_Table make(std::size_t index) const;

    struct Evidence;

  private:
    const Salvage_Input& m_input;
    const Sector_Classes& m_classes;
    std::unique_ptr<Evidence> m_evidence;
};
// The header's sectors where they are readable, the content's where they are not.
Sat_Table mixed_sat(const Salvage_Input& input, const Sector_Classes& classes,
                    const Sat_Table& header, const Sat_Table& content);

// True when whole sector `sid` reads as a directory sector (and not as a table whose small ids
// read as empty records).
bool directory_sector(const Sector_Classes& classes, sid_t sid);

// Where a directory candidate starts.
enum class Directory_Start { header, root_record };
// How its sectors after the first were found.
enum class Directory_Order {
    sat_chain,             // the SAT's links, as far as they go
    completed_by_content,  // the SAT's links, then the directory sectors the SAT does not mark
                           // free, in ascending order
    content_order,         // the directory sectors found by content, in ascending order
    inferred_run,          // lost links continued by the run rule
};

struct Dir_Candidate {
    static constexpr std::size_t kAllVouched = static_cast<std::size_t>(-1);

    Directory_Start start = Directory_Start::root_record;
    Directory_Order order = Directory_Order::sat_chain;
    std::vector<sid_t> sectors;  // in directory order
    bool chain_ends = false;     // the walk through the SAT ended on ENDOFCHAIN
    // Sectors from this index on were placed without a verified link or a unique chain
    // vouching for their place: the entries they hold can at best be inferred.
    std::size_t inferred_from = kAllVouched;
    // How the sectors were found, for the report.
    [[nodiscard]] std::string text() const;
};

// Directory chains from the header's first directory sector and from sectors that start with
// a root record (the first four and the last four found), walked through the SAT; where a
// walk breaks, also the same chain completed with the directory sectors the SAT does not
// mark free, the content's own order, and, at a lost link, the run rule.
std::vector<Dir_Candidate> directory_candidates(const Sector_Classes& classes, const Sat_Table& sat,
                                                const Header_Evidence& header, bool header_fits);

// First sectors that could start the MiniSAT: the header's, then chain heads of the SAT whose
// sector looks like a table and that nothing else starts at.
std::vector<sid_t> minisat_candidates(const Salvage_Input& input, const Sector_Classes& classes,
                                      const Sat_Table& sat, const Header_Evidence& header,
                                      bool header_fits, const std::vector<sid_t>& taken_starts);

}  // namespace vrk::salvage
