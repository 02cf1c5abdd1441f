// Writes the files of an extraction on two threads beside the caller, so that the system's copies
// into two files run at once while the caller creates the next ones. The caller creates every
// file (the names are its to choose) and hands each over with the pieces it is to receive. The
// folder ends up as a one-thread extraction leaves it: when a file cannot be written, it and
// every file handed over after it are removed, and the failure is the first in the order handed
// over; anything thrown while writing is thrown again on the caller. The threads neither log nor
// record errors; where no thread can be started the caller writes each file itself.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "cfb_vornak/salvage/Salvage.h"
#include "cfb_vornak/salvage/Salvage_Input.h"
#include "common/platform.h"
#include "common/writer_pool.h"

namespace vrk::salvage {

class Salvage_Writers {
  public:
    explicit Salvage_Writers(const Salvage_Input& input);

    // Hands over `out`, just created as `name` in `folder`, to receive the bytes of `pieces`
    // (the folder stays open and the pieces unchanged until finish()); `shown` names the file in
    // messages. False when a file handed over before has failed: the caller then stops and
    // calls finish(). Files handed over and not written when the object goes stay as created.
    [[nodiscard]] bool write(std::unique_ptr<platform::Output_File> out,
                             const platform::Output_Folder& folder, const std::wstring& name,
                             const std::string& shown, const std::vector<Salvage_Piece>& pieces);
    // Waits until every file handed over is written. False, with "cannot write <shown>" of the
    // first that failed, when one did; that file and those handed over after it are removed.
    [[nodiscard]] bool finish(std::string& error);

  private:
    struct Job {
        std::unique_ptr<platform::Output_File> out;
        const platform::Output_Folder* folder;
        std::wstring name;
        std::string shown;
        const std::vector<Salvage_Piece>* pieces;
    };

    // Writes one job's file and closes it; what it throws is the caller's.
    bool write_job(Job& job, Aligned_Bytes& buffer) const;

    const Salvage_Input& m_input;
    Aligned_Bytes m_buffers[3];  // each lane's
    Writer_Pool<Job> m_pool;     // last: ended before the rest goes
};

}  // namespace vrk::salvage
