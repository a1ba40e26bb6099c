// Decimal text to a signed 64-bit integer, with exact failure codes: no digits,
// out of range, or trailing bytes after a valid number.
#include <cctype>

#include "internal/qvinternal.h"

extern "C" QV_API int qv_strtoi64(const char *str, int64_t *out) noexcept {
    QV_ASSERT(str != NULL);
    QV_ASSERT(out != NULL);
    *out = 0;
    const unsigned char *p = reinterpret_cast<const unsigned char *>(str);
    while (isspace(*p)) ++p;
    bool negative = false;
    if (*p == '+' || *p == '-') {
        negative = *p == '-';
        ++p;
    }
    if (*p < '0' || *p > '9') return QV_ERROR_INVALID_SYNTAX;
    uint64_t value = 0;
    for (; *p >= '0' && *p <= '9'; ++p) {
        if (value > 0x1999999999999999ULL) return QV_ERROR_OUT_OF_RANGE;
        uint64_t next = value * 10 + static_cast<uint64_t>(*p - '0');
        if (next < value * 10) return QV_ERROR_OUT_OF_RANGE;
        value = next;
    }
    int result = *p == '\0' ? QV_ERROR_NONE : QV_ERROR_INCOMPLETE;
    constexpr uint64_t kTwo63 = 0x8000000000000000ULL;
    if (!negative && value >= kTwo63) return QV_ERROR_OUT_OF_RANGE;
    if (negative && value > kTwo63) return QV_ERROR_OUT_OF_RANGE;
    *out = negative ? static_cast<int64_t>(0 - value) : static_cast<int64_t>(value);
    return result;
}
