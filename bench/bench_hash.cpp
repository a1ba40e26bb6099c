// Hash tables side by side: qv_stringhash (copies its keys) against GHashTable
// with g_strdup'd keys and std::unordered_map<std::string, void *>; the
// intrusive qv_hash against GHashTable storing key pointers. One million
// 20-byte keys; each benchmark iteration is a full pass over all of them.
// WorstAdd_* time every single add while a table grows from empty and report
// the slowest one: the incremental resize against GHashTable's rehash.
#include <benchmark/benchmark.h>
#include <glib.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <time.h>
#include <unordered_map>
#include <vector>

#include "qvlib.h"

namespace {

constexpr size_t kKeys = 1000000;
constexpr size_t kKeyLen = 20;

struct KeySet {
    std::vector<std::string> keys;      // stored keys, insertion order
    std::vector<const char *> hits;     // the same keys, shuffled
    std::vector<std::string> misskeys;  // never stored
    std::vector<const char *> misses;
};

// Random alphanumeric keys: "k" + 19 characters.
const KeySet &keyset() {
    static KeySet ks = [] {
        KeySet s;
        std::mt19937_64 rng(12345);
        static const char alphabet[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
        auto make = [&](char first) {
            std::string k(kKeyLen, first);
            for (size_t i = 1; i < kKeyLen; ++i) k[i] = alphabet[rng() % 62];
            return k;
        };
        for (size_t i = 0; i < kKeys; ++i) s.keys.push_back(make('k'));
        for (size_t i = 0; i < kKeys; ++i) s.misskeys.push_back(make('m'));
        for (const auto &k : s.keys) s.hits.push_back(k.c_str());
        for (const auto &k : s.misskeys) s.misses.push_back(k.c_str());
        std::shuffle(s.hits.begin(), s.hits.end(), rng);
        return s;
    }();
    return ks;
}

void *value_of(size_t i) { return reinterpret_cast<void *>(i + 1); }

// --- qv_stringhash -----------------------------------------------------------

qv_stringhash *qv_filled() {
    qv_stringhash *sh = qv_stringhash_create(nullptr, nullptr);
    const KeySet &ks = keyset();
    for (size_t i = 0; i < kKeys; ++i) qv_stringhash_add(sh, ks.keys[i].c_str(), value_of(i));
    return sh;
}

void StringTable_Insert_qv(benchmark::State &state) {
    const KeySet &ks = keyset();
    for (auto _ : state) {
        qv_stringhash *sh = qv_stringhash_create(nullptr, nullptr);
        for (size_t i = 0; i < kKeys; ++i) qv_stringhash_add(sh, ks.keys[i].c_str(), value_of(i));
        state.PauseTiming();
        qv_stringhash_destroy(sh);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kKeys));
}

void StringTable_LookupHit_qv(benchmark::State &state) {
    const KeySet &ks = keyset();
    qv_stringhash *sh = qv_filled();
    for (auto _ : state)
        for (const char *k : ks.hits) benchmark::DoNotOptimize(qv_stringhash_lookup(sh, k));
    qv_stringhash_destroy(sh);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kKeys));
}

void StringTable_LookupMiss_qv(benchmark::State &state) {
    const KeySet &ks = keyset();
    qv_stringhash *sh = qv_filled();
    for (auto _ : state)
        for (const char *k : ks.misses) benchmark::DoNotOptimize(qv_stringhash_lookup(sh, k));
    qv_stringhash_destroy(sh);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kKeys));
}

void StringTable_Remove_qv(benchmark::State &state) {
    const KeySet &ks = keyset();
    for (auto _ : state) {
        state.PauseTiming();
        qv_stringhash *sh = qv_filled();
        state.ResumeTiming();
        for (const char *k : ks.hits) qv_stringhash_remove(sh, k);
        state.PauseTiming();
        qv_stringhash_destroy(sh);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kKeys));
}

// --- GHashTable with g_strdup'd keys ----------------------------------------

GHashTable *glib_copying_new() { return g_hash_table_new_full(g_str_hash, g_str_equal, g_free, nullptr); }

GHashTable *glib_copying_filled() {
    GHashTable *t = glib_copying_new();
    const KeySet &ks = keyset();
    for (size_t i = 0; i < kKeys; ++i) g_hash_table_insert(t, g_strdup(ks.keys[i].c_str()), value_of(i));
    return t;
}

