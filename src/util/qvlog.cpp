// The log: a qv_log fans each message out to five sinks (callback, file,
// stdout, stderr, syslog), each with a switch and a level threshold.
//
// Library code logs through QV_LOG, which stores the call site in the global
// record and then formats; the macro mutex (threaded mode only) makes that
// pair atomic between threads. Each log keeps two scratch buffers, one for the
// prefix and one for the message; they only grow, so a message of a size seen
// before costs no allocation. Messages are never truncated.
//
// Locking: nothing is locked until qv_log_init_threaded. From then on the
// macro sequence holds the macro mutex and qv_log/qv_log_raw hold the log
// object's own mutex (made on first use, published atomically). A macro
// message takes the target log's mutex too, inside the macro mutex, because
// both paths format into the same scratch buffers; qv_log_macro and the
// configuration calls take none. A sink callback must not log, as it runs
// with these locks held and the buffers in use. Each line is written under
// the stream's lock, so lines from the two paths never interleave.
#include <atomic>
#include <cstring>

#include "internal/qvinternal.h"
#include "internal/qvlogint.h"

struct qv_log {
    qv_mutex *mutex;
    char *prefix;
    size_t prefixlen;
    char *buffer;
    size_t buflen;
    struct {
        int enabled;
        qv_log_callback_fn function;
        void *user;
        int level;
    } callback;
    struct {
        int enabled;
        char *name;
        FILE *fp;
        int level;
    } logfile;
    struct {
        int enabled;
        int level;
    } out, err;
    struct {
        int enabled;
        int facility;
        int level;
        int map[17];
    } syslog;
};

// The function qv_log hides the struct name in C++; this alias keeps the code plain.
using Log = struct qv_log;

