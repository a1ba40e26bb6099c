// Threads, mutexes, condition objects and the readers/writer lock.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
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
    qv_thread *t = qv_thread_create();
    ASSERT_NE(t, nullptr);
    int calls = 0;
    ASSERT_EQ(qv_thread_start(t, return_42, &calls), 0);
    unsigned int result = 7;
    EXPECT_EQ(qv_thread_join(t, &result), 0);
    EXPECT_EQ(result, 42u);
    EXPECT_EQ(calls, 1);
    qv_thread_destroy(t);

    t = qv_thread_create();
    ASSERT_EQ(qv_thread_start(t, return_42, &calls), 0);
    EXPECT_EQ(qv_thread_join(t, nullptr), 0);  // the value may be discarded
    EXPECT_EQ(calls, 2);
    qv_thread_destroy(t);
}

TEST(Thread, DestroyWithoutJoinLeavesTheThreadRunning) {
    static std::atomic<int> phase{0};
    phase = 0;
    qv_thread *t = qv_thread_create();
    ASSERT_EQ(qv_thread_start(
                  t,
                  [](void *) -> unsigned int {
                      while (phase.load() == 0) std::this_thread::yield();
                      phase = 2;
                      return 5;
                  },
                  nullptr),
              0);
    qv_thread_destroy(t);  // the thread still runs and still stores its value
    phase = 1;
    while (phase.load() != 2) std::this_thread::yield();
}

// Runs in a child: caps the address space so that no thread stack can be
// mapped, then lifts the cap and starts the same object again.
void start_without_address_space() {
    qv_thread *t = qv_thread_create();
    qv_log_raw(nullptr, 99, "%0512d", 0);  // the log's buffers, made now
    struct rlimit old;
    getrlimit(RLIMIT_AS, &old);
    rlim_t pages = std::stoul(qvtest::read_file("/proc/self/statm"));
    struct rlimit low = {pages * 4096 + (1u << 20), old.rlim_max};
    setrlimit(RLIMIT_AS, &low);
    int calls = 0;
    int err = qv_thread_start(t, return_42, &calls);
    setrlimit(RLIMIT_AS, &old);
    if (err != EAGAIN) _exit(100 + err);
    if (qv_thread_start(t, return_42, &calls) != 0) _exit(2);  // back in state NONE
    unsigned int r = 0;
    if (qv_thread_join(t, &r) != 0 || r != 42) _exit(3);
    _exit(0);
}

TEST(Thread, FailedStartReturnsThePlatformErrorAndAllowsAnotherStart) {
    if (std::string(QV_SANITIZE) != "")
        GTEST_SKIP() << "an address-space limit also starves the sanitizer's allocator";
    // A fresh process: a forked one could reuse a cached stack of an ended thread.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(start_without_address_space(), ::testing::ExitedWithCode(0),
                "\\[7\\] _beginthreadex\\(\\) returned error 11");
}

TEST(Thread, CreateReportsMissingMemory) {
    qvtest::LogCapture log;
    QV_LOG(16, "grow the log's prefix buffer before counting blocks");
    qvtest::alloc_failure_sweep([&](unsigned long failing) {
        qv_thread *t = qv_thread_create();
        if (failing != 0) {
            EXPECT_EQ(t, nullptr);
            EXPECT_TRUE(log.has(7, "not enough memory for thread context"));
            return;
        }
        ASSERT_NE(t, nullptr);
        int calls = 0;
        ASSERT_EQ(qv_thread_start(t, return_42, &calls), 0);
        ASSERT_EQ(qv_thread_join(t, nullptr), 0);
        qv_thread_destroy(t);
    });
}

using ThreadDeathTest = ::testing::Test;

