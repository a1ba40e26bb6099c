// Condition objects: a condition variable that owns its lock, so that
// qv_cond_lock/qv_cond_unlock act on the object itself.
//
// The lock is a plain, non-recursive mutex: a condition wait releases exactly
// one level of ownership, so a recursive lock held twice across a wait would
// keep other threads out while this one sleeps. Waits have no time limit and
// may wake spuriously; callers wait in loops on their own predicates.
// Signal and broadcast take no lock themselves.
#include "internal/qvinternal.h"

struct qv_cond {
    qv::plat::mutex_t lock;
    qv::plat::cond_t condition;
};

extern "C" {

QV_API qv_cond *qv_cond_create(void) noexcept {
    qv_cond *qvcond = static_cast<qv_cond *>(qv_cmalloc(sizeof(qv_cond)));
    if (qvcond == nullptr) return nullptr;
    if (!qv::plat::mutex_init(&qvcond->lock)) {
        qv_free(qvcond);
        return nullptr;
    }
    if (!qv::plat::cond_init(&qvcond->condition)) {
        qv::plat::mutex_destroy(&qvcond->lock);
        qv_free(qvcond);
        return nullptr;
    }
    return qvcond;
}

QV_API void qv_cond_lock(qv_cond *qvcond) noexcept {
    QV_ASSERT(qvcond != NULL);
    int err = qv::plat::mutex_lock(&qvcond->lock);
    QV_ASSERT(err == 0);
}

QV_API void qv_cond_unlock(qv_cond *qvcond) noexcept {
    QV_ASSERT(qvcond != NULL);
    int err = qv::plat::mutex_unlock(&qvcond->lock);
    QV_ASSERT(err == 0);
}

QV_API void qv_cond_wait(qv_cond *qvcond) noexcept {
    QV_ASSERT(qvcond != NULL);
    int err = qv::plat::cond_wait(&qvcond->condition, &qvcond->lock);
    QV_ASSERT(err == 0);
}

QV_API int qv_cond_signal(qv_cond *qvcond) noexcept {
    QV_ASSERT(qvcond != NULL);
    return qv::plat::cond_signal(&qvcond->condition);
}

QV_API int qv_cond_broadcast(qv_cond *qvcond) noexcept {
    QV_ASSERT(qvcond != NULL);
    return qv::plat::cond_broadcast(&qvcond->condition);
}

QV_API void qv_cond_destroy(qv_cond *qvcond) noexcept {
    QV_ASSERT(qvcond != NULL);
    int err = qv::plat::cond_destroy(&qvcond->condition);
    QV_ASSERT(err == 0);
    err = qv::plat::mutex_destroy(&qvcond->lock);
    QV_ASSERT(err == 0);
    qv_free(qvcond);
}

}  // extern "C"
