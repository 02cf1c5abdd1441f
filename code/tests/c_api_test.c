/* The exports as a host written in C calls them, through the shared library. Runs in a folder
 * of its own; returns non-zero on the first failure. */
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include "cfb_vornak/cfb_vornak_api.h"

static int failures = 0;

static void expect_eq(const char* what, int32_t actual, int32_t expected) {
    if (actual != expected) {
        fprintf(stderr, "FAILED: %s returned %d, expected %d\n", what, (int)actual, (int)expected);
        ++failures;
    }
}

static long file_size(const char* path) {
    FILE* f = fopen(path, "rb");
    long size = -1;
    if (f != NULL) {
        if (fseek(f, 0, SEEK_END) == 0) size = ftell(f);
        fclose(f);
    }
    return size;
}

int main(void) {
#if defined(_WIN32)
    const char* dump_path = "c_logs\\occur_error_when_fixing_file.log";
#else
    const char* dump_path = "c_logs/occur_error_when_fixing_file.log";
#endif
    remove(dump_path);

    /* Before VrkCfbInit: the work exports report "not initialised", destroy writes nothing. */
    expect_eq("VrkCfbDestroy before init", VrkCfbDestroy(), 0);
    expect_eq("VrkCfbFileCheck before init", VrkCfbFileCheck("missing.doc"), -3103);
    expect_eq("VrkCfbAnalysis before init", VrkCfbAnalysis("missing.doc", "out"), -3103);
    expect_eq("VrkCfbGeneralRepair before init", VrkCfbGeneralRepair("missing.doc", "out.doc"),
              -3103);
    expect_eq("VrkCfbAdvanceRepair null password", VrkCfbAdvanceRepair("a.doc", "b.doc", NULL),
              -3101);

    expect_eq("VrkCfbInit null work folder", VrkCfbInit("c_logs", "c_config", NULL), 4);
    expect_eq("VrkCfbInit", VrkCfbInit("c_logs", "c_config", "c_work"), 0);
    expect_eq("VrkCfbDestroy", VrkCfbDestroy(), 0);
    if (file_size(dump_path) <= 0) {
        fprintf(stderr, "FAILED: %s missing or empty after VrkCfbDestroy\n", dump_path);
        ++failures;
    }

    if (failures != 0) return 1;
    puts("c_api_test: all passed");
    return 0;
}
