// The cfbvornak commands run as the built tool (beside this test's executable): exit statuses,
// standard output and error, and the files they write. Inputs come from the builder with byte
// patches.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "cfb_vornak/builder/Cfb_Builder.h"
#include "common/platform.h"
#include "support/cfb_patch.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

namespace fs = std::filesystem;

struct Tool_Run {
    int status = -1;
    std::string out;
    std::string err;
};

// Runs the tool with `args`; `extra` is appended to the shell line (a redirection, say).
Tool_Run tool(const std::vector<std::string>& args, const std::string& extra = "") {
    const fs::path here = fs::current_path();
    std::string line = test::tool_line(args) + " " + extra;
    if (extra.find('>') == std::string::npos)
        line += " > " + test::quote(test::narrow(here / "out"));
    fs::remove(here / "out");
    const int status = test::run_shell(line + " 2> " + test::quote(test::narrow(here / "err")));
    return {status, test::read_file(here / "out"), test::read_file(here / "err")};
}

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::string bytes_of(std::size_t n, uint64_t seed) {
    const std::vector<uint8_t> bytes = test::random_bytes(n, seed);
    return {bytes.begin(), bytes.end()};
}

Cfb_Fs_Item_DirNode document() {
    Cfb_Fs_Item_DirNode root;
    // {00020906-0000-0000-C000-000000000046} as the format stores it; 2023-05-01T12:34:56.1234567Z
    // and 1999-12-31T23:59:59Z as FILETIME bytes.
    root.clsid = {6, 9, 2, 0, 0, 0, 0, 0, 0xC0, 0, 0, 0, 0, 0, 0, 0x46};
    root.modified_time = {135, 238, 236, 85, 41, 124, 217, 1};
    root.add_stream(u"WordDocument", test::random_bytes(9000, 1)).creation_time = {
        128, 169, 212, 36, 235, 83, 191, 1};
    root.add_stream(u"1Table", test::random_bytes(700, 6));
    root.add_stream(u"\x05SummaryInformation", test::random_bytes(400, 2));
    root.add_stream(u"Data", test::random_bytes(6000, 3)).state_bits = {0x78, 0x56, 0x34, 0x12};
    Cfb_Fs_Item_DirNode& pool = root.add_storage(u"ObjectPool");
    pool.add_stream(u"\001CompObj", test::random_bytes(100, 4));
    pool.add_stream(u"a/b\\c", test::random_bytes(5000, 5));
    return root;
}

// The sample files every test reads, written once: a sound document, one whose header carries a
// deviation the strict check refuses (minor version 0x003B), one whose header is sound but a
// stream's chain is cut after its second sector, one with its header zeroed, one with a SAT
// sector last (as gsf writes them: a rebuilt header leaves it out, and no stream resolves any
// more), one saved over an older save of other bytes, one with a stream of the cutoff's size,
// and a batch folder.
struct Samples {
    test::Temp_Folder folder{"tool"};
    Build_Layout layout;
    std::vector<uint8_t> sound = build_compound_file(document(), {}, &layout);
    Samples() {
        std::map<std::string, std::vector<uint8_t>> files{{"sound.doc", sound},
                                                          {"cosmetic.doc", sound},
                                                          {"cut.doc", sound},
                                                          {"zeroed.doc", sound}};
        test::patch_u16(files["cosmetic.doc"], test::offsets::kMinorVersion, 0x003B);
        const sid_t second = test::stream_place(layout, u"WordDocument").chain[1];
        test::patch_u32(files["cut.doc"], test::sat_entry_offset(layout, second), FREESECT);
        test::zero_range(files["zeroed.doc"], 0, 512);
        Builder_Options options;
        options.tables_at_end = options.sat_in_last_sector = true;
        files["late.doc"] = build_compound_file(document(), options);
        Cfb_Fs_Item_DirNode earlier;
        earlier.add_stream(u"WordDocument", test::random_bytes(9000, 7));
        earlier.add_stream(u"1Table", test::random_bytes(700, 8));
        earlier.add_stream(u"\x05SummaryInformation", test::random_bytes(400, 2));
        earlier.add_stream(u"Data", test::random_bytes(6000, 3));
        Cfb_Fs_Item_DirNode& pool = earlier.add_storage(u"ObjectPool");
        pool.add_stream(u"\001CompObj", test::random_bytes(100, 4));
        pool.add_stream(u"a/b\\c", test::random_bytes(5000, 5));
        Builder_Options saved_again;
        saved_again.older_save = build_compound_file(earlier);
        files["older.doc"] = build_compound_file(document(), saved_again);
        Cfb_Fs_Item_DirNode at_cutoff;
        at_cutoff.add_stream(u"WordDocument", test::random_bytes(4096, 9));
        at_cutoff.add_stream(u"1Table", test::random_bytes(700, 6));
        files["cutoff.doc"] = build_compound_file(at_cutoff);
        files["batch/a.doc"] = sound;
        files["batch/sub/b.doc"] = files["cut.doc"];
        for (const auto& [name, bytes] : files)
            test::write_file(folder / name, std::string(bytes.begin(), bytes.end()));
        test::write_file(folder / "batch" / "sub" / "junk.txt", "not a compound file");
    }
};

