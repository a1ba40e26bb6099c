// Shared by the SHA-1 and SHA-256 families: the block-compression entry
// points (a portable one and one on the x86 SHA extensions), the run-time
// choice between them, and the big-endian helpers. Nothing here is exported.
//
// The choice is made once per process from cpuid; tests and benchmarks may
// force the portable path to compare the two on the same input. The switch is
// a relaxed atomic read once per update call, never per block.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/qvplat_cpu.h"

#if defined(__x86_64__) || defined(__i386__)
#define QV_SHA_HAVE_X86 1
#else
#define QV_SHA_HAVE_X86 0
#endif

namespace qv::sha {

// Each compresses nblocks consecutive 64-byte blocks into the state.
void sha1_compress_portable(uint32_t state[5], const unsigned char *blocks, size_t nblocks) noexcept;
void sha256_compress_portable(uint32_t state[8], const unsigned char *blocks, size_t nblocks) noexcept;
#if QV_SHA_HAVE_X86
void sha1_compress_x86(uint32_t state[5], const unsigned char *blocks, size_t nblocks) noexcept;
void sha256_compress_x86(uint32_t state[8], const unsigned char *blocks, size_t nblocks) noexcept;
#endif

inline std::atomic<bool> g_force_portable{false};

// True if this processor can run the hardware path (computed once).
inline bool hardware_supported() noexcept {
    static const bool supported = qv::plat::cpu_has_sha_extensions();
    return supported;
}

// Test and benchmark switch: with true, every later compression takes the
// portable path, whatever the processor offers.
inline void force_portable(bool on) noexcept { g_force_portable.store(on, std::memory_order_relaxed); }

// True if the next compression will run on the SHA extensions.
inline bool hardware_active() noexcept {
    return QV_SHA_HAVE_X86 && hardware_supported() && !g_force_portable.load(std::memory_order_relaxed);
}

#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
inline uint32_t to_be32(uint32_t v) noexcept { return __builtin_bswap32(v); }
inline uint64_t to_be64(uint64_t v) noexcept { return __builtin_bswap64(v); }
#else
inline uint32_t to_be32(uint32_t v) noexcept { return v; }
inline uint64_t to_be64(uint64_t v) noexcept { return v; }
#endif

inline uint32_t load_be32(const unsigned char *p) noexcept {
    uint32_t v;
    std::memcpy(&v, p, 4);
    return to_be32(v);
}

inline void store_be32(unsigned char *p, uint32_t v) noexcept {
    v = to_be32(v);
    std::memcpy(p, &v, 4);
}

inline void store_be64(unsigned char *p, uint64_t v) noexcept {
    v = to_be64(v);
    std::memcpy(p, &v, 8);
}

inline constexpr uint32_t rotl(uint32_t x, int n) noexcept { return (x << n) | (x >> (32 - n)); }
inline constexpr uint32_t rotr(uint32_t x, int n) noexcept { return (x >> n) | (x << (32 - n)); }

using CompressFn = void (*)(uint32_t *state, const unsigned char *blocks, size_t nblocks) noexcept;

// The part both digests share: the running hash words, the block being
// filled (chunkuse bytes of it are valid, always below 64 between calls) and
// the message length in bytes.
template <size_t Words>
struct State {
    uint32_t h[Words];
    uint32_t chunkuse;
    uint64_t length;
    unsigned char chunk[64];
};

// Appends bytes: completes a partial block first, then compresses whole
// blocks straight from the caller's memory, then keeps the tail.
template <size_t Words>
inline void absorb(State<Words> &s, const unsigned char *p, size_t len, CompressFn compress) noexcept {
    s.length += len;
    if (s.chunkuse != 0) {
        size_t take = 64 - s.chunkuse;
        if (take > len) take = len;
        std::memcpy(s.chunk + s.chunkuse, p, take);
        s.chunkuse += static_cast<uint32_t>(take);
        p += take;
        len -= take;
        if (s.chunkuse < 64) return;
        compress(s.h, s.chunk, 1);
        s.chunkuse = 0;
    }
    if (len >= 64) {
        compress(s.h, p, len / 64);
        p += len & ~static_cast<size_t>(63);
        len &= 63;
    }
    if (len != 0) std::memcpy(s.chunk, p, len);
    s.chunkuse = static_cast<uint32_t>(len);
}

// Padding, first half: the 0x80 byte; a block left with no room for the
// 8-byte length is compressed here. Afterwards chunkuse <= 56.
template <size_t Words>
inline void pad_open(State<Words> &s, CompressFn compress) noexcept {
    s.chunk[s.chunkuse++] = 0x80;
    if (s.chunkuse > 56) {
        std::memset(s.chunk + s.chunkuse, 0, 64 - s.chunkuse);
        compress(s.h, s.chunk, 1);
        s.chunkuse = 0;
    }
}

// Padding, second half: zeros up to the bit length, then the last block.
template <size_t Words>
inline void pad_close(State<Words> &s, CompressFn compress) noexcept {
    std::memset(s.chunk + s.chunkuse, 0, 56 - s.chunkuse);
    store_be64(s.chunk + 56, s.length * 8);
    compress(s.h, s.chunk, 1);
    s.chunkuse = 0;
}

}  // namespace qv::sha
