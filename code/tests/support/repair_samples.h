// The builder's sample shapes with a document's core stream added, so that the repair's probe
// accepts them.
#pragma once

#include <cstdint>
#include <string>

#include "support/cfb_patch.h"
#include "support/sample_shapes.h"

namespace vrk::test {

// The named sample shape with a small core stream added to its root: 0 word processing,
// 1 spreadsheet, 2 presentation (none for other kinds); its expected streams and storages
// recomputed.
inline Sample_Shape shape_with_document(const std::string& shape_name, int32_t document_kind) {
    Sample_Shape shape = make_sample_shape(shape_name);
    const char16_t* const cores[] = {u"1Table", u"Workbook", u"PowerPoint Document"};
    if (document_kind >= 0 && document_kind < 3)
        shape.root->add_stream(cores[document_kind], random_bytes(300, 77));
    shape.streams.clear();
    shape.storages.clear();
    collect_expected(*shape.root, shape.streams, shape.storages);
    return shape;
}

}  // namespace vrk::test
