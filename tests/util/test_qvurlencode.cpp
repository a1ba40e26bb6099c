// URL encoding: the default table and skip set, the measuring and filling
// buffer protocol in both directions, decoding errors, the string forms with
// their log lines, round trips and allocation failures.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>

#include "qvlib.h"
#include "support/qvtest.h"
#include "util/codec_support.h"

namespace {

using codectest::bytes_of;

// Encodes through the buffer protocol: measure, then fill count + 1 bytes.
std::string encode(qv_urlencoder *enc, const std::string &in) {
    size_t len = 0;
    EXPECT_EQ(qv_urlencode_buffer(enc, nullptr, &len, in.data(), in.size()), QV_ERROR_OUT_OF_RANGE);
    std::string out(len + 1, '#');
    size_t size = len + 1;
    EXPECT_EQ(qv_urlencode_buffer(enc, out.data(), &size, in.data(), in.size()), QV_ERROR_NONE);
    EXPECT_EQ(size, len);
    EXPECT_EQ(out[len], '\0');
    out.resize(len);
    return out;
}

std::string encode_string(const char *in) { return codectest::take(qv_urlencode(in)); }

using codectest::Decoded;

// Decodes through the buffer protocol into a buffer of the measured size.
Decoded decode(const std::string &in) {
    size_t len = 0;
    int rc = qv_urldecode_buffer(nullptr, &len, in.data(), in.size());
    if (rc != QV_ERROR_OUT_OF_RANGE && rc != QV_ERROR_NONE) return {rc, ""};
    std::string out(len + 1, '#');
    size_t size = len + 1;
    EXPECT_EQ(qv_urldecode_buffer(out.data(), &size, in.data(), in.size()), QV_ERROR_NONE);
    EXPECT_EQ(size, len);
    EXPECT_EQ(out[len], '\0');
    out.resize(len);
    return {rc, out};
}

class UrlEncode : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_NE(enc_ = qv_urlencode_create(), nullptr); }
    void TearDown() override {
        if (enc_ != nullptr) qv_urlencode_destroy(enc_);
    }
    qv_urlencoder *enc_ = nullptr;
};

TEST_F(UrlEncode, DefaultTableCopiesExactlyTheUnreservedSet) {
    const std::string unreserved =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_.~!*'()";
    for (int c = 0; c < 256; ++c) {
        const std::string in(1, static_cast<char>(c));
        char escaped[4];
        snprintf(escaped, sizeof escaped, "%%%02X", c);
        const bool copy = c != 0 && unreserved.find(static_cast<char>(c)) != std::string::npos;
        EXPECT_EQ(encode(enc_, in), copy ? in : std::string(escaped)) << c;
    }
    EXPECT_EQ(encode_string("a b&c"), "a%20b%26c");
    EXPECT_EQ(encode_string("~user_(1).txt"), "~user_(1).txt");
    EXPECT_EQ(encode_string("\xe9+/"), "%E9%2B%2F");
}

TEST_F(UrlEncode, SkipAddsBytesAndResetRestoresTheDefaults) {
    qv_urlencode_skip(enc_, "");
    EXPECT_EQ(encode(enc_, "a:/b/c"), "a%3A%2Fb%2Fc");
    qv_urlencode_skip(enc_, "/:");
    EXPECT_EQ(encode(enc_, "a:/b/c"), "a:/b/c");
    qv_urlencode_skip(enc_, "\xe9 ");
    EXPECT_EQ(encode(enc_, "\xe9 %"), "\xe9 %25");
    qv_urlencode_reset(enc_);
    EXPECT_EQ(encode(enc_, "a:/b/c \xe9"), "a%3A%2Fb%2Fc%20%E9");
}

TEST_F(UrlEncode, BufferProtocolStoresOnlyWhatFits) {
    // "a b" needs 5 bytes and a terminator.
    char buf[8];
    for (size_t size = 0; size <= 7; ++size) {
        memset(buf, '#', sizeof buf);
        size_t len = size;
        int rc = qv_urlencode_buffer(enc_, size ? buf : nullptr, &len, "a b", 3);
        EXPECT_EQ(len, 5u) << size;
        EXPECT_EQ(rc, size >= 6 ? QV_ERROR_NONE : QV_ERROR_OUT_OF_RANGE) << size;
        EXPECT_EQ(std::string(buf, std::min<size_t>(size, 5)), std::string("a%20b").substr(0, size)) << size;
        EXPECT_EQ(buf[std::min<size_t>(size, 5)], size >= 6 ? '\0' : '#') << size;
    }
    // An empty source: with a buffer, an empty string; measuring asks for one byte.
    size_t len = 1;
    buf[0] = '#';
    EXPECT_EQ(qv_urlencode_buffer(enc_, buf, &len, "", 0), QV_ERROR_NONE);
    EXPECT_EQ(len, 0u);
    EXPECT_EQ(buf[0], '\0');
    len = 0;
    EXPECT_EQ(qv_urlencode_buffer(enc_, nullptr, &len, "", 0), QV_ERROR_OUT_OF_RANGE);
    EXPECT_EQ(len, 0u);
    char *s = nullptr;
    EXPECT_EQ(qv_urlencode_string(enc_, &s, ""), QV_ERROR_NONE);
    EXPECT_STREQ(s, "");
    qv_free(s);
}

TEST(UrlDecode, PlusPercentAndPlainBytes) {
    for (auto [in, out] : {std::pair<std::string, std::string>{"a+b", "a b"}, {"%e9%E9", "\xe9\xe9"},
                           {"%2B%25%2b", "+%+"}, {"a%00b", std::string("a\0b", 3)},
                           {"\xc3\xa9 x", "\xc3\xa9 x"}, {"", ""}})
        EXPECT_EQ(decode(in).data, out) << in;
}

