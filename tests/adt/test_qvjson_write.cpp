// JSON writer: the fixed spacing, escaping byte by byte, "%g" doubles equal
// to printf's (also under a decimal-comma locale), a growing buffer, and
// allocation failure while writing.
#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include "support/qvtest.h"

namespace {

std::string output(qv_json *j) {
    char *out = qv_json_output(j);
    std::string s = out ? out : "<null>";
    qv_free(out);
    return s;
}

std::string printf_g(double d) {
    char buf[64];
    snprintf(buf, sizeof buf, "%g", d);
    return buf;
}

// The spacing is shown by the case folders (tests/json/valid).
TEST(JsonWrite, EscapesByteByByte) {
    qv_json *j = qv_json_create();
    std::string all;
    for (int c = 1; c < 256; ++c) all += static_cast<char>(c);
    qv_json_node_set_string(j, NULL, all.c_str());
    std::string want = "\"\\u0001\\u0002\\u0003\\u0004\\u0005\\u0006\\u0007\\b\\t\\n\\u000b\\f\\r\\u000e\\u000f"
                       "\\u0010\\u0011\\u0012\\u0013\\u0014\\u0015\\u0016\\u0017\\u0018\\u0019\\u001a\\u001b"
                       "\\u001c\\u001d\\u001e\\u001f !\\\"#$%&'()*+,-./";
    for (int c = '0'; c < 256; ++c) {
        if (c == '\\') want += "\\\\";
        else want += static_cast<char>(c);
    }
    want += "\"";
    EXPECT_EQ(output(j), want);
    qv_json_node_set_string(j, NULL, "\t\x01");
    EXPECT_EQ(output(j), "\"\\t\\u0001\"");
    // Member names are escaped the same way.
    qv_json_node_set_object(j, NULL);
    qv_json_node *root;
    qv_json_fetch_node(j, &root, NULL);
    qv_json_node_set_true(j, qv_json_node_object_add(j, root, "a\"b\n"));
    EXPECT_EQ(output(j), "{ \"a\\\"b\\n\": true }");
    qv_json_destroy(j);
}

// The double form is printf's "%g" in the C locale, byte for byte.
TEST(JsonWrite, DoublesMatchPrintfG) {
    ASSERT_STREQ(setlocale(LC_NUMERIC, NULL), "C");
    qv_json *j = qv_json_create();
    std::mt19937_64 rng(1234);
    std::uniform_int_distribution<int> exp10(-30, 30);
    auto check = [&](double d) {
        qv_json_node_set_double(j, NULL, d);
        ASSERT_EQ(output(j), printf_g(d)) << std::hexfloat << d;
    };
    for (double d : {0.0, -0.0, 1.0, -1.0, 0.1, 2.5, 100.0, 123456.0, 999999.0, 999999.5, 999999.4999,
                     1e6, 1e-4, 1e-5, 0.00012345, 123456.5, 1234565.0, 1e21, 1e22, 1e23, 5e-324,
                     1.7976931348623157e308, 2.2250738585072014e-308, 9.999995, 0.0000999995}) {
        check(d);
        check(-d);
    }
    for (int i = 0; i < 300000; ++i) {
        double d;
        switch (i % 4) {
        case 0: {  // any finite bit pattern
            uint64_t bits = rng();
            std::memcpy(&d, &bits, sizeof d);
            if (!std::isfinite(d)) continue;
            break;
        }
        case 1:  // a few decimal digits at some scale
            d = static_cast<double>(rng() % 10000000) * std::pow(10.0, exp10(rng));
            break;
        case 2:  // exact ties of the sixth digit
            d = (static_cast<double>(rng() % 1000000) + 0.5) * std::pow(10.0, exp10(rng) % 8);
            break;
        default:  // doubles next to those ties
            d = std::nextafter((static_cast<double>(rng() % 1000000) + 0.5) * std::pow(10.0, exp10(rng) % 8),
                               (rng() & 1) ? 0.0 : 1e300);
            break;
        }
        check(d);
        if (HasFatalFailure()) break;
    }
    qv_json_destroy(j);
}

TEST(JsonWrite, DecimalCommaLocaleStillWritesADot) {
    const char *old = setlocale(LC_NUMERIC, NULL);
    std::string saved = old ? old : "C";
    if (setlocale(LC_NUMERIC, "de_DE.UTF-8") == nullptr && setlocale(LC_NUMERIC, "de_DE.utf8") == nullptr)
        GTEST_SKIP() << "no de_DE locale (generate one with localedef -i de_DE -f UTF-8 de_DE.UTF-8)";
    ASSERT_EQ(printf_g(2.5), "2,5");  // the locale really is active
    qv_json *j = qv_json_create();
    ASSERT_EQ(qv_json_parse(j, "[2.5, 1234565.0, 0.000123]"), 0);
    qv_json_node *root;
    qv_json_fetch_node(j, &root, NULL);
    // 1.5e300 is formatted by the C library, which follows the locale.
    qv_json_node_set_double(j, qv_json_node_array_add(j, root), 1.5e300);
    std::string text = output(j);
    setlocale(LC_NUMERIC, saved.c_str());
    EXPECT_EQ(text, "[ 2.5, 1.23456e+06, 0.000123, 1.5e+300 ]");
    qv_json_destroy(j);
}

TEST(JsonWrite, LargeDocumentsGrowTheBuffer) {
    qv_json *j = qv_json_create();
    qv_json_node_set_array(j, NULL);
    qv_json_node *root;
    qv_json_fetch_node(j, &root, NULL);
    std::string want = "[ ";
    std::string item(100, 'x');
    for (int i = 0; i < 1000; ++i) {
        qv_json_node_set_string(j, qv_json_node_array_add(j, root), item.c_str());
        want += "\"" + item + "\"" + (i < 999 ? ", " : " ");
    }
    want += "]";
    EXPECT_EQ(output(j), want);
    EXPECT_GT(want.size(), 100000u);
    qv_json_destroy(j);
}

// Arrays and objects nested depth levels deep, alternating, around the
// integer 7; returns the text the writer must produce.
std::string nest(qv_json *j, int depth) {
    qv_json_node *n = nullptr;
    std::string open, close;  // close is built backwards
    for (int i = 0; i < depth; ++i) {
        if (i % 2 == 0) {
            qv_json_node_set_array(j, n);
            if (n == nullptr) qv_json_fetch_node(j, &n, NULL);
            n = qv_json_node_array_add(j, n);
            open += "[ ";
            close += "] ";
        } else {
            qv_json_node_set_object(j, n);
            n = qv_json_node_object_add(j, n, "k");
            open += "{ \"k\": ";
            close += "} ";
        }
    }
    qv_json_node_set_integer(j, n, 7);
    return open + "7" + std::string(close.rbegin(), close.rend());
}

// The writer, deep copies and the destructor walk the tree without
// recursing: a tree built through the API has no depth limit, and a stack
// would have one.
TEST(JsonWrite, TreesNestedFarBeyondTheStackAreWrittenCopiedAndDestroyed) {
    qv_json *j = qv_json_create();
    std::string want = nest(j, 300000);
    EXPECT_EQ(output(j), want);
    qv_json *copy = qv_json_create();
    qv_json_node_set_array(copy, NULL);
    qv_json_node *croot = nullptr;
    qv_json_fetch_node(copy, &croot, NULL);
    EXPECT_EQ(qv_json_node_copy(copy, croot, j), 0);
    EXPECT_EQ(output(copy), want);
    qv_json_destroy(copy);
    qv_json_destroy(j);
}

// Deeper than the walks' first frames, so their stacks grow (and may fail
// to). A failed copy leaves the destination as it was.
TEST(JsonWrite, AllocationFailureWhileWritingOrCopyingADeepTree) {
    qv_json *j = qv_json_create();
    std::string want = nest(j, 200);
    qvtest::alloc_failure_sweep([&](unsigned long failing) {
        qvtest::LogCapture log;
        char *out = qv_json_output(j);
        if (out == nullptr) {
            EXPECT_NE(failing, 0u);
            ASSERT_FALSE(log.lines().empty());
            EXPECT_EQ(log.lines().back().text.rfind("not enough memory for JSON output", 0), 0u);
            return;
        }
        EXPECT_EQ(want, out);
        qv_free(out);
    });
    qvtest::alloc_failure_sweep([&](unsigned long failing) {
        qvtest::LogCapture log;
        qv_json *copy = qv_json_create();
        qv_json_node *croot = nullptr;
        if (copy == nullptr || qv_json_node_set_array(copy, NULL) != 0 ||
            qv_json_fetch_node(copy, &croot, NULL) != 0) {
            EXPECT_NE(failing, 0u);
            if (copy != nullptr) qv_json_destroy(copy);
            return;
        }
        int rc = qv_json_node_copy(copy, croot, j);
        if (rc == 0) {
            // The failing allocation may be the writer's, after the copy.
            std::string got = output(copy);
            if (got != "<null>" || failing == 0) {
                EXPECT_EQ(got, want);
            }
        } else {
            EXPECT_EQ(rc, QV_ERROR_NO_MEMORY);
            EXPECT_NE(failing, 0u);
            EXPECT_FALSE(log.lines().empty());
            EXPECT_EQ(output(copy), "[ ]");
        }
        qv_json_destroy(copy);
    });
    qv_json_destroy(j);
}

TEST(JsonWrite, AllocationFailureWhileWriting) {
    qv_json *j = qv_json_create();
    std::string text = "[";
    for (int i = 0; i < 300; ++i) text += "{\"key\": \"value with \\\"quotes\\\"\", \"n\": 1.25},";
    text += "0]";
    ASSERT_EQ(qv_json_parse(j, text.c_str()), 0);
    std::string want = output(j);
    ASSERT_GT(want.size(), 4095u * 2);
    unsigned long runs = 0;
    qvtest::alloc_failure_sweep([&](unsigned long failing) {
        ++runs;
        qvtest::LogCapture log;
        char *out = qv_json_output(j);
        if (out == nullptr) {
            EXPECT_NE(failing, 0u);
            ASSERT_FALSE(log.lines().empty());
            const std::string &m = log.lines().back().text;
            EXPECT_TRUE(m == "not enough memory for JSON output" ||
                        m.rfind("not enough memory for JSON output buffer (", 0) == 0 ||
                        m == "not enough memory for JSON output result") << m;
            return;
        }
        EXPECT_EQ(want, out);
        qv_free(out);
    });
    if (qvtest::fault_injection_available()) {
        EXPECT_GE(runs, 4u);  // first buffer, two doublings at least, result
    }
    qv_json_destroy(j);
}

}  // namespace
