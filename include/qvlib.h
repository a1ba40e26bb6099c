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

/* --- The intrusive hash table ---------------------------------------------
 * A qv_hash stores the caller's own item structures. Each item embeds one
 * qv_hash_link at a fixed offset (given to qv_hash_create, usually with
 * offsetof); the table threads its slot chains through those links and never
 * copies an item. The table grows by four (5, 21, 85, 341, ... slots) at about
 * 90% load and shrinks at 10%, incrementally: a resize allocates the new slot
 * array at once and then moves one item per later add or remove, so no single
 * call rehashes the whole table. A failed resize allocation is not an error:
 * the table keeps working at its size. No locking: one thread at a time.
 *
 * Ownership: an added item belongs to the table until qv_hash_remove hands it
 * back (no callback runs), or until the table discards it (replaced by an
 * equal item, clear, destroy), which calls the destroy callback on it. */

typedef struct qv_hash qv_hash;

/* The link every item carries; the table owns its contents while the item is
 * stored. */
typedef struct qv_hash_link {
    struct qv_hash_link *next;
    struct qv_hash_link *prev;
} qv_hash_link;

/* Hash of an item's key; equal items must hash alike. */
typedef uint32_t (*qv_hash_calchash_fn)(const void *item, void *context);
/* 0 when the stored item and the search item have the same key. */
typedef int (*qv_hash_compare_fn)(const void *storeditem, const void *searchitem, void *context);
/* Destroys an item the table discards; the result is ignored. */
typedef int (*qv_hash_destroy_fn)(void *item, void *context);

/* A new empty table of 5 slots, or NULL when memory runs out. listoffset is
 * the byte offset of the qv_hash_link inside every item; all three callbacks
 * are required and receive context. */
QV_API qv_hash *qv_hash_create(size_t listoffset, qv_hash_calchash_fn calchashcallback,
                               qv_hash_compare_fn comparecallback,
                               qv_hash_destroy_fn destroycallback, void *context) QV_NOEXCEPT;
/* A new empty table with original's callbacks, context, link offset and
 * minimum size (items are not copied), or NULL. */
QV_API qv_hash *qv_hash_create_from(const qv_hash *original) QV_NOEXCEPT;
/* Destroys every item, then frees the table. */
QV_API void qv_hash_destroy(qv_hash *qvhash) QV_NOEXCEPT;
/* Destroys every item and returns the table to its minimum size. */
QV_API void qv_hash_clear(qv_hash *qvhash) QV_NOEXCEPT;
/* Stores item. A stored item that compares equal is destroyed first, so the
 * count is unchanged by a replacement. Never fails. */
QV_API void qv_hash_add(qv_hash *qvhash, void *item) QV_NOEXCEPT;
/* The stored item equal to searchitem (any item-shaped object with its key
 * fields filled in), or NULL. A lookup during a resize may move the item it
 * finds into the new slot array. */
QV_API void *qv_hash_lookup(qv_hash *qvhash, const void *searchitem) QV_NOEXCEPT;
/* Takes a stored item, identified by its address, out of the table without
 * destroying it. Pass an item just returned by qv_hash_lookup; an item that
 * is not in the table is a broken precondition. */
QV_API void qv_hash_remove(qv_hash *qvhash, void *item) QV_NOEXCEPT;
/* Enumeration: the first item, then each following one, NULL at the end.
 * The walk keeps no state: an add, remove or lookup during the walk may make
 * it repeat or miss items. To remove the current item, fetch its successor
 * first. The order is the new slot array's items (during a resize), then the
 * main array's, each in slot order and within a slot in insertion order. */
QV_API void *qv_hash_enumerate_start(qv_hash *qvhash) QV_NOEXCEPT;
QV_API void *qv_hash_enumerate_next(qv_hash *qvhash, void *item) QV_NOEXCEPT;

/* The string hash of the library: the bytes in groups of four, packed
 * big-endian, each group XORed into a 32-bit value rotated left by 5. The
 * empty string gives 0; case is significant. */
QV_API uint32_t qv_hashfunc_string(const char *string) QV_NOEXCEPT;

/* --- The string-keyed table -----------------------------------------------
 * A qv_stringhash maps case-sensitive NUL-terminated keys to opaque value
 * pointers. It copies the keys it stores and keeps the values as given; when
 * an entry is replaced, removed or cleared, the value destroy callback (if
 * any) is called with the value and the context. */

typedef struct qv_stringhash qv_stringhash;
typedef void (*qv_stringhash_destroy_fn)(void *value, void *context);

/* A new empty table, or NULL. destroycallback may be NULL. */
QV_API qv_stringhash *qv_stringhash_create(qv_stringhash_destroy_fn destroycallback,
                                           void *context) QV_NOEXCEPT;
/* A new empty table with original's value destroy callback and context, or
 * NULL. Its entries are destroyed through original, which must outlive it. */
QV_API qv_stringhash *qv_stringhash_create_from(const qv_stringhash *original) QV_NOEXCEPT;
/* Stores a copy of key with value, replacing (and destroying) an entry with
 * the same key. 0, or -1 when memory ran out (nothing changed). */
