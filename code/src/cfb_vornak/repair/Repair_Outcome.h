// What a header repair wrote, for callers inside the project (the command-line tool) that
// want the result itself rather than what the thread's error records and the log say. The
// exports pass none.
#pragma once

#include <cstdint>
#include <string>

#include "cfb_vornak/format/Cfb_Header.h"
#include "cfb_vornak/format/Document_Kind.h"
#include "cfb_vornak/format/cfb_types.h"

namespace vrk {

struct Repair_Outcome {
    std::wstring output_path;  // the final path written (extension of the kind); empty if none
    Document_Kind document_kind = Document_Kind::unknown;
    bool output_is_input = false;  // refused: the final path reaches the input file itself
    Cfb_Header header;             // the rebuilt header's fields, as written
    sids_array header_disat;       // its 109 DISAT entries
};

}  // namespace vrk
