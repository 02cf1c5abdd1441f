// Release of a parsed compound file's streams into a folder. One level only: every stream
// directly under the root becomes a file, every storage directly under the root an empty
// folder; nothing below a storage is written. A child whose name the platform would refuse
// (see Safe_Name.h) is skipped like a name the file system refused.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "cfb_vornak/format/Directory_Entry.h"
#include "cfb_vornak/format/cfb_types.h"

namespace vrk {

class Cfb_File;
class Cfb_Directory_Entry_AbstractNode;

// Chain limits of the release: ids walked after the start of a normal or a mini stream.
inline constexpr uint32_t kNormalChainLimit = 99999;
inline constexpr uint32_t kMiniChainLimit = 9999;

// output folder + "cfb_directory_tree信息分析" + separator + "原始cfb_directory_tree释放文件夹"
// + separator; empty when the object has no output folder.
std::wstring release_folder(const Cfb_File& file);

// A path record (wide path, second wide copy, UTF-8 copy) naming `path`.
File_Description path_record(const std::wstring& path);

// The native file name of an entry: its UTF-16 units up to the first zero unit (at most 32),
// unpaired surrogates replaced by U+FFFD.
std::wstring entry_file_name(const Directory_Entry& entry);

// The chain of a stream as the release walks it: start, then the table's successors until
// ENDOFCHAIN, a repeated id, an id past the table or `limit` ids after start; always closed
// with ENDOFCHAIN.
sids_list release_chain(const sids_array& table, sid_t start, uint32_t limit);

// `length` bytes at `offset` of a stream's source: the input file for a normal stream, the
// short-stream container for a mini stream.
struct Byte_Run {
    uint64_t offset = 0;
    uint64_t length = 0;
    bool operator==(const Byte_Run& other) const {
        return offset == other.offset && length == other.length;
    }
};

// What taking a stream's bytes along its chain comes to: the runs to write, no file at all, or
// a read past the end of the source, which fails as the byte-wise read of the input would.
struct Stream_Runs {
    enum class Outcome { write, no_file, read_past_end };
    Outcome outcome = Outcome::write;
    std::vector<Byte_Run> runs;
    uint64_t failing_offset = 0;  // read_past_end: the first byte of the read past the end
};

// Where the bytes of a stream of `size` bytes lie when taken along `chain`, one id at a time
// until ENDOFCHAIN or until `size` ids are taken: the smaller of the bytes still missing and
// `unit` bytes at (id + `first_unit`) * unit. Pieces that follow each other in the source are
// joined into one run, so that a stream stored in order is copied in one piece. An id that is
// another marker or not below `id_count` means no file; a piece that does not lie wholly
// inside the source's `source_size` bytes means read_past_end. The first such id decides.
void stream_runs(const sids_list& chain, uint32_t size, uint64_t unit, uint64_t first_unit,
                 uint64_t id_count, uint64_t source_size, Stream_Runs& result);

// Builds the release folder and releases the root's children into it; the number of stream
// files written. A read past the end of the input ends the release by the file layer's
// failure: the files of the streams before it stay, no later one is written.
uint32_t release_cfb_directory_tree(Cfb_File& file);

// The release of the analysis: as above, with the stream files written on two threads (see
// Release_Lanes.h) and `beside` run first on the second thread; `beside` must neither log nor
// record errors, and what it throws passes through once the release is done (the release then
// stops early). The log lines, the files and the count are those of the one-thread release,
// with one exception: when the input changes under the release so that a stream's bytes can no
// longer be read, the streams handed over after it may be logged and written too.
uint32_t release_cfb_directory_tree(Cfb_File& file, std::function<void()> beside);

// Releases the children of the root (whatever `node` is: it is not consulted) into `folder`;
// adds the number of stream files written to `released`. Returns 0.
int release_storage_children(Cfb_File& file, const Cfb_Directory_Entry_AbstractNode* node,
                             const File_Description& folder, uint32_t& released);

// Writes one stream to `target`; true when a file was written. A normal stream whose sectors
// run past the end of the input (the header's sector size is larger than the file's) fails
// with the file layer's out-of-range failure before its file is made.
[[nodiscard]] bool write_cfb_directory_entry_to_a_file(Cfb_File& file, Directory_Entry record,
                                                       const File_Description& target);

}  // namespace vrk
