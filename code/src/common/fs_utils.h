// Path and folder routines of the exported entries. All paths are wide strings; the native
// separator is platform::kSeparator.
#pragma once

#include <cstdint>
#include <string>

namespace vrk::fs {

// True when the folder exists afterwards. Throws std::filesystem::filesystem_error (its text
// carries "create_directories") on errors the file system reports.
[[nodiscard]] bool create_directories(const std::wstring& folder);
// Creates the folder that will hold `file` (the part before its last separator).
[[nodiscard]] bool make_parent_folder(const std::wstring& file);
bool is_folder(const std::wstring& path);
bool exists(const std::wstring& path);
// Size in bytes, or -1 with the system's error text.
int64_t get_file_size(const std::wstring& path, std::string& error_text);
[[nodiscard]] bool get_available_space(const std::wstring& path, uint64_t& bytes);
[[nodiscard]] bool get_temp_folder(std::wstring& folder, std::string& error_text);
// Empties a folder whose path ends in a separator, keeping the folder. Read-only entries go
// too; links and junctions are removed as links, never followed, not even a link standing
// where the folder is (it is removed, and an empty folder made in its place). Throws
// std::filesystem::filesystem_error on failure.
void clear_folder(const std::wstring& folder_with_separator);
// Removes a symbolic link (or junction) standing at `path`, never what it points to, so that the
// file opened there next is made new instead of being written through the link. Failures are
// ignored: the open that follows decides.
void remove_link_at(const std::wstring& path);
std::wstring make_absolute(const std::wstring& path);
// "/" -> "\" on Windows; nothing elsewhere.
std::wstring normalise_separators(const std::wstring& path);
// Every run of native separators becomes one.
std::wstring collapse_separators(const std::wstring& path);
// The path without the extension of its last component.
std::wstring remove_extension(const std::wstring& path);

}  // namespace vrk::fs
