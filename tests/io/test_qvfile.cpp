// Files: open modes, stream calls, stepped 64-bit seeking (observed through a
// recording stream), whole-file load and save, the backup save's order and
// its crash safety under SIGKILL.
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "support/qvtest.h"

// The test binary links the static library, so these definitions stand in for
// the C library's and let a test watch, and fail on demand, the system calls
// of the backup save. Unarmed, they forward unchanged.
namespace {
struct SysTrace {
    bool recording = false;
    std::vector<std::string> events;
    int fail_rename_call = 0;  // 1-based rename call to fail, 0 for none
    int fail_errno = 0;
    int renames = 0;
    useconds_t stall_us = 0;  // widens the gaps between steps for the crash test
};
SysTrace g_sys;
}  // namespace

extern "C" int rename(const char *from, const char *to) noexcept {
    if (g_sys.stall_us > 0) usleep(g_sys.stall_us);
    if (g_sys.recording) {
        g_sys.events.push_back(std::string("rename ") + from + " " + to);
        if (++g_sys.renames == g_sys.fail_rename_call) {
            errno = g_sys.fail_errno;
            return -1;
        }
    }
    return renameat(AT_FDCWD, from, AT_FDCWD, to);
}

extern "C" int unlink(const char *name) noexcept {
    if (g_sys.stall_us > 0) usleep(g_sys.stall_us);
    if (g_sys.recording) g_sys.events.push_back(std::string("unlink ") + name);
    return unlinkat(AT_FDCWD, name, 0);
}

extern "C" int fsync(int fd) {
    if (g_sys.stall_us > 0) usleep(g_sys.stall_us);
    if (g_sys.recording) {
        struct stat st;
        fstat(fd, &st);
        g_sys.events.push_back(S_ISDIR(st.st_mode) ? "fsync dir" : "fsync file");
    }
    return static_cast<int>(syscall(SYS_fsync, fd));
}

namespace {

class Files : public ::testing::Test {
protected:
    void SetUp() override {
        dir_ = qvtest::temp_dir("files");
        ASSERT_FALSE(dir_.empty());
        g_sys = SysTrace();
    }
    void TearDown() override {
        g_sys = SysTrace();
        std::filesystem::remove_all(dir_);
    }
    std::string path(const std::string &name) const { return dir_ + "/" + name; }
    void put(const std::string &name, const std::string &content) {
        ASSERT_EQ(qv_file_data_save(path(name).c_str(), content.data(), content.size()), 0);
    }
    std::string get(const std::string &name) const { return qvtest::read_file(path(name)); }
    bool present(const std::string &name) const { return access(path(name).c_str(), F_OK) == 0; }

