// cfbvornak sectors FILE OUTDIR: a hex dump of the file's 512-byte blocks, one text file per
// block, named so that they sort in file order and carrying the block's file offset in the
// name and on every line.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "cfb_vornak/format/Cfb_Layout.h"
#include "cli.h"
#include "common/fs_utils.h"
#include "common/platform.h"
#include "file_operation/Input_View.h"
#include "tool_common.h"

namespace vrk::cli {

namespace {

constexpr const char* kExitStatuses =
    "Exit status: 0 dumped, 2 usage error, an input that cannot be read or a dump file that\n"
    "cannot be written.";

constexpr uint64_t kBlock = layout::kSectorSize;
constexpr uint64_t kDefaultCount = 4096;

struct Options {
    std::string input;
    std::string output;
    uint64_t from = 0;
    bool from_given = false;
    uint64_t count = kDefaultCount;
    bool all = false;
};

unsigned digits_of(uint64_t value, unsigned base) {
    unsigned digits = 1;
    for (; value >= base; value /= base) ++digits;
    return digits;
}

// Widths that make every name of this file's dump the same length, so that names sort as the
// blocks lie: six digits at least.
struct Name_Widths {
    int sector = 6;
    int offset = 6;
};

// `digits` padded with zeros on the left to `width` characters.
std::string zero_padded(std::string digits, int width) {
    if (digits.size() < static_cast<std::size_t>(width)) {
        digits.insert(0, static_cast<std::size_t>(width) - digits.size(), '0');
    }
    return digits;
}

std::string hex_offset(uint64_t offset, int width) {
    char buffer[24];
    std::snprintf(buffer, sizeof buffer, "%llX", static_cast<unsigned long long>(offset));
    return "0x" + zero_padded(buffer, width);
}

// Block 0 is the header; block b >= 1 is sector b - 1 at offset b * 512.
std::string block_file_name(uint64_t block, const Name_Widths& widths) {
    const std::string at = "_at_" + hex_offset(block * kBlock, widths.offset) + ".txt";
    if (block == 0) return "header" + at;
    return "sector_" + zero_padded(std::to_string(block - 1), widths.sector) + at;
}

// The dump of one block: a heading, then 16 bytes a line with the file offset, the bytes in
// hexadecimal and the printable ASCII characters ('.' for the others).
std::string block_text(uint64_t block, const uint8_t* bytes, std::size_t size,
                       const Name_Widths& widths) {
    std::string text = block == 0 ? std::string("header") : "sector " + std::to_string(block - 1);
    text +=
        " at " + hex_offset(block * kBlock, widths.offset) + ", " + std::to_string(size) + " bytes";
    if (size < kBlock) text += " (the file ends inside this block)";
    text += "\n\n";
    char buffer[8];
    for (std::size_t row = 0; row < size; row += 16) {
        text += hex_offset(block * kBlock + row, widths.offset) + "  ";
        std::string ascii;
        for (std::size_t k = 0; k < 16; ++k) {
            if (row + k < size) {
                const uint8_t byte = bytes[row + k];
                std::snprintf(buffer, sizeof buffer, "%02X ", byte);
                text += buffer;
                ascii.push_back(byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '.');
            } else {
                text += "   ";
            }
            if (k == 7) text += ' ';
        }
        text += " |" + ascii + "|\n";
    }
    return text;
}

int run_sectors(const Options& options) {
    const std::string input = user_path(options.input);
    const std::string problem = input_problem(input);
    if (!problem.empty()) {
        print_error("cannot read " + options.input + ": " + problem);
        return kExitUsage;
    }
    Input_View view;
    const platform::Map_Step step = view.open(platform::widen(input));
    // A zero-length file opens as no view at all: it has no block to dump.
    if (step != platform::Map_Step::ok && step != platform::Map_Step::create_mapping) {
        print_error("cannot read " + options.input + ": " + platform::errno_text());
        return kExitUsage;
    }
    const uint64_t size = view.size();
    const uint64_t blocks = (size + kBlock - 1) / kBlock;
    Name_Widths widths;
    if (blocks > 1) widths.sector = std::max(6, static_cast<int>(digits_of(blocks - 2, 10)));
    widths.offset = std::max(6, static_cast<int>(digits_of(blocks * kBlock, 16)));

    if (options.from_given && options.from + 1 >= blocks) {
        print_error("--from " + std::to_string(options.from) + " is past the last sector" +
                    (blocks >= 2 ? " (" + std::to_string(blocks - 2) + ")" : std::string()));
        return kExitUsage;
    }
    const uint64_t first = options.from_given ? options.from + 1 : 0;
    const uint64_t last = options.all ? blocks : first + std::min(options.count, blocks - first);
    const std::wstring folder = platform::widen(user_path(options.output));
    try {
        (void)fs::create_directories(folder);  // a missing folder fails the first write
    } catch (const std::exception& error) {
        print_error("cannot make " + options.output + ": " + error.what());
        return kExitUsage;
    }
    // No dump file may replace the input, by any name that reaches it.
    platform::File_Identity identity;
    const bool known = view.is_open() && view.file().identity(identity);
    std::vector<uint8_t> bytes(kBlock);
    for (uint64_t block = first; block < last; ++block) {
        const auto got =
            static_cast<std::size_t>(view.read_up_to(block * kBlock, kBlock, bytes.data()));
        const std::string name = block_file_name(block, widths);
        const std::string text = block_text(block, bytes.data(), got, widths);
        platform::Output_File out;
        const std::wstring path = folder + platform::kSeparator + platform::widen(name);
        const platform::Create_Result created =
            out.create(path, platform::Create_Mode::staged, known ? &identity : nullptr);
        if (created == platform::Create_Result::is_input) {
            print_error("refused: " + platform::narrow(path) + " is the input file");
            return kExitUsage;
        }
        if (created != platform::Create_Result::created || !out.write(text.data(), text.size()) ||
            !out.commit()) {
            print_error("cannot write " + platform::narrow(path) + ": " + platform::errno_text());
            return kExitUsage;
        }
    }
    std::cout << "dumped " << grouped(last - first) << " of " << grouped(blocks) << " blocks into "
              << platform::narrow(folder) << '\n';
    if (last < blocks) {
        std::cout << "the dump stops before sector " << grouped(last - 1) << "; --from " << last - 1
                  << " goes on, --all dumps every block\n";
    }
    return kExitOk;
}

Runner setup(CLI::App& app) {
    auto options = std::make_shared<Options>();
    app.add_option("FILE", options->input, "the file to dump")->type_name("")->required();
    app.add_option("OUTDIR", options->output, "where the dump files go (created with its parents)")
        ->type_name("")
        ->required();
    app.add_option("--from", options->from, "start at this sector (default: at the header)")
        ->type_name("SECTOR")
        ->each([options](const std::string&) { options->from_given = true; });
    app.add_option("-n,--count", options->count, "blocks to dump (default 4,096)")->type_name("N");
    app.add_flag("--all", options->all,
                 "dump every block from the start on (whatever --count says)");
    return [options](const Context&) { return run_sectors(*options); };
}

const Registrar registrar(Command{"sectors",
                                  "hex dump of a file's 512-byte blocks, one text file each",
                                  kExitStatuses, false, setup});

}  // namespace

}  // namespace vrk::cli
