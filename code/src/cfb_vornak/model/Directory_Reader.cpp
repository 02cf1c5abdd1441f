// The directory stream: 128-byte entries, four to each 512-byte sector of its chain.
#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/model/Cfb_File_Log.h"
#include "cfb_vornak/model/Sector_Reader.h"
#include "cfb_vornak/model/Sids_Text.h"

namespace vrk {

int32_t Cfb_File::read_a_directory_entry(uint64_t offset, Directory_Entry& record) {
    // Fields are taken in file order; when the entry runs past the end of the file, the fields
    // wholly before the end are kept and the read fails at the first byte past it.
    Sector_Reader in(*m_door);
    uint8_t bytes[layout::kEntryBytesRead];
    const uint64_t have = in.available(offset, layout::kEntryBytesRead);
    in.copy_inside(offset, have, bytes);
    if (!decode_directory_entry(bytes, static_cast<std::size_t>(have), record)) {
        in.fail_past_end(offset + have);
    }
    return 0;
}

void Cfb_File::parse_directory_entrys() {
    const sid_t start = header.first_dir_sid;
    if (is_special(start) || start > max_sid) {
        return;
    }
    directory_entrys_sids_list = get_sids_list(start);
    CFB_FILE_LOG_INFO(print_sids_list(directory_entrys_sids_list));

    // The walk ends every chain with one ENDOFCHAIN of its own, which names no sector.
    const std::size_t sectors = directory_entrys_sids_list.size() - 1;
    for (std::size_t i = 0; i < sectors; ++i) {
        const sid_t sid = directory_entrys_sids_list[i];
        if (sid > max_sid) {
            break;
        }
        std::vector<Directory_Entry>& sector_entries = directory_entry_layout_dicts[sid];
        for (uint32_t slot = 0; slot < layout::kEntriesPerSector; ++slot) {
            Directory_Entry record;
            record.did = static_cast<uint32_t>(directory_entrys.size());
            read_a_directory_entry(
                uint64_t{sector_offset(sid)} + layout::kDirectoryEntrySize * slot, record);
            sector_entries.push_back(record);
            directory_entrys.push_back(record);
        }
    }
}

}  // namespace vrk