QV_API int qv_stringhash_add(qv_stringhash *stringhash, const char *key, void *value) QV_NOEXCEPT;
/* The value stored under key, or NULL when absent (a stored NULL value looks
 * the same). */
QV_API void *qv_stringhash_lookup(qv_stringhash *stringhash, const char *key) QV_NOEXCEPT;
/* 0 when the entry was removed and destroyed, -1 when key is absent. */
QV_API int qv_stringhash_remove(qv_stringhash *stringhash, const char *key) QV_NOEXCEPT;
/* Enumeration: returns an opaque position (NULL at the end) and sets *key and
 * *value (each optional) to the entry's key and value, or to NULL at the end.
 * Same order and caveats as qv_hash_enumerate_start/next. */
QV_API void *qv_stringhash_enumerate_start(qv_stringhash *stringhash, const char **key,
                                           void **value) QV_NOEXCEPT;
QV_API void *qv_stringhash_enumerate_next(qv_stringhash *stringhash, void *prevstringhashitem,
                                          const char **key, void **value) QV_NOEXCEPT;
/* Destroys every entry. */
QV_API void qv_stringhash_clear(qv_stringhash *qvstringhash) QV_NOEXCEPT;
/* Destroys every entry and the table. */
QV_API void qv_stringhash_destroy(qv_stringhash *stringhash) QV_NOEXCEPT;

/* --- The memory-limited cache ----------------------------------------------
 * A qv_cache stores copies of byte blobs under string keys within a byte
 * budget. Each item counts as strlen(key) + 24 + data size bytes. When a new
 * item needs room, the oldest items (by time of storing; lookups do not
 * refresh them) are evicted first. No locking. */

typedef struct qv_cache qv_cache;

/* A new empty cache with a budget of maxsize bytes, or NULL. */
QV_API qv_cache *qv_cache_create(size_t maxsize) QV_NOEXCEPT;
/* Stores a copy of key and of size bytes at data, replacing an item with the
 * same key (the new item is the newest). Returns 0;
 * QV_ERROR_OUT_OF_RANGE when the item is larger than the budget, when its size
 * overflows, or when it could not be entered in the table (it is then not
 * stored; older items may have been evicted);
 * QV_ERROR_NO_MEMORY when the copies could not be made (nothing changed);
 * QV_ERROR_INTERNAL when the cache ends up exactly full: the item is stored
 * nevertheless, so keep items strictly below the budget. */
QV_API int qv_cache_set(qv_cache *qvcache, const char *key, const void *data, size_t size) QV_NOEXCEPT;
/* 0 with *data pointing into the cache (valid until the item is replaced or
 * evicted) and *size (optional) set; QV_ERROR_NOT_FOUND with NULL and 0. */
QV_API int qv_cache_get(qv_cache *qvcache, const char *key, const void **data, size_t *size) QV_NOEXCEPT;
/* Sets a new budget, evicting the oldest items until the cache fits it. */
QV_API void qv_cache_set_memory_limit(qv_cache *qvcache, size_t maxsize) QV_NOEXCEPT;
/* Frees every item and the cache. */
QV_API void qv_cache_destroy(qv_cache *qvcache) QV_NOEXCEPT;

/* ======================================================================
 * INI files
 *
 * A qv_inifile is a list of entries in file order, each a value under a key,
 * optionally within a section. Lookups are case-sensitive and the first
 * matching entry wins, so with repeated keys the first occurrence counts.
 *
 * Text accepted by qv_inifile_parse and qv_inifile_load, line by line (LF or
 * CRLF; a leading UTF-8 byte order mark is skipped):
 *   - blank lines are ignored;
 *   - a line whose first non-blank character is ';' or '#' is a comment;
 *   - "[name]" starts section name (the name trimmed, not empty, without
 *     brackets inside); keys before the first section have no section;
 *   - "key = value" stores an entry: key and value are trimmed of white
 *     space, the key must not be empty, the value may be. The value is the
 *     rest of the line: no quoting, no inline comments, no continuations.
 * Anything else (and a zero byte) is a malformed line.
 * ====================================================================== */

typedef struct qv_inifile qv_inifile;

/* A new empty object, or NULL. *error (optional) is QV_ERROR_NONE, or
 * QV_ERROR_NO_MEMORY when NULL is returned. */
QV_API qv_inifile *qv_inifile_create(int *error) QV_NOEXCEPT;
/* The value of the first entry with this key and section, or NULL. A NULL
 * section matches only entries outside every section. The pointer stays
 * valid until the object is destroyed. */
QV_API const char *qv_inifile_get(const qv_inifile *inifile, const char *section,
                                  const char *key) QV_NOEXCEPT;
/* Appends the entries of length bytes of INI text, in text order. Returns 0;
 * QV_ERROR_INVALID_SYNTAX for a malformed line (the log names its number);
 * QV_ERROR_NO_MEMORY. On failure the object is left as it was. */
