// Threading primitives of the platform layer. Only this header names the native
// types; everything above it uses qv::plat::mutex_t and friends.
//
// Functions that return int give the platform's own result (0 on success, an
// error number otherwise); callers turn failures of lock operations into
// assertions and report failures of thread creation.
#pragma once

#if defined(_WIN32)
#error "the Win32 threading backend is not written yet"
#else
#include <pthread.h>
#endif

#include <cstdint>

namespace qv::plat {

using mutex_t = pthread_mutex_t;
using cond_t = pthread_cond_t;
using thread_t = pthread_t;
using thread_id_t = pthread_t;

// A recursive mutex; false if the platform could not make one.
bool mutex_init_recursive(mutex_t *m) noexcept;
// A plain (non-recursive) mutex, the fast kind paired with a condition.
bool mutex_init(mutex_t *m) noexcept;
// Lock, unlock and destroy return the platform's result: 0 on success.
// The calls on every lock path are inline: they are the cost of a lock.
inline int mutex_lock(mutex_t *m) noexcept { return pthread_mutex_lock(m); }
inline int mutex_unlock(mutex_t *m) noexcept { return pthread_mutex_unlock(m); }
int mutex_destroy(mutex_t *m) noexcept;

// Condition variables, used with a plain mutex held by the caller.
bool cond_init(cond_t *c) noexcept;
inline int cond_wait(cond_t *c, mutex_t *m) noexcept { return pthread_cond_wait(c, m); }
inline int cond_signal(cond_t *c) noexcept { return pthread_cond_signal(c); }
inline int cond_broadcast(cond_t *c) noexcept { return pthread_cond_broadcast(c); }
int cond_destroy(cond_t *c) noexcept;

// Starts fn(arg) on a new joinable thread with the default stack size.
// Returns 0 or the platform's error number (EAGAIN, EINVAL, ...).
int thread_start(thread_t *t, void *(*fn)(void *), void *arg) noexcept;
// Waits for the thread to end; 0 or the platform's error number.
int thread_join(thread_t t) noexcept;
// Lets the thread's resources go when it ends; nobody will join it.
int thread_detach(thread_t t) noexcept;

// A real identity of the calling thread, comparable across threads.
inline thread_id_t thread_self() noexcept { return pthread_self(); }
inline bool thread_equal(thread_id_t a, thread_id_t b) noexcept { return pthread_equal(a, b) != 0; }

// Sleeps the whole interval: interruptions by signals resume the sleep
// until the monotonic deadline has passed.
void sleep_ms(uint32_t ms) noexcept;

}  // namespace qv::plat
