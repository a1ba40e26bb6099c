// The library's string hash. The string is taken four bytes at a time, each
// group packed big-endian into a word (a short last group gives a smaller
// number) and folded in as h = rotl(h, 5) ^ word. The pass that meets the
// terminating NUL is the last one, so a length that is a multiple of four
// (zero included) ends with a pass over an empty group: one extra rotation.
// Tables persist nothing, but enumeration order depends on these exact bits,
// so the function must never change. No state, no locking.
#include <cstring>

#include "internal/qvinternal.h"

namespace {

inline uint32_t rotl5(uint32_t h) noexcept { return (h << 5) | (h >> 27); }

inline uint32_t load_be32(const unsigned char *p) noexcept {
    uint32_t w;
    memcpy(&w, p, sizeof w);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    w = __builtin_bswap32(w);
#endif
    return w;
}

}  // namespace

extern "C" QV_API uint32_t qv_hashfunc_string(const char *string) noexcept {
    QV_ASSERT(string != NULL);
    // Knowing the length up front lets whole groups be loaded as words
    // instead of testing every byte for the terminator.
    const auto *p = reinterpret_cast<const unsigned char *>(string);
    size_t len = strlen(string);
    uint32_t h = 0;
    for (size_t groups = len / 4; groups > 0; --groups, p += 4) h = rotl5(h) ^ load_be32(p);
    uint32_t w = 0;
    for (size_t rest = len % 4; rest > 0; --rest, ++p) w = (w << 8) | *p;
    return rotl5(h) ^ w;
}
