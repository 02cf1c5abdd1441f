#include "sector_map.h"

#include <algorithm>

#include "cfb_vornak/model/Cfb_Directory_Tree.h"
#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/salvage/Salvage.h"
#include "salvage_paths.h"
#include "tool_common.h"

namespace vrk::cli {

namespace {

constexpr uint64_t kCell = layout::kSectorSize;
constexpr uint64_t kMaxCellsPastEnd = 65536;

// Claims cells for the structures; cells past the end grow the map up to its bound.
class Claims {
  public:
    explicit Claims(Sector_Map& map) : m_map(map), m_claimed(map.cells.size(), 0) {}

    void cell(uint64_t index, Cell_Role role, int32_t owner = -1) {
        if (index >= m_map.cells.size()) {
            if (index >= m_map.file_cells + kMaxCellsPastEnd) return;
            m_map.cells.resize(index + 1, Map_Cell{Cell_Role::past_end, -1, false});
            m_claimed.resize(index + 1, 0);
        }
        Map_Cell& target = m_map.cells[index];
        if (m_claimed[index] != 0) {
            target.twice = true;
            return;
        }
        m_claimed[index] = 1;
        target.role = index >= m_map.file_cells ? Cell_Role::past_end : role;
        target.owner = owner;
    }

    void sector(sid_t sid, Cell_Role role, int32_t owner = -1) {
        if (!is_special(sid)) cell(uint64_t{sid} + 1, role, owner);
    }

    // The chain from `start` through the SAT: at most `needed` sectors, ending at a marker, an
    // id past the table or a sector this walk met before.
    void chain(const sids_array& table, sid_t start, uint64_t needed, Cell_Role role,
               int32_t owner) {
        if (m_stamps.size() != table.size()) m_stamps.assign(table.size(), 0);
        ++m_stamp;
        sid_t sid = start;
        for (uint64_t step = 0; step < needed && !is_special(sid); ++step) {
            if (sid < table.size()) {
                if (m_stamps[sid] == m_stamp) break;
                m_stamps[sid] = m_stamp;
            }
            sector(sid, role, owner);
            if (sid >= table.size()) break;
            sid = table[sid];
        }
    }

    [[nodiscard]] bool claimed(uint64_t index) const { return m_claimed[index] != 0; }

  private:
    Sector_Map& m_map;
    std::vector<uint8_t> m_claimed;
    // Per table entry, the walk that last passed it: a walk ends where it meets itself.
    std::vector<uint32_t> m_stamps;
    uint32_t m_stamp = 0;
};

// The path of a directory entry through the tree's parents (names escaped, joined by '/').
std::string entry_path(const Cfb_File& file, uint32_t did) {
    const Cfb_Directory_Tree* tree = file.cfb_directory_tree.get();
    if (tree == nullptr || did >= tree->nodes.size() || !tree->nodes[did]) {
        return display_name(file.directory_entrys[did].name_units());
    }
    std::vector<uint32_t> chain;
    const Cfb_Directory_Entry_AbstractNode* node = tree->nodes[did].get();
    // Every node's parent chain ends at the root; the bound keeps a damaged tree finite.
    for (std::size_t step = 0; node != nullptr && node != tree->root && step < tree->nodes.size();
         ++step) {
        chain.push_back(node->index);
        node = node->parent;
    }
    std::string path;
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
        if (*it >= file.directory_entrys.size()) continue;
        if (!path.empty()) path += '/';
        path += display_name(file.directory_entrys[*it].name_units());
    }
    return path;
}

}  // namespace

const char* role_name(Cell_Role role) {
    static const char* const names[kCellRoles] = {
        "header",    "SAT",         "DISAT",      "MiniSAT",   "directory",
        "container", "stream data", "free",       "unclaimed", "past the end",
        "recovered", "partial",     "unverified", "lost chain"};
    return names[static_cast<int>(role)];
}

const char* role_key(Cell_Role role) {
    static const char* const keys[kCellRoles] = {
        "header", "sat",       "disat",    "minisat",   "directory", "container",  "stream",
        "free",   "unclaimed", "past-end", "recovered", "partial",   "unverified", "lost-chain"};
    return keys[static_cast<int>(role)];
}

