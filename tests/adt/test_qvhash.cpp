// The intrusive hash table: resizing and its log lines, reachability during a
// resize, replacement, removal by address, enumeration, clear, a model-based
// run against std::unordered_map, and allocation failures.
#include <cstddef>
#include <map>
#include <random>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "support/qvtest.h"

namespace {

struct Item {
    uint32_t key;
    int payload;
    qv_hash_link link;
};

// The hash is the key itself, so a test knows each item's slot: key % slots.
struct Table {
    std::vector<uint32_t> destroyed;  // keys, in the order destroyed
    std::set<Item *> live;            // items the test allocated and not yet freed
    qv_hash *h = nullptr;

    static uint32_t calc(const void *item, void *) { return static_cast<const Item *>(item)->key; }
    static int compare(const void *a, const void *b, void *) {
        return static_cast<const Item *>(a)->key == static_cast<const Item *>(b)->key ? 0 : 1;
    }
    static int destroy(void *item, void *ctx) {
        auto *t = static_cast<Table *>(ctx);
        auto *it = static_cast<Item *>(item);
        t->destroyed.push_back(it->key);
        t->live.erase(it);
        delete it;
        return 0;
    }

    Table() { h = qv_hash_create(offsetof(Item, link), calc, compare, destroy, this); }
    ~Table() {
        if (h != nullptr) qv_hash_destroy(h);
        for (Item *it : live) delete it;  // items the test removed and kept
    }
    Item *add(uint32_t key, int payload = 0) {
        auto *it = new Item{key, payload, {nullptr, nullptr}};
        live.insert(it);
        qv_hash_add(h, it);
        return it;
    }
    Item *lookup(uint32_t key) {
        Item probe{key, 0, {nullptr, nullptr}};
        return static_cast<Item *>(qv_hash_lookup(h, &probe));
    }
    // Removes the way callers do, by the address a lookup gave; frees the item.
    void remove(Item *it) {
        qv_hash_remove(h, it);
        live.erase(it);
        delete it;
    }
    std::vector<uint32_t> walk() {
        std::vector<uint32_t> keys;
        for (void *p = qv_hash_enumerate_start(h); p != nullptr; p = qv_hash_enumerate_next(h, p))
            keys.push_back(static_cast<Item *>(p)->key);
        return keys;
    }
};

// The hash table's own log lines, in order.
std::vector<std::string> hash_lines(const qvtest::LogCapture &log) {
    std::vector<std::string> out;
    for (const auto &l : log.lines())
        if (l.text.find("hash") != std::string::npos) out.push_back(std::to_string(l.level) + " " + l.text);
    return out;
}

// A slot head is two pointers.
std::string slots_message(size_t slots) {
    return "not enough memory for hash array slots (" + std::to_string(slots * 2 * sizeof(void *)) +
           " bytes)";
}

TEST(Hash, GrowsIncrementallyThroughTheSizeSequence) {
    qvtest::LogCapture log;
    Table t;
    ASSERT_NE(t.h, nullptr);
    EXPECT_EQ(hash_lines(log), std::vector<std::string>{"13 create an initial hash array of size 5"});
    log.clear();

    // 5 >= 5 - 5/10: the fifth add starts the grow to 21, without moving anything.
    for (uint32_t k = 0; k < 4; ++k) t.add(k);
    EXPECT_TRUE(hash_lines(log).empty());
    t.add(4);
    EXPECT_EQ(hash_lines(log), std::vector<std::string>{"13 start growing hashtable to 21 slots"});
    log.clear();
    // Adds 6..9 each move one old item; the tenth moves the last and completes.
    for (uint32_t k = 5; k < 9; ++k) t.add(k);
    EXPECT_TRUE(hash_lines(log).empty());
    t.add(9);
    EXPECT_EQ(hash_lines(log),
              std::vector<std::string>{"13 replacing the main hash array with the bigger one"});
    log.clear();

    // Then 85 (at 19 = 21 - 2 items), 341 (at 77), 1365 (at 307).
    std::vector<std::pair<uint32_t, std::string>> starts;
    for (uint32_t k = 10; k < 400; ++k) {
        log.clear();
        t.add(k);
        for (const auto &line : hash_lines(log))
            if (line.find("start growing") != std::string::npos) starts.emplace_back(k + 1, line);
    }
    ASSERT_EQ(starts.size(), 3u);
    EXPECT_EQ(starts[0], std::make_pair(19u, std::string("13 start growing hashtable to 85 slots")));
    EXPECT_EQ(starts[1], std::make_pair(77u, std::string("13 start growing hashtable to 341 slots")));
    EXPECT_EQ(starts[2], std::make_pair(307u, std::string("13 start growing hashtable to 1365 slots")));
}

TEST(Hash, EveryItemReachableAtEveryStepOfAResize) {
    Table t;
    for (uint32_t k = 0; k < 600; ++k) {
        t.add(k * 7919u, static_cast<int>(k));
        // Enumeration sees each item exactly once (the table is unchanged
        // during the walk) ...
        std::vector<uint32_t> seen = t.walk();
        ASSERT_EQ(seen.size(), k + 1) << "after adding " << k;
        ASSERT_EQ(std::set<uint32_t>(seen.begin(), seen.end()).size(), k + 1);
    }
    // ... and lookups find each one, moving them along as they go.
    for (uint32_t k = 0; k < 600; ++k) {
        Item *it = t.lookup(k * 7919u);
        ASSERT_NE(it, nullptr) << k;
        EXPECT_EQ(it->payload, static_cast<int>(k));
    }
    EXPECT_EQ(t.lookup(1), nullptr);
    EXPECT_TRUE(t.destroyed.empty());
}

TEST(Hash, AddingAnEqualItemDestroysTheStoredOne) {
    Table t;
    for (uint32_t k = 0; k < 7; ++k) t.add(k, 1);  // mid-grow: items in both arrays
    t.add(0, 2);  // key 0 migrated already (new array)
    t.add(6, 2);  // key 6 was added into the new array
    t.add(4, 2);  // key 4 still waits in the old array
    EXPECT_EQ(t.destroyed, (std::vector<uint32_t>{0, 6, 4}));
    EXPECT_EQ(t.walk().size(), 7u);
    for (uint32_t k : {0u, 4u, 6u}) EXPECT_EQ(t.lookup(k)->payload, 2);
    EXPECT_EQ(t.lookup(3)->payload, 1);
}

TEST(Hash, EnumerationOrderIsNewArrayThenMainArrayBySlot) {
    Table t;
    // 5 slots: slot = key % 5, chains in insertion order.
    for (uint32_t k : {7u, 2u, 10u, 3u}) t.add(k);
    EXPECT_EQ(t.walk(), (std::vector<uint32_t>{10, 7, 2, 3}));
    // The fifth add (key 1) starts the grow to 21 and stays in the old array;
    // the sixth (key 30) lands in the new one and moves key 10 (slot 0) along.
    t.add(1);
    t.add(30);
    EXPECT_EQ(t.walk(), (std::vector<uint32_t>{30, 10, 1, 7, 2, 3}));
}

// Removal by address during resizes is driven by the model-based run below.
TEST(Hash, RemovingAStrangerDuringAResizeChangesNothing) {
    Table u;
    for (uint32_t k = 0; k < 6; ++k) u.add(k);
    Item stranger{3, 0, {nullptr, nullptr}};
    qv_hash_remove(u.h, &stranger);
    EXPECT_EQ(u.walk().size(), 6u);
    EXPECT_EQ(u.lookup(3)->payload, 0);
    EXPECT_NE(u.lookup(3), &stranger);
}

TEST(Hash, ShrinksAtTenPercentLoad) {
    qvtest::LogCapture log;
    Table t;
    for (uint32_t k = 0; k < 10; ++k) t.add(k);  // now steady at 21 slots
    std::vector<Item *> items;
    for (uint32_t k = 0; k < 10; ++k) items.push_back(t.lookup(k));
    log.clear();
    for (uint32_t k = 0; k < 7; ++k) qv_hash_remove(t.h, items[k]);
    EXPECT_TRUE(hash_lines(log).empty());
    qv_hash_remove(t.h, items[7]);  // leaves 2 <= 21/10
    EXPECT_EQ(hash_lines(log), std::vector<std::string>{"13 start shrinking hashtable to 5 slots"});
    log.clear();
    // The lookup moves 8 into the small array; removing it then migrates 9,
    // the last item left behind, which completes the shrink.
    qv_hash_remove(t.h, t.lookup(8));
    EXPECT_EQ(hash_lines(log),
              std::vector<std::string>{"13 replacing the main hash array with the smaller one"});
    EXPECT_EQ(t.lookup(9), items[9]);
    for (int k = 0; k < 9; ++k) {
        t.live.erase(items[k]);
        delete items[k];
    }
    // Back at 5 slots: the fifth item starts a grow again.
    log.clear();
    for (uint32_t k = 100; k < 104; ++k) t.add(k);
    EXPECT_EQ(hash_lines(log), std::vector<std::string>{"13 start growing hashtable to 21 slots"});
}

TEST(Hash, ClearAfterGrowthReturnsToTheMinimumSize) {
    qvtest::LogCapture log;
    Table t;
    for (uint32_t k = 0; k < 100; ++k) t.add(k);  // grown, and mid-resize to 341
    qv_hash_clear(t.h);
    EXPECT_EQ(t.destroyed.size(), 100u);
    EXPECT_EQ(qv_hash_enumerate_start(t.h), nullptr);
    EXPECT_EQ(t.lookup(5), nullptr);
    log.clear();
    for (uint32_t k = 0; k < 5; ++k) t.add(k);
    EXPECT_EQ(hash_lines(log), std::vector<std::string>{"13 start growing hashtable to 21 slots"});
    qv_hash_destroy(t.h);
    t.h = nullptr;
    EXPECT_EQ(t.destroyed.size(), 105u);
    EXPECT_TRUE(t.live.empty());
}

TEST(Hash, CreateFromCopiesTheConfigurationNotTheItems) {
    Table t;
    for (uint32_t k = 0; k < 3; ++k) t.add(k);
    qv_hash *copy = qv_hash_create_from(t.h);
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(qv_hash_enumerate_start(copy), nullptr);
    auto *it = new Item{42, 0, {nullptr, nullptr}};
    t.live.insert(it);
    qv_hash_add(copy, it);
    Item probe{42, 0, {nullptr, nullptr}};
    EXPECT_EQ(qv_hash_lookup(copy, &probe), it);
    EXPECT_EQ(t.lookup(42), nullptr);
    qv_hash_destroy(copy);  // destroyed through the shared callback and context
    EXPECT_EQ(t.destroyed, std::vector<uint32_t>{42});
}

// Random operations against a reference map; the small key space makes
// replacements, misses, grows and shrinks frequent.
TEST(Hash, ModelBasedAgainstUnorderedMap) {
    std::mt19937 rng(20240611);
    for (uint32_t keyspace : {8u, 64u, 700u, 5000u}) {
        Table t;
        std::unordered_map<uint32_t, int> model;
        std::map<uint32_t, int> destroyed_expected;
        size_t destroyed_before = 0;
        for (int step = 0; step < 20000; ++step) {
            uint32_t key = rng() % keyspace;
            // Spread keys over the hash space, with collisions mod any size.
            uint32_t hkey = key * 2654435761u;
            int op = static_cast<int>(rng() % 10);
            // Phases that favour adds, then removes, so the table both grows and shrinks.
            bool filling = (step / 2500) % 2 == 0;
            if (op < (filling ? 6 : 2)) {
                int payload = static_cast<int>(rng());
                bool existed = model.count(hkey) != 0;
                t.add(hkey, payload);
                model[hkey] = payload;
                ASSERT_EQ(t.destroyed.size(), destroyed_before + (existed ? 1 : 0));
                destroyed_before = t.destroyed.size();
            } else if (op < 8) {
                Item *it = t.lookup(hkey);
                auto m = model.find(hkey);
                if (m == model.end()) {
                    ASSERT_EQ(it, nullptr);
                } else {
                    ASSERT_NE(it, nullptr);
                    ASSERT_EQ(it->payload, m->second);
                    t.remove(it);
                    model.erase(m);
                }
            } else {
                Item *it = t.lookup(hkey);
                auto m = model.find(hkey);
                ASSERT_EQ(it != nullptr, m != model.end()) << "step " << step;
                if (it != nullptr) {
                    ASSERT_EQ(it->payload, m->second);
                }
            }
            if (step % 500 == 0) {
                std::vector<uint32_t> seen = t.walk();
                ASSERT_EQ(seen.size(), model.size());
                for (uint32_t k : seen) ASSERT_EQ(model.count(k), 1u);
                ASSERT_EQ(std::set<uint32_t>(seen.begin(), seen.end()).size(), seen.size());
            }
        }
        EXPECT_EQ(t.live.size(), model.size());
    }
}

TEST(Hash, AllocationFailuresNeverBreakTheTable) {
    qvtest::LogCapture log;
    qvtest::alloc_failure_sweep([&](unsigned long failing) {
        log.clear();
        Table t;
        if (t.h == nullptr) {
            ASSERT_NE(failing, 0u);
            EXPECT_TRUE(log.has(7, "not enough memory for qvhash structure") ||
                        log.has(7, "not enough memory for hash array structure") ||
                        log.has(7, slots_message(5)));
            return;
        }
        // Growth, a full shrink and a clear: any resize allocation may fail.
        for (uint32_t k = 0; k < 120; ++k) t.add(k * 31u);
        for (uint32_t k = 0; k < 120; ++k) ASSERT_NE(t.lookup(k * 31u), nullptr) << k;
        ASSERT_EQ(t.walk().size(), 120u);
        for (uint32_t k = 0; k < 115; ++k) t.remove(t.lookup(k * 31u));
        ASSERT_EQ(t.walk().size(), 5u);
        for (uint32_t k = 0; k < 60; ++k) t.add(k);
        qv_hash_clear(t.h);
        EXPECT_EQ(qv_hash_enumerate_start(t.h), nullptr);
        for (uint32_t k = 0; k < 10; ++k) t.add(k);
        ASSERT_EQ(t.walk().size(), 10u);
        if (failing != 0) {
            bool grow = false, shrink = false, clear = false;
            for (const auto &l : log.lines()) {
                grow |= l.level == 7 && l.text.rfind("not enough memory to grow the hashtable from ", 0) == 0;
                shrink |= l.level == 7 && l.text.rfind("not enough memory to shrink the hashtable from ", 0) == 0;
                clear |= l.level == 7 && l.text == "not enough memory to return the hash array to the "
                                                   "minimum size, keeping the current size";
            }
            EXPECT_TRUE(grow || shrink || clear);
        }
    });
}

TEST(Hash, GrowFailureKeepsTheOldSizeAndRetries) {
#ifndef QV_FAULT_INJECTION
    GTEST_SKIP() << "built without the allocation fault injector";
#else
    qvtest::LogCapture log;
    Table t;
    for (uint32_t k = 0; k < 4; ++k) t.add(k);
    log.clear();
    qv::fault::fail_at(2, false);  // the slots of the 21-slot array
    t.add(4);
    qv::fault::reset();
    EXPECT_EQ(hash_lines(log), (std::vector<std::string>{
                                   "13 start growing hashtable to 21 slots",
                                   "7 " + slots_message(21),
                                   "7 not enough memory to grow the hashtable from 5 to 21 slots"}));
    log.clear();
    t.add(5);  // still at 5 slots and full: the next add tries again
    EXPECT_EQ(hash_lines(log), std::vector<std::string>{"13 start growing hashtable to 21 slots"});
    EXPECT_EQ(t.walk().size(), 6u);
#endif
}

TEST(HashDeathTest, PreconditionsAreAssertions) {
    EXPECT_DEATH(qv_hash_create(0, nullptr, Table::compare, Table::destroy, nullptr),
                 "src/adt/qvhash.cpp:[0-9]+: Assertion `calchashcallback != NULL' failed.");
    EXPECT_DEATH(qv_hash_create(0, Table::calc, nullptr, Table::destroy, nullptr),
                 "src/adt/qvhash.cpp:[0-9]+: Assertion `comparecallback != NULL' failed.");
    EXPECT_DEATH(qv_hash_create(0, Table::calc, Table::compare, nullptr, nullptr),
                 "src/adt/qvhash.cpp:[0-9]+: Assertion `destroycallback != NULL' failed.");
    EXPECT_DEATH(qv_hash_add(nullptr, nullptr), "src/adt/qvhash.cpp:[0-9]+: Assertion `qvhash != NULL' failed.");
    EXPECT_DEATH(qv_hash_create_from(nullptr), "src/adt/qvhash.cpp:[0-9]+: Assertion `original != NULL' failed.");
    Table t;
    EXPECT_DEATH(qv_hash_lookup(t.h, nullptr), "src/adt/qvhash.cpp:[0-9]+: Assertion `searchitem != NULL' failed.");
    EXPECT_DEATH(qv_hash_remove(t.h, nullptr), "src/adt/qvhash.cpp:[0-9]+: Assertion `item != NULL' failed.");
}

TEST(HashDeathTest, SuccessorOfARemovedItemIsAnInvalidHashItem) {
    Table t;
    Item *a = t.add(1);
    t.add(2);
    qv_hash_remove(t.h, t.lookup(1));
    t.live.erase(a);
    EXPECT_DEATH(qv_hash_enumerate_next(t.h, a),
                 "invalid hash item\nsrc/adt/qvhash.cpp:[0-9]+: Assertion failed.");
    delete a;
}

}  // namespace
