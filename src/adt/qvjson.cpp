// JSON documents: a tree of nodes owned by one qv_json. Objects keep their
// members in a qv_stringhash (member name -> value node) whose value destroy
// callback destroys the value subtree; arrays are singly linked lists of
// elements. Nodes come from the document's own pool (see qvjson_impl.h), so
// every node of a tree belongs to exactly one document and is destroyed
// through it. Typed access walks a path of member names and "#" indexes.
//
// Invariants: the root, and everything reachable from it, are live pool
// nodes; a node of type OBJECT always has a member table; a STRING node
// always owns a NUL-terminated copy. No locking: one thread per document.
#include <cstdarg>
#include <cstring>

#include "adt/qvjson_impl.h"
#include "platform/qvplat_number.h"

namespace qv::json {

namespace {

// First chunk small (small documents stay small), later ones larger so that
// a big document needs few blocks.
constexpr size_t kFirstChunkNodes = 16;
constexpr size_t kMaxChunkNodes = 1024;
constexpr size_t kFirstByteChunk = 1024;
constexpr size_t kMaxByteChunk = 16 * 1024;

void member_destroy(void *value, void *context) noexcept {
    node_destroy(static_cast<qv_json *>(context), static_cast<qv_json_node *>(value));
}

}  // namespace

qv_json_node *node_alloc(qv_json *doc) noexcept {
    Pool &pool = doc->pool;
    qv_json_node *n = pool.freelist;
    if (n != nullptr) {
        pool.freelist = n->next;
    } else {
        if (pool.carve == pool.carve_end) {
            size_t count = pool.chunks == nullptr ? kFirstChunkNodes : pool.chunks->count * 2;
            if (count > kMaxChunkNodes) count = kMaxChunkNodes;
            auto *chunk = static_cast<NodeChunk *>(
                qv_malloc(offsetof(NodeChunk, nodes) + count * sizeof(qv_json_node)));
            if (chunk == nullptr) return nullptr;
            chunk->next = pool.chunks;
            chunk->count = count;
            pool.chunks = chunk;
            pool.carve = chunk->nodes;
            pool.carve_end = chunk->nodes + count;
        }
        n = pool.carve++;
    }
    ++pool.live;
    n->next = nullptr;
    n->u.children = nullptr;
    n->nodetype = QV_JSON_TYPE_NONE;
    n->pooled = 0;
    return n;
}

void *pool_bytes(qv_json *doc, size_t n) noexcept {
    Pool &pool = doc->pool;
    n = (n + 7) & ~static_cast<size_t>(7);
    if (static_cast<size_t>(pool.bytes_end - pool.bytes) < n) {
        size_t size = pool.bytechunks == nullptr ? kFirstByteChunk : pool.bytechunks->size * 2;
        if (size > kMaxByteChunk) size = kMaxByteChunk;
        if (size < n) size = n;
        auto *chunk = static_cast<ByteChunk *>(qv_malloc(sizeof(ByteChunk) + size));
        if (chunk == nullptr) return nullptr;
        chunk->next = pool.bytechunks;
        chunk->size = size;
        pool.bytechunks = chunk;
        pool.bytes = reinterpret_cast<char *>(chunk + 1);
        pool.bytes_end = pool.bytes + size;
    }
    void *p = pool.bytes;
    pool.bytes += n;
    return p;
}

void node_clear(qv_json *doc, qv_json_node *node) noexcept {
    switch (node->nodetype) {
    case QV_JSON_TYPE_OBJECT:
        qv_stringhash_destroy(node->u.hash);
        break;
    case QV_JSON_TYPE_ARRAY: {
        qv_json_node *c = node->u.children;
        while (c != nullptr) {
            qv_json_node *next = c->next;
            node_destroy(doc, c);
            c = next;
        }
        break;
    }
    case QV_JSON_TYPE_STRING:
        if (node->pooled == 0) qv_free(node->u.string);
        break;
    default:
        break;
    }
    node->u.children = nullptr;
    node->nodetype = QV_JSON_TYPE_NONE;
    node->pooled = 0;
}

// Subtrees are released from a work list rather than by recursion: a tree
// built through the API can be nested far deeper than any stack allows.
// Clearing a node hands its elements and member values back here, and they
// join the list instead of being released in a nested call.
void node_destroy(qv_json *doc, qv_json_node *node) noexcept {
    Pool &pool = doc->pool;
    node->next = pool.dying;
    pool.dying = node;
    if (pool.draining) return;
    pool.draining = true;
    while (qv_json_node *n = pool.dying) {
        pool.dying = n->next;
        node_clear(doc, n);
        n->next = pool.freelist;
        pool.freelist = n;
        QV_ASSERT(pool.live > 0);
        --pool.live;
    }
    pool.draining = false;
}

void drop_root(qv_json *doc) noexcept {
    if (doc->root != nullptr) {
        node_destroy(doc, doc->root);
        doc->root = nullptr;
    }
    // Every node hangs below the root, so the pool is empty now: give its
    // memory back rather than keep a large document's chunks around.
    Pool &pool = doc->pool;
    QV_ASSERT(pool.live == 0);
    NodeChunk *c = pool.chunks;
    while (c != nullptr) {
        NodeChunk *next = c->next;
        qv_free(c);
        c = next;
    }
    ByteChunk *b = pool.bytechunks;
    while (b != nullptr) {
        ByteChunk *next = b->next;
        qv_free(b);
        b = next;
    }
    pool = Pool{};
}

qv_stringhash *member_table_create(qv_json *doc) noexcept {
    return qv_stringhash_create(member_destroy, doc);
}

}  // namespace qv::json

