// Files for the header repair's tests: raw sector images written slot by slot, and the builder's
// sample shapes with a document's core stream added so that the repair's probe accepts them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "cfb_vornak/format/cfb_types.h"
#include "support/sample_shapes.h"

namespace vrk::test {

// A 512-byte header of zeros and `sectors` sectors of FREESECT values; max_sid is
// sectors - 1. Sector `sid` starts at (sid + 1) * 512.
struct Raw_Image {
    explicit Raw_Image(uint32_t sectors);

    void set(sid_t sid, std::size_t slot, uint32_t value);
    // Slots 0 .. count - 1 hold first, first + 1, ...: distinct ordinary values.
    void counting(sid_t sid, uint32_t first, std::size_t count = 128);
    void zero_sector(sid_t sid);
    // A plausible directory entry in slot 0..3 of sector `sid`: the name with its zero, no
    // siblings or child.
    void put_entry(sid_t sid, uint32_t slot, const std::u16string& name, uint8_t object_type,
                   sid_t start_sid, uint32_t stream_size);
    uint64_t max_sid() const { return (bytes.size() - 512) / 512 - 1; }

    std::vector<uint8_t> bytes;
};

// The core stream names of the document kinds: 0 word processing, 1 spreadsheet,
// 2 presentation.
std::u16string core_stream_name(int32_t document_kind);

// The named sample shape with a small core stream of `document_kind` added to its root (none
// for other kinds), and its expected streams and storages recomputed.
Sample_Shape shape_with_document(const std::string& shape_name, int32_t document_kind);

}  // namespace vrk::test