const Samples& samples() {
    static const Samples written;
    return written;
}

fs::path path(const std::string& name) {
    return samples().folder / name;
}

std::string file(const std::string& name) {
    return test::narrow(path(name));
}

std::vector<std::string> split(const std::string& text, char at) {
    std::vector<std::string> parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, at);) parts.push_back(part);
    return parts;
}

// A command line ("@name" names a sample file), its exit status, and parts that standard output
// ("2>part": error) must hold ('|' between parts; "!part": must not hold it). JSON output is
// parsed.
struct Row {
    const char* args;
    int status;
    const char* parts;
};

TEST(ToolTest, CommandsAnswerWithStatusAndText) {
    const Row rows[] = {
        {"--version", 0, "cfbvornak " CFB_PROJECT_VERSION},
        {"", 2, "2>Usage: cfbvornak"},
        {"chek @sound.doc", 2, "2>did you mean 'check'?"},
        {"check @sound.doc", 0, "SOUND|type 0|all 6 streams readable"},
        {"check @cosmetic.doc", 1, "DAMAGED result -3108|type 60|all 6 streams readable"},
        {"check --readable @cosmetic.doc", 0, "readable"},
        {"check @cut.doc", 0, "SOUND|1 of 6 streams unreadable"},
        {"check @batch/sub/junk.txt", 1, "type 76|no streams found"},
        {"--lang en check @zeroed.doc", 1, "type 59 (header signature wrong)|!文件"},
        {"check @zeroed.doc --lang zh", 1, "文件头部魔数错误~"},
        {"check --json -r @batch -j 0", 1,
         "a.doc\"|b.doc\"|\"summary\":{\"files\":3,\"sound\":2,\"damaged\":1,\"unreadable\":0|"
         "\"readable_streams\":5,\"readable\":false"},
        {"check -r @batch -j 2", 1,
         "a.doc: SOUND|b.doc: SOUND|totals: 3 files: 2 sound, 1 damaged, 0 unreadable|2>!files/s"},
        {"list --json @sound.doc", 0,
         "\"name\":\"\\u0005SummaryInformation\"|\"path\":\"ObjectPool/a\\\\x2fb\\\\\\\\c\","
         "\"name\":\"a/b\\\\c\""},
        {"list @sound.doc", 0,
         "{00020906-0000-0000-C000-000000000046}|2023-05-01T12:34:56.1234567Z|1999-12-31T23:59:"
         "59Z|0x12345678|\\x05SummaryInformation|ObjectPool/\\x01CompObj|ObjectPool/a\\x2fb\\\\c|"
         "recovered"},
        {"salvage -r @batch", 1,
         "a.doc: 6 streams: 6 recovered|junk.txt: not a compound file|totals: 3 files: 1 "
         "recovered whole, 1 incomplete, 1 not compound files, 0 failed"},
        {"salvage --json -r @batch --extract @trees -j 2", 1,
         "{\"summary\":{\"files\":3,\"recovered\":1,\"incomplete\":1,\"not_compound\":1,"
         "\"failed\":0}}"},
        {"salvage @batch/sub/junk.txt", 1, "not a compound file"},
        {"salvage @cut.doc --json --extract @x", 1,
         "\"path\":\"WordDocument\",\"size\":9000,\"state\":\"partial\",\"recovered_bytes\":1024,"
         "\"missing\":[{\"offset\":1024,\"length\":7976}]|\"path\":\"Data\",\"size\":6000,"
         "\"state\":\"recovered\"|\"unclaimed_chains\":[{\"name\":\"lost/sector_"},
        {"salvage @cut.doc --keep-partial --extract @y", 1,
         "partial\tWordDocument\t9000 bytes, 7976 bytes missing at 1024-8999|5 recovered, 1 "
         "partial, 0 ambiguous, 0 inferred, 0 lost; 1 unclaimed chains"},
        {"salvage -r @batch --out @x.doc", 2, "2>--out"},
        {"salvage @sound.doc --jsno", 2,
         "2>unexpected argument '--jsno' for salvage; did you mean '--json'?"},
        {"repair @cosmetic.doc @fixed.bin", 0,
         "fixed.doc (not |6 of 6 in the input, 6 of 6 in the repaired file"},
        {"repair @late.doc @late_fixed.doc", 1, "2>worse than the input|2>late.doc --out"},
        {"repair --no-verify @late.doc @late2.doc", 0, "!streams resolving"},
        {"repair @older.doc @older_fixed.doc", 1,
         "6 of 6 in the repaired file|2>2 streams resolve to other bytes than in the input"},
        {"analyze @sound.doc @an", 0, "released |!differs:"},
        {"analyze @cutoff.doc @an2", 0, "differs: WordDocument: |!1Table"},
        {"cat @cut.doc worddocument -o @cat_cut.bin", 1,
         "2>warning: 'WordDocument' is partial|2>written as zeros"},
        {"cat @sound.doc ObjectPool/a\\x2fb\\\\c -o @c.bin", 0, ""},
        {"cat @sound.doc ObjectPool", 2, "2>is a storage"},
        {"cat @sound.doc Data -o @sound.doc", 2, "2>refused"},
        {"sectors @sound.doc @dump -n 3", 0, ""},
        {"sectors @sound.doc @dump2 --from 0 -n 1", 0, "dumped 1 of "},
        {"map @sound.doc", 2, "2>--svg"},
        {"map @sound.doc --svg @sound.doc", 2, "2>input file"},
        {"map @sound.doc --svg @m.svg --from 99", 2, "2>past the last sector"},
    };
    for (const Row& row : rows) {
        std::vector<std::string> args;
        for (const std::string& a : split(row.args, ' '))
            args.push_back(a[0] == '@' ? file(a.substr(1)) : a);
        const Tool_Run run = tool(args);
        EXPECT_EQ(run.status, row.status) << row.args << "\n" << run.out << run.err;
        std::istringstream lines(has(row.args, "--json") ? run.out : "");
        for (std::string line; std::getline(lines, line);)
            EXPECT_FALSE(nlohmann::json::parse(line, nullptr, false).is_discarded()) << line;
        for (std::string part : split(row.parts, '|')) {
            const bool err = part.rfind("2>", 0) == 0;
            const bool absent = part[err ? 2 : 0] == '!';
            part = part.substr((err ? 2 : 0) + (absent ? 1 : 0));
            EXPECT_EQ(has(err ? run.err : run.out, part), !absent) << row.args << ": " << part;
        }
    }
    // Whatever the command, the input is never changed.
    EXPECT_EQ(test::read_file(path("sound.doc")),
              std::string(samples().sound.begin(), samples().sound.end()));
}

