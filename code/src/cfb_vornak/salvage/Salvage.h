// Salvage of a damaged compound file: recovers as much of the directory tree and the streams as
// the file's bytes can vouch for, and says for every stream whether it came back whole.
//
// 1. Evidence: the header's fields, every sector classified by content (allocation-table
//    sectors, directory sectors, sectors that start with a root record), the directory records.
// 2. The header's own layout first: when its tables and directory check out against the file,
//    it is the answer, and evidence found by content may add to it, never override it.
// 3. Otherwise candidate layouts (sector size, SAT, directory chain, MiniSAT) from the header,
//    from the contents, and mixes of the two, each resolved in full (see Salvage_Verifier).
// 4. The choice: the layout that contradicts fewest of the header's facts, resolves the most
//    entries, contradicts its own SAT least, and whose SAT reaches furthest into the file (a
//    writer that saves again leaves its older tables and directories behind, which describe
//    a shorter file). A stream that another candidate, not outranked on that evidence,
//    resolves to other bytes is ambiguous: neither answer is called recovered.
// 5. Result: per entry its state and the file ranges of its bytes. Only bytes that came through
//    verified chains are handed out as recovered.
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
namespace salvage {
class Salvage_Input;
}

// recovered: every byte came through verified links. partial: some verified bytes, the rest
// missing. ambiguous: candidate layouts that the evidence cannot tell apart give other bytes.
// inferred: some link was lost with its SAT sector and was rebuilt by the run rule (writers lay
// chains out in runs), so the bytes are likely but unverified. lost: nothing verified.
enum class Salvage_State { recovered, partial, ambiguous, inferred, lost };

// "recovered", "partial", "ambiguous", "inferred", "lost".
const char* salvage_state_text(Salvage_State state);

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

// One answer of an ambiguous stream: its bytes under one candidate layout.
struct Salvage_Candidate {
    std::vector<Salvage_Piece> pieces;
    std::string evidence;
};

struct Salvaged_Entry {
    uint32_t did = NOSTREAM;  // NOSTREAM for the "orphans" storage the salvage adds
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
    bool orphan = false;    // no link from the root reaches the record
    bool bad_name = false;  // the record's name was unusable: named from its index instead
    // recovered and partial: verified bytes only; inferred: the rebuilt run. Ascending stream
    // offsets.
    std::vector<Salvage_Piece> pieces;
    std::vector<Salvage_Range> missing;         // stream ranges not recovered
    std::vector<Salvage_Candidate> candidates;  // ambiguous: every answer seen
    std::string evidence;
    bool is_storage() const { return object_type == 1 || object_type == 5; }
    uint64_t recovered_bytes() const;
};

// A sector chain that no directory entry claims.
struct Salvage_Lost_Chain {
    uint32_t first_sector = 0;
    std::vector<Salvage_Piece> pieces;
};

// Where the SAT of a layout came from.
enum class Sat_Source { header, content, header_and_content };
// "header", "content", "header+content".
const char* sat_source_text(Sat_Source source);

// A copy of the directory found in the file: the header's, or one that starts with a root
// record found by content. Writers that save again leave older copies behind, and compound
// files kept as streams bring their own.
struct Salvage_Directory_Copy {
    sid_t first_sector = 0;
    bool named_by_header = false;
    bool taken = false;
    std::string note;  // why it was taken or not
};

struct Salvage_Result {
    bool is_compound_file = false;  // some layout found a directory
    uint32_t sector_size = 512;
    Sat_Source sat_source = Sat_Source::header;
    std::string reason;                   // the chosen layout and why it was chosen
    std::vector<std::string> log;         // the steps taken, in order
    std::vector<Salvaged_Entry> entries;  // [0] is the root when is_compound_file
    std::vector<Salvage_Lost_Chain> lost_chains;
    std::vector<Salvage_Directory_Copy> directories;
    // Stream records of the chosen directory that no entry stands for (an unusable record).
    uint32_t unplaced_stream_records = 0;

    // "header", "content" or "header+content".
    std::string layout() const { return sat_source_text(sat_source); }
    // The entry's path from the root, names joined by '/'.
    std::u16string path_of(std::size_t index) const;
    std::size_t stream_count() const;
    std::size_t count(Salvage_State state) const;
    // Every stream record the file holds came back whole.
    bool complete() const;
};

// Salvages the `size` bytes at `data` (the whole input file, read only). With
// `header_layout_only`, only the layout the header describes is tried: what a plain reader of
// the format would see. `file`, when given, is the same input open for reading: passes over
// every sector read it in blocks (the result is the same).
Salvage_Result salvage_bytes(const uint8_t* data, uint64_t size, bool header_layout_only = false,
                             const platform::Input_File* file = nullptr);

// The same, reading the input through `input` (the checked input view on POSIX: a file cut
// short meanwhile reads as ending early).
Salvage_Result salvage_input(const salvage::Salvage_Input& input, bool header_layout_only = false);

// Counts the streams of the file at `path` (read through the checked input view, found with every
// kind of evidence) and those that resolve under the header's own layout: the check a repaired file
// is put through. False when the file cannot be read.
bool count_resolving_streams(const std::wstring& path, std::size_t& resolved, std::size_t& streams);

// What count_resolving_streams counts in one file.
struct Stream_Count {
    bool read = false;  // false when the file cannot be read
    std::size_t resolved = 0;
    std::size_t streams = 0;
};

// A repaired file against its input: both counted, and the streams that resolve under the
// header's own layout in both, under the same path, but to other bytes (a repaired file whose
// header leads to an older copy of a table or directory still resolves its streams). One
// header-layout pass over each file serves both.
struct Repair_Comparison {
    Stream_Count input;
    Stream_Count output;
    std::size_t changed = 0;  // counted only when both files were read
};
Repair_Comparison compare_repaired(const std::wstring& input, const std::wstring& output);

// The streams directly under the root, of at most the cutoff's size, that resolve under the
// header's own layout and whose file in `folder` (named as the analysis release names it) holds
// other bytes: the release reads the MiniSAT as one run of sectors and a stream of the cutoff's
// size as a small stream, where the format chains the one and keeps the other in the SAT.
// Empty when the input cannot be read.
std::vector<std::u16string> released_with_other_bytes(const std::wstring& input,
                                                      const std::wstring& folder);

// Copies the bytes of `pieces` out of the input; missing ranges read as zeros. Nothing when a
// piece does not lie inside the input (or the file no longer holds it).
std::vector<uint8_t> salvaged_bytes(const uint8_t* data, uint64_t size,
                                    const std::vector<Salvage_Piece>& pieces);
// With `beside`, the input is read through none of its view's buffers (from a thread beside the
// one that reads through it).
std::vector<uint8_t> salvaged_bytes(const salvage::Salvage_Input& input,
                                    const std::vector<Salvage_Piece>& pieces, bool beside = false);

}  // namespace vrk