QV_API int qv_inifile_parse(qv_inifile *inifile, const char *buffer, size_t length) QV_NOEXCEPT;
/* qv_inifile_parse over the contents of the named file. Also returns
 * QV_ERROR_NOT_FOUND (no such file), QV_ERROR_PERMISSION_DENIED,
 * QV_ERROR_NOT_DIRECTORY, QV_ERROR_NAME_TOO_LONG, QV_ERROR_SYMLINK_LOOP or
 * QV_ERROR_IO when it cannot be read. */
QV_API int qv_inifile_load(qv_inifile *inifile, const char *filename) QV_NOEXCEPT;
/* Frees every entry and the object. */
QV_API void qv_inifile_destroy(qv_inifile *qvinifile) QV_NOEXCEPT;

/* ======================================================================
 * JSON documents and INI files
 * ====================================================================== */

/* @@section json@@ */

/* A JSON document owns a tree of nodes. Objects map case-sensitive member
 * names to value nodes (a member table; member order is the table's own
 * enumeration order, not insertion order); arrays keep their elements in
 * order. Numbers carry an integer and a double representation at once.
 * Nodes handed out by the functions below point into the document: they stay
 * valid until the node is retyped, replaced or the document is destroyed.
 * A document is used by one thread at a time. */
typedef struct qv_json qv_json;
typedef struct qv_json_node qv_json_node;

typedef enum qv_json_type {
    QV_JSON_TYPE_NONE = 0,
    QV_JSON_TYPE_OBJECT = 1,
    QV_JSON_TYPE_ARRAY = 2,
    QV_JSON_TYPE_STRING = 3,
    QV_JSON_TYPE_INTEGER = 4,
    QV_JSON_TYPE_DOUBLE = 5,
    QV_JSON_TYPE_TRUE = 6,
    QV_JSON_TYPE_FALSE = 7,
    QV_JSON_TYPE_NULL = 8,
    QV_JSON_TYPE_COUNT = 9
} qv_json_type;

/* A new empty document (no root), or NULL when memory ran out. */
QV_API qv_json *qv_json_create(void) QV_NOEXCEPT;
/* Frees the whole tree and the document. */
QV_API void qv_json_destroy(qv_json *qvjson) QV_NOEXCEPT;

/* Setters: retype node in place, releasing its old content (string, elements,
 * members). node NULL means the root: created when the document has none,
 * else retyped. 0, or QV_ERROR_NO_MEMORY (the node is then unchanged). */
QV_API int qv_json_node_set_object(qv_json *qvjson, qv_json_node *node) QV_NOEXCEPT;
QV_API int qv_json_node_set_array(qv_json *qvjson, qv_json_node *node) QV_NOEXCEPT;
/* Also stores the integer (int64_t)(value + 0.5), truncated toward zero. */
QV_API int qv_json_node_set_double(qv_json *qvjson, qv_json_node *node, double value) QV_NOEXCEPT;
/* Also stores the double (double)value. */
QV_API int qv_json_node_set_integer(qv_json *qvjson, qv_json_node *node, int64_t value) QV_NOEXCEPT;
/* value is copied. */
QV_API int qv_json_node_set_string(qv_json *qvjson, qv_json_node *node, const char *value) QV_NOEXCEPT;
QV_API int qv_json_node_set_true(qv_json *qvjson, qv_json_node *node) QV_NOEXCEPT;
QV_API int qv_json_node_set_false(qv_json *qvjson, qv_json_node *node) QV_NOEXCEPT;
QV_API int qv_json_node_set_null(qv_json *qvjson, qv_json_node *node) QV_NOEXCEPT;

/* Appends a new NULL-typed element and returns it (give it a value with a
 * setter); NULL when arraynode is not an array or memory ran out. */
QV_API qv_json_node *qv_json_node_array_add(qv_json *qvjson, qv_json_node *arraynode) QV_NOEXCEPT;
/* Adds member key (copied) with a new NULL-typed value and returns the value
 * node; a member of the same name is replaced and destroyed. NULL when
 * objectnode is not an object or memory ran out. */
QV_API qv_json_node *qv_json_node_object_add(qv_json *qvjson, qv_json_node *objectnode,
                                             const char *key) QV_NOEXCEPT;

/* Type tests: 1 or 0. is_boolean: TRUE or FALSE; is_number: INTEGER or DOUBLE. */
QV_API int qv_json_is_null(qv_json *qvjson, const qv_json_node *node) QV_NOEXCEPT;
QV_API int qv_json_is_false(qv_json *qvjson, const qv_json_node *node) QV_NOEXCEPT;
QV_API int qv_json_is_true(qv_json *qvjson, const qv_json_node *node) QV_NOEXCEPT;
QV_API int qv_json_is_boolean(qv_json *qvjson, const qv_json_node *node) QV_NOEXCEPT;
QV_API int qv_json_is_double(qv_json *qvjson, const qv_json_node *node) QV_NOEXCEPT;
QV_API int qv_json_is_integer(qv_json *qvjson, const qv_json_node *node) QV_NOEXCEPT;
QV_API int qv_json_is_number(qv_json *qvjson, const qv_json_node *node) QV_NOEXCEPT;
QV_API int qv_json_is_string(qv_json *qvjson, const qv_json_node *node) QV_NOEXCEPT;
QV_API int qv_json_is_array(qv_json *qvjson, const qv_json_node *node) QV_NOEXCEPT;
QV_API int qv_json_is_object(qv_json *qvjson, const qv_json_node *node) QV_NOEXCEPT;

