// POSIX backend of the CPU feature queries: cpuid through the compiler's
// <cpuid.h> on x86; other architectures report no optional features.
#include "platform/qvplat_cpu.h"

#if defined(__x86_64__) || defined(__i386__)
#include <cpuid.h>
#endif

namespace qv::plat {

bool cpu_has_sha_extensions() noexcept {
#if defined(__x86_64__) || defined(__i386__)
    unsigned int eax = 0, ebx = 0, ecx = 0, edx = 0;
    if (__get_cpuid_max(0, nullptr) < 7) return false;
    if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx)) return false;
    const bool ssse3 = (ecx & bit_SSSE3) != 0;
    const bool sse41 = (ecx & bit_SSE4_1) != 0;
    if (!__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx)) return false;
    const bool sha = (ebx & bit_SHA) != 0;
    return ssse3 && sse41 && sha;
#else
    return false;
#endif
}

}  // namespace qv::plat
