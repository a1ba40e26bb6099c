// Threading primitives of the platform layer. Only this header names the native
// types; everything above it uses qv::plat::mutex_t and friends.
#pragma once

#if defined(_WIN32)
#error "the Win32 threading backend is not written yet"
#else
#include <pthread.h>
#endif

namespace qv::plat {

using mutex_t = pthread_mutex_t;

// A recursive mutex; false if the platform could not make one.
bool mutex_init_recursive(mutex_t *m) noexcept;
// Lock, unlock and destroy return the platform's result: 0 on success.
int mutex_lock(mutex_t *m) noexcept;
int mutex_unlock(mutex_t *m) noexcept;
int mutex_destroy(mutex_t *m) noexcept;

}  // namespace qv::plat
