// Duplication, case folding, number conversion and the small string functions.
#include <cstring>
#include <string>
#include <utility>

#include "support/qvtest.h"

namespace {

std::string take(char *s) {
    EXPECT_NE(s, nullptr);
    std::string r = s ? s : "";
    qv_free(s);
    return r;
}

TEST(Strdup, CopiesBoundsAndLowercase) {
    // Reads no further than the zero byte or n, whichever comes first.
    const char unterminated[3] = {'a', 'b', 'c'};
    const std::pair<char *, std::string> cases[] = {
        {qv_strdup("hello"), "hello"}, {qv_strndup("hello", 3), "hel"}, {qv_strndup("hi", 10), "hi"},
        {qv_strndup("hi", 0), ""}, {qv_strndup(unterminated, 3), "abc"},
        // Only ASCII capitals are folded.
        {qv_strdup_lowercase("MiXeD 123 \xC4\xD6 Z[@"), "mixed 123 \xC4\xD6 z[@"},
        {qv_strndup_lowercase("ABCDEF", 4), "abcd"}};
    for (auto &[got, want] : cases) EXPECT_EQ(take(got), want);
    const unsigned char bytes[] = {0, 1, 2, 0, 255};
    void *p = qv_memdup(bytes, sizeof bytes);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(memcmp(p, bytes, sizeof bytes), 0);
    qv_free(p);
    p = qv_memdup(bytes, 0);
    EXPECT_NE(p, nullptr);
    qv_free(p);
}

TEST(Strdup, AllocationFailuresReturnNull) {
    qvtest::alloc_failure_sweep([](unsigned long failing) {
        char *a = qv_strdup("a");
        char *b = qv_strndup_lowercase("B", 1);
        char *c = qv_i64tostr(-5);
        char *d = qv_strstrip("  d  ");
        void *e = qv_memdup("e", 1);
        int nulls = !a + !b + !c + !d + !e;
        EXPECT_EQ(nulls, failing ? 1 : 0);
        qv_free(a);
        qv_free(b);
        qv_free(c);
        qv_free(d);
        qv_free(e);
    });
}

struct ParseCase {
    const char *text;
    int code;
    int64_t value;
};

TEST(StrToI64, CodesAndStoredValues) {
    const ParseCase cases[] = {
        {"  -9223372036854775808", QV_ERROR_NONE, INT64_MIN},
        {"9223372036854775807", QV_ERROR_NONE, INT64_MAX},
        {"+17", QV_ERROR_NONE, 17},
        {"\t\n 0", QV_ERROR_NONE, 0},
        {"-0", QV_ERROR_NONE, 0},
        {"9223372036854775808", QV_ERROR_OUT_OF_RANGE, 0},
        {"-9223372036854775809", QV_ERROR_OUT_OF_RANGE, 0},
        {"18446744073709551615", QV_ERROR_OUT_OF_RANGE, 0},
        {"18446744073709551616", QV_ERROR_OUT_OF_RANGE, 0},
        {"99999999999999999999999", QV_ERROR_OUT_OF_RANGE, 0},
        {"9223372036854775808x", QV_ERROR_OUT_OF_RANGE, 0},
        {"+", QV_ERROR_INVALID_SYNTAX, 0},
        {"", QV_ERROR_INVALID_SYNTAX, 0},
        {"- 1", QV_ERROR_INVALID_SYNTAX, 0},
        {"+-1", QV_ERROR_INVALID_SYNTAX, 0},
        {"abc", QV_ERROR_INVALID_SYNTAX, 0},
        {"42 ", QV_ERROR_INCOMPLETE, 42},
        {"12abc", QV_ERROR_INCOMPLETE, 12},
        {"-3.5", QV_ERROR_INCOMPLETE, -3},
    };
    for (const ParseCase &c : cases) {
        int64_t out = 99;
        EXPECT_EQ(qv_strtoi64(c.text, &out), c.code) << '"' << c.text << '"';
        EXPECT_EQ(out, c.value) << '"' << c.text << '"';
    }
}

TEST(StrToI64, RoundTripsWithI64ToStr) {
    EXPECT_EQ(take(qv_i64tostr(0)), "0");
    EXPECT_EQ(take(qv_i64tostr(INT64_MIN)), "-9223372036854775808");
    EXPECT_EQ(take(qv_i64tostr(INT64_MAX)), "9223372036854775807");
    for (int64_t v = 1; v < INT64_MAX / 10; v = v * 10 + 7) EXPECT_EQ(take(qv_i64tostr(-v)), std::to_string(-v));
    uint64_t x = 0x9E3779B97F4A7C15ULL;
    for (int i = 0; i < 2000; ++i) {
        x ^= x << 13;
        x ^= x >> 7;
        x ^= x << 17;
        int64_t v = static_cast<int64_t>(x) >> (i % 64), back = 0;
        std::string s = take(qv_i64tostr(v));
        EXPECT_EQ(s, std::to_string(v));
        EXPECT_EQ(qv_strtoi64(s.c_str(), &back), QV_ERROR_NONE) << s;
        EXPECT_EQ(back, v);
    }
}

TEST(SmallStrings, CaseInsensitiveComparison) {
    EXPECT_EQ(qv_strcasecmp("Hello", "hELLO"), 0);
    EXPECT_LT(qv_strcasecmp("abc", "ABD"), 0);
    EXPECT_GT(qv_strcasecmp("abcd", "ABC"), 0);
    EXPECT_EQ(qv_strcasecmp("a", "b"), 'a' - 'b');
    EXPECT_EQ(qv_strncasecmp("HELLO world", "hello there", 6), 0);
    EXPECT_NE(qv_strncasecmp("HELLO world", "hello there", 7), 0);
    EXPECT_EQ(qv_strncasecmp("x", "y", 0), 0);
    EXPECT_EQ(qv_strncasecmp("ab", "AB", 10), 0);
}

TEST(SmallStrings, StrnchrExaminesExactlyNBytes) {
    const char buf[5] = {'a', 'b', '\0', 'c', 'd'};
    EXPECT_EQ(qv_strnchr(buf, 5, '\0'), buf + 2);
    EXPECT_EQ(qv_strnchr(buf, 5, 'd'), buf + 4);
    EXPECT_EQ(qv_strnchr(buf, 4, 'd'), nullptr);
    EXPECT_EQ(qv_strnchr(buf, 0, 'a'), nullptr);
}

TEST(SmallStrings, StrncpyAlwaysTerminatesAndNeverPads) {
    char buf[8];
    memset(buf, 'x', sizeof buf);
    EXPECT_EQ(qv_strncpy(buf, "hello", 1), buf);
    EXPECT_EQ(buf[0], '\0');
    EXPECT_EQ(buf[1], 'x');
    memset(buf, 'x', sizeof buf);
    qv_strncpy(buf, "hello world", sizeof buf);
    EXPECT_STREQ(buf, "hello w");
    memset(buf, 'x', sizeof buf);
    qv_strncpy(buf, "hi", sizeof buf);
    EXPECT_STREQ(buf, "hi");
    EXPECT_EQ(buf[3], 'x');
    qv_strncpy(buf, "zz", 0);
    EXPECT_STREQ(buf, "hi");
}

TEST(SmallStrings, StripEndsWithMemmem) {
    EXPECT_EQ(take(qv_strstrip(" \t a b \r\n")), "a b");
    EXPECT_EQ(take(qv_strstrip("   ")), "");
    EXPECT_EQ(take(qv_strstrip("")), "");
    EXPECT_EQ(take(qv_strstrip("x")), "x");
    EXPECT_EQ(qv_endswith("file.json", ".json"), 1);
    EXPECT_EQ(qv_endswith("file.json", ".JSON"), 0);
    EXPECT_EQ(qv_endswith("a", ""), 1);
    EXPECT_EQ(qv_endswith("a", "ba"), 0);
    const char hay[] = "abc\0abcd";
    EXPECT_EQ(qv_memmem(hay, 8, "abcd", 4), hay + 4);
    EXPECT_EQ(qv_memmem(hay, 8, "", 0), hay);
    EXPECT_EQ(qv_memmem(hay, 3, "abcd", 4), nullptr);
    EXPECT_EQ(qv_memmem(hay, 8, "\0a", 2), hay + 3);
    EXPECT_EQ(qv_memmem(hay, 8, "abce", 4), nullptr);
}

using StringDeathTest = ::testing::Test;

TEST_F(StringDeathTest, NullArgumentsAreAssertions) {
    EXPECT_DEATH(qv_strdup(nullptr), qvtest::assert_regex("src/util/qvstrdup.cpp", "string != NULL"));
    EXPECT_DEATH(qv_strstrip(nullptr), qvtest::assert_regex("src/util/qvstrstrip.cpp", "str"));
    EXPECT_DEATH(qv_snprintf(nullptr, 4, "x"),
                 qvtest::assert_regex("src/util/qvsnprintf.cpp", "str != NULL || size == 0", 2));
    EXPECT_DEATH(qv_memmem("a", 1, nullptr, 0), qvtest::assert_regex("src/util/qvmemmem.cpp", "needle != NULL"));
    int64_t out;
    EXPECT_DEATH(qv_strtoi64(nullptr, &out), qvtest::assert_regex("src/util/qvstrtoi64.cpp", "str != NULL"));
}

}  // namespace
