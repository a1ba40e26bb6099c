// Counts heap allocations of the whole process by interposing the C heap
// functions (glibc's __libc_* entry points do the real work). Include in
// exactly one benchmark source.
#pragma once

#include <atomic>
#include <cstddef>

extern "C" {
void *__libc_malloc(size_t);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
void __libc_free(void *);
}

namespace bench {
inline std::atomic<unsigned long> g_allocations{0};
}

extern "C" {
void *malloc(size_t n) {
    bench::g_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(n);
}
void *calloc(size_t a, size_t b) {
    bench::g_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(a, b);
}
void *realloc(void *p, size_t n) {
    bench::g_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(p, n);
}
void free(void *p) { __libc_free(p); }
}
