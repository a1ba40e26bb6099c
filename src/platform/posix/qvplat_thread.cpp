// POSIX backend of the threading primitives: pthreads and nanosleep.
#include "platform/qvplat_thread.h"

#include <cerrno>
#include <ctime>

namespace qv::plat {

bool mutex_init_recursive(mutex_t *m) noexcept {
    pthread_mutexattr_t attr;
    if (pthread_mutexattr_init(&attr) != 0) return false;
    bool ok = pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE) == 0 &&
              pthread_mutex_init(m, &attr) == 0;
    pthread_mutexattr_destroy(&attr);
    return ok;
}

bool mutex_init(mutex_t *m) noexcept { return pthread_mutex_init(m, nullptr) == 0; }
int mutex_destroy(mutex_t *m) noexcept { return pthread_mutex_destroy(m); }

bool cond_init(cond_t *c) noexcept { return pthread_cond_init(c, nullptr) == 0; }
int cond_destroy(cond_t *c) noexcept { return pthread_cond_destroy(c); }

int thread_start(thread_t *t, void *(*fn)(void *), void *arg) noexcept {
    return pthread_create(t, nullptr, fn, arg);
}
int thread_join(thread_t t) noexcept { return pthread_join(t, nullptr); }
int thread_detach(thread_t t) noexcept { return pthread_detach(t); }


void sleep_ms(uint32_t ms) noexcept {
    // An absolute deadline on the monotonic clock: a signal that interrupts
    // the sleep neither shortens it nor makes it drift when it is resumed.
    struct timespec deadline;
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += static_cast<time_t>(ms / 1000u);
    deadline.tv_nsec += static_cast<long>(ms % 1000u) * 1000000L;
    if (deadline.tv_nsec >= 1000000000L) {
        deadline.tv_sec += 1;
        deadline.tv_nsec -= 1000000000L;
    }
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr) == EINTR) {
    }
}

}  // namespace qv::plat
