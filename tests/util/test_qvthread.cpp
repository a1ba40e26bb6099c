// Threads, mutexes, condition objects and the readers/writer lock.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <atomic>
#include <memory>
#include <cerrno>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "qvlib.h"
#include "support/qvtest.h"
#include "util/thread_helpers.h"

namespace {

unsigned int return_42(void *arg) {
    *static_cast<int *>(arg) += 1;
    return 42;
}

TEST(Thread, StartJoinHandsBackTheFunctionsValue) {
    int calls = 0;
    unsigned int result = 7;
    for (unsigned int *want : {&result, static_cast<unsigned int *>(nullptr)}) {  // the value may be discarded
        qv_thread *t = qv_thread_create();
        ASSERT_EQ(qv_thread_start(t, return_42, &calls), 0);
        EXPECT_EQ(qv_thread_join(t, want), 0);
        EXPECT_TRUE(want == nullptr || *want == 42u);
        qv_thread_destroy(t);
    }
    EXPECT_EQ(calls, 2);
}

TEST(Thread, DestroyWithoutJoinLeavesTheThreadRunning) {
    static std::atomic<int> phase{0};
    qv_thread *t = qv_thread_create();
    auto fn = [](void *) -> unsigned int {
        while (phase.load() == 0) std::this_thread::yield();
        phase = 2;
        return 5;  // stored after the owner has let go (ASan watches)
    };
    ASSERT_EQ(qv_thread_start(t, fn, nullptr), 0);
    qv_thread_destroy(t);
    phase = 1;
    while (phase.load() != 2) std::this_thread::yield();
}

// In a child: with the address space capped no thread stack can be mapped;
// with the cap lifted the same object starts.
void start_without_address_space() {
    int calls = 0;
    unsigned int r = 0;
    qv_thread *t = qv_thread_create();
    qv_log_raw(nullptr, 99, "%0512d", 0);  // the log's buffers, made now
    struct rlimit old;
    getrlimit(RLIMIT_AS, &old);
    struct rlimit low = {std::stoul(qvtest::read_file("/proc/self/statm")) * 4096 + (1u << 20), old.rlim_max};
    setrlimit(RLIMIT_AS, &low);
    int err = qv_thread_start(t, return_42, &calls);
    setrlimit(RLIMIT_AS, &old);
    if (err != EAGAIN) _exit(100 + err);
    if (qv_thread_start(t, return_42, &calls) != 0 || qv_thread_join(t, &r) != 0 || r != 42) _exit(2);
    _exit(0);
}

TEST(Thread, FailedStartReturnsThePlatformErrorAndAllowsAnotherStart) {
    if (std::string(QV_SANITIZE) != "") GTEST_SKIP() << "the cap would starve the sanitizer too";
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // a fresh process has no cached stacks
    EXPECT_EXIT(start_without_address_space(), ::testing::ExitedWithCode(0),
                "\\[7\\] _beginthreadex\\(\\) returned error 11");
}

TEST(Thread, CreationFailsCleanlyWithoutMemory) {
    qvtest::LogCapture log;
    QV_LOG(16, "grow the log's prefix buffer before counting blocks");
    qvtest::alloc_failure_sweep([&](unsigned long failing) {
        log.clear();
        qv_thread *t = qv_thread_create();
        qv_mutex *m = qv_mutex_create();
        qv_cond *c = qv_cond_create();
        qv_rwlock *l = qv_rwlock_create();
        if (failing != 0) {
            EXPECT_TRUE(t == nullptr || m == nullptr || c == nullptr || l == nullptr);
            EXPECT_EQ(t == nullptr, log.has(7, "not enough memory for thread context"));
        }
        int calls = 0;
        if (t != nullptr) {
            ASSERT_EQ(qv_thread_start(t, return_42, &calls), 0);
            ASSERT_EQ(qv_thread_join(t, nullptr), 0);
            qv_thread_destroy(t);
        }
        if (m != nullptr) qv_mutex_destroy(m);
        if (c != nullptr) qv_cond_destroy(c);
        if (l != nullptr) qv_rwlock_destroy(l);
    });
}

#define DIES(call, file, expr) EXPECT_DEATH(call, "src/util/" file ":[0-9]+: Assertion `" expr "' failed.")
TEST(ThreadDeathTest, StartAndJoinOnlyInTheirStates) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    int calls = 0;
    qv_thread *t = qv_thread_create();
#define RUNNING "qvthread->state == QV_THREAD_STATE_RUNNING"
#define NONE "qvthread->state == QV_THREAD_STATE_NONE"
    DIES(qv_thread_join(t, nullptr), "qvthread.cpp", RUNNING);
    ASSERT_EQ(qv_thread_start(t, return_42, &calls), 0);
    DIES(qv_thread_start(t, return_42, &calls), "qvthread.cpp", NONE);
    ASSERT_EQ(qv_thread_join(t, nullptr), 0);
    DIES(qv_thread_start(t, return_42, &calls), "qvthread.cpp", NONE);
    DIES(qv_thread_join(t, nullptr), "qvthread.cpp", RUNNING);
    qv_thread_destroy(t);
    DIES(qv_thread_start(nullptr, return_42, nullptr), "qvthread.cpp", "qvthread != NULL");
    DIES(qv_cond_wait(nullptr), "qvcond.cpp", "qvcond != NULL");
    qv_rwlock *l = qv_rwlock_create();
    DIES(qv_rwlock_unlock(l), "qvrwlock.cpp", "readercount > 0");
    qv_rwlock_destroy(l);
    qv_mutex *m = qv_mutex_create();  // a recursive mutex knows its owner
    DIES(qv_mutex_unlock(m), "qvmutex.cpp", "err == 0");
    qv_mutex_destroy(m);
}