using namespace qv::json;

namespace {

const char *type_name(uint32_t type) noexcept {
    static const char *const names[] = {"none",   "object", "array", "string", "number",
                                        "number", "true",   "false", "null"};
    return type < QV_JSON_TYPE_COUNT ? names[type] : "unknown";
}

// The node a setter works on: node itself, the existing root, or a new root
// (*created is then set; the caller releases it on a later failure).
qv_json_node *setter_target(qv_json *doc, qv_json_node *node, bool *created) noexcept {
    *created = false;
    if (node != nullptr) return node;
    if (doc->root != nullptr) return doc->root;
    qv_json_node *n = node_alloc(doc);
    if (n == nullptr) {
        QV_LOG(7, "not enough memory for JSON node");
        return nullptr;
    }
    *created = true;
    return n;
}

// Retypes a node to a payload-free type (numbers, keywords, after the payload
// has been prepared by the caller).
int set_simple(qv_json *doc, qv_json_node *node, uint32_t type) noexcept {
    bool created;
    qv_json_node *n = setter_target(doc, node, &created);
    if (n == nullptr) return QV_ERROR_NO_MEMORY;
    node_clear(doc, n);
    n->nodetype = type;
    if (created) doc->root = n;
    return QV_ERROR_NONE;
}

}  // namespace

