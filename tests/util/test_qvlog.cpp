// The log: sinks, thresholds, line layout, file handling and failure paths.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <ctime>
#include <regex>
#include <string>

#include "support/qvtest.h"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStderr;
using testing::internal::GetCapturedStdout;

// Every test starts from a fresh default log.
class Log : public ::testing::Test {
protected:
    void SetUp() override { qv_log_uninit(); }
    void TearDown() override { qv_log_uninit(); }
};

const char kStamp[] = "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2} ";

// What f writes to stderr.
template <class F>
std::string err_of(F f) {
    CaptureStderr();
    f();
    return GetCapturedStderr();
}
// A whole line: a time stamp, then tail (a regex).
bool stamped(const std::string &out, const std::string &tail) {
    return std::regex_match(out, std::regex(std::string("^") + kStamp + tail + "\n$"));
}

TEST_F(Log, LibraryMessageLineOnStderrByDefault) {
    int line = __LINE__ + 1;
    std::string err = err_of([] { QV_LOG(7, "unable to do %s, error %d (%s)", "it", 12, qv_error_string(12)); });
    EXPECT_TRUE(stamped(err, "tests/util/test_qvlog\\.cpp:" + std::to_string(line) +
                                 "\\[7\\] unable to do it, error 12 \\(not enough memory\\)"))
        << err;
}

TEST_F(Log, TimestampIsLocalTime) {
    const char *oldtz = getenv("TZ");
    std::string saved = oldtz ? oldtz : "";
    setenv("TZ", "UTC0", 1);
    tzset();
    time_t before = time(nullptr);
    std::string err = err_of([] { qv_log(nullptr, 0, "tick"); });
    bool matched = false;
    for (time_t t = before, after = time(nullptr); t <= after; ++t) {
        struct tm tm;
        char want[64];
        strftime(want, sizeof want, "%Y-%m-%d %H:%M:%S tick\n", gmtime_r(&t, &tm));
        matched = matched || err == want;
    }
    oldtz ? setenv("TZ", saved.c_str(), 1) : unsetenv("TZ");
    tzset();
    EXPECT_TRUE(matched) << err;
}

TEST_F(Log, ThresholdsLayoutsAndTheStdoutSink) {
    EXPECT_EQ(err_of([] { QV_LOG(13, "hidden"); }), "");
    qv_log_stderr_set_level(nullptr, 13);
    EXPECT_NE(err_of([] { QV_LOG(13, "shown"); }).find("[13] shown\n"), std::string::npos);
    // Negative levels and levels past 16 compare as plain signed numbers.
    EXPECT_EQ(err_of([] {
                  EXPECT_EQ(qv_log_raw(nullptr, -5, "negative"), 0);
                  qv_log_raw(nullptr, 14, "too high");
              }),
              "negative\n");
    std::string err = err_of([] { EXPECT_EQ(qv_log(nullptr, 3, "direct %d", 5), 0); });
    EXPECT_TRUE(stamped(err, "direct 5")) << err;
    err = err_of([] { EXPECT_EQ(qv_log_macro(nullptr, 2, "some/file.c", 77, "m%s", "acro"), 0); });
    EXPECT_TRUE(stamped(err, "some/file\\.c:77\\[2\\] macro")) << err;

    qv_log_uninit();
    qv_log_stdout_enable(nullptr);
    qv_log_stderr_disable(nullptr);
    CaptureStdout();
    EXPECT_EQ(err_of([] {
                  qv_log_raw(nullptr, 8, "to stdout");
                  qv_log_raw(nullptr, 9, "filtered");
              }),
              "");
    EXPECT_EQ(GetCapturedStdout(), "to stdout\n");
    // Uninit brings back the defaults: stderr only, up to level 8.
    qv_log_uninit();
    EXPECT_EQ(err_of([] { qv_log_raw(nullptr, 8, "defaults again"); }), "defaults again\n");
    qv_uninit();
    EXPECT_EQ(err_of([] { qv_log_raw(nullptr, 9, "level 9 hidden"); }), "");
}

struct Calls {
    std::vector<std::string> texts;
    std::vector<int> levels;
    int64_t time = 0;
    int result = 0;
};

int record(const char *msg, size_t len, int level, int64_t t, void *user) {
    Calls *c = static_cast<Calls *>(user);
    c->texts.emplace_back(msg, len);
    c->levels.push_back(level);
    c->time = t;
    return c->result;
}

