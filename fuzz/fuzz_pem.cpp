// PEM splitter fuzz target: any buffer either is refused or yields
// certificates until a terminal code; every certificate is a terminated
// buffer, and the walk always ends.
#include <cstdint>
#include <cstdlib>

#include "qvlib.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    qv_log_stderr_disable(nullptr);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    int error = -1;
    qv_pem2der *conv = qv_pem2der_create(data, size, &error);
    if (conv == nullptr) {
        if (error != QV_ERROR_NOT_FOUND) abort();
        return 0;
    }
    if (error != QV_ERROR_NONE) abort();
    // Each certificate consumes at least its two markers.
    for (size_t certs = 0;; ++certs) {
        if (certs > size / 52) abort();
        void *der = nullptr;
        size_t derlen = 0;
        int rc = qv_pem2der_next(conv, &der, &derlen);
        if (rc != QV_ERROR_NONE) {
            if (der != nullptr || derlen != 0) abort();
            break;
        }
        if (der == nullptr || static_cast<unsigned char *>(der)[derlen] != 0) abort();
        qv_free(der);
    }
    qv_pem2der_destroy(conv);
    return 0;
}
