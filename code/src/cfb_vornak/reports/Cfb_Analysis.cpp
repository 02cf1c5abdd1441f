#include "cfb_vornak/reports/Cfb_Analysis.h"

#include <map>
#include <memory>
#include <mutex>

#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/model/Tree_Release.h"
#include "cfb_vornak/reports/Cfb_Reports.h"
#include "common/platform.h"

namespace vrk {

namespace {

// Kept per thread id rather than in a thread_local: a thread_local with a destructor is
// torn down unreliably at thread exit in the statically linked Windows build.
std::mutex g_summary_mutex;
std::map<uint32_t, Analysis_Summary> g_last_summary;

void remember_summary(const Analysis_Summary& summary) {
    const std::lock_guard<std::mutex> lock(g_summary_mutex);
    g_last_summary[platform::current_thread_id()] = summary;
}

}  // namespace

Analysis_Summary run_cfb_analysis(const File_Description& input,
                                  const std::wstring& output_folder) {
    remember_summary(Analysis_Summary{});
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
    remember_summary(summary);
    return summary;
}

Analysis_Summary last_analysis_summary() {
    const std::lock_guard<std::mutex> lock(g_summary_mutex);
    const auto found = g_last_summary.find(platform::current_thread_id());
    return found == g_last_summary.end() ? Analysis_Summary{} : found->second;
}

}  // namespace vrk
