// 64-bit integer to decimal text.
#include "internal/qvinternal.h"

extern "C" QV_API char *qv_i64tostr(int64_t value) noexcept {
    // The magnitude as unsigned, so the most negative value needs no special case.
    uint64_t mag = value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    size_t digits = 1;
    for (uint64_t m = mag; m >= 10; m /= 10) ++digits;
    size_t pos = value < 0 ? 1 : 0;
    size_t len = pos + digits;
    char *s = static_cast<char *>(qv_malloc(len + 1));
    if (s == nullptr) return nullptr;
    if (pos) s[0] = '-';
    for (size_t i = len; i > pos; mag /= 10) s[--i] = static_cast<char>('0' + mag % 10);
    s[len] = '\0';
    return s;
}