/* Typed fetches along a path. The path follows the out pointer: member names
 * (const char *), each "#" followed by an unsigned int array index, ended by
 * NULL; an empty path selects the start node. The qv_json_fetch_* family
 * starts at the root, qv_json_node_fetch_* at the given node.
 * 0 on success; -1 when the path does not lead anywhere or the node reached
 * cannot give the kind asked for (the reason is logged); *out is then 0/NULL.
 *  - null: *out 1 for a NULL node, 0 for any other (never fails on type);
 *  - boolean: TRUE 1, FALSE 0, others fail;
 *  - double: numbers, TRUE 1.0, FALSE 0.0, STRING through strtod (C locale;
 *    fails when nothing converts);
 *  - int64 and int: a number's stored integer, TRUE 1, FALSE 0, a STRING's
 *    double rounded half away from zero; int fails outside 32 bits;
 *  - string: STRING only; *out points into the node;
 *  - node, node_const: the node itself. */
QV_API int qv_json_fetch_null(qv_json *qvjson, int *valueptr, ...) QV_NOEXCEPT;
QV_API int qv_json_fetch_boolean(qv_json *qvjson, int *valueptr, ...) QV_NOEXCEPT;
QV_API int qv_json_fetch_double(qv_json *qvjson, double *valueptr, ...) QV_NOEXCEPT;
QV_API int qv_json_fetch_int64(qv_json *qvjson, int64_t *valueptr, ...) QV_NOEXCEPT;
QV_API int qv_json_fetch_int(qv_json *qvjson, int *valueptr, ...) QV_NOEXCEPT;
QV_API int qv_json_fetch_string(qv_json *qvjson, const char **valueptr, ...) QV_NOEXCEPT;
QV_API int qv_json_fetch_node(qv_json *qvjson, qv_json_node **nodeptr, ...) QV_NOEXCEPT;
QV_API int qv_json_fetch_node_const(qv_json *qvjson, const qv_json_node **nodeptr, ...) QV_NOEXCEPT;
QV_API int qv_json_node_fetch_double(qv_json *qvjson, const qv_json_node *node, double *valueptr,
                                     ...) QV_NOEXCEPT;
QV_API int qv_json_node_fetch_int64(qv_json *qvjson, const qv_json_node *node, int64_t *valueptr,
                                    ...) QV_NOEXCEPT;
QV_API int qv_json_node_fetch_int(qv_json *qvjson, const qv_json_node *node, int *valueptr,
                                  ...) QV_NOEXCEPT;
QV_API int qv_json_node_fetch_string(qv_json *qvjson, const qv_json_node *node,
                                     const char **valueptr, ...) QV_NOEXCEPT;
QV_API int qv_json_node_fetch_node(qv_json *qvjson, qv_json_node *node, qv_json_node **nodeptr,
                                   ...) QV_NOEXCEPT;
QV_API int qv_json_node_fetch_node_const(qv_json *qvjson, const qv_json_node *node,
                                         const qv_json_node **nodeptr, ...) QV_NOEXCEPT;
/* The next element of the array holding node, or NULL after the last. */
QV_API qv_json_node *qv_json_node_fetch_next(qv_json *qvjson, qv_json_node *node) QV_NOEXCEPT;
QV_API const qv_json_node *qv_json_node_fetch_next_const(qv_json *qvjson,
                                                         const qv_json_node *node) QV_NOEXCEPT;

/* Member enumeration: returns an opaque position (NULL at the end or for an
 * empty object) and sets *key (the member name, pointing into the document)
 * and *value; both outputs are optional and set to NULL at the end. A node
 * that is not an object is logged and gives NULL. Do not add or remove
 * members of the object during a walk. */
QV_API void *qv_json_enumerate_start(qv_json *qvjson, qv_json_node *objectnode, const char **key,
                                     qv_json_node **value) QV_NOEXCEPT;
QV_API void *qv_json_enumerate_next(qv_json *qvjson, qv_json_node *objectnode, void *position,
                                    const char **key, qv_json_node **value) QV_NOEXCEPT;

/* Deep copy of the children of source's root (copy) or of sourcenode
 * (copy_node), which must be an object or an array, into destnode of the same
 * type: members are added by name (replacing), elements appended. 0 (also for
 * a source document without a root); QV_ERROR_INVALID_ARGUMENT when the types
 * differ; QV_ERROR_NO_MEMORY (destnode then holds part of the copy). source
 * may be qvjson itself. */
QV_API int qv_json_node_copy(qv_json *qvjson, qv_json_node *destnode, qv_json *source) QV_NOEXCEPT;
QV_API int qv_json_node_copy_node(qv_json *qvjson, qv_json_node *destnode, qv_json *source,
                                  const qv_json_node *sourcenode) QV_NOEXCEPT;

