// cfbvornak cat FILE STREAM-PATH: one stream's bytes, resolved as the salvage resolves it, to
// standard output or a file. Bytes the salvage could not vouch for are written as zeros and
// named in a warning.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "cfb_vornak/format/Cfb_Layout.h"
#include "cfb_vornak/salvage/Salvage.h"
#include "cli.h"
#include "common/platform.h"
#include "salvage_paths.h"
#include "salvage_source.h"
#include "tool_common.h"

namespace vrk::cli {

namespace {

constexpr const char* kExitStatuses =
    "Exit status: 0 the stream came back whole, 1 it did not (its missing bytes are written as\n"
    "zeros and named on standard error) or the file is not a compound file, 2 usage error, an\n"
    "input that cannot be read, a path that names no stream, or a failed write.";

struct Options {
    std::string input;
    std::string stream;
    std::string output;
};

// Where the stream's bytes go: standard output or a file.
class Sink {
  public:
    // Standard output for "" and "-"; a file is staged (it shows under its name only once
    // whole) and refused when its name reaches `input`.
    platform::Create_Result open(const std::string& path, const platform::File_Identity* input) {
        if (path.empty() || path == "-") return platform::Create_Result::created;
        return m_file.create(platform::widen(path), platform::Create_Mode::staged, input);
    }
    bool write(const uint8_t* data, uint64_t size) {
        // Written in pieces that fit a size_t on every platform.
        constexpr uint64_t kPiece = uint64_t{1} << 30;
        for (uint64_t done = 0; done < size;) {
            const auto n = static_cast<std::size_t>(std::min(kPiece, size - done));
            const bool ok = m_file.is_open() ? m_file.write(data + done, n)
                                             : write_standard_output(data + done, n);
            if (!ok) return false;
            done += n;
        }
        return true;
    }
    bool close() { return !m_file.is_open() || m_file.commit(); }

  private:
    platform::Output_File m_file;
};

// The stream's bytes in order: verified pieces from the input, zeros for the ranges between.
bool write_stream(const salvage::Salvage_Input& input, const Salvaged_Entry& entry, Sink& sink) {
    constexpr uint64_t kBlock = uint64_t{1} << 16;
    static const std::vector<uint8_t> zeros(kBlock, 0);
    std::vector<uint8_t> block;
    uint64_t at = 0;
    auto fill_to = [&](uint64_t end) {
        while (at < end) {
            const uint64_t n = std::min<uint64_t>(zeros.size(), end - at);
            if (!sink.write(zeros.data(), n)) return false;
            at += n;
        }
        return true;
    };
    for (const Salvage_Piece& piece : entry.pieces) {
        // Pieces lie after each other (the salvage checks it); a piece the file no longer holds
        // (cut short meanwhile) ends the stream there.
        if (piece.stream_offset < at || !fill_to(piece.stream_offset)) return false;
        for (uint64_t done = 0; done < piece.length;) {
            const uint64_t n = std::min(kBlock, piece.length - done);
            block.resize(static_cast<std::size_t>(n));
            if (!input.copy(piece.file_offset + done, n, block.data()) ||
                !sink.write(block.data(), n)) {
                return false;
            }
            done += n;
        }
        at += piece.length;
    }
    return fill_to(entry.size);
}

int run_cat(const Options& options) {
    std::vector<std::u16string> names;
    std::string error;
    if (!read_cfb_path(options.stream, names, error)) {
        print_error("bad stream path '" + options.stream + "': " + error);
        return kExitUsage;
    }
    Salvage_Source source;
    if (!source.open(user_path(options.input), error)) {
        print_error("cannot read " + options.input + ": " + error);
        return kExitUsage;
    }
    const salvage::Salvage_Input& input = source.input();
    const Salvage_Result result = salvage_input(input);
    if (!result.is_compound_file) {
        print_error(options.input + ": not a compound file (" + result.reason + ")");
        return kExitPartial;
    }
    std::size_t index = 0;
    if (!find_entry(result, names, index, error)) {
        print_error(options.input + ": " + error + " (cfbvornak list shows the paths)");
        return kExitUsage;
    }
    const Salvaged_Entry& entry = result.entries[index];
    const std::string path = display_path(result, index);
    if (entry.object_type != layout::kTypeStream) {
        print_error(options.input + ": '" + path + "' is a storage, not a stream");
        return kExitUsage;
    }
    const std::string output = options.output.empty() || options.output == "-"
                                   ? options.output
                                   : user_path(options.output);
    Sink sink;
    platform::File_Identity identity;
    const bool known = input.file() != nullptr && input.file()->identity(identity);
    const platform::Create_Result created = sink.open(output, known ? &identity : nullptr);
    if (created == platform::Create_Result::is_input) {
        print_error("refused: " + options.output + " is the input file; nothing was written");
        return kExitUsage;
    }
    if (created != platform::Create_Result::created) {
        print_error("cannot write " + options.output + ": " + platform::errno_text());
        return kExitUsage;
    }
    if (!write_stream(input, entry, sink) || !sink.close()) {
        print_error("cannot write " +
                    (output.empty() ? std::string("standard output") : options.output) + ": " +
                    platform::errno_text());
        return kExitUsage;
    }
    if (entry.state == Salvage_State::recovered) return kExitOk;
    std::string missing;
    for (const Salvage_Range& range : entry.missing) {
        missing += (missing.empty() ? "" : ", ") + std::to_string(range.offset) + "-" +
                   std::to_string(range.offset + range.length - 1);
    }
    // An inferred stream's pieces are the rebuilt run: written, but not verified.
    const uint64_t written = entry.recovered_bytes();
    const std::string what = entry.state == Salvage_State::inferred
                                 ? " bytes rebuilt from runs, not verified; "
                                 : " bytes recovered; ";
    print_warning("'" + path + "' is " + state_text(entry.state) + ": " + grouped(written) +
                  " of " + grouped(entry.size) + what + grouped(entry.size - written) +
                  " bytes not recovered, written as zeros" +
                  (missing.empty() ? std::string() : " (bytes " + missing + ")") + "; " +
                  entry.evidence);
    return kExitPartial;
}

Runner setup(CLI::App& app) {
    auto options = std::make_shared<Options>();
    app.add_option("FILE", options->input, "the compound file")->type_name("")->required();
    app.add_option("STREAM-PATH", options->stream,
                   "names from the root joined by '/', as cfbvornak list shows them (\\x05, "
                   "\\\\ and \\x2f escapes; ASCII case ignored when only one name fits)")
        ->type_name("")
        ->required();
    app.add_option("-o,--output", options->output, "write to FILE instead of standard output")
        ->type_name("FILE");
    return [options](const Context&) { return run_cat(*options); };
}

const Registrar registrar(Command{"cat", "write one stream's bytes to standard output",
                                  kExitStatuses, false, setup});

}  // namespace

}  // namespace vrk::cli
