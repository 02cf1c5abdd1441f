// A staged output file created before its content is known, with its space set aside on a
// thread beside the caller while the caller works out what to write. On file systems that
// allocate pages as they are written (tmpfs), the write that follows then costs about half.
// Only a staged file is created early, so nothing shows under the output's name before the
// file is whole; an unused one is removed. Where the file cannot be created early, or the
// space cannot be set aside, the write goes on exactly as without it.
#pragma once

#include <atomic>
#include <cstdint>

#include "cfb_vornak/builder/Cfb_Builder.h"
#include "common/beside_thread.h"
#include "common/platform.h"

namespace vrk {

class Prepared_Output {
  public:
    // Creates `target` (staged targets only) and starts setting aside `expected` bytes, when the
    // volume keeps at least as much free beyond them.
    Prepared_Output(const Write_Target& target, uint64_t expected);
    ~Prepared_Output() { (void)stop(); }
    Prepared_Output(const Prepared_Output&) = delete;
    Prepared_Output& operator=(const Prepared_Output&) = delete;

    // Stops setting space aside and hands over the created file; null when there is none.
    [[nodiscard]] platform::Output_File* file();

  private:
    [[nodiscard]] bool stop();

    platform::Output_File m_file;
    bool m_created = false;
    std::atomic<bool> m_stop{false};
    Beside_Thread m_thread;  // last: joined before the file it fills goes
};

}  // namespace vrk
