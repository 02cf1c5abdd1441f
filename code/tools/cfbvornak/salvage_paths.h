// The recovered directory tree as the tool shows it: children in name order, paths of escaped
// names joined by '/', and the entry a typed path names.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "cfb_vornak/salvage/Salvage.h"

namespace vrk::cli {

// For each entry, the indexes of its children, ordered by name (UTF-16 units).
std::vector<std::vector<std::size_t>> children_by_name(const Salvage_Result& result);

// The entries depth first from the root, each storage's children in name order.
std::vector<std::size_t> tree_order(const Salvage_Result& result);

// The entry's path from the root, names escaped as display_name does; "" for the root.
std::string display_path(const Salvage_Result& result, std::size_t index);

// The entry that `names` lead to from the root: each name matched exactly, or else the one
// child whose name matches ignoring ASCII case. False with a reason when there is none.
bool find_entry(const Salvage_Result& result, const std::vector<std::u16string>& names,
                std::size_t& index, std::string& error);

// "recovered", "partial", "ambiguous", "inferred" or "lost".
const char* state_text(Salvage_State state);

}  // namespace vrk::cli
