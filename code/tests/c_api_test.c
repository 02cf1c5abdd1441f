/* The exports as a C host calls them, through the shared library; non-zero on a failure. */
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
    expect_eq("VrkCfbFileCheck before init", VrkCfbFileCheck("missing.doc"), -3103);
    expect_eq("VrkCfbAdvanceRepair null password", VrkCfbAdvanceRepair("a.doc", "b.doc", NULL),
              -3101);
    expect_eq("VrkCfbInit", VrkCfbInit("c_logs", "c_config", "c_work"), 0);
    expect_eq("VrkCfbDestroy", VrkCfbDestroy(), 0);
    return failures == 0 ? 0 : 1;
}
