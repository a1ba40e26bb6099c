// The thread pool: a fixed number of workers take requests from an input
// lock queue, run the request handler on each with their own thread context,
// and put the processed request on an output queue, where the caller collects
// it. Results come out in completion order (submission order with one worker).
//
// Lifecycle: new -> running (create) -> stopped (stop or destroy). Stop ends
// the input queue, so the workers drain what was queued and exit, and joins
// them in index order. Locking: the two queues carry all of it; a worker
// touches only its own entry and the queues, so contexts need no lock. Stop
// and destroy must not run concurrently with each other or with submitters.
#include "internal/qvinternal.h"

struct qv_threadpool_params {
    int num_threads;
    void *global_ctx;
    qv_threadpool_thread_ctx_create_fn thread_ctx_create;
    qv_threadpool_thread_ctx_destroy_fn thread_ctx_destroy;
    qv_threadpool_request_handler_fn request_handler;
};

namespace {

enum PoolState { kNew = 0, kRunning = 1, kStopped = 2 };

struct ThreadEntry {
    qv_thread *thread;
    qv_threadpool *pool;
    int ctx_created;
    void *thread_ctx;
};

}  // namespace

struct qv_threadpool {
    int state;
    qv_lockqueue *input;
    qv_lockqueue *output;
    int num_threads;
    void *global_ctx;
    qv_threadpool_thread_ctx_create_fn thread_ctx_create;
    qv_threadpool_thread_ctx_destroy_fn thread_ctx_destroy;
    qv_threadpool_request_handler_fn request_handler;
    ThreadEntry *threads;
    int started;  // workers started, a prefix of threads
};

namespace {

unsigned int worker(void *arg) noexcept {
    ThreadEntry *entry = static_cast<ThreadEntry *>(arg);
    qv_threadpool *pool = entry->pool;
    for (;;) {
        int queue_error = QV_ERROR_GENERIC;
        qv_lockqueue_element *element = qv_lockqueue_pop_element(pool->input, &queue_error);
        if (queue_error == QV_ERROR_NONE) {
            if (pool->request_handler != nullptr)
                pool->request_handler(pool->global_ctx, entry->thread_ctx,
                                      qv_lockqueue_element_get_item(element));
            queue_error = qv_lockqueue_push_element(pool->output, element);
            QV_ASSERT(queue_error == QV_ERROR_NONE);
            continue;
        }
        if (queue_error == QV_ERROR_NOT_FOUND) continue;
        QV_ASSERT(queue_error == QV_ERROR_END_OF_FILE);
        return 0;
    }
}

// Ends the input queue and joins the workers that were started, in index order.
void join_workers(qv_threadpool *pool) noexcept {
    qv_lockqueue_set_end(pool->input);
    for (int i = 0; i < pool->started; ++i) {
        // A failed join has been logged; destroying the object then detaches
        // the thread, which the ended queue lets finish on its own.
        qv_thread_join(pool->threads[i].thread, nullptr);
        qv_thread_destroy(pool->threads[i].thread);
        pool->threads[i].thread = nullptr;
    }
    pool->started = 0;
}

// Frees a pool in any state; running workers must have been joined.
void free_pool(qv_threadpool *pool) noexcept {
    if (pool->threads != nullptr) {
        int n = pool->num_threads > 0 ? pool->num_threads : 0;
        for (int i = 0; i < n; ++i) {
            ThreadEntry *entry = &pool->threads[i];
            if (entry->ctx_created && pool->thread_ctx_destroy != nullptr)
                pool->thread_ctx_destroy(pool->global_ctx, entry->thread_ctx);
        }
        qv_free(pool->threads);
    }
    if (pool->input != nullptr) qv_lockqueue_destroy(pool->input, nullptr);
    if (pool->output != nullptr) qv_lockqueue_destroy(pool->output, nullptr);
    qv_free(pool);
}

// A failed create: the workers already started are stopped before anything
// they use is freed.
qv_threadpool *fail_create(qv_threadpool *pool) noexcept {
    if (pool->started > 0) join_workers(pool);
    free_pool(pool);
    return nullptr;
}

void *pop_result(qv_threadpool *pool, int *error_out, bool wait) noexcept {
    QV_ASSERT(pool);
    int error = QV_ERROR_GENERIC;
    qv_lockqueue_element *element = wait ? qv_lockqueue_pop_element(pool->output, &error)
                                         : qv_lockqueue_pop_element_try(pool->output, &error);
    void *request = nullptr;
    if (element != nullptr) {
        request = qv_lockqueue_element_get_item(element);
        qv_lockqueue_element_destroy(element);
        error = QV_ERROR_NONE;
    }
    if (error_out != nullptr) *error_out = error;
    return request;
}

}  // namespace