namespace {

struct LogGlobal {
    Log *defaultlog;
    qv_mutex *macromutex;
    Log *target;
    int level;
    const char *file;
    int line;
};

LogGlobal *qv_log_global = nullptr;

constexpr const char *kDefaultLogFile = "qvdefault.log";

// Opens the log file for appending, kept from child processes.
bool open_file(Log *l) noexcept {
    l->logfile.fp = qv::plat::fopen_noinherit(l->logfile.name ? l->logfile.name : kDefaultLogFile, "a");
    return l->logfile.fp != nullptr;
}

void set_defaults(Log *l) noexcept {
    l->callback.level = 16;
    l->logfile.level = 8;
    l->out.level = 8;
    l->err.enabled = 1;
    l->err.level = 8;
}

bool global_init() noexcept {
    if (qv_log_global != nullptr) return true;
    LogGlobal *g = static_cast<LogGlobal *>(qv_cmalloc(sizeof(LogGlobal)));
    if (g == nullptr) return false;
    g->defaultlog = qv_log_create();
    if (g->defaultlog == nullptr) {
        qv_free(g);
        return false;
    }
    qv_log_global = g;
    return true;
}

// Resolves a null log to the default log, creating it on first use.
Log *resolve(Log *qvlog) noexcept {
    if (qvlog != nullptr) return qvlog;
    if (!global_init()) return nullptr;
    QV_ASSERT(qv_log_global->defaultlog != NULL);
    return qv_log_global->defaultlog;
}

// Broken-down local time, computed at most once per message and reused while
// the second does not change (localtime_r dominates a short line's cost).
struct Stamp {
    int64_t now;
    bool done = false;
    char text[24];
    size_t len = 0;
};

thread_local int64_t t_cached_second = INT64_MIN;
thread_local char t_cached_stamp[24];

void put2(char *p, unsigned v) noexcept {
    p[0] = static_cast<char>('0' + v / 10 % 10);
    p[1] = static_cast<char>('0' + v % 10);
}

const char *stamp_text(Stamp &st) noexcept {
    if (st.done) return st.text;
    st.done = true;
    if (st.now == t_cached_second) {
        memcpy(st.text, t_cached_stamp, 20);
        st.len = 20;
        return st.text;
    }
    struct tm tm;
    if (!qv::plat::localtime(st.now, &tm)) memset(&tm, 0, sizeof tm);
    unsigned year = static_cast<unsigned>(tm.tm_year + 1900);
    if (year <= 9999) {
        char *p = st.text;
        p[0] = static_cast<char>('0' + year / 1000);
        p[1] = static_cast<char>('0' + year / 100 % 10);
        put2(p + 2, year % 100);
        p[4] = '-';
        put2(p + 5, static_cast<unsigned>(tm.tm_mon + 1));
        p[7] = '-';
        put2(p + 8, static_cast<unsigned>(tm.tm_mday));
        p[10] = ' ';
        put2(p + 11, static_cast<unsigned>(tm.tm_hour));
        p[13] = ':';
        put2(p + 14, static_cast<unsigned>(tm.tm_min));
        p[16] = ':';
        put2(p + 17, static_cast<unsigned>(tm.tm_sec));
        p[19] = ' ';
        st.len = 20;
    } else {
        int n = snprintf(st.text, sizeof st.text, "%04u-%02u-%02u %02u:%02u:%02u ", year,
                         static_cast<unsigned>(tm.tm_mon + 1), static_cast<unsigned>(tm.tm_mday),
                         static_cast<unsigned>(tm.tm_hour), static_cast<unsigned>(tm.tm_min),
                         static_cast<unsigned>(tm.tm_sec));
        st.len = n > 0 ? static_cast<size_t>(n) : 0;
    }
    st.text[st.len] = '\0';
    if (st.len == 20) {
        memcpy(t_cached_stamp, st.text, 20);
        t_cached_second = st.now;
    }
    return st.text;
}

// Writes one line to a stream; returns the number of pieces that failed.
int write_line(FILE *fp, Stamp &st, const char *prefix, size_t prefixlen, const char *msg,
               size_t len, int raw) noexcept {
    int failures = 0;
    qv::plat::stream_lock(fp);
    if (!raw) {
        stamp_text(st);
        if (qv::plat::stream_write(fp, st.text, st.len) != st.len) ++failures;
    }
    if (prefix != nullptr) {
        if (qv::plat::stream_write(fp, prefix, prefixlen) != prefixlen) ++failures;
        if (qv::plat::stream_write(fp, " ", 1) != 1) ++failures;
    }
    if (qv::plat::stream_write(fp, msg, len) != len) ++failures;
    if (qv::plat::stream_write(fp, "\n", 1) != 1) ++failures;
    if (qv::plat::stream_flush(fp) != 0) ++failures;
    qv::plat::stream_unlock(fp);
    return failures;
}

// Serves the sinks in their fixed order; a failing sink never stops the others.
int emit(Log *qvlog, const char *string, size_t length, int level, const char *prefix,
         size_t prefixlen, int raw) noexcept {
    QV_ASSERT(qvlog != NULL);
    QV_ASSERT(string != NULL);
    QV_ASSERT(raw == 0 || raw == 1);
    QV_ASSERT(qvlog->buffer != NULL);
    int result = 0;
    Stamp st;
    st.now = qv::plat::time_now();

    if (qvlog->callback.enabled && level <= qvlog->callback.level) {
        if (qvlog->callback.function == nullptr ||
            qvlog->callback.function(string, length, level, st.now, qvlog->callback.user) != 0)
            result = -1;
    }
    if (qvlog->logfile.enabled && level <= qvlog->logfile.level) {
        if (qvlog->logfile.fp == nullptr) open_file(qvlog);
        if (qvlog->logfile.fp == nullptr)
            result -= 1;
        else
            result -= write_line(qvlog->logfile.fp, st, prefix, prefixlen, string, length, raw);
    }
    if (qvlog->out.enabled && level <= qvlog->out.level)
        result -= write_line(stdout, st, prefix, prefixlen, string, length, raw);
    if (qvlog->err.enabled && level <= qvlog->err.level)
        result -= write_line(stderr, st, prefix, prefixlen, string, length, raw);
    if (qvlog->syslog.enabled && level <= qvlog->syslog.level) {
        int priority = qvlog->syslog.facility;
        if (level >= 0 && level <= 16) priority |= qvlog->syslog.map[level];
        if (prefix != nullptr) {
            // syslog stamps the line itself; the prefix travels in the text.
            size_t n = prefixlen + 1 + length;
            char *line = static_cast<char *>(qv_malloc(n));
            if (line == nullptr) {
                result -= 1;
            } else {
                memcpy(line, prefix, prefixlen);
                line[prefixlen] = ' ';
                memcpy(line + prefixlen + 1, string, length);
                qv::plat::syslog_send(priority, line, n);
                qv_free(line);
            }
        } else {
            qv::plat::syslog_send(priority, string, length);
        }
    }
    return result;
}

// Formats into one of the log's scratch buffers, growing it when the text
// does not fit. Returns the length, or -1 (formatting error or no memory).
int format_into(char **buf, size_t *buflen, const char *format, va_list ap) noexcept {
    va_list ap2;
    va_copy(ap2, ap);
    int count = qv_vsnprintf(*buf, *buflen, format, ap2);
    va_end(ap2);
    if (count < 0) return -1;
    if (*buflen <= static_cast<size_t>(count)) {
        qv_free(*buf);
        *buf = nullptr;
        *buflen = 0;
        char *b = static_cast<char *>(qv_malloc(static_cast<size_t>(count) + 1));
        if (b == nullptr) return -1;
        *buf = b;
        *buflen = static_cast<size_t>(count) + 1;
        int res = qv_vsnprintf(*buf, *buflen, format, ap);
        QV_ASSERT(res >= 0);
        QV_ASSERT(count < static_cast<int>(*buflen));
    }
    return count;
}

int format_prefix(Log *qvlog, const char *format, ...) noexcept {
    va_list ap;
    va_start(ap, format);
    int n = format_into(&qvlog->prefix, &qvlog->prefixlen, format, ap);
    va_end(ap);
    return n;
}

// True if at least one sink takes a message of this level. Library code logs
// tracing lines (level 13) on hot paths; skipping their formatting when no
// sink wants them is what keeps those paths fast.
bool any_sink_takes(const Log *l, int level) noexcept {
    return (l->callback.enabled && level <= l->callback.level) ||
           (l->logfile.enabled && level <= l->logfile.level) || (l->out.enabled && level <= l->out.level) ||
           (l->err.enabled && level <= l->err.level) || (l->syslog.enabled && level <= l->syslog.level);
}

// Formats the prefix (when file is given) and the message, then emits them.
int log_message(Log *qvlog, int level, const char *file, int line, int raw, const char *format,
                va_list ap) noexcept {
    if (!any_sink_takes(qvlog, level)) return 0;
    int prefixcount = -1;
    if (file != nullptr) prefixcount = format_prefix(qvlog, "%s:%d[%d]", file, line, level);
    int count = format_into(&qvlog->buffer, &qvlog->buflen, format, ap);
    if (count < 0) return -1;
    QV_ASSERT(qvlog->buflen > static_cast<size_t>(count));
    const char *prefix = nullptr;
    size_t prefixlen = 0;
    if (prefixcount >= 0) {
        QV_ASSERT(qvlog->prefixlen > static_cast<size_t>(prefixcount));
        prefix = qvlog->prefix;
        prefixlen = static_cast<size_t>(prefixcount);
    }
    int result = emit(qvlog, qvlog->buffer, static_cast<size_t>(count), level, prefix, prefixlen, raw);
    return result != 0 ? -1 : 0;
}

// The log object's own mutex: made on first use in threaded mode, where two
// threads may race to make it, so it is published with a compare-and-swap.
// Null outside threaded mode; false when it could not be made.
bool object_mutex(Log *qvlog, qv_mutex **out) noexcept {
    std::atomic_ref<qv_mutex *> slot(qvlog->mutex);
    qv_mutex *m = slot.load(std::memory_order_acquire);
    if (m == nullptr && qv_log_global != nullptr && qv_log_global->macromutex != nullptr) {
        qv_mutex *made = qv_mutex_create();
        if (made == nullptr) return false;
        if (slot.compare_exchange_strong(m, made, std::memory_order_acq_rel))
            m = made;
        else
            qv_mutex_destroy(made);
    }
    *out = m;
    return true;
}

// Formats and emits under the log object's mutex, if it has one.
int log_locked(Log *qvlog, int level, const char *file, int line, int raw, const char *format,
               va_list ap) noexcept {
    qv_mutex *m = nullptr;
    if (!object_mutex(qvlog, &m)) return -1;
    if (m != nullptr) qv_mutex_lock(m);
    int result = log_message(qvlog, level, file, line, raw, format, ap);
    if (m != nullptr) qv_mutex_unlock(m);
    return result;
}

void close_file(Log *qvlog) noexcept {
    if (qvlog->logfile.fp != nullptr) {
        qv::plat::fclose(qvlog->logfile.fp);
        qvlog->logfile.fp = nullptr;
    }
}

}  // namespace

