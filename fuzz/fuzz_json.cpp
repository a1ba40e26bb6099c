// libFuzzer target for qv_json_parse with a round-trip oracle: whatever
// parses must write; when the written text holds no exponent (which the
// writer may produce and the parser refuses) and no negative zero double
// (written "-0", which reads back as the integer 0), it must parse again
// and write the very same text.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "qvlib.h"

namespace {

bool rereadable(const char *text) {
    // Exponents only ever appear after a digit; strings are skipped.
    bool in_string = false;
    for (const char *p = text; *p; ++p) {
        if (in_string) {
            if (*p == '\\') ++p;
            else if (*p == '"') in_string = false;
            continue;
        }
        if (*p == '"') in_string = true;
        else if ((*p == 'e' || *p == 'n' || *p == 'i') && p > text && p[-1] >= '0' && p[-1] <= '9') return false;
        else if (*p == '-' && p[1] == '0' && (p[2] == ' ' || p[2] == ',')) return false;
        else if ((*p == 'n' || *p == 'i') && (strncmp(p, "nan", 3) == 0 || strncmp(p, "inf", 3) == 0)) return false;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    qv_log_stderr_disable(NULL);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string text(reinterpret_cast<const char *>(data), size);  // NUL-terminated copy
    qv_json *j = qv_json_create();
    if (j == nullptr) return 0;
    if (qv_json_parse(j, text.c_str()) == 0) {
        char *first = qv_json_output(j);
        if (first == nullptr) abort();
        if (rereadable(first)) {
            if (qv_json_parse(j, first) != 0) abort();
            char *second = qv_json_output(j);
            if (second == nullptr || strcmp(first, second) != 0) abort();
            qv_free(second);
        }
        qv_free(first);
    }
    qv_json_destroy(j);
    return 0;
}
