// The JSON writer: a document's tree as one line of text with fixed spacing
// ("{ \"a\": 1 }", "[ 1, 2 ]", "{ }"). Strings are escaped byte by byte
// (UTF-8 and other bytes of 0x80 and above pass through), doubles take the
// "%g" form with a '.' whatever the locale. The text grows in one working
// buffer that doubles as needed; the result is an exactly sized copy.
#include <cstring>

#include "adt/qvjson_impl.h"

using namespace qv::json;

namespace {

constexpr size_t kInitialBuffer = 4095;

struct Writer {
    char *buf;
    size_t len;
    size_t cap;
};

// Makes room for n more bytes and the terminator.
bool reserve(Writer *w, size_t n) noexcept {
    if (w->cap - w->len > n) return true;
    size_t cap = w->cap;
    while (cap - w->len <= n) {
        if (cap > SIZE_MAX / 2) {
            QV_LOG(7, "maximum buffer size %lu reached", static_cast<unsigned long>(cap));
            return false;
        }
        cap *= 2;
    }
    char *b = static_cast<char *>(qv_realloc(w->buf, cap));
    if (b == nullptr) {
        QV_LOG(7, "not enough memory for JSON output buffer (%lu bytes)", static_cast<unsigned long>(cap));
        return false;
    }
    w->buf = b;
    w->cap = cap;
    return true;
}

inline bool put(Writer *w, const char *s, size_t n) noexcept {
    if (!reserve(w, n)) return false;
    memcpy(w->buf + w->len, s, n);
    w->len += n;
    return true;
}

// Escaped size of each byte: 1 for most, 2 for the short escapes, 6 for
// the other control characters (\u00XX).
struct EscapeTable {
    unsigned char size[256];
    constexpr EscapeTable() : size() {
        for (int c = 0; c < 256; ++c) size[c] = 1;
        for (int c = 0; c < 0x20; ++c) size[c] = 6;
        for (unsigned char c : {'\b', '\f', '\n', '\r', '\t', '"', '\\'}) size[c] = 2;
    }
};
constexpr EscapeTable kEscape;

bool put_string(Writer *w, const char *s) noexcept {
    const auto *u = reinterpret_cast<const unsigned char *>(s);
    size_t raw = 0, escaped = 0;
    for (; u[raw] != 0; ++raw) escaped += kEscape.size[u[raw]];
    // Each byte grows at most sixfold, so with the quotes this wraps only
    // for strings near the size type's limit.
    if (raw > (SIZE_MAX - 2) / 6) {
        QV_LOG(7, "escaped string length would wrap size_t");
        return false;
    }
    if (!reserve(w, escaped + 2)) return false;
    char *o = w->buf + w->len;
    *o++ = '"';
    if (escaped == raw) {
        memcpy(o, s, raw);
        o += raw;
    } else {
        static const char hex[] = "0123456789abcdef";
        for (size_t i = 0; i < raw; ++i) {
            unsigned char c = u[i];
            if (kEscape.size[c] == 1) {
                *o++ = static_cast<char>(c);
                continue;
            }
            *o++ = '\\';
            switch (c) {
            case '"': *o++ = '"'; break;
            case '\\': *o++ = '\\'; break;
            case '\b': *o++ = 'b'; break;
            case '\f': *o++ = 'f'; break;
            case '\n': *o++ = 'n'; break;
            case '\r': *o++ = 'r'; break;
            case '\t': *o++ = 't'; break;
            default:
                *o++ = 'u';
                *o++ = '0';
                *o++ = '0';
                *o++ = hex[c >> 4];
                *o++ = hex[c & 15];
                break;
            }
        }
    }
    *o++ = '"';
    w->len = static_cast<size_t>(o - w->buf);
    return true;
}

bool put_integer(Writer *w, int64_t v) noexcept {
    char tmp[24];
    char *e = tmp + sizeof tmp;
    char *p = e;
    uint64_t m = v < 0 ? 0 - static_cast<uint64_t>(v) : static_cast<uint64_t>(v);
    do {
        *--p = static_cast<char>('0' + m % 10);
        m /= 10;
    } while (m != 0);
    if (v < 0) *--p = '-';
    return put(w, p, static_cast<size_t>(e - p));
}

bool put_double(Writer *w, double d) noexcept {
    char tmp[32];
    size_t n = format_g(d, tmp);
    if (n == 0 || n > 24) {
        QV_LOG(6, "INTERNAL ERROR: formatting a double gave %lu characters", static_cast<unsigned long>(n));
        return false;
    }
    return put(w, tmp, n);
}

// A scalar node's text.
bool put_scalar(Writer *w, const qv_json_node *n) noexcept {
    switch (n->nodetype) {
    case QV_JSON_TYPE_STRING:
        return put_string(w, n->u.string);
    case QV_JSON_TYPE_INTEGER:
        return put_integer(w, n->u.integer);
    case QV_JSON_TYPE_DOUBLE:
        return put_double(w, n->u.number);
    case QV_JSON_TYPE_TRUE:
        return put(w, "true", 4);
    case QV_JSON_TYPE_FALSE:
        return put(w, "false", 5);
    case QV_JSON_TYPE_NULL:
        return put(w, "null", 4);
    default:
        QV_LOG(7, "unhandled node type %u", n->nodetype);
        return false;
    }
}

// An open object or array on the writer's path from the root (innermost on
// top of the stack): for an object its enumeration position, for an array
// its current element.
struct Frame {
    const qv_json_node *container;
    void *position;
    const qv_json_node *element;
};

// The whole tree below root, depth first, in the fixed spacing: an object
// is "{ " members joined by ", " then " }" ("{ }" when empty), an array
// likewise with brackets.
bool put_tree(Writer *w, const qv_json_node *root) noexcept {
    WalkStack<Frame> stack;
    auto descend = [&stack](const Frame &f) {
        if (stack.push(f)) return true;
        QV_LOG(7, "not enough memory for JSON output");
        return false;
    };
    const qv_json_node *n = root;
    for (;;) {
        // Write n, or open it and descend into its first child.
        const char *key = nullptr;
        void *value = nullptr;
        if (n->nodetype == QV_JSON_TYPE_OBJECT) {
            if (!put(w, "{ ", 2)) return false;
            void *pos = qv_stringhash_enumerate_start(n->u.hash, &key, &value);
            if (pos != nullptr) {
                if (!descend({n, pos, nullptr}) || !put_string(w, key) || !put(w, ": ", 2)) return false;
                n = static_cast<const qv_json_node *>(value);
                continue;
            }
            if (!put(w, "}", 1)) return false;
        } else if (n->nodetype == QV_JSON_TYPE_ARRAY) {
            if (!put(w, "[ ", 2)) return false;
            if (n->u.children != nullptr) {
                if (!descend({n, nullptr, n->u.children})) return false;
                n = n->u.children;
                continue;
            }
            if (!put(w, "]", 1)) return false;
        } else if (!put_scalar(w, n)) {
            return false;
        }

        // n is complete: move to the next sibling of the innermost open
        // container, closing every container that has none left.
        for (;;) {
            if (stack.empty()) return true;
            Frame &f = stack.top();
            if (f.container->nodetype == QV_JSON_TYPE_OBJECT) {
                f.position = qv_stringhash_enumerate_next(f.container->u.hash, f.position, &key, &value);
                if (f.position != nullptr) {
                    if (!put(w, ", ", 2) || !put_string(w, key) || !put(w, ": ", 2)) return false;
                    n = static_cast<const qv_json_node *>(value);
                    break;
                }
                if (!put(w, " }", 2)) return false;
            } else {
                f.element = f.element->next;
                if (f.element != nullptr) {
                    if (!put(w, ", ", 2)) return false;
                    n = f.element;
                    break;
                }
                if (!put(w, " ]", 2)) return false;
            }
            stack.pop();
        }
    }
}

}  // namespace

extern "C" QV_API char *qv_json_output(qv_json *qvjson) noexcept {
    QV_ASSERT(qvjson != NULL);
    QV_ASSERT(qvjson->root != NULL);
    Writer w{static_cast<char *>(qv_malloc(kInitialBuffer)), 0, kInitialBuffer};
    if (w.buf == nullptr) {
        QV_LOG(7, "not enough memory for JSON output");
        return nullptr;
    }
    char *result = nullptr;
    if (put_tree(&w, qvjson->root)) {
        w.buf[w.len] = '\0';
        result = static_cast<char *>(qv_malloc(w.len + 1));
        if (result == nullptr)
            QV_LOG(7, "not enough memory for JSON output result");
        else
            memcpy(result, w.buf, w.len + 1);
    }
    qv_free(w.buf);
    return result;
}