/* Replaces the document's tree by the parse of text (NUL-terminated JSON
 * whose top level is an object or an array; numbers without exponents;
 * nesting up to 100). 0, or -1 with the reason logged; the old tree is gone
 * either way, and on failure the document has no root. */
QV_API int qv_json_parse(qv_json *qvjson, const char *text) QV_NOEXCEPT;

/* The document as one line of JSON text, new (free with qv_free), or NULL
 * with the reason logged. Objects "{ \"a\": 1, \"b\": [ 2 ] }", empty "{ }"
 * and "[ ]"; doubles as "%g" with a '.' in every locale. The document must
 * have a root. Writing, copying and destroying do not recurse: any nesting
 * built through the setters works. */
QV_API char *qv_json_output(qv_json *qvjson) QV_NOEXCEPT;

/* ======================================================================
 * Base64, hexadecimal, PEM and URL encoding
 * ====================================================================== */

/* @@section codecs@@ */

/* Every buffer these functions hand out comes from qv_malloc, is released
 * with qv_free, and carries one extra zero byte after its content (text
 * results are ordinary strings; binary results can be printed safely). */

/* Base64, RFC 4648 alphabet with "=" padding and no line breaks. Returns a
 * new string of ((size + 2) / 3) * 4 characters, or NULL (size too large,
 * logged at level 6; no memory, level 7). */
QV_API char *qv_base64_encode(const void *buf, size_t size) QV_NOEXCEPT;
/* Decodes sourcelen characters. White space (tab, LF, VT, FF, CR, blank) is
 * skipped anywhere; decoding stops at the first "=", after which only white
 * space and at most two "=" in all may follow. Padding is optional, and
 * leftover values at the end still give bytes (one or two leftover values
 * give one byte, three give two). On success *destptr is a new buffer of
 * *destlenptr bytes (plus a zero byte) and 0 is returned; on failure both are
 * NULL and 0 and the code is QV_ERROR_INVALID_ARGUMENT (invalid character, or
 * a character other than white space or "=" after padding),
 * QV_ERROR_INVALID_SYNTAX (more than two padding characters),
 * QV_ERROR_OUT_OF_RANGE or QV_ERROR_NO_MEMORY; each is logged. */
QV_API int qv_base64_decode(void **destptr, size_t *destlenptr, const char *source,
                            size_t sourcelen) QV_NOEXCEPT;

/* A new string of 2 * size lower-case hexadecimal digits, high nibble first;
 * NULL when the size overflows or memory runs out (logged). */
QV_API char *qv_bin2hex(const void *buf, size_t size) QV_NOEXCEPT;
/* Converts a string of digit pairs (either case) into a new buffer of
 * strlen / 2 bytes (plus a zero byte) in *destptr, its size in *destlenptr.
 * Returns 0; QV_ERROR_INCOMPLETE for an odd length; QV_ERROR_OUT_OF_RANGE for
 * a character that is not a hexadecimal digit; QV_ERROR_NO_MEMORY (logged).
 * On failure *destptr is NULL and *destlenptr 0. */
QV_API int qv_hex2bin(const char *hexstring, void **destptr, size_t *destlenptr) QV_NOEXCEPT;

/* PEM certificates to DER, one certificate per call. */
typedef struct qv_pem2der qv_pem2der;
/* Copies pembuffer from its first "-----BEGIN CERTIFICATE-----" on. Returns
 * the converter, or NULL with *error (when error is not NULL) set to
 * QV_ERROR_NOT_FOUND (no begin marker) or QV_ERROR_NO_MEMORY; 0 on success. */
QV_API qv_pem2der *qv_pem2der_create(const void *pembuffer, size_t pembuflen, int *error) QV_NOEXCEPT;
/* The next certificate's DER bytes as a new buffer in *bufferptr (size in
 * *buflenptr). Returns 0; QV_ERROR_END_OF_FILE when no further certificate
 * begins; QV_ERROR_INCOMPLETE when its end marker is missing; or the Base64
 * decoder's code (logged; the same block is met again on the next call). On
 * failure *bufferptr is NULL and *buflenptr 0. Text outside the markers is
 * ignored. */
QV_API int qv_pem2der_next(qv_pem2der *qvpem2der, void **bufferptr, size_t *buflenptr) QV_NOEXCEPT;
QV_API void qv_pem2der_destroy(qv_pem2der *qvpem2der) QV_NOEXCEPT;

/* URL (percent) encoding. A qv_urlencoder says for each byte value whether it
 * is copied or written as "%XX" (upper-case digits). Its default set copies
 * A-Z, a-z, 0-9 and - _ . ~ ! * ' ( ); everything else, the blank included,
 * is escaped. */
