// qv_sha1: incremental SHA-1 as published in FIPS 180-4.
//
// An object holds the five hash words, a 64-byte block being filled and the
// message length; every completed block is compressed at once, straight from
// the caller's buffer when whole blocks arrive. Compression runs on the x86
// SHA extensions when the processor has them (decided once per process) and
// on the unrolled portable code otherwise; both give identical states.
// Objects are used by one thread at a time; nothing is shared between them.
#include <cstring>
#include <utility>

#include "crypto/qvsha.h"
#include "internal/qvinternal.h"

#if QV_SHA_HAVE_X86
#include <immintrin.h>
#endif

struct qv_sha1 : qv::sha::State<5> {};

namespace {

constexpr uint32_t kInitial[5] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476, 0xc3d2e1f0};

qv::sha::CompressFn pick_compress() noexcept {
#if QV_SHA_HAVE_X86
    if (qv::sha::hardware_active()) return qv::sha::sha1_compress_x86;
#endif
    return qv::sha::sha1_compress_portable;
}

void reset(qv_sha1 *s) noexcept {
    std::memcpy(s->h, kInitial, sizeof kInitial);
    s->chunkuse = 0;
    s->length = 0;
}

}  // namespace

namespace qv::sha {

// Rolling 16-word schedule; the five variables rotate by renaming, five
// rounds per macro, so the 80 rounds are straight-line code.
#define QV_CH(x, y, z) ((z) ^ ((x) & ((y) ^ (z))))
#define QV_PARITY(x, y, z) ((x) ^ (y) ^ (z))
#define QV_MAJ(x, y, z) (((x) & (y)) | ((z) & ((x) | (y))))
#define QV_W(i)                                        \
    ((i) < 16 ? w[(i) & 15]                            \
              : (w[(i) & 15] = rotl(w[((i) + 13) & 15] ^ w[((i) + 8) & 15] ^ w[((i) + 2) & 15] ^ w[(i) & 15], 1)))
#define QV_R(a, b, c, d, e, F, K, i)                      \
    do {                                                  \
        e += rotl(a, 5) + F(b, c, d) + (K) + QV_W(i);     \
        b = rotl(b, 30);                                  \
    } while (0)
#define QV_R5(F, K, i)                   \
    QV_R(a, b, c, d, e, F, K, (i) + 0);  \
    QV_R(e, a, b, c, d, F, K, (i) + 1);  \
    QV_R(d, e, a, b, c, F, K, (i) + 2);  \
    QV_R(c, d, e, a, b, F, K, (i) + 3);  \
    QV_R(b, c, d, e, a, F, K, (i) + 4)

void sha1_compress_portable(uint32_t state[5], const unsigned char *p, size_t nblocks) noexcept {
    uint32_t w[16];
    for (; nblocks != 0; --nblocks, p += 64) {
        for (int i = 0; i < 16; ++i) w[i] = load_be32(p + 4 * i);
        uint32_t a = state[0], b = state[1], c = state[2], d = state[3], e = state[4];
        QV_R5(QV_CH, 0x5a827999u, 0);
        QV_R5(QV_CH, 0x5a827999u, 5);
        QV_R5(QV_CH, 0x5a827999u, 10);
        QV_R5(QV_CH, 0x5a827999u, 15);
        QV_R5(QV_PARITY, 0x6ed9eba1u, 20);
        QV_R5(QV_PARITY, 0x6ed9eba1u, 25);
        QV_R5(QV_PARITY, 0x6ed9eba1u, 30);
        QV_R5(QV_PARITY, 0x6ed9eba1u, 35);
        QV_R5(QV_MAJ, 0x8f1bbcdcu, 40);
        QV_R5(QV_MAJ, 0x8f1bbcdcu, 45);
        QV_R5(QV_MAJ, 0x8f1bbcdcu, 50);
        QV_R5(QV_MAJ, 0x8f1bbcdcu, 55);
        QV_R5(QV_PARITY, 0xca62c1d6u, 60);
        QV_R5(QV_PARITY, 0xca62c1d6u, 65);
        QV_R5(QV_PARITY, 0xca62c1d6u, 70);
        QV_R5(QV_PARITY, 0xca62c1d6u, 75);
        state[0] += a;
        state[1] += b;
        state[2] += c;
        state[3] += d;
        state[4] += e;
    }
}

#undef QV_R5
#undef QV_R
#undef QV_W
#undef QV_MAJ
#undef QV_PARITY
#undef QV_CH

#if QV_SHA_HAVE_X86

#define QV_SHA_TARGET __attribute__((target("sha,sse4.1"), always_inline)) inline

namespace {

// Quad Q covers rounds 4Q..4Q+3 with message register m[Q % 4]. The fifth
// word E alternates between two registers: e[Q % 2] carries it into this
// quad's rounds while e[(Q + 1) % 2] keeps ABCD for the next quad's E. The
// schedule of quad Q+1 is finished (msg2), the one of quad Q+2 advanced (xor)
// and the one of quad Q+3 started (msg1) here. Q is a template argument so
// that the round function selector is an immediate and the block unrolls.
template <int Q>
QV_SHA_TARGET void sha1_quad(__m128i (&m)[4], __m128i (&e)[2], __m128i &abcd, const unsigned char *p,
                             __m128i bswap) noexcept {
    if constexpr (Q < 4)
        m[Q] = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(p + 16 * Q)), bswap);
    if constexpr (Q == 0)
        e[0] = _mm_add_epi32(e[0], m[0]);
    else
        e[Q & 1] = _mm_sha1nexte_epu32(e[Q & 1], m[Q & 3]);
    e[(Q + 1) & 1] = abcd;
    if constexpr (Q >= 3 && Q <= 18) m[(Q + 1) & 3] = _mm_sha1msg2_epu32(m[(Q + 1) & 3], m[Q & 3]);
    abcd = _mm_sha1rnds4_epu32(abcd, e[Q & 1], Q / 5);
    if constexpr (Q >= 1 && Q <= 16) m[(Q - 1) & 3] = _mm_sha1msg1_epu32(m[(Q - 1) & 3], m[Q & 3]);
    if constexpr (Q >= 2 && Q <= 17) m[(Q + 2) & 3] = _mm_xor_si128(m[(Q + 2) & 3], m[Q & 3]);
}

