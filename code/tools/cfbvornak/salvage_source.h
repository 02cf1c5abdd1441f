// The input of the commands that salvage a file (salvage, list, cat, map), read through the
// checked input view: on POSIX with positioned reads into buffers of the view's own, so that
// the file is never held whole in memory and another process cutting it short meanwhile makes
// it read as ending early, never a crash.
#pragma once

#include <memory>
#include <string>

#include "cfb_vornak/salvage/Salvage_Input.h"
#include "file_operation/Input_View.h"

namespace vrk::cli {

class Salvage_Source {
  public:
    // False with the reason when `path` cannot be read as a file. An empty file (which the view
    // does not open) is an answer, not a failure: it reads as no bytes.
    [[nodiscard]] bool open(const std::string& path, std::string& error);
    [[nodiscard]] const salvage::Salvage_Input& input() const { return *m_input; }

  private:
    Input_View m_view;
    std::unique_ptr<salvage::Salvage_Input> m_input =
        std::make_unique<salvage::Salvage_Input>(nullptr, 0, nullptr);
};

}  // namespace vrk::cli
