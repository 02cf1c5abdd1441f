// The header repair of a compound file (cfb_file_head_changing):
//
// 1. Probe the file again; refuse what has no root entry or no document stream.
// 2. and 3. Sort every sector into SAT, MiniSAT and DISAT sectors by its contents
//    (Repair_Sectors.h).
// 4. Rebuild the header: the sound default header with the counts and first sectors found,
//    and a header DISAT of the first 109 SAT sectors.
// 5. Give the output path the extension of the document kind.
// 6. Write the input from offset 512 on, unchanged, behind the 512-byte header: the output is
//    as long as the input. Stages 2 and 6 share one pass: each block stage 2 reads is written
//    out once its sectors are sorted, while it is still in the cache, behind a placeholder
//    for the header, which is written over the placeholder once stage 4 has rebuilt it. The
//    input itself is only read, and an output name that reaches the input (by identity, after
//    the extension rule) is refused like a failed create, before anything is written. The
//    exports create and write the output in place; the tool stages it in a temporary file
//    renamed over the name only once every byte is written.
#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <vector>

#include "cfb_vornak/entries/Cfb_Logger.h"
#include "cfb_vornak/entries/Repair_Output_Path.h"
#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/repair/Repair_Outcome.h"
#include "cfb_vornak/repair/Repair_Sectors.h"
#include "common/background_writer.h"
#include "common/byte_order.h"
#include "common/fs_utils.h"
#include "common/platform.h"
#include "file_operation/Input_Blocks.h"

namespace vrk {

namespace {

// Buffers of the sector pass: one being sorted, the rest written meanwhile.
constexpr std::size_t kPassBuffers = 4;

// Stage 1: whether the probe's result lets the repair go on.
bool probe_allows_repair(Error_Code probe, bool force) {
    if (probe == ec::kSuccess) return force;
    return probe < ec::kCannotRepair || probe == ec::kExtension;
}

// Stage 4. Every field not named here keeps its sound default, so nothing of the damaged
// header reaches the output.
void rebuild_header(Cfb_File& file) {
    const Repair_Sector_Sets& sets = *file.repair_sector_sets;
    Cfb_Header& header = file.standard_header;
    header.num_of_sat_secs = static_cast<uint32_t>(sets.found_sat_sids.size());
    uint64_t first_dir = file.max_sid;
    if (!file.scanned_directory_layout.empty()) {
        first_dir = std::min(first_dir, file.scanned_directory_layout.begin()->first);
    }
    header.first_dir_sid = static_cast<sid_t>(first_dir);
    if (!sets.found_minisat_sids.empty()) {
        header.first_minisat_sid = sets.found_minisat_sids.first();
        header.num_of_minisat_secs = static_cast<uint32_t>(sets.found_minisat_sids.size());
    }
    if (!sets.found_disat_sids.empty()) {
        header.first_disat_sid = sets.found_disat_sids.first();
        // Taken from the MiniSAT set on purpose: the repaired header has always carried it so.
        header.num_of_disat_secs = static_cast<uint32_t>(sets.found_minisat_sids.size());
    }

    const std::vector<sid_t> sat = sets.found_sat_sids.members();
    const std::size_t taken = std::min(sat.size(), Cfb_Header::kHeaderDisatCount);
    file.rebuilt_header_disat.insert(file.rebuilt_header_disat.end(), sat.begin(),
                                     sat.begin() + static_cast<std::ptrdiff_t>(taken));
    file.rebuilt_header_disat.insert(file.rebuilt_header_disat.end(),
                                     Cfb_Header::kHeaderDisatCount - taken, FREESECT);
}

// Stage 5: the output's folder exists, and all three strings name the final path.
void name_output(File_Description& output, Document_Kind document_kind) {
    const std::filesystem::path parent = platform::to_path(output.path_wstr).parent_path();
    // A folder still missing fails the output's create, which is logged and returned.
    if (!parent.empty()) (void)fs::create_directories(platform::from_path(parent));
    output.path_utf8 = platform::to_utf8(repair_final_output_path(output.path_wstr, document_kind));
    output.open_path_wstr = platform::from_utf8(output.path_utf8);
    output.path_wstr = output.open_path_wstr;
}

// Stage 6's body: the input from offset 512 to `end`, written behind a placeholder for the
// header as the pass of stage 2 hands over its blocks. Bytes that do not go on where the body
// ends (a pass that starts again lower down) are left to the final copy, as is what the pass
// never reads (the last sectors). After a failed write nothing more is written, as a copy
// stops at its first failure. The blocks are written by a thread of their own while the pass
// sorts the next ones (Background_Writer), in the order handed over, so the file is the same.
class Body_Writer {
  public:
    Body_Writer(platform::Output_File& out, uint64_t end) : m_out(out), m_end(end) {}

