// Bodies of the four work exports. Each returns the calling thread's last Error_Code, raw;
// the export folds it with to_api_result_code and catches everything that escapes.
#pragma once

#include <cstdint>

namespace vrk {

int32_t file_check_entry(const char* input);
int32_t analysis_entry(const char* input, const char* out_dir);
int32_t general_repair_entry(const char* input, const char* output);
// Stores the document password for the repair that follows.
int32_t set_password_entry(const char* password);

}  // namespace vrk
