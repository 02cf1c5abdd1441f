// The cfbvornak commands run as the built tool (beside this test's executable): exit statuses,
// standard output and error, and the files they write. Inputs come from the builder with byte
// patches.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "cfb_vornak/builder/Cfb_Builder.h"
#include "common/byte_order.h"
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

std::string quote(const std::string& arg) {
    if (platform::kWindows) return "\"" + arg + "\"";
    std::string quoted = "'";
    for (const char c : arg) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

std::string arg(const fs::path& path) {
    return platform::narrow(platform::from_path(path));
}

// The shell line that runs the tool with `args`, the global folders given last (they go
// anywhere).
std::string tool_line(const std::vector<std::string>& args) {
    const fs::path here = fs::current_path();
    const fs::path bin = here / ".." / ".." / "bin";
    std::string line = quote(arg(bin / (platform::kWindows ? "cfbvornak.exe" : "cfbvornak")));
    for (const std::string& a : args) line += " " + quote(a);
    const fs::path state = here / "tool_state";
    return line + " --log-dir " + quote(arg(state / "logs")) + " --config-dir " +
           quote(arg(state / "config")) + " --work-dir " + quote(arg(state / "work"));
}

// Runs the tool with `args`; `extra` is appended to the shell line as it stands (a
// redirection, say).
Tool_Run tool(const std::vector<std::string>& args, const std::string& extra = "") {
    const fs::path here = fs::current_path();
    std::string line = tool_line(args);
    const fs::path out = here / "tool_out.txt";
    const fs::path err = here / "tool_err.txt";
    line += " " + extra;
    if (extra.find('>') == std::string::npos) line += " > " + quote(arg(out));
    line += " 2> " + quote(arg(err));
    // cmd.exe takes off one pair of outer quotes.
    if (platform::kWindows) line = "\"" + line + "\"";
    fs::remove(out);
    const int status = std::system(line.c_str());
    Tool_Run run;
    // POSIX keeps the exit status in the second byte.
    run.status = platform::kWindows ? status : (status >> 8) & 0xFF;
    run.out = test::read_file(out);
    run.err = test::read_file(err);
    return run;
}

bool has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::size_t count_of(const std::string& text, const std::string& part) {
    std::size_t n = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++n;
    return n;
}

bool have_python() {
    return !platform::kWindows && fs::exists("/usr/bin/python3");
}

// Runs python3 with `script` and `args`; its standard output.
std::string python(const std::string& script, const std::vector<std::string>& args) {
    const fs::path out = fs::current_path() / "python_out.txt";
    std::string line = "/usr/bin/python3 -c " + quote(script);
    for (const std::string& a : args) line += " " + quote(a);
    EXPECT_EQ(std::system((line + " > " + quote(arg(out))).c_str()), 0) << script;
    return test::read_file(out);
}

std::vector<uint8_t> bytes_of(std::size_t n, uint64_t seed) {
    return test::random_bytes(n, seed);
}

// {00020906-0000-0000-C000-000000000046}, as the format stores it.
constexpr std::array<uint8_t, 16> kWordClsid = {0x06, 0x09, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00,
                                                0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46};
// 2023-05-01T12:34:56.1234567Z and 1999-12-31T23:59:59Z as FILETIME bytes.
constexpr std::array<uint8_t, 8> kModified = {135, 238, 236, 85, 41, 124, 217, 1};
constexpr std::array<uint8_t, 8> kCreated = {128, 169, 212, 36, 235, 83, 191, 1};

Cfb_Fs_Item_DirNode document() {
    Cfb_Fs_Item_DirNode root;
    root.clsid = kWordClsid;
    root.modified_time = kModified;
    root.add_stream(u"WordDocument", bytes_of(9000, 1)).creation_time = kCreated;
    root.add_stream(u"1Table", bytes_of(700, 6));
    root.add_stream(u"\x05SummaryInformation", bytes_of(400, 2));
    root.add_stream(u"Data", bytes_of(6000, 3)).state_bits = {0x78, 0x56, 0x34, 0x12};
    Cfb_Fs_Item_DirNode& pool = root.add_storage(u"ObjectPool");
    pool.add_stream(
        u"\x01"
        u"CompObj",
        bytes_of(100, 4));
    pool.add_stream(u"a/b\\c", bytes_of(5000, 5));
    return root;
}

// The sample files every test reads: a sound document, one whose header carries a deviation
// the strict check refuses (minor version 0x003B), one whose header is sound but a stream's
// chain is cut, and one with its header zeroed.
class ToolTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        folder = new test::Temp_Folder("tool");
        std::vector<uint8_t> file = build_compound_file(document(), {}, &layout);
        write(file, "sound.doc");
        std::vector<uint8_t> cosmetic = file;
        test::patch_u16(cosmetic, test::offsets::kMinorVersion, 0x003B);
        write(cosmetic, "cosmetic.doc");
        std::vector<uint8_t> cut = file;
        const sid_t second = test::stream_place(layout, u"WordDocument").chain[1];
        test::patch_u32(cut, test::sat_entry_offset(layout, second), FREESECT);
        write(cut, "cut.doc");
        std::vector<uint8_t> zeroed = file;
        test::zero_range(zeroed, 0, 512);
        write(zeroed, "zeroed.doc");
        test::write_file(path("batch") / "a.doc", std::string(file.begin(), file.end()));
        test::write_file(path("batch") / "sub" / "b.doc", std::string(cut.begin(), cut.end()));
        test::write_file(path("batch") / "sub" / "junk.txt", "not a compound file");
    }
    static void TearDownTestSuite() {
        delete folder;
        folder = nullptr;
    }
    static void write(const std::vector<uint8_t>& bytes, const std::string& name) {
        test::write_file(path(name), std::string(bytes.begin(), bytes.end()));
    }
    static fs::path path(const std::string& name) { return folder->path() / name; }
    static std::string file(const std::string& name) { return arg(path(name)); }

    static test::Temp_Folder* folder;
    static Build_Layout layout;
};

