// Data safety, as one table: whatever the names, links, write failures and folders the library
// makes or empties on its own, the input keeps its bytes and nothing appears, changes or goes
// outside the places a row names. Each row prepares a folder of its own (the document, links,
// earlier files), acts (an export, an entry as the tool calls it, the tool as a process, a
// salvage or builder call), and the folder is compared with a snapshot taken before.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
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

// Starts the library with `work` as its work folder (the table's own is "work").
void start_library(const std::string& work) {
    ASSERT_EQ(VrkCfbInit("safety_logs", "safety_config", work.c_str()), 0);
}

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
    std::string arg(const std::string& name) const {
        return platform::narrow(platform::from_path(root / name));
    }
    std::string in() const { return platform::narrow(platform::from_path(input)); }
};

using Action = std::function<int(const Scene&)>;

// Why a row could not be arranged on this platform; an action that cannot arrange its scene
// sets it, and the row is skipped.
std::string& arrangement_failure() {
    static std::string why;
    return why;
}

enum class Call { repair, advance, staged, analysis };

// An export on a thread of its own, so that no earlier record of this thread shows through: a
// repair into `out` (the advance one with a password, or staged through the entry as the tool
// runs it), or an analysis into folder `out`.
Action call(Call kind, const std::string& out) {
    return [=](const Scene& s) {
        int r = 0;
        std::thread([&] {
            const std::string in = s.in();
            const std::string to = s.arg(out);
            if (kind == Call::repair) r = VrkCfbGeneralRepair(in.c_str(), to.c_str());
            if (kind == Call::advance) r = VrkCfbAdvanceRepair(in.c_str(), to.c_str(), "pw");
            if (kind == Call::analysis) r = VrkCfbAnalysis(in.c_str(), to.c_str());
            if (kind == Call::staged) {
                r = to_api_result_code(general_repair_entry(in.c_str(), to.c_str(), nullptr,
                                                            platform::Create_Mode::staged));
            }
        }).join();
        return r;
    };
}

// The salvage as the tool runs it, in this process: 1 when the output was written.
Action salvage_call(const std::string& target, bool extract) {
    return [=](const Scene& s) {
        Input_View view;
        if (view.open(platform::from_path(s.input)) != platform::Map_Step::ok) return -1;
        const salvage::Salvage_Input input(view);
        const Salvage_Result result = salvage_input(input);
        const std::wstring to = platform::from_path(s.root / target);
        std::string error;
        return (extract
                    ? salvage_extract(input, result, to, {}, error)
                    : salvage_write(input, result, to, {}, error, platform::Create_Mode::staged))
                   ? 1
                   : 0;
    };
}

// The builder's Write_Result (0 written, 1 is the input, 2 failed).
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
        const Write_Target target{platform::from_path(s.root / out), mode, nullptr};
        return static_cast<int>(write_compound_file(target, sample_tree(), Items{}));
    };
}

// The built tool run as a process; gives its exit status. "IN" stands for the input, "@name"
// for a path in the row's folder ("@" alone: the folder, without a trailing separator, which
// would quote the closing quote on Windows). `file_blocks`, when not 0, limits the size of any
// file the tool writes (POSIX ulimit -f) with the signal ignored: writes fail as on a full disk.
Action tool(const std::vector<std::string>& words, int file_blocks = 0) {
    return [=](const Scene& s) {
        if (file_blocks != 0 && platform::kWindows) {
            arrangement_failure() = "a file size limit for a child process is a POSIX feature";
            return 0;
        }
        const fs::path here = fs::current_path();
        const fs::path state = here / "tool_state";
        std::string cmd =
            "\"" +
            (here / ".." / ".." / "bin" / (platform::kWindows ? "cfbvornak.exe" : "cfbvornak"))
                .string() +
            "\" --log-dir \"" + (state / "logs").string() + "\" --config-dir \"" +
            (state / "config").string() + "\" --work-dir \"" + (state / "work").string() + "\"";
        for (const std::string& w : words) {
            cmd += " \"" +
                   (w == "IN"     ? s.in()
                    : w == "@"    ? platform::narrow(platform::from_path(s.root))
                    : w[0] == '@' ? s.arg(w.substr(1))
                                  : w) +
                   "\"";
        }
        cmd += platform::kWindows ? " > NUL 2>&1" : " > /dev/null 2>&1";
        if (file_blocks != 0) {
            cmd = "ulimit -f " + std::to_string(file_blocks) + "; trap '' XFSZ; " + cmd;
        }
        if (platform::kWindows) cmd = "\"" + cmd + "\"";  // cmd.exe takes off one pair of quotes
        const int status = std::system(cmd.c_str());
        return platform::kWindows ? status : (status >> 8) & 0xFF;
    };
}

