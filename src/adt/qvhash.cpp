// The intrusive hash table with incremental resizing.
//
// A qv_hash keeps the caller's items in chained slots; each item embeds a
// qv_hash_link, and the chains run through those links, so the table never
// allocates per item. Hashing, equality and destruction are callbacks.
//
// Resizing is spread over time, in the manner of Redis' dict.c. The table has
// a main array and, while a resize runs, a second slot array to resize into
// (biggerarray when growing, smallerarray when shrinking; never both). The
// one invariant everything below keeps:
//
//   The "insertion array" is biggerarray, else smallerarray, else the main
//   array. Every item lives in exactly one of the insertion array and the
//   main array; new items always go into the insertion array, so during a
//   resize the main array only ever loses items. When it holds none, the
//   insertion array becomes the main array and the resize is over.
//
// Each function's part in that:
//   - add      replaces an equal item in either array, appends to the
//              insertion array, and moves one item out of the main array
//              (a "migration step"); with no resize running, it may start
//              a grow (at ~90% load, to 4n + 1 slots: 5, 21, 85, 341, ...).
//   - remove   unlinks by address, then takes one migration step; with no
//              resize running, it may start a shrink (at 10% load).
//   - lookup   searches the insertion array first, then the main array,
//              and moves only the item it found there.
//   - clear    empties every array and returns to the minimum size.
// A resize starts only from a steady table, so a grow and a shrink never
// overlap, and every add or remove costs one chain search per array plus at
// most one item move. Failing to allocate a new array is not an error: the
// table simply stays at its size.
//
// Chains keep insertion order (append at the tail); enumeration walks the
// insertion array, then the main array, in slot order. Chains are singly
// linked (prev is left null): every unlink comes right after a walk from the
// slot head that found the link's predecessor, so unlinking never has to
// touch the following item, which is likely not in cache.
//
// Beside the slot heads each array keeps one tag byte per slot: a tiny Bloom
// filter of the hashes on that chain (one of eight bits per hash). A search
// whose bit is clear knows the chain cannot hold its key without reading the
// slot head or any item, so most misses touch one byte of a dense array.
// Bits are set on append and cleared only when a chain becomes empty; a stale
// bit merely sends a search down the chain as before.
//
// The table carries its own minimum-size (5-slot) array inside its block, so
// a fresh table is one allocation, and clear or a shrink back to the minimum
// reuses it instead of allocating. Only larger arrays are allocated.
//
// No locking: a table belongs to one thread at a time.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "internal/qvhashtable.h"
#include "internal/qvinternal.h"
#include "platform/qvplat_fatal.h"

// ---------------------------------------------------------------------------
// Types
// ---------------------------------------------------------------------------

namespace {

struct SlotHead {
    qv_hash_link *first;
    qv_hash_link *last;
};

// Small fields first, so that the structure packs without holes: every
// string table carries one of these in its block.
struct HashArray {
    uint32_t slotcount;
    uint32_t entries;
    // No slot below this index holds an item. Migration always takes the
    // first item of the main array; without this bound, finding it would
    // rescan the emptied prefix on every step and make a resize quadratic.
    uint32_t scanfrom;
    // slotcount slot heads, directly followed by slotcount tag bytes.
    SlotHead *slots;
    // Multiplier for reducing a hash modulo slotcount without a division.
    uint64_t modmagic;
};

inline uint8_t *tags_of(const HashArray *a) noexcept {
    return reinterpret_cast<uint8_t *>(a->slots + a->slotcount);
}

constexpr uint32_t kMinSlots = 5;

}  // namespace