TEST(Mutex, IsRecursiveAndExcludesOtherThreads) {
    qv_mutex *m = qv_mutex_create();
    long counter = 0;  // a lost update (or TSan) shows a hole in the exclusion
    const int kRounds = qvtest::kThreadSanitizer ? 20000 : 200000;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int r = 0; r < kRounds; ++r) {
                qv_mutex_lock(m);
                qv_mutex_lock(m);
                ++counter;
                qv_mutex_unlock(m);
                qv_mutex_unlock(m);
            }
        });
    for (auto &t : threads) t.join();
    EXPECT_EQ(counter, 4L * kRounds);
    qv_mutex_destroy(m);
}

TEST(Cond, SignalWakesOneAtATimeAndBroadcastWakesAll) {
    qv_cond *c = qv_cond_create();
    int tickets = 0, served = 0;  // guarded by c's lock
    std::vector<std::thread> waiters;
    for (int i = 0; i < 5; ++i)
        waiters.emplace_back([&] {
            qv_cond_lock(c);
            while (tickets == 0) qv_cond_wait(c);
            --tickets;
            ++served;
            qv_cond_unlock(c);
        });
    auto add = [&](int n, bool all) {
        qv_cond_lock(c);
        tickets += n;
        all ? qv_cond_broadcast(c) : qv_cond_signal(c);
        qv_cond_unlock(c);
    };
    add(1, false);
    add(1, false);
    for (int s = 0; s != 2; std::this_thread::yield()) {
        qv_cond_lock(c);
        s = served;
        qv_cond_unlock(c);
    }
    add(3, true);
    for (auto &t : waiters) t.join();
    EXPECT_EQ(served, 5);
    EXPECT_EQ(tickets, 0);
    qv_cond_destroy(c);
}

// Records the order in which threads got the lock.
struct Order {
    std::mutex m;
    std::string seen;
    void add(char c) {
        std::lock_guard<std::mutex> g(m);
        seen += c;
    }
};

