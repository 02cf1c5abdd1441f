// What each 512-byte block of a compound file holds, as the file's own header and tables say
// (the parsed model), optionally with the salvage's verdicts over the stream data: the facts
// behind `cfbvornak map`. Cell 0 is the header, cell k + 1 is sector k.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vrk {
class Cfb_File;
struct Salvage_Result;
}  // namespace vrk

namespace vrk::cli {

enum class Cell_Role : uint8_t {
    header,
    sat,
    disat,
    minisat,
    directory,
    container,   // the root's short-stream container (the small streams live inside)
    stream,      // data of a stream, as its chain in the SAT says
    free,        // FREESECT in the SAT
    unclaimed,   // allocated (or beyond the SAT) but named by nothing
    past_end,    // named by a chain or table, but past the end of the file
    recovered,   // with salvage: verified bytes of a stream that came back whole
    partial,     // with salvage: verified bytes of a stream that did not
    unverified,  // with salvage: a stream's sector by its chain that the salvage did not vouch for
    lost_chain,  // with salvage: a chain that no entry claims
};
inline constexpr int kCellRoles = 14;

// "header", "SAT", ..., the names the legend and the SVG's data-role attributes use.
const char* role_name(Cell_Role role);
const char* role_key(Cell_Role role);

struct Map_Cell {
    Cell_Role role = Cell_Role::unclaimed;
    int32_t owner = -1;  // index into Sector_Map::owners (streams and lost chains), or -1
    bool twice = false;  // named by two structures or chains
};

struct Sector_Map {
    uint64_t file_size = 0;
    uint64_t file_cells = 0;  // cells with at least one byte inside the file
    std::vector<Map_Cell> cells;
    std::vector<std::string> owners;  // display paths of streams, names of lost chains
};

// The map by the file's own structures: header, SAT, DISAT, MiniSAT and directory sectors,
// the container, every stream's chain (walked through the SAT, at most as many sectors as its
// size needs), FREESECT, the rest unclaimed. Chains that run past the end add cells (at most
// 65,536 of them).
Sector_Map map_from_model(Cfb_File& file, uint64_t file_size);

// The salvage's verdicts over the stream data: sectors of verified bytes become recovered or
// partial, the model's stream sectors left over become unverified, and the chains no entry
// claims are drawn as lost chains.
void overlay_salvage(Sector_Map& map, const Salvage_Result& result);

}  // namespace vrk::cli
