#include "salvage_paths.h"

#include <algorithm>

#include "tool_common.h"

namespace vrk::cli {

namespace {

char16_t ascii_lower(char16_t c) {
    return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c - u'A' + u'a') : c;
}

bool same_ignoring_ascii_case(const std::u16string& a, const std::u16string& b) {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(),
                      [](char16_t x, char16_t y) { return ascii_lower(x) == ascii_lower(y); });
}

}  // namespace

std::vector<std::vector<std::size_t>> children_by_name(const Salvage_Result& result) {
    std::vector<std::vector<std::size_t>> children(result.entries.size());
    for (std::size_t i = 1; i < result.entries.size(); ++i) {
        const int32_t parent = result.entries[i].parent;
        if (parent >= 0 && static_cast<std::size_t>(parent) < children.size()) {
            children[static_cast<std::size_t>(parent)].push_back(i);
        }
    }
    for (std::vector<std::size_t>& list : children) {
        std::sort(list.begin(), list.end(), [&](std::size_t a, std::size_t b) {
            return result.entries[a].name < result.entries[b].name;
        });
    }
    return children;
}

std::vector<std::size_t> tree_order(const Salvage_Result& result) {
    std::vector<std::size_t> order;
    if (result.entries.empty()) return order;
    const std::vector<std::vector<std::size_t>> children = children_by_name(result);
    // Parents come before their children in the entries, so the walk meets every entry once.
    std::vector<std::size_t> pending{0};
    while (!pending.empty()) {
        const std::size_t index = pending.back();
        pending.pop_back();
        order.push_back(index);
        pending.insert(pending.end(), children[index].rbegin(), children[index].rend());
    }
    return order;
}

std::string display_path(const Salvage_Result& result, std::size_t index) {
    std::vector<std::size_t> chain;
    for (std::size_t i = index; i > 0 && i < result.entries.size();) {
        chain.push_back(i);
        const int32_t parent = result.entries[i].parent;
        i = parent > 0 ? static_cast<std::size_t>(parent) : 0;
    }
    std::string path;
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
        if (!path.empty()) path += '/';
        path += display_name(result.entries[*it].name);
    }
    return path;
}

bool find_entry(const Salvage_Result& result, const std::vector<std::u16string>& names,
                std::size_t& index, std::string& error) {
    const std::vector<std::vector<std::size_t>> children = children_by_name(result);
    index = 0;
    for (const std::u16string& name : names) {
        if (!result.entries[index].is_storage()) {
            error = "'" + display_path(result, index) + "' is a stream, not a storage";
            return false;
        }
        const std::vector<std::size_t>& here = children[index];
        const auto exact = std::find_if(here.begin(), here.end(), [&](std::size_t c) {
            return result.entries[c].name == name;
        });
        if (exact != here.end()) {
            index = *exact;
            continue;
        }
        std::vector<std::size_t> folded;
        for (std::size_t c : here) {
            if (same_ignoring_ascii_case(result.entries[c].name, name)) folded.push_back(c);
        }
        if (folded.size() != 1) {
            const std::string parent =
                index == 0 ? "the root" : "'" + display_path(result, index) + "'";
            error = "no entry '" + display_name(name) + "' in " + parent;
            return false;
        }
        index = folded.front();
    }
    return true;
}

const char* state_text(Salvage_State state) { return salvage_state_text(state); }

}  // namespace vrk::cli