TEST_F(Log, CallbackGetsTheBareMessageAndMayFail) {
    Calls calls;
    qv_log_callback_set(nullptr, record, &calls);
    err_of([] {
        QV_LOG(5, "not yet");  // set but not enabled
        qv_log_callback_enable(nullptr);
        QV_LOG(5, "hello %d", 1);
        qv_log_callback_set_level(nullptr, 4);
        QV_LOG(5, "filtered");
    });
    ASSERT_EQ(calls.texts, std::vector<std::string>{"hello 1"});
    EXPECT_EQ(calls.levels[0], 5);
    EXPECT_LE(std::abs(calls.time - static_cast<int64_t>(time(nullptr))), 2);
    // A failing callback does not stop the other sinks.
    calls.result = 1;
    EXPECT_EQ(err_of([] { EXPECT_EQ(qv_log_raw(nullptr, 1, "still printed"), -1); }), "still printed\n");
    // Enabled without a function counts as a failure too.
    qv_log_callback_set(nullptr, nullptr, nullptr);
    EXPECT_EQ(err_of([] { EXPECT_EQ(qv_log_raw(nullptr, 1, "again"), -1); }), "again\n");
    // A message no sink takes succeeds.
    EXPECT_EQ(qv_log_raw(nullptr, 99, "nobody"), 0);
}

TEST_F(Log, LongMessagesGrowTheBufferAndArePrintedWhole) {
    Calls calls;
    qv_log_callback_set(nullptr, record, &calls);
    qv_log_callback_enable(nullptr);
    qv_log_stderr_disable(nullptr);
    for (size_t len : {1u, 100u, 10u, 70000u, 5u, 1u << 20}) {
        std::string s(len, 'x');
        s.back() = 'y';
        EXPECT_EQ(qv_log_macro(nullptr, 0, std::string(len, 'f').c_str(), 1, "%s", s.c_str()), 0);
        ASSERT_EQ(calls.texts.back(), s);
    }
}

TEST_F(Log, SyslogMapRejectsLevelsOutsideTheRange) {
    for (int level : {17, -1, INT_MIN}) EXPECT_EQ(qv_log_syslog_map(nullptr, level, 3), -1) << level;
    for (int level : {16, 0}) EXPECT_EQ(qv_log_syslog_map(nullptr, level, 3), 0) << level;
}

class LogFile : public Log {
protected:
    void SetUp() override {
        Log::SetUp();
        dir = qvtest::temp_dir("log");
        path = dir + "/app.log";
        qv_log_stderr_disable(nullptr);
    }
    void TearDown() override {
        Log::TearDown();
        std::string cmd = "rm -rf '" + dir + "'";
        EXPECT_EQ(system(cmd.c_str()), 0);
    }
    std::string dir, path;
};

bool exists(const std::string &p) {
    struct stat st;
    return stat(p.c_str(), &st) == 0;
}

TEST_F(LogFile, OpenedLazilyAppendedAndCloseOnExec) {
    ASSERT_EQ(qv_log_logfile_set_name(nullptr, path.c_str()), 0);
    qv_log_logfile_enable(nullptr);
    EXPECT_FALSE(exists(path));
    qv_log_raw(nullptr, 9, "above the threshold");
    EXPECT_FALSE(exists(path));
    qv_log_raw(nullptr, 8, "one");
    EXPECT_EQ(qvtest::read_file(path), "one\n");  // flushed per line
    qv_log_raw(nullptr, 1, "two");
    EXPECT_EQ(qvtest::read_file(path), "one\ntwo\n");
    // Find the descriptor behind the stream and check it is not inherited.
    int found = 0;
    for (int fd = 3; fd < 1024; ++fd) {
        char link[64], target[PATH_MAX] = {};
        snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
        if (readlink(link, target, sizeof target - 1) > 0 && path == target && ++found) {
            EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC);
        }
    }
    EXPECT_EQ(found, 1);
}

TEST_F(LogFile, UnopenableFileIsRetriedAndOtherSinksStillWork) {
    std::string sub = dir + "/later";
    std::string file = sub + "/x.log";
    qv_log_logfile_set_name(nullptr, file.c_str());
    qv_log_logfile_enable(nullptr);
    qv_log_stderr_enable(nullptr);
    EXPECT_EQ(err_of([] { EXPECT_EQ(qv_log_raw(nullptr, 0, "first"), -1); }), "first\n");
    ASSERT_EQ(mkdir(sub.c_str(), 0700), 0);
    EXPECT_EQ(err_of([] { EXPECT_EQ(qv_log_raw(nullptr, 0, "second"), 0); }), "second\n");
    EXPECT_EQ(qvtest::read_file(file), "second\n");
}

TEST_F(LogFile, RecreateAfterRotation) {
    EXPECT_EQ(qv_log_logfile_recreate(nullptr), 0);  // sink disabled: nothing opened
    qv_log_logfile_set_name(nullptr, path.c_str());
    EXPECT_EQ(qv_log_logfile_recreate(nullptr), 0);
    EXPECT_FALSE(exists(path));
    qv_log_logfile_enable(nullptr);
    qv_log_raw(nullptr, 0, "old");
    std::string rotated = dir + "/app.log.1";
    ASSERT_EQ(rename(path.c_str(), rotated.c_str()), 0);
    qv_log_raw(nullptr, 0, "still old");
    EXPECT_EQ(qv_log_logfile_recreate(nullptr), 0);
    EXPECT_TRUE(exists(path));
    qv_log_raw(nullptr, 0, "new");
    EXPECT_EQ(qvtest::read_file(rotated), "old\nstill old\n");
    EXPECT_EQ(qvtest::read_file(path), "new\n");
    // A new name closes the old file.
    std::string other = dir + "/other.log";
    qv_log_logfile_set_name(nullptr, other.c_str());
    qv_log_raw(nullptr, 0, "other");
    EXPECT_EQ(qvtest::read_file(path), "new\n");
    EXPECT_EQ(qvtest::read_file(other), "other\n");
    qv_log_logfile_set_name(nullptr, (dir + "/missing/x").c_str());
    EXPECT_EQ(qv_log_logfile_recreate(nullptr), -1);
}

