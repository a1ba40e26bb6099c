// The recursive mutex. It logs nothing: the log itself is guarded by it.
#include "internal/qvinternal.h"

struct qv_mutex {
    qv::plat::mutex_t m;
};

extern "C" {

QV_API qv_mutex *qv_mutex_create(void) noexcept {
    qv_mutex *qvmutex = static_cast<qv_mutex *>(qv_malloc(sizeof(qv_mutex)));
    if (qvmutex == nullptr) return nullptr;
    if (!qv::plat::mutex_init_recursive(&qvmutex->m)) {
        qv_free(qvmutex);
        return nullptr;
    }
    return qvmutex;
}

QV_API void qv_mutex_lock(qv_mutex *qvmutex) noexcept {
    QV_ASSERT(qvmutex != NULL);
    int err = qv::plat::mutex_lock(&qvmutex->m);
    QV_ASSERT(err == 0);
}

QV_API void qv_mutex_unlock(qv_mutex *qvmutex) noexcept {
    QV_ASSERT(qvmutex != NULL);
    int err = qv::plat::mutex_unlock(&qvmutex->m);
    QV_ASSERT(err == 0);
}

QV_API void qv_mutex_destroy(qv_mutex *qvmutex) noexcept {
    QV_ASSERT(qvmutex != NULL);
    int err = qv::plat::mutex_destroy(&qvmutex->m);
    QV_ASSERT(err == 0);
    qv_free(qvmutex);
}

}  // extern "C"
