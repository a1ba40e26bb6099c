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

/* ======================================================================
 * Timers, timeouts and time
 * ====================================================================== */

/* @@section time@@ */

/* ======================================================================
 * Lock queue and thread pool
 * ====================================================================== */

/* @@section lockqueue@@ */

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