Sector_Map map_from_model(Cfb_File& file, uint64_t file_size) {
    Sector_Map map;
    map.file_size = file_size;
    map.file_cells = (file_size + kCell - 1) / kCell;
    map.cells.assign(map.file_cells, Map_Cell{});
    Claims claims(map);
    if (!map.cells.empty()) claims.cell(0, Cell_Role::header);
    // Parsed only when the file has a header and a sector.
    if (file.object_state == Object_State::parsed) {
        for (const Table_Sector& sector : file.sat_sector_dicts)
            claims.sector(sector.sid, Cell_Role::sat);
        for (const sid_t sid : file.disat_sids) claims.sector(sid, Cell_Role::disat);
        for (const Table_Sector& sector : file.minisat_sector_dicts) {
            claims.sector(sector.sid, Cell_Role::minisat);
        }
        for (const sid_t sid : file.directory_entrys_sids_list)
            claims.sector(sid, Cell_Role::directory);
        const sids_array& table = file.big_sids_array;
        if (file.root_entry.object_type == layout::kTypeRootStorage) {
            claims.chain(table, file.root_entry.start_sid,
                         (uint64_t{file.root_entry.stream_size} + kCell - 1) / kCell,
                         Cell_Role::container, -1);
        }
        for (const Directory_Entry& entry : file.directory_entrys) {
            if (entry.object_type != layout::kTypeStream ||
                entry.stream_size < layout::kMiniStreamCutoff) {
                continue;
            }
            map.owners.push_back(entry_path(file, entry.did));
            claims.chain(table, entry.start_sid, (uint64_t{entry.stream_size} + kCell - 1) / kCell,
                         Cell_Role::stream, static_cast<int32_t>(map.owners.size() - 1));
        }
        for (uint64_t cell = 1; cell < map.file_cells; ++cell) {
            const uint64_t sid = cell - 1;
            if (!claims.claimed(cell) && sid < table.size() && table[sid] == FREESECT) {
                map.cells[cell].role = Cell_Role::free;
            }
        }
    }
    return map;
}

void overlay_salvage(Sector_Map& map, const Salvage_Result& result) {
    for (Map_Cell& cell : map.cells) {
        if (cell.role == Cell_Role::stream) cell.role = Cell_Role::unverified;
    }
    auto paint = [&](uint64_t offset, uint64_t length, Cell_Role role, int32_t owner) {
        if (length == 0) return;
        const uint64_t last =
            std::min<uint64_t>((offset + length - 1) / kCell, map.cells.size() - 1);
        for (uint64_t cell = offset / kCell; cell <= last; ++cell) {
            map.cells[cell].role = role;
            map.cells[cell].owner = owner;
        }
    };
    if (map.cells.empty()) return;
    for (std::size_t i = 0; i < result.entries.size(); ++i) {
        const Salvaged_Entry& entry = result.entries[i];
        // Small streams lie inside the container's sectors, which keep their role.
        if (entry.object_type != layout::kTypeStream || entry.size < layout::kMiniStreamCutoff) {
            continue;
        }
        map.owners.push_back(display_path(result, i) + " (" + state_text(entry.state) + ")");
        const Cell_Role role =
            entry.state == Salvage_State::recovered ? Cell_Role::recovered : Cell_Role::partial;
        for (const Salvage_Piece& piece : entry.pieces) {
            paint(piece.file_offset, piece.length, role,
                  static_cast<int32_t>(map.owners.size() - 1));
        }
    }
    for (const Salvage_Lost_Chain& chain : result.lost_chains) {
        map.owners.push_back("chain from sector " + std::to_string(chain.first_sector));
        for (const Salvage_Piece& piece : chain.pieces) {
            paint(piece.file_offset, piece.length, Cell_Role::lost_chain,
                  static_cast<int32_t>(map.owners.size() - 1));
        }
    }
}

}  // namespace vrk::cli