TEST(ThreadDeathTest, StartAndJoinOnlyInTheirStates) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    int calls = 0;
    EXPECT_DEATH(
        {
            qv_thread *t = qv_thread_create();
            qv_thread_start(t, return_42, &calls);
            qv_thread_start(t, return_42, &calls);
        },
        "src/util/qvthread.cpp:[0-9]+: Assertion `qvthread->state == QV_THREAD_STATE_NONE' failed.");
    EXPECT_DEATH(
        {
            qv_thread *t = qv_thread_create();
            qv_thread_start(t, return_42, &calls);
            qv_thread_join(t, nullptr);
            qv_thread_start(t, return_42, &calls);
        },
        "src/util/qvthread.cpp:[0-9]+: Assertion `qvthread->state == QV_THREAD_STATE_NONE' failed.");
    EXPECT_DEATH(
        {
            qv_thread *t = qv_thread_create();
            qv_thread_join(t, nullptr);
        },
        "src/util/qvthread.cpp:[0-9]+: Assertion `qvthread->state == QV_THREAD_STATE_RUNNING' failed.");
    EXPECT_DEATH(
        {
            qv_thread *t = qv_thread_create();
            qv_thread_start(t, return_42, &calls);
            qv_thread_join(t, nullptr);
            qv_thread_join(t, nullptr);
        },
        "src/util/qvthread.cpp:[0-9]+: Assertion `qvthread->state == QV_THREAD_STATE_RUNNING' failed.");
    EXPECT_DEATH(qv_thread_start(nullptr, return_42, nullptr),
                 "src/util/qvthread.cpp:[0-9]+: Assertion `qvthread != NULL' failed.");
    EXPECT_DEATH(
        {
            qv_thread *t = qv_thread_create();
            qv_thread_start(t, nullptr, nullptr);
            qv_thread_join(t, nullptr);
        },
        "src/util/qvthread.cpp:[0-9]+: Assertion `qvthread->startfunction != NULL' failed.");
    EXPECT_DEATH(qv_cond_wait(nullptr), "src/util/qvcond.cpp:[0-9]+: Assertion `qvcond != NULL' failed.");
    EXPECT_DEATH(qv_rwlock_rdlock(nullptr),
                 "src/util/qvrwlock.cpp:[0-9]+: Assertion `qvrwlock != NULL' failed.");
    EXPECT_DEATH(qv_mutex_lock(nullptr), "src/util/qvmutex.cpp:[0-9]+: Assertion `qvmutex != NULL' failed.");
}

TEST(ThreadDeathTest, UnlockingWhatIsNotHeldIsAnAssertion) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            qv_rwlock *l = qv_rwlock_create();
            qv_rwlock_unlock(l);
        },
        "src/util/qvrwlock.cpp:[0-9]+: Assertion `qvrwlock->readercount > 0' failed.");
    EXPECT_DEATH(
        {
            qv_mutex *m = qv_mutex_create();
            qv_mutex_unlock(m);  // recursive mutexes know their owner
        },
        "src/util/qvmutex.cpp:[0-9]+: Assertion `err == 0' failed.");
}

TEST(Mutex, IsRecursiveAndExcludesOtherThreads) {
    qv_mutex *m = qv_mutex_create();
    ASSERT_NE(m, nullptr);
    qv_mutex_lock(m);
    qv_mutex_lock(m);
    qv_mutex_unlock(m);
    qv_mutex_unlock(m);

    long counter = 0;  // guarded by m; a race shows as a lost update (and under TSan)
    const int kThreads = 4, kRounds = qvtest::kThreadSanitizer ? 20000 : 200000;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
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
    EXPECT_EQ(counter, static_cast<long>(kThreads) * kRounds);
    qv_mutex_destroy(m);
}

TEST(Cond, SignalHandsOverAndBroadcastWakesEveryWaiter) {
    qv_cond *c = qv_cond_create();
    ASSERT_NE(c, nullptr);
    int tickets = 0, served = 0;  // guarded by c's lock
    const int kWaiters = 5;
    std::vector<std::thread> waiters;
    for (int i = 0; i < kWaiters; ++i)
        waiters.emplace_back([&] {
            qv_cond_lock(c);
            while (tickets == 0) qv_cond_wait(c);
            --tickets;
            ++served;
            qv_cond_unlock(c);
        });
    // One signal per ticket: each wakes at least one waiter, and waiters
    // re-check, so exactly two get through.
    for (int i = 0; i < 2; ++i) {
        qv_cond_lock(c);
        ++tickets;
        qv_cond_signal(c);
        qv_cond_unlock(c);
    }
    for (;;) {
        qv_cond_lock(c);
        int s = served;
        qv_cond_unlock(c);
        if (s == 2) break;
        std::this_thread::yield();
    }
    qv_cond_lock(c);
    tickets += kWaiters - 2;
    qv_cond_broadcast(c);
    qv_cond_unlock(c);
    for (auto &t : waiters) t.join();
    EXPECT_EQ(served, kWaiters);
    EXPECT_EQ(tickets, 0);
    qv_cond_destroy(c);
}

