// Option parsing over random argument vectors: the input is split at NUL
// bytes into arguments. Every parse must return -1, 0 or 1 with optind in
// range (0 exactly on failure), and the usage text must render.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "qvlib.h"

namespace {

int reject_x(const char *value, void *) { return value[0] == 'x' ? QV_ERROR_INVALID_ARGUMENT : 0; }
void on_error(int, const char *option, const char *, void *) {
    if (option == nullptr || option[0] != '-') abort();
}

FILE *sink() {
    static FILE *null = fopen("/dev/null", "w");
    return null;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static bool quiet = [] {
        qv_log_stderr_disable(nullptr);
        // Help prints to standard output; keep the run readable.
        return freopen("/dev/null", "w", stdout) != nullptr;
    }();
    (void)quiet;
    if (size > 4096) return 0;
    char *copy = static_cast<char *>(malloc(size + 1));
    memcpy(copy, data, size);
    copy[size] = '\0';
    char *argv[130];
    int argc = 0;
    argv[argc++] = const_cast<char *>("prog");
    for (size_t start = 0; start <= size && argc < 129;) {
        argv[argc++] = copy + start;
        start += strlen(copy + start) + 1;
    }
    argv[argc] = nullptr;

    qv_getopt *g = qv_getopt_create();
    int flag = 0, number = 0;
    const char *text = nullptr;
    qv_getopt_help(g, "help", 'h');
    qv_getopt_flag_set(g, "verbose", 'v', &flag, "Print more.");
    qv_getopt_int(g, "level", 'l', &number, "N", "A level with a description long enough to wrap onto two lines.");
    qv_getopt_const_string(g, "output", 'o', &text, "FILE", "Output.");
    qv_getopt_string_callback(g, "tag", 't', "TAG", "Tag.", reject_x, nullptr);
    qv_getopt_flag_set(g, "averyveryverylongoptionnamethatspills", 0, &flag, "x");
    qv_getopt_set_error_callback(g, on_error, nullptr);

    int rc = qv_getopt_parse(g, argc, argv);
    int optind = qv_getopt_optind(g);
    if (rc < -1 || rc > 1) abort();
    if (rc == -1 && optind != 0) abort();
    if (rc != -1 && (optind < 1 || optind > argc)) abort();
    if (text != nullptr && (text < copy || text > copy + size)) abort();
    qv_getopt_usage(g, sink());
    qv_getopt_destroy(g);
    free(copy);
    return 0;
}