extern "C" {

QV_API qv_json *qv_json_create(void) noexcept {
    auto *doc = static_cast<qv_json *>(qv_malloc(sizeof(qv_json)));
    if (doc == nullptr) {
        QV_LOG(7, "not enough memory for qvjson context");
        return nullptr;
    }
    ::new (doc) qv_json{nullptr, Pool{}};
    return doc;
}

QV_API void qv_json_destroy(qv_json *qvjson) noexcept {
    QV_ASSERT(qvjson != NULL);
    drop_root(qvjson);
    qv_free(qvjson);
}

QV_API int qv_json_node_set_object(qv_json *qvjson, qv_json_node *node) noexcept {
    QV_ASSERT(qvjson != NULL);
    bool created;
    qv_json_node *n = setter_target(qvjson, node, &created);
    if (n == nullptr) return QV_ERROR_NO_MEMORY;
    qv_stringhash *hash = member_table_create(qvjson);
    if (hash == nullptr) {
        QV_LOG(7, "not enough memory for hashtable");
        if (created) node_destroy(qvjson, n);
        return QV_ERROR_NO_MEMORY;
    }
    node_clear(qvjson, n);
    n->nodetype = QV_JSON_TYPE_OBJECT;
    n->u.hash = hash;
    if (created) qvjson->root = n;
    return QV_ERROR_NONE;
}

QV_API int qv_json_node_set_array(qv_json *qvjson, qv_json_node *node) noexcept {
    QV_ASSERT(qvjson != NULL);
    return set_simple(qvjson, node, QV_JSON_TYPE_ARRAY);
}

QV_API int qv_json_node_set_double(qv_json *qvjson, qv_json_node *node, double value) noexcept {
    QV_ASSERT(qvjson != NULL);
    bool created;
    qv_json_node *n = setter_target(qvjson, node, &created);
    if (n == nullptr) return QV_ERROR_NO_MEMORY;
    node_clear(qvjson, n);
    n->nodetype = QV_JSON_TYPE_DOUBLE;
    n->u.number = value;
    if (created) qvjson->root = n;
    return QV_ERROR_NONE;
}

QV_API int qv_json_node_set_integer(qv_json *qvjson, qv_json_node *node, int64_t value) noexcept {
    QV_ASSERT(qvjson != NULL);
    bool created;
    qv_json_node *n = setter_target(qvjson, node, &created);
    if (n == nullptr) return QV_ERROR_NO_MEMORY;
    node_clear(qvjson, n);
    n->nodetype = QV_JSON_TYPE_INTEGER;
    n->u.integer = value;
    if (created) qvjson->root = n;
    return QV_ERROR_NONE;
}

QV_API int qv_json_node_set_string(qv_json *qvjson, qv_json_node *node, const char *value) noexcept {
    QV_ASSERT(qvjson != NULL);
    QV_ASSERT(value != NULL);
    // Copy first: value may point into the node being overwritten.
    char *copy = qv_strdup(value);
    if (copy == nullptr) {
        QV_LOG(7, "not enough memory for a string");
        return QV_ERROR_NO_MEMORY;
    }
    bool created;
    qv_json_node *n = setter_target(qvjson, node, &created);
    if (n == nullptr) {
        qv_free(copy);
        return QV_ERROR_NO_MEMORY;
    }
    node_clear(qvjson, n);
    n->nodetype = QV_JSON_TYPE_STRING;
    n->u.string = copy;
    if (created) qvjson->root = n;
    return QV_ERROR_NONE;
}

QV_API int qv_json_node_set_true(qv_json *qvjson, qv_json_node *node) noexcept {
    QV_ASSERT(qvjson != NULL);
    return set_simple(qvjson, node, QV_JSON_TYPE_TRUE);
}

QV_API int qv_json_node_set_false(qv_json *qvjson, qv_json_node *node) noexcept {
    QV_ASSERT(qvjson != NULL);
    return set_simple(qvjson, node, QV_JSON_TYPE_FALSE);
}

QV_API int qv_json_node_set_null(qv_json *qvjson, qv_json_node *node) noexcept {
    QV_ASSERT(qvjson != NULL);
    return set_simple(qvjson, node, QV_JSON_TYPE_NULL);
}

QV_API qv_json_node *qv_json_node_array_add(qv_json *qvjson, qv_json_node *arraynode) noexcept {
    QV_ASSERT(qvjson != NULL);
    QV_ASSERT(arraynode != NULL);
    if (arraynode->nodetype != QV_JSON_TYPE_ARRAY) {
        QV_LOG(6, "node is not an array");
        return nullptr;
    }
    qv_json_node *n = node_alloc(qvjson);
    if (n == nullptr) {
        QV_LOG(7, "not enough memory for JSON node");
        QV_LOG(7, "not enough memory for a JSON node");
        return nullptr;
    }
    n->nodetype = QV_JSON_TYPE_NULL;
    qv_json_node **link = &arraynode->u.children;
    while (*link != nullptr) link = &(*link)->next;
    *link = n;
    return n;
}

QV_API qv_json_node *qv_json_node_object_add(qv_json *qvjson, qv_json_node *objectnode,
                                             const char *key) noexcept {
    QV_ASSERT(qvjson != NULL);
    QV_ASSERT(objectnode != NULL);
    QV_ASSERT(key != NULL);
    if (objectnode->nodetype != QV_JSON_TYPE_OBJECT) {
        QV_LOG(6, "node is not an object");
        return nullptr;
    }
    qv_json_node *n = node_alloc(qvjson);
    if (n == nullptr) {
        QV_LOG(7, "not enough memory for JSON node");
        QV_LOG(7, "not enough memory for object value node");
        return nullptr;
    }
    n->nodetype = QV_JSON_TYPE_NULL;
    if (qv_stringhash_add(objectnode->u.hash, key, n) != 0) {
        QV_LOG(7, "not enough memory to add a value to the hashtable");
        node_destroy(qvjson, n);
        return nullptr;
    }
    return n;
}

// Type tests.
#define QV_JSON_TYPE_TEST(name, expr)                                              \
    QV_API int name(qv_json *qvjson, const qv_json_node *node) noexcept {          \
        QV_ASSERT(qvjson != NULL);                                                 \
        QV_ASSERT(node != NULL);                                                   \
        uint32_t t = node->nodetype;                                               \
        return (expr) ? 1 : 0;                                                     \
    }
QV_JSON_TYPE_TEST(qv_json_is_null, t == QV_JSON_TYPE_NULL)
QV_JSON_TYPE_TEST(qv_json_is_false, t == QV_JSON_TYPE_FALSE)
QV_JSON_TYPE_TEST(qv_json_is_true, t == QV_JSON_TYPE_TRUE)
QV_JSON_TYPE_TEST(qv_json_is_boolean, t == QV_JSON_TYPE_TRUE || t == QV_JSON_TYPE_FALSE)
QV_JSON_TYPE_TEST(qv_json_is_double, t == QV_JSON_TYPE_DOUBLE)
QV_JSON_TYPE_TEST(qv_json_is_integer, t == QV_JSON_TYPE_INTEGER)
QV_JSON_TYPE_TEST(qv_json_is_number, t == QV_JSON_TYPE_INTEGER || t == QV_JSON_TYPE_DOUBLE)
QV_JSON_TYPE_TEST(qv_json_is_string, t == QV_JSON_TYPE_STRING)
QV_JSON_TYPE_TEST(qv_json_is_array, t == QV_JSON_TYPE_ARRAY)
QV_JSON_TYPE_TEST(qv_json_is_object, t == QV_JSON_TYPE_OBJECT)
#undef QV_JSON_TYPE_TEST

}  // extern "C"

