#include "cfb_vornak/model/Safe_Name.h"

#include <array>
#include <cstddef>

#include "common/platform.h"

namespace vrk {

namespace {

wchar_t ascii_upper(wchar_t c) {
    return (c >= L'a' && c <= L'z') ? static_cast<wchar_t>(c - 32) : c;
}

bool is_device_digit(wchar_t c) {
    // Windows also maps the superscript digits one to three to devices (COM¹, LPT²).
    return (c >= L'1' && c <= L'9') || c == L'\u00B9' || c == L'\u00B2' || c == L'\u00B3';
}

// The device names hold whatever follows the first dot, and blanks before it, as an extension.
bool names_a_device(const std::wstring& name) {
    std::size_t stem_end = name.find(L'.');
    if (stem_end == std::wstring::npos) {
        stem_end = name.size();
    }
    while (stem_end > 0 && name[stem_end - 1] == L' ') {
        --stem_end;
    }
    std::wstring stem;
    for (std::size_t i = 0; i < stem_end; ++i) {
        stem.push_back(ascii_upper(name[i]));
    }
    static const std::array<const wchar_t*, 4> plain = {L"CON", L"PRN", L"AUX", L"NUL"};
    for (const wchar_t* device : plain) {
        if (stem == device) {
            return true;
        }
    }
    return stem.size() == 4 &&
           (stem.compare(0, 3, L"COM") == 0 || stem.compare(0, 3, L"LPT") == 0) &&
           is_device_digit(stem[3]);
}

bool breaks_windows_rules(const std::wstring& name) {
    for (const wchar_t c : name) {
        if (c < 0x20 || c == L'<' || c == L'>' || c == L':' || c == L'"' || c == L'/' ||
            c == L'\\' || c == L'|' || c == L'?' || c == L'*') {
            return true;
        }
    }
    const wchar_t last = name.back();
    return last == L'.' || last == L' ' || names_a_device(name);
}

}  // namespace

bool is_refused_file_name(const std::wstring& name, bool windows_rules) {
    if (name.empty() || name == L"." || name == L"..") {
        return true;
    }
    if (name.find(L'/') != std::wstring::npos || name.find(L'\0') != std::wstring::npos) {
        return true;
    }
    return windows_rules && breaks_windows_rules(name);
}

bool is_refused_file_name(const std::wstring& name) {
    return is_refused_file_name(name, platform::kWindows);
}

}  // namespace vrk