void StringTable_Insert_GHashTable(benchmark::State &state) {
    const KeySet &ks = keyset();
    for (auto _ : state) {
        GHashTable *t = glib_copying_new();
        for (size_t i = 0; i < kKeys; ++i) g_hash_table_insert(t, g_strdup(ks.keys[i].c_str()), value_of(i));
        state.PauseTiming();
        g_hash_table_destroy(t);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kKeys));
}

void StringTable_LookupHit_GHashTable(benchmark::State &state) {
    const KeySet &ks = keyset();
    GHashTable *t = glib_copying_filled();
    for (auto _ : state)
        for (const char *k : ks.hits) benchmark::DoNotOptimize(g_hash_table_lookup(t, k));
    g_hash_table_destroy(t);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kKeys));
}

void StringTable_LookupMiss_GHashTable(benchmark::State &state) {
    const KeySet &ks = keyset();
    GHashTable *t = glib_copying_filled();
    for (auto _ : state)
        for (const char *k : ks.misses) benchmark::DoNotOptimize(g_hash_table_lookup(t, k));
    g_hash_table_destroy(t);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kKeys));
}

void StringTable_Remove_GHashTable(benchmark::State &state) {
    const KeySet &ks = keyset();
    for (auto _ : state) {
        state.PauseTiming();
        GHashTable *t = glib_copying_filled();
        state.ResumeTiming();
        for (const char *k : ks.hits) g_hash_table_remove(t, k);
        state.PauseTiming();
        g_hash_table_destroy(t);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kKeys));
}

// --- std::unordered_map<std::string, void *> ---------------------------------
// Given heterogeneous lookup, so that finding a const char * key builds no
// temporary std::string: the peer at its best.

struct SvHash {
    using is_transparent = void;
    size_t operator()(std::string_view s) const noexcept { return std::hash<std::string_view>{}(s); }
};
using StdMap = std::unordered_map<std::string, void *, SvHash, std::equal_to<>>;

void std_fill(StdMap &m) {
    const KeySet &ks = keyset();
    for (size_t i = 0; i < kKeys; ++i) m.insert_or_assign(ks.keys[i], value_of(i));
}

void StringTable_Insert_StdUnorderedMap(benchmark::State &state) {
    const KeySet &ks = keyset();
    for (auto _ : state) {
        auto *m = new StdMap;
        for (size_t i = 0; i < kKeys; ++i) m->insert_or_assign(std::string(ks.keys[i].c_str()), value_of(i));
        state.PauseTiming();
        delete m;
        state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kKeys));
}

void StringTable_LookupHit_StdUnorderedMap(benchmark::State &state) {
    const KeySet &ks = keyset();
    StdMap m;
    std_fill(m);
    for (auto _ : state)
        for (const char *k : ks.hits) {
            auto it = m.find(std::string_view(k));
            benchmark::DoNotOptimize(it == m.end() ? nullptr : it->second);
        }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kKeys));
}

void StringTable_LookupMiss_StdUnorderedMap(benchmark::State &state) {
    const KeySet &ks = keyset();
    StdMap m;
    std_fill(m);
    for (auto _ : state)
        for (const char *k : ks.misses) {
            auto it = m.find(std::string_view(k));
            benchmark::DoNotOptimize(it == m.end() ? nullptr : it->second);
        }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kKeys));
}

void StringTable_Remove_StdUnorderedMap(benchmark::State &state) {
    const KeySet &ks = keyset();
    for (auto _ : state) {
        state.PauseTiming();
        auto *m = new StdMap;
        std_fill(*m);
        state.ResumeTiming();
        for (const char *k : ks.hits) {
            auto it = m->find(std::string_view(k));
            if (it != m->end()) m->erase(it);
        }
        state.PauseTiming();
        delete m;
        state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kKeys));
}

// --- Intrusive: qv_hash against GHashTable without key copies ---------------
// The caller's item carries its key pointer, its hash and the link; the hash
// is computed in the timed loop, as a caller would before adding or looking up.

struct Item {
    const char *key;
    uint32_t hash;
    qv_hash_link link;
};

uint32_t item_hash(const void *item, void *) { return static_cast<const Item *>(item)->hash; }
int item_compare(const void *a, const void *b, void *) {
    const auto *x = static_cast<const Item *>(a);
    const auto *y = static_cast<const Item *>(b);
    return x->hash != y->hash || strcmp(x->key, y->key) != 0;
}
int item_destroy(void *, void *) { return 0; }

