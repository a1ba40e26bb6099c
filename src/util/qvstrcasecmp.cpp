// Case-insensitive comparison with the runtime's lower-case mapping.
#include <cctype>

#include "internal/qvinternal.h"

extern "C" {

QV_API int qv_strcasecmp(const char *s1, const char *s2) noexcept {
    QV_ASSERT(s1 != NULL);
    QV_ASSERT(s2 != NULL);
    const unsigned char *a = reinterpret_cast<const unsigned char *>(s1);
    const unsigned char *b = reinterpret_cast<const unsigned char *>(s2);
    for (;; ++a, ++b) {
        int d = tolower(*a) - tolower(*b);
        if (d != 0 || *a == '\0') return d;
    }
}

QV_API int qv_strncasecmp(const char *s1, const char *s2, size_t n) noexcept {
    QV_ASSERT(s1 != NULL);
    QV_ASSERT(s2 != NULL);
    const unsigned char *a = reinterpret_cast<const unsigned char *>(s1);
    const unsigned char *b = reinterpret_cast<const unsigned char *>(s2);
    for (; n > 0; --n, ++a, ++b) {
        int d = tolower(*a) - tolower(*b);
        if (d != 0 || *a == '\0') return d;
    }
    return 0;
}

}  // extern "C"