// Starts a thread that takes the lock (write or read), notes c, and leaves;
// returns once the thread is blocked waiting for it.
std::thread blocked_locker(qv_rwlock *l, bool write, Order &order, char c) {
    auto tid = std::make_shared<std::atomic<long>>(0);
    std::thread t([=, &order] {
        *tid = qvtest::current_tid();
        write ? qv_rwlock_wrlock(l) : qv_rwlock_rdlock(l);
        order.add(c);
        qv_rwlock_unlock(l);
    });
    qvtest::wait_until_blocked(*tid);
    return t;
}

TEST(RwLock, AnnouncedWriterGoesFirstAndHandsOverToTheNextWriter) {
    qv_rwlock *l = qv_rwlock_create();
    Order order;
    qv_rwlock_rdlock(l);
    qv_rwlock_rdlock(l);  // two read holds at once: readers share
    std::thread w = blocked_locker(l, true, order, 'W');
    std::thread r = blocked_locker(l, false, order, 'R');
    order.add('u');
    qv_rwlock_unlock(l);  // the writer still waits for the other reader
    order.add('u');
    qv_rwlock_unlock(l);
    w.join();
    r.join();
    // A writer's unlock goes to the next writer before the readers.
    qv_rwlock_wrlock(l);
    std::thread w2 = blocked_locker(l, true, order, '2');
    std::thread r2 = blocked_locker(l, false, order, 'r');
    order.add('1');
    qv_rwlock_unlock(l);
    w2.join();
    r2.join();
    EXPECT_EQ(order.seen, "uuWR12r");
    qv_rwlock_destroy(l);
}

TEST(RwLock, ReadersNeverBesideAWriterWritersNeverTogether) {
    qv_rwlock *l = qv_rwlock_create();
    std::atomic<int> readers{0}, writers{0}, violations{0};
    long value = 0;  // written under the write lock, read under the read lock
    const int kRounds = qvtest::kThreadSanitizer ? 3000 : 30000;
    std::vector<std::thread> threads;
    for (int i = 0; i < 7; ++i)
        threads.emplace_back([&, writer = i < 3] {
            for (int r = 0; r < kRounds; ++r) {
                if (writer) {
                    qv_rwlock_wrlock(l);
                    if (writers.fetch_add(1) != 0 || readers.load() != 0) violations.fetch_add(1);
                    ++value;
                    writers.fetch_sub(1);
                } else {
                    qv_rwlock_rdlock(l);
                    readers.fetch_add(1);
                    if (writers.load() != 0 || value < 0) violations.fetch_add(1);
                    readers.fetch_sub(1);
                }
                qv_rwlock_unlock(l);
            }
        });
    for (auto &t : threads) t.join();
    EXPECT_EQ(violations.load(), 0);
    EXPECT_EQ(value, 3L * kRounds);
    qv_rwlock_destroy(l);
}

TEST(RwLock, WritersAreNotStarvedByAStreamOfReaders) {
    qv_rwlock *l = qv_rwlock_create();
    std::atomic<bool> writer_done{false};
    std::atomic<long> reads{0};
    // Readers overlap (each holds across a yield), so a lock that let them in
    // beside a waiting writer would never drain; they give up after a bound
    // far beyond what a fair hand-over needs.
    const long kReadBound = 2000000;
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i)
        readers.emplace_back([&] {
            while (!writer_done.load() && reads.load() < kReadBound) {
                qv_rwlock_rdlock(l);
                reads.fetch_add(1);
                std::this_thread::yield();
                qv_rwlock_unlock(l);
            }
        });
    while (reads.load() < 100) std::this_thread::yield();
    for (int i = 0; i < 50; ++i) {
        qv_rwlock_wrlock(l);
        qv_rwlock_unlock(l);
    }
    long reads_when_done = reads.load();
    writer_done = true;
    for (auto &t : readers) t.join();
    EXPECT_LT(reads_when_done, kReadBound);
    qv_rwlock_destroy(l);
}

}  // namespace
