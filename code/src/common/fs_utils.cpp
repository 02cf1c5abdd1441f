#include "common/fs_utils.h"

#include <filesystem>
#include <system_error>

#include "common/platform.h"

namespace vrk::fs {

namespace stdfs = std::filesystem;

namespace {

// "/" separates on every platform; "\" only where it is the native separator.
bool is_separator(wchar_t c) {
    return c == L'/' || c == platform::kSeparator;
}

}  // namespace

bool create_directories(const std::wstring& folder) {
    const stdfs::path path = platform::to_path(folder);
    stdfs::create_directories(path);
    std::error_code ec;
    return stdfs::is_directory(path, ec);
}

bool make_parent_folder(const std::wstring& file) {
    std::size_t cut = file.size();
    while (cut > 0 && !is_separator(file[cut - 1])) --cut;
    if (cut <= 1) return true;  // no folder part, or the root itself
    return create_directories(file.substr(0, cut - 1));
}

bool is_folder(const std::wstring& path) {
    std::error_code ec;
    return !path.empty() && stdfs::is_directory(platform::to_path(path), ec);
}

bool exists(const std::wstring& path) {
    std::error_code ec;
    return !path.empty() && stdfs::exists(platform::to_path(path), ec);
}

int64_t get_file_size(const std::wstring& path, std::string& error_text) {
    std::error_code ec;
    const auto size = stdfs::file_size(platform::to_path(path), ec);
    if (ec) {
        error_text = ec.message();
        return -1;
    }
    return static_cast<int64_t>(size);
}

bool get_available_space(const std::wstring& path, uint64_t& bytes) {
    return platform::available_space(path, bytes);
}

bool get_temp_folder(std::wstring& folder, std::string& error_text) {
    return platform::temp_directory(folder, error_text);
}

void clear_folder(const std::wstring& folder_with_separator) {
    platform::clear_folder_no_follow(folder_with_separator);
}

std::wstring make_absolute(const std::wstring& path) {
    return platform::make_absolute(path);
}

std::wstring normalise_separators(const std::wstring& path) {
    if constexpr (!platform::kWindows) return path;
    std::wstring out = path;
    for (auto& c : out) {
        if (c == L'/') c = platform::kSeparator;
    }
    return out;
}

std::wstring collapse_separators(const std::wstring& path) {
    std::wstring out;
    out.reserve(path.size());
    for (const wchar_t c : path) {
        if (c == platform::kSeparator && !out.empty() && out.back() == platform::kSeparator)
            continue;
        out.push_back(c);
    }
    return out;
}

void remove_link_at(const std::wstring& path) {
    const std::filesystem::path native = platform::to_path(path);
    try {
        if (platform::is_link(native)) platform::remove_link(native);
    } catch (const std::filesystem::filesystem_error&) {
        // The open that follows fails or writes a new file: either is safe.
    }
}

std::wstring remove_extension(const std::wstring& path) {
    std::size_t start = path.size();
    while (start > 0 && !is_separator(path[start - 1])) --start;
    // A bare drive prefix ("C:name.ext") is not part of the name.
    if (platform::kWindows && start == 0 && path.size() >= 2 && path[1] == L':') start = 2;
    // On Windows a ":" inside the last component starts an alternate stream name.
    std::size_t end = path.size();
    if (platform::kWindows) {
        const std::size_t colon = path.find(L':', start);
        if (colon != std::wstring::npos) end = colon;
    }
    const std::wstring name = path.substr(start, end - start);
    if (name == L"." || name == L"..") return path;
    const std::size_t dot = name.rfind(L'.');
    if (dot == std::wstring::npos || dot == 0) return path;
    return path.substr(0, start + dot) + path.substr(end);
}

}  // namespace vrk::fs
