// File-system half of the platform layer: opening streams that child processes
// do not inherit, 32-bit stepped seeking, durable writes and the name
// operations (status, rename, unlink). Every failure comes back as a qvlib
// error code mapped here, once, from the platform's own error number; the
// stream calls keep the runtime's conventions (0 / -1 and errno).
#pragma once

#include <cstdint>
#include <cstdio>

namespace qv::plat {

// Opens name with the C mode ("rb", "wb", "rb+", "w", "a", "r") plus the
// platform's not-inherited flag. Null on failure, errno tells why.
FILE *file_open(const char *name, const char *mode) noexcept;
// The runtime's seek with a 32-bit offset: 0, or -1 with errno set.
int file_seek32(FILE *fp, int32_t offset, int whence) noexcept;
// Absolute positioning and position over the full 64-bit range.
int file_seek_abs(FILE *fp, int64_t position) noexcept;
int64_t file_tell(FILE *fp) noexcept;
// Pushes the stream's buffer to the system and the data to the device.
// 0, or -1 with errno set.
int file_sync(FILE *fp) noexcept;
// Makes the directory entry changes of the directory holding path durable.
// Best effort: a directory that cannot be opened or synced is skipped.
void file_sync_parent_dir(const char *path) noexcept;

// Status query of a name: 0 if it exists, else the failing errno value.
int file_stat(const char *name) noexcept;
// Rename over an existing target / delete a file: 0 or a QV_ERROR_* code.
int file_rename(const char *from, const char *to) noexcept;
int file_unlink(const char *name) noexcept;

// The platform's "no such file" error number, as file_stat reports it.
int errno_not_found() noexcept;

}  // namespace qv::plat
