// Data safety, as one table: whatever the names, links, write failures and folders the library
// makes or empties on its own, the input keeps its bytes and nothing appears, changes or goes
// outside the places a row names. Each row prepares
// a folder of its own (the input document, links, earlier files), acts (an export, an entry as
// the tool calls it, the tool run as a process, a salvage or builder call), and the folder is
// then compared with a snapshot taken before.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "cfb_vornak/builder/Cfb_Builder.h"
#include "cfb_vornak/cfb_vornak_api.h"
#include "cfb_vornak/entries/Entries.h"
#include "cfb_vornak/salvage/Salvage.h"
#include "cfb_vornak/salvage/Salvage_Output.h"
#include "common/error_codes.h"
#include "common/platform.h"
#include "file_operation/Input_View.h"
#include "support/cfb_patch.h"
#include "support/test_folders.h"

namespace vrk {
namespace {

namespace fs = std::filesystem;
using platform::Write_Fault;

class Started_Library : public ::testing::Environment {
  public:
    void SetUp() override { ASSERT_EQ(VrkCfbInit("safety_logs", "safety_config", "work"), 0); }
};
const auto* const g_library = ::testing::AddGlobalTestEnvironment(new Started_Library);

// A word-processing document ("1Table"): small and large streams and a storage.
Cfb_Fs_Item_DirNode sample_tree() {
    Cfb_Fs_Item_DirNode root;
    root.add_stream(u"1Table", test::random_bytes(300, 1));
    root.add_stream(u"WordDocument", test::random_bytes(9000, 2));
    root.add_stream(u"Data", test::random_bytes(5000, 3));
    root.add_storage(u"ObjectPool").add_stream(u"Inner", test::random_bytes(100, 4));
    return root;
}

struct Scene {
    fs::path root;   // the row's folder
    fs::path input;  // the document
    std::wstring at(const std::string& name) const { return platform::from_path(root / name); }
    std::string arg(const std::string& name) const { return platform::narrow(at(name)); }
};

using Action = std::function<int(const Scene&)>;

// `call` with the input's path, on a thread of its own, so that no earlier record of this
// thread shows through.
Action on_input(const std::function<int(const std::string&, const Scene&)>& call) {
    return [=](const Scene& s) {
        const std::string in = platform::narrow(platform::from_path(s.input));
        int result = 0;
        std::thread([&] { result = call(in, s); }).join();
        return result;
    };
}

Action export_repair(const std::string& out, const char* password = nullptr) {
    return on_input([=](const std::string& in, const Scene& s) {
        return password == nullptr ? VrkCfbGeneralRepair(in.c_str(), s.arg(out).c_str())
                                   : VrkCfbAdvanceRepair(in.c_str(), s.arg(out).c_str(), password);
    });
}

// The repair as the tool runs it: staged, through the entry.
Action staged_repair(const std::string& out) {
    return on_input([=](const std::string& in, const Scene& s) {
        return to_api_result_code(general_repair_entry(in.c_str(), s.arg(out).c_str(), nullptr,
                                                       platform::Create_Mode::staged));
    });
}

Action export_analysis(const std::string& folder) {
    return on_input([=](const std::string& in, const Scene& s) {
        return VrkCfbAnalysis(in.c_str(), s.arg(folder).c_str());
    });
}

// The salvage as the tool runs it, in this process: 1 when the output was written.
Action salvage_call(const std::string& target, bool extract) {
    return [=](const Scene& s) {
        Input_View view;
        if (view.open(platform::from_path(s.input)) != platform::Map_Step::ok) return -1;
        const salvage::Salvage_Input input(view);
        const Salvage_Result result = salvage_input(input);
        std::string error;
        const bool ok = extract ? salvage_extract(input, result, s.at(target), {}, error)
                                : salvage_write(input, result, s.at(target), {}, error,
                                                platform::Create_Mode::staged);
        return ok ? 1 : 0;
    };
}

Action builder_call(const std::string& out, platform::Create_Mode mode) {
    return [=](const Scene& s) {
        struct Items final : Stream_Source {
            uint64_t size(const Cfb_Fs_Item_FileNode& item) const override {
                return item.data.size();
            }
            void write(const Cfb_Fs_Item_FileNode& item, const Bytes_Out& put) const override {
                put(item.data.data(), item.data.size());
            }
        };
        const Write_Result r =
            write_compound_file(Write_Target{s.at(out), mode, nullptr}, sample_tree(), Items{});
        return static_cast<int>(r);
    };
}

// The built tool run as a process. "IN" stands for the input, "@name" for a path in the row's
// folder. `file_blocks`, when not 0, limits the size of any file the tool writes (POSIX
// ulimit -f, in the shell's blocks) with the signal ignored, so that writes fail as on a full
// disk. Gives the exit status.
Action tool(const std::vector<std::string>& words, int file_blocks = 0) {
    return [=](const Scene& s) {
        const fs::path here = fs::current_path();
        const fs::path binary =
            here / ".." / ".." / "bin" / (platform::kWindows ? "cfbvornak.exe" : "cfbvornak");
        const fs::path state = here / "tool_state";
        std::string cmd = "\"" + binary.string() + "\" --log-dir \"" + (state / "logs").string() +
                          "\" --config-dir \"" + (state / "config").string() + "\" --work-dir \"" +
                          (state / "work").string() + "\"";
        for (const std::string& w : words) {
            // "@" alone is the folder itself, without a trailing separator (which would quote
            // the closing quote on Windows).
            const std::string arg = w == "IN"     ? platform::narrow(platform::from_path(s.input))
                                    : w == "@"    ? platform::narrow(platform::from_path(s.root))
                                    : w[0] == '@' ? s.arg(w.substr(1))
                                                  : w;
            cmd += " \"" + arg + "\"";
        }
        cmd += platform::kWindows ? " > NUL 2>&1" : " > /dev/null 2>&1";
        if (file_blocks != 0) {
            cmd = "ulimit -f " + std::to_string(file_blocks) + "; trap '' XFSZ; " + cmd;
        }
        // cmd.exe takes off one pair of outer quotes.
        if (platform::kWindows) cmd = "\"" + cmd + "\"";
        const int status = std::system(cmd.c_str());
        return platform::kWindows ? status : (status >> 8) & 0xFF;
    };
}

// Why a row could not be arranged on this platform; an action that cannot arrange its scene
// sets it, and the row is skipped.
std::string& arrangement_failure() {
    static std::string why;
    return why;
}

// Starts the library again with `work` as its work folder (the table's own is "work").
void start_library(const std::string& work) {
    ASSERT_EQ(VrkCfbInit("safety_logs", "safety_config", work.c_str()), 0);
}

// An analysis into "an" and a repair into "out.doc" with "work" in the row's folder as the
// work folder: 0 when both succeed.
Action with_work_folder_in_row() {
    return [](const Scene& s) {
        start_library(s.arg("work"));
        const int analysis = export_analysis("an")(s);
        const int repair = export_repair("out.doc")(s);
        start_library("work");
        return analysis != 0 ? analysis : repair;
    };
}

// The folders in the temporary folder that this process made for its scratch folders.
std::vector<fs::path> private_scratch_folders() {
    const std::string prefix = "cfb_vornak_" + std::to_string(platform::current_process_id()) + "_";
    std::vector<fs::path> found;
    for (const auto& item : fs::directory_iterator(fs::temp_directory_path())) {
        if (item.path().filename().string().rfind(prefix, 0) == 0) found.push_back(item.path());
    }
    return found;
}

// Without a work folder, two threads analyse and repair at once, five times each, into
// "outputs": 0 when every call succeeds. Their scratch folders share one private folder in
// the temporary folder (owner only, a fresh name), which VrkCfbDestroy removes; a later call
// makes a new one. Where the temporary folder is this test's own (natively: TMPDIR is set for
// this test) and links can be made, links planted at the fixed names there, pointing into the
// row's "outside", are left alone.
Action two_threads_without_work_folder() {
    return [](const Scene& s) {
        const fs::path temp = fs::temp_directory_path();
        const char* const fixed_names[] = {"lib_cfb_tmp", "tmp_release_dir_for_fixing_cfb"};
        std::vector<std::string> planted;
        if (fs::absolute(temp).string().rfind(fs::current_path().string(), 0) == 0) {
            for (const char* name : fixed_names) {
                std::error_code ec;
                fs::create_directory_symlink(s.root / "outside", temp / name, ec);
                if (!ec) planted.emplace_back(name);
            }
        }
        start_library("");
        EXPECT_TRUE(private_scratch_folders().empty());
        const std::string in = platform::narrow(platform::from_path(s.input));
        std::vector<int32_t> results(20, -1);
        auto work = [&](std::size_t thread) {
            for (std::size_t round = 0; round < 5; ++round) {
                const std::string name = std::to_string(thread) + "_" + std::to_string(round);
                int32_t* result = &results[10 * thread + 2 * round];
                result[0] = VrkCfbAnalysis(in.c_str(), s.arg("outputs/an" + name).c_str());
                result[1] =
                    VrkCfbGeneralRepair(in.c_str(), s.arg("outputs/" + name + ".doc").c_str());
            }
        };
        std::thread first(work, 0);
        std::thread second(work, 1);
        first.join();
        second.join();

        const std::vector<fs::path> made = private_scratch_folders();
        EXPECT_EQ(made.size(), 1u);
        if (!made.empty() && !platform::kWindows) {
            EXPECT_EQ(fs::status(made[0]).permissions() & fs::perms::all, fs::perms::owner_all);
        }
        for (const std::string& name : planted) {
            EXPECT_TRUE(fs::is_symlink(fs::symlink_status(temp / name))) << name;
            fs::remove(temp / name);
        }
        EXPECT_EQ(VrkCfbDestroy(), 0);
        EXPECT_TRUE(private_scratch_folders().empty());
        EXPECT_EQ(export_analysis("outputs/again")(s), 0);
        EXPECT_EQ(private_scratch_folders().size(), 1u);
        EXPECT_EQ(VrkCfbDestroy(), 0);
        EXPECT_TRUE(private_scratch_folders().empty());
        start_library("work");
        for (const int32_t result : results) {
            if (result != 0) return static_cast<int>(result);
        }
        return 0;
    };
}

// The file check run with "cwd" in the row's folder as the current folder, made so that
// nothing can be created in it. As root, permissions do not stop that: the current folder is
// then removed, which leaves one that nobody can write into.
Action check_in_unwritable_current_folder() {
    return [](const Scene& s) {
        const fs::path saved = fs::current_path();
        const fs::path here = s.root / "cwd";
        fs::create_directories(here);
        fs::permissions(here, fs::perms::owner_read | fs::perms::owner_exec);
        fs::current_path(here);
        std::error_code ec;
        if (fs::create_directory("probe", ec)) {
            fs::remove("probe");
            fs::permissions(here, fs::perms::owner_all);
            fs::remove(here, ec);
            if (!ec) fs::create_directory("probe", ec);
        }
        const bool unwritable = ec && !fs::exists(here / "probe");
        const std::string in = platform::narrow(platform::from_path(s.input));
        int result = 0;
        if (unwritable) std::thread([&] { result = VrkCfbFileCheck(in.c_str()); }).join();
        fs::current_path(saved);
        if (fs::exists(here)) fs::permissions(here, fs::perms::owner_all);
        if (!unwritable) arrangement_failure() = "no current folder that cannot be written";
        return result;
    };
}

enum class Make { file, symlink, hardlink, folder };
struct Prep {
    Make make;
    std::string name;
    std::string value;  // a file's bytes; a symbolic link's target as stored; a hard link's file
};

struct Row {
    std::string name;
    std::string input;  // where the document lies in the row's folder
    std::vector<Prep> prep;
    Action act;
    int expected;
    // Names that must appear; "name/" lets anything appear at or below name.
    std::vector<std::string> appear;
    Write_Fault fault = Write_Fault::none;
    uint64_t fault_at = 0;
    bool needs_file_size_limit = false;
    // Names whose entries may change ("name/": at or below name), such as a link that the
    // library removes as a link.
    std::vector<std::string> may_change = {};
};

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.name;
}

// Every entry below `root`, links not followed: its kind and contents.
std::map<std::string, std::string> snapshot(const fs::path& root) {
    std::map<std::string, std::string> out;
    for (const fs::directory_entry& e : fs::recursive_directory_iterator(root)) {
        const std::string name = e.path().lexically_relative(root).generic_string();
        if (e.is_symlink()) {
            out[name] = "link to " + fs::read_symlink(e.path()).generic_string();
        } else if (e.is_directory()) {
            out[name] = "folder";
        } else {
            out[name] = "file " + test::read_file(e.path());
        }
    }
    return out;
}

bool may_appear(const std::string& name, const std::vector<std::string>& appear) {
    for (const std::string& a : appear) {
        if (a == name) return true;
        if (a.back() == '/' && (name + "/").compare(0, a.size(), a) == 0) return true;
    }
    return false;
}

// Links, earlier files and folders; false with a reason when the platform cannot make one.
bool prepare(const Scene& s, const std::vector<Prep>& prep, std::string& why) {
    for (const Prep& p : prep) {
        const fs::path path = s.root / p.name;
        std::error_code ec;
        fs::create_directories(path.parent_path(), ec);
        if (p.make == Make::file) test::write_file(path, p.value);
        if (p.make == Make::folder) fs::create_directories(path, ec);
        if (p.make == Make::symlink) fs::create_symlink(p.value, path, ec);
        if (p.make == Make::hardlink) fs::create_hard_link(s.root / p.value, path, ec);
        if (!ec && (p.make == Make::symlink ? fs::is_symlink(path) : fs::exists(path))) continue;
        const char* kind = p.make == Make::symlink    ? "symbolic link "
                           : p.make == Make::hardlink ? "hard link "
                                                      : "";
        why = "this platform cannot make the " + std::string(kind) + p.name + ": " + ec.message();
        return false;
    }
    return true;
}

const std::string kSecret = "outside the output folder";

// Codes: an export's folded result, the tool's exit status, 1/0 for a salvage call, the
// builder's Write_Result (0 written, 1 is the input, 2 failed).
const int kCfbOpenFailed = to_api_result_code(ec::kCfbOpenFailed);
const int kWriteFailed = to_api_result_code(ec::kWriteFailed);
const int kBuilt = static_cast<int>(Write_Result::written);
const int kBuildFailed = static_cast<int>(Write_Result::failed);

// 101 links where --extract would put WordDocument: the name and its first hundred suffixes.
std::vector<Prep> links_for_every_suffix() {
    std::vector<Prep> prep{{Make::file, "outside/secret", kSecret},
                           {Make::symlink, "x/WordDocument", "../outside/secret"},
                           {Make::file, "x/Data", "earlier"}};
    for (int n = 2; n <= 101; ++n) {
        prep.push_back({Make::symlink, "x/WordDocument~" + std::to_string(n), "../outside/secret"});
    }
    return prep;
}

// Files outside, and the work folder's two scratch folders as links to folders of them.
std::vector<Prep> scratch_folder_links() {
    return {{Make::file, "outside/raw/keep.txt", kSecret},
            {Make::file, "outside/release/sub/keep.txt", kSecret},
            {Make::symlink, "work/lib_cfb_tmp", "../outside/raw"},
            {Make::symlink, "work/tmp_release_dir_for_fixing_cfb", "../outside/release"}};
}

std::vector<Row> rows() {
    const Prep earlier_doc{Make::file, "out.doc", "earlier"};
    const Prep earlier_cfb{Make::file, "out.cfb", "earlier"};
    const Prep symlink_l_doc{Make::symlink, "l.doc", "a.doc"};
    const Prep hardlink_h_doc{Make::hardlink, "h.doc", "a.doc"};
    const Write_Fault none = Write_Fault::none;
    const Write_Fault full = Write_Fault::disk_full;
    const Write_Fault shortw = Write_Fault::short_write;
    const auto staged = platform::Create_Mode::staged;
    const auto in_place = platform::Create_Mode::replace;
    // One row a line: name, input, preparations, action, result, what appears, fault, byte,
    // whether a file size limit is needed.
    // clang-format off
    return {
        // A repair onto its own input, by every name that reaches it.
        {"ExportSameName", "a.doc", {}, export_repair("a.doc"), kCfbOpenFailed, {}},
        {"ExportKindRenamesXlsBack", "a.doc", {}, export_repair("a.xls"), kCfbOpenFailed, {}},
        {"ExportKindRenamesTmpBack", "a.doc", {}, export_repair("a.tmp"), kCfbOpenFailed, {}},
        {"ExportThroughSymlink", "a.doc", {symlink_l_doc}, export_repair("l.xls"), kCfbOpenFailed,
         {}},
        {"ExportThroughHardLink", "a.doc", {hardlink_h_doc}, export_repair("h.doc"),
         kCfbOpenFailed, {}},
        {"AdvanceExportSameName", "a.doc", {}, export_repair("a.doc", "pw"), kCfbOpenFailed, {}},
        {"ToolSameName", "a.doc", {}, tool({"repair", "IN", "IN"}), 2, {}},
        {"ToolKindRenamesBack", "a.doc", {}, tool({"repair", "IN", "@a.xls"}), 2, {}},
        {"ToolThroughSymlink", "a.doc", {symlink_l_doc}, tool({"repair", "IN", "@l.doc"}), 2, {}},
        {"ToolThroughHardLink", "a.doc", {hardlink_h_doc},
         tool({"repair", "--password", "pw", "IN", "@h.tmp"}), 2, {}},
        // The salvage's outputs.
        {"SalvageOutOntoInput", "a.doc", {}, tool({"salvage", "IN", "--out", "IN"}), 2, {}},
        {"SalvageOutThroughSymlink", "a.doc", {{Make::symlink, "l.cfb", "a.doc"}},
         tool({"salvage", "IN", "--out", "@l.cfb"}), 2, {}},
        {"ExtractBesideInputOfAStreamsName", "WordDocument", {},
         tool({"salvage", "IN", "--extract", "@"}), 0,
         {"WordDocument~2", "1Table", "Data", "ObjectPool/"}},
        {"ExtractPastLinksAndFiles", "a.doc", links_for_every_suffix(),
         tool({"salvage", "IN", "--extract", "@x"}), 0,
         {"x/WordDocument~102", "x/Data~2", "x/1Table", "x/ObjectPool/"}},
        {"ExtractPastALinkedStorage", "a.doc",
         {{Make::folder, "outside/pool", ""}, {Make::symlink, "x/ObjectPool", "../outside/pool"}},
         salvage_call("x", true), 1, {"x/"}},
        // Writes failing at byte N: a full disk or a short write.
        {"StagedRepairDiskFull", "a.doc", {earlier_doc}, staged_repair("out.doc"), kWriteFailed, {},
         full, 1000},
        {"StagedRepairShortWriteInHeader", "a.doc", {earlier_doc}, staged_repair("out.xls"),
         kWriteFailed, {}, shortw, 100},
        {"ExportRepairDiskFullKeepsGoing", "a.doc", {}, export_repair("out.doc"), 0, {"out.doc"},
         full, 4096},
        {"AnalysisReleaseIgnoresFailedWrites", "a.doc", {}, export_analysis("an"), 0, {"an/"},
         full, 200},
        {"SalvageOutShortWrite", "a.doc", {earlier_cfb}, salvage_call("out.cfb", false), 0, {},
         shortw, 3000},
        {"SalvageExtractDiskFull", "a.doc", {}, salvage_call("x", true), 0,
         {"x", "x/Data", "x/1Table", "x/ObjectPool", "x/ObjectPool/Inner"}, full, 6000},
        {"BuilderStagedDiskFull", "a.doc", {earlier_cfb}, builder_call("out.cfb", staged),
         kBuildFailed, {}, full, 1},
        {"BuilderInPlaceShortWrite", "a.doc", {}, builder_call("b.cfb", in_place), kBuildFailed,
         {"b.cfb"}, shortw, 700},
        {"BuilderWithoutFault", "a.doc", {earlier_cfb}, builder_call("n.cfb", staged), kBuilt,
         {"n.cfb"}},
        // The tool as a process on a disk that fills up (a file size limit).
        {"ToolRepairFileSizeLimit", "a.doc", {earlier_doc}, tool({"repair", "IN", "@out.doc"}, 16),
         2, {}, none, 0, true},
        {"ToolSalvageOutFileSizeLimit", "a.doc", {earlier_cfb},
         tool({"salvage", "IN", "--out", "@out.cfb"}, 8), 2, {}, none, 0, true},
        {"ToolBuildSampleFileSizeLimit", "a.doc", {}, tool({"build-sample", "@s"}, 8), 2, {"s"},
         none, 0, true},
        // Folders the library makes or empties on its own: scratch folders that are links to
        // folders holding files (the work folder in the row's folder; the links may become
        // folders), an empty work folder used by two threads at once, the check in a current
        // folder that cannot be written.
        {"ScratchFoldersLinkedElsewhere", "a.doc", scratch_folder_links(),
         with_work_folder_in_row(), 0, {"work/", "an/", "out.doc"}, none, 0, false,
         {"work/lib_cfb_tmp", "work/tmp_release_dir_for_fixing_cfb"}},
        {"EmptyWorkFolderUsedByTwoThreadsAtOnce", "a.doc",
         {{Make::file, "outside/keep.txt", kSecret}}, two_threads_without_work_folder(), 0,
         {"outputs/"}},
        {"CheckInACurrentFolderThatCannotBeWritten", "a.doc", {},
         check_in_unwritable_current_folder(), 0, {"cwd/"}},
    };
    // clang-format on
}

class DataSafety : public ::testing::TestWithParam<Row> {};

TEST_P(DataSafety, InputKeepsItsBytesAndNothingAppearsElsewhere) {
    const Row& row = GetParam();
    if (row.needs_file_size_limit && platform::kWindows) {
        GTEST_SKIP() << "a file size limit for a child process is a POSIX shell feature";
    }
    test::Temp_Folder folder(row.name);
    const Scene scene{folder.path(), folder.path() / row.input};
    ASSERT_TRUE(test::write_bytes_to_file(platform::from_path(scene.input),
                                          build_compound_file(sample_tree())));
    std::string why;
    if (!prepare(scene, row.prep, why)) GTEST_SKIP() << why;
    const auto before = snapshot(scene.root);

    platform::set_write_fault_for_tests(row.fault, row.fault_at);
    arrangement_failure().clear();
    const int result = row.act(scene);
    platform::set_write_fault_for_tests(Write_Fault::none, 0);

    EXPECT_EQ(result, row.expected);
    const auto after = snapshot(scene.root);
    for (const auto& [name, state] : before) {
        const auto found = after.find(name);
        EXPECT_TRUE(may_appear(name, row.may_change) ||
                    (found != after.end() && found->second == state))
            << name << " changed";
    }
    for (const auto& entry : after) {
        if (before.count(entry.first) == 0) {
            EXPECT_TRUE(may_appear(entry.first, row.appear)) << entry.first << " appeared";
        }
    }
    for (const std::string& name : row.appear) {
        if (name.back() != '/') {
            EXPECT_EQ(after.count(name), 1u) << name << " is missing";
        }
    }
    if (!arrangement_failure().empty()) GTEST_SKIP() << arrangement_failure();
}

INSTANTIATE_TEST_SUITE_P(Table, DataSafety, ::testing::ValuesIn(rows()),
                         [](const ::testing::TestParamInfo<Row>& info) { return info.param.name; });

}  // namespace
}  // namespace vrk
