// Portable conversions between UTF-8, UTF-16 code units and wide strings (UTF-16 on Windows,
// UTF-32 elsewhere). Malformed input becomes U+FFFD; nothing throws but allocation.
#pragma once

#include <cstddef>
#include <string>

namespace vrk::unicode {

std::string wide_to_utf8(const std::wstring& wide);
std::wstring utf8_to_wide(const std::string& utf8);
std::wstring utf16_to_wide(const char16_t* units, std::size_t count);

}  // namespace vrk::unicode