test::Temp_Folder* ToolTest::folder = nullptr;
Build_Layout ToolTest::layout;

struct Row {
    const char* what;
    std::vector<std::string> args;  // "@name" names a sample file
    int status;
    std::vector<std::string> out;  // parts standard output must hold
    std::vector<std::string> err;  // parts standard error must hold
    std::vector<std::string> not_out = {};
};

TEST_F(ToolTest, CommandsAnswerWithStatusAndText) {
    const std::vector<Row> rows = {
        {"version", {"--version"}, 0, {"cfbvornak " CFB_PROJECT_VERSION}, {}},
        {"no command", {}, 2, {}, {"Usage: cfbvornak"}},
        {"mistyped command", {"chek", "@sound.doc"}, 2, {}, {"did you mean 'check'?"}},
        {"unknown option", {"check", "--bogus", "@sound.doc"}, 2, {}, {"--bogus"}},
        {"missing file", {"check", "@missing.doc"}, 2, {}, {"cannot read", "missing.doc: "}},
        {"folder without -r", {"check", "@batch"}, 2, {}, {"is a folder (use --recursive)"}},
        {"sound", {"check", "@sound.doc"}, 0, {"SOUND", "type 0", "all 6 streams readable"}, {}},
        {"cosmetic header deviation",
         {"check", "@cosmetic.doc"},
         1,
         {"DAMAGED result -3108", "type 60", "all 6 streams readable"},
         {}},
        {"cosmetic, --readable", {"check", "--readable", "@cosmetic.doc"}, 0, {"readable"}, {}},
        {"cut chain", {"check", "@cut.doc"}, 0, {"SOUND", "1 of 6 streams unreadable"}, {}},
        {"cut chain, --readable", {"check", "@cut.doc", "--readable"}, 1, {"1 of 6"}, {}},
        {"not compound", {"check", "@batch/sub/junk.txt"}, 1, {"type 76", "no streams found"}, {}},
        {"English only",
         {"--lang", "en", "check", "@zeroed.doc"},
         1,
         {"type 59 (header signature wrong)"},
         {},
         {"文件"}},
        {"Chinese descriptions",
         {"check", "@zeroed.doc", "--lang", "zh"},
         1,
         {"文件头部魔数错误~"},
         {}},
        {"batch totals",
         {"check", "-r", "@batch", "-j", "2"},
         1,
         {"a.doc: SOUND", "b.doc: SOUND", "totals: 3 files: 2 sound, 1 damaged, 0 unreadable"},
         {}},
        {"salvage batch",
         {"salvage", "-r", "@batch"},
         1,
         {"a.doc: 6 streams: 6 recovered", "junk.txt: not a compound file",
          "totals: 3 files: 1 recovered whole, 1 incomplete, 1 not compound files, 0 failed"},
         {}},
        {"salvage of a folder", {"salvage", "@batch"}, 2, {}, {"is a folder (use --recursive)"}},
        {"salvage batch to one file",
         {"salvage", "-r", "@batch", "--out", "@x.doc"},
         2,
         {},
         {"--out"}},
        {"mistyped option",
         {"salvage", "@sound.doc", "--jsno"},
         2,
         {},
         {"unexpected argument '--jsno' for salvage; did you mean '--json'?"}},
        {"list",
         {"list", "@sound.doc"},
         0,
         {"{00020906-0000-0000-C000-000000000046}", "2023-05-01T12:34:56.1234567Z",
          "1999-12-31T23:59:59Z", "0x12345678", "\\x05SummaryInformation",
          "ObjectPool/\\x01CompObj", "ObjectPool/a\\x2fb\\\\c", "recovered"},
         {}},
        {"list of junk", {"list", "@batch/sub/junk.txt"}, 1, {}, {"not a compound file"}},
        {"cat of a cut stream",
         {"cat", "@cut.doc", "worddocument", "-o", "@cat_cut.bin"},
         1,
         {},
         {"warning: 'WordDocument' is partial", "written as zeros"}},
        {"cat of no such stream", {"cat", "@sound.doc", "ObjectPool/nothing"}, 2, {}, {"no entry"}},
        {"cat of a storage", {"cat", "@sound.doc", "ObjectPool"}, 2, {}, {"is a storage"}},
        {"sectors past the end",
         {"sectors", "@sound.doc", "@dump_bad", "--from", "999"},
         2,
         {},
         {"past the last sector"}},
        {"map needs an output", {"map", "@sound.doc"}, 2, {}, {"--svg"}},
        {"cat onto its input",
         {"cat", "@sound.doc", "Data", "-o", "@sound.doc"},
         2,
         {},
         {"refused"}},
        {"map onto its input", {"map", "@sound.doc", "--svg", "@sound.doc"}, 2, {}, {"input file"}},
        {"map past the end",
         {"map", "@sound.doc", "--svg", "@m.svg", "--from", "99"},
         2,
         {},
         {"past the last sector"}},
    };
    for (const Row& row : rows) {
        std::vector<std::string> args;
        for (const std::string& a : row.args) args.push_back(a[0] == '@' ? file(a.substr(1)) : a);
        const Tool_Run run = tool(args);
        EXPECT_EQ(run.status, row.status) << row.what << "\n" << run.out << run.err;
        for (const std::string& part : row.out)
            EXPECT_TRUE(has(run.out, part)) << row.what << ": " << part << "\n" << run.out;
        for (const std::string& part : row.err)
            EXPECT_TRUE(has(run.err, part)) << row.what << ": " << part << "\n" << run.err;
        for (const std::string& part : row.not_out)
            EXPECT_FALSE(has(run.out, part)) << row.what << ": " << part;
    }
}

