// Threads and locks beside GLib, and beside a plain std::mutex +
// std::condition_variable + std::deque queue written here: lock queue
// throughput (1 producer to 1 consumer, 4 to 4), thread pool throughput on
// trivial requests with 2 workers, and uncontended lock/unlock pairs.
// Threaded figures swing on a shared machine: compare within one run and use
// the medians of repeated runs (--benchmark_repetitions).
#include <benchmark/benchmark.h>
#include <glib.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "qvlib.h"

namespace {

constexpr int kItems = 200000;  // items per benchmark iteration, all producers together

void *as_item(uintptr_t n) { return reinterpret_cast<void *>(n); }

// The queue a C++ programmer would write by hand.
class StdQueue {
public:
    void push(void *p) {
        {
            std::lock_guard<std::mutex> g(m_);
            q_.push_back(p);
        }
        cv_.notify_one();
    }
    void *pop() {
        std::unique_lock<std::mutex> g(m_);
        cv_.wait(g, [this] { return !q_.empty(); });
        void *p = q_.front();
        q_.pop_front();
        return p;
    }

private:
    std::mutex m_;
    std::condition_variable cv_;
    std::deque<void *> q_;
};

// Runs kItems through producers -> queue -> consumers; each consumer stops at
// a sentinel item. The queue lives across iterations, as a long-lived queue
// between threads does.
int g_sentinel;

template <class Push, class Pop>
void transfer(int producers, int consumers, Push push, Pop pop) {
    std::vector<std::thread> threads;
    for (int c = 0; c < consumers; ++c)
        threads.emplace_back([&] {
            uintptr_t sum = 0;
            for (;;) {
                void *p = pop();
                if (p == &g_sentinel) break;
                sum += reinterpret_cast<uintptr_t>(p);
            }
            benchmark::DoNotOptimize(sum);
        });
    std::vector<std::thread> prod;
    int per = kItems / producers;
    for (int p = 0; p < producers; ++p)
        prod.emplace_back([&] {
            for (int i = 1; i <= per; ++i) push(as_item(static_cast<uintptr_t>(i)));
        });
    for (auto &t : prod) t.join();
    for (int c = 0; c < consumers; ++c) push(&g_sentinel);
    for (auto &t : threads) t.join();
}

void BM_Queue_qv(benchmark::State &state) {
    int pc = static_cast<int>(state.range(0));
    qv_lockqueue *q = qv_lockqueue_create(nullptr);
    for (auto _ : state) {
        transfer(
            pc, pc, [&](void *p) { qv_lockqueue_push(q, p); },
            [&]() -> void * {
                int err;
                return qv_lockqueue_pop(q, &err);
            });
    }
    qv_lockqueue_destroy(q, nullptr);
    state.SetItemsProcessed(state.iterations() * kItems);
}

void BM_Queue_GAsyncQueue(benchmark::State &state) {
    int pc = static_cast<int>(state.range(0));
    GAsyncQueue *q = g_async_queue_new();
    for (auto _ : state) {
        transfer(
            pc, pc, [&](void *p) { g_async_queue_push(q, p); }, [&]() { return g_async_queue_pop(q); });
    }
    g_async_queue_unref(q);
    state.SetItemsProcessed(state.iterations() * kItems);
}

void BM_Queue_std(benchmark::State &state) {
    int pc = static_cast<int>(state.range(0));
    StdQueue q;
    for (auto _ : state) {
        transfer(
            pc, pc, [&](void *p) { q.push(p); }, [&]() { return q.pop(); });
    }
    state.SetItemsProcessed(state.iterations() * kItems);
}

BENCHMARK(BM_Queue_qv)->Arg(1)->Arg(4)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Queue_GAsyncQueue)->Arg(1)->Arg(4)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Queue_std)->Arg(1)->Arg(4)->UseRealTime()->Unit(benchmark::kMillisecond);

// --- thread pool: 2 workers, trivial requests, submit a batch and collect it

constexpr int kRequests = 100000;

int qv_trivial(void *, void *, void *request) {
    benchmark::DoNotOptimize(request);
    return 0;
}

void BM_Pool_qv(benchmark::State &state) {
    qv_threadpool_params *p = qv_threadpool_params_create_defaults();
    qv_threadpool_params_set_num_threads(p, 2);
    qv_threadpool_params_set_request_handler(p, qv_trivial);
    qv_threadpool *pool = qv_threadpool_create(p, nullptr);
    qv_threadpool_params_destroy(p);
    for (auto _ : state) {
        for (int i = 1; i <= kRequests; ++i) qv_threadpool_submit_request(pool, as_item(static_cast<uintptr_t>(i)));
        for (int i = 0; i < kRequests; ++i) benchmark::DoNotOptimize(qv_threadpool_get_result(pool, nullptr));
    }
    qv_threadpool_destroy(pool);
    state.SetItemsProcessed(state.iterations() * kRequests);
}

