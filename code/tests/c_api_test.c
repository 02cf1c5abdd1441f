/* The exports as a host written in C calls them, through the shared library. Runs in a folder
 * of its own; returns non-zero on the first failure. */
#include <stdint.h>
#include <stdio.h>

#include "cfb_vornak/cfb_vornak_api.h"

static int failures = 0;

static void expect_eq(const char* what, int32_t actual, int32_t expected) {
    if (actual != expected) {
        fprintf(stderr, "FAILED: %s returned %d, expected %d\n", what, (int)actual, (int)expected);
        ++failures;
    }
}

int main(void) {
    const char* dump_path = "c_logs/occur_error_when_fixing_file.log";
    FILE* dump = NULL;
    remove(dump_path);
    expect_eq("VrkCfbFileCheck before init", VrkCfbFileCheck("missing.doc"), -3103);
    expect_eq("VrkCfbAdvanceRepair null password", VrkCfbAdvanceRepair("a.doc", "b.doc", NULL),
              -3101);
    expect_eq("VrkCfbInit null work folder", VrkCfbInit("c_logs", "c_config", NULL), 4);
    expect_eq("VrkCfbInit", VrkCfbInit("c_logs", "c_config", "c_work"), 0);
    expect_eq("VrkCfbAnalysis of a missing file", VrkCfbAnalysis("missing.doc", "out"), -3101);
    expect_eq("VrkCfbDestroy", VrkCfbDestroy(), 0);
    dump = fopen(dump_path, "rb");
    if (dump == NULL || fgetc(dump) == EOF) {
        fprintf(stderr, "FAILED: %s missing or empty after VrkCfbDestroy\n", dump_path);
        ++failures;
    }
    if (dump != NULL) fclose(dump);
    if (failures != 0) return 1;
    puts("c_api_test: all passed");
    return 0;
}
