// The MiniSAT, its chains, and the short-stream container that holds the mini sectors.
#include <algorithm>
#include <string>

#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/model/Cfb_File_Log.h"
#include "cfb_vornak/model/Sector_Chains.h"
#include "cfb_vornak/model/Sector_Reader.h"
#include "cfb_vornak/model/Sids_Text.h"

namespace vrk {
namespace {

constexpr uint32_t kNoContainer = 0xFFFFFFFFu;

// A unit size from a header shift; the shift is reduced so that any value is defined.
uint32_t unit_size(uint16_t shift) {
    return uint32_t{1} << (shift % 32u);
}

}  // namespace

void Cfb_File::parse_minisat() {
    const sid_t first = header.first_minisat_sid;
    if (is_special(first) || first > max_sid) {
        return;
    }
    // The MiniSAT is read as one run of sectors from `first`, not along its SAT chain; the run
    // ends at the last whole sector of the file.
    Sector_Reader in(*m_door);
    const uint64_t count = header.num_of_minisat_secs;
    // The run never passes the file's last sector, which bounds the room set aside.
    const uint64_t run = std::min(count, max_sid + 1 - first);
    minisat_big_sids_array.reserve(static_cast<std::size_t>(run * layout::kIdsPerSector));
    for (uint64_t i = 0; i < run; ++i) {
        const sid_t sid = static_cast<sid_t>(first + i);
        const uint32_t base = sector_offset(sid);
        sid_t values[layout::kIdsPerSector];
        const uint32_t inside = in.u32_run(base, layout::kIdsPerSector, values);
        // Every sector of the run has its record, even one of which no entry could be read; a
        // sector cut by the end of the file keeps the entries before the failing one.
        minisat_sector_dicts.push_back(Table_Sector{sid, inside, minisat_big_sids_array.size()});
        minisat_big_sids_array.insert(minisat_big_sids_array.end(), values, values + inside);
        if (inside < layout::kIdsPerSector) {
            in.fail_past_end(uint64_t{base} + 4 * inside);
        }
    }

    minisat_sids_lists = extract_sector_chains(minisat_big_sids_array, [](Chain_Event event) {
        if (event == Chain_Event::ring) {
            CFB_FILE_LOG_ERROR("parse_sat_form_disat have ring~");
        } else {
            CFB_FILE_LOG_ERROR("parse_sat_form_disat error~");
        }
    });
}

uint32_t Cfb_File::extract_cfb_short_stream_container(const Directory_Entry& root) {
    if (root.object_type != layout::kTypeRootStorage) {
        return kNoContainer;
    }
    const sid_t start = root.start_sid;
    const uint32_t size = root.stream_size;
    if (is_special(start) || start > max_sid) {
        return kNoContainer;
    }
    CFB_FILE_LOG_INFO("extract_cfb_short_stream_container file is in mini file!");
    const sids_list chain = get_sids_list(start);
    CFB_FILE_LOG_INFO("file sids_list as follow: ");
    CFB_FILE_LOG_INFO(print_sids_list(chain));

    // Unlike the table readers, the container follows the header's sector size.
    Sector_Reader in(*m_door);
    const uint32_t sector_size = unit_size(header.sector_shift);
    short_stream_container.clear();
    short_stream_container.reserve(static_cast<std::size_t>(std::min<uint64_t>(size, file_size)));
    uint32_t remaining = size;
    // The index runs against the byte size, but the chain's own ENDOFCHAIN ends it first.
    for (std::size_t i = 0; i < chain.size() && i < size; ++i) {
        const sid_t sid = chain[i];
        if (sid == ENDOFCHAIN) {
            break;
        }
        if (sid == FREESECT || sid == FATSECT || sid == DIFSECT || sid > max_sid) {
            short_stream_container.clear();
            return kNoContainer;
        }
        uint64_t length = std::min(sector_size, remaining);
        // With a large sector shift, wrapped offsets can name the same bytes again and again;
        // the container never grows past the size of the file.
        const uint64_t room =
            file_size - std::min<uint64_t>(short_stream_container.size(), file_size);
        const bool cut = length > room;
        if (cut) {
            length = room;
        }
        const uint64_t offset = static_cast<uint32_t>((sid + 1u) * sector_size);
        if (in.available(offset, length) != length) {
            in.fail_past_end(offset);
        }
        const std::size_t old_size = short_stream_container.size();
        short_stream_container.resize(old_size + static_cast<std::size_t>(length));
        in.copy_inside(offset, length, short_stream_container.data() + old_size);
        remaining -= static_cast<uint32_t>(length);
        if (cut) {
            CFB_FILE_LOG_ERROR("extract_cfb_short_stream_container stopped at sector " +
                               std::to_string(sid) + ": the container would outgrow the file (" +
                               std::to_string(file_size) + " bytes)");
            break;
        }
    }
    mini_sector_count = size >> (header.mini_sector_shift % 32u);
    return 0;
}

uint64_t Cfb_File::mini_sectors_in_container() const {
    return short_stream_container.size() / unit_size(header.mini_sector_shift);
}

}  // namespace vrk
