// The lock queue: order, the end marker, the exact codes, elements, and many
// producers against many consumers.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

#include "qvlib.h"
#include "support/qvtest.h"
#include "util/thread_helpers.h"

namespace {

void *item(uintptr_t n) { return reinterpret_cast<void *>(n); }

TEST(LockQueue, DrainsInOrderAfterTheEndWithTheExactCodes) {
    int err = -1;
    qv_lockqueue *q = qv_lockqueue_create(&err);
    ASSERT_EQ(err, QV_ERROR_NONE);
    EXPECT_EQ(qv_lockqueue_pop_try(q, &err), nullptr);
    EXPECT_EQ(err, QV_ERROR_NOT_FOUND);
    for (uintptr_t i = 1; i <= 3; ++i) ASSERT_EQ(qv_lockqueue_push(q, item(i)), 0);
    qv_lockqueue_set_end(q);
    int stays_with_caller = 0;
    EXPECT_EQ(qv_lockqueue_push(q, &stays_with_caller), QV_ERROR_WRITE);
    qv_lockqueue_element *e = qv_lockqueue_element_create();
    EXPECT_EQ(qv_lockqueue_push_element(q, e), QV_ERROR_WRITE);
    qv_lockqueue_element_destroy(e);  // refused: still ours
    EXPECT_EQ(qv_lockqueue_pop(q, &err), item(1));
    EXPECT_EQ(err, QV_ERROR_NONE);
    EXPECT_EQ(qv_lockqueue_pop_try(q, &err), item(2));
    EXPECT_EQ(qv_lockqueue_pop(q, &err), item(3));
    EXPECT_EQ(err, QV_ERROR_NONE);
    EXPECT_EQ(qv_lockqueue_pop(q, &err), nullptr);  // ended and drained: no blocking
    EXPECT_EQ(err, QV_ERROR_END_OF_FILE);
    EXPECT_EQ(qv_lockqueue_pop_try(q, &err), nullptr);
    EXPECT_EQ(err, QV_ERROR_END_OF_FILE);
    EXPECT_EQ(qv_lockqueue_pop_element_try(q, nullptr), nullptr);
    qv_lockqueue_destroy(q, nullptr);
}

TEST(LockQueue, NullIsAnItemAndElementsComeBackToBeReused) {
    qv_lockqueue *q = qv_lockqueue_create(nullptr);
    ASSERT_EQ(qv_lockqueue_push(q, nullptr), 0);
    qv_lockqueue_element *e = qv_lockqueue_element_create();
    EXPECT_EQ(qv_lockqueue_element_get_item(e), nullptr);
    qv_lockqueue_element_set_item(e, item(9));
    ASSERT_EQ(qv_lockqueue_push_element(q, e), 0);
    int err = -1;
    EXPECT_EQ(qv_lockqueue_pop(q, &err), nullptr);
    EXPECT_EQ(err, QV_ERROR_NONE);
    EXPECT_EQ(qv_lockqueue_pop_element(q, &err), e);
    EXPECT_EQ(qv_lockqueue_element_get_item(e), item(9));
    qv_lockqueue_element_set_item(e, item(10));
    ASSERT_EQ(qv_lockqueue_push_element(q, e), 0);
    EXPECT_EQ(qv_lockqueue_pop_try(q, &err), item(10));
    EXPECT_EQ(qv_lockqueue_pop_try(q, &err), nullptr);
    EXPECT_EQ(err, QV_ERROR_NOT_FOUND);
    qv_lockqueue_destroy(q, nullptr);
}

// Item pushes share allocations between elements; an element popped as such
// must still live on its own: in another queue, with the caller, after its
// first queue is gone.
TEST(LockQueue, ElementsOutliveTheirQueueAndNothingIsLeft) {
#ifdef QV_FAULT_INJECTION
    long live_before = qv::fault::live_blocks();
#endif
    qv_lockqueue *a = qv_lockqueue_create(nullptr);
    qv_lockqueue *b = qv_lockqueue_create(nullptr);
    int err = -1;
    for (int round = 0; round < 3; ++round) {  // beyond what a queue keeps as spares
        for (uintptr_t i = 1; i <= 20000; ++i) ASSERT_EQ(qv_lockqueue_push(a, item(i)), 0);
        for (uintptr_t i = 1; i <= 20000; ++i) ASSERT_EQ(qv_lockqueue_pop_try(a, &err), item(i));
    }
    for (uintptr_t i = 1; i <= 100; ++i) ASSERT_EQ(qv_lockqueue_push(a, item(i)), 0);
    std::vector<qv_lockqueue_element *> mine;
    for (uintptr_t i = 1; i <= 100; ++i) {
        qv_lockqueue_element *e = qv_lockqueue_pop_element(a, &err);
        if (i % 2 == 0) {
            ASSERT_EQ(qv_lockqueue_push_element(b, e), 0);
        } else {
            mine.push_back(e);
        }
    }
    qv_lockqueue_destroy(a, nullptr);
    for (qv_lockqueue_element *e : mine) {
        EXPECT_NE(qv_lockqueue_element_get_item(e), nullptr);
        qv_lockqueue_element_destroy(e);
    }
    for (uintptr_t i = 2; i <= 100; i += 2) EXPECT_EQ(qv_lockqueue_pop_try(b, &err), item(i));
    qv_lockqueue_destroy(b, nullptr);
#ifdef QV_FAULT_INJECTION
    EXPECT_EQ(qv::fault::live_blocks(), live_before);
#endif
}

std::vector<uintptr_t> g_destroyed;

TEST(LockQueue, DestroyHandsLeftItemsToTheCallbackHeadFirst) {
    qv_lockqueue *q = qv_lockqueue_create(nullptr);
    for (uintptr_t i = 1; i <= 4; ++i) ASSERT_EQ(qv_lockqueue_push(q, item(i)), 0);
    int err;
    EXPECT_EQ(qv_lockqueue_pop(q, &err), item(1));
    g_destroyed.clear();
    qv_lockqueue_destroy(q, [](void *it) { g_destroyed.push_back(reinterpret_cast<uintptr_t>(it)); });
    EXPECT_EQ(g_destroyed, (std::vector<uintptr_t>{2, 3, 4}));
}

TEST(LockQueue, BlockedPopsWakeForAnItemAndForTheEnd) {
    qv_lockqueue *q = qv_lockqueue_create(nullptr);
    std::atomic<long> tids[3] = {0, 0, 0};
    int errs[3] = {-1, -1, -1};
    void *got[3] = {item(1), item(1), item(1)};
    std::vector<std::thread> consumers;
    for (int i = 0; i < 3; ++i)
        consumers.emplace_back([&, i] {
            tids[i] = qvtest::current_tid();
            got[i] = qv_lockqueue_pop(q, &errs[i]);
        });
    for (auto &t : tids) qvtest::wait_until_blocked(t);
    ASSERT_EQ(qv_lockqueue_push(q, item(77)), 0);  // one of them takes it
    qv_lockqueue_set_end(q);                       // the others see the end
    for (auto &t : consumers) t.join();
    int items = 0, ends = 0;
    for (int i = 0; i < 3; ++i) {
        items += got[i] == item(77) && errs[i] == QV_ERROR_NONE;
        ends += got[i] == nullptr && errs[i] == QV_ERROR_END_OF_FILE;
    }
    EXPECT_EQ(items, 1);
    EXPECT_EQ(ends, 2);
    qv_lockqueue_destroy(q, nullptr);
}

// Items carry (producer, sequence): each consumer checks every producer's
// sequence rises, and together they got every item exactly once.
TEST(LockQueue, ManyProducersManyConsumersEveryItemOnceInProducerOrder) {
    const int kProducers = 4, kConsumers = 4;
    const uintptr_t kItems = qvtest::kThreadSanitizer ? 200000 : 1000000;
    qv_lockqueue *q = qv_lockqueue_create(nullptr);
    std::vector<std::vector<uint8_t>> seen(kProducers, std::vector<uint8_t>(kItems, 0));
    std::atomic<int> errors{0};
    std::vector<std::thread> threads;
    for (int c = 0; c < kConsumers; ++c)
        threads.emplace_back([&] {
            std::vector<long> last(kProducers, -1);
            for (int err = QV_ERROR_NONE;;) {
                uintptr_t v = reinterpret_cast<uintptr_t>(qv_lockqueue_pop(q, &err)) - 1;
                if (err != QV_ERROR_NONE) {
                    errors.fetch_add(err != QV_ERROR_END_OF_FILE);
                    break;
                }
                int p = static_cast<int>(v % kProducers);
                long seq = static_cast<long>(v / kProducers);
                errors.fetch_add(seq <= last[p]);  // out of the producer's order
                last[p] = seq;
                errors.fetch_add(seen[p][seq]++ != 0);  // a duplicate
            }
        });
    std::vector<std::thread> producers;
    for (uintptr_t p = 0; p < kProducers; ++p)
        producers.emplace_back([&, p] {
            for (uintptr_t s = 0; s < kItems; ++s) errors.fetch_add(qv_lockqueue_push(q, item(s * kProducers + p + 1)) != 0);
        });
    for (auto &t : producers) t.join();
    qv_lockqueue_set_end(q);
    for (auto &t : threads) t.join();
    EXPECT_EQ(errors.load(), 0);
    size_t missing = 0;
    for (auto &v : seen)
        for (uint8_t b : v) missing += b == 0;
    EXPECT_EQ(missing, 0u);
    qv_lockqueue_destroy(q, nullptr);
}

TEST(LockQueue, EveryAllocationFailureIsReportedWithItsCode) {
    qvtest::alloc_failure_sweep([&](unsigned long failing) {
        int err = -1;
        qv_lockqueue *q = qv_lockqueue_create(&err);
        if (q == nullptr) {  // the queue itself, or its condition object
            EXPECT_TRUE(failing != 0 && (err == QV_ERROR_NO_MEMORY || err == QV_ERROR_GENERIC)) << err;
            return;
        }
        int pushed = 0;
        for (uintptr_t i = 1; i <= 3; ++i) {
            int r = qv_lockqueue_push(q, item(i));
            EXPECT_TRUE(r == 0 || r == QV_ERROR_NO_MEMORY);
            pushed += r == 0;
        }
        qv_lockqueue_element *e = qv_lockqueue_element_create();
        if (e != nullptr) {
            ASSERT_EQ(qv_lockqueue_push_element(q, e), 0);
            ++pushed;
        }
        EXPECT_TRUE(failing != 0 || pushed == 4);
        while (qv_lockqueue_pop_try(q, &err) != nullptr || err == QV_ERROR_NONE) --pushed;
        EXPECT_EQ(err, QV_ERROR_NOT_FOUND);
        EXPECT_EQ(pushed, 0);
        qv_lockqueue_destroy(q, nullptr);
    });
}

TEST(LockQueueDeathTest, ArgumentsAreAsserted) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    qv_lockqueue *q = qv_lockqueue_create(nullptr);
    EXPECT_DEATH(qv_lockqueue_push(nullptr, nullptr), "src/util/qvlockqueue.cpp:[0-9]+: Assertion `queue' failed.");
    EXPECT_DEATH(qv_lockqueue_pop(q, nullptr), "src/util/qvlockqueue.cpp:[0-9]+: Assertion `error_out != NULL' failed.");
    EXPECT_DEATH(qv_lockqueue_pop_try(q, nullptr), "src/util/qvlockqueue.cpp:[0-9]+: Assertion `error_out != NULL' failed.");
    EXPECT_DEATH(qv_lockqueue_element_get_item(nullptr), "src/util/qvlockqueue.cpp:[0-9]+: Assertion `element' failed.");
    qv_lockqueue_destroy(q, nullptr);
}

}  // namespace
