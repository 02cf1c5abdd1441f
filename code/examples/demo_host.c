/* A minimal host of the library: starts it, checks each file named on the command line, and
 * writes the error dump at the end.
 *
 * Usage: demo_host LOG_DIR CONFIG_DIR WORK_DIR [FILE...] */
#include <stdint.h>
#include <stdio.h>

#include "cfb_vornak/cfb_vornak_api.h"

int main(int argc, char** argv) {
    if (argc < 4) {
        fprintf(stderr, "usage: %s LOG_DIR CONFIG_DIR WORK_DIR [FILE...]\n", argv[0]);
        return 2;
    }
    int32_t result = VrkCfbInit(argv[1], argv[2], argv[3]);
    printf("VrkCfbInit -> %d\n", (int)result);
    if (result != 0) return 1;

    for (int i = 4; i < argc; ++i) {
        printf("VrkCfbFileCheck(%s) -> %d\n", argv[i], (int)VrkCfbFileCheck(argv[i]));
    }

    result = VrkCfbDestroy();
    printf("VrkCfbDestroy -> %d\n", (int)result);
    return result == 0 ? 0 : 1;
}
