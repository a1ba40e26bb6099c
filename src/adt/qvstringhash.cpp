// The string-keyed table: case-sensitive NUL-terminated keys mapped to opaque
// values, as a thin layer over qv_hash.
//
// Each entry is one allocation: the entry record followed by the bytes of its
// own copy of the key. The entry also remembers the key's hash, so migration
// and enumeration never rehash a key, and comparisons reject most mismatches
// without touching the key bytes. The hash is qv_hashfunc_string's, which
// fixes the enumeration order. Lookups compare the stored hash and key in
// place (qv::hash_lookup_keyed) instead of building a search entry and going
// through the callbacks, which only adds and migration use. An entry with a
// typical short key stays within one 64-byte allocation.
//
// The object and its inner table (with the table's first slot array) share
// one heap block: the table is placed right after the object's own fields.
//
// The inner table's context is the object whose value destroy callback
// entries are destroyed with: the object itself, or for a table made by
// qv_stringhash_create_from, the original (which must outlive it).
//
// No locking: a table belongs to one thread at a time.
#include <cstddef>
#include <cstring>

#include "internal/qvhashfunc.h"
#include "internal/qvhashtable.h"
#include "internal/qvinternal.h"

namespace {

struct Entry {
    void *value;
    qv_hash_link link;
    uint32_t hash;
    uint32_t placed;  // built in its owner's memory: not freed here
    // The key bytes follow the record.
};

inline char *stored_key(Entry *e) noexcept { return reinterpret_cast<char *>(e + 1); }
inline const char *stored_key(const Entry *e) noexcept { return reinterpret_cast<const char *>(e + 1); }

}  // namespace

struct qv_stringhash {
    qv_stringhash_destroy_fn destroycallback;
    void *context;
    // Whose destroy callback the entries go through (the inner context).
    const qv_stringhash *binding;
    // The inner table follows in the same block.
};

namespace {

inline qv_hash *table_of(const qv_stringhash *sh) noexcept {
    return reinterpret_cast<qv_hash *>(const_cast<qv_stringhash *>(sh) + 1);
}

}  // namespace

namespace {

uint32_t entry_hash(const void *item, void *) noexcept {
    return static_cast<const Entry *>(item)->hash;
}

// Byte-wise, case-sensitive: equal keys have equal hashes, so differing
// hashes settle inequality before the keys are read.
int entry_compare(const void *stored, const void *search, void *) noexcept {
    const auto *a = static_cast<const Entry *>(stored);
    const auto *b = static_cast<const Entry *>(search);
    if (a->hash != b->hash) return a->hash < b->hash ? -1 : 1;
    if (a == b) return 0;
    int c = strcmp(stored_key(a), stored_key(b));
    return c < 0 ? -1 : (c > 0 ? 1 : 0);
}

void entry_free(const qv_stringhash *binding, Entry *e) noexcept {
    bool placed = e->placed != 0;
    if (binding->destroycallback != nullptr) binding->destroycallback(e->value, binding->context);
    if (!placed) qv_free(e);
}

int entry_destroy(void *item, void *context) noexcept {
    entry_free(static_cast<const qv_stringhash *>(context), static_cast<Entry *>(item));
    return 0;
}

// The entry stored under key, moved as a lookup moves it, or null. The
// search compares the stored hash and key bytes in place rather than going
// through the table's callbacks with a search entry: a lookup is the
// operation callers repeat most.
Entry *find(qv_stringhash *sh, const char *key) noexcept {
    constexpr auto linkoffset = static_cast<ptrdiff_t>(offsetof(Entry, link));
    constexpr ptrdiff_t hashoffset = static_cast<ptrdiff_t>(offsetof(Entry, hash)) - linkoffset;
    constexpr ptrdiff_t keyoffset = static_cast<ptrdiff_t>(sizeof(Entry)) - linkoffset;
    uint32_t hash = qv::hash_string_n(key, strlen(key));
    return static_cast<Entry *>(qv::hash_lookup_keyed(table_of(sh), hash, key, hashoffset, keyoffset));
}

void *report(Entry *e, const char **key, void **value) noexcept {
    if (key != nullptr) *key = e != nullptr ? stored_key(e) : nullptr;
    if (value != nullptr) *value = e != nullptr ? e->value : nullptr;
    return e;
}

}  // namespace

namespace {

static_assert(sizeof(qv_stringhash) % alignof(void *) == 0 && alignof(uint64_t) <= alignof(void *),
              "the inner table follows the object and needs its alignment");

// The object with room for its inner table behind it, or null (logged).
qv_stringhash *object_alloc() noexcept {
    size_t size = sizeof(qv_stringhash) + qv::hash_storage_size();
    auto *sh = static_cast<qv_stringhash *>(qv_malloc(size));
    if (sh == nullptr) QV_LOG(7, "not enough memory for qvstringhash structure");
    return sh;
}


}  // namespace