// An analysis into "an" and a repair into "out.doc" with "work" in the row's folder as the
// work folder: 0 when both succeed.
Action with_work_folder_in_row() {
    return [](const Scene& s) {
        start_library(s.arg("work"));
        const int analysis = call(Call::analysis, "an")(s);
        const int repair = call(Call::repair, "out.doc")(s);
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
// this test), links planted at the fixed names there, into the row's "outside", are left alone.
Action two_threads_without_work_folder() {
    return [](const Scene& s) {
        const fs::path temp = fs::temp_directory_path();
        std::vector<std::string> planted;
        if (fs::absolute(temp).string().rfind(fs::current_path().string(), 0) == 0) {
            for (const char* name : {"lib_cfb_tmp", "tmp_release_dir_for_fixing_cfb"}) {
                std::error_code ec;
                fs::create_directory_symlink(s.root / "outside", temp / name, ec);
                if (!ec) planted.emplace_back(name);
            }
        }
        start_library("");
        EXPECT_TRUE(private_scratch_folders().empty());
        const std::string in = s.in();
        std::atomic<int> failed{0};
        auto work = [&](int thread) {
            for (int round = 0; round < 5; ++round) {
                const std::string name = std::to_string(thread) + "_" + std::to_string(round);
                const std::string an = s.arg("outputs/an" + name);
                const std::string out = s.arg("outputs/" + name + ".doc");
                for (const int r : {VrkCfbAnalysis(in.c_str(), an.c_str()),
                                    VrkCfbGeneralRepair(in.c_str(), out.c_str())}) {
                    if (r != 0) failed = r;
                }
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
        EXPECT_EQ(call(Call::analysis, "outputs/again")(s), 0);
        EXPECT_EQ(private_scratch_folders().size(), 1u);
        EXPECT_EQ(VrkCfbDestroy(), 0);
        EXPECT_TRUE(private_scratch_folders().empty());
        return failed.load();
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
        const std::string in = s.in();
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
struct Fault {
    Write_Fault kind = Write_Fault::none;
    uint64_t at = 0;  // the byte at which writes fail
};

struct Row {
    std::string name;
    std::vector<Prep> prep;
    Action act;
    int expected;
    // Names that must appear; "name/" lets anything appear at or below name.
    std::vector<std::string> appear;
    Fault fault = {};
    // Names whose entries may change ("name/": at or below name), such as a link that the
    // library removes as a link.
    std::vector<std::string> may_change = {};
    std::string input = "a.doc";  // where the document lies in the row's folder
};

// Every entry below `root`, links not followed: its kind and contents.
std::map<std::string, std::string> snapshot(const fs::path& root) {
    std::map<std::string, std::string> out;
    for (const fs::directory_entry& e : fs::recursive_directory_iterator(root)) {
        const std::string name = e.path().lexically_relative(root).generic_string();
        out[name] = e.is_symlink()     ? "link to " + fs::read_symlink(e.path()).generic_string()
                    : e.is_directory() ? "folder"
                                       : "file " + test::read_file(e.path());
    }
    return out;
}

bool may_appear(const std::string& name, const std::vector<std::string>& appear) {
    return std::any_of(appear.begin(), appear.end(), [&](const std::string& a) {
        return a == name || (a.back() == '/' && (name + "/").compare(0, a.size(), a) == 0);
    });
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
        why = "this platform cannot make " + p.name + ": " + ec.message();
        return false;
    }
    return true;
}

const std::string kSecret = "outside the output folder";

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

std::vector<Row> rows() {
    // Codes: an export's folded result, the tool's exit status, 1/0 for a salvage call, the
    // builder's Write_Result.
    const int open_failed = to_api_result_code(ec::kCfbOpenFailed);
    const int write_failed = to_api_result_code(ec::kWriteFailed);
    const int built = static_cast<int>(Write_Result::written);
    const int build_failed = static_cast<int>(Write_Result::failed);
    const Prep earlier_doc{Make::file, "out.doc", "earlier"};
    const Prep earlier_cfb{Make::file, "out.cfb", "earlier"};
    const Prep symlink_l_doc{Make::symlink, "l.doc", "a.doc"};
    const Prep hardlink_h_doc{Make::hardlink, "h.doc", "a.doc"};
    const auto full = [](uint64_t at) { return Fault{Write_Fault::disk_full, at}; };
    const auto shortw = [](uint64_t at) { return Fault{Write_Fault::short_write, at}; };
    const auto staged = platform::Create_Mode::staged;
    const auto in_place = platform::Create_Mode::replace;
    // Files outside, and the work folder's two scratch folders as links to folders of them.
    const std::vector<Prep> scratch_links{
        {Make::file, "outside/raw/keep.txt", kSecret},
        {Make::file, "outside/release/sub/keep.txt", kSecret},
        {Make::symlink, "work/lib_cfb_tmp", "../outside/raw"},
        {Make::symlink, "work/tmp_release_dir_for_fixing_cfb", "../outside/release"}};
    // One row: name, preparations, action, result, what appears, write fault, what may change,
    // the input's name.
    // clang-format off
    return {
        // A repair onto its own input, by every name that reaches it.
        {"ExportSameName", {}, call(Call::repair, "a.doc"), open_failed, {}},
        {"ExportKindRenamesXlsBack", {}, call(Call::repair, "a.xls"), open_failed, {}},
        {"ExportKindRenamesTmpBack", {}, call(Call::repair, "a.tmp"), open_failed, {}},
        {"ExportThroughSymlink", {symlink_l_doc}, call(Call::repair, "l.xls"), open_failed, {}},
        {"ExportThroughHardLink", {hardlink_h_doc}, call(Call::repair, "h.doc"), open_failed, {}},
        {"AdvanceExportSameName", {}, call(Call::advance, "a.doc"), open_failed, {}},
        {"ToolSameName", {}, tool({"repair", "IN", "IN"}), 2, {}},
        {"ToolKindRenamesBack", {}, tool({"repair", "IN", "@a.xls"}), 2, {}},
        {"ToolThroughSymlink", {symlink_l_doc}, tool({"repair", "IN", "@l.doc"}), 2, {}},
        {"ToolThroughHardLink", {hardlink_h_doc},
         tool({"repair", "--password", "pw", "IN", "@h.tmp"}), 2, {}},
        // The salvage's outputs.
        {"SalvageOutOntoInput", {}, tool({"salvage", "IN", "--out", "IN"}), 2, {}},
        {"SalvageOutThroughSymlink", {{Make::symlink, "l.cfb", "a.doc"}},
         tool({"salvage", "IN", "--out", "@l.cfb"}), 2, {}},
        {"ExtractBesideInputOfAStreamsName", {}, tool({"salvage", "IN", "--extract", "@"}), 0,
         {"WordDocument~2", "1Table", "Data", "ObjectPool/"}, {}, {}, "WordDocument"},
        {"ExtractPastLinksAndFiles", links_for_every_suffix(),
         tool({"salvage", "IN", "--extract", "@x"}), 0,
         {"x/WordDocument~102", "x/Data~2", "x/1Table", "x/ObjectPool/"}},
        {"ExtractPastALinkedStorage",
         {{Make::folder, "outside/pool", ""}, {Make::symlink, "x/ObjectPool", "../outside/pool"}},
         salvage_call("x", true), 1, {"x/"}},
        // Writes failing at byte N: a full disk or a short write.
        {"StagedRepairDiskFull", {earlier_doc}, call(Call::staged, "out.doc"), write_failed, {},
         full(1000)},
        {"StagedRepairShortWriteInHeader", {earlier_doc}, call(Call::staged, "out.xls"),
         write_failed, {}, shortw(100)},
        {"ExportRepairDiskFullKeepsGoing", {}, call(Call::repair, "out.doc"), 0, {"out.doc"},
         full(4096)},
        {"AnalysisReleaseIgnoresFailedWrites", {}, call(Call::analysis, "an"), 0, {"an/"},
         full(200)},
        {"SalvageOutShortWrite", {earlier_cfb}, salvage_call("out.cfb", false), 0, {},
         shortw(3000)},
        {"SalvageExtractDiskFull", {}, salvage_call("x", true), 0,
         {"x", "x/Data", "x/1Table", "x/ObjectPool", "x/ObjectPool/Inner"}, full(6000)},
        {"BuilderStagedDiskFull", {earlier_cfb}, builder_call("out.cfb", staged), build_failed, {},
         full(1)},
        {"BuilderInPlaceShortWrite", {}, builder_call("b.cfb", in_place), build_failed, {"b.cfb"},
         shortw(700)},
        {"BuilderWithoutFault", {earlier_cfb}, builder_call("n.cfb", staged), built, {"n.cfb"}},
        // The tool as a process on a disk that fills up (a file size limit).
        {"ToolRepairFileSizeLimit", {earlier_doc}, tool({"repair", "IN", "@out.doc"}, 16), 2, {}},
        {"ToolSalvageOutFileSizeLimit", {earlier_cfb},
         tool({"salvage", "IN", "--out", "@out.cfb"}, 8), 2, {}},
        {"ToolBuildSampleFileSizeLimit", {}, tool({"build-sample", "@s"}, 8), 2, {"s"}},
        // Folders the library makes or empties on its own: scratch folders that are links to
        // folders holding files (the links may become folders), an empty work folder used by
        // two threads at once, the check in a current folder that cannot be written.
        {"ScratchFoldersLinkedElsewhere", scratch_links, with_work_folder_in_row(), 0,
         {"work/", "an/", "out.doc"}, {},
         {"work/lib_cfb_tmp", "work/tmp_release_dir_for_fixing_cfb"}},
        {"EmptyWorkFolderUsedByTwoThreadsAtOnce", {{Make::file, "outside/keep.txt", kSecret}},
         two_threads_without_work_folder(), 0, {"outputs/"}},
        {"CheckInACurrentFolderThatCannotBeWritten", {}, check_in_unwritable_current_folder(), 0,
         {"cwd/"}},
    };
    // clang-format on
}

class DataSafety : public ::testing::TestWithParam<Row> {};

TEST_P(DataSafety, InputKeepsItsBytesAndNothingAppearsElsewhere) {
    const Row& row = GetParam();
    start_library("work");
    test::Temp_Folder folder(row.name);
    const Scene scene{folder.path(), folder.path() / row.input};
    ASSERT_TRUE(test::write_bytes_to_file(platform::from_path(scene.input),
                                          build_compound_file(sample_tree())));
    std::string why;
    if (!prepare(scene, row.prep, why)) GTEST_SKIP() << why;
    const auto before = snapshot(scene.root);

    platform::set_write_fault_for_tests(row.fault.kind, row.fault.at);
    arrangement_failure().clear();
    const int result = row.act(scene);
    platform::set_write_fault_for_tests(Write_Fault::none, 0);
    if (!arrangement_failure().empty()) GTEST_SKIP() << arrangement_failure();

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
        EXPECT_TRUE(name.back() == '/' || after.count(name) == 1) << name << " is missing";
    }
}

INSTANTIATE_TEST_SUITE_P(Table, DataSafety, ::testing::ValuesIn(rows()),
                         [](const ::testing::TestParamInfo<Row>& info) { return info.param.name; });

}  // namespace
}  // namespace vrk
