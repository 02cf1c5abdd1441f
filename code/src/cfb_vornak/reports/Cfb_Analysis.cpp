#include "cfb_vornak/reports/Cfb_Analysis.h"

#include <memory>

#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/model/Tree_Release.h"
#include "cfb_vornak/reports/Cfb_Reports.h"
#include "common/platform.h"

namespace vrk {

Analysis_Summary run_cfb_analysis(const File_Description& input,
                                  const std::wstring& output_folder) {
    const std::wstring folder = with_one_trailing_separator(output_folder);
    const File_Description output{folder, folder, platform::to_utf8(folder)};
    auto file = std::make_unique<Cfb_File>(input, output);
    // A file too short to parse keeps no output description; the reports still belong in
    // the caller's folder.
    file->m_output = output;

    Analysis_Summary summary;
    summary.reports.push_back(write_header_report(*file));
    summary.reports.push_back(write_disat_report(*file));
    summary.reports.push_back(write_sat_report(*file));
    summary.reports.push_back(write_minisat_report(*file));
    summary.reports.push_back(write_directory_entry_layout_report(*file));
    summary.reports.push_back(write_cfb_directory_tree_report(*file));
    summary.reports.push_back(write_short_stream_container(*file));
    summary.release_folder = release_folder(*file);
    summary.released_streams = release_cfb_directory_tree(*file);
    file.reset();
    return summary;
}

}  // namespace vrk
