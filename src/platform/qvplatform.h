// The thin platform layer. Families call only these functions for anything the
// operating system provides (fatal exit, clocks, local time, environment, stdio
// flags, syslog, mutexes); the POSIX backend lives in platform/posix/ and a Win32
// backend will be a second set of files behind the same declarations.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>

#include "platform/qvplat_thread.h"

namespace qv::plat {

// Writes "<file>:<line>: Assertion `<expr>' failed.\n" to stderr and ends the process.
[[noreturn]] void assert_fail(const char *file, int line, const char *expr) noexcept;

// Monotonic milliseconds, truncated to 32 bits: differences wrap like GetTickCount.
uint32_t tick_ms() noexcept;
// Seconds since 1970-01-01 UTC.
int64_t time_now() noexcept;
// Local broken-down time; false if the conversion failed.
bool localtime(int64_t t, struct tm *out) noexcept;

// True if the variable exists in the environment, whatever its value.
bool env_present(const char *name) noexcept;

// Writes text to stderr unbuffered (the library's own standard-error print).
void stderr_write(const char *text, size_t len) noexcept;

// fopen with the stream kept from child processes. mode is "a", "r", "wb"...
FILE *fopen_noinherit(const char *name, const char *mode) noexcept;
int fclose(FILE *fp) noexcept;
// Whole-line writes: hold the stream's own lock across several pieces.
void stream_lock(FILE *fp) noexcept;
void stream_unlock(FILE *fp) noexcept;
// Unlocked write of a piece; returns the number of bytes written.
size_t stream_write(FILE *fp, const void *data, size_t len) noexcept;
int stream_flush(FILE *fp) noexcept;

// System log delivery; the priority already holds the facility.
void syslog_send(int priority, const char *text, size_t len) noexcept;

}  // namespace qv::plat
