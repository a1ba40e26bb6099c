// The thread pool: parameters, contexts, result order, stop and destroy, and
// the failed-create path.
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "qvlib.h"
#include "support/qvtest.h"
#include "util/thread_helpers.h"

namespace {

struct Request {
    long long value;
    int handled_by;  // the index of the context that handled it
};

struct Ctx {
    int index;
    long handled;
};

struct Global {
    std::atomic<int> made{0};
    int fail_at = -1;  // the context whose create reports QV_ERROR_PERMISSION_DENIED
    int tasks_at_failure = 0;
    std::mutex m;
    std::vector<int> destroyed;  // context indexes, in call order
    std::vector<Ctx *> all;
};

void *ctx_create(void *global, int *error_out) {
    Global *g = static_cast<Global *>(global);
    int n = g->made.fetch_add(1);
    if (n == g->fail_at) {
        g->tasks_at_failure = qvtest::task_count();
        *error_out = QV_ERROR_PERMISSION_DENIED;
        return nullptr;
    }
    std::lock_guard<std::mutex> lock(g->m);
    g->all.push_back(new Ctx{n, 0});
    *error_out = QV_ERROR_NONE;
    return g->all.back();
}

void ctx_destroy(void *global, void *thread_ctx) {
    Global *g = static_cast<Global *>(global);
    std::lock_guard<std::mutex> lock(g->m);
    g->destroyed.push_back(static_cast<Ctx *>(thread_ctx)->index);
    delete static_cast<Ctx *>(thread_ctx);
}

int square(void *, void *thread_ctx, void *request) {
    Request *r = static_cast<Request *>(request);
    r->value *= r->value;
    if (Ctx *c = static_cast<Ctx *>(thread_ctx)) {
        r->handled_by = c->index;
        ++c->handled;  // per-thread state needs no lock
    }
    return 0;
}

qv_threadpool *make_pool(int threads, Global *g, int *err) {
    qv_threadpool_params *p = qv_threadpool_params_create_defaults();
    if (p == nullptr) {
        *err = QV_ERROR_NO_MEMORY;  // as the pool would report it
        return nullptr;
    }
    qv_threadpool_params_set_num_threads(p, threads);
    qv_threadpool_params_set_request_handler(p, square);
    if (g != nullptr) {
        qv_threadpool_params_set_global_context(p, g);
        qv_threadpool_params_set_thread_ctx_create(p, ctx_create);
        qv_threadpool_params_set_thread_ctx_destroy(p, ctx_destroy);
    }
    qv_threadpool *pool = qv_threadpool_create(p, err);
    qv_threadpool_params_destroy(p);  // the pool keeps a copy
    return pool;
}

TEST(ThreadPool, DefaultsGiveOneWorkerThatPassesRequestsThroughAndZeroWorkersNone) {
    qv_threadpool_params *p = qv_threadpool_params_create_defaults();
    qv_threadpool_params_set_num_threads(p, 3);
    qv_threadpool_params_set_request_handler(p, square);
    qv_threadpool_params_set_defaults(p);  // back to one worker, no handler
    int tasks = qvtest::task_count(), err = -1;
    qv_threadpool *pool = qv_threadpool_create(p, &err);
    qv_threadpool_params_destroy(p);
    ASSERT_EQ(err, QV_ERROR_NONE);
    EXPECT_EQ(qvtest::task_count(), tasks + 1);
    Request r{7, -1};
    ASSERT_EQ(qv_threadpool_submit_request(pool, &r), 0);
    EXPECT_EQ(qv_threadpool_get_result(pool, &err), &r);
    EXPECT_EQ(err, QV_ERROR_NONE);
    EXPECT_EQ(r.value, 7);
    qv_threadpool_destroy(pool);
    EXPECT_EQ(qvtest::task_count(), tasks);

    // Without workers, requests wait forever.
    pool = make_pool(0, nullptr, &err);
    ASSERT_EQ(err, QV_ERROR_NONE);
    EXPECT_EQ(qvtest::task_count(), tasks);
    ASSERT_EQ(qv_threadpool_submit_request(pool, &r), 0);
    EXPECT_EQ(qv_threadpool_get_result_try(pool, &err), nullptr);
    EXPECT_EQ(err, QV_ERROR_NOT_FOUND);
    qv_threadpool_destroy(pool);  // the queued request is not touched
    EXPECT_EQ(r.value, 7);
}

TEST(ThreadPool, OneWorkerKeepsSubmissionOrder) {
    Global g;
    int err = -1;
    qv_threadpool *pool = make_pool(1, &g, &err);
    std::vector<Request> reqs(2000);
    for (int i = 0; i < 2000; ++i) {
        reqs[i] = {i, -1};
        ASSERT_EQ(qv_threadpool_submit_request(pool, &reqs[i]), 0);
    }
    for (int i = 0; i < 2000; ++i) {
        ASSERT_EQ(qv_threadpool_get_result(pool, nullptr), &reqs[i]) << i;
        EXPECT_EQ(reqs[i].value, i * i);
        EXPECT_EQ(reqs[i].handled_by, 0);
    }
    qv_threadpool_destroy(pool);
    EXPECT_EQ(g.destroyed, std::vector<int>{0});
}

TEST(ThreadPool, SeveralWorkersHandleEveryRequestExactlyOnce) {
    Global g;
    int err = -1;
    qv_threadpool *pool = make_pool(4, &g, &err);
    const int kRequests = qvtest::kThreadSanitizer ? 5000 : 50000;
    std::vector<Request> reqs(kRequests);
    std::thread submitter([&] {  // submit on one thread, collect on this one
        for (int i = 0; i < kRequests; ++i) {
            reqs[i] = {i, -1};
            EXPECT_EQ(qv_threadpool_submit_request(pool, &reqs[i]), 0);
        }
    });
    std::vector<int> got(kRequests, 0);
    for (int i = 0; i < kRequests; ++i) {
        Request *r = static_cast<Request *>(qv_threadpool_get_result(pool, &err));
        ASSERT_EQ(err, QV_ERROR_NONE);
        ++got[r - reqs.data()];
    }
    submitter.join();
    EXPECT_EQ(qv_threadpool_get_result_try(pool, &err), nullptr);
    EXPECT_EQ(err, QV_ERROR_NOT_FOUND);
    for (int i = 0; i < kRequests; ++i) {
        ASSERT_EQ(got[i], 1) << i;
        ASSERT_EQ(reqs[i].value, static_cast<long long>(i) * i) << i;  // squared exactly once
    }
    long handled = 0;
    for (Ctx *c : g.all) handled += c->handled;
    EXPECT_EQ(handled, kRequests);
    qv_threadpool_destroy(pool);
    EXPECT_EQ(g.destroyed, (std::vector<int>{0, 1, 2, 3}));  // index order
}

TEST(ThreadPool, StopFinishesQueuedRequestsKeepsResultsAndRefusesMore) {
    int err = -1;
    qv_threadpool *pool = make_pool(2, nullptr, &err);
    std::vector<Request> reqs(100);
    for (int i = 0; i < 100; ++i) {
        reqs[i] = {i, -1};
        ASSERT_EQ(qv_threadpool_submit_request(pool, &reqs[i]), 0);
    }
    qv_threadpool_stop(pool);  // waits for all of them
    qv_threadpool_stop(pool);  // idempotent
    Request late{5, -1};
    EXPECT_EQ(qv_threadpool_submit_request(pool, &late), QV_ERROR_WRITE);
    std::set<void *> results;
    for (void *r; (r = qv_threadpool_get_result_try(pool, &err)) != nullptr;) results.insert(r);
    EXPECT_EQ(err, QV_ERROR_NOT_FOUND);
    EXPECT_EQ(results.size(), 100u);
    for (int i = 0; i < 100; ++i) EXPECT_EQ(reqs[i].value, i * i);
    qv_threadpool_destroy(pool);
}

TEST(ThreadPool, FailingSecondContextFailsCreateAfterTheFirstWorkerStarted) {
    qvtest::LogCapture log;
    Global g;
    g.fail_at = 1;
    int tasks = qvtest::task_count(), err = -1;
    EXPECT_EQ(make_pool(3, &g, &err), nullptr);
    EXPECT_EQ(err, QV_ERROR_PERMISSION_DENIED);
    EXPECT_TRUE(log.has(7, "failed to create thread context for thread 1"));
    EXPECT_EQ(g.tasks_at_failure, tasks + 1);  // worker 0 was running then
    EXPECT_EQ(g.made.load(), 2);               // no third context was tried
    EXPECT_EQ(g.destroyed, std::vector<int>{0});
    EXPECT_EQ(qvtest::task_count(), tasks);  // and worker 0 has been stopped

    EXPECT_EQ(qv_threadpool_create(nullptr, &err), nullptr);
    EXPECT_EQ(err, QV_ERROR_INVALID_ARGUMENT);
    EXPECT_TRUE(log.has(7, "qv_threadpool_create() called with NULL params"));
}

TEST(ThreadPool, EveryAllocationFailureFailsCreateOrSubmitCleanly) {
    qvtest::LogCapture log;
    QV_LOG(16, "grow the log's prefix buffer before counting blocks");
    qvtest::alloc_failure_sweep([&](unsigned long failing) {
        Global g;
        int err = -1;
        log.clear();
        qv_threadpool *pool = make_pool(2, &g, &err);
        if (pool == nullptr) {
            // The pool, a queue, the thread array or a thread object; a
            // queue's condition object or a thread object shows as generic.
            EXPECT_NE(failing, 0u);
            EXPECT_TRUE(err == QV_ERROR_NO_MEMORY || err == QV_ERROR_GENERIC) << err;
            EXPECT_EQ(log.has(7, "not enough memory for thread context"),
                      log.has(7, "failed to create thread 0") || log.has(7, "failed to create thread 1"));
            EXPECT_EQ(g.destroyed.size(), g.all.size());  // every context made was handed back
            return;
        }
        Request reqs[3] = {{2, -1}, {3, -1}, {4, -1}};
        int submitted = 0;
        for (Request &r : reqs) {
            int rc = qv_threadpool_submit_request(pool, &r);
            EXPECT_TRUE(rc == 0 || rc == QV_ERROR_NO_MEMORY);
            submitted += rc == 0;
        }
        for (int i = 0; i < submitted; ++i) EXPECT_NE(qv_threadpool_get_result(pool, &err), nullptr);
        qv_threadpool_destroy(pool);
        EXPECT_EQ(g.destroyed.size(), 2u);
    });
}

TEST(ThreadPoolDeathTest, ObjectsAreAsserted) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(qv_threadpool_submit_request(nullptr, nullptr),
                 "src/util/qvthreadpool.cpp:[0-9]+: Assertion `pool' failed.");
    EXPECT_DEATH(qv_threadpool_params_set_num_threads(nullptr, 2),
                 "src/util/qvthreadpool.cpp:[0-9]+: Assertion `params' failed.");
}

}  // namespace