template <int... Q>
QV_SHA_TARGET void sha1_rounds(std::integer_sequence<int, Q...>, __m128i (&m)[4], __m128i (&e)[2],
                               __m128i &abcd, const unsigned char *p, __m128i bswap) noexcept {
    (sha1_quad<Q>(m, e, abcd, p, bswap), ...);
}

}  // namespace

__attribute__((target("sha,sse4.1"))) void sha1_compress_x86(uint32_t state[5], const unsigned char *p,
                                                             size_t nblocks) noexcept {
    const __m128i bswap = _mm_set_epi64x(0x0001020304050607ULL, 0x08090a0b0c0d0e0fULL);
    __m128i abcd = _mm_shuffle_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i *>(state)), 0x1b);
    __m128i e0 = _mm_set_epi32(static_cast<int>(state[4]), 0, 0, 0);
    for (; nblocks != 0; --nblocks, p += 64) {
        const __m128i abcd_saved = abcd, e_saved = e0;
        __m128i m[4];
        __m128i e[2] = {e0, e0};
        sha1_rounds(std::make_integer_sequence<int, 20>{}, m, e, abcd, p, bswap);
        // After quad 19 the next quad's E sits in e[0]: it comes out of ABCD
        // as saved before that quad's rounds, rotated by nexte.
        e0 = _mm_sha1nexte_epu32(e[0], e_saved);
        abcd = _mm_add_epi32(abcd, abcd_saved);
    }
    _mm_storeu_si128(reinterpret_cast<__m128i *>(state), _mm_shuffle_epi32(abcd, 0x1b));
    state[4] = static_cast<uint32_t>(_mm_extract_epi32(e0, 3));
}

#undef QV_SHA_TARGET

#endif  // QV_SHA_HAVE_X86

}  // namespace qv::sha

extern "C" QV_API qv_sha1 *qv_sha1_create(void) noexcept {
    auto *s = static_cast<qv_sha1 *>(qv_cmalloc(sizeof(qv_sha1)));
    if (s == nullptr) {
        QV_LOG(7, "not enough memory for SHA-1 context");
        return nullptr;
    }
    reset(s);
    return s;
}

extern "C" QV_API void qv_sha1_init(qv_sha1 *qvsha1) noexcept {
    QV_ASSERT(qvsha1 != NULL);
    reset(qvsha1);
}

extern "C" QV_API void qv_sha1_update(qv_sha1 *qvsha1, const void *data, size_t length) noexcept {
    QV_ASSERT(qvsha1 != NULL);
    QV_ASSERT(data != NULL || length == 0);
    if (length == 0) return;
    qv::sha::absorb(*qvsha1, static_cast<const unsigned char *>(data), length, pick_compress());
}

extern "C" QV_API void qv_sha1_finalize(qv_sha1 *qvsha1) noexcept {
    QV_ASSERT(qvsha1 != NULL);
    const qv::sha::CompressFn compress = pick_compress();
    uint32_t chunkuse = qvsha1->chunkuse;
    QV_ASSERT(chunkuse < 64);
    qv::sha::pad_open(*qvsha1, compress);
    chunkuse = qvsha1->chunkuse;
    QV_ASSERT(chunkuse <= 56);
    qv::sha::pad_close(*qvsha1, compress);
}

extern "C" QV_API void qv_sha1_digest(qv_sha1 *qvsha1, unsigned char *digest) noexcept {
    QV_ASSERT(qvsha1 != NULL);
    QV_ASSERT(digest != NULL);
    unsigned char *pos = digest;
    for (uint32_t word : qvsha1->h) {
        qv::sha::store_be32(pos, word);
        pos += 4;
    }
    QV_ASSERT(pos - digest == 20);
}

extern "C" QV_API void qv_sha1_destroy(qv_sha1 *qvsha1) noexcept {
    QV_ASSERT(qvsha1 != NULL);
    qv_free(qvsha1);
}
