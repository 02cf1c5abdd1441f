#include "cfb_vornak/Tree_Release.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <vector>

#include "cfb_vornak/Cfb_Directory_Tree.h"
#include "cfb_vornak/Cfb_File.h"
#include "cfb_vornak/Cfb_Logger.h"
#include "cfb_vornak/Cfb_Reports.h"
#include "cfb_vornak/Safe_Name.h"
#include "cfb_vornak/Sids_Text.h"
#include "common/fs_utils.h"
#include "common/platform.h"

namespace vrk {

namespace {

// Copies up to `length` bytes of the input file at `offset`, never past its end; the number
// of bytes appended.
uint64_t append_file_bytes(Cfb_File& file, uint64_t offset, uint64_t length,
                           std::vector<uint8_t>& buffer) {
    const uint64_t size = file.door().file_size();
    if (offset >= size) {
        return 0;
    }
    const uint64_t n = std::min(length, size - offset);
    const std::size_t old_size = buffer.size();
    buffer.resize(old_size + n);
    if (const uint8_t* mapped = file.door().mapped_data()) {
        std::memcpy(buffer.data() + old_size, mapped + offset, n);
    } else {
        file.door().copy_data_to_mem(offset, n, buffer.data() + old_size);
    }
    return n;
}

uint64_t append_container_bytes(const std::vector<uint8_t>& container, uint64_t offset,
                                uint64_t length, std::vector<uint8_t>& buffer) {
    if (offset >= container.size()) {
        return 0;
    }
    const uint64_t n = std::min<uint64_t>(length, container.size() - offset);
    const auto* begin = container.data() + offset;
    buffer.insert(buffer.end(), begin, begin + n);
    return n;
}

// Makes a folder and its parents (or the folder holding a file); a refusal of the file system
// leaves it unmade, and the child is then skipped: the release goes on.
void try_create_folder(const std::wstring& folder, bool parent_of_file = false) {
    try {
        if (parent_of_file) {
            fs::make_parent_folder(folder);
        } else {
            fs::create_directories(folder);
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

sids_list release_chain(const sids_array& table, sid_t start, uint32_t limit) {
    sids_list chain{start};
    // Ids up to the table's length can be revisited; any larger id ends the walk next round.
    std::vector<bool> seen(table.size() + 1, false);
    if (start <= table.size()) {
        seen[start] = true;
    }
    for (uint32_t added = 0;; ++added) {
        const sid_t current = chain.back();
        // An id equal to the table's length has no entry to read: the walk ends there too.
        if (current >= table.size() || added == limit) {
            break;
        }
        const sid_t next = table[current];
        if (next == ENDOFCHAIN || (next <= table.size() && seen[next])) {
            break;
        }
        chain.push_back(next);
        if (next <= table.size()) {
            seen[next] = true;
        }
    }
    chain.push_back(ENDOFCHAIN);
    return chain;
}

bool write_cfb_directory_entry_to_a_file(Cfb_File& file, Directory_Entry record,
                                         const File_Description& target) {
    const sid_t start = record.start_sid;
    const uint32_t size = record.stream_size;
    const uint32_t cutoff = file.header.mini_stream_cutoff_size;
    const bool normal = size > cutoff;
    const uint64_t last_id = normal ? file.max_sid : file.max_mini_sid();
    if (is_special(start) || size == 0 || start > last_id) {
        return false;
    }
    sids_list chain;
    if (normal) {
        CFB_LOG_INFO("write_cfb_directory_entry_to_a_file file is in normal file!");
        chain = release_chain(file.big_sids_array, start, kNormalChainLimit);
    } else {
        CFB_LOG_INFO("write_cfb_directory_entry_to_a_file file is in mini file!");
        chain = release_chain(file.minisat_big_sids_array, start, kMiniChainLimit);
    }
    CFB_LOG_INFO("file sids_list as follow: ");
    CFB_LOG_INFO(print_sids_list(chain));

    // Shifts come from the file: reduced mod 32 on an unsigned 32-bit value.
    const uint32_t shift = normal ? file.header.sector_shift : file.header.mini_sector_shift;
    const uint64_t unit = uint32_t{1} << (shift % 32u);
    std::vector<uint8_t> buffer;
    uint64_t remaining = size;
    uint64_t taken = 0;
    // The chain is finite and every id is visited once; the sum of the reads cannot pass the
    // file (or container) size, because distinct ids name disjoint ranges.
    for (const sid_t id : chain) {
        if (id == ENDOFCHAIN) {
            break;
        }
        if (is_special(id) || id > last_id) {
            return false;
        }
        const uint64_t n = std::min(remaining, unit);
        if (normal) {
            remaining -= append_file_bytes(file, (static_cast<uint64_t>(id) + 1) * unit, n, buffer);
        } else {
            remaining -= append_container_bytes(file.short_stream_container,
                                                static_cast<uint64_t>(id) * unit, n, buffer);
        }
        if (++taken >= size) {
            break;
        }
    }

    try_create_folder(target.path_wstr, true);
    std::ofstream out(platform::to_path(target.path_wstr), std::ios::binary | std::ios::trunc);
    if (!out.is_open()) {
        return false;
    }
    out.write(reinterpret_cast<const char*>(buffer.data()),
              static_cast<std::streamsize>(buffer.size()));
    return static_cast<bool>(out);
}

int release_storage_children(Cfb_File& file, const Cfb_Directory_Entry_AbstractNode* /*node*/,
                             const File_Description& folder, uint32_t& released) {
    fs::create_directories(folder.path_wstr);
    const Cfb_Directory_Entry_DirNode* root = root_storage(file);
    if (root == nullptr) {
        return 0;
    }
    for (const Cfb_Directory_Entry_AbstractNode* child : root->children) {
        if (child == nullptr || child->index >= file.directory_entrys.size()) {
            continue;
        }
        const Directory_Entry& record = file.directory_entrys[child->index];
        const std::wstring name = entry_file_name(record);
        if (is_refused_file_name(name)) {
            continue;
        }
        const File_Description child_path = path_record(folder.path_wstr + name);
        if (child->is_dir()) {
            try_create_folder(child_path.path_wstr);
        } else if (write_cfb_directory_entry_to_a_file(file, record, child_path)) {
            ++released;
        }
    }
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

}  // namespace vrk
