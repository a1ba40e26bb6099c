#ifndef QVDEMO_H
#define QVDEMO_H

#include "qvlib.h"

/* Prints a section heading. */
void demo_heading(const char *title);

void demo_foundation(void);
void demo_codecs(void);
void demo_files(void);
void demo_json(void);
void demo_threads(void);
void demo_hash(void);
/* @@demo declarations@@ */

#endif
