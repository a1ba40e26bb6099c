// The readers/writer lock, preferring writers.
//
// One guard mutex protects four fields: writercount (writers that own or wait
// for the lock), writervalid and writer (set while a writer owns the lock,
// from before it has waited for the readers to drain), and readercount
// (holders: readers, plus one unit for the owning writer).
//
// Every wait is a loop on its own predicate, each with its own condition:
//   - readers wait on readercond while any writer is announced, so a writer
//     that has arrived keeps new readers out;
//   - queued writers wait on writercond while another writer owns the lock;
//   - the owning writer waits on draincond while readers still hold it.
// A writer's release hands over to the next writer (signal writercond) or,
// when none is left, lets all readers in (broadcast readercond); the last
// reader to leave before a waiting owner signals draincond. All state changes
// and signals happen under the guard, so no wake-up is lost.
//
// Unlock tells a writer from a reader by the owning thread's real identity,
// so a reader that leaves while the writer drains is counted as a reader.
// Neither kind of lock is recursive.
#include "internal/qvinternal.h"

struct qv_rwlock {
    qv::plat::mutex_t guard;
    qv::plat::cond_t readercond;
    qv::plat::cond_t writercond;
    qv::plat::cond_t draincond;
    int32_t writercount;
    int32_t writervalid;
    qv::plat::thread_id_t writer;
    int32_t readercount;
};

namespace {

void guard_lock(qv_rwlock *qvrwlock) noexcept {
    int err = qv::plat::mutex_lock(&qvrwlock->guard);
    QV_ASSERT(err == 0);
}

void guard_unlock(qv_rwlock *qvrwlock) noexcept {
    int err = qv::plat::mutex_unlock(&qvrwlock->guard);
    QV_ASSERT(err == 0);
}

void wait_on(qv::plat::cond_t *cond, qv_rwlock *qvrwlock) noexcept {
    int err = qv::plat::cond_wait(cond, &qvrwlock->guard);
    QV_ASSERT(err == 0);
}

void wake(int err) noexcept { QV_ASSERT(err == 0); }

}  // namespace

extern "C" {

QV_API qv_rwlock *qv_rwlock_create(void) noexcept {
    qv_rwlock *qvrwlock = static_cast<qv_rwlock *>(qv_cmalloc(sizeof(qv_rwlock)));
    if (qvrwlock == nullptr) return nullptr;
    int made = 0;
    if (qv::plat::mutex_init(&qvrwlock->guard)) ++made;
    if (made == 1 && qv::plat::cond_init(&qvrwlock->readercond)) ++made;
    if (made == 2 && qv::plat::cond_init(&qvrwlock->writercond)) ++made;
    if (made == 3 && qv::plat::cond_init(&qvrwlock->draincond)) ++made;
    if (made == 4) return qvrwlock;
    if (made > 2) qv::plat::cond_destroy(&qvrwlock->writercond);
    if (made > 1) qv::plat::cond_destroy(&qvrwlock->readercond);
    if (made > 0) qv::plat::mutex_destroy(&qvrwlock->guard);
    qv_free(qvrwlock);
    return nullptr;
}

QV_API void qv_rwlock_rdlock(qv_rwlock *qvrwlock) noexcept {
    QV_ASSERT(qvrwlock != NULL);
    guard_lock(qvrwlock);
    QV_ASSERT(qvrwlock->writercount >= 0);
    QV_ASSERT(qvrwlock->readercount >= 0);
    while (qvrwlock->writercount != 0) wait_on(&qvrwlock->readercond, qvrwlock);
    QV_ASSERT(qvrwlock->writervalid == 0);
    qvrwlock->readercount += 1;
    QV_ASSERT(qvrwlock->readercount > 0);
    guard_unlock(qvrwlock);
}

QV_API void qv_rwlock_wrlock(qv_rwlock *qvrwlock) noexcept {
    QV_ASSERT(qvrwlock != NULL);
    qv::plat::thread_id_t self = qv::plat::thread_self();
    guard_lock(qvrwlock);
    QV_ASSERT(qvrwlock->writercount >= 0);
    QV_ASSERT(qvrwlock->readercount >= 0);
    qvrwlock->writercount += 1;
    QV_ASSERT(qvrwlock->writercount > 0);
    // Announced: from here on no new reader gets in. Wait for the owner.
    while (qvrwlock->writervalid != 0) wait_on(&qvrwlock->writercond, qvrwlock);
    qvrwlock->readercount += 1;
    QV_ASSERT(qvrwlock->writervalid == 0);
    qvrwlock->writer = self;
    qvrwlock->writervalid = 1;
    // Owner: wait for the readers that were inside to leave.
    while (qvrwlock->readercount > 1) wait_on(&qvrwlock->draincond, qvrwlock);
    QV_ASSERT(qvrwlock->readercount == 1);
    QV_ASSERT(qvrwlock->writervalid == 1);
    QV_ASSERT(qv::plat::thread_equal(qvrwlock->writer, self));
    guard_unlock(qvrwlock);
}

QV_API void qv_rwlock_unlock(qv_rwlock *qvrwlock) noexcept {
    QV_ASSERT(qvrwlock != NULL);
    qv::plat::thread_id_t self = qv::plat::thread_self();
    guard_lock(qvrwlock);
    if (qvrwlock->writervalid == 1 && qv::plat::thread_equal(qvrwlock->writer, self)) {
        qvrwlock->writervalid = 0;
        QV_ASSERT(qvrwlock->writercount > 0);
        qvrwlock->writercount -= 1;
        QV_ASSERT(qvrwlock->writercount >= 0);
        if (qvrwlock->writercount < 1)
            wake(qv::plat::cond_broadcast(&qvrwlock->readercond));
        else
            wake(qv::plat::cond_signal(&qvrwlock->writercond));
        QV_ASSERT(qvrwlock->readercount == 1);
        qvrwlock->readercount -= 1;
        QV_ASSERT(qvrwlock->readercount == 0);
    } else {
        QV_ASSERT(qvrwlock->readercount > 0);
        qvrwlock->readercount -= 1;
        QV_ASSERT(qvrwlock->readercount >= 0);
        // Only the draining owner's own unit left: let it proceed.
        if (qvrwlock->readercount == 1 && qvrwlock->writervalid == 1)
            wake(qv::plat::cond_signal(&qvrwlock->draincond));
    }
    guard_unlock(qvrwlock);
}

QV_API void qv_rwlock_destroy(qv_rwlock *qvrwlock) noexcept {
    QV_ASSERT(qvrwlock != NULL);
    int err = qv::plat::cond_destroy(&qvrwlock->draincond);
    QV_ASSERT(err == 0);
    err = qv::plat::cond_destroy(&qvrwlock->writercond);
    QV_ASSERT(err == 0);
    err = qv::plat::cond_destroy(&qvrwlock->readercond);
    QV_ASSERT(err == 0);
    err = qv::plat::mutex_destroy(&qvrwlock->guard);
    QV_ASSERT(err == 0);
    qv_free(qvrwlock);
}

}  // extern "C"