TEST(Locks, CreationFailsCleanlyWithoutMemory) {
    qvtest::alloc_failure_sweep([&](unsigned long failing) {
        qv_mutex *m = qv_mutex_create();
        qv_cond *c = qv_cond_create();
        qv_rwlock *l = qv_rwlock_create();
        if (failing != 0) {
            EXPECT_TRUE(m == nullptr || c == nullptr || l == nullptr);
        }
        if (m != nullptr) qv_mutex_destroy(m);
        if (c != nullptr) qv_cond_destroy(c);
        if (l != nullptr) qv_rwlock_destroy(l);
    });
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

TEST(RwLock, AnnouncedWriterKeepsNewReadersOut) {
    qv_rwlock *l = qv_rwlock_create();
    ASSERT_NE(l, nullptr);
    Order order;
    std::atomic<long> writer_tid{0}, reader_tid{0};
    qv_rwlock_rdlock(l);
    qv_rwlock_rdlock(l);  // two read holds at once: readers share
    std::thread writer([&] {
        writer_tid = qvtest::current_tid();
        qv_rwlock_wrlock(l);
        order.add('W');
        qv_rwlock_unlock(l);
    });
    qvtest::wait_until_blocked(writer_tid);
    std::thread reader([&] {
        reader_tid = qvtest::current_tid();
        qv_rwlock_rdlock(l);
        order.add('R');
        qv_rwlock_unlock(l);
    });
    qvtest::wait_until_blocked(reader_tid);
    order.add('u');
    qv_rwlock_unlock(l);  // a reader leaves: the writer still waits for the other
    order.add('u');
    qv_rwlock_unlock(l);
    writer.join();
    reader.join();
    EXPECT_EQ(order.seen, "uuWR");
    qv_rwlock_destroy(l);
}

TEST(RwLock, WriterHandsOverToTheNextWriterBeforeReaders) {
    qv_rwlock *l = qv_rwlock_create();
    Order order;
    std::atomic<long> w2_tid{0}, r_tid{0};
    qv_rwlock_wrlock(l);
    std::thread w2([&] {
        w2_tid = qvtest::current_tid();
        qv_rwlock_wrlock(l);
        order.add('2');
        qv_rwlock_unlock(l);
    });
    qvtest::wait_until_blocked(w2_tid);
    std::thread r([&] {
        r_tid = qvtest::current_tid();
        qv_rwlock_rdlock(l);
        order.add('R');
        qv_rwlock_unlock(l);
    });
    qvtest::wait_until_blocked(r_tid);
    order.add('1');
    qv_rwlock_unlock(l);
    w2.join();
    r.join();
    EXPECT_EQ(order.seen, "12R");
    qv_rwlock_destroy(l);
}

TEST(RwLock, ReadersNeverBesideAWriterWritersNeverTogether) {
    qv_rwlock *l = qv_rwlock_create();
    std::atomic<int> readers{0}, writers{0}, violations{0};
    long value = 0;  // written under the write lock, read under the read lock
    const int kRounds = qvtest::kThreadSanitizer ? 3000 : 30000;
    const int kReaders = 4, kWriters = 3;
    std::vector<std::thread> threads;
    for (int i = 0; i < kReaders; ++i)
        threads.emplace_back([&] {
            for (int r = 0; r < kRounds; ++r) {
                qv_rwlock_rdlock(l);
                readers.fetch_add(1);
                if (writers.load() != 0) violations.fetch_add(1);
                long seen = value;
                if (seen < 0) violations.fetch_add(1);
                readers.fetch_sub(1);
                qv_rwlock_unlock(l);
            }
        });
    for (int i = 0; i < kWriters; ++i)
        threads.emplace_back([&] {
            for (int r = 0; r < kRounds; ++r) {
                qv_rwlock_wrlock(l);
                if (writers.fetch_add(1) != 0) violations.fetch_add(1);
                if (readers.load() != 0) violations.fetch_add(1);
                ++value;
                writers.fetch_sub(1);
                qv_rwlock_unlock(l);
            }
        });
    for (auto &t : threads) t.join();
    EXPECT_EQ(violations.load(), 0);
    EXPECT_EQ(value, static_cast<long>(kWriters) * kRounds);
    qv_rwlock_destroy(l);
}

TEST(RwLock, WritersAreNotStarvedByAStreamOfReaders) {
    qv_rwlock *l = qv_rwlock_create();
    std::atomic<bool> writer_done{false};
    std::atomic<long> reads{0};
    // Readers overlap one another (each holds across a yield), so a lock that
    // let readers in beside waiting writers would never drain. They stop on
    // their own after a bound, far beyond what a fair hand-over needs.
    const long kReadBound = 2000000;
    const int kWrites = 50;
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
    long reads_when_done = 0;
    std::thread writer([&] {
        for (int i = 0; i < kWrites; ++i) {
            qv_rwlock_wrlock(l);
            qv_rwlock_unlock(l);
        }
        reads_when_done = reads.load();
        writer_done = true;
    });
    writer.join();
    for (auto &t : readers) t.join();
    EXPECT_LT(reads_when_done, kReadBound);
    qv_rwlock_destroy(l);
}

}  // namespace
