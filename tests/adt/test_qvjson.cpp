// JSON document model: setters, adders, type tests, path fetches with their
// rounding rules and messages, enumeration, deep copies, allocation failure.
#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "support/qvtest.h"

namespace {

std::vector<std::string> messages(const qvtest::LogCapture &log) {
    std::vector<std::string> v;
    for (const auto &l : log.lines())
        if (l.level < 13) v.push_back(l.text);
    return v;
}

std::string text_of(qv_json *j) {
    char *out = qv_json_output(j);
    std::string s = out ? out : "<null>";
    qv_free(out);
    return s;
}

class JsonDoc : public ::testing::Test {
protected:
    void SetUp() override { j = qv_json_create(); ASSERT_NE(j, nullptr); }
    void TearDown() override { qv_json_destroy(j); }
    qv_json *j = nullptr;
};

TEST_F(JsonDoc, RootSettersCreateThenRetypeTheSameNode) {
    ASSERT_EQ(qv_json_node_set_string(j, NULL, "hello"), 0);
    qv_json_node *first;
    ASSERT_EQ(qv_json_fetch_node(j, &first, NULL), 0);
    EXPECT_TRUE(qv_json_is_string(j, first));
    ASSERT_EQ(qv_json_node_set_integer(j, NULL, 42), 0);
    qv_json_node *second;
    ASSERT_EQ(qv_json_fetch_node(j, &second, NULL), 0);
    EXPECT_EQ(first, second);
    EXPECT_TRUE(qv_json_is_integer(j, second));
    EXPECT_TRUE(qv_json_is_number(j, second));
    EXPECT_FALSE(qv_json_is_double(j, second));
    // A string set from the node's own text survives the retype.
    ASSERT_EQ(qv_json_node_set_string(j, second, "abc"), 0);
    const char *s;
    ASSERT_EQ(qv_json_fetch_string(j, &s, NULL), 0);
    ASSERT_EQ(qv_json_node_set_string(j, second, s), 0);
    ASSERT_EQ(qv_json_fetch_string(j, &s, NULL), 0);
    EXPECT_STREQ(s, "abc");
}

TEST_F(JsonDoc, TypeTests) {
    ASSERT_EQ(qv_json_node_set_array(j, NULL), 0);
    qv_json_node *root;
    ASSERT_EQ(qv_json_fetch_node(j, &root, NULL), 0);
    qv_json_node *t = qv_json_node_array_add(j, root);
    qv_json_node *f = qv_json_node_array_add(j, root);
    qv_json_node *n = qv_json_node_array_add(j, root);
    qv_json_node *d = qv_json_node_array_add(j, root);
    ASSERT_TRUE(t && f && n && d);
    EXPECT_TRUE(qv_json_is_null(j, t));  // adders give NULL-typed nodes
    qv_json_node_set_true(j, t);
    qv_json_node_set_false(j, f);
    qv_json_node_set_double(j, d, 0.5);
    EXPECT_TRUE(qv_json_is_true(j, t) && qv_json_is_boolean(j, t) && !qv_json_is_false(j, t));
    EXPECT_TRUE(qv_json_is_false(j, f) && qv_json_is_boolean(j, f));
    EXPECT_TRUE(qv_json_is_null(j, n) && !qv_json_is_boolean(j, n));
    EXPECT_TRUE(qv_json_is_double(j, d) && qv_json_is_number(j, d) && !qv_json_is_integer(j, d));
    EXPECT_TRUE(qv_json_is_array(j, root) && !qv_json_is_object(j, root));
    EXPECT_EQ(text_of(j), "[ true, false, null, 0.5 ]");
    EXPECT_EQ(qv_json_node_fetch_next(j, t), f);
    EXPECT_EQ(qv_json_node_fetch_next_const(j, d), nullptr);
}

TEST_F(JsonDoc, IntFetchesAndTheTwoRoundingRules) {
    ASSERT_EQ(qv_json_parse(j, "{\"big\": 3000000000, \"s1\": \"2.5\", \"s2\": \"-2.5\", \"s3\": \"abc\","
                               " \"s4\": \"12abc\", \"s5\": \" 1e3\", \"t\": true, \"f\": false, \"n\": null}"),
              0);
    qv_json_node *root;
    ASSERT_EQ(qv_json_fetch_node(j, &root, NULL), 0);
    qv_json_node *d1 = qv_json_node_object_add(j, root, "d1");
    qv_json_node *d2 = qv_json_node_object_add(j, root, "d2");
    qv_json_node *d3 = qv_json_node_object_add(j, root, "d3");
    qv_json_node_set_double(j, d1, -2.5);
    qv_json_node_set_double(j, d2, 2.5);
    qv_json_node_set_double(j, d3, -2.7);
    qvtest::LogCapture log;
    int i = 99;
    int64_t v = 99;
    EXPECT_EQ(qv_json_fetch_int(j, &i, "big", NULL), -1);
    EXPECT_EQ(i, 0);
    EXPECT_TRUE(log.has(6, "value too long to fit in an int variable"));
    EXPECT_EQ(qv_json_fetch_int64(j, &v, "big", NULL), 0);
    EXPECT_EQ(v, 3000000000LL);
    struct { const char *key; int want; } cases[] = {
        {"s1", 3}, {"s2", -3}, {"d1", -2}, {"d2", 3}, {"d3", -2}, {"s4", 12}, {"s5", 1000}, {"t", 1}, {"f", 0}};
    for (auto &c : cases) {
        EXPECT_EQ(qv_json_fetch_int(j, &i, c.key, NULL), 0) << c.key;
        EXPECT_EQ(i, c.want) << c.key;
    }
    double d = 5;
    for (auto [key, rc, want] : {std::tuple{"s3", -1, 0.0}, {"s4", 0, 12.0}, {"big", 0, 3000000000.0}, {"t", 0, 1.0},
                                 {"n", -1, 0.0}}) {
        EXPECT_EQ(qv_json_fetch_double(j, &d, key, NULL), rc) << key;
        EXPECT_EQ(d, want) << key;
    }
    EXPECT_EQ(qv_json_fetch_int64(j, &v, "n", NULL), -1);
    EXPECT_EQ(v, 0);
    // The node family starts from a given node.
    EXPECT_EQ(qv_json_node_fetch_int(j, d1, &i, NULL), 0);
    EXPECT_EQ(i, -2);
    EXPECT_EQ(qv_json_node_fetch_double(j, root, &d, "d3", NULL), 0);
    EXPECT_EQ(d, -2.7);
    EXPECT_EQ(qv_json_node_fetch_int64(j, root, &v, "big", NULL), 0);
    EXPECT_EQ(v, 3000000000LL);
}

TEST_F(JsonDoc, NullBooleanAndStringFetches) {
    ASSERT_EQ(qv_json_parse(j, "{\"five\": 5, \"nil\": null, \"yes\": true, \"s\": \"x\"}"), 0);
    qvtest::LogCapture log;
    int out = 7;
    EXPECT_EQ(qv_json_fetch_null(j, &out, "five", NULL), 0);
    EXPECT_EQ(out, 0);
    EXPECT_EQ(qv_json_fetch_null(j, &out, "nil", NULL), 0);
    EXPECT_EQ(out, 1);
    EXPECT_EQ(qv_json_fetch_null(j, &out, "missing", NULL), -1);
    EXPECT_EQ(out, 0);
    EXPECT_TRUE(log.has(6, "did not find node named 'missing' under an object"));
    EXPECT_EQ(qv_json_fetch_boolean(j, &out, "yes", NULL), 0);
    EXPECT_EQ(out, 1);
    out = 7;
    EXPECT_EQ(qv_json_fetch_boolean(j, &out, "five", NULL), -1);
    EXPECT_EQ(out, 0);
    const char *s = "old";
    EXPECT_EQ(qv_json_fetch_string(j, &s, "five", NULL), -1);
    EXPECT_EQ(s, nullptr);
    EXPECT_EQ(qv_json_fetch_string(j, &s, "s", NULL), 0);
    EXPECT_STREQ(s, "x");
    const qv_json_node *root = nullptr, *five = nullptr;
    ASSERT_EQ(qv_json_fetch_node_const(j, &root, NULL), 0);
    ASSERT_EQ(qv_json_node_fetch_node_const(j, root, &five, "five", NULL), 0);
    EXPECT_TRUE(qv_json_is_integer(j, five));
    EXPECT_EQ(qv_json_node_fetch_string(j, root, &s, "s", NULL), 0);
}

TEST_F(JsonDoc, PathWalkMessages) {
    qvtest::LogCapture log;
    int i;
    EXPECT_EQ(qv_json_fetch_int(j, &i, NULL), -1);
    EXPECT_EQ(messages(log), std::vector<std::string>{"no JSON parsed"});
    ASSERT_EQ(qv_json_parse(j, "{\"a\": [10, 20, 30], \"e\": [], \"o\": {\"#\": 1}, \"n\": 5}"), 0);
    log.clear();
    EXPECT_EQ(qv_json_fetch_int(j, &i, "a", "#", 2u, NULL), 0);
    EXPECT_EQ(i, 30);
    EXPECT_EQ(qv_json_fetch_int(j, &i, "a", "#", 3u, NULL), -1);
    EXPECT_EQ(qv_json_fetch_int(j, &i, "e", "#", 0u, NULL), -1);
    EXPECT_EQ(qv_json_fetch_int(j, &i, "o", "#", 0u, NULL), -1);
    EXPECT_EQ(qv_json_fetch_int(j, &i, "n", "#", 0u, NULL), -1);
    EXPECT_EQ(qv_json_fetch_int(j, &i, "a", "x", NULL), -1);
    EXPECT_EQ(qv_json_fetch_int(j, &i, "n", "x", NULL), -1);
    EXPECT_EQ(qv_json_fetch_int(j, &i, "A", NULL), -1);  // names are case-sensitive
    EXPECT_EQ(messages(log), (std::vector<std::string>{
                                 "trying to access array beyond the end at index 2, looking for index 3",
                                 "trying to access an empty array, looking for index 0",
                                 "trying to access array but the node type is object",
                                 "trying to access array but the node type is number",
                                 "trying to access object but the node type is array",
                                 "trying to access object but the node type is number",
                                 "did not find node named 'A' under an object"}));
}

TEST_F(JsonDoc, AddersCheckTypesAndObjectAddReplaces) {
    ASSERT_EQ(qv_json_node_set_object(j, NULL), 0);
    qv_json_node *root;
    ASSERT_EQ(qv_json_fetch_node(j, &root, NULL), 0);
    qvtest::LogCapture log;
    EXPECT_EQ(qv_json_node_array_add(j, root), nullptr);
    EXPECT_TRUE(log.has(6, "node is not an array"));
    qv_json_node *first = qv_json_node_object_add(j, root, "k");
    ASSERT_EQ(qv_json_node_set_array(j, first), 0);
    ASSERT_NE(qv_json_node_array_add(j, first), nullptr);
    EXPECT_EQ(qv_json_node_object_add(j, first, "x"), nullptr);
    EXPECT_TRUE(log.has(6, "node is not an object"));
    qv_json_node *second = qv_json_node_object_add(j, root, "k");
    ASSERT_NE(second, nullptr);
    qv_json_node_set_integer(j, second, 2);
    qv_json_node *K = qv_json_node_object_add(j, root, "K");
    qv_json_node_set_integer(j, K, 3);
    std::vector<std::pair<std::string, qv_json_node *>> seen;
    const char *key;
    qv_json_node *value;
    for (void *p = qv_json_enumerate_start(j, root, &key, &value); p;
         p = qv_json_enumerate_next(j, root, p, &key, &value))
        seen.push_back({key, value});
    EXPECT_EQ(key, nullptr);
    EXPECT_EQ(value, nullptr);
    ASSERT_EQ(seen.size(), 2u);
    std::set<std::string> names{seen[0].first, seen[1].first};
    EXPECT_EQ(names, (std::set<std::string>{"k", "K"}));
    qv_json_node *got;
    ASSERT_EQ(qv_json_fetch_node(j, &got, "k", NULL), 0);
    EXPECT_EQ(got, second);
    // Enumerating something that is not an object.
    log.clear();
    key = "x";
    EXPECT_EQ(qv_json_enumerate_start(j, second, &key, &value), nullptr);
    EXPECT_EQ(key, nullptr);
    EXPECT_EQ(messages(log), std::vector<std::string>{"node is not an object"});
}

TEST_F(JsonDoc, CopiesAreDeepAndMerge) {
    qv_json *src = qv_json_create();
    ASSERT_EQ(qv_json_parse(src, "{\"a\": [1, \"two\", {\"b\": 2.5}], \"c\": \"d\"}"), 0);
    ASSERT_EQ(qv_json_parse(j, "{\"c\": 0, \"z\": true}"), 0);
    qv_json_node *root;
    ASSERT_EQ(qv_json_fetch_node(j, &root, NULL), 0);
    ASSERT_EQ(qv_json_node_copy(j, root, src), 0);
    qv_json_destroy(src);  // nothing of the copy points into the source
    // Within one document: an array into itself doubles, an object into itself stays.
    qv_json_node *a, *obj;
    ASSERT_EQ(qv_json_fetch_node(j, &a, "a", NULL), 0);
    ASSERT_EQ(qv_json_node_copy_node(j, a, j, a), 0);
    ASSERT_EQ(qv_json_fetch_node(j, &obj, "a", "#", 2u, NULL), 0);
    ASSERT_EQ(qv_json_node_copy_node(j, obj, j, obj), 0);
    // (Member order is the table's business: compare the array alone.)
    qv_json *tmp = qv_json_create();
    qv_json_node *r;
    ASSERT_EQ(qv_json_node_set_array(tmp, NULL), 0);
    ASSERT_EQ(qv_json_fetch_node(tmp, &r, NULL), 0);
    ASSERT_EQ(qv_json_fetch_node(j, &a, "a", NULL), 0);
    ASSERT_EQ(qv_json_node_copy_node(tmp, r, j, a), 0);
    EXPECT_EQ(text_of(tmp), "[ 1, \"two\", { \"b\": 2.5 }, 1, \"two\", { \"b\": 2.5 } ]");
    qv_json_destroy(tmp);
    const char *s;
    int yes = 0;
    EXPECT_EQ(qv_json_fetch_string(j, &s, "c", NULL), 0);
    EXPECT_STREQ(s, "d");
    EXPECT_EQ(qv_json_fetch_boolean(j, &yes, "z", NULL), 0);
    EXPECT_EQ(yes, 1);

    // A source document without a root copies nothing; types must match.
    qv_json *empty = qv_json_create();
    EXPECT_EQ(qv_json_node_copy(j, root, empty), 0);
    qv_json_destroy(empty);
    qvtest::LogCapture log;
    EXPECT_EQ(qv_json_node_copy_node(j, root, j, a), QV_ERROR_INVALID_ARGUMENT);
    EXPECT_EQ(messages(log), std::vector<std::string>{"the node types do not match"});
}

#define DIES(call, file, expr) EXPECT_DEATH(call, "src/adt/" file ":[0-9]+: Assertion `" expr "' failed.")
TEST(JsonDocDeathTest, PreconditionsAreAsserted) {
    DIES(qv_json_destroy(NULL), "qvjson.cpp", "qvjson != NULL");
    qv_json *j = qv_json_create();
    DIES(qv_json_output(j), "qvjson_write.cpp", "qvjson->root != NULL");
    DIES(qv_json_fetch_int(j, NULL, NULL), "qvjson.cpp", "valueptr != NULL");
    qv_json_node *root, *s;
    qv_json_node_set_object(j, NULL);
    qv_json_fetch_node(j, &root, NULL);
    qv_json_node_set_string(j, s = qv_json_node_object_add(j, root, "s"), "x");
    DIES(qv_json_node_copy_node(j, root, j, s), "qvjson.cpp",
         "sourcenode->nodetype == QV_JSON_TYPE_OBJECT \\|\\| sourcenode->nodetype == QV_JSON_TYPE_ARRAY");
    qv_json_destroy(j);
}

// Building through the API, then copying: every allocation failing in turn
// gives the documented result and leaks nothing.
TEST(JsonDocAlloc, BuildAndCopyUnderAllocationFailure) {
    unsigned long runs = 0;
    qvtest::alloc_failure_sweep([&](unsigned long failing) {
        ++runs;
        qvtest::LogCapture log;
        qv_json *j = qv_json_create();
        if (j == nullptr) return;
        qv_json_node *root = nullptr;
        bool all = qv_json_node_set_object(j, NULL) == 0 && qv_json_fetch_node(j, &root, NULL) == 0;
        for (int i = 0; all && i < 8; ++i) {  // strings and arrays of 20 integers
            qv_json_node *v = qv_json_node_object_add(j, root, ("member" + std::to_string(i)).c_str());
            int rc = v == nullptr ? -1 : i % 2 ? qv_json_node_set_string(j, v, "text") : qv_json_node_set_array(j, v);
            EXPECT_TRUE(v == nullptr || rc == 0 || rc == QV_ERROR_NO_MEMORY) << rc;
            all = rc == 0;
            for (int k = 0; all && i % 2 == 0 && k < 20; ++k) {
                qv_json_node *e = qv_json_node_array_add(j, v);
                all = e != nullptr && qv_json_node_set_integer(j, e, k) == 0;
            }
        }
        qv_json *copy = all ? qv_json_create() : nullptr;
        qv_json_node *croot = nullptr;
        if (copy != nullptr && qv_json_node_set_object(copy, NULL) == 0 &&
            qv_json_fetch_node(copy, &croot, NULL) == 0) {
            int rc = qv_json_node_copy(copy, croot, j);
            EXPECT_TRUE(rc == 0 || rc == QV_ERROR_NO_MEMORY) << rc;
            char *a = rc == 0 ? qv_json_output(j) : nullptr, *b = rc == 0 ? qv_json_output(copy) : nullptr;
            if (a && b) {
                EXPECT_EQ(strlen(a), strlen(b));
            }
            qv_free(a);
            qv_free(b);
        }
        if (copy != nullptr) qv_json_destroy(copy);
        EXPECT_TRUE(failing != 0 || all);
        EXPECT_TRUE(all || !messages(log).empty());
        qv_json_destroy(j);
    });
    if (qvtest::fault_injection_available()) {
        EXPECT_GT(runs, 20u);
    }
}

}  // namespace
