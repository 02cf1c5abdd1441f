#include "common/unicode.h"

#include <cstdint>
#include <type_traits>

#include "common/platform.h"

namespace vrk::unicode {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool is_high_surrogate(char32_t c) {
    return c >= 0xD800 && c <= 0xDBFF;
}
bool is_low_surrogate(char32_t c) {
    return c >= 0xDC00 && c <= 0xDFFF;
}

void append_wide(std::wstring& out, char32_t c) {
    if constexpr (sizeof(wchar_t) == 2) {
        if (c >= 0x10000) {
            c -= 0x10000;
            out.push_back(static_cast<wchar_t>(0xD800 + (c >> 10)));
            out.push_back(static_cast<wchar_t>(0xDC00 + (c & 0x3FF)));
            return;
        }
    }
    out.push_back(static_cast<wchar_t>(c));
}

// Decodes a sequence of 16-bit units (or, for UTF-32 wide strings, 32-bit values) into code
// points, pairing surrogates and replacing unpaired ones.
template <typename Unit, typename Sink>
void decode_units(const Unit* units, std::size_t count, Sink&& sink) {
    for (std::size_t i = 0; i < count; ++i) {
        char32_t c = static_cast<char32_t>(static_cast<std::make_unsigned_t<Unit>>(units[i]));
        if (sizeof(Unit) == 2 && is_high_surrogate(c) && i + 1 < count &&
            is_low_surrogate(static_cast<char32_t>(units[i + 1]))) {
            const char32_t low = static_cast<char32_t>(units[i + 1]);
            sink(0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00));
            ++i;
        } else if (is_high_surrogate(c) || is_low_surrogate(c) || c > 0x10FFFF) {
            sink(kReplacement);
        } else {
            sink(c);
        }
    }
}

}  // namespace

void append_utf8(std::string& out, char32_t c) {
    if (c < 0x80) {
        out.push_back(static_cast<char>(c));
    } else if (c < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (c >> 6)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else if (c < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (c >> 12)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (c >> 18)));
        out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
    }
}

std::string wide_to_utf8(const std::wstring& wide) {
    std::string out;
    out.reserve(wide.size());
    decode_units(wide.data(), wide.size(), [&out](char32_t c) { append_utf8(out, c); });
    return out;
}

std::wstring utf16_to_wide(const char16_t* units, std::size_t count) {
    std::wstring out;
    out.reserve(count);
    decode_units(units, count, [&out](char32_t c) { append_wide(out, c); });
    return out;
}

namespace {

constexpr char32_t kEscapedByte = 0xDC00;  // U+DC80..U+DCFF stand for the bytes 0x80..0xFF

// Decodes UTF-8; a malformed sequence becomes one U+FFFD per maximal invalid prefix or, with
// `keep_bytes`, one escaped code point per byte of that prefix.
std::wstring decode_utf8(const std::string& utf8, bool keep_bytes) {
    std::wstring out;
    out.reserve(utf8.size());
    const std::size_t n = utf8.size();
    std::size_t i = 0;
    while (i < n) {
        const auto b0 = static_cast<uint8_t>(utf8[i]);
        if (b0 < 0x80) {
            out.push_back(static_cast<wchar_t>(b0));
            ++i;
            continue;
        }
        std::size_t length = 0;
        char32_t c = 0;
        char32_t minimum = 0;
        if (b0 >= 0xC2 && b0 <= 0xDF) {
            length = 2;
            c = b0 & 0x1F;
            minimum = 0x80;
        } else if (b0 >= 0xE0 && b0 <= 0xEF) {
            length = 3;
            c = b0 & 0x0F;
            minimum = 0x800;
        } else if (b0 >= 0xF0 && b0 <= 0xF4) {
            length = 4;
            c = b0 & 0x07;
            minimum = 0x10000;
        }
        // A malformed sequence is replaced by one U+FFFD per maximal invalid prefix.
        std::size_t taken = 1;
        bool valid = length != 0;
        for (; valid && taken < length; ++taken) {
            if (i + taken >= n) {
                valid = false;
                break;
            }
            const auto b = static_cast<uint8_t>(utf8[i + taken]);
            if ((b & 0xC0) != 0x80) {
                valid = false;
                break;
            }
            c = (c << 6) | (b & 0x3F);
        }
        if (valid && (c < minimum || c > 0x10FFFF || is_high_surrogate(c) || is_low_surrogate(c))) {
            valid = false;
        }
        if (valid) {
            append_wide(out, c);
        } else if (keep_bytes) {
            for (std::size_t k = 0; k < taken; ++k) {
                out.push_back(
                    static_cast<wchar_t>(kEscapedByte + static_cast<uint8_t>(utf8[i + k])));
            }
        } else {
            append_wide(out, kReplacement);
        }
        i += taken;
    }
    return out;
}

}  // namespace

std::wstring utf8_to_wide(const std::string& utf8) {
    return decode_utf8(utf8, false);
}

std::wstring bytes_to_wide(const std::string& bytes) {
    return decode_utf8(bytes, true);
}

std::string wide_to_bytes(const std::wstring& wide) {
    std::string out;
    out.reserve(wide.size());
    std::size_t start = 0;
    // Runs between escaped bytes are converted as usual.
    for (std::size_t i = 0; i <= wide.size(); ++i) {
        const bool escaped = i < wide.size() &&
                             static_cast<char32_t>(wide[i]) >= kEscapedByte + 0x80 &&
                             static_cast<char32_t>(wide[i]) <= kEscapedByte + 0xFF;
        if (!escaped && i < wide.size()) continue;
        decode_units(wide.data() + start, i - start, [&out](char32_t c) { append_utf8(out, c); });
        if (escaped)
            out.push_back(static_cast<char>(static_cast<char32_t>(wide[i]) - kEscapedByte));
        start = i + 1;
    }
    return out;
}

}  // namespace vrk::unicode

// The platform layer's UTF-8 and UTF-16 conversions need no system call: one definition serves
// every system.
namespace vrk::platform {

std::string to_utf8(const std::wstring& wide) {
    return unicode::wide_to_utf8(wide);
}

std::wstring from_utf8(const std::string& utf8) {
    return unicode::utf8_to_wide(utf8);
}

std::wstring from_utf16(const char16_t* units, std::size_t count) {
    return unicode::utf16_to_wide(units, count);
}

}  // namespace vrk::platform
