// Base64 (RFC 4648 alphabet, "=" padding, no line breaks on output).
//
// Encoding turns each 3-byte group into four characters through a 4096-entry
// table of character pairs (one lookup per 12 bits). Decoding is lenient in
// the ways callers rely on: white space is skipped anywhere, padding is
// neither required nor checked against the data, and a lone trailing value
// still yields a byte. It runs one scan twice: a measuring pass that also
// finds every error (so nothing is allocated for bad input), then a filling
// pass into a buffer of exactly the measured size plus a zero byte. Both
// passes take four value characters at a time while the input allows and fall
// back to one character at a time around white space, padding and the end.
// No state outside the call; safe from any thread.
#include <array>
#include <cstdint>
#include <cstring>

#include "internal/qvinternal.h"
#include "platform/qvplat_cpu.h"

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define QV_BASE64_SSSE3 1
#else
#define QV_BASE64_SSSE3 0
#endif

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Classes of the decoder's input bytes: 0..63 are values.
constexpr uint8_t kSkip = 0x40;
constexpr uint8_t kPad = 0x41;
constexpr uint8_t kInvalid = 0x42;

constexpr std::array<uint8_t, 256> make_classes() {
    std::array<uint8_t, 256> t{};
    for (auto &v : t) v = kInvalid;
    for (int i = 0; i < 64; ++i) t[static_cast<unsigned char>(kAlphabet[i])] = static_cast<uint8_t>(i);
    for (int c : {9, 10, 11, 12, 13, 32}) t[c] = kSkip;
    t['='] = kPad;
    return t;
}
constexpr std::array<uint8_t, 256> kClass = make_classes();

// Value tables for the four positions of a group, pre-shifted into place; a
// non-value byte sets the top bit so that one test covers all four.
constexpr uint32_t kNotValue = 0x80000000u;
constexpr std::array<uint32_t, 256> make_position(int shift) {
    std::array<uint32_t, 256> t{};
    for (int c = 0; c < 256; ++c)
        t[c] = kClass[c] < 64 ? static_cast<uint32_t>(kClass[c]) << shift : kNotValue;
    return t;
}
constexpr std::array<uint32_t, 256> kPos0 = make_position(18);
constexpr std::array<uint32_t, 256> kPos1 = make_position(12);
constexpr std::array<uint32_t, 256> kPos2 = make_position(6);
constexpr std::array<uint32_t, 256> kPos3 = make_position(0);

// Two output characters for each 12-bit value, first character in the low
// byte (so a little-endian store writes them in order).
constexpr std::array<uint16_t, 4096> make_pairs() {
    std::array<uint16_t, 4096> t{};
    for (int v = 0; v < 4096; ++v) {
        auto hi = static_cast<unsigned char>(kAlphabet[v >> 6]);
        auto lo = static_cast<unsigned char>(kAlphabet[v & 63]);
        t[v] = static_cast<uint16_t>(hi | (lo << 8));
        if constexpr (__BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__) t[v] = static_cast<uint16_t>((hi << 8) | lo);
    }
    return t;
}
alignas(64) constexpr std::array<uint16_t, 4096> kPairs = make_pairs();

inline uint32_t group_value(const unsigned char *s) noexcept {
    return kPos0[s[0]] | kPos1[s[1]] | kPos2[s[2]] | kPos3[s[3]];
}

inline void store3(unsigned char *d, uint32_t v) noexcept {
    d[0] = static_cast<unsigned char>(v >> 16);
    d[1] = static_cast<unsigned char>(v >> 8);
    d[2] = static_cast<unsigned char>(v);
}

// Writes three bytes through one 4-byte store; the caller guarantees a
// fourth writable byte (it is overwritten later or is the terminator's slot).
inline void store3_wide(unsigned char *d, uint32_t v) noexcept {
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    uint32_t w = __builtin_bswap32(v << 8);
    std::memcpy(d, &w, 4);
#else
    store3(d, v);
#endif
}

#if QV_BASE64_SSSE3
bool have_ssse3() noexcept {
    static const bool yes = qv::plat::cpu_has_ssse3();
    return yes;
}

