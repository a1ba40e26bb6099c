/*
 * qvlib.h - the one public header of qvlib.
 *
 * qvlib is a general-purpose utility and portability library with a flat C
 * interface: plain functions named qv_<family>_<operation> on opaque objects.
 *
 * Conventions that hold for every function below:
 *  - Functions that can fail return an error code (QV_ERROR_*, 0 is success)
 *    and describe the failure in one line of the process-wide log; functions
 *    returning a pointer return NULL on failure; counts return -1.
 *  - Broken preconditions (NULL where an object is required, out-of-range
 *    arguments) are not errors: the process writes
 *    "<file>:<line>: Assertion `<expr>' failed." to stderr and aborts.
 *  - Every string or buffer handed to the caller as new is released with
 *    qv_free(). Getters return pointers into the object.
 *  - Objects made by a _create function are released by the matching
 *    _destroy function.
 *
 * This header compiles as C99 and as C++.
 */
#ifndef QVLIB_H
#define QVLIB_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#if defined(_WIN32)
#  if defined(QV_BUILDING_LIBRARY)
#    define QV_API __declspec(dllexport)
#  else
#    define QV_API __declspec(dllimport)
#  endif
#else
#  define QV_API __attribute__((visibility("default")))
#endif

#if defined(__GNUC__) || defined(__clang__)
#  define QV_PRINTF(fmt, args) __attribute__((format(printf, fmt, args)))
#else
#  define QV_PRINTF(fmt, args)
#endif

