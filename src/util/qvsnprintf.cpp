// Bounded formatting with the C99 contract on every platform: the result is
// the length the whole output needs, and the buffer is always terminated.
#include <cstdio>

#include "internal/qvinternal.h"

extern "C" {

QV_API int qv_vsnprintf(char *str, size_t size, const char *format, va_list ap) noexcept {
    QV_ASSERT(str != NULL || size == 0);
    QV_ASSERT(format != NULL);
    if (str == nullptr || size == 0) {
        int n = vsnprintf(nullptr, 0, format, ap);
        return n < 0 ? -1 : n;
    }
    int n = vsnprintf(str, size, format, ap);
    str[size - 1] = '\0';
    return n < 0 ? -1 : n;
}

QV_API int qv_snprintf(char *str, size_t size, const char *format, ...) noexcept {
    QV_ASSERT(str != NULL || size == 0);
    QV_ASSERT(format != NULL);
    va_list ap;
    va_start(ap, format);
    int n = qv_vsnprintf(str, size, format, ap);
    va_end(ap);
    return n;
}

}  // extern "C"
