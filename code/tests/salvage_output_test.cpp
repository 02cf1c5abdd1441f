// What the salvage writes: safe names, the extracted tree, the rebuilt compound file, and
// (natively) a corpus of header-zeroed files read back by python3-olefile.
#include "cfb_vornak/salvage/Salvage_Output.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "cfb_vornak/builder/Cfb_Builder.h"
#include "cfb_vornak/model/Safe_Name.h"
#include "cfb_vornak/salvage/Salvage.h"
#include "common/byte_order.h"
#include "common/platform.h"
#include "support/cfb_patch.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

namespace fs = std::filesystem;

std::vector<uint8_t> pattern(std::size_t n, uint32_t seed) {
    std::mt19937 rng(seed);
    std::vector<uint8_t> out(n);
    for (auto& b : out) b = static_cast<uint8_t>(rng());
    return out;
}

std::vector<uint8_t> read_all(const fs::path& p) {
    std::ifstream in(p, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

fs::path fresh_folder(const char* name) {
    const fs::path p = fs::current_path() / name;
    fs::remove_all(p);
    fs::create_directories(p);
    return p;
}

TEST(SalvageNames, UnsafeNamesBecomeSafeComponents) {
    const std::vector<std::wstring> names = {
        L"",    L".",       L"..",   L"a/b",  L"a\\b", L"../x",    std::wstring(L"a\0b", 3),
        L"CON", L"nul.txt", L"end.", L"end ", L"x:y",  L"\x01\x1f"};
    for (const std::wstring& name : names) {
        const std::wstring safe = safe_component(name);
        EXPECT_FALSE(safe.empty());
        EXPECT_FALSE(is_refused_file_name(safe)) << platform::to_utf8(safe);
        EXPECT_EQ(safe.find(L'/'), std::wstring::npos);
        EXPECT_EQ(safe.find(platform::kSeparator), std::wstring::npos);
    }
    EXPECT_EQ(safe_component(L"Workbook"), L"Workbook");
}

// A tree whose names would escape the folder, clash, or name devices.
Cfb_Fs_Item_DirNode hostile_tree() {
    Cfb_Fs_Item_DirNode root;
    root.add_stream(u"..", pattern(100, 1));
    root.add_stream(u"a/b", pattern(5000, 2));
    root.add_stream(u"CON", pattern(10, 3));
    root.add_stream(u"lost", pattern(20, 4));
    Cfb_Fs_Item_DirNode& sub = root.add_storage(u".");
    sub.add_stream(u"x", pattern(30, 5));
    sub.add_stream(u"y\\z", pattern(40, 6));
    return root;
}

TEST(SalvageExtract, NothingLeavesTheFolder) {
    const std::vector<uint8_t> file = build_compound_file(hostile_tree());
    std::vector<uint8_t> damaged = file;
    std::memset(damaged.data(), 0, 512);
    const Salvage_Result r = salvage_bytes(damaged.data(), damaged.size());
    ASSERT_EQ(r.count(Salvage_State::recovered), 6u) << salvage_report_text(r);
    const fs::path base = fresh_folder("extract_hostile");
    const fs::path out = base / "out";
    std::string error;
    ASSERT_TRUE(
        salvage_extract(damaged.data(), damaged.size(), r, platform::from_path(out), {}, error))
        << error;
    std::size_t files = 0;
    std::vector<std::vector<uint8_t>> contents;
    for (const auto& e : fs::recursive_directory_iterator(base)) {
        if (!e.is_regular_file()) continue;
        ++files;
        const std::string rel = e.path().lexically_relative(out).generic_string();
        EXPECT_NE(rel.substr(0, 2), "..") << rel;
        contents.push_back(read_all(e.path()));
    }
    EXPECT_EQ(files, 6u);
    for (uint32_t seed : {1u, 3u, 4u}) {
        const std::size_t n = seed == 1 ? 100 : seed == 3 ? 10 : 20;
        EXPECT_NE(std::find(contents.begin(), contents.end(), pattern(n, seed)), contents.end());
    }
}

// Runs the built tool (beside this test's executable) with `args` after "salvage", its
// standard output to `out`; gives the exit status.
int run_salvage_command(const std::string& args, const fs::path& out) {
    const fs::path here = fs::current_path();
    const fs::path tool =
        here / ".." / ".." / "bin" / (platform::kWindows ? "cfbvornak.exe" : "cfbvornak");
    const fs::path state = here / "tool_state";
    std::string cmd = "\"" + tool.string() + "\" --log-dir \"" + (state / "logs").string() +
                      "\" --config-dir \"" + (state / "config").string() + "\" --work-dir \"" +
                      (state / "work").string() + "\" salvage " + args + " > \"" + out.string() +
                      "\"";
    // cmd.exe takes off one pair of outer quotes.
    if (platform::kWindows) cmd = "\"" + cmd + "\"";
    const int status = std::system(cmd.c_str());
    // POSIX keeps the exit status in the second byte.
    return platform::kWindows ? status : (status >> 8) & 0xFF;
}

std::string quoted(const fs::path& p) {
    return "\"" + p.string() + "\"";
}

// The command end to end: exit statuses, the JSON report, --extract with and without
// --keep-partial (the unclaimed tail under lost), --out.
TEST(SalvageCommand, StatusReportExtractAndOut) {
    Cfb_Fs_Item_DirNode root;
    root.add_stream(u"whole", pattern(6000, 1));
    root.add_stream(u"broken", pattern(9000, 2));
    Build_Layout layout;
    std::vector<uint8_t> file = build_compound_file(root, {}, &layout);
    const fs::path base = fresh_folder("command");
    const fs::path sound = base / "sound.cfb";
    test::write_file(sound, std::string(file.begin(), file.end()));
    // Cut the link after the broken stream's second sector: its tail becomes an unclaimed chain.
    const sid_t second = test::stream_place(layout, u"broken").chain[1];
    write_u32_le(file.data() + layout.file_offset_of(layout.sat_sids[0]) + 4 * second, FREESECT);
    const fs::path damaged = base / "damaged.cfb";
    test::write_file(damaged, std::string(file.begin(), file.end()));
    test::write_file(base / "junk.bin", std::string(3000, 'x'));

    EXPECT_EQ(
        run_salvage_command(quoted(sound) + " --out " + quoted(base / "out.cfb"), base / "a.txt"),
        0);
    EXPECT_EQ(run_salvage_command(quoted(base / "junk.bin"), base / "b.txt"), 1);
    EXPECT_EQ(run_salvage_command("", base / "c.txt"), 2);
    EXPECT_EQ(run_salvage_command(quoted(damaged) + " --json --extract " + quoted(base / "x"),
                                  base / "report.json"),
              1);
    EXPECT_EQ(
        run_salvage_command(quoted(damaged) + " --keep-partial --extract " + quoted(base / "y"),
                            base / "report.txt"),
        1);

    const std::string json = test::read_file(base / "report.json");
    EXPECT_NE(
        json.find("\"path\":\"broken\",\"size\":9000,\"state\":\"partial\",\"recovered_bytes\":"
                  "1024,\"missing\":[{\"offset\":1024,\"length\":7976}]"),
        std::string::npos)
        << json;
    EXPECT_NE(json.find("\"path\":\"whole\",\"size\":6000,\"state\":\"recovered\""),
              std::string::npos);
    EXPECT_NE(json.find("\"unclaimed_chains\":[{\"name\":\"lost/sector_"), std::string::npos);
    const std::string text = test::read_file(base / "report.txt");
    EXPECT_NE(text.find("partial\tbroken\t9000 bytes, 7976 bytes missing at 1024-8999"),
              std::string::npos)
        << text;
    EXPECT_NE(
        text.find("1 recovered, 1 partial, 0 ambiguous, 0 inferred, 0 lost; 1 unclaimed chains"),
        std::string::npos);
    if (!platform::kWindows && fs::exists("/usr/bin/python3")) {
        EXPECT_EQ(std::system(("/usr/bin/python3 -m json.tool " + quoted(base / "report.json") +
                               " > /dev/null")
                                  .c_str()),
                  0);
    }

    EXPECT_EQ(read_all(base / "x" / "whole"), pattern(6000, 1));
    EXPECT_FALSE(fs::exists(base / "x" / "broken"));
    ASSERT_TRUE(fs::is_directory(base / "x" / "lost"));
    const fs::path tail = fs::directory_iterator(base / "x" / "lost")->path();
    const std::vector<uint8_t> original = pattern(9000, 2);
    const std::vector<uint8_t> lost = read_all(tail);
    ASSERT_GE(lost.size(), 7976u);
    EXPECT_TRUE(std::equal(original.begin() + 1024, original.end(), lost.begin()));
    const std::vector<uint8_t> part = read_all(base / "y" / "broken");
    ASSERT_EQ(part.size(), 1024u);
    EXPECT_TRUE(std::equal(part.begin(), part.end(), original.begin()));

    const std::vector<uint8_t> out = read_all(base / "out.cfb");
    const Salvage_Result again = salvage_bytes(out.data(), out.size());
    EXPECT_EQ(again.layout(), "header");
    EXPECT_EQ(again.count(Salvage_State::recovered), 2u);
}

// The rebuilt file carries the tree, the data and the metadata, and is itself sound.
TEST(SalvageOut, RebuiltFileRoundTrips) {
    Cfb_Fs_Item_DirNode root;
    root.clsid[3] = 0x42;
    root.modified_time[1] = 7;
    Cfb_Fs_Item_DirNode& sub = root.add_storage(u"Objects");
    sub.clsid[0] = 9;
    sub.state_bits[2] = 5;
    sub.add_stream(u"deep", pattern(7000, 11)).creation_time[4] = 3;
    root.add_stream(u"small", pattern(300, 12));
    root.add_stream(u"empty", {});
    Builder_Options v4;
    v4.major_version = 4;
    std::vector<uint8_t> file = build_compound_file(root, v4);
    std::memset(file.data(), 0, 512);
    const Salvage_Result r = salvage_bytes(file.data(), file.size());
    ASSERT_EQ(r.count(Salvage_State::recovered), 3u) << salvage_report_text(r);
    const fs::path out = fresh_folder("round_trip") / "out.cfb";
    std::string error;
    ASSERT_TRUE(salvage_write(file.data(), file.size(), r, platform::from_path(out), {}, error));
    const std::vector<uint8_t> rebuilt = read_all(out);
    EXPECT_EQ(read_u16_le(rebuilt.data() + 26), 3);
    const Salvage_Result again = salvage_bytes(rebuilt.data(), rebuilt.size());
    EXPECT_EQ(again.layout(), "header");
    ASSERT_EQ(again.count(Salvage_State::recovered), 3u);
    EXPECT_EQ(again.entries[0].clsid[3], 0x42);
    EXPECT_EQ(again.entries[0].modified_time[1], 7);
    bool saw_deep = false;
    for (std::size_t i = 0; i < again.entries.size(); ++i) {
        const Salvaged_Entry& e = again.entries[i];
        if (e.name == u"Objects") {
            EXPECT_EQ(e.clsid[0], 9);
            EXPECT_EQ(e.state_bits[2], 5);
        }
        if (again.path_of(i) == u"Objects/deep") {
            saw_deep = true;
            EXPECT_EQ(e.creation_time[4], 3);
            EXPECT_EQ(salvaged_bytes(rebuilt.data(), rebuilt.size(), e.pieces), pattern(7000, 11));
        }
    }
    EXPECT_TRUE(saw_deep);
}

// Reading the input through an open file (blocks for the sector pass, system copies for long
// runs) gives the same result, the same rebuilt file and the same extracted files.
TEST(SalvageOut, ReadingThroughTheFileChangesNothing) {
    Cfb_Fs_Item_DirNode root;
    root.add_stream(u"big", pattern(300000, 21));
    root.add_storage(u"sub").add_stream(u"tail", pattern(70000, 22));
    root.add_stream(u"small", pattern(900, 23));
    std::vector<uint8_t> file = build_compound_file(root);
    std::memset(file.data(), 0, 512);
    const fs::path base = fresh_folder("through_file");
    test::write_file(base / "in.cfb", std::string(file.begin(), file.end()));
    platform::Input_File in;
    ASSERT_TRUE(in.open(platform::from_path(base / "in.cfb")));

    const Salvage_Result mapped = salvage_bytes(file.data(), file.size());
    const Salvage_Result read = salvage_bytes(file.data(), file.size(), false, &in);
    EXPECT_EQ(salvage_report_json(read), salvage_report_json(mapped));
    ASSERT_EQ(read.count(Salvage_State::recovered), 3u) << salvage_report_text(read);
    std::string error;
    for (const platform::Input_File* source : {static_cast<platform::Input_File*>(nullptr), &in}) {
        const std::string name = source == nullptr ? "mapped" : "read";
        ASSERT_TRUE(salvage_write(file.data(), file.size(), read,
                                  platform::from_path(base / (name + ".cfb")), {}, error, source));
        ASSERT_TRUE(salvage_extract(file.data(), file.size(), read,
                                    platform::from_path(base / name), {}, error, source));
    }
    EXPECT_EQ(read_all(base / "read.cfb"), read_all(base / "mapped.cfb"));
    for (const char* stream : {"big", "small", "sub/tail"}) {
        EXPECT_EQ(read_all(base / "read" / stream), read_all(base / "mapped" / stream)) << stream;
    }
    EXPECT_EQ(read_all(base / "read" / "big"), pattern(300000, 21));
}

// Twins in a damaged directory (names equal in the format's order) still make a valid file.
TEST(SalvageOut, TwinNamesAreRenamedForTheBuilder) {
    Cfb_Fs_Item_DirNode root;
    root.add_stream(u"ab", pattern(100, 1));
    root.add_stream(u"cd", pattern(200, 2));
    Build_Layout layout;
    std::vector<uint8_t> bytes = build_compound_file(root, {}, &layout);
    const uint64_t entry =
        test::directory_entry_offset(layout, test::stream_place(layout, u"cd").did);
    test::patch_bytes(bytes, entry, {'A', 0, 'B', 0});
    const Salvage_Result r = salvage_bytes(bytes.data(), bytes.size());
    ASSERT_EQ(r.count(Salvage_State::recovered), 2u);
    const auto tree = salvage_tree(bytes.data(), bytes.size(), r, {});
    const std::vector<uint8_t> rebuilt = build_compound_file(*tree);
    const Salvage_Result again = salvage_bytes(rebuilt.data(), rebuilt.size());
    EXPECT_EQ(again.count(Salvage_State::recovered), 2u);
}

// The count a repaired file is judged by.
TEST(SalvageOut, CountsResolvingStreamsOfAFile) {
    Cfb_Fs_Item_DirNode root;
    root.add_stream(u"a", pattern(5000, 1));
    root.add_stream(u"b", pattern(50, 2));
    const fs::path base = fresh_folder("count_resolving");
    const std::wstring file = platform::from_path(base / "in.cfb");
    ASSERT_TRUE(write_compound_file(file, root));
    std::size_t resolved = 0;
    std::size_t streams = 0;
    ASSERT_TRUE(count_resolving_streams(file, resolved, streams));
    EXPECT_EQ(resolved, 2u);
    EXPECT_EQ(streams, 2u);
    EXPECT_FALSE(
        count_resolving_streams(platform::from_path(base / "missing.cfb"), resolved, streams));
}

// --- Corpus of header-zeroed files, read back by python3-olefile (native only) ---

struct Original {
    std::string file;
    std::map<std::string, std::vector<uint8_t>> streams;  // "a/b" -> bytes
};

void fill_random_tree(Cfb_Fs_Item_DirNode& dir, const fs::path& mirror, std::mt19937& rng,
                      int depth, const std::string& prefix, Original& o) {
    const int n = 1 + static_cast<int>(rng() % 5);
    for (int i = 0; i < n; ++i) {
        const std::string name = "n" + std::to_string(depth) + "_" + std::to_string(i);
        const std::string path = prefix.empty() ? name : prefix + "/" + name;
        if (depth < 2 && rng() % 4 == 0) {
            fs::create_directories(mirror / name);
            fill_random_tree(dir.add_storage(std::u16string(name.begin(), name.end())),
                             mirror / name, rng, depth + 1, path, o);
            continue;
        }
        const uint32_t k = rng() % 4;
        std::vector<uint8_t> data = pattern(k == 0   ? rng() % 300
                                            : k == 1 ? rng() % 4096
                                                     : 4096 + rng() % 30000,
                                            rng());
        std::ofstream(mirror / name, std::ios::binary)
            .write(reinterpret_cast<const char*>(data.data()),
                   static_cast<std::streamsize>(data.size()));
        dir.add_stream(std::u16string(name.begin(), name.end()), data);
        o.streams[path] = std::move(data);
    }
}

TEST(SalvageCorpus, HeaderZeroedFilesComeBackThroughOlefile) {
    if (platform::kWindows || !fs::exists("/usr/bin/python3") || !fs::exists("/usr/bin/gsf")) {
        GTEST_SKIP() << "needs python3-olefile and gsf (native only)";
    }
    const fs::path base = fresh_folder("corpus");
    std::vector<Original> originals;
    for (int i = 0; i < 240; ++i) {
        std::mt19937 rng(static_cast<uint32_t>(500 + i));
        Original o;
        Cfb_Fs_Item_DirNode root;
        const fs::path mirror = base / ("src" + std::to_string(i));
        fs::create_directories(mirror);
        fill_random_tree(root, mirror, rng, 0, "", o);
        const fs::path damaged_path = base / ("in" + std::to_string(i) + ".bin");
        std::vector<uint8_t> file;
        if (i % 8 == 7) {
            // libgsf's own writer over the same folder.
            std::string cmd = "cd '" + mirror.string() + "' && /usr/bin/gsf createole '" +
                              damaged_path.string() + "'";
            for (const auto& e : fs::directory_iterator(mirror))
                cmd += " '" + e.path().filename().string() + "'";
            ASSERT_EQ(std::system((cmd + " >/dev/null 2>&1").c_str()), 0) << cmd;
            file = read_all(damaged_path);
        } else {
            Builder_Options opt;
            const int which = i % 6;
            opt.tables_at_end = which == 1;
            opt.sat_in_last_sector = which == 2;
            if (which == 3) opt.minor_version = 0x003B;
            opt.sibling_chain = which == 4;
            if (which == 5) opt.major_version = 4;
            file = build_compound_file(root, opt);
        }
        ASSERT_GE(file.size(), 512u);
        std::memset(file.data(), 0, 512);
        const Salvage_Result r = salvage_bytes(file.data(), file.size());
        o.file = (base / ("out" + std::to_string(i) + ".cfb")).string();
        std::string error;
        ASSERT_TRUE(salvage_write(file.data(), file.size(), r, platform::widen(o.file), {}, error));
        originals.push_back(std::move(o));
    }
    const fs::path script = base / "dump.py";
    std::ofstream(script)
        << "import olefile, sys\n"
           "for f in sys.argv[1:]:\n"
           "    o = olefile.OleFileIO(f)\n"
           "    for p in o.listdir(streams=True, storages=False):\n"
           "        print(f + '\\t' + '/'.join(p) + '\\t' + o.openstream(p).read().hex())\n";
    std::string cmd = "/usr/bin/python3 '" + script.string() + "'";
    for (const Original& o : originals) cmd += " '" + o.file + "'";
    const fs::path dump = base / "dump.txt";
    ASSERT_EQ(std::system((cmd + " > '" + dump.string() + "'").c_str()), 0);
    std::map<std::string, std::map<std::string, std::string>> read_back;
    std::ifstream in(dump);
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        std::string file, path, hex;
        std::getline(fields, file, '\t');
        std::getline(fields, path, '\t');
        std::getline(fields, hex, '\t');
        read_back[file][path] = hex;
    }
    std::size_t whole = 0;
    for (const Original& o : originals) {
        bool all = true;
        for (const auto& [path, bytes] : o.streams) {
            std::string hex;
            for (uint8_t b : bytes) {
                static const char* digits = "0123456789abcdef";
                hex += digits[b >> 4];
                hex += digits[b & 15];
            }
            const auto f = read_back.find(o.file);
            if (f == read_back.end() || f->second.count(path) == 0 || f->second.at(path) != hex)
                all = false;
        }
        whole += all ? 1 : 0;
    }
    EXPECT_GE(whole * 100, originals.size() * 95) << whole << " of " << originals.size();
}

}  // namespace
}  // namespace vrk