TEST_F(LogFile, AdoptedStreamAndOwnLogObjects) {
    struct qv_log *own = qv_log_create();
    ASSERT_NE(own, nullptr);
    FILE *fp = fopen(path.c_str(), "w");
    ASSERT_NE(fp, nullptr);
    qv_log_logfile_set_filehandle(own, fp);
    qv_log_logfile_enable(own);
    qv_log_stderr_disable(own);
    qv_log_logfile_set_level(own, 2);
    EXPECT_EQ(qv_log_raw(own, 2, "own %s", "log"), 0);
    EXPECT_EQ(qv_log_raw(own, 3, "filtered"), 0);
    EXPECT_EQ(qv_log_macro(own, 1, "f.c", 3, "macro"), 0);
    qv_log_destroy(own);  // closes fp
    std::string text = qvtest::read_file(path);
    EXPECT_EQ(text.substr(0, 8), "own log\n");
    EXPECT_NE(text.find(" f.c:3[1] macro\n"), std::string::npos);
}

TEST_F(LogFile, DefaultFileNameInTheWorkingDirectory) {
    char cwd[PATH_MAX];
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    ASSERT_EQ(chdir(dir.c_str()), 0);
    qv_log_logfile_enable(nullptr);
    qv_log_raw(nullptr, 0, "default name");
    qv_log_uninit();
    EXPECT_EQ(qvtest::read_file(dir + "/qvdefault.log"), "default name\n");
    ASSERT_EQ(chdir(cwd), 0);
}

TEST_F(Log, AllocationFailures) {
    qvtest::alloc_failure_sweep([](unsigned long failing) {
        qv_log_uninit();
        int failures = 0;
        if (qv_log_init() != 0) ++failures;
        struct qv_log *own = qv_log_create();
        if (own == nullptr) {
            ++failures;
        } else {
            qv_log_stderr_disable(own);
            if (qv_log_logfile_set_name(own, "/nonexistent-dir/x.log") != 0) ++failures;
            if (qv_log_raw(own, 0, "%s", "grow the buffer") != 0) ++failures;
            qv_log_destroy(own);
        }
        // Each step reports its own failing allocation and nothing else fails.
        EXPECT_EQ(failures, failing ? 1 : 0);
        qv_log_uninit();
    });
}

TEST_F(Log, DroppedMessageLeavesTheNextOneWorking) {
#ifdef QV_FAULT_INJECTION
    Calls calls;
    qv_log_callback_set(nullptr, record, &calls);
    qv_log_callback_enable(nullptr);
    qv_log_stderr_disable(nullptr);
    std::string big(4096, 'b');
    qv::fault::fail_at(1, false);
    EXPECT_EQ(qv_log_raw(nullptr, 0, "%s", big.c_str()), -1);
    qv::fault::reset();
    EXPECT_TRUE(calls.texts.empty());
    EXPECT_EQ(qv_log_raw(nullptr, 0, "small"), 0);
    EXPECT_EQ(calls.texts, std::vector<std::string>{"small"});
    // A prefix that cannot be stored: the message goes out without it.
    qv_log_stderr_enable(nullptr);
    qv_log_uninit();
    qv_log_init();
    qv::fault::fail_at(1, false);
    std::string err = err_of([] { EXPECT_EQ(qv_log_macro(nullptr, 0, "file.c", 1, "no prefix"), 0); });
    qv::fault::reset();
    EXPECT_TRUE(stamped(err, "no prefix")) << err;
#else
    GTEST_SKIP() << "built without the allocation fault injector";
#endif
}

TEST_F(Log, MessagesNoSinkTakesCostNoAllocation) {
#ifdef QV_FAULT_INJECTION
    qv_log_init();
    std::string big(100000, 't');
    qv::fault::fail_at(1, true);
    EXPECT_EQ(qv_log_raw(nullptr, 13, "%s", big.c_str()), 0);
    QV_LOG(13, "%s", big.c_str());
    unsigned long attempted = qv::fault::count();
    qv::fault::reset();
    EXPECT_EQ(attempted, 0u);
#else
    GTEST_SKIP() << "built without the allocation fault injector";
#endif
}

using LogDeathTest = Log;

TEST_F(LogDeathTest, Preconditions) {
    EXPECT_DEATH(qv_log_destroy(nullptr), qvtest::assert_regex("src/util/qvlog.cpp", "qvlog != NULL", 2));
    EXPECT_DEATH(qv_log_macro(nullptr, 0, nullptr, 1, "x"), qvtest::assert_regex("src/util/qvlog.cpp", "file != NULL"));
}

}  // namespace
