// Helpers shared by the codec and digest tests.
#pragma once

#include <functional>
#include <random>
#include <string>
#include <vector>

#include "support/qvtest.h"

namespace codectest {

// Reproducible pseudo-random bytes.
inline std::vector<unsigned char> random_bytes(size_t n, unsigned seed) {
    std::mt19937 gen(seed);
    std::vector<unsigned char> v(n);
    for (auto &b : v) b = static_cast<unsigned char>(gen());
    return v;
}

inline std::string bytes_of(const void *p, size_t n) { return std::string(static_cast<const char *>(p), n); }

// A string the library allocated, freed here ("<null>", and a failure, for none).
inline std::string take(char *s) {
    EXPECT_NE(s, nullptr);
    std::string out = s ? s : "<null>";
    qv_free(s);
    return out;
}

// What a decoder into an allocated buffer gave, freed here, after checking
// its shape: a zero byte after the content on success, NULL and 0 on failure.
struct Decoded {
    int rc;
    std::string data;
};
inline Decoded take_decoded(int rc, void *buf, size_t len) {
    if (rc != QV_ERROR_NONE) {
        EXPECT_EQ(buf, nullptr);
        EXPECT_EQ(len, 0u);
        return {rc, ""};
    }
    EXPECT_NE(buf, nullptr);
    if (buf == nullptr) return {-1, ""};
    EXPECT_EQ(static_cast<unsigned char *>(buf)[len], 0) << "missing zero byte after the result";
    Decoded d{rc, bytes_of(buf, len)};
    qv_free(buf);
    return d;
}

}  // namespace codectest