struct qv_hash {
    uint32_t minslots;
    uint32_t entries;         // items in all arrays together
    HashArray *array;         // the main array, always present
    HashArray *biggerarray;   // growing into this, or null
    HashArray *smallerarray;  // shrinking into this, or null
    qv_hash_calchash_fn calchashcallback;
    qv_hash_compare_fn comparecallback;
    qv_hash_destroy_fn destroycallback;
    size_t listoffset;
    void *context;
    // The item the next migration step will move, hashed ahead of time (see
    // plan_next_move); valid only while it is the main array's first item.
    qv_hash_link *nextmove;
    uint32_t nextmovehash;
    // The built-in minimum-size array, used whenever no other array is.
    HashArray builtin;
    SlotHead builtinslots[kMinSlots];
    uint8_t builtintags[kMinSlots];  // must follow the slots (see tags_of)
};

static_assert(offsetof(qv_hash, builtintags) ==
                  offsetof(qv_hash, builtinslots) + kMinSlots * sizeof(SlotHead),
              "the built-in tag bytes follow the built-in slot heads");

namespace {

// ---------------------------------------------------------------------------
// Slot arrays and chains
// ---------------------------------------------------------------------------

// hash % slotcount. Slot counts are odd and not powers of two, so this is a
// real modulo; with 128-bit arithmetic it is two multiplications instead of
// a division (Lemire's "faster remainder by direct computation").
inline uint32_t slot_index(const HashArray *a, uint32_t hash) noexcept {
#if defined(__SIZEOF_INT128__)
    uint64_t low = a->modmagic * hash;
    return static_cast<uint32_t>((static_cast<unsigned __int128>(low) * a->slotcount) >> 64);
#else
    return hash % a->slotcount;
#endif
}

void array_setup(HashArray *a, uint32_t slotcount) noexcept {
    a->slotcount = slotcount;
    a->entries = 0;
    a->scanfrom = slotcount;
    a->modmagic = UINT64_MAX / slotcount + 1;
}

inline bool builtin_in_use(const qv_hash *t) noexcept {
    const HashArray *b = &t->builtin;
    return t->array == b || t->biggerarray == b || t->smallerarray == b;
}

// The tag bit of a hash: taken from a multiplicative mix, so that it does not
// follow from the slot (hash mod slotcount) the hash lands in.
inline uint8_t tag_bit(uint32_t hash) noexcept {
    return static_cast<uint8_t>(1u << ((hash * 0x9E3779B1u) >> 29));
}

HashArray *array_create(qv_hash *t, uint32_t slotcount) noexcept {
    QV_ASSERT(slotcount >= 5);
    if (slotcount == kMinSlots && !builtin_in_use(t)) {
        // Its slots are all empty: whatever used it last was drained.
        array_setup(&t->builtin, slotcount);
        return &t->builtin;
    }
    auto *a = static_cast<HashArray *>(qv_cmalloc(sizeof(HashArray)));
    if (a == nullptr) {
        QV_LOG(7, "not enough memory for hash array structure");
        return nullptr;
    }
    // One block for the slot heads and their tag bytes.
    a->slots = static_cast<SlotHead *>(qv_calloc(slotcount, sizeof(SlotHead) + 1));
    if (a->slots == nullptr) {
        QV_LOG(7, "not enough memory for hash array slots (%lu bytes)",
               static_cast<unsigned long>(qv_sizet_multiply_and_limit(slotcount, sizeof(SlotHead))));
        qv_free(a);
        return nullptr;
    }
    array_setup(a, slotcount);
    return a;
}

void array_free(qv_hash *t, HashArray *a) noexcept {
    if (a == nullptr || a == &t->builtin) return;
    qv_free(a->slots);
    qv_free(a);
}

void chain_append(HashArray *a, uint32_t hash, qv_hash_link *link) noexcept {
    uint32_t slot = slot_index(a, hash);
    SlotHead &head = a->slots[slot];
    link->next = nullptr;
    link->prev = nullptr;
    if (head.last != nullptr)
        head.last->next = link;
    else
        head.first = link;
    head.last = link;
    tags_of(a)[slot] |= tag_bit(hash);
    a->entries++;
    if (slot < a->scanfrom) a->scanfrom = slot;
}

// Unlinks link, which follows pred in the slot's chain (pred null: link is
// the first); the caller adjusts the counts.
void chain_unlink(HashArray *a, uint32_t slot, qv_hash_link *pred, qv_hash_link *link) noexcept {
    SlotHead &head = a->slots[slot];
    if (pred != nullptr)
        pred->next = link->next;
    else
        head.first = link->next;
    if (head.last == link) head.last = pred;
    link->next = nullptr;
    if (head.first == nullptr) tags_of(a)[slot] = 0;
}

// Whether the slot's chain holds link; if so, *pred is its predecessor.
bool chain_holds(const HashArray *a, uint32_t slot, const qv_hash_link *link,
                 qv_hash_link **pred) noexcept {
    qv_hash_link *before = nullptr;
    for (qv_hash_link *l = a->slots[slot].first; l != nullptr; before = l, l = l->next) {
        if (l == link) {
            *pred = before;
            return true;
        }
    }
    return false;
}

// The first link of slot `from` or a later one, or null.
qv_hash_link *first_link_from(const HashArray *a, uint32_t from) noexcept {
    for (uint32_t s = from < a->scanfrom ? a->scanfrom : from; s < a->slotcount; ++s)
        if (a->slots[s].first != nullptr) return a->slots[s].first;
    return nullptr;
}

// The first link of the array, tightening the scan bound on the way.
qv_hash_link *first_link(HashArray *a) noexcept {
    uint32_t s = a->scanfrom;
    while (s < a->slotcount && a->slots[s].first == nullptr) ++s;
    a->scanfrom = s;
    return s < a->slotcount ? a->slots[s].first : nullptr;
}

// ---------------------------------------------------------------------------
// Table helpers
// ---------------------------------------------------------------------------

inline qv_hash_link *link_of(const qv_hash *t, void *item) noexcept {
    return reinterpret_cast<qv_hash_link *>(static_cast<char *>(item) + t->listoffset);
}

inline void prefetch(const void *p) noexcept {
#if defined(__GNUC__)
    __builtin_prefetch(p);
#else
    (void)p;
#endif
}

inline void *item_of(const qv_hash *t, qv_hash_link *link) noexcept {
    return link == nullptr ? nullptr : reinterpret_cast<char *>(link) - t->listoffset;
}

inline HashArray *insertion_array(const qv_hash *qvhash) noexcept {
    if (qvhash->biggerarray != nullptr) {
        QV_ASSERT(qvhash->smallerarray == NULL);
        return qvhash->biggerarray;
    }
    return qvhash->smallerarray != nullptr ? qvhash->smallerarray : qvhash->array;
}

// The first link of the chain for hash that matches, with its predecessor
// in *pred. Matches(link) decides equality.
template <class Matches>
inline qv_hash_link *chain_find_if(const HashArray *a, uint32_t hash, Matches matches,
                                   qv_hash_link **pred) noexcept {
    uint32_t slot = slot_index(a, hash);
    if ((tags_of(a)[slot] & tag_bit(hash)) == 0) return nullptr;
    const SlotHead &head = a->slots[slot];
    // The head names the last link as well as the first: fetching it now
    // overlaps the second memory access of a two-item chain with the first
    // instead of following it.
    if (head.last != head.first) prefetch(head.last);
    qv_hash_link *before = nullptr;
    for (qv_hash_link *l = head.first; l != nullptr; before = l, l = l->next) {
        if (matches(l)) {
            *pred = before;
            return l;
        }
    }
    return nullptr;
}

// The first item of the chain for hash that compares equal to item, with its
// predecessor in *pred.
qv_hash_link *chain_find(const qv_hash *t, const HashArray *a, uint32_t hash, const void *item,
                         qv_hash_link **pred) noexcept {
    return chain_find_if(
        a, hash,
        [t, item](qv_hash_link *l) { return t->comparecallback(item_of(t, l), item, t->context) == 0; },
        pred);
}

// Drops the stored item equal to item from one array, if there is one.
void discard_equal(qv_hash *t, HashArray *a, uint32_t hash, const void *item) noexcept {
    qv_hash_link *pred = nullptr;
    qv_hash_link *old = chain_find(t, a, hash, item, &pred);
    if (old == nullptr) return;
    chain_unlink(a, slot_index(a, hash), pred, old);
    a->entries--;
    t->destroycallback(item_of(t, old), t->context);
    t->entries--;
}

// The end of a resize: once the main array is empty, the array being
// resized into takes its place.
void finish_if_drained(qv_hash *t, HashArray *target) noexcept {
    if (t->array->entries != 0 || target == t->array) return;
    if (target == t->biggerarray)
        QV_LOG(13, "replacing the main hash array with the bigger one");
    else
        QV_LOG(13, "replacing the main hash array with the smaller one");
    array_free(t, t->array);
    t->array = target;
    t->biggerarray = nullptr;
    t->smallerarray = nullptr;
    t->nextmove = nullptr;
}

// Prepares the next migration step while the caller goes on. The next item
// to move was prefetched by the previous step, so hashing it now is cheap,
// and the hash tells which slot of target to fetch; the item after it is
// fetched for the step after. A migration step then rarely waits for memory.
// Main only loses items during a resize, so an item that is still main's
// first at the next step is the one hashed here.
void plan_next_move(qv_hash *t, HashArray *main, const HashArray *target) noexcept {
    t->nextmove = nullptr;
    qv_hash_link *next = first_link(main);
    if (next == nullptr) return;
    t->nextmovehash = t->calchashcallback(item_of(t, next), t->context);
    t->nextmove = next;
    uint32_t slot = slot_index(target, t->nextmovehash);
    prefetch(&target->slots[slot]);
    prefetch(&tags_of(target)[slot]);
    qv_hash_link *after = next->next != nullptr ? next->next : first_link_from(main, main->scanfrom + 1);
    if (after != nullptr) prefetch(item_of(t, after));
}

// One migration step: move the main array's first item into target.
void migrate_step(qv_hash *t, HashArray *target) noexcept {
    HashArray *main = t->array;
    qv_hash_link *first = first_link(main);
    if (first != nullptr) {
        uint32_t hash = first == t->nextmove ? t->nextmovehash
                                             : t->calchashcallback(item_of(t, first), t->context);
        // The item's hash must still lead to the slot it was filed in, or
        // the hash callback has changed its mind about a stored item.
        uint32_t slot = slot_index(main, hash);
        QV_ASSERT(slot == main->scanfrom);
        chain_unlink(main, slot, nullptr, first);
        main->entries--;
        chain_append(target, hash, first);
        plan_next_move(t, main, target);
    }
    finish_if_drained(t, target);
}

// Only called with no resize running.
void maybe_grow(qv_hash *t) noexcept {
    uint32_t slots = t->array->slotcount;
    if (t->array->entries < slots - slots / 10) return;
    if (slots > (UINT32_MAX - 1) / 4) return;  // 4n + 1 would not fit
    uint32_t newslots = slots * 4 + 1;
    QV_LOG(13, "start growing hashtable to %lu slots", static_cast<unsigned long>(newslots));
    t->biggerarray = array_create(t, newslots);
    if (t->biggerarray == nullptr)
        QV_LOG(7, "not enough memory to grow the hashtable from %lu to %lu slots",
               static_cast<unsigned long>(slots), static_cast<unsigned long>(newslots));
}

// Only called with no resize running.
void maybe_shrink(qv_hash *t) noexcept {
    uint32_t slots = t->array->slotcount;
    if (t->array->entries > slots / 10 || slots <= t->minslots) return;
    uint32_t newslots = (slots - 1) / 4;
    if (newslots < t->minslots) newslots = t->minslots;
    QV_LOG(13, "start shrinking hashtable to %lu slots", static_cast<unsigned long>(newslots));
    t->smallerarray = array_create(t, newslots);
    if (t->smallerarray == nullptr)
        QV_LOG(7, "not enough memory to shrink the hashtable from %lu to %lu slots",
               static_cast<unsigned long>(slots), static_cast<unsigned long>(newslots));
}

// The lookup itself, for any way of recognising the item: the insertion
// array first; during a resize, an item found only in the main array is
// moved along into the insertion array, so the items a caller uses are the
// first to reach their new home (its slot there is fetched while main is
// searched).
template <class Matches>
inline void *lookup_by(qv_hash *t, uint32_t hash, Matches matches) noexcept {
    HashArray *target = insertion_array(t);
    qv_hash_link *pred = nullptr;
    qv_hash_link *found = chain_find_if(target, hash, matches, &pred);
    if (found != nullptr || target == t->array) return item_of(t, found);

    prefetch(&target->slots[slot_index(target, hash)]);
    HashArray *main = t->array;
    found = chain_find_if(main, hash, matches, &pred);
    if (found == nullptr) return nullptr;
    chain_unlink(main, slot_index(main, hash), pred, found);
    main->entries--;
    chain_append(target, hash, found);
    finish_if_drained(t, target);
    return item_of(t, found);
}

// Destroys every item of one array, slot by slot, in chain order.
void array_drain(qv_hash *t, HashArray *qvhasharray) noexcept {
    if (qvhasharray == nullptr) return;
    for (uint32_t s = qvhasharray->scanfrom; s < qvhasharray->slotcount; ++s) {
        while (qv_hash_link *l = qvhasharray->slots[s].first) {
            chain_unlink(qvhasharray, s, nullptr, l);
            t->destroycallback(item_of(t, l), t->context);
            t->entries--;
            qvhasharray->entries--;
        }
    }
    QV_ASSERT(qvhasharray->entries == 0);
    qvhasharray->scanfrom = qvhasharray->slotcount;
}

void table_setup(qv_hash *t, uint32_t minslots, size_t listoffset,
                 qv_hash_calchash_fn calchashcallback, qv_hash_compare_fn comparecallback,
                 qv_hash_destroy_fn destroycallback, void *context) noexcept {
    QV_ASSERT(minslots == kMinSlots);
    t->minslots = minslots;
    t->calchashcallback = calchashcallback;
    t->comparecallback = comparecallback;
    t->destroycallback = destroycallback;
    t->listoffset = listoffset;
    t->context = context;
    QV_LOG(13, "create an initial hash array of size %lu", static_cast<unsigned long>(minslots));
    t->builtin.slots = t->builtinslots;
    array_setup(&t->builtin, minslots);
    t->array = &t->builtin;
}

qv_hash *table_create(uint32_t minslots, size_t listoffset, qv_hash_calchash_fn calchashcallback,
                      qv_hash_compare_fn comparecallback, qv_hash_destroy_fn destroycallback,
                      void *context, const char *nomemory) noexcept {
    auto *t = static_cast<qv_hash *>(qv_cmalloc(sizeof(qv_hash)));
    if (t == nullptr) {
        QV_LOG(7, "%s", nomemory);
        return nullptr;
    }
    table_setup(t, minslots, listoffset, calchashcallback, comparecallback, destroycallback, context);
    return t;
}

// Empties the table and releases every allocated array.
void table_teardown(qv_hash *qvhash) noexcept {
    // Emptying without clear's return to the minimum size: the arrays are
    // about to go anyway, so there is nothing to allocate.
    array_drain(qvhash, qvhash->biggerarray);
    array_drain(qvhash, qvhash->smallerarray);
    array_drain(qvhash, qvhash->array);
    QV_ASSERT(qvhash->entries == 0);
    array_free(qvhash, qvhash->smallerarray);
    array_free(qvhash, qvhash->biggerarray);
    array_free(qvhash, qvhash->array);
}

}  // namespace

