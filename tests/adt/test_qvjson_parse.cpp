// JSON parser: the data-driven case folders (tests/json/valid and invalid),
// the benchmark corpora round trip, number conversion against strtod, and
// allocation failure over a nested document.
#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "support/qvtest.h"

namespace {

const std::string kCases = std::string(QV_SOURCE_DIR) + "/tests/json";
const std::string kCorpus = "/work/shared/data/json";

std::vector<std::string> case_names(const std::string &dir) {
    std::vector<std::string> names;
    if (DIR *d = opendir(dir.c_str())) {
        while (dirent *e = readdir(d))
            if (e->d_name[0] != '.') names.push_back(e->d_name);
        closedir(d);
    }
    std::sort(names.begin(), names.end());
    return names;
}

// The failure messages of the log, without the tables' tracing (level 13).
std::vector<std::string> messages(const qvtest::LogCapture &log) {
    std::vector<std::string> v;
    for (const auto &l : log.lines())
        if (l.level < 13) v.push_back(l.text);
    return v;
}

std::string chomp(std::string s) {
    if (!s.empty() && s.back() == '\n') s.pop_back();
    return s;
}

// Parses text and writes it back; "" when either step fails.
std::string rewrite(qv_json *j, const std::string &text) {
    if (qv_json_parse(j, text.c_str()) != 0) return "";
    char *out = qv_json_output(j);
    if (out == nullptr) return "";
    std::string s(out);
    qv_free(out);
    return s;
}

TEST(JsonParseCases, ValidFoldersWriteTheExpectedText) {
    auto names = case_names(kCases + "/valid");
    ASSERT_GE(names.size(), 20u);
    qv_json *j = qv_json_create();
    for (const auto &name : names) {
        SCOPED_TRACE(name);
        std::string dir = kCases + "/valid/" + name;
        std::string input = qvtest::read_file(dir + "/input.json");
        std::string expected = chomp(qvtest::read_file(dir + "/expected.json"));
        qvtest::LogCapture log;
        EXPECT_EQ(rewrite(j, input), expected);
        EXPECT_TRUE(messages(log).empty());
        // The written text is itself a valid input that writes the same,
        // unless the writer used an exponent or wrote a negative zero double
        // (which reads back as the integer 0).
        if (expected.find("e+") == std::string::npos && expected.find("e-") == std::string::npos &&
            expected.find("-0 ") == std::string::npos) {
            EXPECT_EQ(rewrite(j, expected), expected);
        }
    }
    qv_json_destroy(j);
}

TEST(JsonParseCases, InvalidFoldersLogTheExpectedMessage) {
    auto names = case_names(kCases + "/invalid");
    ASSERT_GE(names.size(), 40u);
    qv_json *j = qv_json_create();
    for (const auto &name : names) {
        SCOPED_TRACE(name);
        std::string dir = kCases + "/invalid/" + name;
        std::string input = qvtest::read_file(dir + "/input.json");
        std::string expected = chomp(qvtest::read_file(dir + "/expected.log"));
        ASSERT_EQ(qv_json_parse(j, "[ \"old\" ]"), 0);
        qvtest::LogCapture log;
        EXPECT_EQ(qv_json_parse(j, input.c_str()), -1);
        EXPECT_EQ(messages(log), std::vector<std::string>{expected});
        EXPECT_TRUE(log.has(6, expected));
        // The document is left without a root.
        log.clear();
        qv_json_node *root = reinterpret_cast<qv_json_node *>(1);
        EXPECT_EQ(qv_json_fetch_node(j, &root, NULL), -1);
        EXPECT_EQ(root, nullptr);
        EXPECT_TRUE(log.has(6, "no JSON parsed"));
    }
    qv_json_destroy(j);
}

TEST(JsonParse, ScalarsGetTheirTypes) {
    qv_json *j = qv_json_create();
    ASSERT_EQ(qv_json_parse(j, "[12, 1.5, 123456789012345678901, \"s\", true, false, null, {}, []]"), 0);
    const qv_json_node *n;
    int expect_type[] = {QV_JSON_TYPE_INTEGER, QV_JSON_TYPE_DOUBLE, QV_JSON_TYPE_DOUBLE,
                         QV_JSON_TYPE_STRING,  QV_JSON_TYPE_TRUE,   QV_JSON_TYPE_FALSE,
                         QV_JSON_TYPE_NULL,    QV_JSON_TYPE_OBJECT, QV_JSON_TYPE_ARRAY};
    for (unsigned i = 0; i < 9; ++i) {
        ASSERT_EQ(qv_json_fetch_node_const(j, &n, "#", i, NULL), 0);
        int t = qv_json_is_integer(j, n)  ? QV_JSON_TYPE_INTEGER
                : qv_json_is_double(j, n) ? QV_JSON_TYPE_DOUBLE
                : qv_json_is_string(j, n) ? QV_JSON_TYPE_STRING
                : qv_json_is_true(j, n)   ? QV_JSON_TYPE_TRUE
                : qv_json_is_false(j, n)  ? QV_JSON_TYPE_FALSE
                : qv_json_is_null(j, n)   ? QV_JSON_TYPE_NULL
                : qv_json_is_object(j, n) ? QV_JSON_TYPE_OBJECT
                : qv_json_is_array(j, n)  ? QV_JSON_TYPE_ARRAY
                                          : -1;
        EXPECT_EQ(t, expect_type[i]) << i;
    }
    double d;
    ASSERT_EQ(qv_json_fetch_double(j, &d, "#", 2u, NULL), 0);
    EXPECT_EQ(d, 123456789012345678901.0);
    qv_json_destroy(j);
}

TEST(JsonParse, RepeatedKeysKeepTheLastValueInLargeObjects) {
    qv_json *j = qv_json_create();
    ASSERT_EQ(qv_json_parse(j, "{\"a\":1,\"b\":2,\"c\":3,\"a\":4,\"d\":5,\"e\":6,\"f\":7,\"a\":8,\"g\":9}"), 0);
    int64_t v;
    ASSERT_EQ(qv_json_fetch_int64(j, &v, "a", NULL), 0);
    EXPECT_EQ(v, 8);
    int members = 0;
    qv_json_node *root;
    ASSERT_EQ(qv_json_fetch_node(j, &root, NULL), 0);
    for (void *p = qv_json_enumerate_start(j, root, NULL, NULL); p; p = qv_json_enumerate_next(j, root, p, NULL, NULL))
        ++members;
    EXPECT_EQ(members, 7);
    qv_json_destroy(j);
}

TEST(JsonParse, FailureReplacesTheOldTreeToo) {
    qv_json *j = qv_json_create();
    ASSERT_EQ(qv_json_parse(j, "[1]"), 0);
    qvtest::LogCapture log;
    EXPECT_EQ(qv_json_parse(j, "[1, {\"a\": [2, 3, {\"b\": x}]}]"), -1);
    EXPECT_EQ(messages(log), std::vector<std::string>{"unable to parse a value for a key"});
    int isnull = 7;
    EXPECT_EQ(qv_json_fetch_null(j, &isnull, NULL), -1);
    EXPECT_EQ(isnull, 0);
    qv_json_destroy(j);
}

// Parsed members and short strings share the document's chunks; editing them
// afterwards (replace a member, retype a string node) must free only what the
// edit owns. Sanitizer builds catch a wrong free here.
TEST(JsonParse, EditingAParsedDocument) {
    qv_json *j = qv_json_create();
    ASSERT_EQ(qv_json_parse(j, "{\"a\": \"short\", \"b\": {\"c\": \"x\"}}"), 0);
    qv_json_node *c = nullptr;
    ASSERT_EQ(qv_json_fetch_node(j, &c, "b", "c", NULL), 0);
    EXPECT_EQ(qv_json_node_set_string(j, c, "replaced"), 0);
    qv_json_node *root = nullptr;
    ASSERT_EQ(qv_json_fetch_node(j, &root, NULL), 0);
    qv_json_node *a = qv_json_node_object_add(j, root, "a");
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(qv_json_node_set_integer(j, a, 5), 0);
    const char *text = nullptr;
    EXPECT_EQ(qv_json_fetch_string(j, &text, "b", "c", NULL), 0);
    EXPECT_STREQ(text, "replaced");
    int64_t v = 0;
    EXPECT_EQ(qv_json_fetch_int64(j, &v, "a", NULL), 0);
    EXPECT_EQ(v, 5);
    ASSERT_EQ(qv_json_parse(j, "[\"again\"]"), 0);
    EXPECT_EQ(qv_json_fetch_string(j, &text, "#", 0u, NULL), 0);
    EXPECT_STREQ(text, "again");
    qv_json_destroy(j);
}

TEST(JsonParse, CorporaRoundTrip) {
    int done = 0;
    for (const char *name : {"twitter.json", "citm_catalog.json", "canada.json"}) {
        std::string text = qvtest::read_file(kCorpus + "/" + name);
        if (text.empty()) continue;
        SCOPED_TRACE(name);
        qv_json *j = qv_json_create();
        std::string a = rewrite(j, text);
        ASSERT_FALSE(a.empty());
        EXPECT_EQ(rewrite(j, a), a);
        qv_json_destroy(j);
        ++done;
    }
    if (done == 0) GTEST_SKIP() << "no corpus under " << kCorpus;
}

// Random decimal texts: every double the parser makes equals strtod's (in
// the C locale) bit for bit.
TEST(JsonParse, NumbersMatchStrtod) {
    ASSERT_STREQ(setlocale(LC_NUMERIC, NULL), "C");
    std::mt19937_64 rng(42);
    qv_json *j = qv_json_create();
    auto digits = [&](int n) {
        std::string s;
        for (int i = 0; i < n; ++i) s += static_cast<char>('0' + rng() % 10);
        return s;
    };
    for (int i = 0; i < 200000; ++i) {
        std::string num = (rng() & 1) ? "-" : "";
        int intdigits = static_cast<int>(rng() % 21);
        int fracdigits = 1 + static_cast<int>(rng() % 25);
        std::string ip = intdigits ? digits(intdigits) : "0";
        if (ip.size() > 1 && ip[0] == '0' && ip[1] == '0') ip[0] = '1';
        if (i % 7 == 0) ip = "0", num += ip + "." + std::string(rng() % 30, '0') + digits(fracdigits);
        else num += ip + "." + digits(fracdigits);
        std::string text = "[" + num + "]";
        ASSERT_EQ(qv_json_parse(j, text.c_str()), 0) << text;
        double got;
        ASSERT_EQ(qv_json_fetch_double(j, &got, "#", 0u, NULL), 0);
        double want = strtod(num.c_str(), nullptr);
        ASSERT_EQ(std::memcmp(&got, &want, sizeof got), 0) << num << " " << got << " " << want;
    }
    // Half-way cases and the edges of the fast paths.
    for (const char *num : {"9007199254740993.0", "9007199254740992.5", "0.30000000000000004",
                            "2.2250738585072011", "179769313486231570814527423731704356798070567525844996598917476803157260780028538760589558632766878171540458953514382464234321326889464182768467546703537516986049910576551282076245490090389328944075868508455133942304583236903222948165808559332123348274797826204144723168738177180919299881250404026184124858368.0",
                            "0.000000000000000000000000000000000000000000000000000000000000000000000000000001",
                            "7.2057594037927933", "1.00000000000000011102230246251565404236316680908203125"}) {
        std::string text = std::string("[") + num + "]";
        ASSERT_EQ(qv_json_parse(j, text.c_str()), 0) << num;
        double got;
        ASSERT_EQ(qv_json_fetch_double(j, &got, "#", 0u, NULL), 0);
        double want = strtod(num, nullptr);
        EXPECT_EQ(std::memcmp(&got, &want, sizeof got), 0) << num;
    }
    qv_json_destroy(j);
}

TEST(JsonParse, AllocationFailureOverANestedDocument) {
    // Objects above and below the sorting threshold, escapes, big arrays.
    std::string text = "{\"a\": [1, 2.5, \"x\\ty\", {\"b\": null, \"c\": [true, false]}], "
                       "\"d\": {\"e1\":1,\"e2\":2,\"e3\":3,\"e4\":4,\"e5\":5,\"e6\":6,\"e1\":7}, \"f\": [";
    for (int i = 0; i < 40; ++i) text += std::to_string(i) + ",";
    text += "\"\\u00e9\"]}";
    qv_json *ref = qv_json_create();
    ASSERT_EQ(qv_json_parse(ref, text.c_str()), 0);
    char *expected = qv_json_output(ref);
    std::string want(expected);
    qv_free(expected);
    qv_json_destroy(ref);
    unsigned long runs = 0;
    qvtest::alloc_failure_sweep([&](unsigned long failing) {
        ++runs;
        qvtest::LogCapture log;
        qv_json *j = qv_json_create();
        if (j == nullptr) {
            EXPECT_NE(failing, 0u);
            EXPECT_TRUE(log.has(7, "not enough memory for qvjson context"));
            return;
        }
        int rc = qv_json_parse(j, text.c_str());
        if (failing == 0) {
            EXPECT_EQ(rc, 0);
        } else if (rc != 0) {
            EXPECT_EQ(rc, -1);
            ASSERT_FALSE(messages(log).empty());
            EXPECT_EQ(log.lines().back().level, 7) << log.lines().back().text;
            qv_json_node *root = nullptr;
            EXPECT_EQ(qv_json_fetch_node(j, &root, NULL), -1);
        }
        if (rc == 0) {
            char *out = qv_json_output(j);
            if (out != nullptr) {
                EXPECT_EQ(want, out);
                qv_free(out);
            } else {
                EXPECT_NE(failing, 0u);
            }
        }
        qv_json_destroy(j);
    });
    if (qvtest::fault_injection_available()) {
        EXPECT_GT(runs, 15u);
    }
}

}  // namespace
