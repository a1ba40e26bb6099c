// Hexadecimal: digits and case, the odd-length and bad-digit codes, round
// trips and allocation failures.
#include <gtest/gtest.h>

#include <string>

#include "qvlib.h"
#include "support/qvtest.h"
#include "util/codec_support.h"

namespace {

using codectest::bytes_of;

using Binary = codectest::Decoded;

std::string to_hex(const std::string &in) { return codectest::take(qv_bin2hex(in.data(), in.size())); }

Binary from_hex(const std::string &in) {
    void *buf = reinterpret_cast<void *>(1);
    size_t len = 999;
    int rc = qv_hex2bin(in.c_str(), &buf, &len);
    return codectest::take_decoded(rc, buf, len);
}

TEST(Bin2Hex, LowerCaseHighNibbleFirst) {
    EXPECT_EQ(to_hex(""), "");
    EXPECT_EQ(to_hex(std::string("\x00\xff\x1a\xa1", 4)), "00ff1aa1");
    std::string all;
    for (int i = 0; i < 256; ++i) all += static_cast<char>(i);
    std::string hex = to_hex(all);
    ASSERT_EQ(hex.size(), 512u);
    for (int i = 0; i < 256; ++i) {
        char expect[3];
        snprintf(expect, sizeof expect, "%02x", i);
        EXPECT_EQ(hex.substr(2 * i, 2), expect);
    }
}

TEST(Hex2Bin, DigitsOfEitherCase) {
    // Plain round trips (lower- and upper-case) are the fuzz target's job.
    EXPECT_EQ(from_hex("00FF").data, std::string("\x00\xff", 2));
    EXPECT_EQ(from_hex("aBcDeF09").data, "\xab\xcd\xef\x09");
    Binary empty = from_hex("");
    EXPECT_EQ(empty.rc, QV_ERROR_NONE);
    EXPECT_EQ(empty.data, "");
}

TEST(Hex2Bin, OddLengthAndBadDigits) {
    qvtest::LogCapture log;
    EXPECT_EQ(from_hex("abc").rc, QV_ERROR_INCOMPLETE);
    EXPECT_EQ(from_hex("0g").rc, QV_ERROR_OUT_OF_RANGE);
    // The neighbours of every accepted range, and bytes above 127.
    for (const char *bad : {"/0", "0:", "@0", "0G", "`0", "0g", " 0", "0\xc3", "\x80\x80"})
        EXPECT_EQ(from_hex(bad).rc, QV_ERROR_OUT_OF_RANGE) << bad;
    // Pairs are checked in runs; a bad digit anywhere in a long input counts.
    const std::string good = to_hex(std::string(37, '\x5a'));
    for (size_t pos = 0; pos < good.size(); ++pos) {
        std::string bad = good;
        bad[pos] = 'x';
        EXPECT_EQ(from_hex(bad).rc, QV_ERROR_OUT_OF_RANGE) << pos;
    }
    EXPECT_TRUE(log.lines().empty()) << "bad input is reported by the code alone";
}

TEST(HexAlloc, FailuresAreLoggedAndLeaveNothing) {
    qvtest::alloc_failure_sweep([](unsigned long failing) {
        qvtest::LogCapture log;
        char *s = qv_bin2hex("\x01\x02", 2);
        EXPECT_STREQ(s, failing == 1 ? nullptr : "0102");
        EXPECT_EQ(log.has(7, "not enough memory for conversion result"), failing == 1);
        qv_free(s);
    });
    qvtest::alloc_failure_sweep([](unsigned long failing) {
        qvtest::LogCapture log;
        void *buf = nullptr;
        size_t len = 5;
        EXPECT_EQ(qv_hex2bin("00FF", &buf, &len), failing == 1 ? QV_ERROR_NO_MEMORY : QV_ERROR_NONE);
        EXPECT_EQ(len, failing == 1 ? 0u : 2u);
        EXPECT_EQ(buf == nullptr, failing == 1);
        EXPECT_EQ(log.has(7, "not enough memory for binary buffer (3 bytes)"), failing == 1);
        qv_free(buf);
    });
}

TEST(HexDeathTest, NullArgumentsAreAssertions) {
    void *buf;
    size_t len;
    EXPECT_DEATH(qv_bin2hex(nullptr, 1), "src/util/qvhex.cpp:[0-9]+: Assertion `buf != NULL' failed.");
    EXPECT_DEATH(qv_hex2bin(nullptr, &buf, &len), "src/util/qvhex.cpp:[0-9]+: Assertion `hexstring != NULL' failed.");
    EXPECT_DEATH(qv_hex2bin("00", nullptr, &len), "src/util/qvhex.cpp:[0-9]+: Assertion `destptr != NULL' failed.");
    EXPECT_DEATH(qv_hex2bin("00", &buf, nullptr),
                 "src/util/qvhex.cpp:[0-9]+: Assertion `destlenptr != NULL' failed.");
}

}  // namespace
