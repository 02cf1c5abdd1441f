// Where a repair writes its output. The repair entry turns the caller's output path into a
// prefix and hands prefix + ".cfb" to the repair, which then gives the path the extension of
// the document kind it found.
#pragma once

#include <cstdint>
#include <string>

#include "cfb_vornak/format/Document_Kind.h"

namespace vrk {

// The caller's output path without the extension of its last component ("." and "..", and a
// name whose only dot is its first character, keep their whole name; on Windows an
// alternate-stream suffix after ":" is not part of the name), "/" turned into the native
// separator, every run of separators collapsed into one.
std::wstring repair_output_prefix(const std::wstring& output_path);

// The path handed to the repair: the prefix with ".cfb" appended.
std::wstring repair_cfb_output_path(const std::wstring& output_prefix);

// The extension for a document kind: "doc", "xls" or "ppt"; empty for any other kind.
std::wstring document_kind_extension(Document_Kind document_kind);

// The path the repair finally writes: `cfb_output_path` with the extension of its last
// component replaced by the document kind's (a path-style extension replacement: the part
// from the last "." of the last component; "." and "..", and names whose only dot is the
// first character, have none and get the new one appended), unchanged for other kinds; then
// sent through UTF-8 and back, as the repair stores it.
std::wstring repair_final_output_path(const std::wstring& cfb_output_path,
                                      Document_Kind document_kind);

}  // namespace vrk