// The repair prints the path it wrote and, verified by default, whether the rebuilt header
// reads worse than the input's own.
TEST_F(ToolTest, RepairSaysWhatItWroteAndWhetherItIsWorse) {
    const Tool_Run fixed = tool({"repair", file("cosmetic.doc"), file("fixed.bin")});
    EXPECT_EQ(fixed.status, 0) << fixed.out << fixed.err;
    EXPECT_TRUE(has(fixed.out, "written: " + file("fixed.doc") + " (not ")) << fixed.out;
    EXPECT_TRUE(has(fixed.out, "6 of 6 in the input, 6 of 6 in the repaired file")) << fixed.out;
    // A SAT sector as the file's last sector (as gsf writes them): the rebuilt header leaves it
    // out, and no stream resolves any more.
    Builder_Options options;
    options.tables_at_end = true;
    options.sat_in_last_sector = true;
    const std::vector<uint8_t> late = build_compound_file(document(), options);
    test::write_file(path("late.doc"), std::string(late.begin(), late.end()));
    const Tool_Run worse = tool({"repair", file("late.doc"), file("late_fixed.doc")});
    EXPECT_EQ(worse.status, 1) << worse.out << worse.err;
    EXPECT_TRUE(has(worse.err, "worse than the input")) << worse.err;
    EXPECT_TRUE(has(worse.err, "salvage " + file("late.doc") + " --out")) << worse.err;
    const Tool_Run unchecked = tool({"repair", "--no-verify", file("late.doc"), file("late2.doc")});
    EXPECT_EQ(unchecked.status, 0);
    EXPECT_FALSE(has(unchecked.out, "streams resolving"));
    EXPECT_EQ(tool({"repair", file("missing.doc"), file("x.doc")}).status, 2);
}

