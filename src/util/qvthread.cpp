// Joinable threads. A qv_thread is started once and joined once:
// NONE -> RUNNING (start; back to NONE when the start fails) -> JOINED (join).
//
// The thread function's value travels through the object: the new thread
// stores it just before it ends, and join reads it after the platform join,
// which orders the two. The object is shared by its owner and the running
// thread through a count of two references while the thread runs, so that
// destroying a started, unjoined thread neither frees memory the thread
// still writes to nor leaks the thread: the last of the two to let go frees
// the object, and destroy detaches the platform thread.
#include <atomic>

#include "internal/qvinternal.h"

struct qv_thread {
    int32_t state;
    qv_thread_fn startfunction;
    void *arg;
    qv::plat::thread_t thread;
    unsigned int result;
    std::atomic<int> refs;
};

namespace {

void release(qv_thread *qvthread) noexcept {
    if (qvthread->refs.fetch_sub(1, std::memory_order_acq_rel) == 1) qv::destroy(qvthread);
}

void *trampoline(void *arg) noexcept {
    QV_ASSERT(arg != NULL);
    qv_thread *qvthread = static_cast<qv_thread *>(arg);
    QV_ASSERT(qvthread->startfunction != NULL);
    qvthread->result = qvthread->startfunction(qvthread->arg);
    release(qvthread);
    return nullptr;
}

}  // namespace

extern "C" {

QV_API qv_thread *qv_thread_create(void) noexcept {
    qv_thread *qvthread = qv::make_zeroed<qv_thread>();
    if (qvthread == nullptr) {
        QV_LOG(7, "not enough memory for thread context");
        return nullptr;
    }
    qvthread->refs.store(1, std::memory_order_relaxed);
    return qvthread;
}

QV_API int qv_thread_start(qv_thread *qvthread, qv_thread_fn startfunction, void *arg) noexcept {
    QV_ASSERT(qvthread != NULL);
    QV_ASSERT(qvthread->state == QV_THREAD_STATE_NONE);
    qvthread->startfunction = startfunction;
    qvthread->arg = arg;
    qvthread->state = QV_THREAD_STATE_RUNNING;
    // The new thread's reference, taken before it can run and let go.
    qvthread->refs.fetch_add(1, std::memory_order_relaxed);
    int err = qv::plat::thread_start(&qvthread->thread, trampoline, qvthread);
    if (err != 0) {
        qvthread->refs.fetch_sub(1, std::memory_order_relaxed);
        QV_LOG(7, "_beginthreadex() returned error %d", err);
        qvthread->state = QV_THREAD_STATE_NONE;
        return err;
    }
    return 0;
}

QV_API int qv_thread_join(qv_thread *qvthread, unsigned int *result) noexcept {
    QV_ASSERT(qvthread != NULL);
    QV_ASSERT(qvthread->state == QV_THREAD_STATE_RUNNING);
    int err = qv::plat::thread_join(qvthread->thread);
    if (err != 0) {
        QV_LOG(7, "WaitForSingleObject() returned error %u", static_cast<unsigned>(err));
        if (result != nullptr) *result = 0;
        return -1;
    }
    qvthread->state = QV_THREAD_STATE_JOINED;
    if (result != nullptr) *result = qvthread->result;
    return 0;
}

QV_API void qv_thread_destroy(qv_thread *qvthread) noexcept {
    QV_ASSERT(qvthread != NULL);
    if (qvthread->state == QV_THREAD_STATE_RUNNING) {
        // Never joined: nobody will, so the platform may reclaim the thread
        // when it ends; it frees the object itself if it is still running.
        int err = qv::plat::thread_detach(qvthread->thread);
        QV_ASSERT(err == 0);
    }
    release(qvthread);
}

}  // extern "C"