namespace qv {

void log_reserve_buffers(size_t size) noexcept {
    if (!global_init()) return;
    Log *l = qv_log_global->defaultlog;
    auto grow = [size](char **buf, size_t *len) {
        if (*len >= size) return;
        char *b = static_cast<char *>(qv_malloc(size));
        if (b == nullptr) return;
        qv_free(*buf);
        *buf = b;
        *len = size;
    };
    grow(&l->prefix, &l->prefixlen);
    grow(&l->buffer, &l->buflen);
}

}  // namespace qv

extern "C" {

QV_API int qv_log_init(void) noexcept { return global_init() ? 0 : -1; }

QV_API int qv_log_init_threaded(void) noexcept {
    int result = qv_log_init();
    if (qv_log_global != nullptr && qv_log_global->macromutex == nullptr) {
        qv_log_global->macromutex = qv_mutex_create();
        if (qv_log_global->macromutex == nullptr) return -1;
    }
    return result;
}

QV_API void qv_log_uninit(void) noexcept {
    LogGlobal *g = qv_log_global;
    if (g == nullptr) return;
    qv_log_global = nullptr;
    if (g->macromutex != nullptr) qv_mutex_destroy(g->macromutex);
    qv_log_destroy(g->defaultlog);
    qv_free(g);
}

QV_API Log *qv_log_create(void) noexcept {
    Log *qvlog = static_cast<Log *>(qv_cmalloc(sizeof(Log)));
    if (qvlog == nullptr) return nullptr;
    set_defaults(qvlog);
    return qvlog;
}

QV_API void qv_log_destroy(Log *qvlog) noexcept {
    QV_ASSERT(qvlog != NULL);
    qv_free(qvlog->prefix);
    qv_free(qvlog->buffer);
    qv_free(qvlog->logfile.name);
    close_file(qvlog);
    if (qvlog->mutex != nullptr) qv_mutex_destroy(qvlog->mutex);
    qv_free(qvlog);
}

QV_API int qv_log(Log *qvlog, int level, const char *format, ...) noexcept {
    va_list ap;
    va_start(ap, format);
    int r = -1;
    qvlog = resolve(qvlog);
    if (qvlog != nullptr) r = log_locked(qvlog, level, nullptr, 0, 0, format, ap);
    va_end(ap);
    return r;
}

QV_API int qv_log_raw(Log *qvlog, int level, const char *format, ...) noexcept {
    va_list ap;
    va_start(ap, format);
    int r = -1;
    qvlog = resolve(qvlog);
    if (qvlog != nullptr) r = log_locked(qvlog, level, nullptr, 0, 1, format, ap);
    va_end(ap);
    return r;
}

QV_API int qv_log_macro(Log *qvlog, int level, const char *file, int line, const char *format,
                        ...) noexcept {
    QV_ASSERT(file != NULL);
    qvlog = resolve(qvlog);
    if (qvlog == nullptr) return -1;
    va_list ap;
    va_start(ap, format);
    int r = log_message(qvlog, level, file, line, 0, format, ap);
    va_end(ap);
    return r;
}

QV_API void qv_log_macro_mutex_lock(void) noexcept {
    if (qv_log_global != nullptr && qv_log_global->macromutex != nullptr) qv_mutex_lock(qv_log_global->macromutex);
}

QV_API void qv_log_macro_mutex_unlock(void) noexcept {
    if (qv_log_global != nullptr && qv_log_global->macromutex != nullptr) qv_mutex_unlock(qv_log_global->macromutex);
}

QV_API void qv_log_macro_set_values(Log *qvlog, int level, const char *file, int line) noexcept {
    if (!global_init()) return;
    qv_log_global->target = qvlog;
    qv_log_global->level = level;
    qv_log_global->file = file;
    qv_log_global->line = line;
}

QV_API int qv_log_macro_format(const char *format, ...) noexcept {
    if (!global_init()) return -1;
    Log *qvlog = resolve(qv_log_global->target);
    const char *file = qv_log_global->file;
    QV_ASSERT(file != NULL);
    va_list ap;
    va_start(ap, format);
    int r = log_locked(qvlog, qv_log_global->level, file, qv_log_global->line, 0, format, ap);
    va_end(ap);
    return r;
}

#define QV_LOG_SINK_SWITCHES(sink, field)                                  \
    QV_API void qv_log_##sink##_enable(Log *qvlog) noexcept {           \
        qvlog = resolve(qvlog);                                            \
        if (qvlog != nullptr) qvlog->field.enabled = 1;                    \
    }                                                                      \
    QV_API void qv_log_##sink##_disable(Log *qvlog) noexcept {          \
        qvlog = resolve(qvlog);                                            \
        if (qvlog != nullptr) qvlog->field.enabled = 0;                    \
    }                                                                      \
    QV_API void qv_log_##sink##_set_level(Log *qvlog, int level) noexcept { \
        qvlog = resolve(qvlog);                                            \
        if (qvlog != nullptr) qvlog->field.level = level;                  \
    }