// Every command's help has the same shape and ends with its exit statuses; help needs no
// library and makes no folder.
TEST_F(ToolTest, EveryCommandHasHelpWithExitStatuses) {
    for (const char* command : {"analyze", "build-sample", "cat", "check", "list", "map", "repair",
                                "salvage", "sectors"}) {
        const Tool_Run run = tool({command, "-h"});
        EXPECT_EQ(run.status, 0) << command;
        EXPECT_TRUE(has(run.out, "Exit status")) << command << "\n" << run.out;
        EXPECT_TRUE(has(run.out, "cfbvornak " + std::string(command))) << command;
    }
    const Tool_Run main = tool({"--help"});
    EXPECT_TRUE(has(main.out, "Commands:")) << main.out;
}

TEST_F(ToolTest, CatWritesTheStreamBytes) {
    const Tool_Run whole =
        tool({"cat", file("sound.doc"), "ObjectPool/a\\x2fb\\\\c", "-o", file("c.bin")});
    EXPECT_EQ(whole.status, 0) << whole.err;
    const std::vector<uint8_t> expected = bytes_of(5000, 5);
    EXPECT_EQ(test::read_file(path("c.bin")), std::string(expected.begin(), expected.end()));
    const Tool_Run out = tool({"cat", file("zeroed.doc"), "\\x05SummaryInformation"});
    const std::vector<uint8_t> summary = bytes_of(400, 2);
    EXPECT_EQ(out.status, 0) << out.err;
    EXPECT_EQ(out.out, std::string(summary.begin(), summary.end()));
    // The cut stream: its first sector as it is, the rest zeros, the size kept.
    const std::string cut = test::read_file(path("cat_cut.bin"));
    const std::vector<uint8_t> word = bytes_of(9000, 1);
    ASSERT_EQ(cut.size(), 9000u);
    EXPECT_EQ(cut.substr(0, 1024), std::string(word.begin(), word.begin() + 1024));
    EXPECT_EQ(cut.substr(1024), std::string(9000 - 1024, '\0'));
}

