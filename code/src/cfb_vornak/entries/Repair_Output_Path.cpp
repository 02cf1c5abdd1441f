#include "cfb_vornak/entries/Repair_Output_Path.h"

#include "common/fs_utils.h"
#include "common/platform.h"

namespace vrk {

namespace {

bool is_separator(wchar_t c) {
    return c == L'/' || c == platform::kSeparator;
}

}  // namespace

std::wstring repair_output_prefix(const std::wstring& output_path) {
    return fs::collapse_separators(fs::normalise_separators(fs::remove_extension(output_path)));
}

std::wstring repair_cfb_output_path(const std::wstring& output_prefix) {
    return output_prefix + L".cfb";
}

std::wstring document_kind_extension(Document_Kind document_kind) {
    switch (document_kind) {
        case Document_Kind::word_processing:
            return L"doc";
        case Document_Kind::spreadsheet:
            return L"xls";
        case Document_Kind::presentation:
            return L"ppt";
        case Document_Kind::unknown:
            break;
    }
    return L"";
}

std::wstring repair_final_output_path(const std::wstring& cfb_output_path,
                                      Document_Kind document_kind) {
    std::wstring path = cfb_output_path;
    const std::wstring extension = document_kind_extension(document_kind);
    if (!extension.empty()) {
        std::size_t start = path.size();
        while (start > 0 && !is_separator(path[start - 1])) --start;
        const std::wstring name = path.substr(start);
        const std::size_t dot = name.rfind(L'.');
        if (name != L"." && name != L".." && dot != std::wstring::npos && dot != 0) {
            path.erase(start + dot);
        }
        path += L'.' + extension;
    }
    return platform::from_utf8(platform::to_utf8(path));
}

}  // namespace vrk
