// Test helpers: a unique temporary folder per test, removed at the end, and whole-file reads.
#pragma once

#include <filesystem>
#include <string>

namespace vrk::test {

// A fresh, empty folder inside the current working folder (each test executable runs in its
// own), removed with everything below it when the object goes.
class Temp_Folder {
  public:
    explicit Temp_Folder(const std::string& hint = "tmp");
    ~Temp_Folder();
    Temp_Folder(const Temp_Folder&) = delete;
    Temp_Folder& operator=(const Temp_Folder&) = delete;

    const std::filesystem::path& path() const { return m_path; }
    // The folder as a wide string, with or without a trailing native separator.
    std::wstring wide(bool trailing_separator = false) const;
    // The folder as a narrow argument string for the exports (UTF-8 / process code page).
    std::string narrow() const;
    // A path below the folder.
    std::filesystem::path operator/(const std::string& name) const { return m_path / name; }

  private:
    std::filesystem::path m_path;
};

// Whole file as bytes; empty when it cannot be read.
std::string read_file(const std::filesystem::path& path);
// Writes (replacing) a whole file; creates missing parent folders.
void write_file(const std::filesystem::path& path, const std::string& bytes);
// Removes a tree even when it holds read-only entries; links are removed, never followed.
void remove_tree(const std::filesystem::path& path);

}  // namespace vrk::test