#ifdef __cplusplus
#  define QV_NOEXCEPT noexcept
extern "C" {
#else
#  define QV_NOEXCEPT
#endif

/* ======================================================================
 * Error codes
 * ====================================================================== */

/* 1..125 follow the Linux errno numbering; 200..219 are qvlib's own. */
typedef enum qv_error {
    QV_ERROR_NONE = 0,
    QV_ERROR_NOT_PERMITTED = 1,
    QV_ERROR_INTERRUPTED = 4,
    QV_ERROR_IO = 5,
    QV_ERROR_WOULD_BLOCK = 11,
    QV_ERROR_NO_MEMORY = 12,
    QV_ERROR_PERMISSION_DENIED = 13,
    QV_ERROR_BAD_ADDRESS = 14,
    QV_ERROR_EXISTS = 17,
    QV_ERROR_CROSS_DEVICE = 18,
    QV_ERROR_NOT_DIRECTORY = 20,
    QV_ERROR_INVALID_ARGUMENT = 22,
    QV_ERROR_NO_SPACE = 28,
    QV_ERROR_READ_ONLY = 30,
    QV_ERROR_TOO_MANY_LINKS = 31,
    QV_ERROR_BROKEN_PIPE = 32,
    QV_ERROR_OUT_OF_RANGE = 34,
    QV_ERROR_NAME_TOO_LONG = 36,
    QV_ERROR_NOT_IMPLEMENTED = 38,
    QV_ERROR_SYMLINK_LOOP = 40,
    QV_ERROR_TIMER_EXPIRED = 62,
    QV_ERROR_PROTOCOL = 71,
    QV_ERROR_MESSAGE_TOO_LONG = 90,
    QV_ERROR_ADDRESS_IN_USE = 98,
    QV_ERROR_NETWORK_UNREACHABLE = 101,
    QV_ERROR_CONNECTION_RESET = 104,
    QV_ERROR_CONNECTION_TIMED_OUT = 110, /* the platform's connect timed out */
    QV_ERROR_CONNECTION_REFUSED = 111,
    QV_ERROR_IN_PROGRESS = 115,
    QV_ERROR_QUOTA_EXCEEDED = 122,
    QV_ERROR_CANCELED = 125,
    QV_ERROR_CANNOT_CONNECT = 200,
    QV_ERROR_TIMED_OUT = 201, /* one of qvlib's own deadlines expired */
    QV_ERROR_GENERIC = 202,
    QV_ERROR_WRITE = 203,
    QV_ERROR_END_OF_FILE = 204,
    QV_ERROR_UNSUPPORTED = 205,
    QV_ERROR_BUSY = 206,
    QV_ERROR_NOT_FOUND = 207,
    QV_ERROR_INTERNAL = 208,
    QV_ERROR_INVALID_SYNTAX = 209,
    QV_ERROR_UNRESOLVED_HOST = 210,
    QV_ERROR_SERVER = 211,
    QV_ERROR_BAD_HANDLE = 212,
    QV_ERROR_WAKEUP = 213,
    QV_ERROR_INCOMPLETE = 214, /* partial progress; compare QV_ERROR_WOULD_BLOCK */
    QV_ERROR_ID_MISMATCH = 215,
    QV_ERROR_UNTRUSTED_ROOT_CA = 216,
    QV_ERROR_NO_ADDRESS_IN_FAMILY = 217,
    QV_ERROR_TEMPORARY_FAILURE = 218,
    QV_ERROR_PERMANENT_FAILURE = 219,
    QV_ERROR_COUNT /* 220: one above the largest code */
} qv_error;

/* The fixed lower-case message of a code; "unknown error" for anything else.
 * Never NULL; static storage, never freed. */
QV_API const char *qv_error_string(int code) QV_NOEXCEPT;

/* ======================================================================
 * Library lifecycle, conversions and limits
 * ====================================================================== */

/* Tears down the process-wide log and random source. Call last, with no other
 * thread inside the library. The library stays usable: the next user
 * re-creates what it needs. Calling it twice is harmless. */
QV_API void qv_uninit(void) QV_NOEXCEPT;
/* Does nothing; call it to force the library to be loaded. */
QV_API void qv_dll_donothing(void) QV_NOEXCEPT;
/* Always returns 1; a host that loads the library lazily calls it. */
QV_API int qv_dll_delayloadinitialize(void) QV_NOEXCEPT;

/* Store src in *destptr with the other character signedness. */
QV_API void qv_convert_cstr_from_custr(char **destptr, const unsigned char *src) QV_NOEXCEPT;
QV_API void qv_convert_custr_from_cstr(unsigned char **destptr, const char *src) QV_NOEXCEPT;
/* Round half away from zero. Out of range and NaN give the most negative value
 * of the result type. qv_convert_long_from_double_round has a 32-bit range. */
QV_API int64_t qv_convert_i64_from_double_round(double value) QV_NOEXCEPT;
QV_API long qv_convert_long_from_double_round(double value) QV_NOEXCEPT;
/* *dest = min(value, INT_MAX); returns 1 if clamped, else 0. */
QV_API int qv_convert_int_from_size_t_and_limit(int *dest, size_t value) QV_NOEXCEPT;
/* *dest = min(value, UINT_MAX); returns 1 if clamped, else 0. */
QV_API int qv_convert_uint_from_size_t_and_limit(unsigned int *dest, size_t value) QV_NOEXCEPT;
/* *dest = (int)value, wrapped; returns -1 if the stored int is negative, else 0. */
QV_API int qv_convert_int_from_size_t(int *dest, size_t value) QV_NOEXCEPT;
QV_API size_t qv_limit_max_size_t(void) QV_NOEXCEPT;
QV_API unsigned long qv_limit_max_unsigned_long(void) QV_NOEXCEPT;
QV_API unsigned int qv_limit_max_unsigned_int(void) QV_NOEXCEPT;
/* a * b, saturated at SIZE_MAX; 0 if either is 0. */
QV_API size_t qv_sizet_multiply_and_limit(size_t a, size_t b) QV_NOEXCEPT;

/* ======================================================================
 * Memory allocation
 *
 * Every block the library hands out is released with qv_free(). When the
 * environment variable QVMALLOC_FAILMODE is present (any value) at the first
 * allocation, qv_malloc, qv_calloc and qv_cmalloc fail from then on (the
 * discovering allocation included) after printing
 * "QVMALLOC_FAILMODE enabled!" once. qv_realloc is exempt.
 * ====================================================================== */

QV_API void *qv_malloc(size_t size) QV_NOEXCEPT;
/* Zero-filled count * size bytes; NULL if the product overflows. */
QV_API void *qv_calloc(size_t count, size_t size) QV_NOEXCEPT;
/* Zero-filled size bytes. */
QV_API void *qv_cmalloc(size_t size) QV_NOEXCEPT;
/* Size 0 is taken as 1: never frees, never NULL for size 0 on a healthy heap. */
QV_API void *qv_realloc(void *ptr, size_t size) QV_NOEXCEPT;
/* NULL is ignored. */
QV_API void qv_free(void *ptr) QV_NOEXCEPT;
/* Does nothing; a symmetric teardown call. */
QV_API void qv_malloc_uninit(void) QV_NOEXCEPT;
/* Returns 0: no stack trace is taken on allocation failure. */
QV_API int qv_mallocfail_unwind_stacktrace(void) QV_NOEXCEPT;

/* ======================================================================
 * Logging
 *
 * A qv_log fans each message out to five sinks, each with an on/off switch
 * and a level threshold (a message goes to a sink when its level <= the
 * sink's level; levels are 0..16, smaller is more important):
 *   callback (off, 16), log file (off, 8, "qvdefault.log"),
 *   stdout (off, 8), stderr (on, 8), syslog (off, 0).
 * Every function taking a struct qv_log * accepts NULL for the process-wide default
 * log, which is created on first use. Lines are
 *   "YYYY-MM-DD hh:mm:ss " [prefix " "] message "\n"
 * in local time (raw messages have no timestamp); each sink is flushed after
 * every line. Messages are never truncated. Functions returning int give 0 or
 * -1 (some sink failed; the other sinks were still served).
 * ====================================================================== */

struct qv_log; /* used as "struct qv_log": the name qv_log is also the logging function */
typedef struct qv_mutex qv_mutex;

/* Callback sink: the formatted message only (no timestamp, prefix or newline),
 * valid during the call; time is seconds since 1970 UTC. Return 0 on success. */
typedef int (*qv_log_callback_fn)(const char *message, size_t length, int level,
                                  int64_t time, void *user);

/* Create the default log if absent: 0, or -1 when memory ran out. */
QV_API int qv_log_init(void) QV_NOEXCEPT;
/* qv_log_init, then serialise library messages between threads from now on.
 * Call once, before threads start logging. */
QV_API int qv_log_init_threaded(void) QV_NOEXCEPT;
/* Destroy the default log; the next use creates a fresh one with defaults. */
QV_API void qv_log_uninit(void) QV_NOEXCEPT;
/* A new log with the defaults, or NULL when memory runs out. */
QV_API struct qv_log *qv_log_create(void) QV_NOEXCEPT;
/* Frees the log and closes its file (also a stream handed in). */
QV_API void qv_log_destroy(struct qv_log *qvlog) QV_NOEXCEPT;

/* A message with a timestamp and no prefix. (In C++ the function shares its
 * name with the struct; the shadowing is intended and silenced here.) */
#if defined(__cplusplus) && defined(__GNUC__)
#  pragma GCC diagnostic push
#  pragma GCC diagnostic ignored "-Wshadow"
#endif
QV_API int qv_log(struct qv_log *qvlog, int level, const char *format, ...) QV_NOEXCEPT QV_PRINTF(3, 4);
#if defined(__cplusplus) && defined(__GNUC__)
#  pragma GCC diagnostic pop
#endif
/* A message with neither timestamp nor prefix. */
QV_API int qv_log_raw(struct qv_log *qvlog, int level, const char *format, ...) QV_NOEXCEPT QV_PRINTF(3, 4);
/* A message with the prefix "file:line[level]". Takes no lock. */
QV_API int qv_log_macro(struct qv_log *qvlog, int level, const char *file, int line,
                        const char *format, ...) QV_NOEXCEPT QV_PRINTF(5, 6);

/* The four calls behind QV_LOG; see below. */
QV_API void qv_log_macro_mutex_lock(void) QV_NOEXCEPT;
QV_API void qv_log_macro_mutex_unlock(void) QV_NOEXCEPT;
/* Stores the call site (file is kept as a pointer, not copied). */
QV_API void qv_log_macro_set_values(struct qv_log *qvlog, int level, const char *file, int line) QV_NOEXCEPT;
QV_API int qv_log_macro_format(const char *format, ...) QV_NOEXCEPT QV_PRINTF(1, 2);

/* Log a message with this call site's file and line to the default log.
 * The arguments are always evaluated; the sinks filter by level. */
#define QV_LOG(level, ...)                                              \
    do {                                                                \
        qv_log_macro_mutex_lock();                                      \
        qv_log_macro_set_values(NULL, (level), __FILE__, __LINE__);     \
        qv_log_macro_format(__VA_ARGS__);                               \
        qv_log_macro_mutex_unlock();                                    \
    } while (0)

/* Sink switches and thresholds (no range check on levels). */
QV_API void qv_log_callback_enable(struct qv_log *qvlog) QV_NOEXCEPT;
QV_API void qv_log_callback_disable(struct qv_log *qvlog) QV_NOEXCEPT;
QV_API void qv_log_callback_set_level(struct qv_log *qvlog, int level) QV_NOEXCEPT;
/* Stores the function and its user pointer; does not enable the sink. */
QV_API void qv_log_callback_set(struct qv_log *qvlog, qv_log_callback_fn callback, void *user) QV_NOEXCEPT;
QV_API void qv_log_logfile_enable(struct qv_log *qvlog) QV_NOEXCEPT;
QV_API void qv_log_logfile_disable(struct qv_log *qvlog) QV_NOEXCEPT;
QV_API void qv_log_logfile_set_level(struct qv_log *qvlog, int level) QV_NOEXCEPT;
/* Copies the name and closes the open file: the next line opens the new name.
 * 0, or -1 if the copy could not be allocated (nothing changed). */
QV_API int qv_log_logfile_set_name(struct qv_log *qvlog, const char *name) QV_NOEXCEPT;
/* Closes the current stream and adopts fp; the log closes it later. */
QV_API void qv_log_logfile_set_filehandle(struct qv_log *qvlog, FILE *fp) QV_NOEXCEPT;
/* For rotation: reopen the file for appending if the file sink is enabled.
 * 0 if disabled or the file is open afterwards, -1 otherwise. */
QV_API int qv_log_logfile_recreate(struct qv_log *qvlog) QV_NOEXCEPT;
QV_API void qv_log_stdout_enable(struct qv_log *qvlog) QV_NOEXCEPT;
QV_API void qv_log_stdout_disable(struct qv_log *qvlog) QV_NOEXCEPT;
QV_API void qv_log_stdout_set_level(struct qv_log *qvlog, int level) QV_NOEXCEPT;
QV_API void qv_log_stderr_enable(struct qv_log *qvlog) QV_NOEXCEPT;
QV_API void qv_log_stderr_disable(struct qv_log *qvlog) QV_NOEXCEPT;
QV_API void qv_log_stderr_set_level(struct qv_log *qvlog, int level) QV_NOEXCEPT;
/* Syslog lines go through syslog(3) with priority facility | map[level]. */
QV_API void qv_log_syslog_enable(struct qv_log *qvlog) QV_NOEXCEPT;
QV_API void qv_log_syslog_disable(struct qv_log *qvlog) QV_NOEXCEPT;
QV_API void qv_log_syslog_set_level(struct qv_log *qvlog, int level) QV_NOEXCEPT;
QV_API void qv_log_syslog_set_facility(struct qv_log *qvlog, int facility) QV_NOEXCEPT;
/* -1 if level is outside 0..16, else stores the priority and returns 0. */
QV_API int qv_log_syslog_map(struct qv_log *qvlog, int level, int priority) QV_NOEXCEPT;

/* ======================================================================
 * Formatted strings and string duplication
 * ====================================================================== */

/* printf into str (size bytes). Returns the length the whole output needs
 * (excluding the terminator), fitted or not; -1 on a formatting error. With
 * size > 0 the buffer is always terminated; truncation shows as result >= size.
 * str may be NULL when size is 0. */
QV_API int qv_vsnprintf(char *str, size_t size, const char *format, va_list ap) QV_NOEXCEPT;
QV_API int qv_snprintf(char *str, size_t size, const char *format, ...) QV_NOEXCEPT QV_PRINTF(3, 4);
/* Allocate and format: *strp receives the new string (NULL on failure);
 * returns its length or -1. */
QV_API int qv_vasprintf(char **strp, const char *format, va_list ap) QV_NOEXCEPT;
QV_API int qv_asprintf(char **strp, const char *format, ...) QV_NOEXCEPT QV_PRINTF(2, 3);
/* A new formatted string, or NULL. */
QV_API char *qv_vstrdupf(const char *format, va_list ap) QV_NOEXCEPT;
QV_API char *qv_strdupf(const char *format, ...) QV_NOEXCEPT QV_PRINTF(1, 2);
/* Template expansion: "%name%" is replaced by the value of the pair with that
 * name, "%%" is one percent sign. Pairs (const char *name, const char *value)
 * follow the template, closed by a NULL name. Returns a new string, or NULL
 * (a NULL value met before the wanted pair, or no memory). A missing or
 * unterminated variable is logged at level 6 and expands to nothing / to
 * itself. */
QV_API char *qv_format(const char *format, ...) QV_NOEXCEPT;

/* New copies; NULL when memory runs out. */
QV_API char *qv_strdup(const char *string) QV_NOEXCEPT;
/* At most n bytes, stopping at a zero byte; always terminated. */
QV_API char *qv_strndup(const char *string, size_t n) QV_NOEXCEPT;
/* Only ASCII A-Z are lowered. */
QV_API char *qv_strdup_lowercase(const char *string) QV_NOEXCEPT;
QV_API char *qv_strndup_lowercase(const char *string, size_t n) QV_NOEXCEPT;
/* A new block holding size bytes of memory (1 byte for size 0). */
QV_API void *qv_memdup(const void *memory, size_t size) QV_NOEXCEPT;
/* A new decimal text of value. */
QV_API char *qv_i64tostr(int64_t value) QV_NOEXCEPT;
/* Parse a decimal integer (leading white space and one sign allowed).
 * Returns 0; QV_ERROR_INVALID_SYNTAX (no digits); QV_ERROR_OUT_OF_RANGE;
 * QV_ERROR_INCOMPLETE (trailing bytes: *out holds the leading digits' value).
 * *out is 0 for the first two failures. */
QV_API int qv_strtoi64(const char *str, int64_t *out) QV_NOEXCEPT;

/* Small string functions. */
QV_API int qv_strcasecmp(const char *s1, const char *s2) QV_NOEXCEPT;
QV_API int qv_strncasecmp(const char *s1, const char *s2, size_t n) QV_NOEXCEPT;
/* Examines exactly n bytes (does not stop at a zero byte). */
QV_API char *qv_strnchr(const char *string, size_t n, char c) QV_NOEXCEPT;
/* Copies at most n - 1 bytes and always terminates (n = 0: dest untouched). */
QV_API char *qv_strncpy(char *dest, const char *src, size_t n) QV_NOEXCEPT;
/* A new copy without leading and trailing white space. */
QV_API char *qv_strstrip(const char *str) QV_NOEXCEPT;
QV_API int qv_endswith(const char *string, const char *suffix) QV_NOEXCEPT;
QV_API void *qv_memmem(const void *haystack, size_t haystacklen,
                       const void *needle, size_t needlelen) QV_NOEXCEPT;

/* ======================================================================
 * Threads and locks
 * ====================================================================== */

/* A recursive mutex. create returns NULL when memory or the platform mutex
 * could not be had (nothing is logged). Lock failures are assertions. */
QV_API qv_mutex *qv_mutex_create(void) QV_NOEXCEPT;
QV_API void qv_mutex_lock(qv_mutex *qvmutex) QV_NOEXCEPT;
QV_API void qv_mutex_unlock(qv_mutex *qvmutex) QV_NOEXCEPT;
QV_API void qv_mutex_destroy(qv_mutex *qvmutex) QV_NOEXCEPT;

/* @@section threads@@ */

/* Joinable threads. A thread object is started once and joined once:
 * QV_THREAD_STATE_NONE (created, or the start failed) -> RUNNING (started)
 * -> JOINED. Starting in any state but NONE, or joining in any state but
 * RUNNING, is an assertion failure. */
typedef struct qv_thread qv_thread;
enum {
    QV_THREAD_STATE_NONE = 0,
    QV_THREAD_STATE_RUNNING = 1,
    QV_THREAD_STATE_JOINED = 2
};
/* A thread function; its value is handed to qv_thread_join. */
typedef unsigned int (*qv_thread_fn)(void *arg);

/* A new thread object in state NONE, or NULL after logging
 * "not enough memory for thread context". */
QV_API qv_thread *qv_thread_create(void) QV_NOEXCEPT;
/* Runs startfunction(arg) on a new thread. Returns 0, or the platform's error
 * number for the failed creation (such as EAGAIN), not a qv error code; the
 * object is then back in state NONE. */
QV_API int qv_thread_start(qv_thread *qvthread, qv_thread_fn startfunction, void *arg) QV_NOEXCEPT;
/* Waits without limit for the thread to end. 0, or -1 after logging (the
 * object stays RUNNING). *result (if not NULL) receives the function's value,
 * or 0 on failure. */
QV_API int qv_thread_join(qv_thread *qvthread, unsigned int *result) QV_NOEXCEPT;
/* Frees the object without joining: a started, unjoined thread keeps running
 * (detached) and its resources go when it ends. */
QV_API void qv_thread_destroy(qv_thread *qvthread) QV_NOEXCEPT;

/* A condition object that owns its lock (plain, not recursive). Waits have no
 * time limit and may wake spuriously: wait in a loop on your own predicate,
 * holding the object's lock. Signal (one waiter) and broadcast (all) take no
 * lock; their result carries no meaning. create returns NULL when memory or
 * the platform objects could not be had. Lock failures are assertions. */
typedef struct qv_cond qv_cond;
QV_API qv_cond *qv_cond_create(void) QV_NOEXCEPT;
QV_API void qv_cond_lock(qv_cond *qvcond) QV_NOEXCEPT;
QV_API void qv_cond_unlock(qv_cond *qvcond) QV_NOEXCEPT;
QV_API void qv_cond_wait(qv_cond *qvcond) QV_NOEXCEPT;
QV_API int qv_cond_signal(qv_cond *qvcond) QV_NOEXCEPT;
QV_API int qv_cond_broadcast(qv_cond *qvcond) QV_NOEXCEPT;
/* No thread may wait on or hold the object. */
QV_API void qv_cond_destroy(qv_cond *qvcond) QV_NOEXCEPT;

/* A readers/writer lock preferring writers: once a writer waits, new readers
 * wait too; a writer's unlock hands over to the next writer, or lets all
 * waiting readers in when no writer is left. Not recursive. unlock releases
 * whichever kind the calling thread holds. create returns NULL when memory or
 * the platform objects could not be had. Lock failures are assertions. */
typedef struct qv_rwlock qv_rwlock;
QV_API qv_rwlock *qv_rwlock_create(void) QV_NOEXCEPT;
QV_API void qv_rwlock_rdlock(qv_rwlock *qvrwlock) QV_NOEXCEPT;
QV_API void qv_rwlock_wrlock(qv_rwlock *qvrwlock) QV_NOEXCEPT;
QV_API void qv_rwlock_unlock(qv_rwlock *qvrwlock) QV_NOEXCEPT;
QV_API void qv_rwlock_destroy(qv_rwlock *qvrwlock) QV_NOEXCEPT;

/* ======================================================================
 * Timers, timeouts and time
 * ====================================================================== */

/* @@section time@@ */

/* Intervals are measured in whole milliseconds on a monotonic 32-bit tick
 * (wrapping like it). A time limit is (seconds, microseconds) with
 * microseconds below 1000000 (asserted); negative seconds means no limit. */

/* A deadline for an operation made of several waits. */
typedef struct qv_timeout qv_timeout;
/* A zero-filled deadline (0 ms left), or NULL. */
QV_API qv_timeout *qv_timeout_create(void) QV_NOEXCEPT;
/* Starts the deadline now; microseconds round to the nearest millisecond. */
QV_API void qv_timeout_set(qv_timeout *t, long seconds, long microseconds) QV_NOEXCEPT;
/* 1 when the limit has run out, 0 while time is left, -1 without a limit.
 * Writes the time left where the pointers are not NULL (-1 s, 0 us without a
 * limit). Each check consumes the time since the previous check. */
QV_API int qv_timeout_check(qv_timeout *t, long *secondsptr, long *microsecondsptr) QV_NOEXCEPT;
QV_API void qv_timeout_destroy(qv_timeout *t) QV_NOEXCEPT;

/* A stopwatch with a split. */
typedef struct qv_timer qv_timer;
/* A started timer, or NULL. */
QV_API qv_timer *qv_timer_create(void) QV_NOEXCEPT;
/* Restarts: start, split start and latest split become now. */
QV_API void qv_timer_start(qv_timer *t) QV_NOEXCEPT;
/* Takes a split: the latest split becomes now. */
QV_API void qv_timer_split(qv_timer *t) QV_NOEXCEPT;
/* Opens a new split at the moment of the latest split. */
QV_API void qv_timer_storesplit(qv_timer *t) QV_NOEXCEPT;
/* Start to latest split (total) or split start to latest split (split), as
 * seconds and microseconds, and count per second of it (count being, say,
 * bytes moved; an empty interval gives an infinite rate). NULL pointers are
 * skipped. */
QV_API void qv_timer_gettotal(qv_timer *t, unsigned int count, long *secondsptr,
                              long *microsecondsptr, double *rateptr) QV_NOEXCEPT;
QV_API void qv_timer_getsplit(qv_timer *t, unsigned int count, long *secondsptr,
                              long *microsecondsptr, double *rateptr) QV_NOEXCEPT;
QV_API void qv_timer_destroy(qv_timer *t) QV_NOEXCEPT;

/* Sleeps the whole interval (signals do not cut it short); microseconds are
 * truncated to milliseconds; a negative total sleeps nothing. */
QV_API void qv_sleep(long seconds, long microseconds) QV_NOEXCEPT;
/* Seconds since 1970-01-01 UTC, also stored in *tptr when not NULL; -1 when
 * the clock cannot be read. */
QV_API int64_t qv_time(int64_t *tptr) QV_NOEXCEPT;
struct tm;
/* Thread-safe conversion to local time into *result: result, or NULL when the
 * conversion fails. */
QV_API struct tm *qv_localtime_r(const int64_t *timep, struct tm *result) QV_NOEXCEPT;

/* ======================================================================
 * Lock queue and thread pool
 * ====================================================================== */

/* @@section lockqueue@@ */

/* An unbounded, thread-safe FIFO of opaque item pointers (NULL is a legal
 * item) for any number of producers and consumers. After qv_lockqueue_set_end
 * pushes are refused with QV_ERROR_WRITE and pops drain what is queued, then
 * report QV_ERROR_END_OF_FILE. The queue logs nothing. Destroy only when no
 * thread uses the queue any more. */
typedef struct qv_lockqueue qv_lockqueue;
/* A link of the queue that carries one item; a producer may prepare it
 * outside the lock and a consumer may recycle it. */
typedef struct qv_lockqueue_element qv_lockqueue_element;
typedef void (*qv_lockqueue_item_destroy_fn)(void *item);

/* A new queue, or NULL with *error_out (if not NULL) QV_ERROR_NO_MEMORY, or
 * QV_ERROR_GENERIC when its condition could not be made. */
QV_API qv_lockqueue *qv_lockqueue_create(int *error_out) QV_NOEXCEPT;
/* Frees the elements still queued, calling destroy (if not NULL) on each
 * item, head first; then the queue. */
QV_API void qv_lockqueue_destroy(qv_lockqueue *queue, qv_lockqueue_item_destroy_fn destroy) QV_NOEXCEPT;
/* 0; QV_ERROR_NO_MEMORY; QV_ERROR_WRITE after the end (the item stays the
 * caller's). */
QV_API int qv_lockqueue_push(qv_lockqueue *queue, void *item) QV_NOEXCEPT;
/* 0 (the queue owns the element now), or QV_ERROR_WRITE after the end (it
 * stays the caller's). */
QV_API int qv_lockqueue_push_element(qv_lockqueue *queue, qv_lockqueue_element *element) QV_NOEXCEPT;
/* The item at the head (its element is freed), blocking while the queue is
 * empty and not ended. NULL is also a legal item: *error_out (required) says
 * QV_ERROR_NONE, or QV_ERROR_END_OF_FILE for an ended, drained queue. */
QV_API void *qv_lockqueue_pop(qv_lockqueue *queue, int *error_out) QV_NOEXCEPT;
/* As pop without blocking: QV_ERROR_NOT_FOUND when empty and not ended. */
QV_API void *qv_lockqueue_pop_try(qv_lockqueue *queue, int *error_out) QV_NOEXCEPT;
/* As pop and pop_try, but hand over the element itself (the caller owns it)
 * or NULL; error_out may be NULL. */
QV_API qv_lockqueue_element *qv_lockqueue_pop_element(qv_lockqueue *queue, int *error_out) QV_NOEXCEPT;
QV_API qv_lockqueue_element *qv_lockqueue_pop_element_try(qv_lockqueue *queue, int *error_out) QV_NOEXCEPT;
/* Marks the end (for good) and wakes every waiting consumer. */
QV_API void qv_lockqueue_set_end(qv_lockqueue *queue) QV_NOEXCEPT;
/* A new element with a NULL item, or NULL. */
QV_API qv_lockqueue_element *qv_lockqueue_element_create(void) QV_NOEXCEPT;
/* Frees an element that is in no queue (not its item). */
QV_API void qv_lockqueue_element_destroy(qv_lockqueue_element *element) QV_NOEXCEPT;
QV_API void *qv_lockqueue_element_get_item(const qv_lockqueue_element *element) QV_NOEXCEPT;
QV_API void qv_lockqueue_element_set_item(qv_lockqueue_element *element, void *item) QV_NOEXCEPT;

/* A thread pool: a fixed number of workers take requests from an input
 * queue, call the request handler on each with their own thread context, and
 * queue the same pointer as a result. Results come in completion order
 * (submission order with one worker); without a handler requests pass
 * through unchanged. Requests and results stay the caller's. */
typedef struct qv_threadpool qv_threadpool;
typedef struct qv_threadpool_params qv_threadpool_params;
/* Makes a worker's context. *error_out comes preset to QV_ERROR_GENERIC; set
 * it to QV_ERROR_NONE on success. */
typedef void *(*qv_threadpool_thread_ctx_create_fn)(void *global_ctx, int *error_out);
typedef void (*qv_threadpool_thread_ctx_destroy_fn)(void *global_ctx, void *thread_ctx);
/* Runs on all workers at once; the result is ignored. */
typedef int (*qv_threadpool_request_handler_fn)(void *global_ctx, void *thread_ctx, void *request);

/* Parameters with the defaults (1 thread, everything else NULL), or NULL.
 * The pool copies them: destroy them right after qv_threadpool_create. */
QV_API qv_threadpool_params *qv_threadpool_params_create_defaults(void) QV_NOEXCEPT;
QV_API void qv_threadpool_params_set_defaults(qv_threadpool_params *params) QV_NOEXCEPT;
/* Zero or less gives a pool without workers. */
QV_API void qv_threadpool_params_set_num_threads(qv_threadpool_params *params, int num_threads) QV_NOEXCEPT;
QV_API void qv_threadpool_params_set_global_context(qv_threadpool_params *params, void *global_ctx) QV_NOEXCEPT;
QV_API void qv_threadpool_params_set_thread_ctx_create(qv_threadpool_params *params,
                                                       qv_threadpool_thread_ctx_create_fn fn) QV_NOEXCEPT;
QV_API void qv_threadpool_params_set_thread_ctx_destroy(qv_threadpool_params *params,
                                                        qv_threadpool_thread_ctx_destroy_fn fn) QV_NOEXCEPT;
QV_API void qv_threadpool_params_set_request_handler(qv_threadpool_params *params,
                                                     qv_threadpool_request_handler_fn fn) QV_NOEXCEPT;
QV_API void qv_threadpool_params_destroy(qv_threadpool_params *params) QV_NOEXCEPT;
/* A running pool, or NULL with *error_out (if not NULL) set, after a level 7
 * log line: QV_ERROR_INVALID_ARGUMENT (NULL params), QV_ERROR_NO_MEMORY,
 * QV_ERROR_GENERIC (a thread could not be made or started), or the error a
 * context create callback reported. Contexts are made in index order while
 * earlier workers already run; on failure the started workers are stopped and
 * joined, and every context made is passed to the destroy callback. */
QV_API qv_threadpool *qv_threadpool_create(const qv_threadpool_params *params, int *error_out) QV_NOEXCEPT;
/* 0; QV_ERROR_NO_MEMORY; QV_ERROR_WRITE after stop. */
QV_API int qv_threadpool_submit_request(qv_threadpool *pool, void *request) QV_NOEXCEPT;
/* The next processed request, blocking while none is ready (a stopped pool
 * with nothing left blocks for ever: count what you submitted). NULL with
 * the queue's code otherwise. error_out may be NULL. */
QV_API void *qv_threadpool_get_result(qv_threadpool *pool, int *error_out) QV_NOEXCEPT;
/* As get_result without blocking: QV_ERROR_NOT_FOUND when none is ready. */
QV_API void *qv_threadpool_get_result_try(qv_threadpool *pool, int *error_out) QV_NOEXCEPT;
/* Lets the workers finish every queued request, joins them, and refuses
 * further submissions. Results stay collectable. Idempotent. */
QV_API void qv_threadpool_stop(qv_threadpool *pool) QV_NOEXCEPT;
/* Stops, passes each context to the destroy callback in index order, and
 * frees the pool; requests and results still queued are not touched. */
QV_API void qv_threadpool_destroy(qv_threadpool *pool) QV_NOEXCEPT;

/* ======================================================================
 * Hash tables and cache
 * ====================================================================== */

/* @@section hash@@ */

/* ======================================================================
 * JSON documents and INI files
 * ====================================================================== */

/* @@section json@@ */

/* ======================================================================
 * Base64, hexadecimal, PEM and URL encoding
 * ====================================================================== */

/* @@section codecs@@ */

/* ======================================================================
 * Files
 * ====================================================================== */

/* @@section files@@ */

/* ======================================================================
 * SHA-1 and SHA-256
 * ====================================================================== */

/* @@section digests@@ */

/* ======================================================================
 * Command-line option parser
 * ====================================================================== */

/* @@section getopt@@ */

#ifdef __cplusplus
}
#endif

#endif /* QVLIB_H */
