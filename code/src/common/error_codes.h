// The internal result codes, the damage types expressed in them, and the folding of a code
// into the public result of the work exports.
#pragma once

#include <cstdint>
#include <string>

namespace vrk {

using Error_Code = int32_t;
using Cfb_Damaged_Type = int32_t;
using Api_Result_Code = int32_t;

namespace ec {
inline constexpr Error_Code kSuccess = 0;
inline constexpr Error_Code kGeneralFailed = 1;
inline constexpr Error_Code kInternalError = 2;
inline constexpr Error_Code kInvalidPointer = 3;
inline constexpr Error_Code kInvalidArgument = 4;
inline constexpr Error_Code kNotImplemented = 5;
inline constexpr Error_Code kOutOfMemory = 6;
inline constexpr Error_Code kObjectNotInit = 10;
inline constexpr Error_Code kObjectInitFailed = 11;
inline constexpr Error_Code kInitLogFailed = 12;
inline constexpr Error_Code kDeviceFull = 19;
inline constexpr Error_Code kWriteFailed = 23;
inline constexpr Error_Code kOpenFileFailed = 32;
inline constexpr Error_Code kMakeDirFailed = 33;
inline constexpr Error_Code kSelfRecordFailed = 53;
inline constexpr Error_Code kCfbOpenFailed = 57;
inline constexpr Error_Code kCfbEmpty = 58;
inline constexpr Error_Code kMagic = 59;
inline constexpr Error_Code kMinorVersion = 60;
inline constexpr Error_Code kMajorVersion = 61;
inline constexpr Error_Code kEndian = 62;
inline constexpr Error_Code kSectorShift = 63;
inline constexpr Error_Code kMiniSectorShift = 64;
inline constexpr Error_Code kNumDirSecs = 65;
inline constexpr Error_Code kNumSatSecs = 66;
inline constexpr Error_Code kFirstDirSid = 67;
inline constexpr Error_Code kMiniCutoff = 68;
inline constexpr Error_Code kFirstDisatSid = 69;
inline constexpr Error_Code kNumDisatSecs = 70;
inline constexpr Error_Code kHeaderDisatSid = 71;
inline constexpr Error_Code kCfbFine = 72;
inline constexpr Error_Code kCannotRepair = 73;
inline constexpr Error_Code kRootLost = 74;
inline constexpr Error_Code kCoreLost = 75;
inline constexpr Error_Code kNotCfb = 76;
inline constexpr Error_Code kExtension = 77;
}  // namespace ec

// Text of the first table entry whose code equals |code|; "Error code unknown" otherwise.
const char* error_code_text(Error_Code code);
// True when `code` itself (not its absolute value) has a table entry; *text receives it.
bool find_error_code_exact(Error_Code code, const char** text);
// The description of a damage type (UTF-8), or 未知错误[<unsigned value>]~.
std::string damaged_type_description(Cfb_Damaged_Type type);
// The public result of a work export.
Api_Result_Code to_api_result_code(Error_Code code);

}  // namespace vrk
