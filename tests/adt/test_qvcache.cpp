// The memory-limited cache: the 24-byte accounting, the exactly-full
// boundary, oldest-first eviction that lookups do not refresh, replacement,
// the memory limit, and allocation failures.
#include <string>
#include <vector>

#include "support/qvtest.h"

namespace {

std::string get(qv_cache *c, const char *key) {
    const void *data = reinterpret_cast<const void *>(1);
    size_t size = 99;
    int rc = qv_cache_get(c, key, &data, &size);
    if (rc != 0) {
        EXPECT_EQ(rc, QV_ERROR_NOT_FOUND);
        EXPECT_EQ(data, nullptr);
        EXPECT_EQ(size, 0u);
        return "<missing>";
    }
    return std::string(static_cast<const char *>(data), size);
}

int set(qv_cache *c, const char *key, const std::string &data) {
    return qv_cache_set(c, key, data.data(), data.size());
}

TEST(Cache, TheBudgetBoundaries) {
    qvtest::LogCapture log;
    qv_cache *c = qv_cache_create(100);
    ASSERT_NE(c, nullptr);
    log.clear();
    // 1 + 24 + 74 = 99 bytes: fits.
    EXPECT_EQ(set(c, "k", std::string(74, 'a')), 0);
    EXPECT_TRUE(log.lines().empty());
    // 1 + 24 + 75 = 100 bytes: the replacement fills the cache exactly, is reported, and kept.
    EXPECT_EQ(set(c, "k", std::string(75, 'b')), QV_ERROR_INTERNAL);
    EXPECT_TRUE(log.has(7, "INTERNAL ERROR: usesize 100 exceeds the maxsize 100"));
    EXPECT_EQ(get(c, "k"), std::string(75, 'b'));
    // One byte more than the budget: refused, and nothing is evicted for it.
    ASSERT_EQ(set(c, "a", "x"), 0);
    EXPECT_EQ(set(c, "z", std::string(76, 'z')), QV_ERROR_OUT_OF_RANGE);
    EXPECT_TRUE(log.has(6, "cache item size exceeds the maximum cache size limit (101 > 100 bytes)"));
    EXPECT_EQ(get(c, "a"), "x");
    EXPECT_EQ(get(c, "z"), "<missing>");
    qv_cache_destroy(c);
}

TEST(Cache, EvictsOldestFirstAndLookupsDoNotRefresh) {
    qv_cache *c = qv_cache_create(100);
    // Each item: 1 + 24 + 5 = 30 bytes; three fill 90.
    ASSERT_EQ(set(c, "a", "aaaaa"), 0);
    ASSERT_EQ(set(c, "b", "bbbbb"), 0);
    ASSERT_EQ(set(c, "c", "ccccc"), 0);
    EXPECT_EQ(get(c, "a"), "aaaaa");
    ASSERT_EQ(set(c, "d", "ddddd"), 0);  // needs usesize <= 70: a goes
    EXPECT_EQ(get(c, "a"), "<missing>");
    EXPECT_EQ(get(c, "b"), "bbbbb");
    // Replacing b makes it the newest: c is the next to go.
    ASSERT_EQ(set(c, "b", "BBBBB"), 0);
    ASSERT_EQ(set(c, "e", "eeeee"), 0);
    EXPECT_EQ(get(c, "c"), "<missing>");
    EXPECT_EQ(get(c, "b"), "BBBBB");
    EXPECT_EQ(get(c, "d"), "ddddd");
    EXPECT_EQ(get(c, "e"), "eeeee");
    // A bigger item pushes out as many as it needs, oldest first (d, then b).
    ASSERT_EQ(set(c, "f", std::string(40, 'f')), 0);  // 65 bytes: needs usesize <= 35
    EXPECT_EQ(get(c, "d"), "<missing>");
    EXPECT_EQ(get(c, "b"), "<missing>");
    EXPECT_EQ(get(c, "e"), "eeeee");
    qv_cache_destroy(c);
}

TEST(Cache, MemoryLimitEvictsDownToTheNewBudget) {
    qv_cache *c = qv_cache_create(1000);
    for (char k = 'a'; k <= 'j'; ++k) {
        char key[2] = {k, 0};
        ASSERT_EQ(set(c, key, std::string(25, k)), 0);  // 50 bytes each
    }
    qv_cache_set_memory_limit(c, 220);  // keeps the 4 newest
    EXPECT_EQ(get(c, "f"), "<missing>");
    EXPECT_EQ(get(c, "g"), std::string(25, 'g'));
    EXPECT_EQ(get(c, "j"), std::string(25, 'j'));
    qv_cache_set_memory_limit(c, 0);
    for (const char *k : {"g", "h", "i", "j"}) EXPECT_EQ(get(c, k), "<missing>");
    EXPECT_EQ(set(c, "k", ""), QV_ERROR_OUT_OF_RANGE);  // even 25 bytes exceed 0
    qv_cache_set_memory_limit(c, 100);
    EXPECT_EQ(set(c, "x", ""), 0);  // empty data is an item too
    EXPECT_EQ(get(c, "x"), "");
    qv_cache_destroy(c);
}

TEST(Cache, OverflowingSizesAreRefused) {
    qvtest::LogCapture log;
    qv_cache *c = qv_cache_create(SIZE_MAX);
    char byte = 0;
    EXPECT_EQ(qv_cache_set(c, "key", &byte, SIZE_MAX - 10), QV_ERROR_OUT_OF_RANGE);
    EXPECT_TRUE(log.has(6, "cache item data too large"));
    qv_cache_destroy(c);
}

TEST(Cache, AllocationFailures) {
    qvtest::LogCapture log;
    qvtest::alloc_failure_sweep([&](unsigned long failing) {
        log.clear();
        qv_cache *c = qv_cache_create(400);
        if (c == nullptr) {
            ASSERT_NE(failing, 0u);
            EXPECT_TRUE(log.has(7, "not enough memory for cache context") ||
                        log.has(7, "not enough memory for cache item list") ||
                        log.has(7, "not enough memory for a hashtable"));
            return;
        }
        // Enough sets to grow the table and evict, plus a replacement.
        int nomem = 0, notadded = 0, rc = 0;
        for (int i = 0; i < 24; ++i) {
            std::string key = "key" + std::to_string(i % 20);
            rc = set(c, key.c_str(), std::string(20, static_cast<char>('a' + i)));
            if (rc == QV_ERROR_NO_MEMORY) {
                ++nomem;
            } else if (rc == QV_ERROR_OUT_OF_RANGE) {
                ++notadded;
                EXPECT_TRUE(log.has(7, "not enough memory to add cache item to hashtable"));
                EXPECT_EQ(get(c, key.c_str()), "<missing>");
            } else {
                ASSERT_EQ(rc, 0);
                EXPECT_EQ(get(c, key.c_str()), std::string(20, static_cast<char>('a' + i)));
            }
        }
        EXPECT_LE(nomem + notadded, 1);
        // The newest item is there unless storing it failed.
        if (rc == 0) {
            EXPECT_EQ(get(c, "key3"), std::string(20, 'x'));
        }
        // Whatever failed, what remains fits the budget.
        size_t total = 0;
        for (int i = 0; i < 20; ++i) {
            std::string key = "key" + std::to_string(i);
            if (get(c, key.c_str()) != "<missing>") total += key.size() + 24 + 20;
        }
        EXPECT_LT(total, 400u);
        if (nomem + notadded == 0) {
            EXPECT_EQ(get(c, "key15"), "<missing>");  // evicted by the last set
        }
        qv_cache_destroy(c);
    });
}

TEST(CacheDeathTest, PreconditionsAreAssertions) {
    qv_cache *c = qv_cache_create(10);
    const void *p;
    EXPECT_DEATH(qv_cache_set(nullptr, "k", "", 0), "src/adt/qvcache.cpp:[0-9]+: Assertion `qvcache != NULL' failed.");
    EXPECT_DEATH(qv_cache_set(c, nullptr, "", 0), "src/adt/qvcache.cpp:[0-9]+: Assertion `key != NULL' failed.");
    EXPECT_DEATH(qv_cache_set(c, "k", nullptr, 0), "src/adt/qvcache.cpp:[0-9]+: Assertion `data != NULL' failed.");
    EXPECT_DEATH(qv_cache_get(c, "k", nullptr, nullptr), "src/adt/qvcache.cpp:[0-9]+: Assertion `data != NULL' failed.");
    EXPECT_DEATH(qv_cache_get(c, nullptr, &p, nullptr), "src/adt/qvcache.cpp:[0-9]+: Assertion `key != NULL' failed.");
    EXPECT_DEATH(qv_cache_destroy(nullptr), "src/adt/qvcache.cpp:[0-9]+: Assertion `qvcache != NULL' failed.");
    qv_cache_destroy(c);
}

}  // namespace
