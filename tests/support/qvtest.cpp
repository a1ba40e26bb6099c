#include "support/qvtest.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace qvtest {

LogCapture::LogCapture() {
    qv_log_callback_set(nullptr, &LogCapture::sink, this);
    qv_log_callback_set_level(nullptr, 16);
    qv_log_callback_enable(nullptr);
    qv_log_stderr_disable(nullptr);
}

LogCapture::~LogCapture() {
    qv_log_callback_disable(nullptr);
    qv_log_callback_set(nullptr, nullptr, nullptr);
    qv_log_stderr_enable(nullptr);
}

int LogCapture::sink(const char *msg, size_t len, int level, int64_t, void *user) {
    static_cast<LogCapture *>(user)->lines_.push_back({level, std::string(msg, len)});
    return 0;
}

std::vector<std::string> LogCapture::texts() const {
    std::vector<std::string> v;
    for (const auto &l : lines_) v.push_back(l.text);
    return v;
}

bool LogCapture::has(int level, const std::string &text) const {
    for (const auto &l : lines_)
        if (l.level == level && l.text == text) return true;
    return false;
}

size_t LogCapture::count(const std::string &text) const {
    size_t n = 0;
    for (const auto &l : lines_)
        if (l.text == text) ++n;
    return n;
}

bool fault_injection_available() {
#ifdef QV_FAULT_INJECTION
    return true;
#else
    return false;
#endif
}

void alloc_failure_sweep(const std::function<void(unsigned long failing)> &scenario) {
#ifndef QV_FAULT_INJECTION
    (void)scenario;
    GTEST_SKIP() << "built without the allocation fault injector";
#else
    // Grow the default log's buffers first, so that the log's own lazily made
    // state does not look like a leak of the scenario.
    qv_log_init();
    qv_log_raw(nullptr, 99, "%0512d", 0);
    qv::fault::reset();
    long live_before = qv::fault::live_blocks();
    {
        SCOPED_TRACE("counting run (no allocation fails)");
        scenario(0);
    }
    unsigned long total = qv::fault::count();
    ASSERT_EQ(qv::fault::live_blocks(), live_before) << "the counting run leaks";
    ASSERT_GT(total, 0u) << "the scenario allocates nothing";
    for (unsigned long n = 1; n <= total; ++n) {
        qv_log_raw(nullptr, 99, "%0512d", 0);
        live_before = qv::fault::live_blocks();
        qv::fault::fail_at(n, false);
        {
            SCOPED_TRACE("allocation " + std::to_string(n) + " of " + std::to_string(total) + " fails");
            scenario(n);
        }
        bool fired = qv::fault::failed() > 0;
        qv::fault::reset();
        EXPECT_TRUE(fired) << "allocation " << n << " was never reached";
        // The log may have dropped a scratch buffer; only growth is a leak.
        EXPECT_LE(qv::fault::live_blocks(), live_before) << "leak when allocation " << n << " fails";
        if (::testing::Test::HasFatalFailure()) return;
    }
#endif
}

std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

std::string temp_dir(const std::string &tag) {
    const char *base = getenv("TEST_TMPDIR");
    std::string tmpl = std::string(base ? base : "/tmp") + "/qvtest-" + tag + "-XXXXXX";
    std::vector<char> buf(tmpl.begin(), tmpl.end());
    buf.push_back('\0');
    char *d = mkdtemp(buf.data());
    return d ? std::string(d) : std::string();
}

}  // namespace qvtest