// What the rows above wrote: the salvage only what it vouches for (the cut stream's tail under
// lost, its head with --keep-partial); cat a stream's bytes (zeros for what is lost, a zeroed
// header too); sectors one file per sector; salvage -r each file's tree under DIR/PATH.
TEST(ToolTest, FilesWrittenHoldTheVouchedBytes) {
    const std::string word = bytes_of(9000, 1);
    EXPECT_EQ(test::read_file(path("x") / "Data"), bytes_of(6000, 3));
    EXPECT_FALSE(fs::exists(path("x") / "WordDocument"));
    ASSERT_TRUE(fs::is_directory(path("x") / "lost"));
    const std::string lost = test::read_file(fs::directory_iterator(path("x") / "lost")->path());
    EXPECT_EQ(lost.substr(0, 7976), word.substr(1024));
    EXPECT_EQ(test::read_file(path("y") / "WordDocument"), word.substr(0, 1024));
    EXPECT_EQ(test::read_file(path("cat_cut.bin")), word.substr(0, 1024) + std::string(7976, '\0'));
    EXPECT_EQ(test::read_file(path("c.bin")), bytes_of(5000, 5));
    EXPECT_EQ(test::read_file(path("trees") / "a.doc" / "Data"), bytes_of(6000, 3));
    EXPECT_TRUE(fs::exists(path("trees") / "sub" / "b.doc" / "Data"));
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(path("dump")))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names,
              (std::vector<std::string>{"header_at_0x000000.txt", "sector_000000_at_0x000200.txt",
                                        "sector_000001_at_0x000400.txt"}));
    const std::string sector = test::read_file(path("dump") / "sector_000001_at_0x000400.txt");
    for (const char* part : {"sector 1 at 0x000400, 512 bytes\n", "\n0x000400  ", "\n0x0005F0  "})
        EXPECT_TRUE(has(sector, part)) << sector;
    EXPECT_TRUE(
        has(test::read_file(path("dump") / "header_at_0x000000.txt"),
            "0x000010  00 00 00 00 00 00 00 00  3E 00 03 00 FE FF 09 00  |........>.......|"));
    const Tool_Run out = tool({"cat", file("zeroed.doc"), "\\x05SummaryInformation"});
    EXPECT_EQ(out.status, 0) << out.err;
    EXPECT_EQ(out.out, bytes_of(400, 2));
    if (platform::kWindows) return;  // links are planted natively
    fs::create_directories(path("linked") / "elsewhere");
    fs::create_directory_symlink(path("linked") / "elsewhere", path("linked") / "sub");
    const Tool_Run linked = tool({"salvage", "-r", file("batch"), "--extract", file("linked")});
    EXPECT_EQ(linked.status, 2);
    EXPECT_TRUE(has(linked.err, "sub is a link")) << linked.err;
    EXPECT_TRUE(fs::is_empty(path("linked") / "elsewhere"));
}

