// The names under which released entries must not be written. A compound file may carry any
// UTF-16 text as an entry name; some of those texts would leave the target folder or open a
// device instead of a file, so they are treated as names the file system refuses.
#pragma once

#include <string>

namespace vrk {

// True for a name that must not become a file or folder name of this platform: empty, "." or
// "..", a name holding a path separator or a NUL, and on Windows also a name the file system
// refuses or maps to a device (control characters, <>:"/\|?*, a trailing dot or blank, CON,
// PRN, AUX, NUL, COM1-9, LPT1-9 with or without an extension).
bool is_refused_file_name(const std::wstring& name);

// The same check under the rules of the platform chosen by `windows_rules`.
bool is_refused_file_name(const std::wstring& name, bool windows_rules);

}  // namespace vrk
