// Files: a thin layer over the runtime's buffered stream (a qv_file is a
// FILE), with explicit open modes that keep descriptors from child processes,
// 64-bit seeking built from 32-bit relative steps, whole-file load and save,
// and a save that keeps the previous version as "<name>.bak".
//
// The backup save never lets a crash tear the data a later load sees: the new
// contents are written and synced under "<name>.tmp" first, then the current
// file becomes the backup, then the temporary file becomes the name. Killed at
// any point, the name holds a whole version, or (between the two renames) it
// is missing and the backup holds the previous whole version, which is what
// the loading counterpart falls back to.
//
// No state of its own and no locking: a stream is used by one thread at a
// time. The UTF-8 family shares every path with the byte-name one, since
// names are bytes on POSIX.
#include <cstdarg>
#include <cstdint>
#include <cstring>

#include "internal/qvinternal.h"
#include "platform/qvplat_file.h"

namespace {

constexpr uint64_t kMaxForwardStep = 2147483647u;   // largest positive 32-bit offset
constexpr uint64_t kMaxBackwardStep = 2147483648u;  // magnitude of the most negative one

FILE *open_checked(const char *filename, const char *mode) noexcept {
    QV_ASSERT(filename != NULL);
    return qv::plat::file_open(filename, mode);
}

// name + suffix in one new block; null when memory runs out.
char *suffixed(const char *name, const char *suffix) noexcept {
    size_t n = strlen(name);
    size_t s = strlen(suffix);
    char *out = static_cast<char *>(qv_malloc(n + s + 1));
    if (out == nullptr) return nullptr;
    memcpy(out, name, n);
    memcpy(out + n, suffix, s + 1);
    return out;
}

int seek_forwards(FILE *fp, uint64_t amount) noexcept {
    if (amount == 0) return 0;
    while (amount > kMaxForwardStep) {
        int rc = qv::plat::file_seek32(fp, static_cast<int32_t>(kMaxForwardStep), SEEK_CUR);
        if (rc != 0) return rc;
        amount -= kMaxForwardStep;
    }
    return qv::plat::file_seek32(fp, static_cast<int32_t>(amount), SEEK_CUR);
}

int seek_backwards(FILE *fp, uint64_t amount) noexcept {
    if (amount == 0) return 0;
    while (amount > kMaxBackwardStep) {
        int rc = qv::plat::file_seek32(fp, INT32_MIN, SEEK_CUR);
        if (rc != 0) return rc;
        amount -= kMaxBackwardStep;
    }
    int64_t offset = -static_cast<int64_t>(amount);
    QV_ASSERT(amount == static_cast<uint64_t>(-offset));
    return qv::plat::file_seek32(fp, static_cast<int32_t>(offset), SEEK_CUR);
}

// Loads the stream whole and closes it.
int load_stream(FILE *fp, void **dataptr, size_t *datalen) noexcept {
    int64_t end = -1;
    if (qv::plat::file_seek32(fp, 0, SEEK_END) == 0) end = qv::plat::file_tell(fp);
    // A failed position query, and a size no buffer can hold (a directory
    // reports an end near 2^63), are refused before anything is allocated:
    // no allocator hands out more than PTRDIFF_MAX bytes.
    if (end < 0 || static_cast<uint64_t>(end) >= static_cast<uint64_t>(PTRDIFF_MAX) ||
        qv::plat::file_seek32(fp, 0, SEEK_SET) != 0) {
        fclose(fp);
        return -1;
    }
    size_t size = static_cast<size_t>(end);
    char *buffer = static_cast<char *>(qv_malloc(size + 1));
    if (buffer == nullptr) {
        fclose(fp);
        return -1;
    }
    buffer[size] = '\0';
    if (size > 0 && fread(buffer, 1, size, fp) != size) {
        qv_free(buffer);
        fclose(fp);
        return -1;
    }
    fclose(fp);
    *dataptr = buffer;
    if (datalen != nullptr) *datalen = size;
    return 0;
}

int data_load(const char *filename, void **dataptr, size_t *datalen, bool backup) noexcept {
    QV_ASSERT(filename != NULL);
    QV_ASSERT(dataptr != NULL);
    *dataptr = nullptr;
    if (datalen != nullptr) *datalen = 0;
    FILE *fp = qv::plat::file_open(filename, "rb");
    if (fp == nullptr && backup) {
        qv::Owned<char> bakname(suffixed(filename, ".bak"));
        if (!bakname) {
            QV_LOG(7, "not enough memory for backup file name '%s.bak'", filename);
            return -1;
        }
        fp = qv::plat::file_open(bakname.get(), "rb");
    }
    if (fp == nullptr) return -1;
    return load_stream(fp, dataptr, datalen);
}

// Creates or truncates the file and writes every byte; with durable, the data
// reaches the device before the stream is closed. True when all of it did.
bool write_file(const char *filename, const void *data, size_t datalen, bool durable) noexcept {
    FILE *fp = qv::plat::file_open(filename, "wb");
    if (fp == nullptr) return false;
    bool ok = datalen == 0 || fwrite(data, 1, datalen, fp) == datalen;
    if (ok && durable && qv::plat::file_sync(fp) != 0) ok = false;
    // A full disk may only show when the buffer is flushed by the close.
    if (fclose(fp) != 0) ok = false;
    return ok;
}

int data_save_with_backup(const char *filename, const void *data, size_t datalen, bool utf8) noexcept {
    QV_ASSERT(filename != NULL);
    QV_ASSERT(data != NULL || datalen == 0);
    qv::Owned<char> tmpname(suffixed(filename, ".tmp"));
    if (!tmpname) {
        QV_LOG(7, "not enough memory for temporary file name");
        return -1;
    }
    qv::Owned<char> bakname(suffixed(filename, ".bak"));
    if (!bakname) {
        QV_LOG(7, "not enough memory for backup file name");
        return -1;
    }
    int rc = -1;
    if (write_file(tmpname.get(), data, datalen, true)) {
        if (qv::plat::file_stat(filename) == 0) {
            int drc = qv::plat::file_unlink(bakname.get());
            // No old backup is nothing to report.
            if (utf8 && drc != QV_ERROR_NONE && drc != QV_ERROR_NOT_FOUND)
                QV_LOG(7, "unable to remove file '%s'", bakname.get());
            rc = qv::plat::file_rename(filename, bakname.get());
            if (rc != QV_ERROR_NONE) {
                QV_LOG(7, "unable to rename the previous file as the backup file");
                goto failed;
            }
        }
        rc = qv::plat::file_rename(tmpname.get(), filename);
        if (rc != QV_ERROR_NONE) {
            QV_LOG(7, "unable to rename '%s' as '%s'", tmpname.get(), filename);
            goto failed;
        }
        qv::plat::file_sync_parent_dir(filename);
        return 0;
    }
failed:
    if (qv::plat::file_unlink(tmpname.get()) != QV_ERROR_NONE)
        QV_LOG(7, "unable to delete the temporary file");
    return rc;
}

int file_exists(const char *filename) noexcept {
    QV_ASSERT(filename != NULL);
    int e = qv::plat::file_stat(filename);
    if (e == 0) return 1;
    return e == qv::plat::errno_not_found() ? 0 : -1;
}

}  // namespace