    void start() {
        const std::array<uint8_t, Cfb_Header::kSize> placeholder{};
        m_ok = m_out.write(placeholder.data(), placeholder.size());
    }
    void take(Background_Writer& writer, uint64_t offset, const uint8_t* bytes, std::size_t size) {
        if (!m_ok || offset > m_next) return;
        const uint64_t end = std::min<uint64_t>(offset + size, m_end);
        if (end <= m_next) return;
        writer.write(bytes + (m_next - offset), static_cast<std::size_t>(end - m_next));
        m_next = end;
    }
    // Waits for the blocks handed over to be written.
    void drain(Background_Writer& writer) { m_ok = writer.finish() && m_ok; }
    // Copies what the pass left; true when the whole body was written.
    [[nodiscard]] bool finish(const platform::Input_File& in) {
        if (!m_ok) return false;
        const uint64_t rest = m_end - m_next;
        m_ok = m_out.append_range(in, m_next, rest) == rest;
        return m_ok;
    }

  private:
    platform::Output_File& m_out;
    uint64_t m_end;
    uint64_t m_next = Cfb_Header::kSize;
    bool m_ok = false;
};

void log_open_failure(const std::wstring& path) {
    CFB_LOG_ERROR("无法打开文件！");
    CFB_LOG_ERROR(path);
}

}  // namespace

Error_Code Cfb_File::cfb_file_head_changing(const File_Description& output, bool force,
                                            Repair_Outcome* outcome, platform::Create_Mode mode) {
    const Error_Code probe = check_cfb_core(*this);
    if (!probe_allows_repair(probe, force)) return probe;

    File_Description target = output;
    name_output(target, document_kind);

    // The input is opened first: the output must never be the file it reaches, whichever name
    // (the same one, a link, one the extension rule turned back into it) leads there.
    const std::wstring& input_path =
        m_input.open_path_wstr.empty() ? m_input.path_wstr : m_input.open_path_wstr;
    platform::Input_File in;
    const bool input_open = in.open(input_path);
    platform::File_Identity input_identity;
    const bool identity_known =
        input_open ? in.identity(input_identity)
                   : platform::identity_of(input_path, platform::Link_Rule::follow, input_identity);
    platform::Output_File out;
    const platform::Create_Result created =
        out.create(target.path_wstr, mode, identity_known ? &input_identity : nullptr);
    const bool writing = created == platform::Create_Result::created && input_open;

    Body_Writer body(out, std::max<uint64_t>(file_size, Cfb_Header::kSize));
    repair_sector_sets = std::make_unique<Repair_Sector_Sets>();
    Sector_Values_Reader reader(door().view());
    {
        // The writer may hold as many blocks as the pass has buffers but one. Declared after
        // the blocks, it is gone (every block handed over written) before their buffers are,
        // also when the pass throws.
        Input_Blocks blocks(door().view(), Input_Blocks::kBlockSize, kPassBuffers);
        Background_Writer writer(out, kPassBuffers - 1);
        if (writing) {
            body.start();
            blocks.on_block_done(
                [&body, &writer](uint64_t offset, const uint8_t* bytes, std::size_t size) {
                    body.take(writer, offset, bytes, size);
                });
        }
        classify_sectors_by_markers(reader, max_sid, mini_sector_count, *repair_sector_sets,
                                    &blocks);
        blocks.finish();
        body.drain(writer);
    }
    sort_out_candidate_sectors(
        reader,
        expected_mini_chains(scanned_directory_layout, layout::kMiniStreamCutoff,
                             layout::kMiniSectorSize),
        *repair_sector_sets);

    rebuild_header(*this);

    if (outcome != nullptr) {
        outcome->document_kind = document_kind;
        outcome->header = standard_header;
        const std::size_t kept =
            std::min(rebuilt_header_disat.size(), Cfb_Header::kHeaderDisatCount);
        outcome->header_disat.assign(
            rebuilt_header_disat.begin(),
            rebuilt_header_disat.begin() + static_cast<std::ptrdiff_t>(kept));
    }
    if (created != platform::Create_Result::created) {
        if (outcome != nullptr)
            outcome->output_is_input = created == platform::Create_Result::is_input;
        log_open_failure(target.path_wstr);
        return ec::kCfbOpenFailed;
    }
    if (!input_open) {
        log_open_failure(input_path);
        return ec::kCfbOpenFailed;
    }

    const bool body_written = body.finish(in);
    const auto header = encode_header(standard_header, rebuilt_header_disat);
    const bool written = out.write_at(0, header.data(), header.size()) && body_written;
    if (mode == platform::Create_Mode::staged) {
        // Whole or not at all: a failed write leaves whatever held the name before.
        if (!written || !out.commit()) {
            CFB_LOG_ERROR(L"cannot write the repaired file " + target.path_wstr);
            return ec::kWriteFailed;
        }
    } else {
        // Write errors are not reported: the output is as complete as the disk allowed.
        (void)written;
        (void)out.close();
    }
    if (outcome != nullptr) outcome->output_path = target.path_wstr;
    return ec::kSuccess;
}

}  // namespace vrk
