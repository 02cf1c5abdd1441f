// The DISAT and the SAT: which sectors hold the SAT, the SAT itself, and its chains.
#include <algorithm>
#include <string>

#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/model/Cfb_File_Log.h"
#include "cfb_vornak/model/Sector_Chains.h"
#include "cfb_vornak/model/Sector_Reader.h"
#include "common/platform.h"

namespace vrk {
void Cfb_File::parse_disat() {
    Sector_Reader in(*m_door);
    for (std::size_t i = 0; i < Cfb_Header::kHeaderDisatCount; ++i) {
        header_disat[i] = in.u32(layout::header::kHeaderDisat + 4 * i);
    }

    // The header's count bounds the walk; there is no ring test. Every sector of the file read
    // once is already more DISAT sectors than the file can hold, so a larger count (a ring
    // with a huge count) is cut there.
    const uint64_t count = header.num_of_disat_secs;
    const uint64_t limit = max_sid + 1;
    sid_t sid = header.first_disat_sid;
    uint64_t k = 0;
    for (; k < count && k < limit; ++k) {
        if (sid > max_sid) {
            return;
        }
        disat_sids.push_back(sid);
        const uint32_t base = sector_offset(sid);
        sids_array entries(layout::kDisatIdsPerSector);
        for (uint32_t i = 0; i < layout::kDisatIdsPerSector; ++i) {
            entries[i] = in.u32(uint64_t{base} + 4 * i);
        }
        disat_sector_entries.push_back(std::move(entries));
        sid = in.u32(uint64_t{base} + 4 * layout::kDisatIdsPerSector);
    }
    if (k < count && sid <= max_sid) {
        CFB_FILE_LOG_ERROR("parse_disat stopped after " + std::to_string(limit) +
                           " DISAT sectors, as many as the file has sectors; the header asks for " +
                           std::to_string(count));
    }
}

void Cfb_File::parse_sat_form_disat() {
    Sector_Reader in(*m_door);
    // Every sector of the file named twice over, plus a full header DISAT, is more SAT than
    // any file can use; a DISAT that names more (rings, repeats) is cut there.
    const uint64_t limit = 2 * (max_sid + 1) + Cfb_Header::kHeaderDisatCount;
    uint64_t sectors_read = 0;
    bool cut = false;
    // Room for the sectors the DISAT names, but never for more sectors than the file holds:
    // a table that names ids again grows as it is read.
    uint64_t named = 0;
    for (const sid_t sid : header_disat) {
        named += is_special(sid) ? 0 : 1;
    }
    for (const sids_array& entries : disat_sector_entries) {
        for (const sid_t sid : entries) {
            named += is_special(sid) ? 0 : 1;
        }
    }
    big_sids_array.reserve(
        static_cast<std::size_t>(std::min({named, limit, max_sid + 1}) * layout::kIdsPerSector));
    // Every sector named is read (or the parse ends): the room is filled, so its pages are
    // taken at once instead of one fault each.
    platform::populate_for_writing(big_sids_array.data(),
                                   big_sids_array.capacity() * sizeof(sid_t));
    // SAT sector ids are not checked against max_sid: one past the end of the file makes the
    // read fail, which ends the parse.
    auto read_sat_sector = [&](sid_t sid) {
        if (is_special(sid) || cut) {
            return;
        }
        if (sectors_read == limit) {
            cut = true;
            CFB_FILE_LOG_ERROR("parse_sat_form_disat stopped after " + std::to_string(limit) +
                               " SAT sectors, twice as many as the file has sectors");
            return;
        }
        ++sectors_read;
        const uint32_t base = sector_offset(sid);
        sid_t values[layout::kIdsPerSector];
        const uint32_t inside = in.u32_run(base, layout::kIdsPerSector, values);
        // The sector's record appears with its first entry read, as an entry-wise append makes
        // it; a sector cut by the end of the file keeps the entries before the failing one.
        if (inside > 0) {
            sat_sector_dicts.push_back(Table_Sector{sid, inside, big_sids_array.size()});
            big_sids_array.insert(big_sids_array.end(), values, values + inside);
        }
        if (inside < layout::kIdsPerSector) {
            in.fail_past_end(uint64_t{base} + 4 * inside);
        }
    };
    for (const sid_t sid : header_disat) {
        read_sat_sector(sid);
    }
    for (const sids_array& entries : disat_sector_entries) {
        for (const sid_t sid : entries) {
            read_sat_sector(sid);
        }
    }

    sat_sids_lists = extract_sector_chains(big_sids_array, [](Chain_Event event) {
        if (event == Chain_Event::ring) {
            CFB_FILE_LOG_ERROR("parse_sat_form_disat have ring~");
        } else {
            CFB_FILE_LOG_ERROR("parse_sat_form_disat error~");
        }
    });
}

sids_list Cfb_File::get_sids_list(sid_t start) const {
    return walk_sector_chain(big_sids_array, start);
}

}  // namespace vrk
