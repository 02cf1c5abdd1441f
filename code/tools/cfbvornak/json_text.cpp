#include "json_text.h"

#include <cstdio>

#include "common/unicode.h"

namespace vrk::cli {

namespace {

void append_escape(std::string& out, uint32_t unit) {
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "\\u%04x", static_cast<unsigned>(unit));
    out += buffer;
}

// Escapes a code point below 0x80 that JSON does not allow as it stands.
void append_ascii(std::string& out, uint32_t c) {
    switch (c) {
        case '"':
            out += "\\\"";
            return;
        case '\\':
            out += "\\\\";
            return;
        case '\n':
            out += "\\n";
            return;
        case '\r':
            out += "\\r";
            return;
        case '\t':
            out += "\\t";
            return;
        default:
            break;
    }
    if (c < 0x20 || c == 0x7F) {
        append_escape(out, c);
    } else {
        out.push_back(static_cast<char>(c));
    }
}

void append_utf8(std::string& out, uint32_t c) {
    if (c < 0x80) {
        append_ascii(out, c);
    } else {
        unicode::append_utf8(out, c);
    }
}

// The length of the valid UTF-8 sequence at `i` (0 when it is not one) and its code point.
std::size_t utf8_sequence(const std::string& s, std::size_t i, uint32_t& c) {
    const auto b0 = static_cast<uint8_t>(s[i]);
    std::size_t length = 0;
    uint32_t minimum = 0;
    if (b0 < 0x80) {
        c = b0;
        return 1;
    }
    if (b0 >= 0xC2 && b0 <= 0xDF) {
        length = 2, c = b0 & 0x1Fu, minimum = 0x80;
    } else if (b0 >= 0xE0 && b0 <= 0xEF) {
        length = 3, c = b0 & 0x0Fu, minimum = 0x800;
    } else if (b0 >= 0xF0 && b0 <= 0xF4) {
        length = 4, c = b0 & 0x07u, minimum = 0x10000;
    } else {
        return 0;
    }
    if (length > s.size() - i) return 0;
    for (std::size_t k = 1; k < length; ++k) {
        const auto b = static_cast<uint8_t>(s[i + k]);
        if ((b & 0xC0) != 0x80) return 0;
        c = (c << 6) | (b & 0x3Fu);
    }
    const bool surrogate = c >= 0xD800 && c <= 0xDFFF;
    return c < minimum || c > 0x10FFFF || surrogate ? 0 : length;
}

}  // namespace

std::string json_bytes(const std::string& bytes) {
    std::string out = "\"";
    for (std::size_t i = 0; i < bytes.size();) {
        uint32_t c = 0;
        const std::size_t length = utf8_sequence(bytes, i, c);
        if (length == 0) {
            append_escape(out, 0xDC00u + static_cast<uint8_t>(bytes[i]));
            ++i;
            continue;
        }
        append_utf8(out, c);
        i += length;
    }
    return out + "\"";
}

std::string json_utf16(const std::u16string& units) {
    std::string out = "\"";
    for (std::size_t i = 0; i < units.size(); ++i) {
        const uint32_t u = units[i];
        const bool high = u >= 0xD800 && u <= 0xDBFF;
        if (high && i + 1 < units.size() && units[i + 1] >= 0xDC00 && units[i + 1] <= 0xDFFF) {
            append_utf8(out, 0x10000 + ((u - 0xD800) << 10) + (units[i + 1] - 0xDC00u));
            ++i;
        } else if (u >= 0xD800 && u <= 0xDFFF) {
            append_escape(out, u);
        } else {
            append_utf8(out, u);
        }
    }
    return out + "\"";
}

Json_Object& Json_Object::raw(const std::string& key, std::string json) {
    m_fields.emplace_back(key, std::move(json));
    return *this;
}

std::string Json_Object::str() const {
    std::string out = "{";
    for (std::size_t i = 0; i < m_fields.size(); ++i) {
        if (i != 0) out += ',';
        out += json_bytes(m_fields[i].first);
        out += ':';
        out += m_fields[i].second;
    }
    return out + "}";
}

std::string json_array(const std::vector<std::string>& values) {
    std::string out = "[";
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (i != 0) out += ',';
        out += values[i];
    }
    return out + "]";
}

}  // namespace vrk::cli