// ---------------------------------------------------------------------------
// Path walk and typed fetches

namespace {

// Follows the path in ap from start; null (logged) when it leads nowhere.
qv_json_node *walk(const qv_json_node *start, va_list ap) noexcept {
    if (start == nullptr) {
        QV_LOG(6, "no JSON parsed");
        return nullptr;
    }
    auto *node = const_cast<qv_json_node *>(start);
    for (;;) {
        const char *name = va_arg(ap, const char *);
        if (name == nullptr) return node;
        if (name[0] == '#' && name[1] == '\0') {
            unsigned index = va_arg(ap, unsigned);
            if (node->nodetype != QV_JSON_TYPE_ARRAY) {
                QV_LOG(6, "trying to access array but the node type is %s", type_name(node->nodetype));
                return nullptr;
            }
            qv_json_node *e = node->u.children;
            if (e == nullptr) {
                QV_LOG(6, "trying to access an empty array, looking for index %lu",
                       static_cast<unsigned long>(index));
                return nullptr;
            }
            unsigned at = 0;
            while (at < index && e->next != nullptr) {
                e = e->next;
                ++at;
            }
            if (at < index) {
                QV_LOG(6, "trying to access array beyond the end at index %lu, looking for index %lu",
                       static_cast<unsigned long>(at), static_cast<unsigned long>(index));
                return nullptr;
            }
            node = e;
        } else {
            if (node->nodetype != QV_JSON_TYPE_OBJECT) {
                QV_LOG(6, "trying to access object but the node type is %s", type_name(node->nodetype));
                return nullptr;
            }
            auto *value = static_cast<qv_json_node *>(qv_stringhash_lookup(node->u.hash, name));
            if (value == nullptr) {
                QV_LOG(6, "did not find node named '%s' under an object", name);
                return nullptr;
            }
            node = value;
        }
    }
}

void wrong_type(const qv_json_node *n, const char *wanted) noexcept {
    QV_LOG(6, "cannot fetch %s from a node of type %s", wanted, type_name(n->nodetype));
}

int convert_null(const qv_json_node *n, int *out) noexcept {
    *out = n->nodetype == QV_JSON_TYPE_NULL ? 1 : 0;
    return 0;
}

int convert_boolean(const qv_json_node *n, int *out) noexcept {
    if (n->nodetype == QV_JSON_TYPE_TRUE || n->nodetype == QV_JSON_TYPE_FALSE) {
        *out = n->nodetype == QV_JSON_TYPE_TRUE ? 1 : 0;
        return 0;
    }
    wrong_type(n, "a boolean");
    return -1;
}

// A STRING node's text as a double: leading white space, sign, decimal or
// exponent form, trailing text ignored; fails when nothing converts.
bool string_to_double(const qv_json_node *n, double *out) noexcept {
    char *end = nullptr;
    double d = qv::plat::strtod_c(n->u.string, &end);
    if (end == n->u.string) {
        QV_LOG(6, "unable to convert the string '%s' to a number", n->u.string);
        return false;
    }
    *out = d;
    return true;
}

int convert_double(const qv_json_node *n, double *out) noexcept {
    switch (n->nodetype) {
    case QV_JSON_TYPE_STRING:
        return string_to_double(n, out) ? 0 : -1;
    case QV_JSON_TYPE_INTEGER:
    case QV_JSON_TYPE_DOUBLE:
        *out = number_double(n);
        return 0;
    case QV_JSON_TYPE_TRUE:
        *out = 1.0;
        return 0;
    case QV_JSON_TYPE_FALSE:
        *out = 0.0;
        return 0;
    default:
        wrong_type(n, "a double");
        return -1;
    }
}

int convert_int64(const qv_json_node *n, int64_t *out) noexcept {
    switch (n->nodetype) {
    case QV_JSON_TYPE_STRING: {
        double d;
        if (!string_to_double(n, &d)) return -1;
        *out = qv_convert_i64_from_double_round(d);  // half away from zero
        return 0;
    }
    case QV_JSON_TYPE_INTEGER:
    case QV_JSON_TYPE_DOUBLE:
        *out = number_integer(n);
        return 0;
    case QV_JSON_TYPE_TRUE:
        *out = 1;
        return 0;
    case QV_JSON_TYPE_FALSE:
        *out = 0;
        return 0;
    default:
        wrong_type(n, "an integer");
        return -1;
    }
}

int convert_int(const qv_json_node *n, int *out) noexcept {
    int64_t v;
    if (convert_int64(n, &v) != 0) return -1;
    if (v < INT32_MIN || v > INT32_MAX) {
        QV_LOG(6, "value too long to fit in an int variable");
        return -1;
    }
    *out = static_cast<int>(v);
    return 0;
}

int convert_string(const qv_json_node *n, const char **out) noexcept {
    if (n->nodetype != QV_JSON_TYPE_STRING) {
        wrong_type(n, "a string");
        return -1;
    }
    *out = n->u.string;
    return 0;
}

}  // namespace

