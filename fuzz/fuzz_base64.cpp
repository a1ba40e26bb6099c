// Base64 decoder fuzz target: any input either decodes or fails cleanly;
// what decodes re-encodes to text that decodes to the same bytes, and every
// input survives encoding followed by decoding unchanged.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "qvlib.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    qv_log_stderr_disable(nullptr);
    return 0;
}

static void check_round_trip(const void *data, size_t size) {
    char *text = qv_base64_encode(data, size);
    if (text == nullptr) abort();
    void *back = nullptr;
    size_t backlen = 0;
    if (qv_base64_decode(&back, &backlen, text, strlen(text)) != QV_ERROR_NONE) abort();
    if (backlen != size || memcmp(back, data, size) != 0) abort();
    if (static_cast<unsigned char *>(back)[backlen] != 0) abort();
    qv_free(back);
    qv_free(text);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    void *out = nullptr;
    size_t outlen = 0;
    int rc = qv_base64_decode(&out, &outlen, reinterpret_cast<const char *>(data), size);
    if (rc == QV_ERROR_NONE) {
        if (out == nullptr || static_cast<unsigned char *>(out)[outlen] != 0) abort();
        check_round_trip(out, outlen);
        qv_free(out);
    } else if (out != nullptr || outlen != 0) {
        abort();
    }
    check_round_trip(data, size);
    return 0;
}
