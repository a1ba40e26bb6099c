#include <stdio.h>
#include <string.h>

#include "demo.h"

void demo_files(void) {
    const char *name = "qvdemo-files.txt";
    const char *first = "first version\n", *second = "second version\n";
    void *data = NULL;
    size_t len = 0;
    int verbose = 0, level = 3;
    qv_getopt *opts;

    demo_heading("files: save with backup, load back");
    qv_file_data_save_with_backup(name, first, strlen(first));
    qv_file_data_save_with_backup(name, second, strlen(second));
    if (qv_file_data_load(name, &data, &len) == 0) {
        printf("%s holds %lu bytes: %s", name, (unsigned long)len, (char *)data);
        qv_free(data);
    }
    /* With the file gone, the loader falls back to the backup. */
    qv_deletefile(name);
    if (qv_file_data_load_with_backup(name, &data, &len) == 0) {
        printf("without it, the backup gives: %s", (char *)data);
        qv_free(data);
    }
    qv_deletefile("qvdemo-files.txt.bak");

    demo_heading("getopt: usage text");
    opts = qv_getopt_create();
    if (opts == NULL) return;
    qv_getopt_set_synopsis(opts, "usage: demo [OPTIONS] FILE...");
    qv_getopt_help(opts, "help", 'h');
    qv_getopt_flag_set(opts, "verbose", 'v', &verbose, "Print more.");
    qv_getopt_int(opts, "level", 0, &level, "N",
                  "Level of detail, from 0 (quiet) to 9 (everything); the default is 3.");
    qv_getopt_usage_stdout(opts);
    qv_getopt_destroy(opts);
}
