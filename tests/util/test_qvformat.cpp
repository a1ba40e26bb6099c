// Bounded and allocating formatting and the named-variable template expander.
#include <cstring>
#include <string>

#include "support/qvtest.h"

namespace {

TEST(Snprintf, ReturnsTheNeededLengthAndAlwaysTerminates) {
    char buf[4];
    memset(buf, 'x', sizeof buf);
    EXPECT_EQ(qv_snprintf(buf, sizeof buf, "%d", 12345), 5);
    EXPECT_STREQ(buf, "123");
    EXPECT_EQ(qv_snprintf(nullptr, 0, "%s-%d", "abc", 42), 6);
    char one[1] = {'x'};
    EXPECT_EQ(qv_snprintf(one, 1, "hello"), 5);
    EXPECT_EQ(one[0], '\0');
    char exact[6];
    EXPECT_EQ(qv_snprintf(exact, sizeof exact, "hello"), 5);
    EXPECT_STREQ(exact, "hello");
    // Size 0 with a real buffer writes nothing at all.
    char untouched = 'u';
    EXPECT_EQ(qv_snprintf(&untouched, 0, "abc"), 3);
    EXPECT_EQ(untouched, 'u');
}

TEST(Snprintf, LongOutputIsMeasuredWhole) {
    std::string big(100000, 'q');
    char small[8];
    EXPECT_EQ(qv_snprintf(small, sizeof small, "<%s>", big.c_str()), 100002);
    EXPECT_STREQ(small, "<qqqqqq");
}

TEST(Asprintf, AllocatesExactlyTheFormattedString) {
    char *s = reinterpret_cast<char *>(1);
    EXPECT_EQ(qv_asprintf(&s, "%s=%05.1f", "pi", 3.14159), 8);
    EXPECT_STREQ(s, "pi=003.1");
    qv_free(s);
    std::string big(5000, 'z');
    EXPECT_EQ(qv_asprintf(&s, "[%s]", big.c_str()), 5002);
    EXPECT_EQ(std::string(s), "[" + big + "]");
    qv_free(s);
    char *e = qv_strdupf("%s", "");
    ASSERT_NE(e, nullptr);
    EXPECT_STREQ(e, "");
    qv_free(e);
    char *d = qv_strdupf("%d-%s-%c", -7, "x", 'y');
    EXPECT_STREQ(d, "-7-x-y");
    qv_free(d);
}

TEST(Asprintf, AllocationFailureLeavesNullAndMinusOne) {
    std::string big(1000, 'b');
    qvtest::alloc_failure_sweep([&](unsigned long failing) {
        char *s = reinterpret_cast<char *>(1);
        int n = qv_asprintf(&s, "%s%d", big.c_str(), 1);
        char *d = qv_strdupf("%s", "short");
        // Exactly one of the two calls meets the failing allocation.
        int failures = (n == -1 && s == nullptr) + (d == nullptr);
        EXPECT_EQ(failures, failing ? 1 : 0);
        if (n != -1) {
            EXPECT_EQ(n, 1001);
        }
        qv_free(s);
        qv_free(d);
    });
}

TEST(Format, ExpandsVariablesAndLiteralPercents) {
    char *s = qv_format("user %name% uses 100%% of %disk%", "name", "ann", "disk", "/data",
                        static_cast<const char *>(nullptr));
    ASSERT_NE(s, nullptr);
    EXPECT_STREQ(s, "user ann uses 100% of /data");
    qv_free(s);
    s = qv_format("", static_cast<const char *>(nullptr));
    ASSERT_NE(s, nullptr);
    EXPECT_STREQ(s, "");
    qv_free(s);
    // Names are case-sensitive and the first matching pair wins.
    s = qv_format("%a%%A%", "a", "1", "A", "2", "a", "3", static_cast<const char *>(nullptr));
    EXPECT_STREQ(s, "12");
    qv_free(s);
}

TEST(Format, MissingAndUnterminatedVariablesAreLoggedOnce) {
    qvtest::LogCapture cap;
    char *s = qv_format("%%%x%", static_cast<const char *>(nullptr));
    ASSERT_NE(s, nullptr);
    EXPECT_STREQ(s, "%");
    qv_free(s);
    EXPECT_EQ(cap.texts(), std::vector<std::string>{"no variable 'x' given for format string '%%%x%'"});
    EXPECT_EQ(cap.lines()[0].level, 6);
    cap.clear();
    s = qv_format("50%", static_cast<const char *>(nullptr));
    ASSERT_NE(s, nullptr);
    EXPECT_STREQ(s, "50%");
    qv_free(s);
    EXPECT_EQ(cap.texts(), std::vector<std::string>{"unterminated variable '' in format string '50%'"});
    cap.clear();
    s = qv_format("a %b c", "b", "x", static_cast<const char *>(nullptr));
    EXPECT_STREQ(s, "a %b c");
    qv_free(s);
    EXPECT_TRUE(cap.has(6, "unterminated variable 'b c' in format string 'a %b c'"));
}

TEST(Format, NullValueBeforeTheMatchFailsTheWholeCall) {
    qvtest::LogCapture cap;
    char *s = qv_format("%a%", "b", static_cast<const char *>(nullptr), "a", "x",
                        static_cast<const char *>(nullptr));
    EXPECT_EQ(s, nullptr);
    EXPECT_EQ(cap.texts(), (std::vector<std::string>{"value given for '(null)' was NULL",
                                                     "initial formatting returned error 22 (invalid argument)"}));
    EXPECT_EQ(cap.lines()[0].level, 6);
    EXPECT_EQ(cap.lines()[1].level, 6);
    cap.clear();
    // A null value after the match is never looked at.
    s = qv_format("%a%", "a", "x", "b", static_cast<const char *>(nullptr),
                  static_cast<const char *>(nullptr));
    EXPECT_STREQ(s, "x");
    qv_free(s);
    EXPECT_TRUE(cap.lines().empty());
}

TEST(Format, AllocationFailures) {
    qvtest::alloc_failure_sweep([](unsigned long failing) {
        qvtest::LogCapture cap;
        char *s = qv_format("%greeting%, %who%!", "greeting", "hello", "who", "world",
                            static_cast<const char *>(nullptr));
        if (failing == 0) {
            EXPECT_STREQ(s, "hello, world!");
        } else {
            EXPECT_EQ(s, nullptr);
            bool named = cap.has(7, "not enough memory for variable name") ||
                         cap.has(7, "not enough memory for formatting string");
            EXPECT_TRUE(named);
        }
        qv_free(s);
    });
}

}  // namespace
