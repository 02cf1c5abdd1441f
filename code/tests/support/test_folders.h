// Test helpers: a unique temporary folder per test, removed at the end, whole-file reads, and
// the file layer's failure texts.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

namespace vrk::test {

// Whole file as bytes; empty when it cannot be read.
std::string read_file(const std::filesystem::path& path);
// Writes (replacing) a whole file; creates missing parent folders.
void write_file(const std::filesystem::path& path, const std::string& bytes);
// Removes a tree even when it holds read-only entries; links are removed, never followed.
// Never throws: a folder left behind must not end the test run.
void remove_tree(const std::filesystem::path& path) noexcept;
// How often `part` occurs in `text`.
std::size_t count_of(const std::string& text, const std::string& part);

// The text of a failure of the file layer: "[file:line->function] message\n".
std::string door_failure(int line, const std::string& function, const std::string& message);
// The message of a read of `unit` at `offset` past the end.
std::string out_of_range(const std::string& unit, uint64_t offset);
// The text of the std::logic_error that `action` throws, or "" when it throws nothing.
std::string thrown(const std::function<void()>& action);

// A fresh, empty folder inside the current working folder (each test executable runs in its
// own), removed with everything below it when the object goes.
class Temp_Folder {
  public:
    explicit Temp_Folder(const std::string& hint = "tmp");
    ~Temp_Folder() { remove_tree(m_path); }
    Temp_Folder(const Temp_Folder&) = delete;
    Temp_Folder& operator=(const Temp_Folder&) = delete;

    const std::filesystem::path& path() const { return m_path; }
    // The folder as a wide string, with or without a trailing native separator.
    std::wstring wide(bool trailing_separator = false) const;
    // The folder as a narrow argument string for the exports (UTF-8 / process code page).
    std::string narrow() const;
    std::filesystem::path operator/(const std::string& name) const { return m_path / name; }

  private:
    std::filesystem::path m_path;
};

}  // namespace vrk::test
