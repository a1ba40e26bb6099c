// qv_sha256: incremental SHA-256 as published in FIPS 180-4.
//
// An object holds the eight hash words, a 64-byte block being filled and the
// message length; every completed block is compressed at once, straight from
// the caller's buffer when whole blocks arrive. Compression runs on the x86
// SHA extensions when the processor has them (decided once per process) and
// on the unrolled portable code otherwise; both give identical states.
// Objects are used by one thread at a time; nothing is shared between them.
#include <cstring>

#include "crypto/qvsha.h"
#include "internal/qvinternal.h"

#if QV_SHA_HAVE_X86
#include <immintrin.h>
#endif

struct qv_sha256 : qv::sha::State<8> {};

namespace {

alignas(64) constexpr uint32_t kRound[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2,
};

constexpr uint32_t kInitial[8] = {
    0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a, 0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19,
};

qv::sha::CompressFn pick_compress() noexcept {
#if QV_SHA_HAVE_X86
    if (qv::sha::hardware_active()) return qv::sha::sha256_compress_x86;
#endif
    return qv::sha::sha256_compress_portable;
}

void reset(qv_sha256 *s) noexcept {
    std::memcpy(s->h, kInitial, sizeof kInitial);
    s->chunkuse = 0;
    s->length = 0;
}

}  // namespace

namespace qv::sha {

// The schedule lives in a rolling window of 16 words; the round variables
// rotate by renaming, so each round is straight-line code.
#define QV_S0(x) (rotr((x), 2) ^ rotr((x), 13) ^ rotr((x), 22))
#define QV_S1(x) (rotr((x), 6) ^ rotr((x), 11) ^ rotr((x), 25))
#define QV_s0(x) (rotr((x), 7) ^ rotr((x), 18) ^ ((x) >> 3))
#define QV_s1(x) (rotr((x), 17) ^ rotr((x), 19) ^ ((x) >> 10))
#define QV_CH(x, y, z) ((z) ^ ((x) & ((y) ^ (z))))
#define QV_MAJ(x, y, z) (((x) & (y)) | ((z) & ((x) | (y))))
#define QV_W(i)                                                                                  \
    ((i) < 16 ? w[(i) & 15]                                                                      \
              : (w[(i) & 15] += QV_s1(w[((i) + 14) & 15]) + w[((i) + 9) & 15] + QV_s0(w[((i) + 1) & 15])))
#define QV_R(a, b, c, d, e, f, g, h, i)                                  \
    do {                                                                 \
        uint32_t t1 = h + QV_S1(e) + QV_CH(e, f, g) + kRound[i] + QV_W(i); \
        d += t1;                                                         \
        h = t1 + QV_S0(a) + QV_MAJ(a, b, c);                             \
    } while (0)
#define QV_R8(i)                             \
    QV_R(a, b, c, d, e, f, g, h, (i) + 0);   \
    QV_R(h, a, b, c, d, e, f, g, (i) + 1);   \
    QV_R(g, h, a, b, c, d, e, f, (i) + 2);   \
    QV_R(f, g, h, a, b, c, d, e, (i) + 3);   \
    QV_R(e, f, g, h, a, b, c, d, (i) + 4);   \
    QV_R(d, e, f, g, h, a, b, c, (i) + 5);   \
    QV_R(c, d, e, f, g, h, a, b, (i) + 6);   \
    QV_R(b, c, d, e, f, g, h, a, (i) + 7)

void sha256_compress_portable(uint32_t state[8], const unsigned char *p, size_t nblocks) noexcept {
    uint32_t w[16];
    for (; nblocks != 0; --nblocks, p += 64) {
        for (int i = 0; i < 16; ++i) w[i] = load_be32(p + 4 * i);
        uint32_t a = state[0], b = state[1], c = state[2], d = state[3];
        uint32_t e = state[4], f = state[5], g = state[6], h = state[7];
        QV_R8(0);
        QV_R8(8);
        QV_R8(16);
        QV_R8(24);
        QV_R8(32);
        QV_R8(40);
        QV_R8(48);
        QV_R8(56);
        state[0] += a;
        state[1] += b;
        state[2] += c;
        state[3] += d;
        state[4] += e;
        state[5] += f;
        state[6] += g;
        state[7] += h;
    }
}

#undef QV_R8
#undef QV_R
#undef QV_W
#undef QV_MAJ
#undef QV_CH
#undef QV_s1
#undef QV_s0
#undef QV_S1
#undef QV_S0

#if QV_SHA_HAVE_X86

#define QV_SHA_TARGET __attribute__((target("sha,sse4.1"), always_inline)) inline

namespace {

// The state travels as the two registers the instructions want: ABEF and
// CDGH. Four message registers hold sixteen schedule words; quad Q (rounds
// 4Q..4Q+3) consumes m[Q % 4], finishes the schedule of quad Q+1 and starts
// the one of quad Q+3. The quad number is a template argument so that every
// register index is a constant and the whole block unrolls.
template <int Q>
QV_SHA_TARGET void sha256_quad(__m128i (&m)[4], __m128i &abef, __m128i &cdgh, const unsigned char *p,
                               __m128i bswap) noexcept {
    if constexpr (Q < 4)
        m[Q] = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 16 * Q)), bswap);
    __m128i msg = _mm_add_epi32(m[Q & 3], _mm_load_si128(reinterpret_cast<const __m128i *>(kRound + 4 * Q)));
    cdgh = _mm_sha256rnds2_epu32(cdgh, abef, msg);
    if constexpr (Q >= 3 && Q <= 14) {
        __m128i t = _mm_alignr_epi8(m[Q & 3], m[(Q - 1) & 3], 4);
        m[(Q + 1) & 3] = _mm_sha256msg2_epu32(_mm_add_epi32(m[(Q + 1) & 3], t), m[Q & 3]);
    }
    msg = _mm_shuffle_epi32(msg, 0x0e);
    abef = _mm_sha256rnds2_epu32(abef, cdgh, msg);
    if constexpr (Q >= 1 && Q <= 12) m[(Q - 1) & 3] = _mm_sha256msg1_epu32(m[(Q - 1) & 3], m[Q & 3]);
}

