// strncpy that always terminates and never pads.
#include <cstring>

#include "internal/qvinternal.h"

extern "C" QV_API char *qv_strncpy(char *dest, const char *src, size_t n) noexcept {
    QV_ASSERT(dest != NULL);
    QV_ASSERT(src != NULL);
    if (n == 0) return dest;
    size_t len = strnlen(src, n - 1);
    memmove(dest, src, len);
    dest[len] = '\0';
    return dest;
}
