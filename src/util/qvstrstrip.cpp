// A copy without leading and trailing white space.
#include <cctype>

#include "internal/qvinternal.h"

extern "C" QV_API char *qv_strstrip(const char *str) noexcept {
    QV_ASSERT(str);
    const unsigned char *b = reinterpret_cast<const unsigned char *>(str);
    while (*b != '\0' && isspace(*b)) ++b;
    const unsigned char *e = b;
    for (const unsigned char *p = b; *p != '\0'; ++p)
        if (!isspace(*p)) e = p + 1;
    return qv_strndup(reinterpret_cast<const char *>(b), static_cast<size_t>(e - b));
}
