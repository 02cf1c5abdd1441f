// The one chain walker of the salvage, with its visit marks: stream chains through the SAT and
// the MiniSAT, the short-stream container, the directory and MiniSAT chains all walk through it.
//
// A walk follows the links the size needs. After them a chain may run on: writers leave slack,
// and a chain that holds every sector its size needs is whole whether it then ends on
// ENDOFCHAIN or runs into other data or free sectors; a ring back into itself is damage, and
// so is a last sector that the table itself marks free (a wrong link led there).
// Where a link was lost with its table sector, a walk may infer it by the run rule (writers lay
// chains out in runs: the next id follows), never into an id a verified chain holds, and only
// when the run ends where the size does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "cfb_vornak/format/cfb_types.h"

namespace vrk::salvage {

// Visit marks over ids below a bound, with a fresh epoch per walk so that no walk clears them.
class Visit_Marks {
  public:
    explicit Visit_Marks(std::size_t bound = 0) : m_marks(bound, 0) {}
    void next_walk();
    // Marks `id`; false when this walk met it already or when it lies past the bound.
    bool visit(uint32_t id);
    [[nodiscard]] bool met(uint32_t id) const {
        return id < m_marks.size() && m_marks[id] == m_epoch;
    }

  private:
    std::vector<uint32_t> m_marks;
    uint32_t m_epoch = 0;
};

// How an entry of a table is known.
enum Entry_Knowledge : uint8_t {
    kEntryUnknown = 0,   // its table sector is lost or unreadable
    kEntryRead = 1,      // read from a table sector the layout vouches for
    kEntryInferred = 2,  // read from a table sector that was itself reached by inference
};

// The links of a SAT or MiniSAT: `entries[id]` is the successor of `id`, known as `known[id]`
// says. Ids below `present` have their data in the file (or in the short-stream container).
struct Link_Table {
    const std::vector<sid_t>* entries = nullptr;
    const std::vector<uint8_t>* known = nullptr;
    uint64_t present = 0;
    [[nodiscard]] uint8_t knowledge(sid_t id) const {
        return id < known->size() ? (*known)[id] : static_cast<uint8_t>(kEntryUnknown);
    }
};

struct Walk_Rules {
    uint64_t needed = 0;          // ids the size needs
    const char* unit = "sector";  // names the ids in the texts
    bool infer = false;           // lost links follow the run rule
    // With `infer`: per id, nonzero when a verified chain holds it; an inferred link never
    // leads there.
    const std::vector<uint8_t>* taken = nullptr;
};

struct Chain_Walk {
    static constexpr std::size_t kNotInferred = static_cast<std::size_t>(-1);

    std::vector<sid_t> ids;  // the ids the size needs, as far as the chain gives them
    std::size_t inferred_from = kNotInferred;  // index of the first id an inferred link reached
    bool complete = false;                     // `ids` holds every id the size needs
    bool damaged = false;       // a link is wrong: a marker or a ring before the size is reached,
                                // or a ring back into the chain after it
    bool unknown_link = false;  // stopped at a lost link (a walk with `infer` may go on)
    bool ends_on_endofchain = false;
    uint32_t slack = 0;  // ids after the needed ones before the chain ends
    std::string stop;    // why the walk ended short, empty when complete
    std::string tail;    // how a complete chain ends, for the report
    [[nodiscard]] bool inferred() const { return inferred_from != kNotInferred; }
};

Chain_Walk walk_chain(const Link_Table& table, sid_t start, const Walk_Rules& rules,
                      Visit_Marks& marks);

// Entries that name an id another entry names too cannot both be right (two links lead to one
// sector; a zeroed table sector names sector 0 throughout): both become unknown. Only the
// entries of ids below `used` count: a table's last sector may hold junk past them.
void forget_repeated_links(const std::vector<sid_t>& entries, std::vector<uint8_t>& known,
                           uint64_t used);

}  // namespace vrk::salvage