// Twelve input bytes become sixteen characters per step: the bytes are
// spread so that each 32-bit lane holds one 3-byte group, the four 6-bit
// fields are moved into the lane's four bytes with two multiplies, and each
// field is turned into its character by adding an offset chosen by range
// (A-Z, a-z, 0-9, "+", "/") through one shuffle. Encodes while 16 bytes can
// be read; returns the number of input bytes consumed (a multiple of 3).
__attribute__((target("ssse3"))) size_t encode_ssse3(const unsigned char *in, size_t size, char *out) noexcept {
    const __m128i spread = _mm_set_epi8(10, 11, 9, 10, 7, 8, 6, 7, 4, 5, 3, 4, 1, 2, 0, 1);
    const __m128i mask_ac = _mm_set1_epi32(0x0fc0fc00);
    const __m128i mul_ac = _mm_set1_epi32(0x04000040);
    const __m128i mask_bd = _mm_set1_epi32(0x003f03f0);
    const __m128i mul_bd = _mm_set1_epi32(0x01000010);
    const __m128i offsets = _mm_setr_epi8('a' - 26, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52, '0' - 52,
                                          '0' - 52, '0' - 52, '0' - 52, '0' - 52, '+' - 62, '/' - 63, 'A', 0, 0);
    size_t i = 0;
    for (; i + 16 <= size; i += 12, out += 16) {
        __m128i v = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(in + i)), spread);
        const __m128i ac = _mm_mulhi_epu16(_mm_and_si128(v, mask_ac), mul_ac);
        const __m128i bd = _mm_mullo_epi16(_mm_and_si128(v, mask_bd), mul_bd);
        const __m128i idx = _mm_or_si128(ac, bd);
        // 0..51 -> 0, 52..61 -> 1..10, 62 -> 11, 63 -> 12; then 0..25 -> 13.
        __m128i range = _mm_subs_epu8(idx, _mm_set1_epi8(51));
        const __m128i upper = _mm_cmpgt_epi8(_mm_set1_epi8(26), idx);
        range = _mm_or_si128(range, _mm_and_si128(upper, _mm_set1_epi8(13)));
        v = _mm_add_epi8(idx, _mm_shuffle_epi8(offsets, range));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out), v);
    }
    return i;
}

// Sixteen characters become twelve bytes per step. Each character's high
// and low nibbles index two small tables whose entries share a bit exactly
// when the character is outside the alphabet (white space, padding and
// bytes above 127 included), so one test validates the step; a third table,
// indexed by the high nibble ("/" singled out), gives the offset from
// character to value. Two multiply-adds join four 6-bit values into three
// bytes per lane. Without dest it only validates. Stops before the first
// step holding anything but alphabet characters, or when the 16-byte store
// would pass destroom; returns the characters consumed (a multiple of 16).
__attribute__((target("ssse3"))) size_t decode_ssse3(const unsigned char *src, size_t srclen, unsigned char *dest,
                                                     size_t destroom) noexcept {
    const __m128i lut_lo = _mm_setr_epi8(0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x13, 0x1a,
                                         0x1b, 0x1b, 0x1b, 0x1a);
    const __m128i lut_hi = _mm_setr_epi8(0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10, 0x10, 0x10,
                                         0x10, 0x10, 0x10, 0x10);
    const __m128i lut_roll = _mm_setr_epi8(0, 16, 19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0);
    const __m128i mask_2f = _mm_set1_epi8(0x2f);
    const __m128i zero = _mm_setzero_si128();
    const __m128i pack = _mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1);
    size_t i = 0, o = 0;
    for (; i + 16 <= srclen; i += 16, o += 12) {
        if (dest != nullptr && o + 16 > destroom) break;
        const __m128i str = _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + i));
        const __m128i hi_nibbles = _mm_and_si128(_mm_srli_epi32(str, 4), mask_2f);
        const __m128i lo = _mm_shuffle_epi8(lut_lo, _mm_and_si128(str, mask_2f));
        const __m128i hi = _mm_shuffle_epi8(lut_hi, hi_nibbles);
        if (_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_and_si128(lo, hi), zero)) != 0xffff) break;
        if (dest == nullptr) continue;
        const __m128i eq_2f = _mm_cmpeq_epi8(str, mask_2f);
        const __m128i roll = _mm_shuffle_epi8(lut_roll, _mm_add_epi8(eq_2f, hi_nibbles));
        const __m128i values = _mm_add_epi8(str, roll);
        const __m128i pairs = _mm_maddubs_epi16(values, _mm_set1_epi32(0x01400140));
        const __m128i groups = _mm_madd_epi16(pairs, _mm_set1_epi32(0x00011000));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(dest + o), _mm_shuffle_epi8(groups, pack));
    }
    return i;
}
#endif

