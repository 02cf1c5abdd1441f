// The frame shared by the fuzz targets that run an export on a file: a scratch folder of the
// target's own with the library started in it, the input written there, and the checks that
// the export left the input alone and wrote nothing unexpected. A failed check aborts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <set>
#include <string>

namespace vrk::fuzz {

// <current folder>/<target>_tmp/<process id>, made once; the library's log, config and work
// folders are "logs", "config" and "work" inside it.
const std::filesystem::path& scratch_folder(const std::string& target);

// The narrow argument form of a path, as the exports take it.
std::string narrow(const std::filesystem::path& path);

void write_input(const std::filesystem::path& path, const uint8_t* data, std::size_t size);
void require_unchanged(const std::filesystem::path& path, const uint8_t* data, std::size_t size);
void require_only(const std::filesystem::path& folder, const std::set<std::string>& allowed);

}  // namespace vrk::fuzz