    std::string dir_;
};

// Every stream the library opens keeps its descriptor out of child processes.
qv_file *cloexec(qv_file *f) {
    EXPECT_NE(f, nullptr);
    EXPECT_TRUE(f != nullptr && (fcntl(fileno(f), F_GETFD) & FD_CLOEXEC));
    return f;
}

TEST_F(Files, OpenModesAndCloseOnExec) {
    const std::string p = path("m");
    qv_file *f = cloexec(qv_file_create_binary(p.c_str()));
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(qv_file_write(f, "abc\0def", 7), 7u);
    EXPECT_EQ(qv_file_close(f), 0);

    f = cloexec(qv_file_open_binary(p.c_str()));
    ASSERT_NE(f, nullptr);
    char buf[16] = {};
    EXPECT_EQ(qv_file_read(f, buf, sizeof buf), 7u);
    EXPECT_EQ(memcmp(buf, "abc\0def", 7), 0);
    EXPECT_NE(qv_file_feof(f), 0);
    EXPECT_EQ(qv_file_ferror(f), 0);
    EXPECT_EQ(qv_file_write(f, "x", 1), 0u);  // read-only stream
    EXPECT_NE(qv_file_ferror(f), 0);
    qv_file_close(f);

    f = cloexec(qv_file_update_binary(p.c_str()));
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(qv_file_seek(f, 4, SEEK_SET), 0);
    EXPECT_EQ(qv_file_write(f, "DE", 2), 2u);
    qv_file_close(f);
    EXPECT_EQ(get("m"), std::string("abc\0DEf", 7));

    f = cloexec(qv_file_create_ascii(p.c_str()));
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(qv_file_fprintf(f, "%s=%d\n", "n", 42), 5);
    qv_file_close(f);
    f = cloexec(qv_utf8file_append_ascii(p.c_str()));
    ASSERT_NE(f, nullptr);
    qv_file_fprintf(f, "second\n");
    qv_file_close(f);
    f = cloexec(qv_file_append_ascii(p.c_str()));
    ASSERT_NE(f, nullptr);
    qv_file_fprintf(f, "third");
    qv_file_close(f);

    f = cloexec(qv_utf8file_open_binary(p.c_str()));
    ASSERT_NE(f, nullptr);
    char line[8];
    EXPECT_EQ(qv_file_fgets(line, sizeof line, f), line);
    EXPECT_STREQ(line, "n=42\n");
    EXPECT_EQ(qv_file_fgets(line, 4, f), line);  // a short buffer splits the line
    EXPECT_STREQ(line, "sec");
    EXPECT_STREQ(qv_file_fgets(line, sizeof line, f), "ond\n");
    EXPECT_STREQ(qv_file_fgets(line, sizeof line, f), "third");
    EXPECT_EQ(qv_file_fgets(line, sizeof line, f), nullptr);
    qv_file_close(f);

    // UTF-8 names are bytes here: the same file under a non-ASCII name.
    const std::string u = path("\xc3\xa4rger\xe2\x82\xac");
    f = qv_utf8file_create_binary(u.c_str());
    ASSERT_NE(f, nullptr);
    qv_file_close(f);
    f = cloexec(qv_utf8file_create_ascii(u.c_str()));
    ASSERT_NE(f, nullptr);
    qv_file_close(f);
    EXPECT_EQ(qv_utf8file_exists(u.c_str()), 1);

    errno = 0;
    EXPECT_EQ(qv_file_open_binary(path("missing").c_str()), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(qv_file_update_binary(path("missing").c_str()), nullptr);
    EXPECT_EQ(qv_file_create_binary(path("no/dir").c_str()), nullptr);

    EXPECT_EQ(qv_file_get_stdin(), stdin);
    EXPECT_EQ(qv_file_get_stdout(), stdout);
    EXPECT_EQ(qv_file_get_stderr(), stderr);
}

// A stream whose seeks are recorded, over a virtual file of a given length
// (no data): it shows exactly which steps the 64-bit seeks take.
struct SeekRecorder {
    int64_t pos = 0;
    int64_t length = 0;
    int64_t fail_beyond = INT64_MAX;  // seeking past this position fails
    bool fail_end = false;
    std::vector<std::pair<int64_t, int>> calls;  // (offset, whence), position queries left out

    static int seek(void *cookie, off64_t *offset, int whence) {
        auto *r = static_cast<SeekRecorder *>(cookie);
        if (!(whence == SEEK_CUR && *offset == 0)) r->calls.emplace_back(*offset, whence);
        int64_t target = whence == SEEK_SET ? *offset : whence == SEEK_CUR ? r->pos + *offset : r->length + *offset;
        if (target < 0 || target > r->fail_beyond || (whence == SEEK_END && r->fail_end)) {
            errno = EINVAL;
            return -1;
        }
        r->pos = target;
        *offset = target;
        return 0;
    }
    static ssize_t read(void *, char *, size_t) { return 0; }

    qv_file *open() {
        cookie_io_functions_t io = {&SeekRecorder::read, nullptr, &SeekRecorder::seek, nullptr};
        return fopencookie(this, "r", io);
    }
};

using Calls = std::vector<std::pair<int64_t, int>>;

TEST(FilesSeek, ForwardsAndBackwardsIn32BitSteps) {
    SeekRecorder r;
    qv_file *f = r.open();
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(qv_file_seek_forwards_64(f, 0), 0);
    EXPECT_TRUE(r.calls.empty());
    EXPECT_EQ(qv_file_seek_forwards_64(f, 5000000000ULL), 0);
    EXPECT_EQ(r.calls, (Calls{{2147483647, SEEK_CUR}, {2147483647, SEEK_CUR}, {705032706, SEEK_CUR}}));
    EXPECT_EQ(r.pos, 5000000000LL);
    r.calls.clear();
    EXPECT_EQ(qv_file_seek_forwards_64(f, 2147483647), 0);  // one full step, no empty rest
    EXPECT_EQ(r.calls, (Calls{{2147483647, SEEK_CUR}}));
    r.calls.clear();
    EXPECT_EQ(qv_file_seek_backwards_64(f, 2147483647), 0);
    EXPECT_EQ(qv_file_seek_backwards_64(f, 0), 0);
    EXPECT_EQ(qv_file_seek_backwards_64(f, 5000000000ULL), 0);
    EXPECT_EQ(r.calls, (Calls{{-2147483647, SEEK_CUR},
                              {-2147483648LL, SEEK_CUR},
                              {-2147483648LL, SEEK_CUR},
                              {-705032704, SEEK_CUR}}));
    EXPECT_EQ(r.pos, 0);
    r.calls.clear();
    r.pos = 2147483648LL;
    EXPECT_EQ(qv_file_seek_backwards_64(f, 2147483648ULL), 0);  // exactly the most negative step
    EXPECT_EQ(r.calls, (Calls{{-2147483648LL, SEEK_CUR}}));
    qv_file_close(f);
}

TEST(FilesSeek, FirstFailingStepStopsTheSeek) {
    SeekRecorder r;
    r.fail_beyond = 3000000000LL;
    qv_file *f = r.open();
    EXPECT_EQ(qv_file_seek_forwards_64(f, 5000000000ULL), -1);
    EXPECT_EQ(r.calls.size(), 2u);  // the second step fails, the third never runs
    EXPECT_EQ(r.pos, 2147483647LL);
    r.calls.clear();
    EXPECT_EQ(qv_file_seek_backwards_64(f, 5000000000ULL), -1);
    EXPECT_EQ(r.calls, (Calls{{-2147483648LL, SEEK_CUR}}));
    qv_file_close(f);
}

TEST(FilesSeek, Seek64Whence) {
    qvtest::LogCapture log;
    SeekRecorder r;
    r.length = 6000000000LL;
    qv_file *f = r.open();
    EXPECT_EQ(qv_file_seek64(f, 5000000000LL, SEEK_SET), 0);
    EXPECT_EQ(r.calls,
              (Calls{{0, SEEK_SET}, {2147483647, SEEK_CUR}, {2147483647, SEEK_CUR}, {705032706, SEEK_CUR}}));
    r.calls.clear();
    EXPECT_EQ(qv_file_seek64(f, -1000, SEEK_CUR), 0);
    EXPECT_EQ(r.pos, 4999999000LL);
    EXPECT_EQ(qv_file_seek64(f, -1, SEEK_END), 0);
    EXPECT_EQ(r.pos, 5999999999LL);
    EXPECT_EQ(r.calls, (Calls{{-1000, SEEK_CUR}, {0, SEEK_END}, {-1, SEEK_CUR}}));
    r.calls.clear();
    EXPECT_EQ(qv_file_seek64(f, INT64_MIN, SEEK_CUR), -1);  // its magnitude has no int64 form
    EXPECT_EQ(r.calls.front(), std::make_pair(int64_t{-2147483648LL}, SEEK_CUR));
    EXPECT_TRUE(log.lines().empty());

    r.pos = 77;
    r.calls.clear();
    EXPECT_EQ(qv_file_seek64(f, -1, SEEK_SET), -1);
    EXPECT_TRUE(r.calls.empty());  // refused before moving
    EXPECT_EQ(r.pos, 77);
    EXPECT_TRUE(log.has(7, "SEEK_SET cannot be called with a negative offset"));

    r.fail_end = true;
    EXPECT_EQ(qv_file_seek64(f, 0, SEEK_END), -1);
    EXPECT_TRUE(log.has(7, "Failed to seek at the end of the file"));
    EXPECT_EQ(log.lines().size(), 2u);
    qv_file_close(f);
}

TEST_F(Files, SparseFilePastFourGiB) {
    const std::string p = path("sparse");
    qv_file *f = qv_file_create_binary(p.c_str());
    ASSERT_NE(f, nullptr);
    ASSERT_EQ(qv_file_seek_forwards_64(f, 5000000000ULL), 0);
    ASSERT_EQ(qv_file_write(f, "Z", 1), 1u);
    EXPECT_EQ(ftello(f), 5000000001LL);
    qv_file_close(f);
    struct stat st;
    ASSERT_EQ(stat(p.c_str(), &st), 0);
    EXPECT_EQ(st.st_size, 5000000001LL);

    f = qv_file_update_binary(p.c_str());
    ASSERT_NE(f, nullptr);
    EXPECT_EQ(qv_file_seek64(f, 4500000000LL, SEEK_SET), 0);
    EXPECT_EQ(ftello(f), 4500000000LL);
    EXPECT_EQ(qv_file_get_length(f), -1);  // does not fit 32 signed bits
    EXPECT_EQ(ftello(f), 4500000000LL);    // and the position is restored
    EXPECT_EQ(qv_file_seek64(f, -1, SEEK_END), 0);
    char c = 0;
    EXPECT_EQ(qv_file_read(f, &c, 1), 1u);
    EXPECT_EQ(c, 'Z');
    EXPECT_EQ(qv_file_seek64(f, -4999999001LL, SEEK_CUR), 0);
    EXPECT_EQ(ftello(f), 1000);
    EXPECT_NE(qv_file_seek_backwards_64(f, 1001), 0);  // before the start
    EXPECT_EQ(qv_file_seek_backwards_64(f, 1000), 0);
    EXPECT_EQ(ftello(f), 0);
    qv_file_close(f);
}

TEST_F(Files, LengthRestoresThePositionAndExists) {
    put("len", std::string(1234, 'q'));
    qv_file *f = qv_file_open_binary(path("len").c_str());
    ASSERT_NE(f, nullptr);
    ASSERT_EQ(qv_file_seek(f, 100, SEEK_SET), 0);
    EXPECT_EQ(qv_file_get_length(f), 1234);
    EXPECT_EQ(ftello(f), 100);
    EXPECT_EQ(qv_file_seek(f, -1, SEEK_SET), -1);
    qv_file_close(f);

    for (auto [name, want] : {std::pair{"len", 1}, {"", 1}, {"gone", 0}, {"len/below", -1}}) {  // ENOTDIR: cannot tell
        EXPECT_EQ(qv_file_exists(path(name).c_str()), want) << name;
        if (want != -1) {
            EXPECT_EQ(qv_utf8file_exists(path(name).c_str()), want) << name;
        }
    }
}

TEST_F(Files, LoadGivesSizePlusTerminator) {
    std::string content("bin\0ary\xff", 8);
    put("data", content);
    void *data = reinterpret_cast<void *>(1);
    size_t len = 99;
    ASSERT_EQ(qv_file_data_load(path("data").c_str(), &data, &len), 0);
    EXPECT_EQ(len, 8u);
    EXPECT_EQ(std::string(static_cast<char *>(data), len), content);
    EXPECT_EQ(static_cast<char *>(data)[8], '\0');
    qv_free(data);

    put("empty", "");
    ASSERT_EQ(qv_utf8file_data_load(path("empty").c_str(), &data, nullptr), 0);
    EXPECT_EQ(static_cast<char *>(data)[0], '\0');
    qv_free(data);

    len = 5;
    EXPECT_EQ(qv_file_data_load(path("missing").c_str(), &data, &len), -1);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(len, 0u);
    EXPECT_EQ(qv_file_data_load(dir_.c_str(), &data, &len), -1);  // opens, but has no size to read
    EXPECT_EQ(data, nullptr);
}

TEST_F(Files, SaveWritesEveryByteOrFails) {
    EXPECT_EQ(qv_file_data_save(path("zero").c_str(), nullptr, 0), 0);
    EXPECT_TRUE(present("zero"));
    EXPECT_EQ(get("zero"), "");
    EXPECT_EQ(qv_utf8file_data_save(path("one").c_str(), "12345", 5), 0);
    EXPECT_EQ(get("one"), "12345");
    EXPECT_EQ(qv_file_data_save(path("one").c_str(), "ab", 2), 0);  // truncates
    EXPECT_EQ(get("one"), "ab");
    EXPECT_EQ(qv_file_data_save(path("no/such").c_str(), "ab", 2), -1);
    // The device takes the open and the buffered write; the failure only
    // shows when the data is flushed.
    if (access("/dev/full", W_OK) == 0) {
        EXPECT_EQ(qv_file_data_save("/dev/full", "ab", 2), -1);
    }
}

TEST_F(Files, SaveWithBackupKeepsThePreviousVersion) {
    qvtest::LogCapture log;
    const std::string p = path("cfg");
    g_sys.recording = true;
    ASSERT_EQ(qv_file_data_save_with_backup(p.c_str(), "v1", 2), 0);
    // No previous file: nothing is moved to the backup.
    EXPECT_EQ(g_sys.events, (std::vector<std::string>{"fsync file", "rename " + p + ".tmp " + p, "fsync dir"}));
    EXPECT_EQ(get("cfg"), "v1");
    EXPECT_FALSE(present("cfg.bak"));

    g_sys.events.clear();
    ASSERT_EQ(qv_file_data_save_with_backup(p.c_str(), "v2", 2), 0);
    EXPECT_EQ(g_sys.events, (std::vector<std::string>{"fsync file", "unlink " + p + ".bak",
                                                      "rename " + p + " " + p + ".bak",
                                                      "rename " + p + ".tmp " + p, "fsync dir"}));
    EXPECT_EQ(get("cfg"), "v2");
    EXPECT_EQ(get("cfg.bak"), "v1");

    ASSERT_EQ(qv_utf8file_data_save_with_backup(p.c_str(), nullptr, 0), 0);
    EXPECT_EQ(get("cfg"), "");
    EXPECT_EQ(get("cfg.bak"), "v2");
    EXPECT_FALSE(present("cfg.tmp"));
    EXPECT_TRUE(log.lines().empty());

    // The backup is read only when the file cannot be opened, not when it is empty.
    void *data = nullptr;
    size_t len = 1;
    ASSERT_EQ(qv_file_data_load_with_backup(p.c_str(), &data, &len), 0);
    EXPECT_EQ(len, 0u);
    qv_free(data);
    ASSERT_EQ(unlink(p.c_str()), 0);
    ASSERT_EQ(qv_utf8file_data_load_with_backup(p.c_str(), &data, &len), 0);
    EXPECT_EQ(std::string(static_cast<char *>(data), len), "v2");
    qv_free(data);
    ASSERT_EQ(unlink((p + ".bak").c_str()), 0);
    EXPECT_EQ(qv_file_data_load_with_backup(p.c_str(), &data, &len), -1);
    EXPECT_EQ(data, nullptr);
}

TEST_F(Files, SaveWithBackupFailures) {
    qvtest::LogCapture log;
    // The temporary file cannot be created: -1, and its removal fails too.
    EXPECT_EQ(qv_file_data_save_with_backup(path("no/cfg").c_str(), "x", 1), -1);
    EXPECT_EQ(log.texts(), std::vector<std::string>{"unable to delete the temporary file"});
    EXPECT_TRUE(log.has(7, "unable to delete the temporary file"));

    // The old file cannot become the backup (a non-empty directory holds the name).
    log.clear();
    put("cfg", "old");
    ASSERT_EQ(mkdir(path("cfg.bak").c_str(), 0700), 0);
    put("cfg.bak/inside", "");
    EXPECT_EQ(qv_file_data_save_with_backup(path("cfg").c_str(), "new", 3), QV_ERROR_PERMISSION_DENIED);
    EXPECT_EQ(log.texts(), std::vector<std::string>{"unable to rename the previous file as the backup file"});
    EXPECT_EQ(get("cfg"), "old");
    EXPECT_FALSE(present("cfg.tmp"));

    // The UTF-8 variant also reports the old backup it could not remove.
    log.clear();
    EXPECT_EQ(qv_utf8file_data_save_with_backup(path("cfg").c_str(), "new", 3), QV_ERROR_PERMISSION_DENIED);
    EXPECT_EQ(log.texts(), (std::vector<std::string>{"unable to remove file '" + path("cfg.bak") + "'",
                                                     "unable to rename the previous file as the backup file"}));
    std::filesystem::remove_all(path("cfg.bak"));

    // The new file cannot take the name: the previous version survives only
    // as the backup, and the loading counterpart finds it there.
    log.clear();
    g_sys.recording = true;
    g_sys.fail_rename_call = 2;
    g_sys.fail_errno = EXDEV;
    EXPECT_EQ(qv_file_data_save_with_backup(path("cfg").c_str(), "new", 3), QV_ERROR_CROSS_DEVICE);
    g_sys.recording = false;
    EXPECT_EQ(log.texts(), std::vector<std::string>{"unable to rename '" + path("cfg.tmp") + "' as '" +
                                                    path("cfg") + "'"});
    EXPECT_TRUE(log.has(7, log.texts()[0]));
    EXPECT_FALSE(present("cfg"));
    EXPECT_FALSE(present("cfg.tmp"));
    void *data = nullptr;
    size_t len = 0;
    ASSERT_EQ(qv_file_data_load_with_backup(path("cfg").c_str(), &data, &len), 0);
    EXPECT_EQ(std::string(static_cast<char *>(data), len), "old");
    qv_free(data);
}

TEST_F(Files, RenameAndDelete) {
    put("a", "A");
    put("b", "B");
    EXPECT_EQ(qv_rename(path("a").c_str(), path("b").c_str()), 0);  // over an existing target
    EXPECT_EQ(get("b"), "A");
    EXPECT_EQ(qv_rename(path("a").c_str(), path("c").c_str()), QV_ERROR_NOT_FOUND);
    EXPECT_EQ(qv_rename(path("b").c_str(), path("no/c").c_str()), QV_ERROR_NOT_FOUND);
    EXPECT_EQ(qv_rename(path("b").c_str(), path("b/c").c_str()), QV_ERROR_NOT_DIRECTORY);
    EXPECT_EQ(qv_deletefile(path("b").c_str()), 0);
    EXPECT_EQ(qv_deletefile(path("b").c_str()), QV_ERROR_NOT_FOUND);
    EXPECT_EQ(qv_deletefile(dir_.c_str()), QV_ERROR_PERMISSION_DENIED);
}

// A version is self-checking: its number, its length and a pattern derived
// from both, so a torn or mixed file can never pass as one.
std::string make_version(unsigned n) {
    size_t len = 1000 + (n * 7919u) % 200000u;
    std::string s = "version " + std::to_string(n) + " length " + std::to_string(len) + "\n";
    uint64_t x = n * 0x9e3779b97f4a7c15ULL + 1;
    while (s.size() < len) {
        x = x * 6364136223846793005ULL + 1442695040888963407ULL;
        s.push_back(static_cast<char>('a' + (x >> 59)));
    }
    return s;
}

// The version number of a whole version, or -1.
long parse_version(const std::string &s) {
    unsigned n = 0;
    size_t len = 0;
    if (sscanf(s.c_str(), "version %u length %zu\n", &n, &len) != 2) return -1;
    return make_version(n) == s ? static_cast<long>(n) : -1;
}

TEST_F(Files, SaveWithBackupSurvivesSigkill) {
    const std::string p = path("state");
    ASSERT_EQ(qv_file_data_save_with_backup(p.c_str(), make_version(0).data(), make_version(0).size()), 0);
    std::mt19937 rng(20240601);
    unsigned next = 1;
    for (int round = 0; round < 60; ++round) {
        int fds[2];
        ASSERT_EQ(pipe(fds), 0);
        unsigned first = next;
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            close(fds[0]);
            // Every step of a save takes a while, so a kill at a random time
            // lands in any of them: writing, syncing, between the renames.
            g_sys.stall_us = 1000;
            for (unsigned v = first; v < first + 100000; ++v) {
                std::string version = make_version(v);
                if (qv_file_data_save_with_backup(p.c_str(), version.data(), version.size()) != 0) _exit(3);
                if (write(fds[1], &v, sizeof v) != sizeof v) _exit(4);
            }
            _exit(0);
        }
        close(fds[1]);
        usleep(static_cast<useconds_t>(rng() % 25000));
        kill(pid, SIGKILL);
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        ASSERT_TRUE(WIFSIGNALED(status)) << "the writer ended by itself, status " << status;
        // The last version whose save the child confirmed.
        long confirmed = static_cast<long>(first) - 1;
        unsigned v;
        while (read(fds[0], &v, sizeof v) == sizeof v) confirmed = v;
        close(fds[0]);

        void *data = nullptr;
        size_t len = 0;
        ASSERT_EQ(qv_file_data_load_with_backup(p.c_str(), &data, &len), 0) << "round " << round;
        long got = parse_version(std::string(static_cast<char *>(data), len));
        qv_free(data);
        // The confirmed version, or the one being saved when the writer died.
        ASSERT_TRUE(got == confirmed || got == confirmed + 1)
            << "round " << round << ": loaded " << got << ", confirmed " << confirmed;
        next = static_cast<unsigned>(got) + 1;
    }
}

TEST_F(Files, AllocationFailures) {
    // The checks after the sweeps rely on the sweeps having run.
    if (!qvtest::fault_injection_available()) GTEST_SKIP() << "built without the allocation fault injector";
    put("f", "payload");
    put("g.bak", "backup");
    const std::string f = path("f"), g = path("g");
    qvtest::alloc_failure_sweep([&](unsigned long failing) {
        void *data = nullptr;
        size_t len = 0;
        int rc = qv_file_data_load(f.c_str(), &data, &len);
        if (failing == 0) {
            EXPECT_EQ(rc, 0);
            qv_free(data);
        } else {
            EXPECT_EQ(rc, -1);
            EXPECT_EQ(data, nullptr);
            EXPECT_EQ(len, 0u);
        }
    });
    qvtest::alloc_failure_sweep([&](unsigned long failing) {
        qvtest::LogCapture log;
        void *data = nullptr;
        int rc = qv_file_data_load_with_backup(g.c_str(), &data, nullptr);
        if (failing == 0) {
            EXPECT_EQ(rc, 0);
            EXPECT_STREQ(static_cast<char *>(data), "backup");
            qv_free(data);
        } else {
            EXPECT_EQ(rc, -1);
            EXPECT_EQ(data, nullptr);
            if (failing == 1) {
                EXPECT_EQ(log.texts(), std::vector<std::string>{"not enough memory for backup file name '" + g +
                                                                ".bak'"});
                EXPECT_TRUE(log.has(7, log.texts()[0]));
            }
        }
    });
    qvtest::alloc_failure_sweep([&](unsigned long failing) {
        qvtest::LogCapture log;
        int rc = qv_file_data_save_with_backup(f.c_str(), "next", 4);
        if (failing == 0) {
            EXPECT_EQ(rc, 0);
            EXPECT_TRUE(log.lines().empty());
        } else {
            EXPECT_EQ(rc, -1);
            const char *want = failing == 1 ? "not enough memory for temporary file name"
                                            : "not enough memory for backup file name";
            EXPECT_TRUE(log.has(7, want)) << failing;
            EXPECT_EQ(log.lines().size(), 1u);
        }
    });
    EXPECT_EQ(get("f"), "next");
    EXPECT_FALSE(present("f.tmp"));
}

TEST(FilesDeath, Preconditions) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    char buf[4];
    void *data;
    EXPECT_DEATH(qv_file_open_binary(nullptr), "src/io/qvfile.cpp:[0-9]+: Assertion `filename != NULL' failed.");
    EXPECT_DEATH(qv_utf8file_append_ascii(nullptr), "Assertion `filename != NULL' failed.");
    EXPECT_DEATH(qv_file_read(nullptr, buf, 1), "src/io/qvfile.cpp:[0-9]+: Assertion `file != NULL' failed.");
    EXPECT_DEATH(qv_file_read(stdin, nullptr, 1), "Assertion `buffer != NULL' failed.");
    EXPECT_DEATH(qv_file_fgets(buf, 4, nullptr), "src/io/qvfile.cpp:[0-9]+: Assertion `stream != NULL' failed.");
    EXPECT_DEATH(qv_file_fprintf(stdout, nullptr), "Assertion `format != NULL' failed.");
    EXPECT_DEATH(qv_file_seek(stdin, 0, 7),
                 "src/io/qvfile.cpp:[0-9]+: Assertion `whence == SEEK_SET \\|\\| whence == SEEK_CUR \\|\\| "
                 "whence == SEEK_END' failed.");
    EXPECT_DEATH(qv_file_seek64(stdin, 0, -1), "Assertion `whence == SEEK_SET");
    EXPECT_DEATH(qv_file_data_save("x", nullptr, 1),
                 "src/io/qvfile.cpp:[0-9]+: Assertion `data != NULL \\|\\| datalen == 0' failed.");
    EXPECT_DEATH(qv_file_data_save_with_backup("x", nullptr, 1), "Assertion `data != NULL \\|\\| datalen == 0'");
    EXPECT_DEATH(qv_file_data_load("x", nullptr, nullptr),
                 "src/io/qvfile.cpp:[0-9]+: Assertion `dataptr != NULL' failed.");
    EXPECT_DEATH(qv_file_data_load_with_backup(nullptr, &data, nullptr), "Assertion `filename != NULL' failed.");
    EXPECT_DEATH(qv_file_exists(nullptr), "Assertion `filename != NULL' failed.");
}

}  // namespace
