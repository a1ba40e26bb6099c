// Suffix test.
#include <cstring>

#include "internal/qvinternal.h"

extern "C" QV_API int qv_endswith(const char *string, const char *suffix) noexcept {
    QV_ASSERT(string != NULL);
    QV_ASSERT(suffix != NULL);
    size_t sl = strlen(string);
    size_t xl = strlen(suffix);
    if (xl > sl) return 0;
    return memcmp(string + sl - xl, suffix, xl) == 0 ? 1 : 0;
}
