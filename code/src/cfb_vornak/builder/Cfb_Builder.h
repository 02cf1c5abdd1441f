// Writes a sound compound file from a tree of Cfb_Fs_Item nodes.
//
// The default layout (version 3, 512-byte sectors, minor version 0x003E) passes the strict
// header checks of this library: no table or directory sector is the last sector of the file
// and every count and first-sector field is below the highest whole sector id
// (((file size - 512) >> 9) - 1), so a default-built file checks as sound. Free padding sectors
// (FREESECT in the SAT) are added at the end where needed; an empty root still makes a file of
// three sectors. Sector order: an older save (when asked), SAT, DISAT, MiniSAT, directory (and
// free sectors after it, when asked), short-stream container, then each large stream; every
// table and stream is one contiguous run of sectors, chained in the SAT.
// Streams under the mini stream cutoff (4096) live in 64-byte mini sectors inside the root's
// short-stream container; empty streams start at ENDOFCHAIN; DISAT sectors appear once the SAT
// needs more than 109 sectors; the directory's sibling links form a valid red-black tree unless
// `sibling_chain` asks for one long chain. Each storage's children get consecutive directory
// ids in name order, the root is id 0. Clsid, state bits and times are copied from the items,
// the root's included.
//
// Both functions throw std::invalid_argument for a tree that cannot be written: a name longer
// than 31 UTF-16 units, two children of one storage with the same name (compared as the format
// orders names), a stream of 4 GiB or more, a major version other than 3 or 4.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "cfb_vornak/builder/Cfb_Fs_Item.h"
#include "cfb_vornak/format/cfb_types.h"
#include "common/platform.h"

namespace vrk {

// A directory record written with a broken name, as some writers leave them.
enum class Bad_Record {
    none,
    name_length,  // the name's length field says 80 bytes
    nul_in_name,  // a NUL unit inside the name, the length field unchanged
};

struct Builder_Options {
    uint16_t major_version = 3;  // 3: 512-byte sectors; 4: 4096-byte sectors
    uint16_t minor_version = 0x003E;
    bool sibling_chain = false;       // each storage's children as one long right-sibling chain
    bool tables_at_end = false;       // directory, MiniSAT, SAT and DISAT after the stream data
    bool sat_in_last_sector = false;  // a SAT sector is the file's last sector (fails the checks)

    // Layouts that real writers leave behind (outside readers list the same streams, but for
    // orphans, which no link reaches, and a bad record, whose name they read otherwise):
    // each big stream's chain and the short-stream container run on for this many zeroed
    // sectors past what their size needs (the root's size stays the mini streams' own).
    uint32_t slack_sectors = 0;
    // The root's last children in name order are left out of its sibling tree: their records
    // and their data stay, but no link reaches them.
    uint32_t orphans = 0;
    // The root's first stream child in name order gets a broken name.
    Bad_Record bad_record = Bad_Record::none;
    // An older save of the file (the bytes of a compound file with the same sector size), kept
    // right after the header: its SAT, directory and data in sectors the live SAT marks free,
    // as writers that save again leave them.
    std::vector<uint8_t> older_save;
    // Free zeroed sectors right after the directory, as writers leave them where the
    // directory once was longer.
    uint32_t free_after_directory = 0;
};

// Where the builder put everything, so tests can damage exactly one structure.
struct Build_Layout {
    uint32_t sector_size = 512;
    std::vector<sid_t> sat_sids;
    std::vector<sid_t> disat_sids;
    std::vector<sid_t> minisat_sids;
    std::vector<sid_t> directory_sids;
    std::vector<sid_t> container_sids;   // the root's short-stream container chain
    std::vector<sid_t> older_save_sids;  // the older save's sectors, all free in the live SAT
    uint32_t slack_sectors = 0;  // sectors each big stream's chain runs on for (see the options)
    struct Stream_Place {
        std::u16string path;  // names from the root joined by '/'
        uint32_t did = 0;
        bool in_mini = false;
        bool orphan = false;       // no link from the root reaches it
        bool bad_name = false;     // its record carries the broken name
        std::vector<sid_t> chain;  // sector or mini sector ids the size needs
        uint32_t size = 0;
    };
    std::vector<Stream_Place> streams;
    std::vector<std::u16string> storages;  // paths of the storages, root excluded
    uint64_t file_offset_of(sid_t sid) const {
        return (static_cast<uint64_t>(sid) + 1) * sector_size;
    }
};

// The whole file in memory. `root` is the root storage (its name is ignored: "Root Entry").
std::vector<uint8_t> build_compound_file(const Cfb_Fs_Item_DirNode& root,
                                         const Builder_Options& options = {},
                                         Build_Layout* layout = nullptr);

// Writes the built file to `path`, the stream data straight from the items (no second copy of
// the file in memory); false when the file cannot be opened or written.
[[nodiscard]] bool write_compound_file(const std::wstring& path, const Cfb_Fs_Item_DirNode& root,
                                       const Builder_Options& options = {},
                                       Build_Layout* layout = nullptr);

// Streams whose bytes live elsewhere (a mapped input, say): each stream's size, and its bytes
// handed to `out` in file order, in as many pieces as suit the source.
class Stream_Source {
  public:
    using Bytes_Out = std::function<void(const uint8_t*, std::size_t)>;
    // A run of `length` bytes of input_file() from `offset` on.
    using Range_Out = std::function<void(uint64_t, uint64_t)>;

    virtual ~Stream_Source() = default;
    virtual uint64_t size(const Cfb_Fs_Item_FileNode& item) const = 0;
    virtual void write(const Cfb_Fs_Item_FileNode& item, const Bytes_Out& out) const = 0;

    // A source whose bytes lie in a file it has open names that file, and hands the runs of it
    // to `copy` (the rest to `out`), so that the builder has the system copy them between the
    // files without passing them through memory.
    [[nodiscard]] virtual const platform::Input_File* input_file() const { return nullptr; }
    virtual void write_or_copy(const Cfb_Fs_Item_FileNode& item, const Bytes_Out& out,
                               const Range_Out& /*copy*/) const {
        write(item, out);
    }
};

// As above, every stream's size and bytes taken from `source` instead of the items' data, so
// that the file is written without holding its streams in memory.
[[nodiscard]] bool write_compound_file(const std::wstring& path, const Cfb_Fs_Item_DirNode& root,
                                       const Stream_Source& source,
                                       const Builder_Options& options = {});

class Prepared_Output;

// Where and how a built file is put in place.
struct Write_Target {
    std::wstring path;
    platform::Create_Mode mode = platform::Create_Mode::replace;
    // A path that reaches this file (the input the streams come from, say) is refused.
    const platform::File_Identity* input = nullptr;
    // The file created for this target ahead of time, used when it holds one.
    Prepared_Output* prepared = nullptr;
};

enum class Write_Result { written, is_input, failed };

// As above, into `target`: nothing is opened when its path reaches `target.input`; a staged
// target shows under its path only once every byte is written.
[[nodiscard]] Write_Result write_compound_file(const Write_Target& target,
                                               const Cfb_Fs_Item_DirNode& root,
                                               const Stream_Source& source,
                                               const Builder_Options& options = {});

}  // namespace vrk
