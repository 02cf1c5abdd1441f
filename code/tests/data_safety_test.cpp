// Data safety, as one table: each row prepares a folder of its own (the document, links, earlier
// files), acts (an export, an entry as the tool calls it, the tool as a process, a salvage or
// builder call), and the input keeps its bytes and nothing appears, changes or goes in that folder
// outside the names the row allows.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <random>
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

// A word-processing document: small and large streams, a storage, `extra` streams of 1 MB.
Cfb_Fs_Item_DirNode sample_tree(int extra = 0) {
    Cfb_Fs_Item_DirNode root;
    root.add_stream(u"1Table", test::random_bytes(300, 1));
    root.add_stream(u"WordDocument", test::random_bytes(9000, 2));
    root.add_stream(u"Data", test::random_bytes(5000, 3));
    root.add_storage(u"ObjectPool").add_stream(u"Inner", test::random_bytes(100, 4));
    for (char16_t i = 0; i < extra; ++i)
        root.add_stream(u"big" + std::u16string(1, u'A' + i), test::random_bytes(1 << 20, 5 + i));
    return root;
}

struct Scene {
    fs::path root;   // the row's folder
    fs::path input;  // the document
    // A path in the folder; "": the folder, no trailing separator (it would quote a quote).
    std::string arg(const std::string& name) const {
        return test::narrow(name.empty() ? root : root / name);
    }
};

using Action = std::function<int(const Scene&)>;

// Why a row could not be arranged on this platform: set by an action, the row is skipped.
std::string arrangement_failure;

enum class Call { check, repair, advance, staged, analysis };