std::vector<Item> &items() {
    static std::vector<Item> v(kKeys);
    return v;
}

qv_hash *intrusive_new() { return qv_hash_create(offsetof(Item, link), item_hash, item_compare, item_destroy, nullptr); }

void intrusive_fill(qv_hash *h) {
    const KeySet &ks = keyset();
    std::vector<Item> &it = items();
    for (size_t i = 0; i < kKeys; ++i) {
        it[i].key = ks.keys[i].c_str();
        it[i].hash = qv_hashfunc_string(it[i].key);
        qv_hash_add(h, &it[i]);
    }
}

void *intrusive_lookup(qv_hash *h, const char *key) {
    Item probe{key, qv_hashfunc_string(key), {nullptr, nullptr}};
    return qv_hash_lookup(h, &probe);
}

void Intrusive_Insert_qv(benchmark::State &state) {
    for (auto _ : state) {
        qv_hash *h = intrusive_new();
        intrusive_fill(h);
        state.PauseTiming();
        qv_hash_destroy(h);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kKeys));
}

void Intrusive_LookupHit_qv(benchmark::State &state) {
    const KeySet &ks = keyset();
    qv_hash *h = intrusive_new();
    intrusive_fill(h);
    for (auto _ : state)
        for (const char *k : ks.hits) benchmark::DoNotOptimize(intrusive_lookup(h, k));
    qv_hash_destroy(h);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kKeys));
}

void Intrusive_LookupMiss_qv(benchmark::State &state) {
    const KeySet &ks = keyset();
    qv_hash *h = intrusive_new();
    intrusive_fill(h);
    for (auto _ : state)
        for (const char *k : ks.misses) benchmark::DoNotOptimize(intrusive_lookup(h, k));
    qv_hash_destroy(h);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kKeys));
}

void Intrusive_Remove_qv(benchmark::State &state) {
    const KeySet &ks = keyset();
    for (auto _ : state) {
        state.PauseTiming();
        qv_hash *h = intrusive_new();
        intrusive_fill(h);
        state.ResumeTiming();
        for (const char *k : ks.hits) qv_hash_remove(h, intrusive_lookup(h, k));
        state.PauseTiming();
        qv_hash_destroy(h);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kKeys));
}

GHashTable *glib_plain_filled() {
    GHashTable *t = g_hash_table_new(g_str_hash, g_str_equal);
    const KeySet &ks = keyset();
    for (size_t i = 0; i < kKeys; ++i) g_hash_table_insert(t, const_cast<char *>(ks.keys[i].c_str()), value_of(i));
    return t;
}

void Intrusive_Insert_GHashTable(benchmark::State &state) {
    for (auto _ : state) {
        GHashTable *t = glib_plain_filled();
        state.PauseTiming();
        g_hash_table_destroy(t);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kKeys));
}

void Intrusive_LookupHit_GHashTable(benchmark::State &state) {
    const KeySet &ks = keyset();
    GHashTable *t = glib_plain_filled();
    for (auto _ : state)
        for (const char *k : ks.hits) benchmark::DoNotOptimize(g_hash_table_lookup(t, k));
    g_hash_table_destroy(t);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kKeys));
}

void Intrusive_LookupMiss_GHashTable(benchmark::State &state) {
    const KeySet &ks = keyset();
    GHashTable *t = glib_plain_filled();
    for (auto _ : state)
        for (const char *k : ks.misses) benchmark::DoNotOptimize(g_hash_table_lookup(t, k));
    g_hash_table_destroy(t);
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kKeys));
}

void Intrusive_Remove_GHashTable(benchmark::State &state) {
    const KeySet &ks = keyset();
    for (auto _ : state) {
        state.PauseTiming();
        GHashTable *t = glib_plain_filled();
        state.ResumeTiming();
        for (const char *k : ks.hits) g_hash_table_remove(t, k);
        state.PauseTiming();
        g_hash_table_destroy(t);
        state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * kKeys));
}

// --- Worst single add during growth -----------------------------------------
// Each add is timed twice: by the wall clock (what a caller waits) and by the
// thread's CPU clock (the same, without the time the scheduler gave to other
// processes, which on a shared machine can swamp a single add).

