// Process-level entry points. Loading the library does no work; each
// process-wide object is created by its first user and torn down here.
#include "internal/qvinternal.h"
#include "internal/qvlifecycle.h"

namespace {
void (*g_random_teardown)() noexcept = nullptr;
}

namespace qv {
void register_random_teardown(void (*fn)() noexcept) noexcept { g_random_teardown = fn; }
}  // namespace qv

extern "C" {

QV_API void qv_uninit(void) noexcept {
    qv_log_uninit();
    if (g_random_teardown != nullptr) g_random_teardown();
}

QV_API void qv_dll_donothing(void) noexcept {}

QV_API int qv_dll_delayloadinitialize(void) noexcept { return 1; }

}  // extern "C"
