// The log in threaded mode: library messages from many threads, with direct
// messages beside them, come out as whole lines with their own call sites.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "qvlib.h"
#include "support/qvtest.h"
#include "util/thread_helpers.h"

namespace {

constexpr int kThreads = 8;
// Long enough that a line mixed with another could not pass for whole.
const char kPayload[] = "abcdefghijklmnopqrstuvwxyz0123456789abcdefghijklmnopqrstuvwxyz0123456789";
int g_site_line[kThreads];

// Thread t logs from its own call site at level t + 1.
void log_from_site(int t, int seq) {
#define SITE(n)                                                                      \
    case n:                                                                          \
        g_site_line[n] = __LINE__;                                                   \
        QV_LOG(n + 1, "thread %d seq %d %s", t, seq, kPayload);                      \
        break;
    switch (t) { SITE(0) SITE(1) SITE(2) SITE(3) SITE(4) SITE(5) SITE(6) SITE(7) }
#undef SITE
}

TEST(LogThreaded, LibraryMessagesFromManyThreadsAreWholeLinesWithTheirOwnSites) {
    const int kMessages = qvtest::kThreadSanitizer ? 20000 : 100000, kDirect = kMessages / 10;
    std::string dir = qvtest::temp_dir("logthreads"), path = dir + "/threads.log";
    ASSERT_FALSE(dir.empty());
    qv_log_uninit();  // a fresh default log, threaded from the start
    ASSERT_EQ(qv_log_init_threaded(), 0);
    ASSERT_EQ(qv_log_logfile_set_name(nullptr, path.c_str()), 0);
    qv_log_logfile_set_level(nullptr, 16);
    qv_log_logfile_enable(nullptr);
    qv_log_stderr_disable(nullptr);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([=] {
            for (int i = 0; i < kMessages; ++i) log_from_site(t, i);
        });
    for (int t = 0; t < 2; ++t)  // direct messages share the default log's buffers
        threads.emplace_back([=] {
            for (int i = 0; i < kDirect; ++i) qv_log(nullptr, 3, "direct %d seq %d %s", t, i, kPayload);
        });
    for (auto &th : threads) th.join();
    qv_log_uninit();  // closes the file; later tests get an unthreaded log again

    FILE *fp = fopen(path.c_str(), "r");
    ASSERT_NE(fp, nullptr);
    std::vector<int> next(kThreads, 0), next_direct(2, 0);
    long bad = 0;
    std::string first_bad;
    const std::string file = "tests/util/test_qvlog_threaded.cpp:";
    for (char buf[512]; fgets(buf, sizeof buf, fp) != nullptr;) {
        std::string line(buf);
        int t = -1, seq = -1, site = -1, level = -1, n = 0;
        // "YYYY-MM-DD hh:mm:ss " then the prefix and the message, or the message.
        bool ok = line.size() > 20 && line[4] == '-' && line[19] == ' ' && line.back() == '\n';
        std::string rest = ok ? line.substr(20, line.size() - 21) : "";
        if (ok && rest.compare(0, file.size(), file) == 0 &&
            sscanf(rest.c_str() + file.size(), "%d[%d] thread %d seq %d %n", &site, &level, &t, &seq, &n) == 4 &&
            t >= 0 && t < kThreads && site == g_site_line[t] && level == t + 1 && seq == next[t] &&
            rest.substr(file.size() + n) == kPayload) {
            ++next[t];
        } else if (ok && sscanf(rest.c_str(), "direct %d seq %d %n", &t, &seq, &n) == 2 && t >= 0 && t < 2 &&
                   seq == next_direct[t] && rest.substr(n) == kPayload) {
            ++next_direct[t];
        } else if (bad++ == 0) {
            first_bad = line;
        }
    }
    fclose(fp);
    EXPECT_EQ(bad, 0) << "first bad line: " << first_bad;
    for (int t = 0; t < kThreads; ++t) EXPECT_EQ(next[t], kMessages) << "thread " << t;
    for (int t = 0; t < 2; ++t) EXPECT_EQ(next_direct[t], kDirect) << "direct " << t;
    remove(path.c_str());
    remove(dir.c_str());
}

}  // namespace
