#include "cfb_vornak/reports/Cfb_Analysis.h"

#include <memory>

#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/model/Tree_Release.h"
#include "cfb_vornak/reports/Cfb_Reports.h"
#include "common/platform.h"

namespace vrk {

namespace {

bool small_streams_may_differ(const Cfb_File& file) {
    const Cfb_Header& header = file.header;
    for (const Directory_Entry& entry : file.directory_entrys) {
        if (entry.object_type == 2 && entry.stream_size == header.mini_stream_cutoff_size) {
            return true;
        }
    }
    const sids_array& sat = file.big_sids_array;
    sid_t sid = header.first_minisat_sid;
    // Each step moves to the next sector id inside the SAT, so the walk ends within its size.
    for (uint32_t k = 1; k < header.num_of_minisat_secs && k <= sat.size(); ++k, ++sid) {
        if (sid >= sat.size() || sat[sid] != sid + 1) return true;
    }
    return false;
}

}  // namespace

Analysis_Summary run_cfb_analysis(const File_Description& input,
                                  const std::wstring& output_folder) {
    const std::wstring folder = with_one_trailing_separator(output_folder);
    const File_Description output{folder, folder, platform::to_utf8(folder)};
    auto file = std::make_unique<Cfb_File>(input, output);
    // A file too short to parse keeps no output description; the reports still belong in
    // the caller's folder.
    file->m_output = output;

    // The tree report logs what it finds wrong in the tree, so it is written here, before the
    // release logs its streams; the other reports log nothing and are written on the release's
    // second thread while this one works out the streams.
    Analysis_Summary summary;
    summary.reports.resize(7);
    summary.reports[5] = write_cfb_directory_tree_report(*file);
    const auto other_reports = [&summary, &file] {
        summary.reports[0] = write_header_report(*file);
        summary.reports[1] = write_disat_report(*file);
        summary.reports[2] = write_sat_report(*file);
        summary.reports[3] = write_minisat_report(*file);
        summary.reports[4] = write_directory_entry_layout_report(*file);
        summary.reports[6] = write_short_stream_container(*file);
    };
    summary.release_folder = release_folder(*file);
    summary.released_streams = release_cfb_directory_tree(*file, other_reports);
    summary.small_streams_may_differ = small_streams_may_differ(*file);
    file.reset();
    return summary;
}

}  // namespace vrk
