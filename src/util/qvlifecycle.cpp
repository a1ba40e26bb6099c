// Process-level entry points. Loading the library does no work; each
// process-wide object is created by its first user and torn down here.
#include "internal/qvinternal.h"

extern "C" {

QV_API void qv_uninit(void) noexcept {
    // The process-wide random source, once the library has one, is torn down
    // here too, after the log.
    qv_log_uninit();
}

QV_API void qv_dll_donothing(void) noexcept {}

QV_API int qv_dll_delayloadinitialize(void) noexcept { return 1; }

}  // extern "C"
