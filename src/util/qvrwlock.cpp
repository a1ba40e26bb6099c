// The readers/writer lock, preferring writers.
//
// State: one atomic word holds the number of readers inside (low bits) and a
// flag that is set while any writer owns or waits for the lock. A guard mutex
// protects the writers' side: writercount (writers that own or wait),
// writervalid and writer (the owner, set from before it has waited for the
// readers to drain). The owner's identity is also published atomically, so
// that unlock can tell a writer's release from a reader's without the guard.
//
// Readers take the fast path, one compare-and-swap, while no writer is
// announced; otherwise they wait under the guard. Every wait is a loop on its
// own predicate, each with its own condition:
//   - readers wait on readercond while any writer is announced, so a writer
//     that has arrived keeps new readers out;
//   - queued writers wait on writercond while another writer owns the lock;
//   - the owning writer waits on draincond while readers are still inside.
// A writer's release hands over to the next writer (signal writercond) or,
// when none is left, clears the flag and lets all readers in (broadcast
// readercond). The last reader to leave before an announced writer signals
// draincond under the guard; the writer tests the count under the guard
// before it sleeps, so that wake-up cannot be lost. Neither kind of lock is
// recursive.
#include <atomic>

#include "internal/qvinternal.h"

namespace {

constexpr uint32_t kWriterFlag = 0x80000000u;
constexpr uint32_t kReaderMask = 0x7fffffffu;

}  // namespace

struct qv_rwlock {
    std::atomic<uint32_t> readers;  // readers inside | kWriterFlag
    std::atomic<int> owned;         // 1 while owner holds a writer's identity
    std::atomic<qv::plat::thread_id_t> owner;
    qv::plat::mutex_t guard;
    qv::plat::cond_t readercond;
    qv::plat::cond_t writercond;
    qv::plat::cond_t draincond;
    int32_t writercount;
    int32_t writervalid;
    int32_t readerswaiting;  // readers asleep on readercond
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

// True if the calling thread owns the lock as a writer. A writer stores its
// identity before it raises owned (release), so a thread that sees owned
// raised (acquire) reads that writer's identity, never one left behind; and a
// thread that cleared owned itself cannot see its own raise again.
bool is_owner(qv_rwlock *qvrwlock) noexcept {
    return qvrwlock->owned.load(std::memory_order_acquire) != 0 &&
           qv::plat::thread_equal(qvrwlock->owner.load(std::memory_order_relaxed), qv::plat::thread_self());
}

void read_lock_slow(qv_rwlock *qvrwlock) noexcept {
    guard_lock(qvrwlock);
    QV_ASSERT(qvrwlock->writercount >= 0);
    while (qvrwlock->writercount != 0) {
        qvrwlock->readerswaiting += 1;
        wait_on(&qvrwlock->readercond, qvrwlock);
        qvrwlock->readerswaiting -= 1;
    }
    // No writer: the flag is clear, and it is only set under the guard.
    uint32_t before = qvrwlock->readers.fetch_add(1, std::memory_order_acquire);
    QV_ASSERT((before & kWriterFlag) == 0);
    QV_ASSERT((before & kReaderMask) < kReaderMask);
    guard_unlock(qvrwlock);
}

}  // namespace

extern "C" {

QV_API qv_rwlock *qv_rwlock_create(void) noexcept {
    qv_rwlock *qvrwlock = qv::make_zeroed<qv_rwlock>();
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
    qv::destroy(qvrwlock);
    return nullptr;
}

QV_API void qv_rwlock_rdlock(qv_rwlock *qvrwlock) noexcept {
    QV_ASSERT(qvrwlock != NULL);
    uint32_t s = qvrwlock->readers.load(std::memory_order_relaxed);
    while ((s & kWriterFlag) == 0 && (s & kReaderMask) < kReaderMask) {
        if (qvrwlock->readers.compare_exchange_weak(s, s + 1, std::memory_order_acquire,
                                                    std::memory_order_relaxed))
            return;
    }
    read_lock_slow(qvrwlock);
}

QV_API void qv_rwlock_wrlock(qv_rwlock *qvrwlock) noexcept {
    QV_ASSERT(qvrwlock != NULL);
    guard_lock(qvrwlock);
    QV_ASSERT(qvrwlock->writercount >= 0);
    qvrwlock->writercount += 1;
    QV_ASSERT(qvrwlock->writercount > 0);
    // Announced: from here on no new reader gets in. Wait for the owner.
    qvrwlock->readers.fetch_or(kWriterFlag, std::memory_order_relaxed);
    while (qvrwlock->writervalid != 0) wait_on(&qvrwlock->writercond, qvrwlock);
    qvrwlock->writervalid = 1;
    qvrwlock->owner.store(qv::plat::thread_self(), std::memory_order_relaxed);
    qvrwlock->owned.store(1, std::memory_order_release);
    // Owner: wait for the readers that were inside to leave.
    while ((qvrwlock->readers.load(std::memory_order_acquire) & kReaderMask) != 0)
        wait_on(&qvrwlock->draincond, qvrwlock);
    QV_ASSERT(qvrwlock->writervalid == 1);
    guard_unlock(qvrwlock);
}

QV_API void qv_rwlock_unlock(qv_rwlock *qvrwlock) noexcept {
    QV_ASSERT(qvrwlock != NULL);
    if (is_owner(qvrwlock)) {
        guard_lock(qvrwlock);
        QV_ASSERT(qvrwlock->writervalid == 1);
        qvrwlock->owned.store(0, std::memory_order_relaxed);
        qvrwlock->writervalid = 0;
        QV_ASSERT(qvrwlock->writercount > 0);
        qvrwlock->writercount -= 1;
        if (qvrwlock->writercount < 1) {
            qvrwlock->readers.fetch_and(kReaderMask, std::memory_order_release);
            if (qvrwlock->readerswaiting > 0) wake(qv::plat::cond_broadcast(&qvrwlock->readercond));
        } else {
            wake(qv::plat::cond_signal(&qvrwlock->writercond));
        }
        guard_unlock(qvrwlock);
        return;
    }
    uint32_t before = qvrwlock->readers.fetch_sub(1, std::memory_order_release);
    uint32_t readercount = before & kReaderMask;
    QV_ASSERT(readercount > 0);
    // The last reader out before an announced writer lets the owner proceed.
    if (readercount == 1 && (before & kWriterFlag) != 0) {
        guard_lock(qvrwlock);
        wake(qv::plat::cond_signal(&qvrwlock->draincond));
        guard_unlock(qvrwlock);
    }
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
    qv::destroy(qvrwlock);
}

}  // extern "C"
