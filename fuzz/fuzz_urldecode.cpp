// URL decoder fuzz target: the measuring and filling calls agree on any
// input, and encoding followed by decoding gives back every byte buffer, with
// the default table and with a table that copies some reserved bytes.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "qvlib.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    qv_log_stderr_disable(nullptr);
    return 0;
}

static std::vector<char> decode(const char *src, size_t srclen, int *rc) {
    size_t need = 0;
    *rc = qv_urldecode_buffer(nullptr, &need, src, srclen);
    if (*rc != QV_ERROR_NONE && *rc != QV_ERROR_OUT_OF_RANGE) return {};
    if (need > srclen) abort();
    std::vector<char> out(need + 1, '#');
    size_t size = need + 1;
    if (qv_urldecode_buffer(out.data(), &size, src, srclen) != QV_ERROR_NONE) abort();
    if (size != need || out[need] != '\0') abort();
    // Exactly the decoded size: success without a terminator.
    size = need;
    if (need > 0 && qv_urldecode_buffer(out.data(), &size, src, srclen) != QV_ERROR_NONE) abort();
    out.resize(need);
    *rc = QV_ERROR_NONE;
    return out;
}

static void round_trip(qv_urlencoder *enc, const uint8_t *data, size_t size) {
    size_t need = 0;
    if (qv_urlencode_buffer(enc, nullptr, &need, data, size) != QV_ERROR_OUT_OF_RANGE) abort();
    std::vector<char> text(need + 1);
    size_t textlen = need + 1;
    if (qv_urlencode_buffer(enc, text.data(), &textlen, data, size) != QV_ERROR_NONE) abort();
    if (textlen != need || text[need] != '\0') abort();
    int rc = 0;
    std::vector<char> back = decode(text.data(), textlen, &rc);
    if (rc != QV_ERROR_NONE || back.size() != size || (size && memcmp(back.data(), data, size) != 0)) abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    int rc = 0;
    decode(reinterpret_cast<const char *>(data), size, &rc);
    if (rc != QV_ERROR_NONE && rc != QV_ERROR_INCOMPLETE && rc != QV_ERROR_INVALID_SYNTAX) abort();

    qv_urlencoder *enc = qv_urlencode_create();
    if (enc == nullptr) abort();
    round_trip(enc, data, size);
    qv_urlencode_skip(enc, "/:?&=@ ");  // '+' stays escaped: it decodes to a blank
    round_trip(enc, data, size);
    qv_urlencode_destroy(enc);
    return 0;
}
