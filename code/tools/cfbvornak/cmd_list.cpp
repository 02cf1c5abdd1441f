// cfbvornak list FILE: the directory tree as the salvage recovers it, one line per entry: type,
// size, first sector, whether the stream's bytes came back whole, times, class id, state bits
// and the path (the form cat accepts).
#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "cfb_vornak/format/Cfb_Layout.h"
#include "cfb_vornak/format/Entry_Fields.h"
#include "cfb_vornak/salvage/Salvage.h"
#include "cli.h"
#include "json_text.h"
#include "salvage_paths.h"
#include "salvage_source.h"
#include "tool_common.h"

namespace vrk::cli {

namespace {

constexpr const char* kExitStatuses =
    "Exit status: 0 listed (whatever the streams' states), 1 not a compound file, 2 usage error\n"
    "or an input that cannot be read.";

struct Options {
    std::string input;
    bool json = false;
};

const char* type_text(const Salvaged_Entry& entry) {
    switch (entry.object_type) {
        case layout::kTypeStorage:
            return "storage";
        case layout::kTypeStream:
            return "stream";
        case layout::kTypeRootStorage:
            return "root";
        default:
            return "unknown";
    }
}

// A time for the listing: ISO 8601, "" when none was recorded, the raw ticks in hexadecimal
// when they lie past the year 9999.
std::string time_text(const std::array<uint8_t, 8>& filetime) {
    std::string text;
    if (filetime_text(filetime, text)) return text;
    char buffer[24];
    std::snprintf(buffer, sizeof buffer, "0x%02X%02X%02X%02X%02X%02X%02X%02X", filetime[7],
                  filetime[6], filetime[5], filetime[4], filetime[3], filetime[2], filetime[1],
                  filetime[0]);
    return buffer;
}

std::string start_text(const Salvaged_Entry& entry) {
    // A stream without bytes has no first sector.
    if (is_special(entry.start) || (entry.object_type == layout::kTypeStream && entry.size == 0))
        return "-";
    return std::to_string(entry.start);
}

std::string padded(const std::string& text, std::size_t width, bool right) {
    if (text.size() >= width) return text;
    const std::string blanks(width - text.size(), ' ');
    return right ? blanks + text : text + blanks;
}

std::string or_dash(const std::string& text) {
    return text.empty() ? "-" : text;
}

std::string counted(std::size_t n, const char* one, const char* many) {
    return grouped(n) + " " + (n == 1 ? one : many);
}

// A table whose columns are as wide as their widest cell; the path comes last, whatever it
// holds.
void print_text(const std::string& shown, const Salvage_Result& result) {
    const std::size_t streams = result.stream_count();
    std::cout << shown << ": " << counted(streams, "stream", "streams") << ", "
              << counted(result.entries.size() - streams - 1, "storage", "storages") << "; "
              << result.sector_size << "-byte sectors, layout from " << result.layout() << "\n";
    constexpr std::size_t kColumns = 9;
    const std::array<bool, kColumns> right = {false, true,  true,  false, false,
                                              false, false, false, false};
    std::vector<std::array<std::string, kColumns>> rows;
    rows.push_back(
        {"type", "size", "start", "state", "modified", "created", "clsid", "bits", "path"});
    for (const std::size_t i : tree_order(result)) {
        const Salvaged_Entry& entry = result.entries[i];
        char bits[16];
        std::snprintf(bits, sizeof bits, "0x%08X",
                      static_cast<unsigned>(state_bits_value(entry.state_bits)));
        const bool storage = entry.object_type == layout::kTypeStorage;
        rows.push_back({type_text(entry), storage ? "-" : grouped(entry.size),
                        storage ? "-" : start_text(entry),
                        entry.object_type == layout::kTypeStream ? state_text(entry.state) : "-",
                        or_dash(time_text(entry.modified_time)),
                        or_dash(time_text(entry.creation_time)),
                        clsid_is_null(entry.clsid) ? "-" : clsid_text(entry.clsid), bits,
                        i == 0 ? "/" : display_path(result, i)});
    }
    std::array<std::size_t, kColumns> widths{};
    for (const auto& row : rows) {
        for (std::size_t c = 0; c < kColumns; ++c) widths[c] = std::max(widths[c], row[c].size());
    }
    for (const auto& row : rows) {
        std::string line;
        for (std::size_t c = 0; c + 1 < kColumns; ++c)
            line += padded(row[c], widths[c], right[c]) + "  ";
        std::cout << line << row[kColumns - 1] << '\n';
    }
}

std::string json_time(const std::array<uint8_t, 8>& filetime) {
    const std::string text = time_text(filetime);
    return text.empty() ? "null" : json_bytes(text);
}

void print_json(const std::string& shown, const Salvage_Result& result) {
    std::vector<std::string> entries;
    for (const std::size_t i : tree_order(result)) {
        const Salvaged_Entry& entry = result.entries[i];
        Json_Object object;
        object.text("path", display_path(result, i))
            .raw("name", json_utf16(entry.name))
            .text("type", type_text(entry))
            .unsigned_number("did", entry.did)
            .unsigned_number("size", entry.size)
            .raw("start_sector", is_special(entry.start) ? "null" : std::to_string(entry.start))
            .raw("state", entry.object_type == layout::kTypeStream
                              ? json_bytes(state_text(entry.state))
                              : "null")
            .raw("clsid", clsid_is_null(entry.clsid) ? "null" : json_bytes(clsid_text(entry.clsid)))
            .raw("created", json_time(entry.creation_time))
            .raw("modified", json_time(entry.modified_time))
            .unsigned_number("state_bits", state_bits_value(entry.state_bits));
        entries.push_back(object.str());
    }
    std::cout << Json_Object()
                     .text("file", shown)
                     .boolean("compound_file", result.is_compound_file)
                     .unsigned_number("sector_size", result.sector_size)
                     .text("layout", result.layout())
                     .raw("entries", json_array(entries))
                     .str()
              << '\n';
}

int run_list(const Options& options) {
    Salvage_Source source;
    std::string error;
    if (!source.open(user_path(options.input), error)) {
        print_error("cannot read " + options.input + ": " + error);
        return kExitUsage;
    }
    const Salvage_Result result = salvage_input(source.input());
    if (!result.is_compound_file) {
        if (options.json) {
            std::cout << Json_Object()
                             .text("file", options.input)
                             .boolean("compound_file", false)
                             .raw("entries", "[]")
                             .str()
                      << '\n';
        }
        print_error(options.input + ": not a compound file (" + result.reason + ")");
        return kExitPartial;
    }
    if (options.json) {
        print_json(options.input, result);
    } else {
        print_text(options.input, result);
    }
    return kExitOk;
}

Runner setup(CLI::App& app) {
    auto options = std::make_shared<Options>();
    app.add_option("FILE", options->input, "the compound file")->type_name("")->required();
    app.add_flag("--json", options->json, "the listing as one JSON object");
    return [options](const Context&) { return run_list(*options); };
}

const Registrar registrar(Command{"list",
                                  "the storages and streams of a file: sizes, first sectors, "
                                  "states, times, class ids",
                                  kExitStatuses, false, setup});

}  // namespace

}  // namespace vrk::cli
