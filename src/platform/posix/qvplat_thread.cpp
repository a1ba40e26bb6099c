// POSIX backend of the threading primitives.
#include "platform/qvplat_thread.h"

namespace qv::plat {

bool mutex_init_recursive(mutex_t *m) noexcept {
    pthread_mutexattr_t attr;
    if (pthread_mutexattr_init(&attr) != 0) return false;
    bool ok = pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE) == 0 &&
              pthread_mutex_init(m, &attr) == 0;
    pthread_mutexattr_destroy(&attr);
    return ok;
}

int mutex_lock(mutex_t *m) noexcept { return pthread_mutex_lock(m); }
int mutex_unlock(mutex_t *m) noexcept { return pthread_mutex_unlock(m); }
int mutex_destroy(mutex_t *m) noexcept { return pthread_mutex_destroy(m); }

}  // namespace qv::plat