extern "C" {

QV_API qv_stringhash *qv_stringhash_create(qv_stringhash_destroy_fn destroycallback,
                                           void *context) noexcept {
    qv_stringhash *sh = object_alloc();
    if (sh == nullptr) return nullptr;
    sh->destroycallback = destroycallback;
    sh->context = context;
    sh->binding = sh;
    qv::hash_init(table_of(sh), offsetof(Entry, link), entry_hash, entry_compare, entry_destroy, sh);
    return sh;
}

QV_API qv_stringhash *qv_stringhash_create_from(const qv_stringhash *original) noexcept {
    QV_ASSERT(original != NULL);
    qv_stringhash *sh = object_alloc();
    if (sh == nullptr) return nullptr;
    sh->destroycallback = original->destroycallback;
    sh->context = original->context;
    // The inner table is copied verbatim, context included: entries stay
    // bound to the original's callback and context.
    sh->binding = original->binding;
    qv::hash_init_from(table_of(sh), table_of(original));
    return sh;
}

QV_API int qv_stringhash_add(qv_stringhash *stringhash, const char *key, void *value) noexcept {
    QV_ASSERT(stringhash != NULL);
    QV_ASSERT(key != NULL);
    size_t keylen = strlen(key);
    auto *e = static_cast<Entry *>(qv_malloc(sizeof(Entry) + keylen + 1));
    if (e == nullptr) {
        QV_LOG(7, "not enough memory for stringhash item");
        return -1;
    }
    memcpy(stored_key(e), key, keylen + 1);
    e->link = {nullptr, nullptr};  // compared as a search item before it is linked
    e->value = value;
    e->hash = qv::hash_string_n(key, keylen);
    e->placed = 0;
    qv_hash_add(table_of(stringhash), e);
    return 0;
}

QV_API void *qv_stringhash_lookup(qv_stringhash *stringhash, const char *key) noexcept {
    QV_ASSERT(stringhash != NULL);
    QV_ASSERT(key != NULL);
    Entry *e = find(stringhash, key);
    return e != nullptr ? e->value : nullptr;
}

QV_API int qv_stringhash_remove(qv_stringhash *stringhash, const char *key) noexcept {
    QV_ASSERT(stringhash != NULL);
    QV_ASSERT(key != NULL);
    // The lookup leaves the entry in the insertion array, which is where
    // removal by address expects it.
    Entry *e = find(stringhash, key);
    if (e == nullptr) return -1;
    qv_hash_remove(table_of(stringhash), e);
    entry_free(stringhash->binding, e);
    return 0;
}

QV_API void *qv_stringhash_enumerate_start(qv_stringhash *stringhash, const char **key,
                                           void **value) noexcept {
    QV_ASSERT(stringhash != NULL);
    return report(static_cast<Entry *>(qv_hash_enumerate_start(table_of(stringhash))), key, value);
}

QV_API void *qv_stringhash_enumerate_next(qv_stringhash *stringhash, void *prevstringhashitem,
                                          const char **key, void **value) noexcept {
    QV_ASSERT(stringhash != NULL);
    QV_ASSERT(prevstringhashitem != NULL);
    return report(static_cast<Entry *>(qv_hash_enumerate_next(table_of(stringhash), prevstringhashitem)),
                  key, value);
}

QV_API void qv_stringhash_clear(qv_stringhash *qvstringhash) noexcept {
    QV_ASSERT(qvstringhash != NULL);
    qv_hash_clear(table_of(qvstringhash));
}

QV_API void qv_stringhash_destroy(qv_stringhash *stringhash) noexcept {
    QV_ASSERT(stringhash != NULL);
    qv::hash_fini(table_of(stringhash));
    qv_free(stringhash);
}

}  // extern "C"

namespace qv {

size_t stringhash_entry_size(size_t keylen) noexcept {
    return (sizeof(Entry) + keylen + 1 + 7) & ~static_cast<size_t>(7);
}

void stringhash_add_placed(qv_stringhash *stringhash, const char *key, size_t keylen, void *value,
                           void *space) noexcept {
    QV_ASSERT(stringhash != NULL);
    QV_ASSERT(key != NULL);
    auto *e = static_cast<Entry *>(space);
    memcpy(stored_key(e), key, keylen);
    stored_key(e)[keylen] = '\0';
    e->link = {nullptr, nullptr};
    e->value = value;
    e->hash = qv::hash_string_n(key, keylen);
    e->placed = 1;
    qv_hash_add(table_of(stringhash), e);
}

}  // namespace qv
