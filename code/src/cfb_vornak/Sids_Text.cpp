#include "cfb_vornak/Sids_Text.h"

namespace vrk {

std::string print_sids_list(const sids_list& chain) {
    std::string text = "------------------------print_sids_list：\n[";
    // Ids print as at most ten digits plus the separator.
    text.reserve(text.size() + chain.size() * 12 + 3);
    for (std::size_t i = 0; i < chain.size(); ++i) {
        text += std::to_string(chain[i]);
        text += (i + 1 < chain.size()) ? "->" : " ]\n";
    }
    return text;
}

}  // namespace vrk
