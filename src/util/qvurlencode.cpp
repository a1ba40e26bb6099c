// Percent-encoding driven by a table (qv_urlencoder), and the fixed decoder.
//
// The table holds one byte per byte value: 0 encodes it as "%XX" (upper-case
// digits), 1 copies it (the unreserved set restored by reset), 2 copies it
// (added by qv_urlencode_skip). The buffer forms share one protocol: the
// output count always advances, bytes are stored only below the buffer size,
// and a result that does not fit reports QV_ERROR_OUT_OF_RANGE with the count
// needed, so a measuring call without a buffer followed by a call into a
// buffer of count + 1 bytes always succeeds. The string forms do exactly that.
// A table is used by one thread at a time; the decoder keeps no state.
#include <array>
#include <cstdint>
#include <cstring>

#include "internal/qvinternal.h"

struct qv_urlencoder {
    unsigned char table[256];
};

namespace {

// Both string forms hand an empty source back as a new empty string.
int empty_result(char **dstptr) noexcept {
    auto *empty = static_cast<char *>(qv_malloc(1));
    if (empty == nullptr) {
        QV_LOG(7, "not enough memory for an empty result string");
        return QV_ERROR_NO_MEMORY;
    }
    empty[0] = '\0';
    *dstptr = empty;
    return QV_ERROR_NONE;
}

constexpr char kUpperHex[] = "0123456789ABCDEF";
constexpr unsigned char kEncode = 0;
constexpr unsigned char kUnreserved = 1;
constexpr unsigned char kSkipped = 2;

// Counts that reach this are refused: the terminated result would not be
// addressable (4294967294 on 32-bit builds).
constexpr size_t kCountLimit = SIZE_MAX - 1;

constexpr std::array<unsigned char, 256> make_defaults() {
    std::array<unsigned char, 256> t{};
    for (int c = 0; c < 256; ++c) {
        const bool alnum = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
        t[c] = alnum ? kUnreserved : kEncode;
    }
    for (char c : {'-', '_', '.', '~', '!', '*', '\'', '(', ')'}) t[static_cast<unsigned char>(c)] = kUnreserved;
    return t;
}
constexpr std::array<unsigned char, 256> kDefaults = make_defaults();

// Hex digit values for the decoder; 0xff for anything else.
constexpr std::array<unsigned char, 256> make_digits() {
    std::array<unsigned char, 256> t{};
    for (int c = 0; c < 256; ++c) {
        int v = 0xff;
        if (c >= '0' && c <= '9') v = c - '0';
        if (c >= 'a' && c <= 'f') v = c - 'a' + 10;
        if (c >= 'A' && c <= 'F') v = c - 'A' + 10;
        t[c] = static_cast<unsigned char>(v);
    }
    return t;
}
constexpr std::array<unsigned char, 256> kDigit = make_digits();

// The common ending of both buffer forms.
int finish_buffer(char *dst, size_t dstlen, size_t *dstlenptr, size_t count, int result) noexcept {
    *dstlenptr = count;
    if (result != QV_ERROR_NONE) return result;
    if (count < dstlen) {
        dst[count] = '\0';
        return QV_ERROR_NONE;
    }
    return QV_ERROR_OUT_OF_RANGE;
}

int encode_buffer(const unsigned char *table, char *dst, size_t *dstlenptr, const unsigned char *src,
                  size_t srclen) noexcept {
    const size_t dstlen = *dstlenptr;
    size_t count = 0;
    size_t i = 0;
    int result = QV_ERROR_NONE;
    // Measuring needs no bounds checks while three bytes per source byte
    // cannot reach the limit; filling needs none while an escape and the
    // terminator still fit.
    if (dst == nullptr) {
        if (srclen <= kCountLimit / 3)
            for (; i < srclen; ++i) count += table[src[i]] == kEncode ? 3 : 1;
    } else {
        for (; i < srclen && count + 3 < dstlen; ++i) {
            const unsigned char c = src[i];
            if (table[c] != kEncode) {
                dst[count++] = static_cast<char>(c);
            } else {
                dst[count] = '%';
                dst[count + 1] = kUpperHex[c >> 4];
                dst[count + 2] = kUpperHex[c & 15];
                count += 3;
            }
        }
    }
    for (; i < srclen; ++i) {
        const unsigned char c = src[i];
        char out[3] = {static_cast<char>(c), 0, 0};
        size_t n = 1;
        if (table[c] == kEncode) {
            out[0] = '%';
            out[1] = kUpperHex[c >> 4];
            out[2] = kUpperHex[c & 15];
            n = 3;
        }
        if (count > kCountLimit - n) {
            result = QV_ERROR_INVALID_ARGUMENT;
            break;
        }
        for (size_t k = 0; k < n; ++k, ++count)
            if (count < dstlen) dst[count] = out[k];
    }
    return finish_buffer(dst, dstlen, dstlenptr, count, result);
}

}  // namespace

