// The JSON parser: recursive descent over a NUL-terminated text into a
// qv_json document, with a nesting limit of 100 and one exact log message
// for every kind of bad input. Numbers take no exponents; strings decode
// \u escapes (surrogate pairs included) to UTF-8 and refuse a decoded NUL.
//
// Members of an object are collected on a stack while the object is read
// and entered into its member table at the closing brace. Objects of more
// than five members are entered in key order, once per name (the last value
// of a repeated name wins): a member table's enumeration order depends on
// the order its keys arrive in, and entering them canonically makes the
// written text of a parsed document parse back to the same table, so that
// parse and write reach a fixed point. Up to five members never resize a
// table, and then arrival order cannot change the enumeration.
//
// On any failure everything built so far is destroyed, level by level, and
// the document is left without a root.
#include <algorithm>
#include <cstring>

#include "adt/qvjson_impl.h"
#include "internal/qvhashtable.h"

using namespace qv::json;

namespace {

constexpr unsigned kMaxDepth = 100;
constexpr size_t kSortThreshold = 5;
constexpr size_t kPooledStringMax = 512;  // longer strings get a block of their own

struct Member {
    size_t keyoff;  // into Parser::keys; the key is NUL-terminated there
    size_t keylen;
    size_t seq;     // arrival order, to keep the last of a repeated name
    qv_json_node *value;
};

struct Parser {
    qv_json *doc;
    const char *text;
    size_t length;
    unsigned maxdepth;
    unsigned depth;
    const char *pos;
    const char *end;
    bool logged;  // the failure being unwound has been described already
    // Scratch stacks shared by all nesting levels, grown with qv_realloc.
    char *keys;
    size_t keys_len, keys_cap;
    Member *members;
    size_t members_len, members_cap;
};

// Logs a parse failure; the containers then add nothing of their own.
#define PARSE_FAIL(P, level, ...)          \
    do {                                   \
        QV_LOG(level, __VA_ARGS__);        \
        (P)->logged = true;                \
        return false;                      \
    } while (0)

inline bool is_ws(char c) noexcept { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; }

inline void skip_ws(Parser *ps) noexcept {
    const char *p = ps->pos;
    while (p < ps->end && is_ws(*p)) ++p;
    ps->pos = p;
}

inline bool is_digit(char c) noexcept { return c >= '0' && c <= '9'; }

bool keys_reserve(Parser *ps, size_t more) noexcept {
    if (ps->keys_cap - ps->keys_len >= more) return true;
    size_t cap = ps->keys_cap == 0 ? 256 : ps->keys_cap;
    while (cap - ps->keys_len < more) {
        if (cap > SIZE_MAX / 2) return false;
        cap *= 2;
    }
    char *k = static_cast<char *>(qv_realloc(ps->keys, cap));
    if (k == nullptr) return false;
    ps->keys = k;
    ps->keys_cap = cap;
    return true;
}

// Appends bytes to the scratch string being decoded.
inline bool put(Parser *ps, const char *data, size_t n) noexcept {
    if (n == 0) return true;  // the stack may not exist yet
    if (!keys_reserve(ps, n)) return false;
    memcpy(ps->keys + ps->keys_len, data, n);
    ps->keys_len += n;
    return true;
}

// Eight bytes at a time: does w hold a double quote or a backslash?
inline bool has_quote_or_backslash(uint64_t w) noexcept {
    constexpr uint64_t ones = 0x0101010101010101ULL, highs = 0x8080808080808080ULL;
    uint64_t q = w ^ 0x2222222222222222ULL, b = w ^ 0x5c5c5c5c5c5c5c5cULL;
    return (((q - ones) & ~q) | ((b - ones) & ~b)) & highs;
}

// Reads four hexadecimal digits at ps->pos.
bool read_hex4(Parser *ps, unsigned *out) noexcept {
    unsigned v = 0;
    for (int i = 0; i < 4; ++i) {
        if (ps->pos == ps->end) PARSE_FAIL(ps, 6, "got end-of-data in a unicode character escape sequence");
        char c = *ps->pos;
        unsigned d;
        if (c >= '0' && c <= '9') {
            d = static_cast<unsigned>(c - '0');
        } else if (c >= 'a' && c <= 'f') {
            d = static_cast<unsigned>(c - 'a' + 10);
        } else if (c >= 'A' && c <= 'F') {
            d = static_cast<unsigned>(c - 'A' + 10);
        } else if (c == '\0') {
            PARSE_FAIL(ps, 6, "unexpected NUL character in the middle of a unicode character escape sequence");
        } else {
            PARSE_FAIL(ps, 6, "unexpected character '%c' in the middle of a unicode character escape sequence", c);
        }
        v = v << 4 | d;
        ++ps->pos;
    }
    *out = v;
    return true;
}

// The code point of a \u escape whose backslash and u have been read,
// joining a surrogate pair; appended as UTF-8.
bool decode_unicode(Parser *ps) noexcept {
    unsigned cp;
    if (!read_hex4(ps, &cp)) return false;
    if (cp >= 0xdc00 && cp <= 0xdfff)
        PARSE_FAIL(ps, 6, "unexpected occurrence of a second part of the surrogate 0x%04x without a preceeding first part", cp);
    if (cp >= 0xd800 && cp <= 0xdbff) {
        if (ps->pos == ps->end) PARSE_FAIL(ps, 6, "got end-of-data after a first part of a surrogate pair");
        if (*ps->pos != '\\')
            PARSE_FAIL(ps, 6, "expected the second part of a surrogate pair but got no escape character");
        ++ps->pos;
        if (ps->pos == ps->end) PARSE_FAIL(ps, 6, "got end-of-data after a first part of a surrogate pair");
        if (*ps->pos != 'u')
            PARSE_FAIL(ps, 6, "expected the escaped second part of a surrogate pair but got '\\%c'", *ps->pos);
        ++ps->pos;
        unsigned low;
        if (!read_hex4(ps, &low)) return false;
        if (low < 0xdc00 || low > 0xdfff)
            PARSE_FAIL(ps, 6, "expected a second part of the surrogate pair but got 0x%04x", low);
        cp = 0x10000 + ((cp - 0xd800) << 10) + (low - 0xdc00);
    }
    if (cp == 0) PARSE_FAIL(ps, 6, "unexpected NUL character in the middle of a string");
    char u[4];
    size_t n;
    if (cp < 0x80) {
        u[0] = static_cast<char>(cp);
        n = 1;
    } else if (cp < 0x800) {
        u[0] = static_cast<char>(0xc0 | cp >> 6);
        u[1] = static_cast<char>(0x80 | (cp & 0x3f));
        n = 2;
    } else if (cp < 0x10000) {
        u[0] = static_cast<char>(0xe0 | cp >> 12);
        u[1] = static_cast<char>(0x80 | (cp >> 6 & 0x3f));
        u[2] = static_cast<char>(0x80 | (cp & 0x3f));
        n = 3;
    } else {
        u[0] = static_cast<char>(0xf0 | cp >> 18);
        u[1] = static_cast<char>(0x80 | (cp >> 12 & 0x3f));
        u[2] = static_cast<char>(0x80 | (cp >> 6 & 0x3f));
        u[3] = static_cast<char>(0x80 | (cp & 0x3f));
        n = 4;
    }
    if (!put(ps, u, n)) PARSE_FAIL(ps, 7, "not enough memory for decoded string");
    return true;
}

// Reads the string at ps->pos (an opening quote). A string without escapes
// is returned as a slice of the text (*direct); otherwise it is decoded onto
// the scratch stack at *off. Neither is NUL-terminated yet.
bool scan_string(Parser *ps, const char **direct, size_t *off, size_t *len) noexcept {
    const char *p = ps->pos + 1;
    const char *end = ps->end;
    const char *start = p;
    while (end - p >= 8) {
        uint64_t w;
        memcpy(&w, p, 8);
        if (has_quote_or_backslash(w)) break;
        p += 8;
    }
    while (p < end && *p != '"' && *p != '\\') ++p;
    if (p == end) {
        ps->pos = p;
        PARSE_FAIL(ps, 6, "got end-of-data in the middle of a string");
    }
    if (*p == '"') {
        *direct = start;
        *len = static_cast<size_t>(p - start);
        ps->pos = p + 1;
        return true;
    }
    // Escapes: decode onto the scratch stack.
    *direct = nullptr;
    *off = ps->keys_len;
    for (;;) {
        if (!put(ps, start, static_cast<size_t>(p - start)))
            PARSE_FAIL(ps, 7, "not enough memory for decoded string");
        if (*p == '"') {
            ps->pos = p + 1;
            break;
        }
        ++p;  // the backslash
        if (p == end) {
            ps->pos = p;
            PARSE_FAIL(ps, 6, "got end-of-data after an escaping backslash");
        }
        char c = *p++;
        char out;
        switch (c) {
        case '"': case '\\': case '/': out = c; break;
        case 'b': out = '\b'; break;
        case 'f': out = '\f'; break;
        case 'n': out = '\n'; break;
        case 'r': out = '\r'; break;
        case 't': out = '\t'; break;
        case 'u':
            ps->pos = p;
            if (!decode_unicode(ps)) return false;
            p = ps->pos;
            out = 0;
            break;
        default:
            ps->pos = p;
            PARSE_FAIL(ps, 6, "unexpected escape sequence '\\%c'", c);
        }
        if (out != 0 && !put(ps, &out, 1)) PARSE_FAIL(ps, 7, "not enough memory for decoded string");
        start = p;
        while (p < end && *p != '"' && *p != '\\') ++p;
        if (p == end) {
            ps->pos = p;
            PARSE_FAIL(ps, 6, "got end-of-data in the middle of a string");
        }
    }
    *len = ps->keys_len - *off;
    return true;
}

// A member name onto the scratch stack, NUL-terminated.
bool parse_key(Parser *ps, size_t *off, size_t *len) noexcept {
    const char *direct;
    if (!scan_string(ps, &direct, off, len)) return false;
    if (direct != nullptr) {
        *off = ps->keys_len;
        if (!put(ps, direct, *len)) PARSE_FAIL(ps, 7, "not enough memory for decoded string");
    }
    if (!put(ps, "", 1)) PARSE_FAIL(ps, 7, "not enough memory for decoded string");
    return true;
}

bool parse_value(Parser *ps, qv_json_node **out) noexcept;

bool new_node(Parser *ps, uint32_t type, qv_json_node **out) noexcept {
    qv_json_node *n = node_alloc(ps->doc);
    if (n == nullptr) PARSE_FAIL(ps, 7, "not enough memory for JSON node");
    n->nodetype = type;
    *out = n;
    return true;
}

bool parse_string_value(Parser *ps, qv_json_node **out) noexcept {
    const char *direct;
    size_t off = 0, len;
    if (!scan_string(ps, &direct, &off, &len)) return false;
    const char *src = direct != nullptr ? direct : ps->keys + off;
    if (direct == nullptr) ps->keys_len = off;  // the scratch copy is used up below
    if (len == SIZE_MAX) PARSE_FAIL(ps, 6, "not enough room for string terminator");
    // Short texts share the document's byte chunks; a long one gets its own
    // block so that it never leaves a chunk half used.
    bool pooled = len < kPooledStringMax;
    char *s = static_cast<char *>(pooled ? pool_bytes(ps->doc, len + 1) : qv_malloc(len + 1));
    if (s == nullptr) PARSE_FAIL(ps, 7, "not enough memory for decoded string");
    memcpy(s, src, len);
    s[len] = '\0';
    if (!new_node(ps, QV_JSON_TYPE_STRING, out)) {
        if (!pooled) qv_free(s);
        return false;
    }
    (*out)->u.string = s;
    (*out)->pooled = pooled ? 1 : 0;
    return true;
}

bool parse_number(Parser *ps, qv_json_node **out) noexcept {
    const char *begin = ps->pos;
    const char *p = begin;
    const char *end = ps->end;
    bool negative = *p == '-';
    if (negative) ++p;
    if (end - p >= 2 && p[0] == '0' && p[1] == '0') {
        ps->pos = p;
        PARSE_FAIL(ps, 6, "a number cannot start with two consecutive zeros");
    }
    const char *digits = p;
    bool dot = false;
    for (;;) {
        if (p == end) {
            ps->pos = p;
            PARSE_FAIL(ps, 6, "got end-of-data in the middle of a number");
        }
        char c = *p;
        if (is_digit(c)) {
            ++p;
        } else if (c == '.') {
            if (dot) {
                ps->pos = p;
                PARSE_FAIL(ps, 6, "a number containing two dots not allowed");
            }
            dot = true;
            ++p;
            if (p == end) {
                ps->pos = p;
                PARSE_FAIL(ps, 6, "expected a digit after a dot in a number");
            }
            if (!is_digit(*p)) {
                ps->pos = p;
                PARSE_FAIL(ps, 6, "the next character after a dot must be a digit but was '%c'", *p);
            }
        } else if (is_ws(c) || c == ',' || c == ']' || c == '}') {
            break;
        } else {
            ps->pos = p;
            PARSE_FAIL(ps, 6, "unimplemented '%c'", c);
        }
    }
    ps->pos = p;
    if (!dot) {
        size_t n = static_cast<size_t>(p - digits);
        if (n == 0) PARSE_FAIL(ps, 6, "invalid syntax while parsing a number");
        // Up to 18 digits always fit; 19 may; more never do.
        if (n <= 19) {
            uint64_t v = 0;
            for (const char *d = digits; d < p; ++d) v = v * 10 + static_cast<uint64_t>(*d - '0');
            // 19 digits stay below 2^64, so v itself cannot have wrapped.
            uint64_t limit = negative ? 0x8000000000000000ULL : 0x7fffffffffffffffULL;
            if (v <= limit) {
                if (!new_node(ps, QV_JSON_TYPE_INTEGER, out)) return false;
                (*out)->u.integer = negative ? static_cast<int64_t>(0 - v) : static_cast<int64_t>(v);
                return true;
            }
        }
        // Out of the 64-bit range: the same text as a double.
    }
    double d;
    if (!decimal_to_double(begin, p, &d)) PARSE_FAIL(ps, 6, "invalid syntax while parsing a number");
    if (!new_node(ps, QV_JSON_TYPE_DOUBLE, out)) return false;
    (*out)->u.number = d;
    return true;
}

bool parse_array(Parser *ps, qv_json_node **out) noexcept {
    if (++ps->depth > ps->maxdepth) PARSE_FAIL(ps, 6, "maximum parsing depth %u reached", ps->maxdepth);
    qv_json_node *array;
    if (!new_node(ps, QV_JSON_TYPE_ARRAY, &array)) return false;
    qv_json_node **tail = &array->u.children;
    ++ps->pos;
    skip_ws(ps);
    bool ok = false;
    if (ps->pos == ps->end) {
        QV_LOG(6, "got end-of-data in the middle of an array");
        ps->logged = true;
    } else if (*ps->pos == ']') {
        ++ps->pos;
        ok = true;
    } else {
        for (;;) {
            qv_json_node *element;
            if (!parse_value(ps, &element)) {
                if (!ps->logged) QV_LOG(6, "unable to parse an array element");
                ps->logged = true;
                break;
            }
            *tail = element;
            tail = &element->next;
            skip_ws(ps);
            if (ps->pos == ps->end) {
                QV_LOG(6, "got end-of-data in the middle of an array");
                ps->logged = true;
                break;
            }
            char c = *ps->pos;
            if (c == ']') {
                ++ps->pos;
                ok = true;
                break;
            }
            if (c != ',') {
                QV_LOG(6, "expecting ',' or ']' but got '%c'", c);
                ps->logged = true;
                break;
            }
            ++ps->pos;
            skip_ws(ps);
            if (ps->pos == ps->end) {
                QV_LOG(6, "got end-of-data in the middle of an array");
                ps->logged = true;
                break;
            }
        }
    }
    if (!ok) {
        node_destroy(ps->doc, array);
        return false;
    }
    --ps->depth;
    *out = array;
    return true;
}

bool push_member(Parser *ps, size_t keyoff, size_t keylen, qv_json_node *value) noexcept {
    if (ps->members_len == ps->members_cap) {
        size_t cap = ps->members_cap == 0 ? 64 : ps->members_cap * 2;
        if (cap > SIZE_MAX / sizeof(Member)) return false;
        auto *m = static_cast<Member *>(qv_realloc(ps->members, cap * sizeof(Member)));
        if (m == nullptr) return false;
        ps->members = m;
        ps->members_cap = cap;
    }
    ps->members[ps->members_len] = Member{keyoff, keylen, ps->members_len, value};
    ++ps->members_len;
    return true;
}

// Enters the members collected since base into the object's table; on
// failure the members not entered are destroyed. Either way the members
// stack is back at base.
bool enter_members(Parser *ps, qv_json_node *object, size_t base) noexcept {
    Member *first = ps->members + base;
    Member *last = ps->members + ps->members_len;
    const char *keys = ps->keys;
    size_t count = static_cast<size_t>(last - first);
    if (count > kSortThreshold) {
        std::sort(first, last, [keys](const Member &a, const Member &b) {
            int c = memcmp(keys + a.keyoff, keys + b.keyoff, std::min(a.keylen, b.keylen) + 1);
            return c != 0 ? c < 0 : a.seq < b.seq;
        });
    }
    bool ok = true;
    for (Member *m = first; m < last; ++m) {
        if (!ok) {
            node_destroy(ps->doc, m->value);
            continue;
        }
        // Of a repeated name (adjacent after sorting) only the last counts.
        if (count > kSortThreshold && m + 1 < last && m->keylen == m[1].keylen &&
            memcmp(keys + m->keyoff, keys + m[1].keyoff, m->keylen) == 0) {
            node_destroy(ps->doc, m->value);
            continue;
        }
        // The entry lives in the document's byte chunks: one carve instead
        // of a heap block per member.
        void *space = pool_bytes(ps->doc, qv::stringhash_entry_size(m->keylen));
        if (space != nullptr) {
            qv::stringhash_add_placed(object->u.hash, keys + m->keyoff, m->keylen, m->value, space);
        } else {
            QV_LOG(7, "not enough memory for stringhash item");
            QV_LOG(7, "not enough memory to add a value to the hashtable");
            ps->logged = true;
            node_destroy(ps->doc, m->value);
            ok = false;
        }
    }
    ps->members_len = base;
    return ok;
}

bool parse_object(Parser *ps, qv_json_node **out) noexcept {
    if (++ps->depth > ps->maxdepth) PARSE_FAIL(ps, 6, "maximum parsing depth %u reached", ps->maxdepth);
    qv_json_node *object;
    if (!new_node(ps, QV_JSON_TYPE_NONE, &object)) return false;
    object->u.hash = member_table_create(ps->doc);
    if (object->u.hash == nullptr) {
        node_destroy(ps->doc, object);
        PARSE_FAIL(ps, 7, "not enough memory for hashtable");
    }
    object->nodetype = QV_JSON_TYPE_OBJECT;
    size_t base = ps->members_len;
    size_t keys_base = ps->keys_len;
    ++ps->pos;
    skip_ws(ps);
    bool ok = false;
    const char *error = nullptr;  // a message without arguments, set on failure
    if (ps->pos == ps->end) {
        error = "got end-of-data in the middle of an object";
    } else if (*ps->pos == '}') {
        ++ps->pos;
        ok = true;
    } else if (*ps->pos != '"') {
        QV_LOG(6, "unexpected character '%c', expecting a string or '}'", *ps->pos);
        ps->logged = true;
    } else {
        for (;;) {
            size_t keyoff, keylen;
            if (!parse_key(ps, &keyoff, &keylen)) break;
            skip_ws(ps);
            if (ps->pos == ps->end) {
                error = "got end-of-data in an object when expecting a colon";
                break;
            }
            if (*ps->pos != ':') {
                QV_LOG(6, "expecting a colon, got '%c'", *ps->pos);
                ps->logged = true;
                break;
            }
            ++ps->pos;
            skip_ws(ps);
            if (ps->pos == ps->end) {
                error = "got end-of-data in an object when expecting a value for a key";
                break;
            }
            qv_json_node *value;
            if (!parse_value(ps, &value)) {
                if (!ps->logged) error = "unable to parse a value for a key";
                break;
            }
            if (!push_member(ps, keyoff, keylen, value)) {
                node_destroy(ps->doc, value);
                QV_LOG(7, "not enough memory to add a value to the hashtable");
                ps->logged = true;
                break;
            }
            skip_ws(ps);
            if (ps->pos == ps->end) {
                error = "got end-of-data in the middle of an object";
                break;
            }
            char c = *ps->pos;
            if (c == '}') {
                ++ps->pos;
                ok = true;
                break;
            }
            if (c != ',') {
                QV_LOG(6, "expecting ',' or '}' but got '%c'", c);
                ps->logged = true;
                break;
            }
            ++ps->pos;
            skip_ws(ps);
            if (ps->pos == ps->end) {
                error = "got end-of-data in the middle of an object";
                break;
            }
            if (*ps->pos != '"') {
                error = "expecting a string for a key";
                break;
            }
        }
    }
    if (error != nullptr) {
        QV_LOG(6, "%s", error);
        ps->logged = true;
    }
    if (ok) {
        ok = enter_members(ps, object, base);
    } else {
        for (size_t i = base; i < ps->members_len; ++i) node_destroy(ps->doc, ps->members[i].value);
        ps->members_len = base;
    }
    ps->keys_len = keys_base;
    if (!ok) {
        node_destroy(ps->doc, object);
        return false;
    }
    --ps->depth;
    *out = object;
    return true;
}

bool parse_keyword(Parser *ps, const char *word, size_t n, uint32_t type, qv_json_node **out) noexcept {
    if (static_cast<size_t>(ps->end - ps->pos) < n || memcmp(ps->pos, word, n) != 0) return false;
    ps->pos += n;
    return new_node(ps, type, out);
}

// One value at ps->pos (not white space, not the end). Returns false without
// logging for a byte that starts no value or a misspelt keyword: the
// container reports those in its own terms.
bool parse_value(Parser *ps, qv_json_node **out) noexcept {
    char c = *ps->pos;
    switch (c) {
    case '{': return parse_object(ps, out);
    case '[': return parse_array(ps, out);
    case '"': return parse_string_value(ps, out);
    case 't': return parse_keyword(ps, "true", 4, QV_JSON_TYPE_TRUE, out);
    case 'f': return parse_keyword(ps, "false", 5, QV_JSON_TYPE_FALSE, out);
    case 'n': return parse_keyword(ps, "null", 4, QV_JSON_TYPE_NULL, out);
    default:
        if (c == '-' || is_digit(c)) return parse_number(ps, out);
        return false;
    }
}

bool parse_document(Parser *ps) noexcept {
    skip_ws(ps);
    if (ps->pos == ps->end) PARSE_FAIL(ps, 6, "expecting JSON but got an empty string");
    char c = *ps->pos;
    if (c != '{' && c != '[') PARSE_FAIL(ps, 6, "expecting '{' or '[' but got '%c'", c);
    qv_json_node *root;
    if (!parse_value(ps, &root)) return false;
    skip_ws(ps);
    if (ps->pos != ps->end) {
        node_destroy(ps->doc, root);
        PARSE_FAIL(ps, 6, "expected end-of-data but got '%c'", *ps->pos);
    }
    ps->doc->root = root;
    return true;
}

}  // namespace

extern "C" QV_API int qv_json_parse(qv_json *qvjson, const char *text) noexcept {
    QV_ASSERT(qvjson != NULL);
    QV_ASSERT(text != NULL);
    drop_root(qvjson);
    auto *ps = static_cast<Parser *>(qv_cmalloc(sizeof(Parser)));
    if (ps == nullptr) {
        QV_LOG(7, "not enough memory for JSON parser context");
        return -1;
    }
    ps->doc = qvjson;
    ps->text = text;
    ps->length = strlen(text);
    ps->maxdepth = kMaxDepth;
    ps->pos = text;
    ps->end = text + ps->length;
    bool ok = parse_document(ps);
    qv_free(ps->keys);
    qv_free(ps->members);
    qv_free(ps);
    if (!ok) {
        drop_root(qvjson);
        return -1;
    }
    return 0;
}
