// The string hash, bit for bit: the values callers and enumeration order
// depend on.
#include <cstring>
#include <string>

#include "support/qvtest.h"

namespace {

// The hash written out one byte at a time, as a reference for longer inputs.
uint32_t reference(const char *s) {
    uint32_t h = 0;
    for (;;) {
        uint32_t w = 0;
        int n = 0;
        while (n < 4 && s[n] != '\0') w = (w << 8) | static_cast<unsigned char>(s[n++]);
        h = ((h << 5) | (h >> 27)) ^ w;
        if (n < 4) return h;
        s += 4;
    }
}

TEST(HashFuncString, KnownValues) {
    EXPECT_EQ(qv_hashfunc_string(""), 0u);
    EXPECT_EQ(qv_hashfunc_string("a"), 0x61u);
    EXPECT_EQ(qv_hashfunc_string("abc"), 0x616263u);
    EXPECT_EQ(qv_hashfunc_string("abcd"), 0x2c4c6c8cu);  // the extra rotation
    EXPECT_EQ(qv_hashfunc_string("abcde"), 0x2c4c6ce9u);
    EXPECT_EQ(qv_hashfunc_string("\x80"), 0x80u);  // bytes enter unsigned
    EXPECT_EQ(qv_hashfunc_string("\xff\xff\xff\xff"), 0xffffffffu);
    EXPECT_NE(qv_hashfunc_string("Key"), qv_hashfunc_string("key"));
}

TEST(HashFuncString, MatchesTheBytewiseReferenceAtEveryLength) {
    std::string s;
    for (int len = 0; len < 70; ++len) {
        EXPECT_EQ(qv_hashfunc_string(s.c_str()), reference(s.c_str())) << "length " << len;
        s.push_back(static_cast<char>(0x41 + (len * 37) % 190));  // includes bytes >= 0x80
    }
}

TEST(HashFuncStringDeathTest, NullIsAnAssertion) {
    EXPECT_DEATH(qv_hashfunc_string(nullptr),
                 "src/math/qvhashfunc_string.cpp:[0-9]+: Assertion `string != NULL' failed.");
}

}  // namespace