extern "C" QV_API qv_urlencoder *qv_urlencode_create(void) noexcept {
    auto *enc = static_cast<qv_urlencoder *>(qv_malloc(sizeof(qv_urlencoder)));
    if (enc == nullptr) {
        QV_LOG(7, "not enough memory for URL encoding context");
        return nullptr;
    }
    std::memcpy(enc->table, kDefaults.data(), sizeof enc->table);
    return enc;
}

extern "C" QV_API void qv_urlencode_destroy(qv_urlencoder *qvurlencode) noexcept {
    QV_ASSERT(qvurlencode != NULL);
    qv_free(qvurlencode);
}

extern "C" QV_API void qv_urlencode_reset(qv_urlencoder *qvurlencode) noexcept {
    QV_ASSERT(qvurlencode != NULL);
    std::memcpy(qvurlencode->table, kDefaults.data(), sizeof qvurlencode->table);
}

extern "C" QV_API void qv_urlencode_skip(qv_urlencoder *qvurlencode, const char *skipchars) noexcept {
    QV_ASSERT(qvurlencode != NULL);
    QV_ASSERT(skipchars != NULL);
    for (const char *p = skipchars; *p != '\0'; ++p) qvurlencode->table[static_cast<unsigned char>(*p)] = kSkipped;
}

extern "C" QV_API int qv_urlencode_buffer(qv_urlencoder *qvurlencode, char *dst, size_t *dstlenptr,
                                          const void *src, size_t srclen) noexcept {
    QV_ASSERT(qvurlencode != NULL);
    QV_ASSERT(dstlenptr != NULL);
    QV_ASSERT(dst != NULL || *dstlenptr == 0);
    QV_ASSERT(src != NULL);
    return encode_buffer(qvurlencode->table, dst, dstlenptr, static_cast<const unsigned char *>(src), srclen);
}

extern "C" QV_API int qv_urlencode_string(qv_urlencoder *qvurlencode, char **dstptr, const char *src) noexcept {
    QV_ASSERT(qvurlencode != NULL);
    QV_ASSERT(dstptr != NULL);
    QV_ASSERT(src != NULL);
    *dstptr = nullptr;
    const size_t srclen = std::strlen(src);
    size_t len = 0;
    int result = qv_urlencode_buffer(qvurlencode, nullptr, &len, src, srclen);
    if (result != QV_ERROR_OUT_OF_RANGE) {
        if (result != QV_ERROR_NONE) {
            QV_LOG(7, "encoding resulted an unexpected error %d (%s)", result, qv_error_string(result));
            return result;
        }
        return empty_result(dstptr);
    }
    if (len + 1 == 0) {
        QV_LOG(6, "the encoded buffer needed is too long to fit the memory space");
        return QV_ERROR_INVALID_ARGUMENT;
    }
    auto *dst = static_cast<char *>(qv_malloc(len + 1));
    if (dst == nullptr) {
        QV_LOG(7, "not enough memory for encoded buffer (%lu bytes)", static_cast<unsigned long>(len + 1));
        return QV_ERROR_NO_MEMORY;
    }
    size_t dstlen = len + 1;
    result = qv_urlencode_buffer(qvurlencode, dst, &dstlen, src, srclen);
    if (result != QV_ERROR_NONE) {
        QV_LOG(7, "unable to encode buffer, error %d (%s)", result, qv_error_string(result));
        qv_free(dst);
        return result;
    }
    QV_ASSERT(dstlen == len);
    *dstptr = dst;
    return QV_ERROR_NONE;
}

