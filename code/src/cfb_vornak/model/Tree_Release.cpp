#include "cfb_vornak/model/Tree_Release.h"

#include <algorithm>
#include <functional>
#include <unordered_set>
#include <utility>
#include <vector>

#include "cfb_vornak/entries/Cfb_Logger.h"
#include "cfb_vornak/model/Cfb_Directory_Tree.h"
#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/model/Release_Lanes.h"
#include "cfb_vornak/model/Safe_Name.h"
#include "cfb_vornak/model/Sector_Chains.h"
#include "cfb_vornak/model/Sids_Text.h"
#include "cfb_vornak/reports/Cfb_Reports.h"
#include "common/fs_utils.h"
#include "common/platform.h"

namespace vrk {

namespace {

// What the release of many streams shares: the visit marks of the chain walks, one per table,
// and the input file opened once for the range copies.
struct Release_Scratch {
    Chain_Marks normal_marks;
    Chain_Marks mini_marks;
    platform::Input_File input;
    bool input_tried = false;
    Stream_Runs plan;  // reused: its runs keep their room from stream to stream
};

// Appends the runs of the input file to `out`, copied file to file by the system; whatever it
// does not copy (the input cannot be opened a second time, or a copy stops short) is read
// through the door in bounded blocks.
bool write_file_runs(Cfb_File& file, const std::vector<Byte_Run>& runs, platform::Output_File& out,
                     Release_Scratch& scratch) {
    constexpr uint64_t kBlock = uint64_t{1} << 20;
    if (!scratch.input_tried) {
        scratch.input_tried = true;
        scratch.input.open(file.door().path());
    }
    const platform::Input_File& input = scratch.input;
    std::vector<uint8_t> block;
    for (const Byte_Run& run : runs) {
        uint64_t done = input.is_open() ? out.append_range(input, run.offset, run.length) : 0;
        while (done < run.length) {
            const uint64_t n = std::min(kBlock, run.length - done);
            block.resize(static_cast<std::size_t>(n));
            file.door().copy_data_to_mem(run.offset + done, n, block.data());
            if (!out.write(block.data(), block.size())) {
                return false;
            }
            done += n;
        }
    }
    return true;
}

bool write_container_runs(const std::vector<uint8_t>& container, const std::vector<Byte_Run>& runs,
                          platform::Output_File& out) {
    for (const Byte_Run& run : runs) {
        if (!out.write(container.data() + run.offset, static_cast<std::size_t>(run.length))) {
            return false;
        }
    }
    return true;
}

// Makes a folder and its parents (or the folder holding a file); a refusal of the file system
// leaves it unmade, and the child is then skipped: the release goes on.
void try_create_folder(const std::wstring& folder, bool parent_of_file = false) {
    try {
        if (parent_of_file) {
            (void)fs::make_parent_folder(folder);
        } else {
            (void)fs::create_directories(folder);
        }
    } catch (const std::exception&) {
        return;
    }
}

const Cfb_Directory_Entry_DirNode* root_storage(const Cfb_File& file) {
    if (!file.cfb_directory_tree || file.cfb_directory_tree->root == nullptr ||
        !file.cfb_directory_tree->root->is_dir()) {
        return nullptr;
    }
    return static_cast<const Cfb_Directory_Entry_DirNode*>(file.cfb_directory_tree->root);
}

}  // namespace

std::wstring release_folder(const Cfb_File& file) {
    std::wstring base = report_base_folder(file);
    if (base.empty()) {
        return base;
    }
    return base + platform::from_utf8(report_names::kTreeFolder) + platform::kSeparator +
           platform::from_utf8(report_names::kReleaseFolder) + platform::kSeparator;
}

File_Description path_record(const std::wstring& path) {
    return File_Description{path, path, platform::to_utf8(path)};
}

std::wstring entry_file_name(const Directory_Entry& entry) {
    const std::u16string units = entry.name_units();
    return platform::from_utf16(units.data(), std::min<std::size_t>(units.size(), 32));
}

void stream_runs(const sids_list& chain, uint32_t size, uint64_t unit, uint64_t first_unit,
                 uint64_t id_count, uint64_t source_size, Stream_Runs& result) {
    result.outcome = Stream_Runs::Outcome::write;
    result.runs.clear();
    result.failing_offset = 0;
    uint64_t remaining = size;
    uint64_t taken = 0;
    // The chain is finite (closed by the walk's bound) and every id in it is distinct, so
    // the pieces are disjoint and their sum cannot pass the source size.
    for (const sid_t id : chain) {
        if (id == ENDOFCHAIN) {
            break;
        }
        if (is_special(id) || id >= id_count) {
            result.outcome = Stream_Runs::Outcome::no_file;
            return;
        }
        // id < 2^32 and unit <= 2^31: the offset cannot overflow.
        const uint64_t offset = (static_cast<uint64_t>(id) + first_unit) * unit;
        const uint64_t n = std::min(remaining, unit);
        if (n > 0) {
            if (offset >= source_size || n > source_size - offset) {
                // A byte-wise read fails at its first byte at or past the end.
                result.outcome = Stream_Runs::Outcome::read_past_end;
                result.failing_offset = std::max(offset, source_size);
                return;
            }
            std::vector<Byte_Run>& runs = result.runs;
            if (!runs.empty() && runs.back().offset + runs.back().length == offset) {
                runs.back().length += n;
            } else {
                runs.push_back(Byte_Run{offset, n});
            }
            remaining -= n;
        }
        if (++taken >= size) {
            break;
        }
    }
}

sids_list release_chain(const sids_array& table, sid_t start, uint32_t limit) {
    Chain_Marks marks;
    return walk_sector_chain(table, start, limit, marks);
}

namespace {

// Walks the chain of a stream, logging it, and works out its runs into `scratch.plan`; false
// when the stream gets no file. `normal` says whether the runs lie in the input file or in the
// short-stream container.
bool plan_stream(Cfb_File& file, const Directory_Entry& record, Release_Scratch& scratch,
                 bool& normal) {
    const sid_t start = record.start_sid;
    const uint32_t size = record.stream_size;
    const uint32_t cutoff = file.header.mini_stream_cutoff_size;
    normal = size > cutoff;
    // Normal ids run to the last whole 512-byte sector of the file, mini ids to the last whole
    // mini sector of the container.
    const uint64_t id_count = normal ? file.max_sid + 1 : file.mini_sectors_in_container();
    if (is_special(start) || size == 0 || start >= id_count) {
        return false;
    }
    sids_list chain;
    if (normal) {
        CFB_LOG_INFO("write_cfb_directory_entry_to_a_file file is in normal file!");
        chain =
            walk_sector_chain(file.big_sids_array, start, kNormalChainLimit, scratch.normal_marks);
    } else {
        CFB_LOG_INFO("write_cfb_directory_entry_to_a_file file is in mini file!");
        chain = walk_sector_chain(file.minisat_big_sids_array, start, kMiniChainLimit,
                                  scratch.mini_marks);
    }
    CFB_LOG_INFO("file sids_list as follow: ");
    // The chain text holds every id of the stream: made only when information lines are kept.
    if (Cfb_Logger::writes(Cfb_Logger::kInfo)) {
        CFB_LOG_INFO(print_sids_list(chain));
    }

    // Shifts come from the file: reduced mod 32 on an unsigned 32-bit value.
    const uint32_t shift = normal ? file.header.sector_shift : file.header.mini_sector_shift;
    const uint64_t unit = uint32_t{1} << (shift % 32u);
    const uint64_t source_size =
        normal ? file.door().file_size() : file.short_stream_container.size();
    stream_runs(chain, size, unit, normal ? 1 : 0, id_count, source_size, scratch.plan);
    return scratch.plan.outcome != Stream_Runs::Outcome::no_file;
}

bool write_stream(Cfb_File& file, const Directory_Entry& record, const File_Description& target,
                  Release_Scratch& scratch) {
    bool normal = false;
    if (!plan_stream(file, record, scratch, normal)) {
        return false;
    }
    const Stream_Runs& plan = scratch.plan;
    if (plan.outcome == Stream_Runs::Outcome::read_past_end) {
        // Only a normal stream gets here (whole mini sectors bound the mini ids), when the
        // header's sector size is larger than the file's: the read through the door fails.
        file.door().view().fail_at(plan.failing_offset);
    }
    const std::vector<Byte_Run>& runs = plan.runs;

    // The parent folders are made only when the file cannot be created without them: the
    // release folder made at the start holds every child, so the common case costs no look-ups.
    platform::Output_File out;
    if (!out.create(target.path_wstr)) {
        try_create_folder(target.path_wstr, true);
        if (!out.create(target.path_wstr)) {
            return false;
        }
    }
    const bool written = normal ? write_file_runs(file, runs, out, scratch)
                                : write_container_runs(file.short_stream_container, runs, out);
    return out.close() && written;
}

// Two names that the file system may take for one file (letters in another case, a short
// name holding a tilde) must not be written at once: names are compared by a key that folds
// ASCII letters and takes every other character for any other.
std::wstring name_key(const std::wstring& name) {
    std::wstring key = name;
    for (wchar_t& c : key) {
        if (c >= L'A' && c <= L'Z') {
            c = static_cast<wchar_t>(c - L'A' + L'a');
        } else if (c > 0x7F) {
            c = static_cast<wchar_t>(0xFFFF);
        }
    }
    return key;
}

// The release of the root's children with the stream files written by `lanes` (when given) in
// the order of the children: each stream is worked out (and logged) here, in turn, and handed
// over. A name that may reach a file made before, or whose short form may, waits until every
// earlier file is written; folders are made here, in turn.
void release_children(Cfb_File& file, const File_Description& folder, Release_Scratch& scratch,
                      Release_Lanes* lanes, uint32_t& released) {
    // A folder left unmade fails each child's own open, which skips it.
    (void)fs::create_directories(folder.path_wstr);
    const Cfb_Directory_Entry_DirNode* root = root_storage(file);
    if (root == nullptr) {
        return;
    }
    std::unordered_set<std::wstring> keys;
    bool past_end = false;
    for (const Cfb_Directory_Entry_AbstractNode* child : root->children) {
        if (lanes != nullptr && lanes->stopped()) {
            break;
        }
        if (child == nullptr || child->index >= file.directory_entrys.size()) {
            continue;
        }
        const Directory_Entry& record = file.directory_entrys[child->index];
        const std::wstring name = entry_file_name(record);
        if (is_refused_file_name(name)) {
            continue;
        }
        const File_Description child_path = path_record(folder.path_wstr + name);
        if (lanes == nullptr) {
            if (child->is_dir()) {
                try_create_folder(child_path.path_wstr);
            } else if (write_stream(file, record, child_path, scratch)) {
                ++released;
            }
            continue;
        }
        const bool alone =
            !keys.insert(name_key(name)).second || name.find(L'~') != std::wstring::npos;
        if (alone) {
            lanes->drain();
        }
        bool normal = false;
        if (child->is_dir()) {
            try_create_folder(child_path.path_wstr);
        } else if (plan_stream(file, record, scratch, normal)) {
            if (scratch.plan.outcome == Stream_Runs::Outcome::read_past_end) {
                past_end = true;
                break;
            }
            Release_Job job{child_path.path_wstr, scratch.plan.runs, !normal, 0};
            if (alone) {
                lanes->write_alone(std::move(job));
            } else {
                lanes->add(std::move(job));
            }
        }
    }
    if (lanes == nullptr) {
        return;
    }
    // The files handed over are written before the release fails: an earlier stream that could
    // not be read fails it first, as it would have been met first.
    lanes->drain();
    uint64_t unread_at = 0;
    if (lanes->unread(unread_at)) {
        file.door().view().fail_at(unread_at);
    }
    if (past_end) {
        file.door().view().fail_at(scratch.plan.failing_offset);
    }
}

}  // namespace

bool write_cfb_directory_entry_to_a_file(Cfb_File& file, Directory_Entry record,
                                         const File_Description& target) {
    Release_Scratch scratch;
    return write_stream(file, record, target, scratch);
}

int release_storage_children(Cfb_File& file, const Cfb_Directory_Entry_AbstractNode* /*node*/,
                             const File_Description& folder, uint32_t& released) {
    Release_Scratch scratch;
    release_children(file, folder, scratch, nullptr, released);
    return 0;
}

uint32_t release_cfb_directory_tree(Cfb_File& file) {
    const std::wstring folder = release_folder(file);
    uint32_t released = 0;
    if (folder.empty()) {
        return released;
    }
    const Cfb_Directory_Entry_AbstractNode* root =
        file.cfb_directory_tree ? file.cfb_directory_tree->root : nullptr;
    release_storage_children(file, root, path_record(folder), released);
    return released;
}

uint32_t release_cfb_directory_tree(Cfb_File& file, std::function<void()> beside) {
    Release_Scratch scratch;
    scratch.input_tried = true;
    scratch.input.open(file.door().path());
    Release_Lanes lanes(scratch.input, file.short_stream_container);
    lanes.start(std::move(beside));
    uint32_t released = 0;
    const std::wstring folder = release_folder(file);
    if (!folder.empty()) {
        // Without the input open a second time the streams are read through the door, which
        // logs its failures: they are then written here, one after the other.
        release_children(file, path_record(folder), scratch,
                         scratch.input.is_open() ? &lanes : nullptr, released);
    }
    lanes.finish();
    return released + lanes.written();
}

}  // namespace vrk
