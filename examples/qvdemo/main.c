/*
 * qvdemo: qvlib end to end. Each section lives in its own file and shows one
 * family at work through the public header only.
 */
#include <stdio.h>

#include "demo.h"

int main(void) {
    demo_foundation();
    demo_hash();
    /* @@demo sections@@ */
    qv_uninit();
    printf("\nqvdemo: done\n");
    return 0;
}
