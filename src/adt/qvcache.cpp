// The memory-limited cache: string keys to copied byte blobs within a byte
// budget, evicting the oldest items first.
//
// Items sit in two structures at once: a list in storing order (head =
// newest, tail = oldest) that eviction takes from, and a qv_stringhash for
// lookups. The table owns the items: its value destroy callback is the one
// place an item dies, and it unlinks the item from the list and releases its
// accounted size, so removal from the table by any path keeps both
// structures and usesize in step. Invariant between calls: usesize is the
// sum of the accounted sizes of the listed items, and the list and the table
// hold the same items.
//
// An item accounts for key length + 24 + data size bytes; the 24 is a fixed
// per-item overhead, the same on every platform so that budgets behave alike.
//
// No locking: a cache belongs to one thread at a time.
#include <cstring>

#include "internal/qvinternal.h"
#include "internal/qvlist.h"

namespace {

constexpr size_t kItemOverhead = 24;

struct CacheItem {
    CacheItem *next;  // towards the tail (older)
    CacheItem *prev;  // towards the head (newer)
    char *key;
    size_t keylen;
    void *data;
    size_t datasize;
};

struct ItemList {
    CacheItem *head;
    CacheItem *tail;
};

}  // namespace

struct qv_cache {
    ItemList *itemlist;
    qv_stringhash *items;
    size_t maxsize;
    size_t usesize;
};

namespace {

inline size_t accounted_size(const CacheItem *item) noexcept {
    return item->keylen + kItemOverhead + item->datasize;
}

inline unsigned long ul(size_t v) noexcept { return static_cast<unsigned long>(v); }

void item_free(CacheItem *item) noexcept {
    qv_free(item->key);
    qv_free(item->data);
    qv_free(item);
}

// The table's value destroy callback: the only way an item leaves the cache.
void item_destroy(void *value, void *context) noexcept {
    auto *cache = static_cast<qv_cache *>(context);
    auto *item = static_cast<CacheItem *>(value);
    qv::list_unlink(*cache->itemlist, item);
    size_t size = accounted_size(item);
    if (cache->usesize < size) {
        QV_LOG(7, "Internal inconsistency, usesize %lu less than itemsize %lu", ul(cache->usesize), ul(size));
        cache->usesize = 0;
    } else {
        cache->usesize -= size;
    }
    item_free(item);
}

// Evicts oldest-first until usesize <= limit.
void evict_to(qv_cache *qvcache, size_t limit) noexcept {
    while (qvcache->usesize > limit) {
        CacheItem *oldest = qvcache->itemlist->tail;
        if (oldest == nullptr) {
            QV_LOG(7, "Internal inconsistency: cache empty but usesize is %lu", ul(qvcache->usesize));
            return;
        }
        // Removing from the table runs item_destroy, which unlinks the item.
        if (qv_stringhash_remove(qvcache->items, oldest->key) != 0) {
            QV_LOG(7, "INTERNAL ERROR: unable to clean up a hash item with key '%s'", oldest->key);
            return;
        }
    }
}

// Frees room for an item of itemsize within a budget of limitsize.
void make_room(qv_cache *qvcache, size_t itemsize, size_t limitsize) noexcept {
    QV_ASSERT(itemsize <= limitsize);
    evict_to(qvcache, limitsize - itemsize);
}

}  // namespace

