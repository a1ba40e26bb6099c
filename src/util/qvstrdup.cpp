// String and memory duplication, plain and lower-casing.
#include <cstring>

#include "internal/qvinternal.h"

namespace {

char *dup_n(const char *s, size_t n, bool lower) noexcept {
    size_t len = strnlen(s, n);
    char *d = static_cast<char *>(qv_malloc(len + 1));
    if (d == nullptr) return nullptr;
    if (lower) {
        // Only ASCII capitals: bytes above 127 are never touched, whatever the locale.
        for (size_t i = 0; i < len; ++i) {
            char c = s[i];
            d[i] = (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
        }
    } else {
        memcpy(d, s, len);
    }
    d[len] = '\0';
    return d;
}

}  // namespace

extern "C" {

QV_API char *qv_strdup(const char *string) noexcept {
    QV_ASSERT(string != NULL);
    size_t len = strlen(string) + 1;
    char *d = static_cast<char *>(qv_malloc(len));
    if (d != nullptr) memcpy(d, string, len);
    return d;
}

QV_API char *qv_strndup(const char *string, size_t n) noexcept {
    QV_ASSERT(string != NULL);
    return dup_n(string, n, false);
}

QV_API char *qv_strdup_lowercase(const char *string) noexcept {
    QV_ASSERT(string != NULL);
    return dup_n(string, SIZE_MAX, true);
}

QV_API char *qv_strndup_lowercase(const char *string, size_t n) noexcept {
    QV_ASSERT(string != NULL);
    return dup_n(string, n, true);
}

QV_API void *qv_memdup(const void *memory, size_t size) noexcept {
    QV_ASSERT(memory != NULL);
    void *d = qv_malloc(size == 0 ? 1 : size);
    if (d != nullptr && size > 0) memcpy(d, memory, size);
    return d;
}

}  // extern "C"
