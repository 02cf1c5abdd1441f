// Log lines of the compound file object name the class's source, whichever of its role files
// writes them, with the line of the call.
#pragma once

#include "cfb_vornak/entries/Cfb_Logger.h"

namespace vrk {

inline constexpr char kCfbFileSource[] = "code/src/cfb_vornak/Cfb_File";

}  // namespace vrk

#define CFB_FILE_LOG_INFO(msg) \
    ::vrk::Cfb_Logger::write((msg), ::vrk::kCfbFileSource, __LINE__, ::vrk::Cfb_Logger::kInfo)
#define CFB_FILE_LOG_ERROR(msg) \
    ::vrk::Cfb_Logger::write((msg), ::vrk::kCfbFileSource, __LINE__, ::vrk::Cfb_Logger::kError)
