// Base64: RFC 4648 vectors, the lenient decoder's rules, exact failure codes
// and log lines, round trips and allocation failures.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "qvlib.h"
#include "support/qvtest.h"
#include "util/codec_support.h"

namespace {

using codectest::bytes_of;

using codectest::Decoded;

std::string encode(const std::string &in) { return codectest::take(qv_base64_encode(in.data(), in.size())); }

Decoded decode(const std::string &in) {
    void *buf = reinterpret_cast<void *>(1);
    size_t len = 12345;
    int rc = qv_base64_decode(&buf, &len, in.data(), in.size());
    return codectest::take_decoded(rc, buf, len);
}

using Pairs = std::initializer_list<std::pair<std::string, std::string>>;

TEST(Base64, VectorsBothWays) {
    for (auto &[in, out] : Pairs{{"", ""}, {std::string(1, '\0'), "AA=="}, {"Man", "TWFu"}, {"f", "Zg=="},
                                 {"fo", "Zm8="}, {"foo", "Zm9v"}, {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="},
                                 {"foobar", "Zm9vYmFy"}, {"\xfb\xff\xbf", "+/+/"},
                                 {std::string(60, '\xff'), std::string(80, '/')}}) {  // no line breaks, ever
        EXPECT_EQ(encode(in), out);
        EXPECT_EQ(decode(out).data, in);
    }
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::string bytes(
        "\x00\x10\x83\x10\x51\x87\x20\x92\x8b\x30\xd3\x8f\x41\x14\x93\x51\x55\x97\x61\x96\x9b\x71\xd7\x9f"
        "\x82\x18\xa3\x92\x59\xa7\xa2\x9a\xab\xb2\xdb\xaf\xc3\x1c\xb3\xd3\x5d\xb7\xe3\x9e\xbb\xf3\xdf\xbf",
        48);
    EXPECT_EQ(encode(bytes), alphabet);
    EXPECT_EQ(decode(alphabet + alphabet).data, bytes + bytes);
}

TEST(Base64Decode, WhiteSpaceAnywhereAndLenientEnding) {
    // Padding is not checked against the leftover count; decoding stops there.
    for (auto &[in, out] : Pairs{{"T W\nF\tu", "Man"}, {"\r\n\v\fTWFu \r\n", "Man"}, {"TWE", "Ma"}, {"TQ", "M"},
                                 {"T", "\x4c"}, {"TWFuT", "Man\x4c"}, {"TQ==\n", "M"}, {"TQ= =\t", "M"},
                                 {"TWFu=", "Man"}, {"TWE==", "Ma"}, {"=", ""}, {" ", ""}, {"\r\n\t \v\f", ""}}) {
        Decoded d = decode(in);
        EXPECT_EQ(d.rc, QV_ERROR_NONE) << in;
        EXPECT_EQ(d.data, out) << in;
    }
}

TEST(Base64Decode, MalformedInputCodesAndLogLines) {
    struct Case {
        std::string in;
        int rc;
        const char *log;
    } cases[] = {
        {"TQ===", QV_ERROR_INVALID_SYNTAX, "more than two padding characters present"},
        {"TQ= = =", QV_ERROR_INVALID_SYNTAX, "more than two padding characters present"},
        {"TQ==x", QV_ERROR_INVALID_ARGUMENT, "unexpected character 0x78 after padding"},
        {"TQ==\n*", QV_ERROR_INVALID_ARGUMENT, "unexpected character 0x2a after padding"},
        {"TQ=\xe9", QV_ERROR_INVALID_ARGUMENT, "unexpected character 0xe9 after padding"},
        {"TW*u", QV_ERROR_INVALID_ARGUMENT, "invalid input character 0x2a for base64 decoder"},
        {"TWFu-_", QV_ERROR_INVALID_ARGUMENT, "invalid input character 0x2d for base64 decoder"},
        {"TWFu\xc3\xa9", QV_ERROR_INVALID_ARGUMENT, "invalid input character 0xc3 for base64 decoder"},
        {std::string("TW\0u", 4), QV_ERROR_INVALID_ARGUMENT, "invalid input character 0x00 for base64 decoder"},
        {"\x7f", QV_ERROR_INVALID_ARGUMENT, "invalid input character 0x7f for base64 decoder"},
    };
    for (const Case &c : cases) {
        qvtest::LogCapture log;
        EXPECT_EQ(decode(c.in).rc, c.rc) << c.in;
        ASSERT_EQ(log.lines().size(), 1u) << c.in;
        EXPECT_TRUE(log.has(6, c.log)) << c.in;
    }
    // The decoder takes four characters at a time where it can; a bad byte in
    // any position of any group must still be found.
    const std::string good = encode(std::string(45, 'q'));
    for (size_t pos = 0; pos < good.size(); ++pos) {
        std::string bad = good;
        bad[pos] = '.';
        qvtest::LogCapture log;
        EXPECT_EQ(decode(bad).rc, QV_ERROR_INVALID_ARGUMENT) << pos;
        EXPECT_TRUE(log.has(6, "invalid input character 0x2e for base64 decoder")) << pos;
    }
}

// Plain round trips are the fuzz target's job; here the lengths and the
// line-wrapped (PEM, MIME) and unpadded forms.
TEST(Base64RoundTrip, WrappedAndUnpaddedFormsOfEveryLengthUpTo300) {
    for (size_t n = 0; n <= 300; ++n) {
        auto bytes = codectest::random_bytes(n, static_cast<unsigned>(n));
        std::string in = bytes_of(bytes.data(), n), enc = encode(in), wrapped;
        ASSERT_EQ(enc.size(), (n + 2) / 3 * 4) << n;
        for (size_t i = 0; i < enc.size(); ++i) {
            wrapped += enc[i];
            if (i % 64 == 63 || i % 7 == 3) wrapped += i % 2 ? "\r\n" : " ";
        }
        EXPECT_EQ(decode(wrapped).data, in) << n;
        EXPECT_EQ(decode(enc.substr(0, enc.find('='))).data, in) << n;
    }
}

TEST(Base64Alloc, FailuresAreLoggedAndLeaveNothing) {
    qvtest::alloc_failure_sweep([](unsigned long failing) {
        qvtest::LogCapture log;
        char *s = qv_base64_encode("Man", 3);
        EXPECT_STREQ(s, failing == 1 ? nullptr : "TWFu");
        EXPECT_EQ(log.has(7, "not enough memory for base64 encoding"), failing == 1);
        qv_free(s);
    });
    qvtest::alloc_failure_sweep([](unsigned long failing) {
        qvtest::LogCapture log;
        void *buf = nullptr;
        size_t len = 7;
        EXPECT_EQ(qv_base64_decode(&buf, &len, "TWFu\n", 5), failing == 1 ? QV_ERROR_NO_MEMORY : QV_ERROR_NONE);
        EXPECT_EQ(len, failing == 1 ? 0u : 3u);
        EXPECT_EQ(buf == nullptr, failing == 1);
        EXPECT_EQ(log.has(7, "not enough memory for the destination buffer (4 bytes)"), failing == 1);
        qv_free(buf);
    });
}

#define DIES(call, expr) EXPECT_DEATH(call, "src/util/qvbase64.cpp:[0-9]+: Assertion `" expr "' failed.")
TEST(Base64DeathTest, NullArgumentsAreAssertions) {
    void *buf;
    size_t len;
    DIES(qv_base64_encode(nullptr, 0), "buf != NULL");
    DIES(qv_base64_decode(nullptr, &len, "", 0), "destptr != NULL");
    DIES(qv_base64_decode(&buf, nullptr, "", 0), "destlenptr != NULL");
    DIES(qv_base64_decode(&buf, &len, nullptr, 0), "source != NULL");
}

}  // namespace
