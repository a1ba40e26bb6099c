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
    // The default log is made lazily and keeps its scratch buffers; bring it to
    // the same state before and after each run so that only the scenario's
    // own blocks are counted.
    auto warm_log = [] {
        qv_log_init();
        qv_log_raw(nullptr, 99, "%0512d", 0);
        qv_log_macro(nullptr, 99, "warm", 1, "%0512d", 0);
    };
    warm_log();
    qv::fault::reset();
    long live_before = qv::fault::live_blocks();
    {
        SCOPED_TRACE("counting run (no allocation fails)");
        scenario(0);
    }
    unsigned long total = qv::fault::count();
    warm_log();
    ASSERT_EQ(qv::fault::live_blocks(), live_before) << "the counting run leaks";
    ASSERT_GT(total, 0u) << "the scenario allocates nothing";
    for (unsigned long n = 1; n <= total; ++n) {
        warm_log();
        live_before = qv::fault::live_blocks();
        qv::fault::fail_at(n, false);
        {
            SCOPED_TRACE("allocation " + std::to_string(n) + " of " + std::to_string(total) + " fails");
            scenario(n);
        }
        bool fired = qv::fault::failed() > 0;
        qv::fault::reset();
        warm_log();
        EXPECT_TRUE(fired) << "allocation " << n << " was never reached";
        EXPECT_EQ(qv::fault::live_blocks(), live_before) << "leak when allocation " << n << " fails";
        if (::testing::Test::HasFatalFailure() || ::testing::Test::HasNonfatalFailure()) return;
    }
#endif
}

std::string assert_regex(const std::string &file, const std::string &expr, int nth) {
    std::ifstream in(std::string(QV_SOURCE_DIR) + "/" + file);
    std::string line, needle = "QV_ASSERT(" + expr + ")";
    int lineno = 0, seen = 0;
    while (std::getline(in, line)) {
        ++lineno;
        if (line.find(needle) != std::string::npos && ++seen == nth) {
            std::string re;
            for (char c : file + ":" + std::to_string(lineno) + ": Assertion `" + expr + "' failed.") {
                if (std::string("\\^$.|?*+()[]{}").find(c) != std::string::npos) re += '\\';
                re += c;
            }
            return re;
        }
    }
    ADD_FAILURE() << "no " << needle << " in " << file;
    return "(assertion not found)";
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
