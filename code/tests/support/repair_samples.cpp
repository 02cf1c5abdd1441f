#include "support/repair_samples.h"

#include "support/cfb_patch.h"

namespace vrk::test {

Sample_Shape shape_with_document(const std::string& shape_name, int32_t document_kind) {
    Sample_Shape shape = make_sample_shape(shape_name);
    const char16_t* const cores[] = {u"1Table", u"Workbook", u"PowerPoint Document"};
    if (document_kind >= 0 && document_kind < 3) {
        shape.root->add_stream(cores[document_kind], random_bytes(300, 77));
    }
    shape.streams.clear();
    shape.storages.clear();
    collect_expected(*shape.root, shape.streams, shape.storages);
    return shape;
}

}  // namespace vrk::test