typedef struct qv_urlencoder qv_urlencoder;
/* A new table in the default state, or NULL (logged). */
QV_API qv_urlencoder *qv_urlencode_create(void) QV_NOEXCEPT;
QV_API void qv_urlencode_destroy(qv_urlencoder *qvurlencode) QV_NOEXCEPT;
/* Back to the default state. */
QV_API void qv_urlencode_reset(qv_urlencoder *qvurlencode) QV_NOEXCEPT;
/* Copy every byte of skipchars as it is from now on. */
QV_API void qv_urlencode_skip(qv_urlencoder *qvurlencode, const char *skipchars) QV_NOEXCEPT;
/* Buffer protocol of both directions: *dstlenptr is the size of dst on entry
 * (dst may be NULL when it is 0) and receives the output count (without a
 * terminator). Output beyond the size is counted, not stored. Returns 0 when
 * the output and a terminating zero fit; QV_ERROR_OUT_OF_RANGE otherwise:
 * call again with a buffer of count + 1 bytes. QV_ERROR_INVALID_ARGUMENT when
 * the count would not be addressable. */
QV_API int qv_urlencode_buffer(qv_urlencoder *qvurlencode, char *dst, size_t *dstlenptr,
                               const void *src, size_t srclen) QV_NOEXCEPT;
/* Encodes the string into a new string in *dstptr (NULL on failure).
 * Returns 0, QV_ERROR_NO_MEMORY or another code (each logged). */
QV_API int qv_urlencode_string(qv_urlencoder *qvurlencode, char **dstptr, const char *src) QV_NOEXCEPT;
/* A new string encoded with the default table, or NULL (logged). */
QV_API char *qv_urlencode(const char *string) QV_NOEXCEPT;
/* Decodes "+" to a blank and "%XX" (either case) to a byte; other bytes are
 * copied. Same protocol as qv_urlencode_buffer, except that output filling
 * the buffer exactly succeeds without a terminator. QV_ERROR_INCOMPLETE when
 * the source ends inside an escape; QV_ERROR_INVALID_SYNTAX for a non-digit
 * in an escape. */
QV_API int qv_urldecode_buffer(void *dst, size_t *dstlenptr, const char *src, size_t srclen) QV_NOEXCEPT;
/* Decodes the string into a new, zero-terminated string in *dstptr (NULL on
 * failure). Returns 0 or the decoder's code / QV_ERROR_NO_MEMORY (logged). */
QV_API int qv_urldecode_string(char **dstptr, const char *src) QV_NOEXCEPT;
/* A new decoded string, or NULL. */
QV_API char *qv_urldecode(const char *string) QV_NOEXCEPT;

/* ======================================================================
 * Files
 * ====================================================================== */

/* @@section files@@ */

/* A qv_file is the C runtime's buffered stream itself: every stdio function
 * works on it, and qv_file_close closes it. Streams opened here are not
 * inherited by child processes. */
typedef FILE qv_file;

/* Open functions: the stream, or NULL with errno telling why.
 * open_binary reads ("rb"), create_binary truncates or creates ("wb"),
 * update_binary reads and writes an existing file ("rb+"), create_ascii and
 * append_ascii write text ("w", "a"). The utf8file variants take UTF-8 names
 * (on POSIX names are bytes and are used as they are). */
QV_API qv_file *qv_file_open_binary(const char *filename) QV_NOEXCEPT;
QV_API qv_file *qv_file_create_binary(const char *filename) QV_NOEXCEPT;
QV_API qv_file *qv_file_update_binary(const char *filename) QV_NOEXCEPT;
QV_API qv_file *qv_file_create_ascii(const char *filename) QV_NOEXCEPT;
QV_API qv_file *qv_file_append_ascii(const char *filename) QV_NOEXCEPT;
QV_API qv_file *qv_utf8file_open_binary(const char *filename) QV_NOEXCEPT;
QV_API qv_file *qv_utf8file_create_binary(const char *filename) QV_NOEXCEPT;
QV_API qv_file *qv_utf8file_create_ascii(const char *filename) QV_NOEXCEPT;
QV_API qv_file *qv_utf8file_append_ascii(const char *filename) QV_NOEXCEPT;

/* The process's standard streams as qv_file objects (never closed by the
 * library). */
QV_API qv_file *qv_file_get_stdin(void) QV_NOEXCEPT;
QV_API qv_file *qv_file_get_stdout(void) QV_NOEXCEPT;
QV_API qv_file *qv_file_get_stderr(void) QV_NOEXCEPT;

/* Stream operations with the runtime's results: read and write return the
 * number of bytes moved; fgets, fprintf, feof, ferror and close behave as
 * their stdio namesakes. */
QV_API size_t qv_file_read(qv_file *file, void *buffer, size_t size) QV_NOEXCEPT;
QV_API size_t qv_file_write(qv_file *file, const void *buffer, size_t size) QV_NOEXCEPT;
QV_API char *qv_file_fgets(char *buffer, int size, qv_file *stream) QV_NOEXCEPT;
QV_API int qv_file_fprintf(qv_file *file, const char *format, ...) QV_NOEXCEPT QV_PRINTF(2, 3);
QV_API int qv_file_feof(qv_file *file) QV_NOEXCEPT;
QV_API int qv_file_ferror(qv_file *file) QV_NOEXCEPT;
QV_API int qv_file_close(qv_file *file) QV_NOEXCEPT;