TEST_F(ToolTest, JsonLinesWithSummary) {
    const Tool_Run run = tool({"check", "--json", "-r", file("batch"), "-j", "0"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(count_of(run.out, "\n"), 4u) << run.out;
    EXPECT_TRUE(has(run.out, "\"summary\":{\"files\":3,\"sound\":2,\"damaged\":1,\"unreadable\":0"))
        << run.out;
    EXPECT_TRUE(has(run.out, "\"readable_streams\":5,\"readable\":false")) << run.out;
    // Progress goes to a terminal only (script(1) gives the tool one).
    EXPECT_FALSE(has(run.err, "files/s")) << run.err;
    if (!platform::kWindows && fs::exists("/usr/bin/script")) {
        const fs::path typed = fs::current_path() / "tty.txt";
        const std::string line = "/usr/bin/script -qec " +
                                 quote(tool_line({"check", "-r", file("batch")})) +
                                 " /dev/null > " + quote(arg(typed));
        EXPECT_EQ(std::system(line.c_str()) >> 8, 1);
        EXPECT_TRUE(has(test::read_file(typed), "files/s")) << test::read_file(typed);
    }
    if (have_python()) {
        EXPECT_EQ(python("import json,sys\n"
                         "for l in open(sys.argv[1]): json.loads(l)\nprint('ok')",
                         {arg(fs::current_path() / "tool_out.txt")}),
                  "ok\n");
    }
    const Tool_Run list = tool({"list", "--json", file("sound.doc")});
    EXPECT_EQ(list.status, 0);
    EXPECT_TRUE(has(list.out, "\"name\":\"\\u0005SummaryInformation\"")) << list.out;
    EXPECT_TRUE(has(list.out, "\"path\":\"ObjectPool/a\\\\x2fb\\\\\\\\c\",\"name\":\"a/b\\\\c\""))
        << list.out;
}

// salvage -r: each file's tree under DIR/PATH, one JSON object per file and a summary object.
TEST_F(ToolTest, SalvageBatchExtractsEachTree) {
    const Tool_Run run =
        tool({"salvage", "--json", "-r", file("batch"), "--extract", file("trees"), "-j", "2"});
    EXPECT_EQ(run.status, 1) << run.err;
    EXPECT_EQ(count_of(run.out, "\n"), 4u) << run.out;
    EXPECT_TRUE(has(run.out,
                    "{\"summary\":{\"files\":3,\"recovered\":1,\"incomplete\":1,"
                    "\"not_compound\":1,\"failed\":0}}"))
        << run.out;
    const std::vector<uint8_t> data = bytes_of(6000, 3);
    EXPECT_EQ(test::read_file(path("trees") / "a.doc" / "Data"),
              std::string(data.begin(), data.end()));
    EXPECT_TRUE(fs::exists(path("trees") / "sub" / "b.doc" / "Data"));
    EXPECT_FALSE(fs::exists(path("trees") / "sub" / "junk.txt"));
    if (have_python()) {
        EXPECT_EQ(python("import json,sys\n"
                         "print(sum('report' in json.loads(l) for l in open(sys.argv[1])))",
                         {arg(fs::current_path() / "tool_out.txt")}),
                  "3\n");
    }
    // A link below DIR on the way to a file's folder is refused, not followed.
    if (!platform::kWindows) {
        fs::create_directories(path("linked") / "elsewhere");
        fs::create_directory_symlink(path("linked") / "elsewhere", path("linked") / "sub");
        const Tool_Run linked = tool({"salvage", "-r", file("batch"), "--extract", file("linked")});
        EXPECT_EQ(linked.status, 2);
        EXPECT_TRUE(has(linked.err, "sub is a link")) << linked.err;
        EXPECT_TRUE(fs::is_empty(path("linked") / "elsewhere"));
    }
}

// Counts the cells of each role in an SVG map (python's XML parser natively, a text scan
// elsewhere).
std::map<std::string, std::size_t> map_cells(const fs::path& svg) {
    std::map<std::string, std::size_t> cells;
    if (have_python()) {
        const std::string counted = python(
            "import sys, collections, xml.etree.ElementTree as E\n"
            "c = collections.Counter()\n"
            "for r in E.parse(sys.argv[1]).getroot().iter('{http://www.w3.org/2000/svg}rect'):\n"
            "    if r.get('class'): c[r.get('class').split()[0]] += 1\n"
            "print(' '.join('%s=%d' % kv for kv in sorted(c.items())))",
            {arg(svg)});
        const std::regex pair("([a-z-]+)=([0-9]+)");
        for (std::sregex_iterator it(counted.begin(), counted.end(), pair), end; it != end; ++it) {
            cells[(*it)[1]] = std::stoul((*it)[2]);
        }
        return cells;
    }
    const std::string text = test::read_file(svg);
    const std::regex rect("<rect [^>]*class=\"([a-z-]+)");
    for (std::sregex_iterator it(text.begin(), text.end(), rect), end; it != end; ++it) {
        ++cells[(*it)[1]];
    }
    return cells;
}

TEST_F(ToolTest, MapCountsCellsPerRole) {
    const Tool_Run run =
        tool({"map", file("sound.doc"), "--svg", file("map.svg"), "--html", file("map.html")});
    ASSERT_EQ(run.status, 0) << run.err;
    std::size_t stream_sectors = 0;
    for (const auto& place : layout.streams)
        stream_sectors += place.in_mini ? 0 : place.chain.size();
    const uint64_t cells = fs::file_size(path("sound.doc")) / 512;
    std::map<std::string, std::size_t> expected = {{"header", 1},
                                                   {"sat", layout.sat_sids.size()},
                                                   {"minisat", layout.minisat_sids.size()},
                                                   {"directory", layout.directory_sids.size()},
                                                   {"container", layout.container_sids.size()},
                                                   {"stream", stream_sectors}};
    std::size_t named = 0;
    for (const auto& [role, n] : expected) named += n;
    if (cells > named) expected["free"] = cells - named;
    EXPECT_EQ(map_cells(path("map.svg")), expected);
    EXPECT_TRUE(has(test::read_file(path("map.html")), "<title>sectors "));
    EXPECT_TRUE(has(test::read_file(path("map.svg")), "WordDocument</title>"));

    // Header zeroed: the tables are lost, the salvage still vouches for the streams' bytes.
    ASSERT_EQ(tool({"map", file("zeroed.doc"), "--salvage", "--svg", file("zeroed.svg")}).status,
              0);
    EXPECT_EQ(map_cells(path("zeroed.svg"))["recovered"], stream_sectors);
    ASSERT_EQ(
        tool({"map", file("cut.doc"), "--salvage", "--svg", file("cut.svg"), "-n", "20"}).status,
        0);
    const std::map<std::string, std::size_t> cut = map_cells(path("cut.svg"));
    std::size_t drawn = 0;
    for (const auto& [role, n] : cut) drawn += n;
    EXPECT_EQ(drawn, 20u);
}

TEST_F(ToolTest, SectorsNamesSortAndMatchTheirOffsets) {
    const Tool_Run run = tool({"sectors", file("sound.doc"), file("dump"), "-n", "3"});
    ASSERT_EQ(run.status, 0) << run.err;
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(path("dump"))) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names,
              (std::vector<std::string>{"header_at_0x000000.txt", "sector_000000_at_0x000200.txt",
                                        "sector_000001_at_0x000400.txt"}));
    const std::string sector = test::read_file(path("dump") / "sector_000001_at_0x000400.txt");
    EXPECT_TRUE(has(sector, "sector 1 at 0x000400, 512 bytes\n")) << sector;
    EXPECT_TRUE(has(sector, "\n0x000400  ")) << sector;
    EXPECT_TRUE(has(sector, "\n0x0005F0  ")) << sector;
    const Tool_Run header =
        tool({"sectors", file("sound.doc"), file("dump2"), "--from", "0", "-n", "1"});
    EXPECT_TRUE(has(header.out, "dumped 1 of ")) << header.out;
    EXPECT_TRUE(
        has(test::read_file(path("dump") / "header_at_0x000000.txt"),
            "0x000010  00 00 00 00 00 00 00 00  3E 00 03 00 FE FF 09 00  |........>.......|"));
    EXPECT_TRUE(fs::exists(path("dump2") / "sector_000000_at_0x000200.txt"));
}

