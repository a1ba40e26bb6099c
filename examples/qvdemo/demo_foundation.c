#include <stdio.h>

#include "demo.h"

void demo_heading(const char *title) { printf("\n== %s\n", title); }

void demo_foundation(void) {
    demo_heading("error codes");
    printf("%d: %s\n", QV_ERROR_NO_MEMORY, qv_error_string(QV_ERROR_NO_MEMORY));
}
