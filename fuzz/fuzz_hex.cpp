// Hexadecimal fuzz target: any string either converts or fails with one of
// the two defined codes; what converts prints back as the lower-cased input,
// and every byte buffer survives printing and reading back.
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "qvlib.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    void *bin = nullptr;
    size_t binlen = 0;
    int rc = qv_hex2bin(text.c_str(), &bin, &binlen);
    const size_t len = strlen(text.c_str());
    if (rc == QV_ERROR_NONE) {
        if (binlen != len / 2 || static_cast<unsigned char *>(bin)[binlen] != 0) abort();
        char *hex = qv_bin2hex(bin, binlen);
        if (hex == nullptr || strlen(hex) != len) abort();
        for (size_t i = 0; i < len; ++i)
            if (hex[i] != tolower(static_cast<unsigned char>(text[i]))) abort();
        qv_free(hex);
        qv_free(bin);
    } else if (bin != nullptr || binlen != 0 ||
               (rc != QV_ERROR_INCOMPLETE && rc != QV_ERROR_OUT_OF_RANGE) ||
               (rc == QV_ERROR_INCOMPLETE) != (len % 2 == 1)) {
        abort();
    }

    char *hex = qv_bin2hex(data, size);
    if (hex == nullptr) abort();
    void *back = nullptr;
    size_t backlen = 0;
    if (qv_hex2bin(hex, &back, &backlen) != QV_ERROR_NONE) abort();
    if (backlen != size || memcmp(back, data, size) != 0) abort();
    qv_free(back);
    qv_free(hex);
    return 0;
}