// An input that is no readable file, and output nobody can write to, are errors in every
// command (exit 2, the path and the reason), not verdicts.
TEST_F(ToolTest, InputAndOutputErrorsInEveryCommand) {
    std::vector<std::pair<std::string, std::string>> inputs = {{file("missing.doc"), ": "},
                                                               {file("batch"), ": is a folder"}};
    if (!platform::kWindows) inputs.emplace_back("/dev/null", ": not a regular file");
    const bool full = !platform::kWindows && fs::exists("/dev/full");
    for (std::vector<std::string> args :
         std::vector<std::vector<std::string>>{{"check", ""},
                                               {"list", ""},
                                               {"cat", "", "Data"},
                                               {"map", "", "--svg", file("e.svg")},
                                               {"sectors", "", file("e_dump")},
                                               {"analyze", "", file("e_analysis")},
                                               {"repair", "", file("e.doc")},
                                               {"salvage", ""}}) {
        for (const auto& [input, reason] : inputs) {
            args[1] = input;
            const Tool_Run run = tool(args);
            EXPECT_EQ(run.status, 2) << args[0] << " " << input;
            EXPECT_TRUE(has(run.err, input + reason)) << args[0] << ": " << run.err;
        }
        args[1] = file("sound.doc");
        const Tool_Run run = full ? tool(args, "> /dev/full") : Tool_Run{2, "", "standard output"};
        EXPECT_EQ(run.status, 2) << args[0];
        EXPECT_TRUE(has(run.err, "standard output")) << args[0] << ": " << run.err;
    }
}