extern "C" {

QV_API qv_threadpool_params *qv_threadpool_params_create_defaults(void) noexcept {
    qv_threadpool_params *params =
        static_cast<qv_threadpool_params *>(qv_cmalloc(sizeof(qv_threadpool_params)));
    if (params != nullptr) qv_threadpool_params_set_defaults(params);
    return params;
}

QV_API void qv_threadpool_params_set_defaults(qv_threadpool_params *params) noexcept {
    QV_ASSERT(params);
    params->num_threads = 1;
    params->global_ctx = nullptr;
    params->thread_ctx_create = nullptr;
    params->thread_ctx_destroy = nullptr;
    params->request_handler = nullptr;
}

QV_API void qv_threadpool_params_set_num_threads(qv_threadpool_params *params, int num_threads) noexcept {
    QV_ASSERT(params);
    params->num_threads = num_threads;
}

QV_API void qv_threadpool_params_set_global_context(qv_threadpool_params *params, void *global_ctx) noexcept {
    QV_ASSERT(params);
    params->global_ctx = global_ctx;
}

QV_API void qv_threadpool_params_set_thread_ctx_create(qv_threadpool_params *params,
                                                       qv_threadpool_thread_ctx_create_fn fn) noexcept {
    QV_ASSERT(params);
    params->thread_ctx_create = fn;
}

QV_API void qv_threadpool_params_set_thread_ctx_destroy(qv_threadpool_params *params,
                                                        qv_threadpool_thread_ctx_destroy_fn fn) noexcept {
    QV_ASSERT(params);
    params->thread_ctx_destroy = fn;
}

QV_API void qv_threadpool_params_set_request_handler(qv_threadpool_params *params,
                                                     qv_threadpool_request_handler_fn fn) noexcept {
    QV_ASSERT(params);
    params->request_handler = fn;
}

QV_API void qv_threadpool_params_destroy(qv_threadpool_params *params) noexcept {
    QV_ASSERT(params);
    qv_free(params);
}

QV_API qv_threadpool *qv_threadpool_create(const qv_threadpool_params *params, int *error_out) noexcept {
    int dummy;
    int *err = error_out != nullptr ? error_out : &dummy;
    *err = QV_ERROR_INTERNAL;
    if (params == nullptr) {
        QV_LOG(7, "qv_threadpool_create() called with NULL params");
        *err = QV_ERROR_INVALID_ARGUMENT;
        return nullptr;
    }
    qv_threadpool *pool = static_cast<qv_threadpool *>(qv_cmalloc(sizeof(qv_threadpool)));
    if (pool == nullptr) {
        *err = QV_ERROR_NO_MEMORY;
        QV_LOG(7, "failed to allocate pool structure");
        return nullptr;
    }
    pool->input = qv_lockqueue_create(err);
    if (pool->input == nullptr) {
        QV_LOG(7, "failed to create input queue");
        return fail_create(pool);
    }
    pool->output = qv_lockqueue_create(err);
    if (pool->output == nullptr) {
        QV_LOG(7, "failed to create output queue");
        return fail_create(pool);
    }
    pool->num_threads = params->num_threads;
    pool->global_ctx = params->global_ctx;
    pool->thread_ctx_create = params->thread_ctx_create;
    pool->thread_ctx_destroy = params->thread_ctx_destroy;
    pool->request_handler = params->request_handler;
    int count = pool->num_threads > 0 ? pool->num_threads : 0;
    pool->threads = static_cast<ThreadEntry *>(qv_calloc(count > 0 ? static_cast<size_t>(count) : 1,
                                                         sizeof(ThreadEntry)));
    if (pool->threads == nullptr) {
        *err = QV_ERROR_NO_MEMORY;
        QV_LOG(7, "failed to allocate thread array");
        return fail_create(pool);
    }
    for (int i = 0; i < count; ++i) {
        ThreadEntry *entry = &pool->threads[i];
        entry->pool = pool;
        if (pool->thread_ctx_create != nullptr) {
            int ctx_error = QV_ERROR_GENERIC;
            entry->thread_ctx = pool->thread_ctx_create(pool->global_ctx, &ctx_error);
            if (ctx_error != QV_ERROR_NONE) {
                *err = ctx_error;
                QV_LOG(7, "failed to create thread context for thread %u", static_cast<unsigned>(i));
                return fail_create(pool);
            }
            entry->ctx_created = 1;
        }
        entry->thread = qv_thread_create();
        if (entry->thread == nullptr) {
            *err = QV_ERROR_GENERIC;
            QV_LOG(7, "failed to create thread %u", static_cast<unsigned>(i));
            return fail_create(pool);
        }
        if (qv_thread_start(entry->thread, worker, entry) != 0) {
            *err = QV_ERROR_GENERIC;
            QV_LOG(7, "failed to start thread %u", static_cast<unsigned>(i));
            qv_thread_destroy(entry->thread);
            entry->thread = nullptr;
            return fail_create(pool);
        }
        pool->started = i + 1;
    }
    pool->state = kRunning;
    *err = QV_ERROR_NONE;
    return pool;
}

QV_API int qv_threadpool_submit_request(qv_threadpool *pool, void *request) noexcept {
    QV_ASSERT(pool);
    return qv_lockqueue_push(pool->input, request);
}

QV_API void *qv_threadpool_get_result(qv_threadpool *pool, int *error_out) noexcept {
    return pop_result(pool, error_out, true);
}

QV_API void *qv_threadpool_get_result_try(qv_threadpool *pool, int *error_out) noexcept {
    return pop_result(pool, error_out, false);
}

QV_API void qv_threadpool_stop(qv_threadpool *pool) noexcept {
    QV_ASSERT(pool);
    if (pool->state != kRunning || pool->threads == nullptr) return;
    join_workers(pool);
    pool->state = kStopped;
}

QV_API void qv_threadpool_destroy(qv_threadpool *pool) noexcept {
    QV_ASSERT(pool);
    qv_threadpool_stop(pool);
    free_pool(pool);
}

}  // extern "C"
