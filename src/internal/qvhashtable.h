// Tables and entries placed in memory their owner provides. The string-keyed
// table keeps its qv_hash in its own block, so a fresh string table (with its
// first slot array) is one heap block; the JSON parser builds member entries
// in its document's own chunks. Nothing here is exported.
#pragma once

#include <cstddef>

#include "qvlib.h"

namespace qv {

// Bytes (pointer-aligned) that a table needs when placed by hash_init.
size_t hash_storage_size() noexcept;
// Builds an empty table in storage, as qv_hash_create would; cannot fail.
qv_hash *hash_init(void *storage, size_t listoffset, qv_hash_calchash_fn calchashcallback,
                   qv_hash_compare_fn comparecallback, qv_hash_destroy_fn destroycallback,
                   void *context) noexcept;
// Likewise, configured as qv_hash_create_from(original) would.
qv_hash *hash_init_from(void *storage, const qv_hash *original) noexcept;
// Destroys every item and releases the arrays, but not the storage itself.
void hash_fini(qv_hash *qvhash) noexcept;

// qv_hash_lookup for tables whose items carry their own hash (a uint32_t)
// and their NUL-terminated key at fixed distances from the link: the stored
// hash and the key bytes are compared in place, without the callbacks. The
// item found, moved as qv_hash_lookup moves it, or null.
void *hash_lookup_keyed(qv_hash *qvhash, uint32_t hash, const char *key, ptrdiff_t hashoffset,
                        ptrdiff_t keyoffset) noexcept;

// Bytes (a multiple of 8) that a string table entry with a key of keylen
// bytes takes.
size_t stringhash_entry_size(size_t keylen) noexcept;
// qv_stringhash_add(stringhash, key, value) with the entry built in space
// (stringhash_entry_size(keylen) bytes, 8-aligned) instead of allocated: it
// cannot fail. The table never frees space; the caller keeps it alive as long
// as the entry may be in the table or destroyed by it. key holds keylen bytes
// and no NUL among them.
void stringhash_add_placed(qv_stringhash *stringhash, const char *key, size_t keylen, void *value,
                           void *space) noexcept;

}  // namespace qv
