// The structure reports of an analysis: one text file per parsed structure, each in a report
// folder of its own below the compound file object's output folder, plus the raw bytes of the
// short-stream container. The reports show the tables exactly as read, markers included.
//
// Every report path is output folder + report folder + separator + file name; the object's
// output folder ends in exactly one native separator. A writer creates its report folder (and
// any missing parent) and calls its dump routine; a report that cannot be opened is skipped and
// the others go on. Files are written in binary mode, so a line end is a single line feed.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

#include "cfb_vornak/format/Cfb_Header.h"
#include "cfb_vornak/format/Directory_Entry.h"
#include "cfb_vornak/format/cfb_types.h"

namespace vrk {

class Cfb_File;

namespace report_names {
inline constexpr const char* kHeaderFolder = "头部信息分析";
inline constexpr const char* kHeaderFile = "原始头部分析.log";
inline constexpr const char* kDisatFolder = "disat信息分析";
inline constexpr const char* kDisatFile = "原始disat分析.log";
inline constexpr const char* kSatFolder = "sat信息分析";
inline constexpr const char* kSatFile = "原始sat分析.log";
inline constexpr const char* kMinisatFolder = "minisat信息分析";
inline constexpr const char* kMinisatFile = "原始minisat分析.log";
inline constexpr const char* kLayoutFolder = "directory_entry_layout信息分析";
inline constexpr const char* kLayoutFile = "原始directory_entry_layout分析.log";
inline constexpr const char* kTreeFolder = "cfb_directory_tree信息分析";
inline constexpr const char* kTreeFile = "原始cfb_directory_tree分析.log";
inline constexpr const char* kContainerFolder = "cfb_short_stream_container信息分析";
inline constexpr const char* kContainerFile = "原始short_stream_container.bin";
inline constexpr const char* kReleaseFolder = "原始cfb_directory_tree释放文件夹";
inline constexpr const char* kSectorUnitsFolder = "物理切割后各个单元";
}  // namespace report_names

// `folder` with every trailing separator replaced by exactly one native separator; empty
// stays empty.
std::wstring with_one_trailing_separator(const std::wstring& folder);
// The object's output folder (with one trailing separator), or empty when none is set.
std::wstring report_base_folder(const Cfb_File& file);
// output folder + report folder + separator + file name (both names UTF-8).
std::wstring report_path(const Cfb_File& file, const char* folder, const char* file_name);

// ---- texts shared by several reports
// Rows of sixteen entries: "\n" j "(width 10) - " label "(width 10) : " then each value in
// width 10 followed by ", " or, after the last, ". "; a line end after the last entry. The
// label starts at 15 and grows by 16 per entry written, for every array anew.
void write_table_rows(std::ostream& out, const sids_array& entries);
void print_a_directory_entry(std::ostream& out, const Directory_Entry& entry);

// ---- dump routines: write one structure to `path` (truncating); always 0
int dump_header(const Cfb_Header& header, const std::wstring& path);
int dump_disat(const Cfb_File& file, const std::wstring& path);
int dump_sat(const Cfb_File& file, const std::wstring& path);
int dump_minisat(const Cfb_File& file, const std::wstring& path);
int dump_directory_entry_layout(const Cfb_File& file, const std::wstring& path);
int dump_cfb_directory_tree(const Cfb_File& file, const std::wstring& path);
int dump_short_stream_container(const Cfb_File& file, const std::wstring& path);

// ---- writers: compose the report's path, create its folder, dump. The path is returned.
std::wstring write_header_report(const Cfb_File& file);
std::wstring write_disat_report(const Cfb_File& file);
std::wstring write_sat_report(const Cfb_File& file);
std::wstring write_minisat_report(const Cfb_File& file);
std::wstring write_directory_entry_layout_report(const Cfb_File& file);
std::wstring write_cfb_directory_tree_report(const Cfb_File& file);
std::wstring write_short_stream_container(const Cfb_File& file);

}  // namespace vrk
