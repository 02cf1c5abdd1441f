// The one-line text of a sector chain, shared by the parser's log lines and the reports.
#pragma once

#include <string>

#include "cfb_vornak/format/cfb_types.h"

namespace vrk {

// "------------------------print_sids_list：\n[" then the ids in decimal joined by "->", the
// last followed by " ]\n". An empty chain gives the opening text alone.
std::string print_sids_list(const sids_list& chain);

}  // namespace vrk
