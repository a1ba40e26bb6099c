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

}  // namespace codectest
