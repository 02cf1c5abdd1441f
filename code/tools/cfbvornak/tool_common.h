// Helpers every cfbvornak command shares: paths given by the user, checks of the inputs,
// standard output, names inside a compound file, and the texts of the library's results.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "cli.h"

namespace vrk::cli {

// main() records the folder the tool was started in before it moves to the work folder;
// every path the user typed is resolved against it. Paths are bytes (on POSIX a name need not
// be UTF-8). When that folder no longer exists, the tool stays in it (start_folder_known() is
// false) so that a relative path fails as in any other program instead of naming a file in the
// work folder.
void remember_start_folder();
[[nodiscard]] bool start_folder_known();
std::string user_path(const std::string& path);

// Why `path` cannot be read as an input file ("No such file or directory", "is a folder",
// "not a regular file", the system's reason for a refused open), or empty when it can.
std::string input_problem(const std::string& path);
bool is_folder(const std::string& path);

// The regular files below `folder`, sorted; a part of the tree that cannot be read is named
// in `problems` ("path: reason") and skipped.
std::vector<std::string> files_below(const std::string& folder, std::vector<std::string>& problems);

// Prints "cfbvornak: " + message to standard error.
void print_error(const std::string& message);
// Prints "cfbvornak: warning: " + message to standard error.
void print_warning(const std::string& message);

// Writes bytes to standard output as they are (binary on every platform); false once a write
// failed.
[[nodiscard]] bool write_standard_output(const void* data, std::size_t size);
// Flushes standard output; false with the system's reason when anything written to it was lost.
[[nodiscard]] bool finish_standard_output(std::string& reason);
// Whether standard error is a terminal (progress lines go there only then).
bool standard_error_is_terminal();

// A name inside a compound file for a line of text: control characters, the backslash and the
// path separator '/' escaped (\x05, \\, \x2f), an unpaired surrogate as \udc00. read_cfb_path
// accepts exactly these forms.
std::string display_name(const std::u16string& name);
// Splits a stream path typed by the user ("Storage/\x05Stream") into its names, undoing the
// escapes of display_name; false with a reason for a malformed escape.
bool read_cfb_path(const std::string& text, std::vector<std::u16string>& names, std::string& error);

// A short English reading of a folded export result ("ok", "damaged header", ...).
std::string result_gloss(int32_t api_result);
// English meaning of a damage type (the library's own descriptions are Chinese).
std::string damage_gloss(int32_t damage_type);
// The library's description of a damage type, or the error text for other codes.
std::string damage_description(int32_t code);
// "type 63 (header sector shift wrong)", with the library's Chinese description before the
// gloss unless the context asks for English only.
std::string damage_text(const Context& context, int32_t damage_type);

// Runs a library entry (entries/Entries.h) the way its export does: the raw code folded into
// the public result, an exception that escapes recorded as code 2. The tool calls the entries
// rather than the exports where it wants their results through the out-parameters.
int32_t folded_entry(const std::function<int32_t()>& entry);

// "12,345" for counts in the tool's lines.
std::string grouped(uint64_t value);

}  // namespace vrk::cli
