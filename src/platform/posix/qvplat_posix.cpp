// POSIX backend of the platform layer: fatal exit, clocks, time, environment,
// stdio and syslog.
#include "platform/qvplatform.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>

namespace qv::plat {

void assert_fail(const char *file, int line, const char *expr) noexcept {
    fprintf(stderr, "%s:%d: Assertion `%s' failed.\n", file, line, expr);
    fflush(stderr);
    abort();
}

uint32_t tick_ms() noexcept {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    uint64_t ms = static_cast<uint64_t>(ts.tv_sec) * 1000u + static_cast<uint64_t>(ts.tv_nsec) / 1000000u;
    return static_cast<uint32_t>(ms);
}

int64_t time_now() noexcept { return static_cast<int64_t>(::time(nullptr)); }

bool localtime(int64_t t, struct tm *out) noexcept {
    time_t tt = static_cast<time_t>(t);
    return localtime_r(&tt, out) != nullptr;
}

bool env_present(const char *name) noexcept { return getenv(name) != nullptr; }

void stderr_write(const char *text, size_t len) noexcept {
    while (len > 0) {
        ssize_t n = ::write(STDERR_FILENO, text, len);
        if (n < 0) {
            if (errno == EINTR) continue;
            return;
        }
        text += n;
        len -= static_cast<size_t>(n);
    }
}

FILE *fopen_noinherit(const char *name, const char *mode) noexcept {
    // glibc's "e" flag opens with O_CLOEXEC, so no window exists in which a
    // concurrent fork could inherit the descriptor.
    char m[8];
    size_t n = strlen(mode);
    if (n > 5) return nullptr;
    memcpy(m, mode, n);
    m[n] = 'e';
    m[n + 1] = '\0';
    return fopen(name, m);
}

int fclose(FILE *fp) noexcept { return ::fclose(fp); }
void stream_lock(FILE *fp) noexcept { flockfile(fp); }
void stream_unlock(FILE *fp) noexcept { funlockfile(fp); }
size_t stream_write(FILE *fp, const void *data, size_t len) noexcept {
    return fwrite_unlocked(data, 1, len, fp);
}
int stream_flush(FILE *fp) noexcept { return fflush_unlocked(fp); }

void syslog_send(int priority, const char *text, size_t len) noexcept {
    int n = len > 0x7fffffff ? 0x7fffffff : static_cast<int>(len);
    ::syslog(priority, "%.*s", n, text);
}

}  // namespace qv::plat
