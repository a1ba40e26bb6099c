// Deadlines, stopwatches, sleep and the calendar time. Only one-sided bounds
// on elapsed time are asserted: a busy machine may always take longer.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/time.h>

#include <atomic>
#include <cmath>
#include <ctime>

#include "platform/qvplatform.h"
#include "qvlib.h"
#include "support/qvtest.h"

namespace {

long ms_of(long s, long us) { return s * 1000 + us / 1000; }
long since(uint32_t tick) { return static_cast<long>(qv::plat::tick_ms() - tick); }

TEST(Timeout, RoundsToMillisecondsAndEachCheckConsumesTheTimeSinceTheLast) {
    qv_timeout *t = qv_timeout_create();
    long s = -7, us = -7;
    qv_timeout_set(t, 0, 499);  // 0 ms: expired at the first check, and stays so
    EXPECT_EQ(qv_timeout_check(t, &s, &us), 1);
    EXPECT_EQ(ms_of(s, us), 0);
    EXPECT_EQ(qv_timeout_check(t, &s, &us), 1);

    uint32_t t0 = qv::plat::tick_ms();
    qv_timeout_set(t, 1, 500);  // 1001 ms
    EXPECT_EQ(qv_timeout_check(t, &s, &us), 0);
    EXPECT_EQ(us % 1000, 0);
    EXPECT_LE(ms_of(s, us), 1001);
    EXPECT_GE(ms_of(s, us), 1001 - since(t0));
    qv_sleep(0, 300000);
    EXPECT_EQ(qv_timeout_check(t, &s, &us), 0);
    EXPECT_LE(ms_of(s, us), 701);
    EXPECT_GE(ms_of(s, us), 1001 - since(t0));
    qv_sleep(0, 300000);
    int r = qv_timeout_check(t, &s, &us);
    EXPECT_LE(ms_of(s, us), 401);
    EXPECT_GE(ms_of(s, us), 1001 - since(t0));
    EXPECT_EQ(r, ms_of(s, us) == 0 ? 1 : 0);
    qv_sleep(0, 450000);
    EXPECT_EQ(qv_timeout_check(t, nullptr, nullptr), 1);
    qv_timeout_destroy(t);
}

TEST(Timeout, NegativeSecondsMeanNoLimit) {
    qv_timeout *t = qv_timeout_create();
    qv_timeout_set(t, -1, 0);
    long s = 5, us = 5;
    EXPECT_EQ(qv_timeout_check(t, &s, &us), -1);
    EXPECT_EQ(s, -1);
    EXPECT_EQ(us, 0);
    qv_sleep(0, 20000);
    EXPECT_EQ(qv_timeout_check(t, nullptr, nullptr), -1);
    qv_timeout_set(t, 0, 0);  // and a limit again after it
    EXPECT_EQ(qv_timeout_check(t, &s, &us), 1);
    qv_timeout_destroy(t);
}

TEST(Timer, SplitsMeasureFromStartAndFromTheStoredSplit) {
    qv_timer *t = qv_timer_create();
    long s = -1, us = -1;
    double rate = 0;
    qv_timer_gettotal(t, 10, &s, &us, &rate);  // nothing measured yet
    EXPECT_EQ(ms_of(s, us), 0);
    EXPECT_TRUE(std::isinf(rate));
    qv_sleep(0, 30000);
    qv_timer_split(t);
    qv_timer_gettotal(t, 1000, &s, &us, &rate);
    long total = ms_of(s, us);
    EXPECT_GE(total, 30);
    EXPECT_EQ(us % 1000, 0);
    EXPECT_DOUBLE_EQ(rate, 1000.0 / (static_cast<double>(total) / 1000.0));
    qv_timer_storesplit(t);  // a new split opens at the last mark
    qv_timer_getsplit(t, 0, &s, &us, nullptr);
    EXPECT_EQ(ms_of(s, us), 0);
    qv_sleep(0, 20000);
    qv_timer_split(t);
    qv_timer_getsplit(t, 0, &s, &us, nullptr);
    long split = ms_of(s, us);
    EXPECT_GE(split, 20);
    qv_timer_gettotal(t, 0, &s, &us, nullptr);
    EXPECT_EQ(ms_of(s, us), total + split);
    qv_timer_destroy(t);
}

std::atomic<int> g_alarms{0};

TEST(Sleep, IsNotCutShortBySignals) {
    struct sigaction sa = {}, old = {};
    sa.sa_handler = [](int) { g_alarms.fetch_add(1); };
    sigemptyset(&sa.sa_mask);  // and no SA_RESTART: the sleep itself must resume
    ASSERT_EQ(sigaction(SIGALRM, &sa, &old), 0);
    struct itimerval every10ms = {{0, 10000}, {0, 10000}}, off = {};
    ASSERT_EQ(setitimer(ITIMER_REAL, &every10ms, nullptr), 0);
    uint32_t before = qv::plat::tick_ms();
    qv_sleep(0, 150000);
    long slept = since(before);
    setitimer(ITIMER_REAL, &off, nullptr);
    sigaction(SIGALRM, &old, nullptr);
    EXPECT_GT(g_alarms.load(), 0);
    EXPECT_GE(slept, 150);
}

TEST(Time, CalendarSecondsAndLocalTime) {
    int64_t stored = 0;
    time_t before = time(nullptr);
    int64_t now = qv_time(&stored);
    EXPECT_EQ(now, stored);
    EXPECT_GE(now, static_cast<int64_t>(before));
    EXPECT_LE(now, static_cast<int64_t>(time(nullptr)));
    int64_t when = 86400 * 365;
    time_t tt = static_cast<time_t>(when);
    struct tm mine = {}, libc = {};
    ASSERT_NE(localtime_r(&tt, &libc), nullptr);
    EXPECT_EQ(qv_localtime_r(&when, &mine), &mine);
    EXPECT_EQ(mktime(&mine), mktime(&libc));
    int64_t absurd = INT64_MAX;  // beyond any year the conversion can hold
    EXPECT_EQ(qv_localtime_r(&absurd, &mine), nullptr);
}

TEST(Time, CreationFailsCleanlyWithoutMemory) {
    qvtest::alloc_failure_sweep([&](unsigned long failing) {
        qv_timeout *to = qv_timeout_create();
        qv_timer *tm = qv_timer_create();
        EXPECT_TRUE(failing == 0 || to == nullptr || tm == nullptr);
        if (to != nullptr) qv_timeout_destroy(to);
        if (tm != nullptr) qv_timer_destroy(tm);
    });
}

TEST(TimeDeathTest, RangesAndPointersAreAsserted) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    qv_timeout *t = qv_timeout_create();
    EXPECT_DEATH(qv_timeout_set(t, 1, 1000000), "src/util/qvtimeout.cpp:[0-9]+: Assertion `microseconds < 1000000' failed.");
    EXPECT_DEATH(qv_sleep(0, 1000000), "src/util/qvtime.cpp:[0-9]+: Assertion `microseconds < 1000000' failed.");
    struct tm out;
    EXPECT_DEATH(qv_localtime_r(nullptr, &out), "src/util/qvtime.cpp:[0-9]+: Assertion `timep' failed.");
    qv_timeout_destroy(t);
}

}  // namespace
