// Allocating formatters. The output is measured, then formatted into a block
// of exactly its size. Short results are measured by formatting into a stack
// buffer, so they cost one formatting pass and a copy instead of two passes.
#include <cstring>

#include "internal/qvinternal.h"
#include "internal/qvformat.h"

namespace qv {

int vformat_alloc(char **out, const char *format, va_list ap) noexcept {
    char local[1024];
    va_list ap2;
    va_copy(ap2, ap);
    int needlen = qv_vsnprintf(local, sizeof local, format, ap2);
    va_end(ap2);
    if (needlen < 0) {
        *out = nullptr;
        return -1;
    }
    char *s = static_cast<char *>(qv_malloc(static_cast<size_t>(needlen) + 1));
    if (s == nullptr) {
        *out = nullptr;
        return -1;
    }
    if (static_cast<size_t>(needlen) < sizeof local) {
        memcpy(s, local, static_cast<size_t>(needlen) + 1);
    } else {
        int result = qv_vsnprintf(s, static_cast<size_t>(needlen) + 1, format, ap);
        QV_ASSERT(result == needlen);
    }
    *out = s;
    return needlen;
}

}  // namespace qv

extern "C" {

QV_API int qv_vasprintf(char **strp, const char *format, va_list ap) noexcept {
    QV_ASSERT(strp != NULL);
    QV_ASSERT(format != NULL);
    return qv::vformat_alloc(strp, format, ap);
}

QV_API int qv_asprintf(char **strp, const char *format, ...) noexcept {
    QV_ASSERT(strp != NULL);
    QV_ASSERT(format != NULL);
    va_list ap;
    va_start(ap, format);
    int n = qv::vformat_alloc(strp, format, ap);
    va_end(ap);
    return n;
}

}  // extern "C"
