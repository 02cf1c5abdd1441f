#include "cfb_vornak/model/Sids_Text.h"

#include <charconv>

namespace vrk {

std::string print_sids_list(const sids_list& chain) {
    std::string text = "------------------------print_sids_list：\n[";
    // Ids print as at most ten digits plus the separator; the text is cut to size at the end.
    constexpr std::size_t kWidest = 12;
    const std::size_t opening = text.size();
    text.resize(opening + chain.size() * kWidest + 1);
    char* out = text.data() + opening;
    char* const end = text.data() + text.size();
    for (std::size_t i = 0; i < chain.size(); ++i) {
        out = std::to_chars(out, end, chain[i]).ptr;
        const bool last = i + 1 == chain.size();
        *out++ = last ? ' ' : '-';
        *out++ = last ? ']' : '>';
        if (last) {
            *out++ = '\n';
        }
    }
    text.resize(static_cast<std::size_t>(out - text.data()));
    return text;
}

}  // namespace vrk