// ---------------------------------------------------------------------------
// API
// ---------------------------------------------------------------------------

extern "C" {

QV_API qv_hash *qv_hash_create(size_t listoffset, qv_hash_calchash_fn calchashcallback,
                               qv_hash_compare_fn comparecallback,
                               qv_hash_destroy_fn destroycallback, void *context) noexcept {
    QV_ASSERT(calchashcallback != NULL);
    QV_ASSERT(comparecallback != NULL);
    QV_ASSERT(destroycallback != NULL);
    return table_create(kMinSlots, listoffset, calchashcallback, comparecallback, destroycallback,
                        context, "not enough memory for qvhash structure");
}

QV_API qv_hash *qv_hash_create_from(const qv_hash *original) noexcept {
    QV_ASSERT(original != NULL);
    return table_create(original->minslots, original->listoffset, original->calchashcallback,
                        original->comparecallback, original->destroycallback, original->context,
                        "not enough memory for duplicating hashtable");
}

QV_API void qv_hash_destroy(qv_hash *qvhash) noexcept {
    QV_ASSERT(qvhash != NULL);
    table_teardown(qvhash);
    qv_free(qvhash);
}

QV_API void qv_hash_clear(qv_hash *qvhash) noexcept {
    QV_ASSERT(qvhash != NULL);
    array_drain(qvhash, qvhash->biggerarray);
    array_drain(qvhash, qvhash->smallerarray);
    array_drain(qvhash, qvhash->array);
    array_free(qvhash, qvhash->biggerarray);
    array_free(qvhash, qvhash->smallerarray);
    qvhash->biggerarray = nullptr;
    qvhash->smallerarray = nullptr;
    qvhash->nextmove = nullptr;
    if (qvhash->array->slotcount == qvhash->minslots) return;
    HashArray *fresh = array_create(qvhash, qvhash->minslots);
    if (fresh == nullptr) {
        QV_LOG(7, "not enough memory to return the hash array to the minimum size, keeping the current size");
        return;
    }
    array_free(qvhash, qvhash->array);
    qvhash->array = fresh;
}

QV_API void qv_hash_add(qv_hash *qvhash, void *item) noexcept {
    QV_ASSERT(qvhash != NULL);
    QV_ASSERT(item != NULL);
    uint32_t hash = qvhash->calchashcallback(item, qvhash->context);
    HashArray *target = insertion_array(qvhash);
    bool resizing = target != qvhash->array;

    // An equal item may sit in either array; it is replaced, never kept.
    discard_equal(qvhash, qvhash->array, hash, item);
    if (resizing) discard_equal(qvhash, target, hash, item);

    chain_append(target, hash, link_of(qvhash, item));
    if (!resizing) maybe_grow(qvhash);
    qvhash->entries++;
    if (resizing) migrate_step(qvhash, target);
}

QV_API void *qv_hash_lookup(qv_hash *qvhash, const void *searchitem) noexcept {
    QV_ASSERT(qvhash != NULL);
    QV_ASSERT(searchitem != NULL);
    uint32_t hash = qvhash->calchashcallback(searchitem, qvhash->context);
    return lookup_by(qvhash, hash, [qvhash, searchitem](const qv_hash_link *l) {
        return qvhash->comparecallback(item_of(qvhash, const_cast<qv_hash_link *>(l)), searchitem,
                                       qvhash->context) == 0;
    });
}

QV_API void qv_hash_remove(qv_hash *qvhash, void *item) noexcept {
    QV_ASSERT(qvhash != NULL);
    QV_ASSERT(item != NULL);
    uint32_t hash = qvhash->calchashcallback(item, qvhash->context);
    qv_hash_link *link = link_of(qvhash, item);
    HashArray *target = insertion_array(qvhash);
    bool resizing = target != qvhash->array;

    // The item is identified by address, not by key: find the array that
    // holds this very link.
    HashArray *targethasharray = nullptr;
    qv_hash_link *pred = nullptr;
    if (chain_holds(target, slot_index(target, hash), link, &pred))
        targethasharray = target;
    else if (resizing && chain_holds(qvhash->array, slot_index(qvhash->array, hash), link, &pred))
        targethasharray = qvhash->array;
    else if (resizing)
        return;
    bool itemstored = targethasharray != nullptr;
    QV_ASSERT(itemstored);

    chain_unlink(targethasharray, slot_index(targethasharray, hash), pred, link);
    QV_ASSERT(targethasharray->entries > 0);
    targethasharray->entries--;
    QV_ASSERT(qvhash->entries > 0);
    qvhash->entries--;

    if (resizing)
        migrate_step(qvhash, target);
    else
        maybe_shrink(qvhash);
}

QV_API void *qv_hash_enumerate_start(qv_hash *qvhash) noexcept {
    QV_ASSERT(qvhash != NULL);
    HashArray *target = insertion_array(qvhash);
    qv_hash_link *first = first_link(target);
    if (first == nullptr && target != qvhash->array) first = first_link(qvhash->array);
    return item_of(qvhash, first);
}

QV_API void *qv_hash_enumerate_next(qv_hash *qvhash, void *item) noexcept {
    QV_ASSERT(qvhash != NULL);
    QV_ASSERT(item != NULL);
    qv_hash_link *link = link_of(qvhash, item);
    if (link->next != nullptr) return item_of(qvhash, link->next);

    // The end of a chain: the walk keeps no cursor, so the item's own hash
    // says which slot (and which array) to continue after.
    uint32_t hash = qvhash->calchashcallback(item, qvhash->context);
    HashArray *target = insertion_array(qvhash);
    HashArray *holder = nullptr;
    uint32_t slot = slot_index(target, hash);
    if (target->slots[slot].last == link) {
        holder = target;
    } else if (target != qvhash->array) {
        slot = slot_index(qvhash->array, hash);
        if (qvhash->array->slots[slot].last == link) holder = qvhash->array;
    }
    if (holder == nullptr) {
        QV_LOG(6, "invalid hash item");
        qv::plat::assert_fail_bare(__FILE__, __LINE__);
    }
    qv_hash_link *next = first_link_from(holder, slot + 1);
    if (next == nullptr && holder != qvhash->array) next = first_link(qvhash->array);
    return item_of(qvhash, next);
}

}  // extern "C"