extern "C" {

QV_API qv_cache *qv_cache_create(size_t maxsize) noexcept {
    auto *qvcache = static_cast<qv_cache *>(qv_cmalloc(sizeof(qv_cache)));
    if (qvcache == nullptr) {
        QV_LOG(7, "not enough memory for cache context");
        return nullptr;
    }
    qvcache->itemlist = static_cast<ItemList *>(qv_cmalloc(sizeof(ItemList)));
    if (qvcache->itemlist == nullptr) {
        QV_LOG(7, "not enough memory for cache item list");
        qv_free(qvcache);
        return nullptr;
    }
    qvcache->items = qv_stringhash_create(item_destroy, qvcache);
    if (qvcache->items == nullptr) {
        QV_LOG(7, "not enough memory for a hashtable");
        qv_free(qvcache->itemlist);
        qv_free(qvcache);
        return nullptr;
    }
    qvcache->maxsize = maxsize;
    return qvcache;
}

QV_API int qv_cache_set(qv_cache *qvcache, const char *key, const void *data, size_t size) noexcept {
    QV_ASSERT(qvcache != NULL);
    QV_ASSERT(key != NULL);
    QV_ASSERT(data != NULL);

    size_t keylen = strlen(key);
    size_t itemsize = keylen + kItemOverhead;
    if (itemsize < keylen) {
        QV_LOG(6, "cache item key too large");
        return QV_ERROR_OUT_OF_RANGE;
    }
    if (itemsize + size < itemsize) {
        QV_LOG(6, "cache item data too large");
        return QV_ERROR_OUT_OF_RANGE;
    }
    itemsize += size;
    if (itemsize > qvcache->maxsize) {
        QV_LOG(6, "cache item size exceeds the maximum cache size limit (%lu > %lu bytes)", ul(itemsize),
               ul(qvcache->maxsize));
        return QV_ERROR_OUT_OF_RANGE;
    }

    // Build the item completely before touching the cache, so that running
    // out of memory changes nothing.
    auto *item = static_cast<CacheItem *>(qv_cmalloc(sizeof(CacheItem)));
    if (item == nullptr) {
        QV_LOG(7, "not enough memory for cache item");
        return QV_ERROR_NO_MEMORY;
    }
    item->keylen = keylen;
    item->key = static_cast<char *>(qv_memdup(key, keylen + 1));
    if (item->key == nullptr) {
        QV_LOG(7, "not enough memory for the key of the cache item");
        item_free(item);
        return QV_ERROR_NO_MEMORY;
    }
    item->datasize = size;
    item->data = qv_memdup(data, size);
    if (item->data == nullptr) {
        QV_LOG(7, "not enough memory for cache item data");
        item_free(item);
        return QV_ERROR_NO_MEMORY;
    }

    // The old item's size must be released before room is counted.
    if (qv_stringhash_lookup(qvcache->items, key) != nullptr && qv_stringhash_remove(qvcache->items, key) != 0)
        QV_LOG(7, "removing old item failed");

    make_room(qvcache, itemsize, qvcache->maxsize);
    if (qv_stringhash_add(qvcache->items, item->key, item) != 0) {
        QV_LOG(7, "not enough memory to add cache item to hashtable");
        item_free(item);
        return QV_ERROR_OUT_OF_RANGE;
    }
    qv::list_push_front(*qvcache->itemlist, item);
    qvcache->usesize += itemsize;

    // ">=" rather than ">": an item that fills the budget exactly is reported
    // too (it stays stored). Callers depend on this boundary as it is.
    if (qvcache->usesize >= qvcache->maxsize) {
        QV_LOG(7, "INTERNAL ERROR: usesize %lu exceeds the maxsize %lu", ul(qvcache->usesize), ul(qvcache->maxsize));
        return QV_ERROR_INTERNAL;
    }
    return QV_ERROR_NONE;
}

QV_API int qv_cache_get(qv_cache *qvcache, const char *key, const void **data, size_t *size) noexcept {
    QV_ASSERT(qvcache != NULL);
    QV_ASSERT(key != NULL);
    QV_ASSERT(data != NULL);
    auto *item = static_cast<CacheItem *>(qv_stringhash_lookup(qvcache->items, key));
    if (item == nullptr) {
        *data = nullptr;
        if (size != nullptr) *size = 0;
        return QV_ERROR_NOT_FOUND;
    }
    *data = item->data;
    if (size != nullptr) *size = item->datasize;
    return QV_ERROR_NONE;
}

QV_API void qv_cache_set_memory_limit(qv_cache *qvcache, size_t maxsize) noexcept {
    QV_ASSERT(qvcache != NULL);
    qvcache->maxsize = maxsize;
    evict_to(qvcache, maxsize);
}

QV_API void qv_cache_destroy(qv_cache *qvcache) noexcept {
    QV_ASSERT(qvcache != NULL);
    qv_stringhash_destroy(qvcache->items);
    qvcache->items = nullptr;
    // Every item went with the table; anything still accounted is a bug
    // worth a line in the log, not a crash.
    if (qvcache->itemlist->tail == nullptr) evict_to(qvcache, 0);
    if (qvcache->usesize != 0) QV_LOG(7, "qvcache usesize %lu should be zero", ul(qvcache->usesize));
    QV_ASSERT(qvcache->itemlist->head == NULL);
    qv_free(qvcache->itemlist);
    qv_free(qvcache);
}

}  // extern "C"
