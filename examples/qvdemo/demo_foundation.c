/* Foundation: error texts, formatting, the template expander, logging to
 * stderr and to a file, and a broken precondition caught in a child process. */
#define _XOPEN_SOURCE 700
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "demo.h"

void demo_heading(const char *title) { printf("\n== %s\n", title); fflush(stdout); }

static void show_file(const char *path) {
    char line[512];
    FILE *fp = fopen(path, "r");
    if (fp == NULL) return;
    while (fgets(line, sizeof line, fp) != NULL) printf("  | %s", line);
    fclose(fp);
}

void demo_foundation(void) {
    demo_heading("error codes");
    int codes[] = {QV_ERROR_NONE, QV_ERROR_NO_MEMORY, QV_ERROR_TIMED_OUT, QV_ERROR_INCOMPLETE, 3};
    for (size_t i = 0; i < sizeof codes / sizeof codes[0]; ++i)
        printf("  %3d  %s\n", codes[i], qv_error_string(codes[i]));

    demo_heading("formatting");
    char small[8];
    int need = qv_snprintf(small, sizeof small, "%s-%d", "truncated", 12345);
    printf("  qv_snprintf into 8 bytes: \"%s\", needed %d\n", small, need);
    char *s = qv_strdupf("%d items, %.2f%% done", 42, 99.5);
    printf("  qv_strdupf: \"%s\"\n", s);
    qv_free(s);
    int64_t v = 0;
    int rc = qv_strtoi64("  -9223372036854775808", &v);
    char *back = qv_i64tostr(v);
    printf("  qv_strtoi64: %d (%s), value %s\n", rc, qv_error_string(rc), back);
    qv_free(back);
    rc = qv_strtoi64("12abc", &v);
    printf("  qv_strtoi64(\"12abc\"): %d (%s), value %lld\n", rc, qv_error_string(rc), (long long)v);

    demo_heading("template expander");
    s = qv_format("user %name% uses 100%% of %disk%", "name", "ann", "disk", "/data", (const char *)NULL);
    printf("  \"%s\"\n", s);
    qv_free(s);
    printf("  a missing variable is logged on stderr and expands to nothing:\n");
    fflush(stdout);
    s = qv_format("hello %who%!", (const char *)NULL);
    printf("  \"%s\"\n", s);
    qv_free(s);

    demo_heading("logging");
    char path[] = "/tmp/qvdemo-log-XXXXXX";
    int fd = mkstemp(path);
    if (fd >= 0) close(fd);
    qv_log_logfile_set_name(NULL, path);
    qv_log_logfile_enable(NULL);
    qv_log_logfile_set_level(NULL, 13);
    fflush(stdout);
    QV_LOG(7, "unable to open %s, error %d (%s)", "config.json", QV_ERROR_NOT_FOUND,
           qv_error_string(QV_ERROR_NOT_FOUND));
    QV_LOG(13, "a level-13 trace line goes to the file only");
    qv_log(NULL, 3, "a direct message without a source prefix");
    qv_log_raw(NULL, 3, "a raw message: no timestamp");
    printf("  the log file %s holds:\n", path);
    qv_log_uninit();
    show_file(path);
    unlink(path);

    demo_heading("a broken precondition");
    fflush(stdout);
    fflush(stderr);
    pid_t pid = fork();
    if (pid == 0) {
        qv_strdup(NULL);
        _exit(0);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    if (WIFSIGNALED(status))
        printf("  the child printed the assertion line above and ended with signal %d (%s)\n", WTERMSIG(status),
               strsignal(WTERMSIG(status)));
}