double thread_cpu_ns() {
    struct timespec ts;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return static_cast<double>(ts.tv_sec) * 1e9 + static_cast<double>(ts.tv_nsec);
}

template <class AddFn>
void worst_add(benchmark::State &state, AddFn add_all) {
    double worst_wall = 0, worst_cpu = 0, total_cpu = 0;
    size_t over_1ms = 0;
    for (auto _ : state) {
        add_all([&](auto &&one) {
            double c0 = thread_cpu_ns();
            auto t0 = std::chrono::steady_clock::now();
            one();
            double wall = std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - t0).count();
            double cpu = thread_cpu_ns() - c0;
            worst_wall = std::max(worst_wall, wall);
            worst_cpu = std::max(worst_cpu, cpu);
            total_cpu += cpu;
            if (cpu > 1e6) ++over_1ms;
        });
    }
    state.counters["worst_wall_us"] = worst_wall / 1000.0;
    state.counters["worst_cpu_us"] = worst_cpu / 1000.0;
    state.counters["adds_over_1ms_cpu"] = static_cast<double>(over_1ms) / static_cast<double>(state.iterations());
    state.counters["mean_cpu_ns"] = total_cpu / static_cast<double>(state.iterations() * kKeys);
}

void WorstAdd_qv_stringhash(benchmark::State &state) {
    const KeySet &ks = keyset();
    worst_add(state, [&](auto timed) {
        qv_stringhash *sh = qv_stringhash_create(nullptr, nullptr);
        for (size_t i = 0; i < kKeys; ++i) timed([&] { qv_stringhash_add(sh, ks.keys[i].c_str(), value_of(i)); });
        qv_stringhash_destroy(sh);
    });
}

void WorstAdd_GHashTable(benchmark::State &state) {
    const KeySet &ks = keyset();
    worst_add(state, [&](auto timed) {
        GHashTable *t = glib_copying_new();
        for (size_t i = 0; i < kKeys; ++i)
            timed([&] { g_hash_table_insert(t, g_strdup(ks.keys[i].c_str()), value_of(i)); });
        g_hash_table_destroy(t);
    });
}

void WorstAdd_StdUnorderedMap(benchmark::State &state) {
    const KeySet &ks = keyset();
    worst_add(state, [&](auto timed) {
        StdMap m;
        for (size_t i = 0; i < kKeys; ++i) timed([&] { m.insert_or_assign(std::string(ks.keys[i].c_str()), value_of(i)); });
    });
}

}  // namespace

#define QV_HASH_BENCH(fn) BENCHMARK(fn)->Unit(benchmark::kMillisecond)->MinTime(1.0)

QV_HASH_BENCH(StringTable_Insert_qv);
QV_HASH_BENCH(StringTable_Insert_GHashTable);
QV_HASH_BENCH(StringTable_Insert_StdUnorderedMap);
QV_HASH_BENCH(StringTable_LookupHit_qv);
QV_HASH_BENCH(StringTable_LookupHit_GHashTable);
QV_HASH_BENCH(StringTable_LookupHit_StdUnorderedMap);
QV_HASH_BENCH(StringTable_LookupMiss_qv);
QV_HASH_BENCH(StringTable_LookupMiss_GHashTable);
QV_HASH_BENCH(StringTable_LookupMiss_StdUnorderedMap);
QV_HASH_BENCH(StringTable_Remove_qv);
QV_HASH_BENCH(StringTable_Remove_GHashTable);
QV_HASH_BENCH(StringTable_Remove_StdUnorderedMap);
QV_HASH_BENCH(Intrusive_Insert_qv);
QV_HASH_BENCH(Intrusive_Insert_GHashTable);
QV_HASH_BENCH(Intrusive_LookupHit_qv);
QV_HASH_BENCH(Intrusive_LookupHit_GHashTable);
QV_HASH_BENCH(Intrusive_LookupMiss_qv);
QV_HASH_BENCH(Intrusive_LookupMiss_GHashTable);
QV_HASH_BENCH(Intrusive_Remove_qv);
QV_HASH_BENCH(Intrusive_Remove_GHashTable);
BENCHMARK(WorstAdd_qv_stringhash)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(WorstAdd_GHashTable)->Unit(benchmark::kMillisecond)->Iterations(1);
BENCHMARK(WorstAdd_StdUnorderedMap)->Unit(benchmark::kMillisecond)->Iterations(1);

BENCHMARK_MAIN();