// On POSIX a name is bytes: a file whose name is not UTF-8 works in every command, and JSON
// carries the bytes as \udcXX escapes.
TEST_F(ToolTest, NamesThatAreNotUtf8) {
    if (platform::kWindows) GTEST_SKIP() << "Windows names are UTF-16; arguments a code page";
    const std::string odd = file("odd") + "/\xff\xfe.doc";
    const std::string sound = test::read_file(path("sound.doc"));
    test::write_file(platform::to_path(platform::widen(odd)), sound);
    EXPECT_EQ(tool({"check", "-r", file("odd")}).status, 0);
    EXPECT_TRUE(
        has(tool({"salvage", "--json", "-r", file("odd")}).out, "odd/\\udcff\\udcfe.doc\""));
    EXPECT_EQ(tool({"salvage", odd, "--extract", odd + ".tree"}).status, 0);
    EXPECT_EQ(tool({"check", odd}).status, 0);
    EXPECT_TRUE(has(tool({"check", "--json", odd}).out, "odd/\\udcff\\udcfe.doc\""));
    EXPECT_EQ(tool({"list", odd}).status, 0);
    EXPECT_EQ(tool({"cat", odd, "Data", "-o", odd + ".data"}).status, 0);
    EXPECT_EQ(tool({"map", odd, "--svg", odd + ".svg"}).status, 0);
    EXPECT_EQ(tool({"sectors", odd, odd + ".dump", "-n", "1"}).status, 0);
    EXPECT_EQ(tool({"analyze", odd, odd + ".analysis"}).status, 0);
    EXPECT_EQ(tool({"repair", odd, odd + ".fixed.doc"}).status, 0);
    const std::vector<uint8_t> data = bytes_of(6000, 3);
    EXPECT_EQ(test::read_file(platform::to_path(platform::widen(odd + ".data"))),
              std::string(data.begin(), data.end()));
}

// The analysis releases at most 100,000 sectors of a stream; the tool names the streams it cut.
TEST_F(ToolTest, AnalyzeNamesStreamsCutBySectorLimit) {
    Cfb_Fs_Item_DirNode root;
    root.add_stream(u"Big", std::vector<uint8_t>(100001 * 512 + 100, 0x5A));
    root.add_stream(u"Small", bytes_of(5000, 9));
    ASSERT_TRUE(write_compound_file(platform::from_path(path("big.cfb")), root));
    const Tool_Run run = tool({"analyze", file("big.cfb"), file("big_analysis")});
    fs::remove(path("big.cfb"));
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(has(run.out, "released 2 stream(s)")) << run.out;
    EXPECT_TRUE(has(run.out, "cut: Big: released 51,200,000 of 51,200,612 bytes (612 missing)"))
        << run.out;
    EXPECT_FALSE(has(run.out, "cut: Small"));
    test::remove_tree(path("big_analysis"));
}

// The README's recipe for many machines: GNU parallel hands each worker a share of the files
// and the JSON lines come back merged. Tool_Run against this machine (--sshlogin ':').
TEST_F(ToolTest, ParallelRecipeOnThisMachine) {
    if (platform::kWindows || !fs::exists("/usr/bin/parallel"))
        GTEST_SKIP() << "needs GNU parallel";
    const fs::path merged = path("merged.jsonl");
    const std::string line = "cd " + quote(file("batch")) +
                             " && find . -type f | /usr/bin/parallel --will-cite --sshlogin : -X "
                             "-j 2 " +
                             tool_line({"check", "--json"}) + " > " + quote(arg(merged));
    EXPECT_NE(std::system(line.c_str()), 0);  // one file is not a compound file
    const std::string lines = test::read_file(merged);
    EXPECT_EQ(count_of(lines, "\"file\":"), 3u) << lines;
    EXPECT_EQ(count_of(lines, "\"sound\":true"), 2u) << lines;
}

}  // namespace
}  // namespace vrk