// The cells of each role in an SVG map, and of all ("*").
std::map<std::string, std::size_t> map_cells(const fs::path& svg) {
    std::map<std::string, std::size_t> cells;
    const std::string text = test::read_file(svg);
    const std::regex rect("<rect [^>]*class=\"([a-z-]+)");
    for (std::sregex_iterator it(text.begin(), text.end(), rect), end; it != end; ++it)
        ++cells[(*it)[1]], ++cells["*"];
    return cells;
}

TEST(ToolTest, MapCellsPerRole) {
    ASSERT_EQ(tool({"map", file("sound.doc"), "--svg", file("map.svg"), "--html", file("map.html")})
                  .status,
              0);
    const Build_Layout& l = samples().layout;
    std::size_t stream = 0;
    for (const auto& place : l.streams) stream += place.in_mini ? 0 : place.chain.size();
    std::map<std::string, std::size_t> cells = map_cells(path("map.svg"));
    // clang-format off
    for (const auto& [role, n] : std::map<std::string, std::size_t>{
             {"*", fs::file_size(path("sound.doc")) / 512}, {"header", 1},
             {"sat", l.sat_sids.size()}, {"minisat", l.minisat_sids.size()},
             {"directory", l.directory_sids.size()}, {"container", l.container_sids.size()},
             {"stream", stream}})
        EXPECT_EQ(cells[role], n) << role;
    // clang-format on
    EXPECT_TRUE(has(test::read_file(path("map.html")), "<title>sectors "));
    EXPECT_TRUE(has(test::read_file(path("map.svg")), "WordDocument</title>"));
    ASSERT_EQ(
        tool({"map", file("cut.doc"), "--salvage", "--svg", file("c.svg"), "-n", "20"}).status, 0);
    EXPECT_EQ(map_cells(path("c.svg"))["*"], 20u);
}

