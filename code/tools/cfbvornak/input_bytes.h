// The bytes of one input file for the commands that hand it to the salvage (list, cat, map),
// which takes the whole file as memory: the file mapped read-only, and the same file open for
// the passes that read it in blocks.
#pragma once

#include <cstdint>
#include <string>

#include "common/platform.h"

namespace vrk::cli {

class Input_Bytes {
  public:
    Input_Bytes() = default;

    // False with the system's reason when `path` cannot be read as a file. An empty file opens
    // with no bytes.
    bool open(const std::string& path, std::string& error);
    [[nodiscard]] const uint8_t* data() const { return m_mapped.data; }
    [[nodiscard]] uint64_t size() const { return m_mapped.size; }
    // The open file, or nullptr when only the map could be had.
    [[nodiscard]] const platform::Input_File* file() const {
        return m_file.is_open() ? &m_file : nullptr;
    }

  private:
    platform::Mapped_File m_mapped;
    platform::Input_File m_file;
};

}  // namespace vrk::cli