QV_LOG_SINK_SWITCHES(callback, callback)
QV_LOG_SINK_SWITCHES(logfile, logfile)
QV_LOG_SINK_SWITCHES(stdout, out)
QV_LOG_SINK_SWITCHES(stderr, err)
QV_LOG_SINK_SWITCHES(syslog, syslog)

QV_API void qv_log_callback_set(Log *qvlog, qv_log_callback_fn callback, void *user) noexcept {
    qvlog = resolve(qvlog);
    if (qvlog == nullptr) return;
    qvlog->callback.function = callback;
    qvlog->callback.user = user;
}

QV_API int qv_log_logfile_set_name(Log *qvlog, const char *name) noexcept {
    qvlog = resolve(qvlog);
    if (qvlog == nullptr) return -1;
    QV_ASSERT(name != NULL);
    char *copy = qv_strdup(name);
    if (copy == nullptr) return -1;
    qv_free(qvlog->logfile.name);
    qvlog->logfile.name = copy;
    close_file(qvlog);
    return 0;
}

QV_API void qv_log_logfile_set_filehandle(Log *qvlog, FILE *fp) noexcept {
    qvlog = resolve(qvlog);
    if (qvlog == nullptr) return;
    close_file(qvlog);
    qvlog->logfile.fp = fp;
}

QV_API int qv_log_logfile_recreate(Log *qvlog) noexcept {
    qvlog = resolve(qvlog);
    if (qvlog == nullptr) return -1;
    if (!qvlog->logfile.enabled) return 0;
    close_file(qvlog);
    return open_file(qvlog) ? 0 : -1;
}

QV_API void qv_log_syslog_set_facility(Log *qvlog, int facility) noexcept {
    qvlog = resolve(qvlog);
    if (qvlog != nullptr) qvlog->syslog.facility = facility;
}

QV_API int qv_log_syslog_map(Log *qvlog, int level, int priority) noexcept {
    qvlog = resolve(qvlog);
    if (qvlog == nullptr) return -1;
    if (static_cast<unsigned>(level) > 16) return -1;
    qvlog->syslog.map[level] = priority;
    return 0;
}

}  // extern "C"
