/*
 * qvdemo: qvlib end to end. Each section lives in its own file and shows one
 * family at work through the public header only.
 */
#include <stdio.h>

#include "demo.h"

int main(void) {
    /* Line-buffered, so the library's stderr lines appear where they happen. */
    setvbuf(stdout, NULL, _IOLBF, 0);
    demo_foundation();
    demo_threads();
    demo_hash();
    demo_json();
    demo_codecs();
    demo_files();
    /* @@demo sections@@ */
    qv_uninit();
    printf("\nqvdemo: done\n");
    return 0;
}
