// Shared test helpers: capturing the default log through its callback sink,
// and sweeping a scenario over every one of its allocations failing in turn.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "qvlib.h"

namespace qvtest {

struct LogLine {
    int level;
    std::string text;
};

// While alive, every message of the default log at any level is recorded here
// (the stderr sink is switched off meanwhile, so expected failures stay quiet).
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    const std::vector<LogLine> &lines() const { return lines_; }
    // Messages only, in order.
    std::vector<std::string> texts() const;
    // True if some line has exactly this level and text.
    bool has(int level, const std::string &text) const;
    size_t count(const std::string &text) const;
    void clear() { lines_.clear(); }

private:
    static int sink(const char *msg, size_t len, int level, int64_t t, void *user);
    std::vector<LogLine> lines_;
};

// True when the library was built with the allocation fault injector.
bool fault_injection_available();

// Runs scenario once to count its allocations (it must succeed then), and
// then once per allocation with exactly that allocation failing. The scenario
// receives the number of the failing allocation (0 on the counting run) and
// checks the documented failure result itself; it must release everything it
// got. After each run the helper demands that no block is left live, and names
// the failing allocation in any failure message. Skips when the injector is
// not compiled in.
void alloc_failure_sweep(const std::function<void(unsigned long failing)> &scenario);

// The exact assertion line a failed QV_ASSERT(expr) writes, as a death-test
// regex: "<file>:<line>: Assertion `<expr>' failed." The line is found in the
// source file (relative to the source tree); nth picks among several equal
// assertions in that file, counting from 1.
std::string assert_regex(const std::string &file, const std::string &expr, int nth = 1);

// Reads a whole file into a string ("" if it cannot be read).
std::string read_file(const std::string &path);

// A fresh empty directory under the test's temporary directory.
std::string temp_dir(const std::string &tag);

}  // namespace qvtest

// Fault injector hooks (test builds only).
#ifdef QV_FAULT_INJECTION
#include "internal/qvfault.h"
#endif
