// Internal shape of JSON documents, shared by the document model
// (qvjson.cpp), the parser (qvjson_parse.cpp), the writer (qvjson_write.cpp)
// and the number conversions (qvjson_number.cpp). Nothing here is exported.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "internal/qvinternal.h"

// One node of the tree: 24 bytes on 64-bit platforms. The payload depends on
// the type: an ARRAY keeps its first element, an OBJECT its member table
// (member name -> value node), a STRING its own copy of the text. A number
// keeps only the representation it was set with; the other one is derived on
// demand (an INTEGER's double is (double)v, a DOUBLE's integer is d + 0.5
// truncated), which gives exactly the pair a node storing both would hold.
struct qv_json_node {
    qv_json_node *next;  // next element of the array holding this node
    union {
        qv_json_node *children;
        qv_stringhash *hash;
        char *string;
        double number;
        int64_t integer;
    } u;
    uint32_t nodetype;
    // A STRING whose text sits in the document's byte chunks (see Pool), not
    // in a block of its own: not freed with the node.
    uint32_t pooled;
};

namespace qv::json {

// Nodes come from a per-document pool: chunks of nodes allocated through
// qv_malloc, carved on demand and recycled through a free list. A document
// tree is typically thousands of small nodes made and dropped together, so
// this saves one heap block (and its header) per node. Chunks are released
// when the document is destroyed or loses its whole tree.
struct NodeChunk {
    NodeChunk *next;
    size_t count;   // nodes in this chunk
    qv_json_node nodes[1];
};

// Raw bytes for the parser's member entries and short strings, carved from growing chunks and
// never returned one by one: a replaced or dropped member's bytes stay until
// the tree goes, bounded by the size of the parsed text.
struct ByteChunk {
    ByteChunk *next;
    size_t size;  // usable bytes after the header
};

struct Pool {
    NodeChunk *chunks = nullptr;
    ByteChunk *bytechunks = nullptr;
    char *bytes = nullptr;               // next free byte of the newest byte chunk
    char *bytes_end = nullptr;
    qv_json_node *freelist = nullptr;
    qv_json_node *carve = nullptr;      // next never-used node of the newest chunk
    qv_json_node *carve_end = nullptr;
    size_t live = 0;                    // nodes handed out and not yet returned
    qv_json_node *dying = nullptr;      // nodes waiting to be released (see node_destroy)
    bool draining = false;
};

}  // namespace qv::json

struct qv_json {
    qv_json_node *root;
    qv::json::Pool pool;
};

namespace qv::json {

// A fresh node of type NONE, or null (nothing logged).
qv_json_node *node_alloc(qv_json *doc) noexcept;
// Releases node's content and subtree and returns it to the pool.
void node_destroy(qv_json *doc, qv_json_node *node) noexcept;
// Releases the node's payload (string, elements, member table) but keeps the
// node itself; it is left typed NONE.
void node_clear(qv_json *doc, qv_json_node *node) noexcept;
// n bytes, 8-aligned, that live until the tree is dropped, or null (nothing
// logged).
void *pool_bytes(qv_json *doc, size_t n) noexcept;
// Destroys the whole tree; the pool's chunks are released with it.
void drop_root(qv_json *doc) noexcept;
// A new empty member table for doc, or null (nothing logged).
qv_stringhash *member_table_create(qv_json *doc) noexcept;

// The double and integer views of a number node.
inline double number_double(const qv_json_node *n) noexcept {
    return n->nodetype == QV_JSON_TYPE_INTEGER ? static_cast<double>(n->u.integer) : n->u.number;
}
int64_t double_to_stored_integer(double d) noexcept;
inline int64_t number_integer(const qv_json_node *n) noexcept {
    return n->nodetype == QV_JSON_TYPE_INTEGER ? n->u.integer : double_to_stored_integer(n->u.number);
}

// Decimal text without exponent, already checked against the grammar
// [-]digits[.digits] (the integer digits may be absent before a dot), to the
// nearest double. [begin, end) is followed in memory by a byte that cannot
// continue a number. Returns false when the result is not finite.
bool decimal_to_double(const char *begin, const char *end, double *out) noexcept;

// A stack for walking a tree without recursion (the writer, deep copies):
// a tree built through the API can be nested as deep as memory allows, and
// a call stack allows far less. The first levels need no allocation; push
// returns false when growing fails (nothing logged).
template <class Frame>
class WalkStack {
  public:
    WalkStack() = default;
    WalkStack(const WalkStack &) = delete;
    WalkStack &operator=(const WalkStack &) = delete;
    ~WalkStack() {
        if (frames_ != inline_) qv_free(frames_);
    }
    bool empty() const noexcept { return count_ == 0; }
    Frame &top() noexcept { return frames_[count_ - 1]; }
    void pop() noexcept { --count_; }
    bool push(const Frame &f) noexcept {
        if (count_ == capacity_) {
            size_t capacity = capacity_ * 2;
            auto *grown = static_cast<Frame *>(qv_malloc(qv_sizet_multiply_and_limit(capacity, sizeof(Frame))));
            if (grown == nullptr) return false;
            memcpy(static_cast<void *>(grown), frames_, count_ * sizeof(Frame));
            if (frames_ != inline_) qv_free(frames_);
            frames_ = grown;
            capacity_ = capacity;
        }
        frames_[count_++] = f;
        return true;
    }

  private:
    Frame inline_[32];
    Frame *frames_ = inline_;
    size_t count_ = 0;
    size_t capacity_ = 32;
};

// "%g" of value exactly as printf gives it in the C locale. out must hold 32
// bytes; returns the length (the text is NUL-terminated).
size_t format_g(double value, char *out) noexcept;

}  // namespace qv::json