/* Seeking. qv_file_seek is the runtime's seek with a 32-bit offset; whence
 * must be SEEK_SET, SEEK_CUR or SEEK_END (asserted). The 64-bit functions move
 * in steps of at most 2 GiB relative to the current position and return 0 or
 * the first failing step's result. qv_file_seek64 returns -1 for SEEK_SET with
 * a negative offset (logged, the position is unchanged). */
QV_API int qv_file_seek(qv_file *file, int32_t offset, int whence) QV_NOEXCEPT;
QV_API int qv_file_seek64(qv_file *file, int64_t offset, int whence) QV_NOEXCEPT;
QV_API int qv_file_seek_forwards_64(qv_file *file, uint64_t amount) QV_NOEXCEPT;
QV_API int qv_file_seek_backwards_64(qv_file *file, uint64_t amount) QV_NOEXCEPT;
/* The file's length, the position left where it was; -1 on failure or when
 * the length does not fit 32 signed bits. */
QV_API int32_t qv_file_get_length(qv_file *file) QV_NOEXCEPT;

/* 1 the name exists, 0 it does not (ENOENT), -1 the status cannot be read. */
QV_API int qv_file_exists(const char *filename) QV_NOEXCEPT;
QV_API int qv_utf8file_exists(const char *filename) QV_NOEXCEPT;

/* Whole-file load: *dataptr receives a new buffer (free with qv_free) of the
 * file's size plus one byte, a NUL after the data; *datalen (datalen may be
 * NULL) the size. Returns 0, or -1 with *dataptr NULL and *datalen 0.
 * The with_backup variant reads "<name>.bak" when the file cannot be opened. */
QV_API int qv_file_data_load(const char *filename, void **dataptr, size_t *datalen) QV_NOEXCEPT;
QV_API int qv_file_data_load_with_backup(const char *filename, void **dataptr, size_t *datalen) QV_NOEXCEPT;
QV_API int qv_utf8file_data_load(const char *filename, void **dataptr, size_t *datalen) QV_NOEXCEPT;
QV_API int qv_utf8file_data_load_with_backup(const char *filename, void **dataptr, size_t *datalen) QV_NOEXCEPT;

/* Whole-file save (truncating): 0 when every byte was written, else -1 (a
 * partial file may remain). data may be NULL when datalen is 0. */
QV_API int qv_file_data_save(const char *filename, const void *data, size_t datalen) QV_NOEXCEPT;
QV_API int qv_utf8file_data_save(const char *filename, const void *data, size_t datalen) QV_NOEXCEPT;
/* Crash-safe save: writes and syncs "<name>.tmp", moves an existing file to
 * "<name>.bak" (replacing the old backup), renames the temporary file to the
 * name and syncs the directory. At every instant either the name or, between
 * the two renames, the backup holds a complete version. Returns 0, -1 (names
 * could not be built, or the temporary file not written), or the failed
 * rename's error code; the temporary file is removed on failure. */
QV_API int qv_file_data_save_with_backup(const char *filename, const void *data, size_t datalen) QV_NOEXCEPT;
QV_API int qv_utf8file_data_save_with_backup(const char *filename, const void *data, size_t datalen) QV_NOEXCEPT;

/* Rename, replacing an existing target; delete a file. 0 or an error code
 * (QV_ERROR_NOT_FOUND, QV_ERROR_PERMISSION_DENIED, ...). Nothing is logged. */
QV_API int qv_rename(const char *oldname, const char *newname) QV_NOEXCEPT;
QV_API int qv_deletefile(const char *filename) QV_NOEXCEPT;

/* ======================================================================
 * SHA-1 and SHA-256
 * ====================================================================== */

/* @@section digests@@ */

/* Incremental SHA-1 (20-byte digest) and SHA-256 (32-byte digest), FIPS 180-4.
 * Lifecycle: create (ready to hash) -> update any number of times -> finalize
 * -> digest (may be read repeatedly) -> init to hash another message, or
 * destroy. Every function asserts a non-NULL object. An object is used by one
 * thread at a time. */
typedef struct qv_sha1 qv_sha1;
typedef struct qv_sha256 qv_sha256;

/* A new object, already initialised; NULL when memory runs out (logged at
 * level 7). Release it with qv_sha1_destroy. */
QV_API qv_sha1 *qv_sha1_create(void) QV_NOEXCEPT;
/* Start a new message on the same object. */
QV_API void qv_sha1_init(qv_sha1 *qvsha1) QV_NOEXCEPT;
/* Append length bytes (data may be NULL only when length is 0). */
QV_API void qv_sha1_update(qv_sha1 *qvsha1, const void *data, size_t length) QV_NOEXCEPT;
/* Append the padding and the bit length; call once per message. */
QV_API void qv_sha1_finalize(qv_sha1 *qvsha1) QV_NOEXCEPT;
/* Write the 20 digest bytes (after finalize) into digest. */
QV_API void qv_sha1_digest(qv_sha1 *qvsha1, unsigned char *digest) QV_NOEXCEPT;
QV_API void qv_sha1_destroy(qv_sha1 *qvsha1) QV_NOEXCEPT;

