// Error codes: the golden list of every code and its message.
#include <gtest/gtest.h>

#include <string>

#include "qvlib.h"

namespace {

struct Golden {
    int code;
    const char *message;
};

const Golden kGolden[] = {
    {0, "success"}, {1, "operation not permitted"}, {4, "interrupted system call"},
    {5, "input/output error"}, {11, "would block"}, {12, "not enough memory"},
    {13, "permission denied"}, {14, "bad address"}, {17, "item already exists"},
    {18, "cross device link"}, {20, "not a directory"}, {22, "invalid argument"},
    {28, "no space left on device"}, {30, "read-only file system"}, {31, "too many links"},
    {32, "broken pipe"}, {34, "out of range"}, {36, "name is too long"},
    {38, "function not implemented"}, {40, "too many symbolic links"}, {62, "timer expired"},
    {71, "protocol error"}, {90, "message too long"}, {98, "address already in use"},
    {101, "network unreachable"}, {104, "connection reset by peer"},
    {110, "connection timed out"}, {111, "connection refused"}, {115, "operation in progress"},
    {122, "quota exceeded"}, {125, "operation canceled"}, {200, "cannot connect"},
    {201, "timed out"}, {202, "generic error"}, {203, "write error"}, {204, "end of file"},
    {205, "unsupported operation"}, {206, "resource is busy"}, {207, "item not found"},
    {208, "internal error"}, {209, "invalid syntax"}, {210, "unable to resolve host"},
    {211, "server returned an error"}, {212, "bad handle"}, {213, "wakeup requested"},
    {214, "operation incomplete"}, {215, "identifier mismatch"}, {216, "untrusted root ca"},
    {217, "no addresses in family"}, {218, "temporary failure"}, {219, "permanent failure"},
};

TEST(ErrorString, GoldenListOfEveryCode) {
    ASSERT_EQ(sizeof kGolden / sizeof kGolden[0], 51u);
    for (const Golden &g : kGolden) EXPECT_STREQ(qv_error_string(g.code), g.message) << g.code;
}

TEST(ErrorString, EveryOtherValueIsUnknown) {
    int known = 0;
    for (int code = -300; code <= 300; ++code) {
        bool listed = false;
        for (const Golden &g : kGolden) listed = listed || g.code == code;
        if (listed) {
            ++known;
            continue;
        }
        EXPECT_STREQ(qv_error_string(code), "unknown error") << code;
    }
    EXPECT_EQ(known, 51);
    EXPECT_STREQ(qv_error_string(INT32_MIN), "unknown error");
    EXPECT_EQ(QV_ERROR_COUNT, 220);
}

TEST(ErrorString, EnumeratorsCarryTheirNumbers) {
    EXPECT_EQ(QV_ERROR_CONNECTION_TIMED_OUT, 110);
    EXPECT_EQ(QV_ERROR_TIMED_OUT, 201);
    EXPECT_EQ(QV_ERROR_WOULD_BLOCK, 11);
    EXPECT_EQ(QV_ERROR_INCOMPLETE, 214);
    EXPECT_EQ(QV_ERROR_PERMANENT_FAILURE, 219);
}

}  // namespace