// One decoding scan. Without a buffer (dest null) it validates the input,
// logs and returns the first error, and counts the output in *destcountptr.
// With a buffer of destlen bytes it fills it (the input is known good then).
int decode_scan(const unsigned char *src, size_t srclen, unsigned char *dest, size_t destlen,
                size_t *destcountptr) noexcept {
    size_t destcount = 0;
    size_t i = 0;
    uint32_t triplet = 0;
    unsigned tripletuse = 0;
    while (i < srclen) {
        if (tripletuse == 0) {
#if QV_BASE64_SSSE3
            if (have_ssse3() && i + 16 <= srclen) {
                const size_t used = decode_ssse3(src + i, srclen - i, dest == nullptr ? nullptr : dest + destcount,
                                                 destlen - destcount);
                i += used;
                destcount += used / 4 * 3;
            }
#endif
            // Whole groups of four values. When filling, the 4-byte store needs
            // one byte of room past the group (the terminator's at the latest).
            if (dest == nullptr) {
                while (i + 4 <= srclen && !(group_value(src + i) & kNotValue)) {
                    i += 4;
                    destcount += 3;
                }
            } else {
                while (i + 4 <= srclen && destcount + 3 < destlen) {
                    uint32_t v = group_value(src + i);
                    if (v & kNotValue) break;
                    store3_wide(dest + destcount, v);
                    i += 4;
                    destcount += 3;
                }
            }
            if (i >= srclen) break;
        }
        const unsigned char byte = src[i++];
        const uint8_t cls = kClass[byte];
        if (cls == kSkip) continue;
        if (cls == kPad) {
            // Padding ends the data; only white space and at most two
            // padding characters in all may follow.
            unsigned padding = 1;
            for (; i < srclen; ++i) {
                const uint8_t rest = kClass[src[i]];
                if (rest == kSkip) continue;
                if (rest == kPad) {
                    if (++padding > 2) {
                        QV_LOG(6, "more than two padding characters present");
                        return QV_ERROR_INVALID_SYNTAX;
                    }
                    continue;
                }
                QV_LOG(6, "unexpected character 0x%02x after padding", static_cast<unsigned>(src[i]));
                return QV_ERROR_INVALID_ARGUMENT;
            }
            break;
        }
        if (cls == kInvalid) {
            QV_LOG(6, "invalid input character 0x%02x for base64 decoder", static_cast<unsigned>(byte));
            return QV_ERROR_INVALID_ARGUMENT;
        }
        const int val = cls;
        QV_ASSERT(val >= 0x00);
        QV_ASSERT(val <= 0x3f);
        triplet = (triplet << 6) | static_cast<uint32_t>(val);
        if (++tripletuse == 4) {
            if (dest != nullptr) {
                QV_ASSERT(destcount + 3 <= destlen);
                store3(dest + destcount, triplet);
            }
            destcount += 3;
            triplet = 0;
            tripletuse = 0;
        }
    }
    QV_ASSERT(tripletuse <= 3);
    if (tripletuse > 0) {
        // Leftover values: two give one byte, three give two, and a single
        // one still gives a byte holding its six bits at the top.
        triplet <<= 6 * (4 - tripletuse);
        const size_t produce = tripletuse == 3 ? 2 : 1;
        for (size_t k = 0; k < produce; ++k) {
            if (dest != nullptr) {
                QV_ASSERT(destcount < destlen);
                dest[destcount] = static_cast<unsigned char>(triplet >> (16 - 8 * k));
            }
            ++destcount;
        }
    }
    *destcountptr = destcount;
    return QV_ERROR_NONE;
}

}  // namespace

