// Hexadecimal: binary to lower-case digits and back.
//
// Encoding writes two digits per byte from a 256-entry table of digit pairs.
// Decoding accepts both cases, takes the first digit of each pair as the high
// nibble and rejects anything else with QV_ERROR_OUT_OF_RANGE; digits are
// looked up in two tables whose entries for non-digits carry a flag bit, so a
// run of pairs is checked with one test. Results carry an extra zero byte.
// No state outside the call; safe from any thread.
#include <array>
#include <cstdint>
#include <cstring>

#include "internal/qvinternal.h"
#include "platform/qvplat_cpu.h"

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define QV_HEX_SSSE3 1
#else
#define QV_HEX_SSSE3 0
#endif

namespace {

// Digit pair of each byte value, first digit in the low byte of the entry on
// little-endian machines so that one 2-byte store writes them in order.
constexpr std::array<uint16_t, 256> make_pairs() {
    constexpr char digits[] = "0123456789abcdef";
    std::array<uint16_t, 256> t{};
    for (int v = 0; v < 256; ++v) {
        auto hi = static_cast<unsigned char>(digits[v >> 4]);
        auto lo = static_cast<unsigned char>(digits[v & 15]);
        if constexpr (__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__)
            t[v] = static_cast<uint16_t>(hi | (lo << 8));
        else
            t[v] = static_cast<uint16_t>((hi << 8) | lo);
    }
    return t;
}
alignas(64) constexpr std::array<uint16_t, 256> kPairs = make_pairs();

constexpr uint16_t kBadDigit = 0x100;
constexpr std::array<uint16_t, 256> make_nibbles(int shift) {
    std::array<uint16_t, 256> t{};
    for (int c = 0; c < 256; ++c) {
        int v = -1;
        if (c >= '0' && c <= '9') v = c - '0';
        if (c >= 'a' && c <= 'f') v = c - 'a' + 10;
        if (c >= 'A' && c <= 'F') v = c - 'A' + 10;
        t[c] = v < 0 ? kBadDigit : static_cast<uint16_t>(v << shift);
    }
    return t;
}
constexpr std::array<uint16_t, 256> kHigh = make_nibbles(4);
constexpr std::array<uint16_t, 256> kLow = make_nibbles(0);

#if QV_HEX_SSSE3
bool have_ssse3() noexcept {
    static const bool yes = qv::plat::cpu_has_ssse3();
    return yes;
}

// Sixteen characters become eight bytes per step: each character is tried
// as a decimal digit and as a letter (case folded by setting bit 5, which
// maps only A-F onto a-f), the range checks select the value, and pairs are
// joined as high * 16 + low with one multiply-add. Sets *done to the pairs
// converted; false if a step met a non-digit.
__attribute__((target("ssse3"))) bool decode_ssse3(const unsigned char *in, unsigned char *dest, size_t count,
                                                   size_t *done) noexcept {
    const __m128i nine = _mm_set1_epi8(9);
    const __m128i five = _mm_set1_epi8(5);
    const __m128i weights = _mm_set1_epi16(0x0110);
    size_t i = 0;
    for (; i + 8 <= count; i += 8) {
        const __m128i c = _mm_loadu_si128(reinterpret_cast<const __m128i *>(in + 2 * i));
        const __m128i d = _mm_sub_epi8(c, _mm_set1_epi8('0'));
        const __m128i l = _mm_sub_epi8(_mm_or_si128(c, _mm_set1_epi8(0x20)), _mm_set1_epi8('a'));
        const __m128i is_digit = _mm_cmpeq_epi8(_mm_min_epu8(d, nine), d);
        const __m128i is_letter = _mm_cmpeq_epi8(_mm_min_epu8(l, five), l);
        if (_mm_movemask_epi8(_mm_or_si128(is_digit, is_letter)) != 0xffff) {
            *done = i;
            return false;
        }
        const __m128i v = _mm_or_si128(_mm_and_si128(is_digit, d),
                                       _mm_and_si128(is_letter, _mm_add_epi8(l, _mm_set1_epi8(10))));
        const __m128i joined = _mm_maddubs_epi16(v, weights);
        _mm_storel_epi64(reinterpret_cast<__m128i *>(dest + i), _mm_packus_epi16(joined, joined));
    }
    *done = i;
    return true;
}
#endif

// Converts count digit pairs; false at the first run holding a non-digit.
// Flags of bad digits are gathered over runs of eight pairs and tested once
// per run.
bool decode_pairs(const unsigned char *in, unsigned char *dest, size_t count) noexcept {
    uint32_t bad = 0;
    size_t i = 0;
#if QV_HEX_SSSE3
    if (have_ssse3() && !decode_ssse3(in, dest, count, &i)) return false;
#endif
    for (; i + 8 <= count; i += 8) {
        for (size_t k = i; k < i + 8; ++k) {
            const uint32_t v = kHigh[in[2 * k]] | kLow[in[2 * k + 1]];
            bad |= v;
            dest[k] = static_cast<unsigned char>(v);
        }
        if (bad & kBadDigit) return false;
    }
    for (; i < count; ++i) {
        const uint32_t v = kHigh[in[2 * i]] | kLow[in[2 * i + 1]];
        bad |= v;
        dest[i] = static_cast<unsigned char>(v);
    }
    return (bad & kBadDigit) == 0;
}

}  // namespace

extern "C" QV_API char *qv_bin2hex(const void *buf, size_t size) noexcept {
    QV_ASSERT(buf != NULL);
    if (2 * size + 1 <= size) {
        QV_LOG(6, "size is too high for a size_t");
        return nullptr;
    }
    auto *dest = static_cast<char *>(qv_malloc(2 * size + 1));
    if (dest == nullptr) {
        QV_LOG(7, "not enough memory for conversion result");
        return nullptr;
    }
    const auto *in = static_cast<const unsigned char *>(buf);
    for (size_t i = 0; i < size; ++i) std::memcpy(dest + 2 * i, &kPairs[in[i]], 2);
    dest[2 * size] = '\0';
    return dest;
}

extern "C" QV_API int qv_hex2bin(const char *hexstring, void **destptr, size_t *destlenptr) noexcept {
    QV_ASSERT(hexstring != NULL);
    QV_ASSERT(destptr != NULL);
    QV_ASSERT(destlenptr != NULL);
    *destptr = nullptr;
    *destlenptr = 0;
    const size_t len = std::strlen(hexstring);
    if (len % 2 != 0) return QV_ERROR_INCOMPLETE;
    const size_t count = len / 2;
    auto *dest = static_cast<unsigned char *>(qv_malloc(count + 1));
    if (dest == nullptr) {
        QV_LOG(7, "not enough memory for binary buffer (%lu bytes)", static_cast<unsigned long>(count + 1));
        return QV_ERROR_NO_MEMORY;
    }
    if (!decode_pairs(reinterpret_cast<const unsigned char *>(hexstring), dest, count)) {
        qv_free(dest);
        return QV_ERROR_OUT_OF_RANGE;
    }
    dest[count] = 0;
    *destptr = dest;
    *destlenptr = count;
    return QV_ERROR_NONE;
}
