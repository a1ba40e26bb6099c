// Bounded and allocating formatting and the named-variable template expander.
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

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

// qv_format's result as a string ("<null>" for none), the pairs closed by NULL.
template <class... A>
std::string fmt(const char *tmpl, A... pairs) {
    char *s = qv_format(tmpl, pairs..., static_cast<const char *>(nullptr));
    std::string out = s ? s : "<null>";
    qv_free(s);
    return out;
}

TEST(Format, ExpandsVariablesAndLiteralPercents) {
    qvtest::LogCapture cap;
    EXPECT_EQ(fmt("user %name% uses 100%% of %disk%", "name", "ann", "disk", "/data"), "user ann uses 100% of /data");
    EXPECT_EQ(fmt(""), "");
    // Names are case-sensitive and the first matching pair wins.
    EXPECT_EQ(fmt("%a%%A%", "a", "1", "A", "2", "a", "3"), "12");
    // A null value after the match is never looked at.
    EXPECT_EQ(fmt("%a%", "a", "x", "b", static_cast<const char *>(nullptr)), "x");
    EXPECT_TRUE(cap.lines().empty());
}

TEST(Format, MissingAndUnterminatedVariablesAreLoggedOnce) {
    const std::tuple<const char *, const char *, const char *> cases[] = {
        {"%%%x%", "%", "no variable 'x' given for format string '%%%x%'"},
        {"50%", "50%", "unterminated variable '' in format string '50%'"},
        {"a %b c", "a %b c", "unterminated variable 'b c' in format string 'a %b c'"}};
    for (auto [tmpl, out, message] : cases) {
        qvtest::LogCapture cap;
        EXPECT_EQ(fmt(tmpl, "b", "x"), out);
        EXPECT_EQ(cap.texts(), std::vector<std::string>{message});
        EXPECT_TRUE(cap.has(6, message));
    }
}

TEST(Format, NullValueBeforeTheMatchFailsTheWholeCall) {
    qvtest::LogCapture cap;
    EXPECT_EQ(fmt("%a%", "b", static_cast<const char *>(nullptr), "a", "x"), "<null>");
    EXPECT_EQ(cap.texts(), (std::vector<std::string>{"value given for '(null)' was NULL",
                                                     "initial formatting returned error 22 (invalid argument)"}));
    EXPECT_EQ(cap.lines()[0].level, 6);
    EXPECT_EQ(cap.lines()[1].level, 6);
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
