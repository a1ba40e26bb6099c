// Helpers shared by the codec and digest tests.
#pragma once

#include <functional>
#include <random>
#include <string>
#include <vector>

#include "support/qvtest.h"

namespace codectest {

// alloc_failure_sweep after growing the default log's prefix buffer: the
// first QV_LOG line of a process grows it, which is the log's own lazily made
// state and not a leak of the scenario.
inline void sweep(const std::function<void(unsigned long failing)> &scenario) {
    qv_log_macro(nullptr, 99, "a-long-file-name-for-the-prefix-buffer.cpp", 1000000, "%0512d", 0);
    qvtest::alloc_failure_sweep(scenario);
}

// Reproducible pseudo-random bytes.
inline std::vector<unsigned char> random_bytes(size_t n, unsigned seed) {
    std::mt19937 gen(seed);
    std::vector<unsigned char> v(n);
    for (auto &b : v) b = static_cast<unsigned char>(gen());
    return v;
}

inline std::string bytes_of(const void *p, size_t n) { return std::string(static_cast<const char *>(p), n); }

}  // namespace codectest