extern "C" QV_API char *qv_urlencode(const char *string) noexcept {
    qv_urlencoder *enc = qv_urlencode_create();
    if (enc == nullptr) {
        QV_LOG(7, "unable to create URL encoding context");
        return nullptr;
    }
    qv_urlencode_reset(enc);
    char *result = nullptr;
    const int rc = qv_urlencode_string(enc, &result, string);
    if (rc != QV_ERROR_NONE)
        QV_LOG(7, "unable to urlencode string '%s', error %d (%s)", string, rc, qv_error_string(rc));
    qv_urlencode_destroy(enc);
    return result;
}

extern "C" QV_API int qv_urldecode_buffer(void *dst, size_t *dstlenptr, const char *src, size_t srclen) noexcept {
    QV_ASSERT(dstlenptr != NULL);
    QV_ASSERT(dst != NULL || *dstlenptr == 0);
    QV_ASSERT(src != NULL);
    auto *out = static_cast<char *>(dst);
    const auto *in = reinterpret_cast<const unsigned char *>(src);
    const size_t dstlen = *dstlenptr;
    size_t count = 0;
    int result = QV_ERROR_NONE;
    for (size_t i = 0; i < srclen; ++i) {
        unsigned char c = in[i];
        if (c == '+') {
            c = ' ';
        } else if (c == '%') {
            if (i + 1 >= srclen) {
                result = QV_ERROR_INCOMPLETE;
                break;
            }
            const unsigned char hi = kDigit[in[i + 1]];
            if (hi == 0xff) {
                result = QV_ERROR_INVALID_SYNTAX;
                break;
            }
            if (i + 2 >= srclen) {
                result = QV_ERROR_INCOMPLETE;
                break;
            }
            const unsigned char lo = kDigit[in[i + 2]];
            if (lo == 0xff) {
                result = QV_ERROR_INVALID_SYNTAX;
                break;
            }
            c = static_cast<unsigned char>((hi << 4) | lo);
            i += 2;
        }
        if (count >= kCountLimit) {
            result = QV_ERROR_INVALID_ARGUMENT;
            break;
        }
        if (count < dstlen) out[count] = static_cast<char>(c);
        ++count;
    }
    *dstlenptr = count;
    if (result != QV_ERROR_NONE) return result;
    if (count < dstlen) {
        out[count] = '\0';
        return QV_ERROR_NONE;
    }
    return count == dstlen ? QV_ERROR_NONE : QV_ERROR_OUT_OF_RANGE;
}

extern "C" QV_API int qv_urldecode_string(char **dstptr, const char *src) noexcept {
    QV_ASSERT(dstptr != NULL);
    QV_ASSERT(src != NULL);
    *dstptr = nullptr;
    const size_t srclen = std::strlen(src);
    size_t len = 0;
    int result = qv_urldecode_buffer(nullptr, &len, src, srclen);
    if (result != QV_ERROR_OUT_OF_RANGE) {
        if (result != QV_ERROR_NONE) {
            QV_LOG(6, "invalid percent encoding in the source string");
            return result;
        }
        return empty_result(dstptr);
    }
    if (len + 1 == 0) {
        QV_LOG(6, "the decoded buffer needed is too long to fit the memory space");
        return QV_ERROR_INVALID_ARGUMENT;
    }
    auto *dst = static_cast<char *>(qv_malloc(len + 1));
    if (dst == nullptr) {
        QV_LOG(7, "not enough memory for decoded buffer (%lu bytes)", static_cast<unsigned long>(len + 1));
        return QV_ERROR_NO_MEMORY;
    }
    size_t dstlen = len + 1;
    result = qv_urldecode_buffer(dst, &dstlen, src, srclen);
    if (result != QV_ERROR_NONE) {
        QV_LOG(7, "unable to decode buffer, error %d (%s)", result, qv_error_string(result));
        qv_free(dst);
        return result;
    }
    *dstptr = dst;
    return QV_ERROR_NONE;
}

extern "C" QV_API char *qv_urldecode(const char *string) noexcept {
    QV_ASSERT(string != NULL);
    char *result = nullptr;
    qv_urldecode_string(&result, string);
    return result;
}
