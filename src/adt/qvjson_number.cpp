// Number conversions of the JSON family: decimal text (no exponent) to the
// nearest double, and doubles to the exact text printf's "%g" gives in the
// C locale. Both run a fast exact path and fall back to the C runtime (in the
// C locale) for the rare inputs the fast path cannot decide.
//
// Text to double: the significant digits (at most 19) form an integer w and
// the dot position a power q <= 0, value = w * 10^q. When w < 2^53 and
// q >= -22 both w and 10^-q are exact doubles and one IEEE division rounds
// correctly. Otherwise the Eisel-Lemire method multiplies w by a 128-bit
// approximation of 5^q and detects the rare cases where that approximation
// cannot decide the rounding; those, and longer digit strings, go to strtod.
//
// Double to "%g": six significant digits. The value is scaled by one exact
// power of ten into [100000, 1000000): a single rounding error, far below the
// distance to a rounding tie except when the value sits next to one, which is
// handed to snprintf (as are values outside the exact powers' range, NaN and
// infinities).
#include <cmath>
#include <cstdio>
#include <cstring>

#include "adt/qvjson_impl.h"
#include "platform/qvplat_number.h"

namespace qv::json {

namespace {

constexpr double kPow10[23] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                               1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                               1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

// 5^q for q = -64..0, normalised to 128 bits (high, low): truncated for
// q >= 0, rounded up for q < 0, as the Eisel-Lemire error analysis assumes.
constexpr int kSmallestPower = -64;
struct U128Const {
    uint64_t hi, lo;
};
constexpr U128Const kPow5[] = {
    {0xa87fea27a539e9a5ULL, 0x3f2398d747b36224ULL},  // 5^-64
    {0xd29fe4b18e88640eULL, 0x8eec7f0d19a03aadULL},  // 5^-63
    {0x83a3eeeef9153e89ULL, 0x1953cf68300424acULL},  // 5^-62
    {0xa48ceaaab75a8e2bULL, 0x5fa8c3423c052dd7ULL},  // 5^-61
    {0xcdb02555653131b6ULL, 0x3792f412cb06794dULL},  // 5^-60
    {0x808e17555f3ebf11ULL, 0xe2bbd88bbee40bd0ULL},  // 5^-59
    {0xa0b19d2ab70e6ed6ULL, 0x5b6aceaeae9d0ec4ULL},  // 5^-58
    {0xc8de047564d20a8bULL, 0xf245825a5a445275ULL},  // 5^-57
    {0xfb158592be068d2eULL, 0xeed6e2f0f0d56712ULL},  // 5^-56
    {0x9ced737bb6c4183dULL, 0x55464dd69685606bULL},  // 5^-55
    {0xc428d05aa4751e4cULL, 0xaa97e14c3c26b886ULL},  // 5^-54
    {0xf53304714d9265dfULL, 0xd53dd99f4b3066a8ULL},  // 5^-53
    {0x993fe2c6d07b7fabULL, 0xe546a8038efe4029ULL},  // 5^-52
    {0xbf8fdb78849a5f96ULL, 0xde98520472bdd033ULL},  // 5^-51
    {0xef73d256a5c0f77cULL, 0x963e66858f6d4440ULL},  // 5^-50
    {0x95a8637627989aadULL, 0xdde7001379a44aa8ULL},  // 5^-49
    {0xbb127c53b17ec159ULL, 0x5560c018580d5d52ULL},  // 5^-48
    {0xe9d71b689dde71afULL, 0xaab8f01e6e10b4a6ULL},  // 5^-47
    {0x9226712162ab070dULL, 0xcab3961304ca70e8ULL},  // 5^-46
    {0xb6b00d69bb55c8d1ULL, 0x3d607b97c5fd0d22ULL},  // 5^-45
    {0xe45c10c42a2b3b05ULL, 0x8cb89a7db77c506aULL},  // 5^-44
    {0x8eb98a7a9a5b04e3ULL, 0x77f3608e92adb242ULL},  // 5^-43
    {0xb267ed1940f1c61cULL, 0x55f038b237591ed3ULL},  // 5^-42
    {0xdf01e85f912e37a3ULL, 0x6b6c46dec52f6688ULL},  // 5^-41
    {0x8b61313bbabce2c6ULL, 0x2323ac4b3b3da015ULL},  // 5^-40
    {0xae397d8aa96c1b77ULL, 0xabec975e0a0d081aULL},  // 5^-39
    {0xd9c7dced53c72255ULL, 0x96e7bd358c904a21ULL},  // 5^-38
    {0x881cea14545c7575ULL, 0x7e50d64177da2e54ULL},  // 5^-37
    {0xaa242499697392d2ULL, 0xdde50bd1d5d0b9e9ULL},  // 5^-36
    {0xd4ad2dbfc3d07787ULL, 0x955e4ec64b44e864ULL},  // 5^-35
    {0x84ec3c97da624ab4ULL, 0xbd5af13bef0b113eULL},  // 5^-34
    {0xa6274bbdd0fadd61ULL, 0xecb1ad8aeacdd58eULL},  // 5^-33
    {0xcfb11ead453994baULL, 0x67de18eda5814af2ULL},  // 5^-32
    {0x81ceb32c4b43fcf4ULL, 0x80eacf948770ced7ULL},  // 5^-31
    {0xa2425ff75e14fc31ULL, 0xa1258379a94d028dULL},  // 5^-30
    {0xcad2f7f5359a3b3eULL, 0x096ee45813a04330ULL},  // 5^-29
    {0xfd87b5f28300ca0dULL, 0x8bca9d6e188853fcULL},  // 5^-28
    {0x9e74d1b791e07e48ULL, 0x775ea264cf55347eULL},  // 5^-27
    {0xc612062576589ddaULL, 0x95364afe032a819eULL},  // 5^-26
    {0xf79687aed3eec551ULL, 0x3a83ddbd83f52205ULL},  // 5^-25
    {0x9abe14cd44753b52ULL, 0xc4926a9672793543ULL},  // 5^-24
    {0xc16d9a0095928a27ULL, 0x75b7053c0f178294ULL},  // 5^-23
    {0xf1c90080baf72cb1ULL, 0x5324c68b12dd6339ULL},  // 5^-22
    {0x971da05074da7beeULL, 0xd3f6fc16ebca5e04ULL},  // 5^-21
    {0xbce5086492111aeaULL, 0x88f4bb1ca6bcf585ULL},  // 5^-20
    {0xec1e4a7db69561a5ULL, 0x2b31e9e3d06c32e6ULL},  // 5^-19
    {0x9392ee8e921d5d07ULL, 0x3aff322e62439fd0ULL},  // 5^-18
    {0xb877aa3236a4b449ULL, 0x09befeb9fad487c3ULL},  // 5^-17
    {0xe69594bec44de15bULL, 0x4c2ebe687989a9b4ULL},  // 5^-16
    {0x901d7cf73ab0acd9ULL, 0x0f9d37014bf60a11ULL},  // 5^-15
    {0xb424dc35095cd80fULL, 0x538484c19ef38c95ULL},  // 5^-14
    {0xe12e13424bb40e13ULL, 0x2865a5f206b06fbaULL},  // 5^-13
    {0x8cbccc096f5088cbULL, 0xf93f87b7442e45d4ULL},  // 5^-12
    {0xafebff0bcb24aafeULL, 0xf78f69a51539d749ULL},  // 5^-11
    {0xdbe6fecebdedd5beULL, 0xb573440e5a884d1cULL},  // 5^-10
    {0x89705f4136b4a597ULL, 0x31680a88f8953031ULL},  // 5^-9
    {0xabcc77118461cefcULL, 0xfdc20d2b36ba7c3eULL},  // 5^-8
    {0xd6bf94d5e57a42bcULL, 0x3d32907604691b4dULL},  // 5^-7
    {0x8637bd05af6c69b5ULL, 0xa63f9a49c2c1b110ULL},  // 5^-6
    {0xa7c5ac471b478423ULL, 0x0fcf80dc33721d54ULL},  // 5^-5
    {0xd1b71758e219652bULL, 0xd3c36113404ea4a9ULL},  // 5^-4
    {0x83126e978d4fdf3bULL, 0x645a1cac083126eaULL},  // 5^-3
    {0xa3d70a3d70a3d70aULL, 0x3d70a3d70a3d70a4ULL},  // 5^-2
    {0xccccccccccccccccULL, 0xcccccccccccccccdULL},  // 5^-1
    {0x8000000000000000ULL, 0x0000000000000000ULL},  // 5^0
};

struct U128 {
    uint64_t lo, hi;
};

inline U128 mul64(uint64_t a, uint64_t b) noexcept {
#if defined(__SIZEOF_INT128__)
    unsigned __int128 p = static_cast<unsigned __int128>(a) * b;
    return {static_cast<uint64_t>(p), static_cast<uint64_t>(p >> 64)};
#else
    uint64_t a0 = a & 0xffffffffu, a1 = a >> 32, b0 = b & 0xffffffffu, b1 = b >> 32;
    uint64_t p00 = a0 * b0, p01 = a0 * b1, p10 = a1 * b0, p11 = a1 * b1;
    uint64_t mid = (p00 >> 32) + (p01 & 0xffffffffu) + (p10 & 0xffffffffu);
    return {(mid << 32) | (p00 & 0xffffffffu), p11 + (p01 >> 32) + (p10 >> 32) + (mid >> 32)};
#endif
}

// w * 10^q for w != 0 and kSmallestPower <= q <= 0; false when the product's
// rounding cannot be decided from 128 bits.
bool eisel_lemire(uint64_t w, int q, bool negative, double *out) noexcept {
    const U128Const &f = kPow5[q - kSmallestPower];
    int64_t exponent = ((static_cast<int64_t>(152170 + 65536) * q) >> 16) + 1024 + 63;
    int lz = __builtin_clzll(w);
    w <<= lz;
    U128 p = mul64(w, f.hi);
    uint64_t lower = p.lo, upper = p.hi;
    if ((upper & 0x1ff) == 0x1ff && lower + w < lower) {
        // The truncated factor may be one short in the bits that matter:
        // bring in its low half.
        U128 p2 = mul64(w, f.lo);
        uint64_t middle = lower + p2.hi;
        if (middle < lower) ++upper;
        if (middle + 1 == 0 && (upper & 0x1ff) == 0x1ff && p2.lo + w < p2.lo) return false;
        lower = middle;
    }
    uint64_t upperbit = upper >> 63;
    uint64_t mantissa = upper >> (upperbit + 9);
    lz += static_cast<int>(1 ^ upperbit);
    // Exactly half way between two doubles (or too close to tell): let
    // strtod apply round-half-even.
    if (lower == 0 && (upper & 0x1ff) == 0 && (mantissa & 3) == 1) return false;
    mantissa += mantissa & 1;
    mantissa >>= 1;
    if (mantissa >= (uint64_t{1} << 53)) {
        mantissa = uint64_t{1} << 52;
        --lz;
    }
    mantissa &= ~(uint64_t{1} << 52);
    int64_t real_exponent = exponent - lz;
    if (real_exponent < 1 || real_exponent > 2046) return false;  // subnormal or overflow
    uint64_t bits = mantissa | (static_cast<uint64_t>(real_exponent) << 52) |
                    (static_cast<uint64_t>(negative) << 63);
    memcpy(out, &bits, sizeof bits);
    return true;
}

size_t format_g_slow(double value, char *out) noexcept {
    int n = snprintf(out, 32, "%g", value);
    if (n < 0) n = 0;
    for (int i = 0; i < n; ++i)
        if (out[i] == ',') out[i] = '.';
    return static_cast<size_t>(n);
}

}  // namespace

bool decimal_to_double(const char *begin, const char *end, double *out) noexcept {
    const char *p = begin;
    bool negative = false;
    if (p < end && *p == '-') {
        negative = true;
        ++p;
    }
    const char *dot = nullptr;
    for (const char *s = p; s < end; ++s) {
        if (*s == '.') {
            dot = s;
            break;
        }
    }
    const char *last = end;
    if (dot != nullptr) {
        while (last > dot + 1 && last[-1] == '0') --last;  // trailing zeros change nothing
        if (last == dot + 1) last = dot;
    }
    uint64_t w = 0;
    int digits = 0;
    int q = 0;
    bool exact = true;
    bool in_fraction = false;
    for (; p < last; ++p) {
        char c = *p;
        if (c == '.') {
            in_fraction = true;
            continue;
        }
        if (in_fraction) --q;
        if (w == 0 && c == '0') continue;  // leading zeros are not significant
        if (digits == 19) {
            exact = false;
            break;
        }
        w = w * 10 + static_cast<uint64_t>(c - '0');
        ++digits;
    }
    if (exact) {
        if (w == 0) {
            *out = negative ? -0.0 : 0.0;
            return true;
        }
        if (w <= (uint64_t{1} << 53) && q >= -22) {
            double d = static_cast<double>(w) / kPow10[-q];
            *out = negative ? -d : d;
            return true;
        }
        if (q >= kSmallestPower && eisel_lemire(w, q, negative, out)) return true;
    }
    // Rare: more than 19 significant digits, very small values or an
    // undecidable rounding. The byte after the number cannot continue it, so
    // strtod stops exactly at end.
    char *stop = nullptr;
    double d = qv::plat::strtod_c(begin, &stop);
    if (!std::isfinite(d)) return false;
    *out = d;
    return true;
}

int64_t double_to_stored_integer(double d) noexcept {
    double r = d + 0.5;
    // Out of range (and NaN) give the most negative value, as the hardware
    // conversion does.
    if (!(r > -9223372036854777856.0 && r < 9223372036854775808.0)) return INT64_MIN;
    return static_cast<int64_t>(r);
}

size_t format_g(double value, char *out) noexcept {
    if (!std::isfinite(value)) return format_g_slow(value, out);
    char *o = out;
    if (std::signbit(value)) *o++ = '-';
    double a = std::fabs(value);
    if (a == 0.0) {
        *o++ = '0';
        *o = '\0';
        return static_cast<size_t>(o - out);
    }
    // Decimal exponent estimate from the binary one (a in [2^(e2-1), 2^e2)):
    // floor((e2 - 1) * log10(2)), corrected below by a step or two.
    int e2;
    (void)std::frexp(a, &e2);
    int e = ((e2 - 1) * 78913) >> 18;
    double scaled = 0;
    bool found = false;
    for (int tries = 0; tries < 4; ++tries) {
        int k = 5 - e;
        if (k < -22 || k > 22) return format_g_slow(value, out);
        scaled = k >= 0 ? a * kPow10[k] : a / kPow10[-k];
        if (scaled < 100000.0) {
            --e;
        } else if (scaled >= 1000000.0) {
            ++e;
        } else {
            found = true;
            break;
        }
    }
    if (!found) return format_g_slow(value, out);
    uint32_t n = static_cast<uint32_t>(scaled);
    double frac = scaled - n;
    // scaled carries one rounding (relative 2^-53, absolute < 2e-10 here):
    // only a value this close to a tie needs the exact answer.
    if (std::fabs(frac - 0.5) < 1e-9) return format_g_slow(value, out);
    if (frac > 0.5) ++n;
    if (n == 1000000) {
        n = 100000;
        ++e;
    }
    char d[6];
    for (int i = 5; i >= 0; --i) {
        d[i] = static_cast<char>('0' + n % 10);
        n /= 10;
    }
    int nd = 6;
    while (nd > 1 && d[nd - 1] == '0') --nd;  // %g drops trailing zeros
    if (e < -4 || e >= 6) {
        *o++ = d[0];
        if (nd > 1) {
            *o++ = '.';
            for (int i = 1; i < nd; ++i) *o++ = d[i];
        }
        *o++ = 'e';
        int x = e;
        if (x < 0) {
            *o++ = '-';
            x = -x;
        } else {
            *o++ = '+';
        }
        if (x >= 100) *o++ = static_cast<char>('0' + x / 100);
        *o++ = static_cast<char>('0' + x / 10 % 10);
        *o++ = static_cast<char>('0' + x % 10);
    } else if (e >= 0) {
        int i = 0;
        for (; i <= e; ++i) *o++ = d[i];
        if (nd > e + 1) {
            *o++ = '.';
            for (; i < nd; ++i) *o++ = d[i];
        }
    } else {
        *o++ = '0';
        *o++ = '.';
        for (int z = -1; z > e; --z) *o++ = '0';
        for (int i = 0; i < nd; ++i) *o++ = d[i];
    }
    *o = '\0';
    return static_cast<size_t>(o - out);
}

}  // namespace qv::json
