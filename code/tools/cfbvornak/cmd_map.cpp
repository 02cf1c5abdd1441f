// cfbvornak map FILE --svg OUT / --html OUT: a picture of the file, one cell per 512-byte
// block coloured by what the file's structures say it holds, with the salvage's verdicts over
// the stream data when --salvage is given.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <iostream>
#include <memory>
#include <string>

#include "cfb_vornak/model/Cfb_File.h"
#include "cfb_vornak/salvage/Salvage.h"
#include "cli.h"
#include "common/platform.h"
#include "map_svg.h"
#include "salvage_source.h"
#include "sector_map.h"
#include "tool_common.h"

namespace vrk::cli {

namespace {

constexpr const char* kExitStatuses =
    "Exit status: 0 drawn, 2 usage error, an input that cannot be read or a picture that cannot\n"
    "be written.";

constexpr uint64_t kDefaultCells = 65536;

struct Options {
    std::string input;
    std::string svg;
    std::string html;
    bool salvage = false;
    uint64_t from = 0;
    bool from_given = false;
    uint64_t count = kDefaultCells;
    bool all = false;
};

int run_map(const Options& options) {
    if (options.svg.empty() && options.html.empty()) {
        print_error("map needs --svg OUT or --html OUT");
        return kExitUsage;
    }
    const std::string path = user_path(options.input);
    Salvage_Source source;
    std::string error;
    if (!source.open(path, error)) {
        print_error("cannot read " + options.input + ": " + error);
        return kExitUsage;
    }
    const salvage::Salvage_Input& input = source.input();
    Sector_Map map;
    bool tables_read = true;
    try {
        const std::wstring wide = platform::widen(path);
        Cfb_File file(File_Description{wide, wide, platform::to_utf8(wide)}, File_Description{});
        map = map_from_model(file, input.size());
    } catch (const std::exception& failure) {
        // The file's own tables end past its end (a truncated file, say): the cells keep no
        // structure, and the salvage shows what it still finds of the streams.
        tables_read = false;
        map = Sector_Map{};
        map.file_size = input.size();
        map.file_cells = (input.size() + layout::kSectorSize - 1) / layout::kSectorSize;
        map.cells.assign(map.file_cells, Map_Cell{});
        if (!map.cells.empty()) map.cells[0].role = Cell_Role::header;
        std::string reason = failure.what();
        while (!reason.empty() && (reason.back() == '\n' || reason.back() == ' '))
            reason.pop_back();
        print_warning("the file's own tables cannot be read (" + reason +
                      "); the stream data is drawn as the salvage finds it");
    }
    if (options.salvage || !tables_read) {
        overlay_salvage(map, salvage_input(input));
    }
    Map_Picture picture;
    picture.title = options.input;
    picture.first = options.from_given ? options.from + 1 : 0;
    if (picture.first >= map.cells.size() && !map.cells.empty()) {
        print_error("--from " + std::to_string(options.from) + " is past the last sector (" +
                    std::to_string(map.cells.size() - 2) + ")");
        return kExitUsage;
    }
    const uint64_t left = map.cells.size() - std::min<uint64_t>(picture.first, map.cells.size());
    picture.count = options.all ? left : std::min(options.count, left);

    // No picture may replace the input, by any name that reaches it.
    platform::File_Identity identity;
    const bool known = input.file() != nullptr && input.file()->identity(identity);
    for (const auto& [target, html] :
         {std::make_pair(options.svg, false), std::make_pair(options.html, true)}) {
        if (target.empty()) continue;
        if (!write_map(map, picture, html, platform::widen(user_path(target)),
                       known ? &identity : nullptr, error)) {
            print_error("cannot write " + target + ": " + error);
            return kExitUsage;
        }
        std::cout << "map of " << options.input << ": " << grouped(picture.count) << " of "
                  << grouped(map.cells.size()) << " cells into " << target << '\n';
    }
    if (picture.first + picture.count < map.cells.size()) {
        std::cout << "the picture stops before sector "
                  << grouped(picture.first + picture.count - 1)
                  << "; --from and --count choose the part, --all draws every cell\n";
    }
    return kExitOk;
}

Runner setup(CLI::App& app) {
    auto options = std::make_shared<Options>();
    app.add_option("FILE", options->input, "the compound file")->type_name("")->required();
    app.add_option("--svg", options->svg, "write the picture as SVG")->type_name("OUT");
    app.add_option("--html", options->html, "write a page holding the picture")->type_name("OUT");
    app.add_flag("--salvage", options->salvage,
                 "stream data by the salvage's verdicts, and the chains no entry claims");
    app.add_option("--from", options->from, "start at this sector (default: at the header)")
        ->type_name("SECTOR")
        ->each([options](const std::string&) { options->from_given = true; });
    app.add_option("-n,--count", options->count, "cells to draw (default 65,536)")->type_name("N");
    app.add_flag("--all", options->all, "draw every cell (whatever --count says)");
    return [options](const Context&) { return run_map(*options); };
}

const Registrar registrar(Command{"map",
                                  "draw the file: one cell per sector, coloured by what it holds "
                                  "(SVG or HTML)",
                                  kExitStatuses, true, setup});

}  // namespace

}  // namespace vrk::cli
