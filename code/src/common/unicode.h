// Portable conversions between UTF-8, UTF-16 code units and wide strings (UTF-16 on Windows,
// UTF-32 elsewhere). Malformed input becomes U+FFFD; nothing throws but allocation.
#pragma once

#include <cstddef>
#include <string>

namespace vrk::unicode {

// Appends one code point (below U+110000) as UTF-8.
void append_utf8(std::string& out, char32_t c);

std::string wide_to_utf8(const std::wstring& wide);
std::wstring utf8_to_wide(const std::string& utf8);
std::wstring utf16_to_wide(const char16_t* units, std::size_t count);

// File-system names on POSIX are bytes: UTF-8 where it is valid, and every other byte kept as
// the lone surrogate U+DC80 + byte, so that a name that is not UTF-8 survives the trip through
// a wide string. wide_to_bytes undoes it; other unpaired surrogates become U+FFFD.
std::wstring bytes_to_wide(const std::string& bytes);
std::string wide_to_bytes(const std::wstring& wide);

}  // namespace vrk::unicode