// GThreadPool has no result queue: the function hands each request to a
// GAsyncQueue that the caller drains, as a user would add one.
void g_to_results(gpointer data, gpointer user) {
    g_async_queue_push(static_cast<GAsyncQueue *>(user), data);
}

void BM_Pool_GThreadPool_results(benchmark::State &state) {
    GAsyncQueue *results = g_async_queue_new();
    GThreadPool *pool = g_thread_pool_new(g_to_results, results, 2, TRUE, nullptr);
    for (auto _ : state) {
        for (int i = 1; i <= kRequests; ++i) g_thread_pool_push(pool, as_item(static_cast<uintptr_t>(i)), nullptr);
        for (int i = 0; i < kRequests; ++i) benchmark::DoNotOptimize(g_async_queue_pop(results));
    }
    g_thread_pool_free(pool, FALSE, TRUE);
    g_async_queue_unref(results);
    state.SetItemsProcessed(state.iterations() * kRequests);
}

// GThreadPool doing only the work (a counter), the caller waiting for the
// batch to complete: a lower bound on what it costs without results.
struct Done {
    std::atomic<int> count{0};
    std::mutex m;
    std::condition_variable cv;
};

void g_count(gpointer data, gpointer user) {
    benchmark::DoNotOptimize(data);
    Done *d = static_cast<Done *>(user);
    if (d->count.fetch_add(1) + 1 == kRequests) {
        std::lock_guard<std::mutex> g(d->m);
        d->cv.notify_one();
    }
}

void BM_Pool_GThreadPool_countonly(benchmark::State &state) {
    Done done;
    GThreadPool *pool = g_thread_pool_new(g_count, &done, 2, TRUE, nullptr);
    for (auto _ : state) {
        done.count = 0;
        for (int i = 1; i <= kRequests; ++i) g_thread_pool_push(pool, as_item(static_cast<uintptr_t>(i)), nullptr);
        std::unique_lock<std::mutex> g(done.m);
        done.cv.wait(g, [&] { return done.count.load() == kRequests; });
    }
    g_thread_pool_free(pool, FALSE, TRUE);
    state.SetItemsProcessed(state.iterations() * kRequests);
}

BENCHMARK(BM_Pool_qv)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Pool_GThreadPool_results)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Pool_GThreadPool_countonly)->UseRealTime()->Unit(benchmark::kMillisecond);

// --- uncontended lock/unlock pairs

void BM_Mutex_qv(benchmark::State &state) {
    qv_mutex *m = qv_mutex_create();
    for (auto _ : state) {
        qv_mutex_lock(m);
        qv_mutex_unlock(m);
    }
    qv_mutex_destroy(m);
}

void BM_Mutex_GRecMutex(benchmark::State &state) {
    GRecMutex m;
    g_rec_mutex_init(&m);
    for (auto _ : state) {
        g_rec_mutex_lock(&m);
        g_rec_mutex_unlock(&m);
    }
    g_rec_mutex_clear(&m);
}

void BM_RwLock_read_qv(benchmark::State &state) {
    qv_rwlock *l = qv_rwlock_create();
    for (auto _ : state) {
        qv_rwlock_rdlock(l);
        qv_rwlock_unlock(l);
    }
    qv_rwlock_destroy(l);
}

void BM_RwLock_read_GRWLock(benchmark::State &state) {
    GRWLock l;
    g_rw_lock_init(&l);
    for (auto _ : state) {
        g_rw_lock_reader_lock(&l);
        g_rw_lock_reader_unlock(&l);
    }
    g_rw_lock_clear(&l);
}

void BM_RwLock_write_qv(benchmark::State &state) {
    qv_rwlock *l = qv_rwlock_create();
    for (auto _ : state) {
        qv_rwlock_wrlock(l);
        qv_rwlock_unlock(l);
    }
    qv_rwlock_destroy(l);
}

void BM_RwLock_write_GRWLock(benchmark::State &state) {
    GRWLock l;
    g_rw_lock_init(&l);
    for (auto _ : state) {
        g_rw_lock_writer_lock(&l);
        g_rw_lock_writer_unlock(&l);
    }
    g_rw_lock_clear(&l);
}

BENCHMARK(BM_Mutex_qv);
BENCHMARK(BM_Mutex_GRecMutex);
BENCHMARK(BM_RwLock_read_qv);
BENCHMARK(BM_RwLock_read_GRWLock);
BENCHMARK(BM_RwLock_write_qv);
BENCHMARK(BM_RwLock_write_GRWLock);

}  // namespace

BENCHMARK_MAIN();
