// The frame of the fuzz targets that run an export on a file: a scratch folder of the target's own
// with the library started in it, and checks (a failed one aborts) that the export left the input
// alone and wrote nothing unexpected.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <set>
#include <string>

namespace vrk::fuzz {

// <current folder>/<target>_tmp/<process id>, made once, with the library's folders "logs",
// "config" and "work" in it.
const std::filesystem::path& scratch_folder(const std::string& target);
std::string narrow(const std::filesystem::path& path);  // as the exports take it
void write_input(const std::filesystem::path& path, const uint8_t* data, std::size_t size);
void require_unchanged(const std::filesystem::path& path, const uint8_t* data, std::size_t size);
void require_only(const std::filesystem::path& folder, const std::set<std::string>& allowed);

}  // namespace vrk::fuzz