// Each fetch: preset the out value, walk, convert.
#define QV_JSON_FETCH_BODY(start, outptr, zero, convert)        \
    QV_ASSERT(qvjson != NULL);                                  \
    QV_ASSERT(outptr != NULL);                                  \
    *outptr = zero;                                             \
    va_list ap;                                                 \
    va_start(ap, outptr);                                       \
    qv_json_node *n = walk(start, ap);                          \
    va_end(ap);                                                 \
    if (n == nullptr) return -1;                                \
    if (convert != 0) {                                         \
        *outptr = zero;                                         \
        return -1;                                              \
    }                                                           \
    return 0;

extern "C" {

QV_API int qv_json_fetch_null(qv_json *qvjson, int *valueptr, ...) noexcept {
    QV_JSON_FETCH_BODY(qvjson->root, valueptr, 0, convert_null(n, valueptr))
}
QV_API int qv_json_fetch_boolean(qv_json *qvjson, int *valueptr, ...) noexcept {
    QV_JSON_FETCH_BODY(qvjson->root, valueptr, 0, convert_boolean(n, valueptr))
}
QV_API int qv_json_fetch_double(qv_json *qvjson, double *valueptr, ...) noexcept {
    QV_JSON_FETCH_BODY(qvjson->root, valueptr, 0.0, convert_double(n, valueptr))
}
QV_API int qv_json_fetch_int64(qv_json *qvjson, int64_t *valueptr, ...) noexcept {
    QV_JSON_FETCH_BODY(qvjson->root, valueptr, 0, convert_int64(n, valueptr))
}
QV_API int qv_json_fetch_int(qv_json *qvjson, int *valueptr, ...) noexcept {
    QV_JSON_FETCH_BODY(qvjson->root, valueptr, 0, convert_int(n, valueptr))
}
QV_API int qv_json_fetch_string(qv_json *qvjson, const char **valueptr, ...) noexcept {
    QV_JSON_FETCH_BODY(qvjson->root, valueptr, nullptr, convert_string(n, valueptr))
}
QV_API int qv_json_fetch_node(qv_json *qvjson, qv_json_node **nodeptr, ...) noexcept {
    QV_JSON_FETCH_BODY(qvjson->root, nodeptr, nullptr, (*nodeptr = n, 0))
}
QV_API int qv_json_fetch_node_const(qv_json *qvjson, const qv_json_node **nodeptr, ...) noexcept {
    QV_JSON_FETCH_BODY(qvjson->root, nodeptr, nullptr, (*nodeptr = n, 0))
}
QV_API int qv_json_node_fetch_double(qv_json *qvjson, const qv_json_node *node, double *valueptr,
                                     ...) noexcept {
    QV_ASSERT(node != NULL);
    QV_JSON_FETCH_BODY(node, valueptr, 0.0, convert_double(n, valueptr))
}
QV_API int qv_json_node_fetch_int64(qv_json *qvjson, const qv_json_node *node, int64_t *valueptr,
                                    ...) noexcept {
    QV_ASSERT(node != NULL);
    QV_JSON_FETCH_BODY(node, valueptr, 0, convert_int64(n, valueptr))
}
QV_API int qv_json_node_fetch_int(qv_json *qvjson, const qv_json_node *node, int *valueptr, ...) noexcept {
    QV_ASSERT(node != NULL);
    QV_JSON_FETCH_BODY(node, valueptr, 0, convert_int(n, valueptr))
}
QV_API int qv_json_node_fetch_string(qv_json *qvjson, const qv_json_node *node, const char **valueptr,
                                     ...) noexcept {
    QV_ASSERT(node != NULL);
    QV_JSON_FETCH_BODY(node, valueptr, nullptr, convert_string(n, valueptr))
}
QV_API int qv_json_node_fetch_node(qv_json *qvjson, qv_json_node *node, qv_json_node **nodeptr,
                                   ...) noexcept {
    QV_ASSERT(node != NULL);
    QV_JSON_FETCH_BODY(node, nodeptr, nullptr, (*nodeptr = n, 0))
}
QV_API int qv_json_node_fetch_node_const(qv_json *qvjson, const qv_json_node *node,
                                         const qv_json_node **nodeptr, ...) noexcept {
    QV_ASSERT(node != NULL);
    QV_JSON_FETCH_BODY(node, nodeptr, nullptr, (*nodeptr = n, 0))
}
#undef QV_JSON_FETCH_BODY

QV_API qv_json_node *qv_json_node_fetch_next(qv_json *qvjson, qv_json_node *node) noexcept {
    QV_ASSERT(qvjson != NULL);
    QV_ASSERT(node != NULL);
    return node->next;
}

QV_API const qv_json_node *qv_json_node_fetch_next_const(qv_json *qvjson,
                                                         const qv_json_node *node) noexcept {
    QV_ASSERT(qvjson != NULL);
    QV_ASSERT(node != NULL);
    return node->next;
}

// ---------------------------------------------------------------------------
// Enumeration

static void *enumerate_result(void *position, const char *k, void *v, const char **key,
                              qv_json_node **value) noexcept {
    if (key != nullptr) *key = k;
    if (value != nullptr) *value = static_cast<qv_json_node *>(v);
    return position;
}

QV_API void *qv_json_enumerate_start(qv_json *qvjson, qv_json_node *objectnode, const char **key,
                                     qv_json_node **value) noexcept {
    QV_ASSERT(qvjson != NULL);
    QV_ASSERT(objectnode != NULL);
    if (objectnode->nodetype != QV_JSON_TYPE_OBJECT) {
        QV_LOG(6, "node is not an object");
        return enumerate_result(nullptr, nullptr, nullptr, key, value);
    }
    const char *k = nullptr;
    void *v = nullptr;
    void *pos = qv_stringhash_enumerate_start(objectnode->u.hash, &k, &v);
    return enumerate_result(pos, k, v, key, value);
}

QV_API void *qv_json_enumerate_next(qv_json *qvjson, qv_json_node *objectnode, void *position,
                                    const char **key, qv_json_node **value) noexcept {
    QV_ASSERT(qvjson != NULL);
    QV_ASSERT(objectnode != NULL);
    QV_ASSERT(position != NULL);
    if (objectnode->nodetype != QV_JSON_TYPE_OBJECT) {
        QV_LOG(6, "node is not an object");
        return enumerate_result(nullptr, nullptr, nullptr, key, value);
    }
    const char *k = nullptr;
    void *v = nullptr;
    void *pos = qv_stringhash_enumerate_next(objectnode->u.hash, position, &k, &v);
    return enumerate_result(pos, k, v, key, value);
}

}  // extern "C"

