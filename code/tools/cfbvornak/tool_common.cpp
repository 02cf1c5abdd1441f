#include "tool_common.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <system_error>

#include "common/error_codes.h"
#include "common/error_store.h"
#include "common/platform.h"
#include "common/unicode.h"

namespace vrk::cli {

namespace {

std::filesystem::path& start_folder() {
    static std::filesystem::path folder;
    return folder;
}

std::filesystem::path native(const std::string& path) {
    return platform::to_path(platform::widen(path));
}

std::string narrow_of(const std::filesystem::path& path) {
    return platform::narrow(platform::from_path(path));
}

bool standard_output_failed = false;

void append_hex_escape(std::string& out, const char* form, unsigned value) {
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, form, value);
    out += buffer;
}

int hex_digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Reads the UTF-8 text of one typed name back into UTF-16 units, undoing \\, \xHH and \uHHHH.
bool read_name(const std::string& text, std::u16string& name, std::string& error) {
    const std::wstring wide = platform::from_utf8(text);
    for (std::size_t i = 0; i < wide.size(); ++i) {
        const auto c = static_cast<char32_t>(wide[i]);
        if (c != U'\\') {
            if (c >= 0x10000) {
                name.push_back(static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10)));
                name.push_back(static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF)));
            } else {
                name.push_back(static_cast<char16_t>(c));
            }
            continue;
        }
        const wchar_t kind = i + 1 < wide.size() ? wide[i + 1] : L'\0';
        if (kind == L'\\') {
            name.push_back(u'\\');
            ++i;
            continue;
        }
        const std::size_t digits = kind == L'x' ? 2 : kind == L'u' ? 4 : 0;
        // With a kind letter, i + 2 <= wide.size().
        if (digits == 0 || wide.size() - (i + 2) < digits) {
            error = "a backslash starts \\\\, \\xHH or \\uHHHH";
            return false;
        }
        unsigned value = 0;
        for (std::size_t k = 0; k < digits; ++k) {
            const wchar_t d = wide[i + 2 + k];
            const int v = d < 0x80 ? hex_digit(static_cast<char>(d)) : -1;
            if (v < 0) {
                error = "a backslash starts \\\\, \\xHH or \\uHHHH";
                return false;
            }
            value = value * 16 + static_cast<unsigned>(v);
        }
        name.push_back(static_cast<char16_t>(value));
        i += 1 + digits;
    }
    return true;
}

}  // namespace

void remember_start_folder() {
    std::error_code error;
    start_folder() = std::filesystem::current_path(error);
}

bool start_folder_known() {
    return !start_folder().empty();
}

std::string user_path(const std::string& path) {
    const std::filesystem::path given = native(path);
    if (path.empty() || given.is_absolute() || start_folder().empty()) return path;
    // ".." after a link names the link target's parent: only the system resolves it.
    const bool climbs = std::any_of(given.begin(), given.end(),
                                    [](const std::filesystem::path& part) { return part == ".."; });
    const std::filesystem::path joined = start_folder() / given;
    return narrow_of(climbs ? joined : joined.lexically_normal());
}

std::string input_problem(const std::string& path) {
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(native(path), error);
    if (error) return error.message();
    if (std::filesystem::is_directory(status)) return "is a folder";
    if (!std::filesystem::is_regular_file(status)) return "not a regular file";
    platform::Input_File file;
    if (!file.open(platform::widen(path))) return platform::errno_text();
    return {};
}

bool is_folder(const std::string& path) {
    std::error_code error;
    return std::filesystem::is_directory(native(path), error);
}

std::vector<std::string> files_below(const std::string& folder,
                                     std::vector<std::string>& problems) {
    std::vector<std::string> files;
    // Folders still to list; links to folders are not followed, so every folder is listed once.
    std::vector<std::filesystem::path> pending{native(folder)};
    while (!pending.empty()) {
        const std::filesystem::path here = std::move(pending.back());
        pending.pop_back();
        std::error_code error;
        std::filesystem::directory_iterator it(here, error);
        for (; !error && it != std::filesystem::directory_iterator(); it.increment(error)) {
            std::error_code type_error;
            const std::filesystem::file_status own = it->symlink_status(type_error);
            if (std::filesystem::is_directory(own)) {
                pending.push_back(it->path());
            } else if (it->is_regular_file(type_error)) {
                files.push_back(narrow_of(it->path()));
            }
        }
        if (error) problems.push_back(narrow_of(here) + ": " + error.message());
    }
    std::sort(files.begin(), files.end());
    return files;
}

void print_error(const std::string& message) {
    std::cerr << "cfbvornak: " << message << '\n';
}

void print_warning(const std::string& message) {
    std::cerr << "cfbvornak: warning: " << message << '\n';
}

bool write_standard_output(const void* data, std::size_t size) {
    static const bool binary = [] {
        std::cout.flush();
        platform::set_standard_output_binary();
        return true;
    }();
    (void)binary;
    if (std::fwrite(data, 1, size, stdout) != size) standard_output_failed = true;
    return !standard_output_failed;
}