// An export on a thread of its own, so that no earlier record of this thread shows through: a
// check, a repair into `out` (the advance one with a password, or staged through the entry as
// the tool runs it), or an analysis into folder `out`.
Action call(Call kind, const std::string& out) {
    return [=](const Scene& s) {
        int r = 0;
        std::thread([&] {
            const std::string in = test::narrow(s.input);
            const std::string to = s.arg(out);
            if (kind == Call::check) r = VrkCfbFileCheck(in.c_str());
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

// The salvage as the tool runs it, in this process: 1 when the output was written, 0 when not
// and the salvage said why, -1 otherwise.
Action salvage_call(const std::string& target, bool extract) {
    return [=](const Scene& s) {
        Input_View view;
        if (view.open(platform::from_path(s.input)) != platform::Map_Step::ok) return 0;
        const salvage::Salvage_Input input(view);
        const Salvage_Result result = salvage_input(input);
        if (!result.is_compound_file) return result.reason.empty() ? -1 : 0;
        const std::wstring to = platform::from_path(s.root / target);
        std::string error;
        const bool written =
            extract ? salvage_extract(input, result, to, {}, error)
                    : salvage_write(input, result, to, {}, error, platform::Create_Mode::staged);
        return written ? 1 : error.empty() ? -1 : 0;
    };
}

// The sample with 12 MB more, tables last, cut short at a random moment of `act`'s run, eight
// times, by a thread or a child process (Windows refuses to shorten a mapped file): every call
// ends with one of its public results (a salvage, 1 on the whole file: 0 or 1); gives the others.
Action while_cut_short(const Action& act, int whole) {
    return [=](const Scene& s) {
        Builder_Options options;
        options.tables_at_end = true;
        const std::vector<uint8_t> document = build_compound_file(sample_tree(12), options);
        const uint64_t size = document.size();
        EXPECT_TRUE(test::write_bytes_to_file(platform::from_path(s.input), document));
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(act(s), whole);
        const auto took = (std::chrono::steady_clock::now() - start) / std::chrono::microseconds(1);
        const uint64_t lengths[] = {size / 2, size - 700, 1000, 0, size / 7};
        std::mt19937 random(11);
        int unknown = 0;
        for (int round = 0; round < 8; ++round) {
            const std::chrono::microseconds delay(random() % (took + 1));
            const uint64_t length = lengths[round % std::size(lengths)];
            const std::string cut =
                "truncate -s " + std::to_string(length) + " " + test::quote(test::narrow(s.input));
            EXPECT_TRUE(test::write_bytes_to_file(platform::from_path(s.input), document));
            std::thread cutter([&] {
                std::this_thread::sleep_for(delay);
                std::error_code refused;
                if (platform::kWindows || round % 2 == 0) {
                    fs::resize_file(s.input, length, refused);
                } else {
                    EXPECT_EQ(test::run_shell(cut), 0);
                }
            });
            const int r = act(s);
            cutter.join();
            const bool known = whole == 1 ? r == 0 || r == 1 : r == 0 || (r <= -3100 && r >= -3114);
            EXPECT_TRUE(known) << "cut to " << length << " after " << delay.count() << " us: " << r;
            unknown += known ? 0 : 1;
        }
        return unknown;
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

// The built tool's exit status; "IN" stands for the input, "@name" for a path in the row's folder.
// `file_blocks`, when not 0, limits the size of a file the tool writes (POSIX ulimit -f) with the
// signal ignored: writes fail as on a full disk.
Action tool(const std::vector<std::string>& words, int file_blocks = 0) {
    return [=](const Scene& s) {
        if (file_blocks != 0 && platform::kWindows) {
            arrangement_failure = "a file size limit for a child process is a POSIX feature";
            return 0;
        }
        std::vector<std::string> args;
        for (const std::string& w : words)
            args.push_back(w == "IN"     ? test::narrow(s.input)
                           : w[0] == '@' ? s.arg(w.substr(1))
                                         : w);
        std::string line =
            test::tool_line(args) + (platform::kWindows ? " > NUL 2>&1" : " > /dev/null 2>&1");
        if (file_blocks != 0)
            line = "ulimit -f " + std::to_string(file_blocks) + "; trap '' XFSZ; " + line;
        return test::run_shell(line);
    };
}

// The tool as tool() runs it, from the row's folder after the shell's `prelude` (POSIX only: the
// system resolves ".." after a link to the link target's parent, and a removed current folder
// can be left only there).
Action tool_from_row(const std::string& prelude, const std::vector<std::string>& words) {
    return [=](const Scene& s) {
        if (platform::kWindows) {
            arrangement_failure = "Windows resolves .. by name and keeps its current folder";
            return 0;
        }
        std::vector<std::string> args;
        for (const std::string& w : words) args.push_back(w == "IN" ? test::narrow(s.input) : w);
        return test::run_shell("cd " + test::quote(test::narrow(s.root)) + " && " + prelude +
                               test::tool_line(args) + " > /dev/null 2>&1");
    };
}

// An analysis into "an" and a repair into "out.doc", "work" in the row's folder the work folder.
Action with_work_folder_in_row() {
    return [](const Scene& s) {
        EXPECT_EQ(VrkCfbInit("safety_logs", "safety_config", s.arg("work").c_str()), 0);
        return call(Call::analysis, "an")(s) + call(Call::repair, "out.doc")(s);
    };
}

// The folders in the temporary folder that this process made for its scratch folders.
std::vector<fs::path> private_scratch_folders() {
    const std::string prefix = "cfb_vornak_" + std::to_string(platform::current_process_id()) + "_";
    std::vector<fs::path> found;
    for (const auto& item : fs::directory_iterator(fs::temp_directory_path()))
        if (item.path().filename().string().rfind(prefix, 0) == 0) found.push_back(item.path());
    return found;
}

// Without a work folder, two threads analyse and repair at once into "outputs", sharing one
// private scratch folder in the temporary folder (owner only) that VrkCfbDestroy removes; links
// planted at the fixed names there (where it is this test's own, TMPDIR) are left alone.
Action two_threads_without_work_folder() {
    return [](const Scene& s) {
        const fs::path temp = fs::temp_directory_path();
        const bool own = fs::absolute(temp).string().rfind(fs::current_path().string(), 0) == 0;
        std::vector<fs::path> planted;
        for (const char* name : {"lib_cfb_tmp", "tmp_release_dir_for_fixing_cfb"}) {
            std::error_code ec;
            if (own) fs::create_directory_symlink(s.root / "outside", temp / name, ec);
            if (own && !ec) planted.push_back(temp / name);
        }
        EXPECT_EQ(VrkCfbInit("safety_logs", "safety_config", ""), 0);
        EXPECT_TRUE(private_scratch_folders().empty());
        std::atomic<int> failed{0};
        auto work = [&](int thread) {
            for (int round = 0; round < 5; ++round) {
                const std::string name = "outputs/" + std::to_string(thread * 10 + round);
                for (const int r :
                     {call(Call::analysis, name + "an")(s), call(Call::repair, name + ".doc")(s)})
                    if (r != 0) failed = r;
            }
        };
        std::thread first(work, 0), second(work, 1);
        first.join(), second.join();
        const std::vector<fs::path> made = private_scratch_folders();
        EXPECT_EQ(made.size(), 1u);
        if (!made.empty() && !platform::kWindows) {
            EXPECT_EQ(fs::status(made[0]).permissions() & fs::perms::all, fs::perms::owner_all);
        }
        for (const fs::path& link : planted) {
            EXPECT_TRUE(fs::is_symlink(fs::symlink_status(link))) << link;
            fs::remove(link);
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

// The check with "cwd" in the row's folder, made unwritable, as the current folder (as root: a
// removed current folder).
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
        const std::string in = test::narrow(s.input);
        int result = 0;
        if (unwritable) std::thread([&] { result = VrkCfbFileCheck(in.c_str()); }).join();
        fs::current_path(saved);
        if (fs::exists(here)) fs::permissions(here, fs::perms::owner_all);
        if (!unwritable) arrangement_failure = "no current folder that cannot be written";
        return result;
    };
}

// What a row makes before it acts: "name=bytes" a file, "name->target" a symbolic link (the
// target as stored), "name=>file" a hard link, "name/" a folder.
using Prep = std::string;
using Fault = std::pair<Write_Fault, uint64_t>;  // writes fail from that byte on

// "name/" in `appear` and `may_change` stands for anything at or below name.
struct Row {
    std::string name;
    std::vector<Prep> prep;
    Action act;
    int expected;
    std::vector<std::string> appear = {};  // names that must appear
    Fault fault = {Write_Fault::none, 0};
    std::vector<std::string> may_change = {};  // such as a link that the library removes
    std::string input = "a.doc";               // where the document lies in the row's folder
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

// False with a reason when the platform cannot make one of the row's entries.
bool prepare(const Scene& s, const std::vector<Prep>& prep, std::string& why) {
    for (const Prep& p : prep) {
        const std::size_t hard = p.find("=>"), link = p.find("->"), file = p.find('=');
        const fs::path path = s.root / p.substr(0, std::min({hard, link, file, p.size()}));
        std::error_code ec;
        fs::create_directories(path.parent_path(), ec);
        if (hard != std::string::npos) {
            fs::create_hard_link(s.root / p.substr(hard + 2), path, ec);
        } else if (link != std::string::npos) {
            fs::create_symlink(p.substr(link + 2), path, ec);
        } else if (file != std::string::npos) {
            test::write_file(path, p.substr(file + 1));
        } else {
            fs::create_directories(path, ec);
        }
        if (!ec && (link != std::string::npos ? fs::is_symlink(path) : fs::exists(path))) continue;
        why = "this platform cannot make " + p + ": " + ec.message();
        return false;
    }
    return true;
}

const std::string kSecret = "outside the output folder";

// 101 links where --extract would put WordDocument: the name and its first hundred suffixes.
std::vector<Prep> links_for_every_suffix() {
    std::vector<Prep> prep{"outside/secret=" + kSecret, "x/WordDocument->../outside/secret",
                           "x/Data=earlier"};
    for (int n = 2; n <= 101; ++n)
        prep.push_back("x/WordDocument~" + std::to_string(n) + "->../outside/secret");
    return prep;
}

std::vector<Row> rows() {
    const int same = to_api_result_code(ec::kCfbOpenFailed);
    const int write_failed = to_api_result_code(ec::kWriteFailed);
    const int built = static_cast<int>(Write_Result::written);
    const int failed = static_cast<int>(Write_Result::failed);
    const Prep old_doc = "out.doc=earlier", old_cfb = "out.cfb=earlier";
    const Prep l_doc = "l.doc->a.doc", h_doc = "h.doc=>a.doc";
    const auto full = [](uint64_t at) { return Fault{Write_Fault::disk_full, at}; };
    const auto shortw = [](uint64_t at) { return Fault{Write_Fault::short_write, at}; };
    const auto repair = [](const char* out) { return call(Call::repair, out); };
    const auto staged_repair = [](const char* out) { return call(Call::staged, out); };
    const auto analysis = [](const char* out) { return call(Call::analysis, out); };
    const auto staged = platform::Create_Mode::staged, in_place = platform::Create_Mode::replace;
    // Files outside, and the work folder's two scratch folders as links to folders of them.
    const std::vector<Prep> scratch_links{
        "outside/raw/keep.txt=" + kSecret, "outside/release/sub/keep.txt=" + kSecret,
        "work/lib_cfb_tmp->../outside/raw",
        "work/tmp_release_dir_for_fixing_cfb->../outside/release"};
    const Prep report_link = "an/头部信息分析/原始头部分析.log->../../outside/secret";
    const Prep container_link =
        "an/cfb_short_stream_container信息分析/原始short_stream_container.bin->../../outside/"
        "secret";
    // clang-format off
    return {
        // A repair onto its own input, by every name that reaches it.
        {"ExportSameName", {}, repair("a.doc"), same},
        {"ExportKindRenamesXlsBack", {}, repair("a.xls"), same},
        {"ExportKindRenamesTmpBack", {}, repair("a.tmp"), same},
        {"ExportThroughSymlink", {l_doc}, repair("l.xls"), same},
        {"ExportThroughHardLink", {h_doc}, repair("h.doc"), same},
        {"AdvanceExportSameName", {}, call(Call::advance, "a.doc"), same},
        {"ToolSameName", {}, tool({"repair", "IN", "IN"}), 2},
        {"ToolKindRenamesBack", {}, tool({"repair", "IN", "@a.xls"}), 2},
        {"ToolThroughSymlink", {l_doc}, tool({"repair", "IN", "@l.doc"}), 2},
        {"ToolThroughHardLink", {h_doc}, tool({"repair", "--password", "pw", "IN", "@h.tmp"}),
         2},
        // The salvage's outputs.
        {"SalvageOutOntoInput", {}, tool({"salvage", "IN", "--out", "IN"}), 2},
        {"SalvageOutThroughSymlink", {"l.cfb->a.doc"}, tool({"salvage", "IN", "--out", "@l.cfb"}),
         2},
        {"ExtractBesideInputOfAStreamsName", {}, tool({"salvage", "IN", "--extract", "@"}), 0,
         {"WordDocument~2", "1Table", "Data", "ObjectPool/"}, {}, {}, "WordDocument"},
        {"ExtractPastLinksAndFiles", links_for_every_suffix(),
         tool({"salvage", "IN", "--extract", "@x"}), 0,
         {"x/WordDocument~102", "x/Data~2", "x/1Table", "x/ObjectPool/"}},
        {"ExtractPastALinkedStorage", {"outside/pool/", "x/ObjectPool->../outside/pool"},
         salvage_call("x", true), 1, {"x/"}},
        // Links planted where the library writes a file of its own name; paths the system
        // resolves otherwise than by their letters.
        {"AnalysisReportsPastLinks", {"outside/secret=" + kSecret, report_link, container_link},
         analysis("an"), 0, {"an/"}, {}, {report_link.substr(0, report_link.find("->")),
                                           container_link.substr(0, container_link.find("->"))}},
        {"ExportRepairPastALinkToAnotherFile", {"outside/secret=" + kSecret,
         "out.doc->outside/secret"}, repair("out.doc"), 0, {}, {}, {"out.doc"}},
        {"ToolClimbsOutOfALinkedFolder", {"real/deep/", "lnk->real/deep"},
         tool_from_row("", {"repair", "IN", "lnk/../out.doc"}), 0, {"real/out.doc"}},
        {"ToolInARemovedCurrentFolder", {}, tool_from_row("mkdir gone && cd gone && rmdir ../gone && ",
         {"salvage", "IN", "--out", "out.cfb"}), 2},
        // Writes failing at byte N: a full disk or a short write.
        {"StagedRepairDiskFull", {old_doc}, staged_repair("out.doc"), write_failed, {}, full(1000)},
        {"StagedRepairShortWriteInHeader", {old_doc}, staged_repair("out.xls"), write_failed,
         {}, shortw(100)},
        {"ExportRepairDiskFullKeepsGoing", {}, repair("out.doc"), 0, {"out.doc"}, full(4096)},
        {"AnalysisReleaseIgnoresFailedWrites", {}, analysis("an"), 0, {"an/"}, full(200)},
        {"SalvageOutShortWrite", {old_cfb}, salvage_call("out.cfb", false), 0, {}, shortw(3000)},
        {"SalvageExtractDiskFull", {}, salvage_call("x", true), 0,
         {"x", "x/Data", "x/1Table", "x/ObjectPool", "x/ObjectPool/Inner"}, full(6000)},
        {"BuilderStagedDiskFull", {old_cfb}, builder_call("out.cfb", staged), failed, {}, full(1)},
        {"BuilderInPlaceShortWrite", {}, builder_call("b.cfb", in_place), failed, {"b.cfb"},
         shortw(700)},
        {"BuilderWithoutFault", {old_cfb}, builder_call("n.cfb", staged), built, {"n.cfb"}},
        {"BuilderInPlacePastALink", {"outside/secret=" + kSecret, "b.cfb->outside/secret"},
         builder_call("b.cfb", in_place), built, {}, {}, {"b.cfb"}},
        // The tool as a process on a disk that fills up (a file size limit).
        {"ToolRepairFileSizeLimit", {old_doc}, tool({"repair", "IN", "@out.doc"}, 16), 2},
        {"ToolSalvageOutFileSizeLimit", {old_cfb}, tool({"salvage", "IN", "--out", "@out.cfb"}, 8),
         2},
        {"ToolBuildSampleFileSizeLimit", {}, tool({"build-sample", "@s"}, 8), 2, {"s"}},
        // Folders the library makes or empties on its own (links to folders may become folders).
        {"ScratchFoldersLinkedElsewhere", scratch_links, with_work_folder_in_row(), 0,
         {"work/", "an/", "out.doc"}, {},
         {"work/lib_cfb_tmp", "work/tmp_release_dir_for_fixing_cfb"}},
        {"EmptyWorkFolderUsedByTwoThreadsAtOnce", {"outside/keep.txt=" + kSecret},
         two_threads_without_work_folder(), 0, {"outputs/"}},
        {"CheckInACurrentFolderThatCannotBeWritten", {}, check_in_unwritable_current_folder(), 0,
         {"cwd/"}},
        // The input cut short while a call reads it.
        {"CheckOfAnInputCutShort", {}, while_cut_short(call(Call::check, ""), 0), 0, {}, {},
         {"a.doc"}},
        {"AnalysisOfAnInputCutShort", {}, while_cut_short(analysis("an"), 0), 0, {"an/"}, {},
         {"a.doc"}},
        {"RepairOfAnInputCutShort", {}, while_cut_short(repair("out.doc"), 0), 0, {"out.doc/"}, {},
         {"a.doc"}},
        {"SalvageOfAnInputCutShort", {}, while_cut_short(salvage_call("out.cfb", false), 1), 0,
         {"out.cfb/"}, {}, {"a.doc"}},
    };
    // clang-format on
}

class DataSafety : public ::testing::TestWithParam<Row> {};

TEST_P(DataSafety, InputKeepsItsBytesAndNothingAppearsElsewhere) {
    const Row& row = GetParam();
    ASSERT_EQ(VrkCfbInit("safety_logs", "safety_config", "work"), 0);
    test::Temp_Folder folder(row.name);
    const Scene scene{folder.path(), folder.path() / row.input};
    ASSERT_TRUE(test::write_bytes_to_file(platform::from_path(scene.input),
                                          build_compound_file(sample_tree())));
    std::string why;
    if (!prepare(scene, row.prep, why)) GTEST_SKIP() << why;
    const auto before = snapshot(scene.root);
    platform::set_write_fault_for_tests(row.fault.first, row.fault.second);
    arrangement_failure.clear();
    const int result = row.act(scene);
    platform::set_write_fault_for_tests(Write_Fault::none, 0);
    if (!arrangement_failure.empty()) GTEST_SKIP() << arrangement_failure;
    EXPECT_EQ(result, row.expected);
    const auto after = snapshot(scene.root);
    for (const auto& [name, state] : before) {
        const bool same = after.count(name) == 1 && after.at(name) == state;
        EXPECT_TRUE(same || may_appear(name, row.may_change)) << name << " changed";
    }
    for (const auto& [name, state] : after)
        EXPECT_TRUE(before.count(name) == 1 || may_appear(name, row.appear)) << name << " appeared";
    for (const std::string& name : row.appear)
        EXPECT_TRUE(name.back() == '/' || after.count(name) == 1) << name << " is missing";
}

INSTANTIATE_TEST_SUITE_P(Table, DataSafety, ::testing::ValuesIn(rows()),
                         [](const ::testing::TestParamInfo<Row>& info) { return info.param.name; });

}  // namespace
}  // namespace vrk
