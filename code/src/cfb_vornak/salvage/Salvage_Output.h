// What a salvage hands back: the report (text or JSON), the recovered tree as folders and
// files, and a fresh compound file written by the builder from the recovered tree.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "cfb_vornak/builder/Cfb_Fs_Item.h"
#include "cfb_vornak/builder/Prepared_Output.h"
#include "cfb_vornak/salvage/Salvage.h"
#include "cfb_vornak/salvage/Salvage_Input.h"
#include "common/platform.h"

namespace vrk {

// Which streams that did not come back whole are written all the same.
struct Salvage_Keep {
    // partial: the verified part; ambiguous: every candidate, as "<name>#1", "<name>#2", ...
    bool partial = false;
    // inferred: the bytes of the rebuilt run.
    bool inferred = false;
};

// The chosen layout and why, one line per copy of the directory seen (which was taken), one
// line per stream (its state: "recovered", "partial" with the missing ranges, "ambiguous" with
// one "candidate" line per answer, "inferred", "lost"; orphans under "orphans/"), the evidence
// used, one line per unclaimed chain (its name under --extract, first sector and file offset),
// then the summary line.
std::string salvage_report_text(const Salvage_Result& result);
std::string salvage_report_json(const Salvage_Result& result);
// "N streams: R recovered, P partial, A ambiguous, I inferred, L lost; U unclaimed chains"
std::string salvage_summary(const Salvage_Result& result);

// A name that is safe as one component under a folder: separators, NUL and characters the
// platform forbids become '_'; names the file system refuses (".", "..", devices, trailing dot
// or blank) are changed until they pass is_refused_file_name. Never empty.
std::wstring safe_component(const std::wstring& name);

// Writes the recovered tree under `folder` (created if needed): storages as folders, streams
// as files, orphans under "orphans", unclaimed chains as lost/sector_N.bin. Streams that did
// not come back whole only as `keep` asks, missing ranges as zero bytes. Every folder and file
// is created new and never through a link; a name already taken on disk gets the next free
// "~N" suffix. Nothing is written outside `folder` and nothing that existed before is written
// to. False with a reason on a file-system failure. `file`, when given, is the input open for
// reading: long runs are then copied from it by the system (same bytes).
[[nodiscard]] bool salvage_extract(const uint8_t* data, uint64_t size, const Salvage_Result& result,
                                   const std::wstring& folder, const Salvage_Keep& keep,
                                   std::string& error, const platform::Input_File* file = nullptr);

// The same, reading the input through `input` (the checked input view on POSIX).
[[nodiscard]] bool salvage_extract(const salvage::Salvage_Input& input,
                                   const Salvage_Result& result, const std::wstring& folder,
                                   const Salvage_Keep& keep, std::string& error);

// The recovered tree as builder items (root's class id, state bits and times included).
std::unique_ptr<Cfb_Fs_Item_DirNode> salvage_tree(const uint8_t* data, uint64_t size,
                                                  const Salvage_Result& result,
                                                  const Salvage_Keep& keep);

// Writes the recovered tree to `path` as a fresh compound file through the builder, the
// streams' bytes read from the input as the file is written (never all held in memory).
// Streams as salvage_tree gives them. False with a reason. `file` as for salvage_extract; a
// `path` that reaches it is refused and nothing is written. `mode` staged (the tool's) puts the
// file under `path` only once it is whole.
[[nodiscard]] bool salvage_write(const uint8_t* data, uint64_t size, const Salvage_Result& result,
                                 const std::wstring& path, const Salvage_Keep& keep,
                                 std::string& error, const platform::Input_File* file = nullptr,
                                 platform::Create_Mode mode = platform::Create_Mode::replace);
// The same, reading the input through `input`; a file that ends early fails the write.
// `prepared`, when given, is the staged file made for `path` by prepare_salvage_write.
[[nodiscard]] bool salvage_write(const salvage::Salvage_Input& input, const Salvage_Result& result,
                                 const std::wstring& path, const Salvage_Keep& keep,
                                 std::string& error,
                                 platform::Create_Mode mode = platform::Create_Mode::replace,
                                 Prepared_Output* prepared = nullptr);

// Creates the staged file for a later salvage_write of `input` to `path` and sets its space
// aside while the salvage runs; null where that gains nothing (small inputs, inputs not open
// as a file). The write fails or succeeds as without it.
[[nodiscard]] std::unique_ptr<Prepared_Output> prepare_salvage_write(
    const salvage::Salvage_Input& input, const std::wstring& path);

}  // namespace vrk
