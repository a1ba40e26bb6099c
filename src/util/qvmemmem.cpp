// Byte-sequence search.
#include <cstring>

#include "internal/qvinternal.h"

extern "C" QV_API void *qv_memmem(const void *haystack, size_t haystacklen, const void *needle,
                                  size_t needlelen) noexcept {
    QV_ASSERT(haystack != NULL);
    QV_ASSERT(needle != NULL);
    if (needlelen == 0) return const_cast<void *>(haystack);
    if (needlelen > haystacklen) return nullptr;
    return memmem(haystack, haystacklen, needle, needlelen);
}
