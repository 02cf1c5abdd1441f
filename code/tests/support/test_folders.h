// Test helpers: temporary folders, whole files, the built tool, the file layer's failure texts.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace vrk::test {

// Whole files: empty when unreadable; written over, missing parent folders made.
std::string read_file(const std::filesystem::path& path);
void write_file(const std::filesystem::path& path, const std::string& bytes);
// Removes a tree with read-only entries too, links as links; never throws.
void remove_tree(const std::filesystem::path& path) noexcept;
std::size_t count_of(const std::string& text, const std::string& part);

// `path` as the exports and the tool take it; `word` quoted for the shell (sh, or cmd.exe).
std::string narrow(const std::filesystem::path& path);
std::string quote(const std::string& word);
// The shell line that runs the built tool (in bin, two folders up) with `args`, its log, config
// and work folders in "tool_state" of the current folder.
std::string tool_line(const std::vector<std::string>& args);
// Runs a shell line and gives the tool's exit status.
int run_shell(std::string line);

// A failure of the file layer: "[file:line->function] message\n"; the message of a read of
// `unit` at `offset` past the end.
std::string door_failure(int line, const std::string& function, const std::string& message);
std::string out_of_range(const std::string& unit, uint64_t offset);
// The text of the std::logic_error that `action` throws, or "" when it throws nothing.
std::string thrown(const std::function<void()>& action);

// A fresh folder in the current one (each test executable runs in its own), removed at the end.
class Temp_Folder {
  public:
    explicit Temp_Folder(const std::string& hint = "tmp");
    ~Temp_Folder() { remove_tree(m_path); }
    Temp_Folder(const Temp_Folder&) = delete;
    Temp_Folder& operator=(const Temp_Folder&) = delete;

    const std::filesystem::path& path() const { return m_path; }
    std::wstring wide(bool trailing_separator = false) const;  // with a native separator or not
    std::string narrow() const;                                // as the exports take it
    std::filesystem::path operator/(const std::string& name) const { return m_path / name; }

  private:
    std::filesystem::path m_path;
};

}  // namespace vrk::test