/* The same five steps for SHA-256; the digest has 32 bytes. */
QV_API qv_sha256 *qv_sha256_create(void) QV_NOEXCEPT;
QV_API void qv_sha256_init(qv_sha256 *qvsha256) QV_NOEXCEPT;
QV_API void qv_sha256_update(qv_sha256 *qvsha256, const void *data, size_t length) QV_NOEXCEPT;
QV_API void qv_sha256_finalize(qv_sha256 *qvsha256) QV_NOEXCEPT;
QV_API void qv_sha256_digest(qv_sha256 *qvsha256, unsigned char *digest) QV_NOEXCEPT;
QV_API void qv_sha256_destroy(qv_sha256 *qvsha256) QV_NOEXCEPT;

/* ======================================================================
 * Command-line option parser
 * ====================================================================== */

/* @@section getopt@@ */

/* A command-line parser: the program registers options one by one, parse
 * stores each value straight into the program's variables, and usage prints
 * a two-column help text. Unlike getopt(3): short options never take an
 * attached value (-ofile is -o -f -i -l -e), values always come from the
 * following arguments, parsing stops at the first operand, "--" ends the
 * options and a lone "-" is skipped. The first registered match wins. */
typedef struct qv_getopt qv_getopt;

/* A string option's callback: 0, or an error code handed to the error
 * callback (the parse then fails). */
typedef int (*qv_getopt_string_fn)(const char *value, void *data);
/* Told about each failure of a parse: code QV_ERROR_NOT_FOUND (unknown
 * option), QV_ERROR_INVALID_SYNTAX (missing value), QV_ERROR_INVALID_ARGUMENT
 * (not an integer), QV_ERROR_OUT_OF_RANGE (outside int) or a string
 * callback's code; option as written ("--name", "-c"); value or NULL. */
typedef void (*qv_getopt_error_fn)(int error, const char *option, const char *value, void *user);

/* A new, empty parser, or NULL when memory runs out. */
QV_API qv_getopt *qv_getopt_create(void) QV_NOEXCEPT;
QV_API void qv_getopt_destroy(qv_getopt *qvgetopt) QV_NOEXCEPT;

/* Registration. longopt (without dashes) may be NULL, shortopt may be 0, not
 * both. Names, value names and descriptions are copied. 0, or -1 when memory
 * runs out (logged; nothing is registered). */
/* Help: prints the usage to standard output when met; parse then returns 1. */
QV_API int qv_getopt_help(qv_getopt *qvgetopt, const char *longopt, char shortopt) QV_NOEXCEPT;
/* Flag: stores 1 into *intptr when met. */
QV_API int qv_getopt_flag_set(qv_getopt *qvgetopt, const char *longopt, char shortopt, int *intptr,
                              const char *description) QV_NOEXCEPT;
/* Integer value (decimal, the range of int) into *intptr. */
QV_API int qv_getopt_int(qv_getopt *qvgetopt, const char *longopt, char shortopt, int *intptr,
                         const char *optionname, const char *description) QV_NOEXCEPT;
/* String value: *stringptr points into argv (not copied). */
QV_API int qv_getopt_const_string(qv_getopt *qvgetopt, const char *longopt, char shortopt,
                                  const char **stringptr, const char *optionname,
                                  const char *description) QV_NOEXCEPT;
/* String value handed to callback(value, data). */
QV_API int qv_getopt_string_callback(qv_getopt *qvgetopt, const char *longopt, char shortopt,
                                     const char *optionname, const char *description,
                                     qv_getopt_string_fn callback, void *data) QV_NOEXCEPT;

/* First usage line (default "usage: PROGRAM OPTIONS") and the text after the
 * options (default none, written as it is). A copy is kept; NULL restores the
 * default. 0, or -1 when the copy fails (the old text stays). */
QV_API int qv_getopt_set_synopsis(qv_getopt *qvgetopt, const char *synopsis) QV_NOEXCEPT;
QV_API int qv_getopt_set_footer(qv_getopt *qvgetopt, const char *footer) QV_NOEXCEPT;
/* callback may be NULL: failures are then only returned. */
QV_API void qv_getopt_set_error_callback(qv_getopt *qvgetopt, qv_getopt_error_fn callback,
                                         void *user) QV_NOEXCEPT;

/* Parses argv[1..argc-1]: 0 on success, 1 on success when the help option
 * was met (the program should exit), -1 on error (optind is then 0). */
QV_API int qv_getopt_parse(qv_getopt *qvgetopt, int argc, char **argv) QV_NOEXCEPT;
/* Index of the first argument the last parse did not consume. */
QV_API int qv_getopt_optind(qv_getopt *qvgetopt) QV_NOEXCEPT;

/* Writes the usage text: the synopsis, "OPTIONS:", one entry per option with
 * descriptions from column 30 wrapped at 49 characters, then the footer.
 * Returns 0. */
QV_API int qv_getopt_usage(qv_getopt *qvgetopt, qv_file *out) QV_NOEXCEPT;
QV_API int qv_getopt_usage_stdout(qv_getopt *qvgetopt) QV_NOEXCEPT;
QV_API int qv_getopt_usage_stderr(qv_getopt *qvgetopt) QV_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif /* QVLIB_H */