template <int... Q>
QV_SHA_TARGET void sha256_rounds(std::integer_sequence<int, Q...>, __m128i (&m)[4], __m128i &abef,
                                 __m128i &cdgh, const unsigned char *p, __m128i bswap) noexcept {
    (sha256_quad<Q>(m, abef, cdgh, p, bswap), ...);
}

}  // namespace

__attribute__((target("sha,sse4.1"))) void sha256_compress_x86(uint32_t state[8], const unsigned char *p,
                                                               size_t nblocks) noexcept {
    const __m128i bswap = _mm_set_epi64x(0x0c0d0e0f08090a0bULL, 0x0405060700010203ULL);
    __m128i dcba = _mm_loadu_si128(reinterpret_cast<const __m128i *>(state));
    __m128i hgfe = _mm_loadu_si128(reinterpret_cast<const __m128i *>(state + 4));
    __m128i cdab = _mm_shuffle_epi32(dcba, 0xb1);
    __m128i efgh = _mm_shuffle_epi32(hgfe, 0x1b);
    __m128i abef = _mm_alignr_epi8(cdab, efgh, 8);
    __m128i cdgh = _mm_blend_epi16(efgh, cdab, 0xf0);
    for (; nblocks != 0; --nblocks, p += 64) {
        const __m128i abef_saved = abef, cdgh_saved = cdgh;
        __m128i m[4];
        sha256_rounds(std::make_integer_sequence<int, 16>{}, m, abef, cdgh, p, bswap);
        abef = _mm_add_epi32(abef, abef_saved);
        cdgh = _mm_add_epi32(cdgh, cdgh_saved);
    }
    __m128i feba = _mm_shuffle_epi32(abef, 0x1b);
    __m128i dchg = _mm_shuffle_epi32(cdgh, 0xb1);
    _mm_storeu_si128(reinterpret_cast<__m128i *>(state), _mm_blend_epi16(feba, dchg, 0xf0));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(state + 4), _mm_alignr_epi8(dchg, feba, 8));
}

#undef QV_SHA_TARGET

#endif  // QV_SHA_HAVE_X86

}  // namespace qv::sha

extern "C" QV_API qv_sha256 *qv_sha256_create(void) noexcept {
    auto *s = static_cast<qv_sha256 *>(qv_cmalloc(sizeof(qv_sha256)));
    if (s == nullptr) {
        QV_LOG(7, "not enough memory for SHA256 context");
        return nullptr;
    }
    reset(s);
    return s;
}

extern "C" QV_API void qv_sha256_init(qv_sha256 *qvsha256) noexcept {
    QV_ASSERT(qvsha256 != NULL);
    reset(qvsha256);
}

extern "C" QV_API void qv_sha256_update(qv_sha256 *qvsha256, const void *data, size_t length) noexcept {
    QV_ASSERT(qvsha256 != NULL);
    QV_ASSERT(data != NULL || length == 0);
    if (length == 0) return;
    qv::sha::absorb(*qvsha256, static_cast<const unsigned char *>(data), length, pick_compress());
}

extern "C" QV_API void qv_sha256_finalize(qv_sha256 *qvsha256) noexcept {
    QV_ASSERT(qvsha256 != NULL);
    const qv::sha::CompressFn compress = pick_compress();
    uint32_t chunkuse = qvsha256->chunkuse;
    QV_ASSERT(chunkuse < 64);
    qv::sha::pad_open(*qvsha256, compress);
    chunkuse = qvsha256->chunkuse;
    QV_ASSERT(chunkuse <= 56);
    qv::sha::pad_close(*qvsha256, compress);
}

extern "C" QV_API void qv_sha256_digest(qv_sha256 *qvsha256, unsigned char *digest) noexcept {
    QV_ASSERT(qvsha256 != NULL);
    QV_ASSERT(digest != NULL);
    unsigned char *pos = digest;
    for (uint32_t word : qvsha256->h) {
        qv::sha::store_be32(pos, word);
        pos += 4;
    }
    QV_ASSERT(pos - digest == 32);
}

extern "C" QV_API void qv_sha256_destroy(qv_sha256 *qvsha256) noexcept {
    QV_ASSERT(qvsha256 != NULL);
    qv_free(qvsha256);
}