namespace qv {

size_t hash_storage_size() noexcept { return sizeof(qv_hash); }

void *hash_lookup_keyed(qv_hash *qvhash, uint32_t hash, const char *key, ptrdiff_t hashoffset,
                        ptrdiff_t keyoffset) noexcept {
    QV_ASSERT(qvhash != NULL);
    return lookup_by(qvhash, hash, [=](const qv_hash_link *l) {
        const char *at = reinterpret_cast<const char *>(l);
        uint32_t stored;
        memcpy(&stored, at + hashoffset, sizeof stored);
        return stored == hash && strcmp(at + keyoffset, key) == 0;
    });
}

qv_hash *hash_init(void *storage, size_t listoffset, qv_hash_calchash_fn calchashcallback,
                   qv_hash_compare_fn comparecallback, qv_hash_destroy_fn destroycallback,
                   void *context) noexcept {
    QV_ASSERT(calchashcallback != NULL);
    QV_ASSERT(comparecallback != NULL);
    QV_ASSERT(destroycallback != NULL);
    auto *t = static_cast<qv_hash *>(storage);
    *t = qv_hash{};
    table_setup(t, kMinSlots, listoffset, calchashcallback, comparecallback, destroycallback, context);
    return t;
}

qv_hash *hash_init_from(void *storage, const qv_hash *original) noexcept {
    QV_ASSERT(original != NULL);
    auto *t = static_cast<qv_hash *>(storage);
    *t = qv_hash{};
    table_setup(t, original->minslots, original->listoffset, original->calchashcallback,
                original->comparecallback, original->destroycallback, original->context);
    return t;
}

void hash_fini(qv_hash *qvhash) noexcept {
    QV_ASSERT(qvhash != NULL);
    table_teardown(qvhash);
}

}  // namespace qv
