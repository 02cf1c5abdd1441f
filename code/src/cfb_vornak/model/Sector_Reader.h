// Reads of the table and directory readers, through the door's checked view: a whole entry is
// checked once and decoded from the bytes the view serves. The results and the failure are
// those of the byte-wise reads: a read that runs past the end of the file fails with the door's
// out-of-range failure naming the first byte past the end.
#pragma once

#include <cstdint>

#include "file_operation/File_Anywhere_Door.h"
#include "file_operation/Input_View.h"

namespace vrk {

class Sector_Reader {
  public:
    explicit Sector_Reader(File_Anywhere_Door& door) : m_view(door.view()) {}

    // The little-endian 32-bit entry at `offset`.
    [[nodiscard]] uint32_t u32(uint64_t offset) const;
    // Decodes up to `count` entries from `offset` into `out`, those that lie wholly inside the
    // file; returns how many that is. The caller fails at the first missing one.
    [[nodiscard]] uint32_t u32_run(uint64_t offset, uint32_t count, uint32_t* out) const;
    // How many of the `length` bytes from `offset` lie inside the file.
    [[nodiscard]] uint64_t available(uint64_t offset, uint64_t length) const {
        return m_view.available(offset, length);
    }
    // Copies `length` bytes that the caller knows to lie inside the file.
    void copy_inside(uint64_t offset, uint64_t length, uint8_t* destination) const {
        m_view.copy(offset, length, destination);
    }
    // Fails as the byte-wise read of a run starting at `offset` would.
    [[noreturn]] void fail_past_end(uint64_t offset) const;

  private:
    Input_View& m_view;
};

}  // namespace vrk
