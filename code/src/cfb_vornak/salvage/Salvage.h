// Salvage of a damaged compound file: recovers as much of the directory tree and the streams as
// the file's bytes can vouch for, and says for every stream whether it came back whole.
//
// 1. Evidence: the header's fields, every sector classified by content (allocation-table
//    sectors, directory sectors), the directory records.
// 2. Hypotheses: candidate layouts (sector size, SAT, directory chain, MiniSAT) from the
//    header, from the contents, and mixes of the two.
// 3. Verification: each layout is scored by how many directory entries resolve exactly (a
//    stream's chain runs through known table entries, ends on ENDOFCHAIN after the number of
//    sectors its size needs, and shares no sector with another chain; storages are reached from
//    the root without rings). The best layout wins; the header's own wins ties.
// 4. Result: per entry its state and the file ranges of the bytes that were verified. Only
//    bytes that came through verified chains are ever handed out.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "cfb_vornak/format/cfb_types.h"

namespace vrk {

namespace platform {
class Input_File;
}

enum class Salvage_State { recovered, partial, lost };

// A run of the input file that holds bytes of a stream, at `stream_offset` in the stream.
struct Salvage_Piece {
    uint64_t stream_offset = 0;
    uint64_t file_offset = 0;
    uint64_t length = 0;
};

struct Salvage_Range {
    uint64_t offset = 0;
    uint64_t length = 0;
};

struct Salvaged_Entry {
    uint32_t did = 0;
    uint8_t object_type = 0;  // 1 storage, 2 stream, 5 root
    std::u16string name;
    int32_t parent = -1;  // index into Salvage_Result::entries; -1 for the root
    std::array<uint8_t, 16> clsid{};
    std::array<uint8_t, 4> state_bits{};
    std::array<uint8_t, 8> creation_time{};
    std::array<uint8_t, 8> modified_time{};
    uint64_t size = 0;
    sid_t start = ENDOFCHAIN;  // the record's first sector (mini sector for a small stream)
    Salvage_State state = Salvage_State::lost;
    std::vector<Salvage_Piece> pieces;   // verified bytes only, ascending stream offsets
    std::vector<Salvage_Range> missing;  // stream ranges not recovered
    std::string evidence;
    bool is_storage() const { return object_type == 1 || object_type == 5; }
    uint64_t recovered_bytes() const;
};

// A sector chain that no directory entry claims.
struct Salvage_Lost_Chain {
    uint32_t first_sector = 0;
    std::vector<Salvage_Piece> pieces;
};

struct Salvage_Result {
    bool is_compound_file = false;  // some layout found a directory
    uint32_t sector_size = 512;
    std::string layout;                   // "header", "content", "header+content"
    std::string reason;                   // why this layout was chosen
    std::vector<std::string> log;         // the steps taken, in order
    std::vector<Salvaged_Entry> entries;  // [0] is the root when is_compound_file
    std::vector<Salvage_Lost_Chain> lost_chains;

    // The entry's path from the root, names joined by '/'.
    std::u16string path_of(std::size_t index) const;
    std::size_t stream_count() const;
    std::size_t count(Salvage_State state) const;
};

// Salvages the `size` bytes at `data` (the whole input file, read only). With
// `header_layout_only`, only the layout the header describes is tried: what a plain reader of
// the format would see. `file`, when given, is the same input open for reading: passes over
// every sector read it in blocks (the result is the same).
Salvage_Result salvage_bytes(const uint8_t* data, uint64_t size, bool header_layout_only = false,
                             const platform::Input_File* file = nullptr);

// Counts the streams of the file at `path` (mapped read-only, found with every kind of
// evidence) and those that resolve under the header's own layout: the check a repaired file is
// put through. False when the file cannot be read.
bool count_resolving_streams(const std::wstring& path, std::size_t& resolved, std::size_t& streams);

// Copies the verified bytes of `entry` out of the input; missing ranges are not filled.
std::vector<uint8_t> salvaged_bytes(const uint8_t* data, uint64_t size,
                                    const std::vector<Salvage_Piece>& pieces);

}  // namespace vrk
