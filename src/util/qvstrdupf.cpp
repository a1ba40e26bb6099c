// Formatting into a newly allocated string.
#include "internal/qvinternal.h"
#include "internal/qvformat.h"

extern "C" {

QV_API char *qv_vstrdupf(const char *format, va_list ap) noexcept {
    QV_ASSERT(format != NULL);
    char *s;
    qv::vformat_alloc(&s, format, ap);
    return s;
}

QV_API char *qv_strdupf(const char *format, ...) noexcept {
    QV_ASSERT(format != NULL);
    va_list ap;
    va_start(ap, format);
    char *s;
    qv::vformat_alloc(&s, format, ap);
    va_end(ap);
    return s;
}

}  // extern "C"