extern "C" {

QV_API qv_file *qv_file_open_binary(const char *filename) noexcept { return open_checked(filename, "rb"); }
QV_API qv_file *qv_file_create_binary(const char *filename) noexcept { return open_checked(filename, "wb"); }
QV_API qv_file *qv_file_update_binary(const char *filename) noexcept { return open_checked(filename, "rb+"); }
QV_API qv_file *qv_file_create_ascii(const char *filename) noexcept { return open_checked(filename, "w"); }
QV_API qv_file *qv_file_append_ascii(const char *filename) noexcept { return open_checked(filename, "a"); }

QV_API qv_file *qv_utf8file_open_binary(const char *filename) noexcept { return open_checked(filename, "rb"); }
QV_API qv_file *qv_utf8file_create_binary(const char *filename) noexcept { return open_checked(filename, "wb"); }
QV_API qv_file *qv_utf8file_create_ascii(const char *filename) noexcept { return open_checked(filename, "w"); }
QV_API qv_file *qv_utf8file_append_ascii(const char *filename) noexcept { return open_checked(filename, "a"); }

QV_API qv_file *qv_file_get_stdin(void) noexcept { return stdin; }
QV_API qv_file *qv_file_get_stdout(void) noexcept { return stdout; }
QV_API qv_file *qv_file_get_stderr(void) noexcept { return stderr; }

QV_API size_t qv_file_read(qv_file *file, void *buffer, size_t size) noexcept {
    QV_ASSERT(file != NULL);
    QV_ASSERT(buffer != NULL);
    return fread(buffer, 1, size, file);
}

QV_API size_t qv_file_write(qv_file *file, const void *buffer, size_t size) noexcept {
    QV_ASSERT(file != NULL);
    QV_ASSERT(buffer != NULL);
    return fwrite(buffer, 1, size, file);
}

QV_API char *qv_file_fgets(char *buffer, int size, qv_file *stream) noexcept {
    QV_ASSERT(stream != NULL);
    QV_ASSERT(buffer != NULL);
    return fgets(buffer, size, stream);
}

QV_API int qv_file_fprintf(qv_file *file, const char *format, ...) noexcept {
    QV_ASSERT(file != NULL);
    QV_ASSERT(format != NULL);
    va_list ap;
    va_start(ap, format);
    int rc = vfprintf(file, format, ap);
    va_end(ap);
    return rc;
}

QV_API int qv_file_feof(qv_file *file) noexcept {
    QV_ASSERT(file != NULL);
    return feof(file);
}

QV_API int qv_file_ferror(qv_file *file) noexcept {
    QV_ASSERT(file != NULL);
    return ferror(file);
}

QV_API int qv_file_close(qv_file *file) noexcept {
    QV_ASSERT(file != NULL);
    return fclose(file);
}

QV_API int qv_file_seek(qv_file *file, int32_t offset, int whence) noexcept {
    QV_ASSERT(file != NULL);
    QV_ASSERT(whence == SEEK_SET || whence == SEEK_CUR || whence == SEEK_END);
    return qv::plat::file_seek32(file, offset, whence);
}

QV_API int qv_file_seek_forwards_64(qv_file *file, uint64_t amount) noexcept {
    QV_ASSERT(file != NULL);
    return seek_forwards(file, amount);
}

QV_API int qv_file_seek_backwards_64(qv_file *file, uint64_t amount) noexcept {
    QV_ASSERT(file != NULL);
    return seek_backwards(file, amount);
}

QV_API int qv_file_seek64(qv_file *file, int64_t offset, int whence) noexcept {
    QV_ASSERT(file != NULL);
    QV_ASSERT(whence == SEEK_SET || whence == SEEK_CUR || whence == SEEK_END);
    if (whence == SEEK_SET) {
        if (offset < 0) {
            QV_LOG(7, "SEEK_SET cannot be called with a negative offset");
            return -1;
        }
        int rc = qv::plat::file_seek32(file, 0, SEEK_SET);
        if (rc != 0) return rc;
        return seek_forwards(file, static_cast<uint64_t>(offset));
    }
    if (whence == SEEK_END) {
        int rc = qv::plat::file_seek32(file, 0, SEEK_END);
        if (rc != 0) {
            QV_LOG(7, "Failed to seek at the end of the file");
            return rc;
        }
    }
    if (offset >= 0) return seek_forwards(file, static_cast<uint64_t>(offset));
    // 0 - offset in unsigned arithmetic: the magnitude of INT64_MIN included.
    return seek_backwards(file, 0 - static_cast<uint64_t>(offset));
}

QV_API int32_t qv_file_get_length(qv_file *file) noexcept {
    QV_ASSERT(file != NULL);
    int64_t position = qv::plat::file_tell(file);
    if (position < 0) return -1;
    if (qv::plat::file_seek32(file, 0, SEEK_END) != 0) return -1;
    int64_t end = qv::plat::file_tell(file);
    if (qv::plat::file_seek_abs(file, position) != 0) return -1;
    if (end < 0 || end > INT32_MAX) return -1;
    return static_cast<int32_t>(end);
}

QV_API int qv_file_exists(const char *filename) noexcept { return file_exists(filename); }
QV_API int qv_utf8file_exists(const char *filename) noexcept { return file_exists(filename); }

QV_API int qv_file_data_load(const char *filename, void **dataptr, size_t *datalen) noexcept {
    return data_load(filename, dataptr, datalen, false);
}

QV_API int qv_file_data_load_with_backup(const char *filename, void **dataptr, size_t *datalen) noexcept {
    return data_load(filename, dataptr, datalen, true);
}

QV_API int qv_utf8file_data_load(const char *filename, void **dataptr, size_t *datalen) noexcept {
    return data_load(filename, dataptr, datalen, false);
}

QV_API int qv_utf8file_data_load_with_backup(const char *filename, void **dataptr, size_t *datalen) noexcept {
    return data_load(filename, dataptr, datalen, true);
}

QV_API int qv_file_data_save(const char *filename, const void *data, size_t datalen) noexcept {
    QV_ASSERT(filename != NULL);
    QV_ASSERT(data != NULL || datalen == 0);
    return write_file(filename, data, datalen, false) ? 0 : -1;
}

QV_API int qv_utf8file_data_save(const char *filename, const void *data, size_t datalen) noexcept {
    return qv_file_data_save(filename, data, datalen);
}

QV_API int qv_file_data_save_with_backup(const char *filename, const void *data, size_t datalen) noexcept {
    return data_save_with_backup(filename, data, datalen, false);
}

QV_API int qv_utf8file_data_save_with_backup(const char *filename, const void *data, size_t datalen) noexcept {
    return data_save_with_backup(filename, data, datalen, true);
}

QV_API int qv_rename(const char *oldname, const char *newname) noexcept {
    QV_ASSERT(oldname != NULL);
    QV_ASSERT(newname != NULL);
    return qv::plat::file_rename(oldname, newname);
}

QV_API int qv_deletefile(const char *filename) noexcept {
    QV_ASSERT(filename != NULL);
    return qv::plat::file_unlink(filename);
}

}  // extern "C"
