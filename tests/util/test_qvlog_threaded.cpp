// The log in threaded mode: library messages from many threads, and direct
// messages beside them, come out as whole lines with their own call sites.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "qvlib.h"
#include "support/qvtest.h"
#include "util/thread_helpers.h"

namespace {

constexpr int kThreads = 8;
// A payload long enough that a line mixed with another could not pass.
const char kPayload[] = "abcdefghijklmnopqrstuvwxyz0123456789abcdefghijklmnopqrstuvwxyz0123456789";

struct Site {
    int line;
    int level;
};
Site g_sites[kThreads];

// Each thread logs from its own call site and level.
void log_from_site(int t, int seq) {
#define SITE(n, lvl)                                                   \
    case n:                                                            \
        g_sites[n] = {__LINE__, lvl};                                  \
        QV_LOG(lvl, "thread %d seq %d %s", t, seq, kPayload);          \
        break;
    switch (t) {
        SITE(0, 1)
        SITE(1, 2)
        SITE(2, 3)
        SITE(3, 4)
        SITE(4, 5)
        SITE(5, 6)
        SITE(6, 7)
        SITE(7, 8)
    }
#undef SITE
}

// Parses "YYYY-MM-DD hh:mm:ss <file>:<line>[<level>] thread <t> seq <n> <payload>".
bool parse_macro_line(const std::string &line, int *site_line, int *level, int *t, int *seq) {
    static const std::string file = "tests/util/test_qvlog_threaded.cpp:";
    if (line.size() < 20 || line[4] != '-' || line[10] != ' ' || line[19] != ' ') return false;
    if (line.compare(20, file.size(), file) != 0) return false;
    char tail[256];
    if (sscanf(line.c_str() + 20 + file.size(), "%d[%d] thread %d seq %d %255s", site_line, level, t, seq,
               tail) != 5)
        return false;
    std::string expect = "[" + std::to_string(*level) + "] thread " + std::to_string(*t) + " seq " +
                         std::to_string(*seq) + " " + kPayload;
    return line.size() >= expect.size() && line.compare(line.size() - expect.size(), expect.size(), expect) == 0;
}

TEST(LogThreaded, LibraryMessagesFromManyThreadsAreWholeLinesWithTheirOwnSites) {
    const int kMessages = qvtest::kThreadSanitizer ? 20000 : 100000;
    const int kDirect = kMessages / 10;  // direct qv_log lines on the same log
    std::string dir = qvtest::temp_dir("logthreads");
    ASSERT_FALSE(dir.empty());
    std::string path = dir + "/threads.log";

    qv_log_uninit();  // a fresh default log, in threaded mode from the start
    ASSERT_EQ(qv_log_init_threaded(), 0);
    ASSERT_EQ(qv_log_logfile_set_name(nullptr, path.c_str()), 0);
    qv_log_logfile_set_level(nullptr, 16);
    qv_log_logfile_enable(nullptr);
    qv_log_stderr_disable(nullptr);

    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([t, kMessages] {
            for (int i = 0; i < kMessages; ++i) log_from_site(t, i);
        });
    for (int t = 0; t < 2; ++t)
        threads.emplace_back([t, kDirect] {
            for (int i = 0; i < kDirect; ++i) qv_log(nullptr, 3, "direct %d seq %d %s", t, i, kPayload);
        });
    for (auto &th : threads) th.join();
    qv_log_uninit();  // closes the file; later tests get an unthreaded log again

    FILE *fp = fopen(path.c_str(), "r");
    ASSERT_NE(fp, nullptr);
    std::vector<int> next(kThreads, 0), next_direct(2, 0);
    long bad = 0, lines = 0;
    std::string first_bad;
    char buf[512];
    while (fgets(buf, sizeof buf, fp) != nullptr) {
        ++lines;
        std::string line(buf);
        if (line.empty() || line.back() != '\n') {
            ++bad;
            continue;
        }
        line.pop_back();
        int site_line, level, t, seq;
        if (parse_macro_line(line, &site_line, &level, &t, &seq) && t >= 0 && t < kThreads &&
            site_line == g_sites[t].line && level == g_sites[t].level && seq == next[t]) {
            ++next[t];
            continue;
        }
        int d = -1, dseq = -1;
        char tail[256];
        if (line.size() > 20 && sscanf(line.c_str() + 20, "direct %d seq %d %255s", &d, &dseq, tail) == 3 &&
            d >= 0 && d < 2 && dseq == next_direct[d] && strcmp(tail, kPayload) == 0) {
            ++next_direct[d];
            continue;
        }
        if (bad++ == 0) first_bad = line;
    }
    fclose(fp);
    EXPECT_EQ(bad, 0) << "first bad line: " << first_bad;
    for (int t = 0; t < kThreads; ++t) EXPECT_EQ(next[t], kMessages) << "thread " << t;
    for (int d = 0; d < 2; ++d) EXPECT_EQ(next_direct[d], kDirect) << "direct " << d;
    EXPECT_EQ(lines, static_cast<long>(kThreads) * kMessages + 2L * kDirect);
    remove(path.c_str());
    remove(dir.c_str());
}

}  // namespace
