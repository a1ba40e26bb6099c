// Checked conversions between integer widths and limit queries. Limits that
// exist only because size_t was 32 bits wide are written with SIZE_MAX, so
// 32-bit builds give exactly the historical numbers.
#include <climits>
#include <cmath>
#include <cstdint>

#include "internal/qvinternal.h"

extern "C" {

QV_API void qv_convert_cstr_from_custr(char **destptr, const unsigned char *src) noexcept {
    QV_ASSERT(destptr != NULL);
    QV_ASSERT(src != NULL);
    *destptr = reinterpret_cast<char *>(const_cast<unsigned char *>(src));
}

QV_API void qv_convert_custr_from_cstr(unsigned char **destptr, const char *src) noexcept {
    QV_ASSERT(destptr != NULL);
    QV_ASSERT(src != NULL);
    *destptr = reinterpret_cast<unsigned char *>(const_cast<char *>(src));
}

// Half away from zero; a result that does not fit (and NaN) gives the most
// negative value, as the x86 integer-indefinite conversion does.
QV_API int64_t qv_convert_i64_from_double_round(double value) noexcept {
    double r = value >= 0.0 ? value + 0.5 : value - 0.5;
    r = std::trunc(r);
    if (!(r >= -9223372036854775808.0 && r < 9223372036854775808.0)) return INT64_MIN;
    return static_cast<int64_t>(r);
}

QV_API long qv_convert_long_from_double_round(double value) noexcept {
    double r = value >= 0.0 ? value + 0.5 : value - 0.5;
    r = std::trunc(r);
    if (!(r >= static_cast<double>(LONG_MIN) && r < -static_cast<double>(LONG_MIN))) return LONG_MIN;
    return static_cast<long>(r);
}

QV_API int qv_convert_int_from_size_t_and_limit(int *dest, size_t value) noexcept {
    QV_ASSERT(dest != NULL);
    if (value > static_cast<size_t>(INT_MAX)) {
        *dest = INT_MAX;
        return 1;
    }
    *dest = static_cast<int>(value);
    return 0;
}

QV_API int qv_convert_uint_from_size_t_and_limit(unsigned int *dest, size_t value) noexcept {
    QV_ASSERT(dest != NULL);
    if (value > static_cast<size_t>(UINT_MAX)) {
        *dest = UINT_MAX;
        return 1;
    }
    *dest = static_cast<unsigned int>(value);
    return 0;
}

QV_API int qv_convert_int_from_size_t(int *dest, size_t value) noexcept {
    QV_ASSERT(dest != NULL);
    *dest = static_cast<int>(static_cast<unsigned int>(value));
    return *dest < 0 ? -1 : 0;
}

QV_API size_t qv_limit_max_size_t(void) noexcept { return SIZE_MAX; }
QV_API unsigned long qv_limit_max_unsigned_long(void) noexcept { return ULONG_MAX; }
QV_API unsigned int qv_limit_max_unsigned_int(void) noexcept { return UINT_MAX; }

QV_API size_t qv_sizet_multiply_and_limit(size_t a, size_t b) noexcept {
    if (a == 0 || b == 0) return 0;
    if (SIZE_MAX / b >= a) return a * b;
    return SIZE_MAX;
}

}  // extern "C"
