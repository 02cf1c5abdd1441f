#include "cfb_vornak/salvage/Salvage_Writers.h"

#include <limits>
#include <utility>

namespace vrk::salvage {

namespace {

// Files handed over and not yet written, at most: each holds an open handle.
constexpr Writer_Pool_Shape kShape{2, 30, std::numeric_limits<std::size_t>::max(), false, true};

}  // namespace

Salvage_Writers::Salvage_Writers(const Salvage_Input& input)
    : m_input(input), m_pool(kShape, [this](Job& job, std::size_t lane) {
          return write_job(job, m_buffers[lane]);
      }) {}

bool Salvage_Writers::write(std::unique_ptr<platform::Output_File> out,
                            const platform::Output_Folder& folder, const std::wstring& name,
                            const std::string& shown, const std::vector<Salvage_Piece>& pieces) {
    return m_pool.add(Job{std::move(out), &folder, name, shown, &pieces});
}

bool Salvage_Writers::finish(std::string& error) {
    std::deque<Writer_Pool<Job>::Entry> jobs = m_pool.drain();
    if (jobs.empty()) return true;
    // A file whose write threw stays, as it would where the caller wrote it; the files after it
    // would never have been made.
    const std::exception_ptr thrown = jobs.front().thrown;
    for (auto it = thrown ? jobs.begin() + 1 : jobs.begin(); it != jobs.end(); ++it) {
        it->job.out.reset();
        it->job.folder->remove_file(it->job.name);
    }
    if (thrown) std::rethrow_exception(thrown);
    error = "cannot write " + jobs.front().job.shown;
    return false;
}

// Pieces that follow each other in the stream without gaps are written straight from the input
// (runs of 64 KB or more copied by the system from the input's file when it is open, the others
// read), joined where they also follow each other in the file; a stream with gaps, or one split
// into many small runs, goes through one gathered copy instead, which yields the same bytes.
bool Salvage_Writers::write_job(Job& job, Aligned_Bytes& buffer) const {
    platform::Output_File& out = *job.out;
    const std::vector<Salvage_Piece>& pieces = *job.pieces;
    const uint64_t size = m_input.size();
    const platform::Input_File* file = m_input.file();
    constexpr uint64_t kSmallRun = 64 * 1024;
    uint64_t next = 0;
    uint64_t runs = 0;
    bool gathered = false;
    for (std::size_t i = 0; i < pieces.size() && !gathered; ++i) {
        const Salvage_Piece& p = pieces[i];
        gathered =
            p.stream_offset != next || p.file_offset > size || p.length > size - p.file_offset;
        if (i == 0 || pieces[i - 1].file_offset + pieces[i - 1].length != p.file_offset) ++runs;
        next += p.length;
    }
    if (gathered || runs > 1 + next / kSmallRun) {
        const std::vector<uint8_t> bytes = salvaged_bytes(m_input, pieces, true);
        const bool written = out.write(bytes.data(), bytes.size());
        return out.close() && written;
    }
    bool ok = true;
    for (std::size_t i = 0; ok && i < pieces.size();) {
        const uint64_t start = pieces[i].file_offset;
        uint64_t length = 0;
        for (; i < pieces.size() && pieces[i].file_offset == start + length; ++i) {
            length += pieces[i].length;
        }
        // Short runs cost less as one write than as a copy between the files.
        if (file != nullptr && length >= kSmallRun) {
            ok = out.append_range(*file, start, length) == length;
        } else {
            const uint8_t* bytes =
                m_input.bytes_beside(start, static_cast<std::size_t>(length), buffer);
            ok = bytes != nullptr && out.write(bytes, static_cast<std::size_t>(length));
        }
    }
    return out.close() && ok;
}

}  // namespace vrk::salvage