extern "C" QV_API char *qv_base64_encode(const void *buf, size_t size) noexcept {
    QV_ASSERT(buf != NULL);
    size_t destsize = 0;
    if (size >= SIZE_MAX - 1 || __builtin_mul_overflow((size + 2) / 3, 4, &destsize) || destsize < size) {
        QV_LOG(6, "size too large, would overflow");
        return nullptr;
    }
    auto *dest = static_cast<char *>(qv_malloc(destsize + 1));
    if (dest == nullptr) {
        QV_LOG(7, "not enough memory for base64 encoding");
        return nullptr;
    }
    const auto *in = static_cast<const unsigned char *>(buf);
    size_t destpos = 0;
    size_t i = 0;
#if QV_BASE64_SSSE3
    if (have_ssse3()) {
        i = encode_ssse3(in, size, dest);
        destpos = i / 3 * 4;
    }
#endif
    // Four input bytes are loaded for each group of three while a fourth
    // input byte exists; the last group or two go the careful way.
    for (; i + 4 <= size; i += 3, destpos += 4) {
        uint32_t w;
        std::memcpy(&w, in + i, 4);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
        w = __builtin_bswap32(w);
#endif
        const uint16_t a = kPairs[w >> 20];
        const uint16_t b = kPairs[(w >> 8) & 0xfff];
        std::memcpy(dest + destpos, &a, 2);
        std::memcpy(dest + destpos + 2, &b, 2);
    }
    for (; i < size; i += 3) {
        const size_t inuse = size - i >= 3 ? 3 : size - i;
        uint32_t v = static_cast<uint32_t>(in[i]) << 16;
        if (inuse > 1) v |= static_cast<uint32_t>(in[i + 1]) << 8;
        if (inuse > 2) v |= in[i + 2];
        for (size_t k = 0; k < 4; ++k) {
            QV_ASSERT(destpos < destsize);
            dest[destpos++] = k <= inuse ? kAlphabet[(v >> (18 - 6 * k)) & 63] : '=';
        }
        if (inuse < 3) break;
        QV_ASSERT(inuse == 3);
    }
    QV_ASSERT(destpos == destsize);
    dest[destpos] = '\0';
    return dest;
}

extern "C" QV_API int qv_base64_decode(void **destptr, size_t *destlenptr, const char *source,
                                       size_t sourcelen) noexcept {
    QV_ASSERT(destptr != NULL);
    QV_ASSERT(destlenptr != NULL);
    QV_ASSERT(source != NULL);
    *destptr = nullptr;
    *destlenptr = 0;
    const auto *src = reinterpret_cast<const unsigned char *>(source);
    size_t destlen = 0;
    int result = decode_scan(src, sourcelen, nullptr, 0, &destlen);
    if (result != QV_ERROR_NONE) return result;
    if (destlen + 1 == 0) {
        QV_LOG(6, "the result is too large to fit in the address space");
        return QV_ERROR_OUT_OF_RANGE;
    }
    auto *dest = static_cast<unsigned char *>(qv_malloc(destlen + 1));
    if (dest == nullptr) {
        QV_LOG(7, "not enough memory for the destination buffer (%lu bytes)",
               static_cast<unsigned long>(destlen + 1));
        return QV_ERROR_NO_MEMORY;
    }
    // The filling pass may store one byte past the data (the 4-byte stores),
    // so it is given the terminator's slot and the zero is written after.
    size_t destcount = 0;
    result = decode_scan(src, sourcelen, dest, destlen + 1, &destcount);
    QV_ASSERT(result == QV_ERROR_NONE);
    QV_ASSERT(destcount == destlen || destcount == destlen + 1);
    dest[destlen] = 0;
    *destptr = dest;
    *destlenptr = destlen;
    return QV_ERROR_NONE;
}
