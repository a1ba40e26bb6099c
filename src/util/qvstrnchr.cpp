// Bounded character search that does not stop at a zero byte.
#include <cstring>

#include "internal/qvinternal.h"

extern "C" QV_API char *qv_strnchr(const char *string, size_t n, char c) noexcept {
    QV_ASSERT(string != NULL);
    return static_cast<char *>(const_cast<void *>(memchr(string, c, n)));
}
