// The allocator family. Everything the library allocates goes through here so
// that one switch (QVMALLOC_FAILMODE) and, in test builds, one fault injector
// reach every out-of-memory path.
//
// The failure mode is a process-wide tri-state: unknown until the first
// allocation consults the environment, then on or off for good. Two threads
// racing on "unknown" reach the same verdict; the message may then print
// twice, which is accepted rather than paying for a lock on every allocation.
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "internal/qvinternal.h"
#include "internal/qvfault.h"

namespace {

std::atomic<int> g_failmode{-1};

// True if this allocation must fail because of QVMALLOC_FAILMODE.
bool failmode_check() noexcept {
    int mode = g_failmode.load(std::memory_order_relaxed);
    if (mode == 1) return true;
    if (mode == 0) return false;
    if (qv::plat::env_present("QVMALLOC_FAILMODE")) {
        static const char msg[] = "QVMALLOC_FAILMODE enabled!\n";
        qv::plat::stderr_write(msg, sizeof msg - 1);
        g_failmode.store(1, std::memory_order_relaxed);
        return true;
    }
    g_failmode.store(0, std::memory_order_relaxed);
    return false;
}

#ifdef QV_FAULT_INJECTION
std::atomic<unsigned long> g_count{0};
std::atomic<unsigned long> g_failed{0};
std::atomic<unsigned long> g_fail_at{0};  // 0: off
std::atomic<bool> g_repeat{false};
std::atomic<long> g_live{0};

bool inject() noexcept {
    unsigned long n = g_count.fetch_add(1, std::memory_order_relaxed) + 1;
    unsigned long at = g_fail_at.load(std::memory_order_relaxed);
    if (at == 0) return false;
    if (n == at || (n > at && g_repeat.load(std::memory_order_relaxed))) {
        g_failed.fetch_add(1, std::memory_order_relaxed);
        qv::fault::on_injected_failure();
        return true;
    }
    return false;
}
inline void *track(void *p) noexcept {
    if (p != nullptr) g_live.fetch_add(1, std::memory_order_relaxed);
    return p;
}
#else
inline bool inject() noexcept { return false; }
inline void *track(void *p) noexcept { return p; }
#endif

}  // namespace

#ifdef QV_FAULT_INJECTION
namespace qv::fault {
void fail_at(unsigned long n, bool repeat) noexcept {
    g_count.store(0);
    g_failed.store(0);
    g_repeat.store(repeat);
    g_fail_at.store(n);
}
void reset() noexcept {
    g_fail_at.store(0);
    g_repeat.store(false);
    g_count.store(0);
    g_failed.store(0);
}
unsigned long count() noexcept { return g_count.load(); }
unsigned long failed() noexcept { return g_failed.load(); }
long live_blocks() noexcept { return g_live.load(); }
// Not inlined and with a side effect the optimiser must keep, so a debugger
// can stop here on every injected failure.
__attribute__((noinline)) void on_injected_failure() noexcept { asm volatile(""); }
}  // namespace qv::fault
#endif

extern "C" {

QV_API void *qv_malloc(size_t size) noexcept {
    if (failmode_check() || inject()) return nullptr;
    return track(malloc(size));
}

QV_API void *qv_calloc(size_t count, size_t size) noexcept {
    if (failmode_check() || inject()) return nullptr;
    // Checked here rather than left to calloc, so every heap (and every
    // sanitizer's) gives the same answer.
    if (size != 0 && count > SIZE_MAX / size) return nullptr;
    return track(calloc(count, size));
}

QV_API void *qv_cmalloc(size_t size) noexcept {
    if (failmode_check() || inject()) return nullptr;
    return track(calloc(1, size));
}

QV_API void *qv_realloc(void *ptr, size_t size) noexcept {
    // Exempt from the failure mode: paths that only grow a buffer keep working.
    if (inject()) return nullptr;
    if (size == 0) size = 1;
    void *p = realloc(ptr, size);
    return ptr == nullptr ? track(p) : p;
}

QV_API void qv_free(void *ptr) noexcept {
    if (ptr == nullptr) return;
#ifdef QV_FAULT_INJECTION
    g_live.fetch_sub(1, std::memory_order_relaxed);
#endif
    free(ptr);
}

QV_API void qv_malloc_uninit(void) noexcept {}

QV_API int qv_mallocfail_unwind_stacktrace(void) noexcept { return 0; }

}  // extern "C"