// Every command that reads a file, given `input`; the files it writes named after `out`.
std::vector<std::vector<std::string>> every_command(const std::string& input,
                                                    const std::string& out) {
    return {{"check", input},
            {"list", input},
            {"cat", input, "Data"},
            {"map", input, "--svg", out + ".svg"},
            {"sectors", input, out + ".dump", "-n", "1"},
            {"analyze", input, out + ".analysis"},
            {"repair", input, out + ".fixed.doc"},
            {"salvage", input}};
}

// An input that is no readable file, and output nobody can write to, are errors in every
// command (exit 2, the path and the reason), not verdicts. On POSIX a name is bytes: a file whose
// name is not UTF-8 works in every command, and JSON carries the bytes as \udcXX escapes.
TEST(ToolTest, InputsAndOutputsInEveryCommand) {
    std::vector<std::pair<std::string, std::string>> inputs = {{file("missing.doc"), ": "},
                                                               {file("batch"), ": is a folder"}};
    if (!platform::kWindows) inputs.emplace_back("/dev/null", ": not a regular file");
    for (const auto& [input, reason] : inputs) {
        for (const auto& args : every_command(input, file("e"))) {
            const Tool_Run run = tool(args);
            EXPECT_EQ(run.status, 2) << args[0] << " " << input;
            EXPECT_TRUE(has(run.err, input + reason)) << args[0] << ": " << run.err;
        }
    }
    if (platform::kWindows || !fs::exists("/dev/full")) return;
    for (const auto& args : every_command(file("sound.doc"), file("e"))) {
        const Tool_Run run = tool(args, "> /dev/full");
        EXPECT_EQ(run.status, 2) << args[0];
        EXPECT_TRUE(has(run.err, "standard output")) << args[0] << ": " << run.err;
    }
    const std::string odd = file("odd") + "/\xff\xfe.doc";
    test::write_file(platform::to_path(platform::widen(odd)),
                     {samples().sound.begin(), samples().sound.end()});
    EXPECT_EQ(tool({"check", "-r", file("odd")}).status, 0);
    EXPECT_TRUE(
        has(tool({"salvage", "--json", "-r", file("odd")}).out, "odd/\\udcff\\udcfe.doc\""));
    EXPECT_TRUE(has(tool({"check", "--json", odd}).out, "odd/\\udcff\\udcfe.doc\""));
    std::vector<std::vector<std::string>> commands = every_command(odd, odd);
    commands.push_back({"salvage", odd, "--extract", odd + ".tree"});
    commands.push_back({"cat", odd, "Data", "-o", odd + ".data"});
    for (const auto& args : commands) EXPECT_EQ(tool(args).status, 0) << args[0];
    EXPECT_EQ(test::read_file(platform::to_path(platform::widen(odd + ".data"))),
              bytes_of(6000, 3));
}

}  // namespace
}  // namespace vrk
