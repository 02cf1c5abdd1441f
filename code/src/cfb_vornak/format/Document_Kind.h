// The kind of document a compound file holds, told by the name of its core stream.
#pragma once

#include <cstdint>

namespace vrk {

// The values are those the reports and the tool have always shown.
enum class Document_Kind : int32_t {
    word_processing = 0,  // a "0Table" or "1Table" stream
    spreadsheet = 1,      // "Workbook"
    presentation = 2,     // "PowerPoint Document"
    unknown = 3,
};

}  // namespace vrk
