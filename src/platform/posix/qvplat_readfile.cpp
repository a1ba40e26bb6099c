// POSIX backend of whole-file reading: stdio with close-on-exec.
#include "platform/qvplat_readfile.h"

#include <cerrno>
#include <cstdio>

#include "platform/qvplatform.h"
#include "qvlib.h"

namespace qv::plat {

int read_whole_file(const char *name, char **data, size_t *len, const char **failedcall) noexcept {
    *data = nullptr;
    *len = 0;
    *failedcall = nullptr;
    errno = 0;
    FILE *fp = fopen_noinherit(name, "rb");
    if (fp == nullptr) {
        *failedcall = "fopen";
        return errno != 0 ? errno : EIO;
    }
    size_t cap = 4096, used = 0;
    char *buf = static_cast<char *>(qv_malloc(cap));
    int err = buf == nullptr ? ENOMEM : 0;
    while (err == 0) {
        if (cap - used < 2) {
            // Doubling keeps the copies linear in the file size.
            char *bigger = cap > SIZE_MAX / 2 ? nullptr : static_cast<char *>(qv_realloc(buf, cap * 2));
            if (bigger == nullptr) {
                err = ENOMEM;
                break;
            }
            buf = bigger;
            cap *= 2;
        }
        size_t n = fread(buf + used, 1, cap - used - 1, fp);
        used += n;
        if (n == 0) {
            if (ferror(fp)) {
                err = errno != 0 ? errno : EIO;
                *failedcall = "fread";
            }
            break;
        }
    }
    qv::plat::fclose(fp);
    if (err != 0) {
        qv_free(buf);
        return err;
    }
    buf[used] = '\0';
    *data = buf;
    *len = used;
    return 0;
}

}  // namespace qv::plat
