// The bytes of one input file for the commands that hand it to the salvage (list, cat, map),
// which takes the whole file as memory. The file is read through the checked input view: where
// the view holds the file in memory (the map on Windows) its bytes are used as they are;
// elsewhere the file is read once into memory this class owns, so that another process cutting
// the file short meanwhile gives a shorter copy, never a crash.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/platform.h"
#include "file_operation/Input_View.h"

namespace vrk::cli {

class Input_Bytes {
  public:
    Input_Bytes() = default;

    // False with the system's reason when `path` cannot be read as a file. An empty file opens
    // with no bytes.
    bool open(const std::string& path, std::string& error);
    [[nodiscard]] const uint8_t* data() const { return m_data; }
    [[nodiscard]] uint64_t size() const { return m_size; }
    // The open file, or nullptr when none is open.
    [[nodiscard]] const platform::Input_File* file() const {
        return m_view.file().is_open() ? &m_view.file() : nullptr;
    }

  private:
    Input_View m_view;
    std::vector<uint8_t> m_copy;
    const uint8_t* m_data = nullptr;
    uint64_t m_size = 0;
};

}  // namespace vrk::cli
