/*
 * cfb_vornak: checks, analyses and repairs damaged compound files (the structured-storage
 * container of legacy .doc, .xls and .ppt documents).
 *
 * A host calls VrkCfbInit once, then any number of the four work exports, and VrkCfbDestroy
 * at the end. Every path is a narrow, NUL-terminated string (the process code page on
 * Windows, UTF-8 elsewhere). The work exports return 0 on success or a negative result
 * (-3101 ... -3114, -3100 for anything else); VrkCfbInit and VrkCfbDestroy return the raw
 * internal code (0, 4, 12 or 53). The result of a work export is the last error record of
 * the calling thread, so run independent calls on separate threads when that matters.
 */
#ifndef CFB_VORNAK_API_H
#define CFB_VORNAK_API_H

#include <stdint.h>

#if defined(_WIN32)
#define VRK_CFB_CALL __stdcall
#if defined(CFB_VORNAK_STATIC)
#define VRK_CFB_API
#elif defined(CFB_VORNAK_BUILD)
#define VRK_CFB_API __declspec(dllexport)
#else
#define VRK_CFB_API __declspec(dllimport)
#endif
#else
#define VRK_CFB_CALL
#define VRK_CFB_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Creates the log and configuration folders, starts the logger once per process, stores the
 * work folder (scratch folders of analysis and repair go below it; with an empty or unusable
 * one they go into a private folder this process makes in the temporary folder) and clears
 * the password. */
VRK_CFB_API int32_t VRK_CFB_CALL VrkCfbInit(const char* log_dir, const char* config_dir,
                                            const char* work_dir);

/* Writes every thread's error records to "occur_error_when_fixing_file.log" in the log folder
 * and removes the private scratch folder, if one was made (once no running call uses it). The
 * library stays usable. */
VRK_CFB_API int32_t VRK_CFB_CALL VrkCfbDestroy(void);

/* 0 when the file is a sound compound file; otherwise the folded damage type. */
VRK_CFB_API int32_t VRK_CFB_CALL VrkCfbFileCheck(const char* input_file);

/* Writes the structure reports and the streams under the root into output_dir. */
VRK_CFB_API int32_t VRK_CFB_CALL VrkCfbAnalysis(const char* input_file, const char* output_dir);

/* Writes a copy of input_file with a rebuilt header; the extension follows the document kind. */
VRK_CFB_API int32_t VRK_CFB_CALL VrkCfbGeneralRepair(const char* input_file,
                                                     const char* output_file);

/* Stores the document password, then repairs as VrkCfbGeneralRepair does. */
VRK_CFB_API int32_t VRK_CFB_CALL VrkCfbAdvanceRepair(const char* input_file,
                                                     const char* output_file, const char* password);

#ifdef __cplusplus
}
#endif

#endif /* CFB_VORNAK_API_H */