bool finish_standard_output(std::string& reason) {
    std::cout.flush();
    const bool flushed = std::fflush(stdout) == 0;
    if (flushed && std::cout.good() && !std::ferror(stdout) && !standard_output_failed) return true;
    reason = platform::errno_text();
    return false;
}

bool standard_error_is_terminal() {
    return platform::standard_error_is_terminal();
}

std::string display_name(const std::u16string& name) {
    std::string out;
    for (std::size_t i = 0; i < name.size(); ++i) {
        const char16_t u = name[i];
        const bool high = u >= 0xD800 && u <= 0xDBFF;
        if (high && i + 1 < name.size() && name[i + 1] >= 0xDC00 && name[i + 1] <= 0xDFFF) {
            unicode::append_utf8(out, 0x10000 + ((u - 0xD800u) << 10) + (name[i + 1] - 0xDC00u));
            ++i;
        } else if (u >= 0xD800 && u <= 0xDFFF) {
            append_hex_escape(out, "\\u%04x", u);
        } else if (u < 0x20 || u == 0x7F || u == u'/') {
            append_hex_escape(out, "\\x%02x", u);
        } else if (u >= 0x80 && u < 0xA0) {
            append_hex_escape(out, "\\u%04x", u);
        } else if (u == u'\\') {
            out += "\\\\";
        } else {
            unicode::append_utf8(out, u);
        }
    }
    return out;
}

bool read_cfb_path(const std::string& text, std::vector<std::u16string>& names,
                   std::string& error) {
    names.clear();
    std::size_t start = 0;
    while (start <= text.size()) {
        const std::size_t slash = std::min(text.find('/', start), text.size());
        std::u16string name;
        if (!read_name(text.substr(start, slash - start), name, error)) return false;
        // Empty components ("a//b", a leading or trailing '/') name nothing.
        if (!name.empty()) names.push_back(std::move(name));
        start = slash + 1;
    }
    if (names.empty()) error = "the stream path is empty";
    return !names.empty();
}

int32_t folded_entry(const std::function<int32_t()>& entry) {
    try {
        return to_api_result_code(entry());
    } catch (...) {
        VRK_PUSH_ERROR(ec::kInternalError);
        return to_api_result_code(ec::kInternalError);
    }
}

std::string result_gloss(int32_t api_result) {
    switch (api_result) {
        case 0:
            return "ok";
        case -3101:
            return "invalid argument or internal error";
        case -3102:
            return "out of memory";
        case -3103:
            return "library not initialised";
        case -3104:
            return "library error";
        case -3105:
            return "cannot open a file or make a folder";
        case -3106:
            return "illegal input or output path";
        case -3107:
            return "cannot open the compound file";
        case -3108:
            return "damaged header";
        case -3109:
            return "cannot be repaired";
        case -3110:
            return "root directory entry lost";
        case -3111:
            return "core directory entry lost";
        case -3112:
            return "not a compound file";
        case -3113:
            return "disk full";
        case -3114:
            return "extension does not fit the document kind";
        default:
            return "failed";
    }
}

std::string damage_gloss(int32_t damage_type) {
    switch (damage_type) {
        case 0:
            return "the file is in all likelihood fine";
        case 59:
            return "header signature wrong";
        case 60:
            return "header minor version wrong";
        case 61:
            return "header major version wrong";
        case 62:
            return "header byte-order mark wrong";
        case 63:
            return "header sector shift wrong";
        case 64:
            return "header mini sector shift wrong";
        case 65:
            return "header count of directory sectors wrong";
        case 66:
            return "header count of SAT sectors wrong";
        case 67:
            return "header first directory sector wrong";
        case 68:
            return "header mini stream cutoff wrong";
        case 69:
            return "header first DISAT sector wrong";
        case 70:
            return "header count of DISAT sectors wrong";
        case 71:
            return "a SAT sector id in the header is wrong";
        case 74:
            return "root directory entry lost, cannot be saved";
        case 75:
            return "core directory entry lost, cannot be saved";
        case 76:
            return "not a compound file at all";
        case 77:
            return "file name extension does not fit the document kind";
        default:
            return error_code_text(damage_type);
    }
}

std::string damage_description(int32_t code) {
    const bool damage_type = code == 0 || (code >= 59 && code <= 71) || (code >= 74 && code <= 77);
    return damage_type ? damaged_type_description(code) : std::string(error_code_text(code));
}

std::string damage_text(const Context& context, int32_t damage_type) {
    std::string text = "type " + std::to_string(damage_type) + " ";
    if (!context.english_only) text += damage_description(damage_type) + " ";
    return text + "(" + damage_gloss(damage_type) + ")";
}

std::string grouped(uint64_t value) {
    std::string digits = std::to_string(value);
    for (std::size_t at = digits.size(); at > 3; at -= 3) digits.insert(at - 3, ",");
    return digits;
}

}  // namespace vrk::cli
