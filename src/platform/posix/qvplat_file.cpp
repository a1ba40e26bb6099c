// POSIX backend of the file layer. Large-file offsets are forced on here so a
// 32-bit build seeks and sizes past 2 GiB like the 64-bit one.
#ifndef _FILE_OFFSET_BITS
#define _FILE_OFFSET_BITS 64
#endif

#include "platform/qvplat_file.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "qvlib.h"

namespace qv::plat {

namespace {

// errno to library code for the name operations; anything unlisted is a
// generic failure rather than a number passed through unmapped.
int map_errno(int e) noexcept {
    switch (e) {
    case 0: return QV_ERROR_NONE;
    case EPERM: return QV_ERROR_NOT_PERMITTED;
    case EINTR: return QV_ERROR_INTERRUPTED;
    case EIO: return QV_ERROR_IO;
    case ENOMEM: return QV_ERROR_NO_MEMORY;
    case EACCES: return QV_ERROR_PERMISSION_DENIED;
    // Replacing a directory with a file is refused as an access violation
    // on Windows; report it the same way.
    case EISDIR: return QV_ERROR_PERMISSION_DENIED;
    case EFAULT: return QV_ERROR_BAD_ADDRESS;
    case EEXIST: return QV_ERROR_EXISTS;
    case ENOTEMPTY: return QV_ERROR_EXISTS;
    case EXDEV: return QV_ERROR_CROSS_DEVICE;
    case ENOTDIR: return QV_ERROR_NOT_DIRECTORY;
    case EINVAL: return QV_ERROR_INVALID_ARGUMENT;
    case ENOSPC: return QV_ERROR_NO_SPACE;
    case EROFS: return QV_ERROR_READ_ONLY;
    case EMLINK: return QV_ERROR_TOO_MANY_LINKS;
    case ENAMETOOLONG: return QV_ERROR_NAME_TOO_LONG;
    case ELOOP: return QV_ERROR_SYMLINK_LOOP;
    case EDQUOT: return QV_ERROR_QUOTA_EXCEEDED;
    case ENOENT: return QV_ERROR_NOT_FOUND;
    case EBUSY: return QV_ERROR_BUSY;
    default: return QV_ERROR_GENERIC;
    }
}

}  // namespace

FILE *file_open(const char *name, const char *mode) noexcept {
    // glibc's "e" opens with O_CLOEXEC: no window in which a concurrent fork
    // could inherit the descriptor.
    char m[8];
    size_t n = strlen(mode);
    if (n + 2 > sizeof m) {
        errno = EINVAL;
        return nullptr;
    }
    memcpy(m, mode, n);
    m[n] = 'e';
    m[n + 1] = '\0';
    return fopen(name, m);
}

int file_seek32(FILE *fp, int32_t offset, int whence) noexcept {
    return fseeko(fp, static_cast<off_t>(offset), whence);
}

int file_seek_abs(FILE *fp, int64_t position) noexcept {
    return fseeko(fp, static_cast<off_t>(position), SEEK_SET);
}

int64_t file_tell(FILE *fp) noexcept { return static_cast<int64_t>(ftello(fp)); }

int file_sync(FILE *fp) noexcept {
    if (fflush(fp) != 0) return -1;
    int fd = fileno(fp);
    if (fd < 0) return -1;
    while (fsync(fd) != 0) {
        if (errno != EINTR) return -1;
    }
    return 0;
}

void file_sync_parent_dir(const char *path) noexcept {
    // The kernel takes no path longer than PATH_MAX, so a fixed buffer holds
    // every directory name that could have been renamed in.
    char dir[PATH_MAX];
    const char *slash = strrchr(path, '/');
    size_t len = 0;
    if (slash == nullptr) {
        dir[len++] = '.';
    } else if (slash == path) {
        dir[len++] = '/';
    } else {
        len = static_cast<size_t>(slash - path);
        if (len >= sizeof dir) return;
        memcpy(dir, path, len);
    }
    dir[len] = '\0';
    int fd = open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    while (fsync(fd) != 0 && errno == EINTR) {
    }
    close(fd);
}

int file_stat(const char *name) noexcept {
    struct stat st;
    return stat(name, &st) == 0 ? 0 : errno;
}

int file_rename(const char *from, const char *to) noexcept {
    return ::rename(from, to) == 0 ? QV_ERROR_NONE : map_errno(errno);
}

int file_unlink(const char *name) noexcept {
    return ::unlink(name) == 0 ? QV_ERROR_NONE : map_errno(errno);
}

int errno_not_found() noexcept { return ENOENT; }

}  // namespace qv::plat
