// The named-variable template expander behind qv_format. "%name%" is replaced
// by the value given for name, "%%" is a literal percent sign. The expander
// runs twice with the same output rules: once without a buffer to measure,
// once into a block of exactly the measured size. Messages that would repeat
// (a missing or unterminated variable) are logged only in the second pass.
#include <cstring>

#include "internal/qvinternal.h"

namespace {

struct Output {
    char *buffer;
    size_t buflen;
    size_t len = 0;  // counts on past the buffer's end
    int result = QV_ERROR_NONE;

    void put(const char *s, size_t n) noexcept {
        if (len + n <= buflen) {
            memcpy(buffer + len, s, n);
        } else {
            // Only whole bytes that still fit are written.
            if (len < buflen) memcpy(buffer + len, s, buflen - len);
            if (result == QV_ERROR_NONE) result = QV_ERROR_OUT_OF_RANGE;
        }
        len += n;
    }
};

// Walks the (name, value) pairs in order. A null value met before the wanted
// name ends the walk as an error, whichever pair it belongs to.
int lookup(const char *name, va_list pairs, const char **value) noexcept {
    va_list ap;
    va_copy(ap, pairs);
    int rc = QV_ERROR_NOT_FOUND;
    for (;;) {
        const char *n = va_arg(ap, const char *);
        if (n == nullptr) break;
        const char *v = va_arg(ap, const char *);
        if (v == nullptr) {
            // The null value itself is the argument, on purpose: the name is
            // not what this line reports.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-overflow"
#endif
            QV_LOG(6, "value given for '%s' was NULL", v);
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif
            rc = QV_ERROR_INVALID_ARGUMENT;
            break;
        }
        if (strcmp(n, name) == 0) {
            *value = v;
            rc = QV_ERROR_NONE;
            break;
        }
    }
    va_end(ap);
    return rc;
}

int expand(char *buffer, size_t *bufferlenptr, const char *format, va_list pairs) noexcept {
    QV_ASSERT(bufferlenptr != NULL);
    QV_ASSERT(*bufferlenptr == 0 || buffer != NULL);
    QV_ASSERT(format != NULL);
    const bool final_pass = buffer != nullptr;
    Output out{buffer, *bufferlenptr};
    size_t i = 0;
    size_t start = 0;
    bool invar = false;
    for (; format[i] != '\0'; ++i) {
        char c = format[i];
        if (!invar) {
            if (c == '%') {
                invar = true;
                start = i + 1;
            } else {
                out.put(&c, 1);
            }
            continue;
        }
        if (c != '%') continue;
        invar = false;
        if (i == start) {
            out.put("%", 1);
            continue;
        }
        QV_ASSERT(start < i);
        size_t varnamelen = i - start;
        QV_ASSERT(varnamelen > 0);
        char *name = qv_strndup(format + start, varnamelen);
        if (name == nullptr) {
            QV_LOG(7, "not enough memory for variable name");
            return QV_ERROR_NO_MEMORY;
        }
        const char *value = nullptr;
        int rc = lookup(name, pairs, &value);
        if (rc == QV_ERROR_NONE) {
            out.put(value, strlen(value));
        } else if (rc == QV_ERROR_INVALID_ARGUMENT) {
            out.result = QV_ERROR_INVALID_ARGUMENT;
        } else if (final_pass) {
            QV_LOG(6, "no variable '%s' given for format string '%s'", name, format);
        }
        qv_free(name);
    }
    if (invar) {
        if (final_pass)
            QV_LOG(6, "unterminated variable '%s' in format string '%s'", format + start, format);
        out.put(format + start - 1, i - start + 1);
    }
    if (out.len < out.buflen) {
        buffer[out.len] = '\0';
    } else if (out.result == QV_ERROR_NONE) {
        out.result = QV_ERROR_OUT_OF_RANGE;
    }
    *bufferlenptr = out.len + 1;
    return out.result;
}

}  // namespace

extern "C" QV_API char *qv_format(const char *format, ...) noexcept {
    QV_ASSERT(format != NULL);
    va_list pairs;
    va_start(pairs, format);
    size_t resultlen = 0;
    int rc = expand(nullptr, &resultlen, format, pairs);
    char *result = nullptr;
    if (rc != QV_ERROR_OUT_OF_RANGE) {
        QV_LOG(6, "initial formatting returned error %d (%s)", rc, qv_error_string(rc));
    } else {
        QV_ASSERT(resultlen > 0);
        result = static_cast<char *>(qv_malloc(resultlen));
        if (result == nullptr) {
            QV_LOG(7, "not enough memory for formatting string");
        } else {
            rc = expand(result, &resultlen, format, pairs);
            if (rc != QV_ERROR_NONE) {
                QV_LOG(6, "final formatting returned error %d (%s)", rc, qv_error_string(rc));
                qv_free(result);
                result = nullptr;
            }
        }
    }
    va_end(pairs);
    return result;
}