TEST(UrlDecode, BrokenEscapes) {
    qvtest::LogCapture log;
    for (auto [in, rc] : {std::pair{"100%", QV_ERROR_INCOMPLETE}, {"%4", QV_ERROR_INCOMPLETE},
                          {"%zz", QV_ERROR_INVALID_SYNTAX}, {"%4z", QV_ERROR_INVALID_SYNTAX},
                          {"%z", QV_ERROR_INVALID_SYNTAX}, {"% 41", QV_ERROR_INVALID_SYNTAX}}) {
        size_t len = 0;
        EXPECT_EQ(qv_urldecode_buffer(nullptr, &len, in, strlen(in)), rc) << in;
    }
    EXPECT_TRUE(log.lines().empty()) << "the buffer form reports by code only";

    char *s = reinterpret_cast<char *>(1);
    EXPECT_EQ(qv_urldecode_string(&s, "a%4"), QV_ERROR_INCOMPLETE);
    EXPECT_EQ(s, nullptr);
    EXPECT_EQ(qv_urldecode_string(&s, "a%g0"), QV_ERROR_INVALID_SYNTAX);
    EXPECT_EQ(s, nullptr);
    EXPECT_EQ(qv_urldecode("%%"), nullptr);
    EXPECT_EQ(log.count("invalid percent encoding in the source string"), 3u);
    EXPECT_TRUE(log.has(6, "invalid percent encoding in the source string"));
}

TEST(UrlDecode, ExactFitHasNoTerminator) {
    char buf[4] = {'#', '#', '#', '#'};
    size_t len = 3;
    EXPECT_EQ(qv_urldecode_buffer(buf, &len, "abc", 3), QV_ERROR_NONE);
    EXPECT_EQ(len, 3u);
    EXPECT_EQ(std::string(buf, 4), "abc#");
    len = 2;
    EXPECT_EQ(qv_urldecode_buffer(buf, &len, "xyz", 3), QV_ERROR_OUT_OF_RANGE);
    EXPECT_EQ(len, 3u);
    EXPECT_EQ(std::string(buf, 4), "xyc#");
    len = 1;
    EXPECT_EQ(qv_urldecode_buffer(buf, &len, "", 0), QV_ERROR_NONE);
    EXPECT_EQ(len, 0u);
    EXPECT_EQ(buf[0], '\0');
}

TEST(UrlAlloc, StringFormsReportExhaustedMemory) {
    qvtest::alloc_failure_sweep([](unsigned long failing) {
        qvtest::LogCapture log;
        char *s = qv_urlencode("a b");
        if (failing == 1) {
            EXPECT_TRUE(log.has(7, "not enough memory for URL encoding context"));
            EXPECT_TRUE(log.has(7, "unable to create URL encoding context"));
        } else if (failing == 2) {
            EXPECT_TRUE(log.has(7, "not enough memory for encoded buffer (6 bytes)"));
            EXPECT_TRUE(log.has(7, "unable to urlencode string 'a b', error 12 (not enough memory)"));
        }
        if (failing != 0) {
            EXPECT_EQ(s, nullptr);
        } else {
            EXPECT_STREQ(s, "a%20b");
        }
        qv_free(s);
    });
    qvtest::alloc_failure_sweep([](unsigned long failing) {
        qvtest::LogCapture log;
        char *s = reinterpret_cast<char *>(1);
        int rc = qv_urldecode_string(&s, "a+%41");
        if (failing == 1) {
            EXPECT_EQ(rc, QV_ERROR_NO_MEMORY);
            EXPECT_EQ(s, nullptr);
            EXPECT_TRUE(log.has(7, "not enough memory for decoded buffer (4 bytes)"));
        } else {
            EXPECT_EQ(rc, QV_ERROR_NONE);
            EXPECT_STREQ(s, "a A");
        }
        qv_free(s);
    });
    qvtest::alloc_failure_sweep([](unsigned long failing) {
        qvtest::LogCapture log;
        char *s = qv_urldecode("");
        if (failing == 1) {
            EXPECT_EQ(s, nullptr);
            EXPECT_TRUE(log.has(7, "not enough memory for an empty result string"));
        } else {
            EXPECT_STREQ(s, "");
        }
        qv_free(s);
    });
}

#define DIES(call, expr) EXPECT_DEATH(call, "src/util/qvurlencode.cpp:[0-9]+: Assertion `" expr "' failed.")
TEST(UrlDeathTest, PreconditionsAreAssertions) {
    qv_urlencoder *enc = qv_urlencode_create();
    ASSERT_NE(enc, nullptr);
    size_t len = 5;
    char *s;
    DIES(qv_urlencode_destroy(nullptr), "qvurlencode != NULL");
    DIES(qv_urlencode_skip(enc, nullptr), "skipchars != NULL");
    DIES(qv_urlencode_buffer(enc, nullptr, &len, "x", 1), "dst != NULL \\|\\| \\*dstlenptr == 0");
    DIES(qv_urlencode_buffer(enc, nullptr, nullptr, "x", 1), "dstlenptr != NULL");
    DIES(qv_urldecode_buffer(nullptr, &len, "x", 1), "dst != NULL \\|\\| \\*dstlenptr == 0");
    len = 0;
    DIES(qv_urldecode_buffer(nullptr, &len, nullptr, 0), "src != NULL");
    DIES(qv_urlencode_string(enc, nullptr, "x"), "dstptr != NULL");
    DIES(qv_urlencode_string(enc, &s, nullptr), "src != NULL");
    DIES(qv_urldecode(nullptr), "string != NULL");
    qv_urlencode_destroy(enc);
}

}  // namespace
