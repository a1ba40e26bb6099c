// qv_pem2der: splits a buffer of PEM certificates into their DER bytes, one
// certificate per call.
//
// The object keeps its own copy of the input from the first begin marker to
// the end and a read position into it (0 <= pos <= pembuflen). Only the
// certificate markers are searched, exactly and case-sensitively, so text
// between certificates (other block types included) is passed over. A block
// that fails to decode leaves the position where it was, so a caller sees the
// same block again. One thread at a time per object.
#include <cstring>
#include <string_view>

#include "internal/qvinternal.h"

struct qv_pem2der {
    char *pembuffer;
    size_t pembuflen;
    size_t pos;
};

namespace {

constexpr std::string_view kBegin = "-----BEGIN CERTIFICATE-----";
constexpr std::string_view kEnd = "-----END CERTIFICATE-----";

}  // namespace

extern "C" QV_API qv_pem2der *qv_pem2der_create(const void *pembuffer, size_t pembuflen, int *error) noexcept {
    QV_ASSERT(pembuffer != NULL);
    const std::string_view all(static_cast<const char *>(pembuffer), pembuflen);
    const size_t at = all.find(kBegin);
    if (at == std::string_view::npos) {
        QV_LOG(13, "the buffer is not in PEM format");
        if (error != nullptr) *error = QV_ERROR_NOT_FOUND;
        return nullptr;
    }
    const char *start = all.data();
    const char *match = start + at;
    QV_ASSERT(match >= start);
    QV_ASSERT(match < start + pembuflen);
    auto *conv = static_cast<qv_pem2der *>(qv_malloc(sizeof(qv_pem2der)));
    if (conv == nullptr) {
        QV_LOG(7, "not enough memory for PEM to DER conversion context");
        if (error != nullptr) *error = QV_ERROR_NO_MEMORY;
        return nullptr;
    }
    conv->pembuflen = pembuflen - at;
    conv->pos = 0;
    conv->pembuffer = static_cast<char *>(qv_malloc(conv->pembuflen));
    if (conv->pembuffer == nullptr) {
        QV_LOG(7, "not enough memory for the PEM certificate buffer");
        qv_free(conv);
        if (error != nullptr) *error = QV_ERROR_NO_MEMORY;
        return nullptr;
    }
    std::memcpy(conv->pembuffer, match, conv->pembuflen);
    if (error != nullptr) *error = QV_ERROR_NONE;
    return conv;
}

extern "C" QV_API int qv_pem2der_next(qv_pem2der *qvpem2der, void **bufferptr, size_t *buflenptr) noexcept {
    QV_ASSERT(qvpem2der != NULL);
    QV_ASSERT(bufferptr != NULL);
    QV_ASSERT(buflenptr != NULL);
    *bufferptr = nullptr;
    *buflenptr = 0;
    const size_t pembuflen = qvpem2der->pembuflen;
    const size_t pos = qvpem2der->pos;
    QV_ASSERT(pembuflen >= pos);
    if (pos == pembuflen) return QV_ERROR_END_OF_FILE;
    const std::string_view text(qvpem2der->pembuffer, pembuflen);
    size_t body = text.find(kBegin, pos);
    if (body == std::string_view::npos) return QV_ERROR_END_OF_FILE;
    body += kBegin.size();
    // One line end after the marker: CR LF, a lone CR or a lone LF.
    if (body < pembuflen && text[body] == '\r') ++body;
    if (body < pembuflen && text[body] == '\n') ++body;
    const size_t end = text.find(kEnd, body);
    if (end == std::string_view::npos) return QV_ERROR_INCOMPLETE;
    void *derbuffer = nullptr;
    size_t derlen = 0;
    const int result = qv_base64_decode(&derbuffer, &derlen, text.data() + body, end - body);
    if (result != QV_ERROR_NONE) {
        QV_LOG(7, "unable to decode certificate, error %d (%s)", result, qv_error_string(result));
        return result;
    }
    QV_ASSERT(derbuffer != NULL);
    qvpem2der->pos = end + kEnd.size();
    *bufferptr = derbuffer;
    *buflenptr = derlen;
    return QV_ERROR_NONE;
}

extern "C" QV_API void qv_pem2der_destroy(qv_pem2der *qvpem2der) noexcept {
    QV_ASSERT(qvpem2der != NULL);
    qv_free(qvpem2der->pembuffer);
    qv_free(qvpem2der);
}
