// Bodies of the four work exports. Each returns the calling thread's last Error_Code, raw;
// the export folds it with to_api_result_code and catches everything that escapes.
//
// Callers inside the project (the command-line tool) may ask for the result itself through
// the optional out-parameters; the exports pass none, and what they observe is the same
// either way.
#pragma once

#include <cstdint>

#include "common/platform.h"

namespace vrk {

struct Analysis_Summary;
struct Repair_Outcome;

[[nodiscard]] int32_t file_check_entry(const char* input);
// `summary`, when given, receives what the analysis wrote (empty when it wrote nothing).
[[nodiscard]] int32_t analysis_entry(const char* input, const char* out_dir,
                                     Analysis_Summary* summary = nullptr);
// `outcome`, when given, receives the final path written, the document kind and the rebuilt
// header. `mode` says how the output is put in place: the exports create and write it; the
// tool passes staged, so that the name shows either the whole output or what it held before.
[[nodiscard]] int32_t general_repair_entry(
    const char* input, const char* output, Repair_Outcome* outcome = nullptr,
    platform::Create_Mode mode = platform::Create_Mode::replace);
// Stores the document password for the repair that follows.
[[nodiscard]] int32_t set_password_entry(const char* password);

}  // namespace vrk
