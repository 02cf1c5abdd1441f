// The builder's sample shapes with a document's core stream added, so that the repair's probe
// accepts them.
#pragma once

#include <cstdint>
#include <string>

#include "support/sample_shapes.h"

namespace vrk::test {

// The named sample shape with a small core stream added to its root: 0 word processing,
// 1 spreadsheet, 2 presentation (none for other kinds); its expected streams and storages
// recomputed.
Sample_Shape shape_with_document(const std::string& shape_name, int32_t document_kind);

}  // namespace vrk::test