// ---------------------------------------------------------------------------
// Deep copies

namespace {

// A new node of doc holding src's type and scalar value; an object gets an
// empty member table, an array no elements yet. Null with *err set (and the
// cause logged) on failure.
qv_json_node *copy_shallow(qv_json *doc, const qv_json_node *src, int *err) noexcept {
    qv_json_node *n = node_alloc(doc);
    if (n == nullptr) {
        QV_LOG(7, "not enough memory for JSON node");
        *err = QV_ERROR_NO_MEMORY;
        return nullptr;
    }
    switch (src->nodetype) {
    case QV_JSON_TYPE_STRING:
        n->u.string = qv_strdup(src->u.string);
        if (n->u.string == nullptr) {
            *err = QV_ERROR_NO_MEMORY;
            QV_LOG(7, "unable to copy a string node, error %d (%s)", *err, qv_error_string(*err));
            node_destroy(doc, n);
            return nullptr;
        }
        break;
    case QV_JSON_TYPE_OBJECT:
        n->u.hash = member_table_create(doc);
        if (n->u.hash == nullptr) {
            QV_LOG(7, "not enough memory for hashtable");
            *err = QV_ERROR_NO_MEMORY;
            node_destroy(doc, n);
            return nullptr;
        }
        break;
    default:
        n->u = src->u;  // numbers; an array's elements are copied later
        if (src->nodetype == QV_JSON_TYPE_ARRAY) n->u.children = nullptr;
        break;
    }
    n->nodetype = src->nodetype;
    return n;
}

inline bool is_container(const qv_json_node *n) noexcept {
    return n->nodetype == QV_JSON_TYPE_OBJECT || n->nodetype == QV_JSON_TYPE_ARRAY;
}

// One container being copied: its source, the copy being filled, where the
// source walk stands, and for an object the key of the member whose value
// is being copied one level up.
struct CopyFrame {
    const qv_json_node *src;
    qv_json_node *dest;
    qv_json_node **tail;         // array: where the next element goes
    const qv_json_node *element; // array: the element copied last, or null
    void *position;              // object: the member copied last, or null
    const char *key;             // object: the key of that member
};

// Appends the finished copy n to the container of frame f; 0 or an error.
int attach(qv_json *doc, CopyFrame &f, qv_json_node *n) noexcept {
    if (f.src->nodetype == QV_JSON_TYPE_ARRAY) {
        *f.tail = n;
        f.tail = &n->next;
        return QV_ERROR_NONE;
    }
    if (qv_stringhash_add(f.dest->u.hash, f.key, n) != 0) {
        node_destroy(doc, n);
        return QV_ERROR_NO_MEMORY;
    }
    return QV_ERROR_NONE;
}

// Deep copy of src's elements or members (src an object or array) into dest,
// a container of the same type: array elements are appended, members added
// (replacing members of the same name). Depth first with its own stack, so
// any depth works. A member or element is added only once its whole subtree
// is copied; on failure the copies made so far at the top level stay, the
// unfinished one is dropped, and each level logs on the way out.
int copy_children(qv_json *doc, qv_json_node *dest, const qv_json_node *src) noexcept {
    WalkStack<CopyFrame> stack;
    auto frame_for = [](const qv_json_node *s, qv_json_node *d) {
        CopyFrame f{s, d, nullptr, nullptr, nullptr, nullptr};
        if (s->nodetype == QV_JSON_TYPE_ARRAY) {
            f.tail = &d->u.children;
            while (*f.tail != nullptr) f.tail = &(*f.tail)->next;
        }
        return f;
    };
    // The bottom frame fits in the stack's own storage: this cannot fail.
    (void)stack.push(frame_for(src, dest));
    int err = QV_ERROR_NONE;
    while (err == QV_ERROR_NONE) {
        CopyFrame &f = stack.top();
        const qv_json_node *child;
        if (f.src->nodetype == QV_JSON_TYPE_ARRAY) {
            f.element = f.element == nullptr ? f.src->u.children : f.element->next;
            child = f.element;
        } else {
            void *value = nullptr;
            f.position = f.position == nullptr
                             ? qv_stringhash_enumerate_start(f.src->u.hash, &f.key, &value)
                             : qv_stringhash_enumerate_next(f.src->u.hash, f.position, &f.key, &value);
            child = f.position != nullptr ? static_cast<const qv_json_node *>(value) : nullptr;
        }
        if (child == nullptr) {
            // This container is complete: it joins the one it belongs to.
            qv_json_node *done = f.dest;
            stack.pop();
            if (stack.empty()) return QV_ERROR_NONE;
            err = attach(doc, stack.top(), done);
            continue;
        }
        qv_json_node *n = copy_shallow(doc, child, &err);
        if (n == nullptr) break;
        if (!is_container(child)) {
            err = attach(doc, f, n);
        } else if (!stack.push(frame_for(child, n))) {
            node_destroy(doc, n);
            err = QV_ERROR_NO_MEMORY;
        }
    }
    // Unwind: every level reports, and every unfinished copy is dropped.
    while (!stack.empty()) {
        CopyFrame &f = stack.top();
        if (f.src->nodetype == QV_JSON_TYPE_ARRAY) {
            if (err == QV_ERROR_NO_MEMORY) QV_LOG(7, "not enough memory to copy a node to an array");
        } else {
            QV_LOG(7, "unable to copy a node, error %d (%s)", err, qv_error_string(err));
        }
        qv_json_node *unfinished = f.dest;
        stack.pop();
        if (!stack.empty()) node_destroy(doc, unfinished);
    }
    return err;
}

// A new node of doc holding a deep copy of src; null with *err set on failure.
qv_json_node *copy_value(qv_json *doc, const qv_json_node *src, int *err) noexcept {
    qv_json_node *n = copy_shallow(doc, src, err);
    if (n == nullptr || !is_container(src)) return n;
    int rc = copy_children(doc, n, src);
    if (rc != 0) {
        *err = rc;
        node_destroy(doc, n);
        return nullptr;
    }
    return n;
}

int copy_node(qv_json *doc, qv_json_node *dest, qv_json *source, const qv_json_node *sourcenode) noexcept {
    const qv_json_node *src = sourcenode;
    QV_ASSERT(sourcenode->nodetype == QV_JSON_TYPE_OBJECT || sourcenode->nodetype == QV_JSON_TYPE_ARRAY);
    if (dest->nodetype != src->nodetype) {
        QV_LOG(6, "the node types do not match");
        return QV_ERROR_INVALID_ARGUMENT;
    }
    if (source != doc) return copy_children(doc, dest, src);
    // Within one document the source may be the destination or hold it, and
    // merging would then read what it writes: take a snapshot first.
    qv_json *snapshot = qv_json_create();
    if (snapshot == nullptr) return QV_ERROR_NO_MEMORY;
    int err = QV_ERROR_NONE;
    snapshot->root = copy_value(snapshot, src, &err);
    if (snapshot->root != nullptr) err = copy_children(doc, dest, snapshot->root);
    qv_json_destroy(snapshot);
    return err;
}

}  // namespace

extern "C" {

QV_API int qv_json_node_copy(qv_json *qvjson, qv_json_node *destnode, qv_json *source) noexcept {
    QV_ASSERT(qvjson != NULL);
    QV_ASSERT(destnode != NULL);
    QV_ASSERT(source != NULL);
    if (source->root == nullptr) return QV_ERROR_NONE;
    return copy_node(qvjson, destnode, source, source->root);
}

QV_API int qv_json_node_copy_node(qv_json *qvjson, qv_json_node *destnode, qv_json *source,
                                  const qv_json_node *sourcenode) noexcept {
    QV_ASSERT(qvjson != NULL);
    QV_ASSERT(destnode != NULL);
    QV_ASSERT(source != NULL);
    QV_ASSERT(sourcenode != NULL);
    return copy_node(qvjson, destnode, source, sourcenode);
}

}  // extern "C"
