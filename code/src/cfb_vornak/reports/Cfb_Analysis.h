// The analysis driver: parses one compound file and writes its structure reports and the
// streams under its root into an output folder.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cfb_vornak/format/cfb_types.h"

namespace vrk {

struct Analysis_Summary {
    std::vector<std::wstring> reports;  // the seven report paths, in the order written
    std::wstring release_folder;
    uint32_t released_streams = 0;
    // The release may have given a small stream other bytes than the file's own chains do: the
    // MiniSAT is read as the run of sectors from its first one where the SAT chains it
    // otherwise, or a stream has the cutoff's size (read as a small one; the format keeps it in
    // the SAT).
    bool small_streams_may_differ = false;
};

// Opens its own fully parsed Cfb_File on `input` and writes, in this order: the header,
// DISAT, SAT, MiniSAT, directory layout and directory tree reports, the short-stream
// container, then releases the root's children. Exceptions of the file layer pass through.
Analysis_Summary run_cfb_analysis(const File_Description& input, const std::wstring& output_folder);

}  // namespace vrk
