// The library's string hash for callers that already know the length; the
// public qv_hashfunc_string is this over strlen(string). Nothing here is
// exported.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace qv {

// h = rotl(h, 5) ^ word over big-endian 4-byte groups; the pass that meets
// the end is the last, so a length that is a multiple of four (zero
// included) ends with one pass over an empty group: one extra rotation.
inline uint32_t hash_string_n(const char *string, size_t len) noexcept {
    auto rotl5 = [](uint32_t h) { return (h << 5) | (h >> 27); };
    const auto *p = reinterpret_cast<const unsigned char *>(string);
    uint32_t h = 0;
    for (size_t groups = len / 4; groups > 0; --groups, p += 4) {
        uint32_t w;
        memcpy(&w, p, sizeof w);
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
        w = __builtin_bswap32(w);
#endif
        h = rotl5(h) ^ w;
    }
    uint32_t w = 0;
    for (size_t rest = len % 4; rest > 0; --rest, ++p) w = (w << 8) | *p;
    return rotl5(h) ^ w;
}

}  // namespace qv
