// The string-keyed table: copies of keys, replacement and removal with the
// value destroy callback, lookups of absent and null values, enumeration,
// create_from's binding to the original, and allocation failures.
#include <map>
#include <string>
#include <vector>

#include "support/qvtest.h"

namespace {

struct Destroyed {
    std::vector<std::string> values;
    static void record(void *value, void *context) {
        static_cast<Destroyed *>(context)->values.push_back(static_cast<char *>(value));
        qv_free(value);
    }
};

std::map<std::string, std::string> contents(qv_stringhash *sh) {
    std::map<std::string, std::string> out;
    const char *key = nullptr;
    void *value = nullptr;
    for (void *pos = qv_stringhash_enumerate_start(sh, &key, &value); pos != nullptr;
         pos = qv_stringhash_enumerate_next(sh, pos, &key, &value)) {
        EXPECT_TRUE(out.emplace(key, value ? static_cast<char *>(value) : "(null)").second) << key;
    }
    EXPECT_EQ(key, nullptr);
    EXPECT_EQ(value, nullptr);
    return out;
}

TEST(StringHash, AddCopiesTheKeyAndReplacesEqualKeys) {
    Destroyed d;
    qv_stringhash *sh = qv_stringhash_create(Destroyed::record, &d);
    ASSERT_NE(sh, nullptr);
    char key[] = "alpha";
    ASSERT_EQ(qv_stringhash_add(sh, key, qv_strdup("1")), 0);
    key[0] = 'A';  // the table kept its own copy
    ASSERT_EQ(qv_stringhash_add(sh, key, qv_strdup("2")), 0);
    EXPECT_STREQ(static_cast<char *>(qv_stringhash_lookup(sh, "alpha")), "1");
    EXPECT_STREQ(static_cast<char *>(qv_stringhash_lookup(sh, "Alpha")), "2");
    EXPECT_TRUE(d.values.empty());

    ASSERT_EQ(qv_stringhash_add(sh, "alpha", qv_strdup("3")), 0);
    EXPECT_EQ(d.values, std::vector<std::string>{"1"});
    EXPECT_EQ(contents(sh), (std::map<std::string, std::string>{{"alpha", "3"}, {"Alpha", "2"}}));
    qv_stringhash_destroy(sh);
    EXPECT_EQ(d.values.size(), 3u);
}

TEST(StringHash, MissingKeysAndNullValues) {
    qv_stringhash *sh = qv_stringhash_create(nullptr, nullptr);
    ASSERT_NE(sh, nullptr);
    EXPECT_EQ(qv_stringhash_lookup(sh, "x"), nullptr);
    EXPECT_EQ(qv_stringhash_remove(sh, "x"), -1);
    ASSERT_EQ(qv_stringhash_add(sh, "x", nullptr), 0);
    EXPECT_EQ(qv_stringhash_lookup(sh, "x"), nullptr);  // looks the same as absent
    ASSERT_EQ(qv_stringhash_add(sh, "", sh), 0);          // the empty key is a key
    EXPECT_EQ(qv_stringhash_lookup(sh, ""), sh);
    EXPECT_EQ(qv_stringhash_remove(sh, "x"), 0);
    EXPECT_EQ(qv_stringhash_remove(sh, "x"), -1);
    const char *key = "sentinel";
    void *value = sh;
    EXPECT_NE(qv_stringhash_enumerate_start(sh, &key, &value), nullptr);
    EXPECT_STREQ(key, "");
    EXPECT_EQ(value, sh);
    qv_stringhash_destroy(sh);
}

TEST(StringHash, EnumerationFollowsTheStringHash) {
    qv_stringhash *sh = qv_stringhash_create(nullptr, nullptr);
    // 5 slots: "a" = 0x61 -> slot 2, "b" -> 3, "c" -> 4, "d" -> 0 ("abcd" style
    // hashing: single bytes are their own value).
    for (const char *k : {"a", "b", "c", "d"}) qv_stringhash_add(sh, k, nullptr);
    std::vector<std::string> order;
    const char *key;
    for (void *p = qv_stringhash_enumerate_start(sh, &key, nullptr); p;
         p = qv_stringhash_enumerate_next(sh, p, &key, nullptr))
        order.push_back(key);
    EXPECT_EQ(order, (std::vector<std::string>{"d", "a", "b", "c"}));
    qv_stringhash_destroy(sh);
}

TEST(StringHash, RemoveAndClearRunTheValueCallback) {
    Destroyed d;
    qv_stringhash *sh = qv_stringhash_create(Destroyed::record, &d);
    for (int i = 0; i < 300; ++i) qv_stringhash_add(sh, ("k" + std::to_string(i)).c_str(), qv_strdupf("v%d", i));
    // Removal by key during the resizes that 300 adds leave running.
    for (int i = 0; i < 300; i += 3) ASSERT_EQ(qv_stringhash_remove(sh, ("k" + std::to_string(i)).c_str()), 0);
    EXPECT_EQ(d.values.size(), 100u);
    EXPECT_EQ(d.values[1], "v3");
    EXPECT_EQ(contents(sh).size(), 200u);
    qv_stringhash_clear(sh);
    EXPECT_EQ(d.values.size(), 300u);
    EXPECT_TRUE(contents(sh).empty());
    ASSERT_EQ(qv_stringhash_add(sh, "again", qv_strdup("w")), 0);
    EXPECT_STREQ(static_cast<char *>(qv_stringhash_lookup(sh, "again")), "w");
    qv_stringhash_destroy(sh);
    EXPECT_EQ(d.values.back(), "w");
}

TEST(StringHash, CreateFromStaysBoundToTheOriginal) {
    Destroyed d;
    qv_stringhash *original = qv_stringhash_create(Destroyed::record, &d);
    qv_stringhash *copy = qv_stringhash_create_from(original);
    ASSERT_NE(copy, nullptr);
    EXPECT_TRUE(contents(copy).empty());
    qv_stringhash_add(original, "o", qv_strdup("orig"));
    qv_stringhash_add(copy, "c", qv_strdup("copy"));
    EXPECT_EQ(qv_stringhash_lookup(copy, "o"), nullptr);
    EXPECT_EQ(qv_stringhash_remove(copy, "c"), 0);
    EXPECT_EQ(d.values, std::vector<std::string>{"copy"});
    qv_stringhash_add(copy, "c2", qv_strdup("copy2"));
    qv_stringhash *grandcopy = qv_stringhash_create_from(copy);
    qv_stringhash_add(grandcopy, "g", qv_strdup("grand"));
    qv_stringhash_destroy(grandcopy);
    qv_stringhash_destroy(copy);
    qv_stringhash_destroy(original);
    EXPECT_EQ(d.values, (std::vector<std::string>{"copy", "grand", "copy2", "orig"}));
}

TEST(StringHash, AllocationFailures) {
    qvtest::LogCapture log;
    qvtest::alloc_failure_sweep([&](unsigned long failing) {
        qv_stringhash *sh = qv_stringhash_create(nullptr, nullptr);
        if (sh == nullptr) {
            ASSERT_NE(failing, 0u);
            return;
        }
        int failed = 0;
        for (int i = 0; i < 40; ++i) {
            std::string k = "key" + std::to_string(i);
            if (qv_stringhash_add(sh, k.c_str(), sh) != 0) {
                ++failed;
                EXPECT_TRUE(log.has(7, "not enough memory for stringhash item"));
                EXPECT_EQ(qv_stringhash_lookup(sh, k.c_str()), nullptr);
            } else {
                EXPECT_EQ(qv_stringhash_lookup(sh, k.c_str()), sh);
            }
        }
        EXPECT_LE(failed, 1);
        EXPECT_EQ(contents(sh).size(), static_cast<size_t>(40 - failed));
        qv_stringhash *copy = qv_stringhash_create_from(sh);
        if (copy != nullptr) qv_stringhash_destroy(copy);
        for (int i = 0; i < 40; ++i) qv_stringhash_remove(sh, ("key" + std::to_string(i)).c_str());
        EXPECT_TRUE(contents(sh).empty());
        qv_stringhash_destroy(sh);
    });
}

#define DIES(call, expr) EXPECT_DEATH(call, "src/adt/qvstringhash.cpp:[0-9]+: Assertion `" expr "' failed.")
TEST(StringHashDeathTest, PreconditionsAreAssertions) {
    qv_stringhash *sh = qv_stringhash_create(nullptr, nullptr);
    DIES(qv_stringhash_add(nullptr, "k", nullptr), "stringhash != NULL");
    DIES(qv_stringhash_lookup(sh, nullptr), "key != NULL");
    DIES(qv_stringhash_enumerate_next(sh, nullptr, nullptr, nullptr), "prevstringhashitem != NULL");
    DIES(qv_stringhash_clear(nullptr), "qvstringhash != NULL");
    DIES(qv_stringhash_create_from(nullptr), "original != NULL");
    qv_stringhash_destroy(sh);
}

}  // namespace
