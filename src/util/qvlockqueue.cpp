// The lock queue: an unbounded FIFO of opaque item pointers, safe for any
// number of producers and consumers, with blocking and non-blocking pops and
// an end marker.
//
// Invariants: head and tail are both null or both set; an element is linked
// into at most one queue and has zeroed links when it is not; end goes from 0
// to 1 once. Locking: the condition object's own lock guards head, tail, end,
// the spare list and the count of consumers to wake; it is the queue's only
// lock. The critical sections are a few pointer moves. A push wakes one
// consumer, and only when one is asleep; the end wakes all. Consumers re-check
// the queue after every wake-up.
//
// Elements for item pushes come in slabs of 31 (one allocation, not one per
// item), and item pops keep their elements as spares in the queue, so that a
// steady stream of items costs no allocation: an element allocated by one
// thread and freed by another would otherwise pass between the threads'
// heaps on every item. A slab counts its elements that are still in use and
// goes when the last of them is released, wherever that happens (elements
// may travel to another queue or to the caller, who releases them with
// qv_lockqueue_element_destroy). Elements made by qv_lockqueue_element_create
// stand alone.
#include <atomic>

#include "internal/qvinternal.h"
#include "internal/qvlist.h"

namespace {
struct Slab;
}

struct qv_lockqueue_element {
    qv_lockqueue_element *prev;
    qv_lockqueue_element *next;
    void *item;
    Slab *slab;  // null for an element allocated on its own
};

struct qv_lockqueue {
    qv_lockqueue_element *head;
    qv_lockqueue_element *tail;
    qv_cond *condition;
    int end;
    int sleepers;
    qv_lockqueue_element *spares;  // singly linked through next
    int nspares;
};

namespace {

constexpr int kSlabElements = 31;

struct Slab {
    std::atomic<int> live;  // elements not yet released
    qv_lockqueue_element elements[kSlabElements];
};

// A producer that runs ahead of its consumers by up to this many items still
// finds recycled elements; beyond it, popped elements are released. Beyond
// what is queued, a queue keeps at most this many spares, and through them
// at most as many slabs (4 MB on a 64-bit build in the worst case, far less
// when elements come and go in order), until it is destroyed.
constexpr int kMaxSpares = 4096;

void release(qv_lockqueue_element *element) noexcept {
    Slab *slab = element->slab;
    if (slab == nullptr)
        qv_free(element);
    else if (slab->live.fetch_sub(1, std::memory_order_acq_rel) == 1)
        qv::destroy(slab);
}

void release_list(qv_lockqueue_element *element) noexcept {
    while (element != nullptr) {
        qv_lockqueue_element *next = element->next;
        release(element);
        element = next;
    }
}

// Appends under the lock; the caller has checked the end flag. Returns
// whether a consumer sleeps and must be woken.
bool link_tail(qv_lockqueue *queue, qv_lockqueue_element *element) noexcept {
    qv::list_push_back(*queue, element);
    // Nobody asleep (or all of them already being woken) means nobody to
    // wake: a consumer that arrives later finds the element before it sleeps.
    if (queue->sleepers == 0) return false;
    queue->sleepers -= 1;
    return true;
}

// Wakes one sleeping consumer after the lock is released, so that it does not
// wake only to block on the lock the producer still holds. No wake-up is
// lost: a consumer counted as asleep is already inside the wait, which it
// entered atomically with releasing the lock.
void wake_one(qv_cond *qvcond, bool needed) noexcept {
    if (needed) qv_cond_signal(qvcond);
}


// Pops the head element, or returns null with the reason in *error_out.
// With item_out, the element's item is taken and the element kept as a spare
// (or freed), all under the one lock; the result then only tells success.
qv_lockqueue_element *pop_element(qv_lockqueue *queue, int *error_out, bool wait,
                                  void **item_out = nullptr) noexcept {
    QV_ASSERT(queue);
    qv_cond *qvcond = queue->condition;
    QV_ASSERT(qvcond != NULL);
    int error = QV_ERROR_GENERIC;
    qv_lockqueue_element *element = nullptr;
    qv_lockqueue_element *to_free = nullptr;
    qv_cond_lock(qvcond);
    if (wait) {
        // sleepers counts the consumers asleep that no push has yet chosen
        // to wake; the waker takes them off. A spurious wake-up counts a
        // consumer twice, which costs one needless signal, never a lost one.
        while (queue->head == nullptr && !queue->end) {
            queue->sleepers += 1;
            qv_cond_wait(qvcond);
        }
    }
    element = queue->head;
    if (element == nullptr) {
        error = queue->end ? QV_ERROR_END_OF_FILE : QV_ERROR_NOT_FOUND;
    } else {
        qv::list_unlink(*queue, element);
        error = QV_ERROR_NONE;
        if (item_out != nullptr) {
            *item_out = element->item;
            if (queue->nspares < kMaxSpares) {
                element->next = queue->spares;
                queue->spares = element;
                queue->nspares += 1;
            } else {
                to_free = element;
            }
        }
    }
    qv_cond_unlock(qvcond);
    if (to_free != nullptr) release(to_free);
    if (error_out != nullptr) *error_out = error;
    return element;
}

void *pop_item(qv_lockqueue *queue, int *error_out, bool wait) noexcept {
    QV_ASSERT(error_out != NULL);
    void *item = nullptr;
    if (pop_element(queue, error_out, wait, &item) == nullptr) return nullptr;
    QV_ASSERT(*error_out == QV_ERROR_NONE);
    return item;
}

}  // namespace

extern "C" {

QV_API qv_lockqueue *qv_lockqueue_create(int *error_out) noexcept {
    if (error_out != nullptr) *error_out = QV_ERROR_GENERIC;
    qv_lockqueue *queue = static_cast<qv_lockqueue *>(qv_cmalloc(sizeof(qv_lockqueue)));
    if (queue == nullptr) {
        if (error_out != nullptr) *error_out = QV_ERROR_NO_MEMORY;
        return nullptr;
    }
    queue->condition = qv_cond_create();
    if (queue->condition == nullptr) {
        qv_free(queue);
        return nullptr;
    }
    if (error_out != nullptr) *error_out = QV_ERROR_NONE;
    return queue;
}

QV_API void qv_lockqueue_destroy(qv_lockqueue *queue, qv_lockqueue_item_destroy_fn destroy) noexcept {
    QV_ASSERT(queue);
    qv_lockqueue_element *element = queue->head;
    while (element != nullptr) {
        qv_lockqueue_element *next = element->next;
        if (destroy != nullptr) destroy(element->item);
        release(element);
        element = next;
    }
    release_list(queue->spares);
    qv_cond_destroy(queue->condition);
    qv_free(queue);
}

QV_API int qv_lockqueue_push_element(qv_lockqueue *queue, qv_lockqueue_element *element) noexcept {
    QV_ASSERT(queue);
    QV_ASSERT(element);
    qv_cond *qvcond = queue->condition;
    QV_ASSERT(qvcond != NULL);
    int result = 0;
    bool wake = false;
    qv_cond_lock(qvcond);
    if (queue->end)
        result = QV_ERROR_WRITE;
    else
        wake = link_tail(queue, element);
    qv_cond_unlock(qvcond);
    wake_one(qvcond, wake);
    return result;
}

QV_API int qv_lockqueue_push(qv_lockqueue *queue, void *item) noexcept {
    QV_ASSERT(queue);
    qv_cond *qvcond = queue->condition;
    QV_ASSERT(qvcond != NULL);
    qv_cond_lock(qvcond);
    if (queue->end) {
        qv_cond_unlock(qvcond);
        return QV_ERROR_WRITE;
    }
    qv_lockqueue_element *element = queue->spares;
    if (element != nullptr) {
        queue->spares = element->next;
        queue->nspares -= 1;
        element->item = item;
        bool wake = link_tail(queue, element);
        qv_cond_unlock(qvcond);
        wake_one(qvcond, wake);
        return 0;
    }
    qv_cond_unlock(qvcond);
    // No spare: allocate a slab outside the lock; its other elements become
    // spares if the queue still takes pushes.
    Slab *slab = qv::make<Slab>();
    if (slab == nullptr) return QV_ERROR_NO_MEMORY;
    slab->live.store(kSlabElements, std::memory_order_relaxed);
    for (int i = 0; i < kSlabElements; ++i) {
        slab->elements[i].slab = slab;
        slab->elements[i].next = i + 1 < kSlabElements ? &slab->elements[i + 1] : nullptr;
    }
    element = &slab->elements[0];
    element->item = item;
    qv_cond_lock(qvcond);
    if (queue->end) {
        qv_cond_unlock(qvcond);
        qv::destroy(slab);
        return QV_ERROR_WRITE;
    }
    slab->elements[kSlabElements - 1].next = queue->spares;
    queue->spares = &slab->elements[1];
    queue->nspares += kSlabElements - 1;
    bool wake = link_tail(queue, element);
    qv_cond_unlock(qvcond);
    wake_one(qvcond, wake);
    return 0;
}

QV_API void *qv_lockqueue_pop(qv_lockqueue *queue, int *error_out) noexcept {
    return pop_item(queue, error_out, true);
}

QV_API void *qv_lockqueue_pop_try(qv_lockqueue *queue, int *error_out) noexcept {
    return pop_item(queue, error_out, false);
}

QV_API qv_lockqueue_element *qv_lockqueue_pop_element(qv_lockqueue *queue, int *error_out) noexcept {
    return pop_element(queue, error_out, true);
}

QV_API qv_lockqueue_element *qv_lockqueue_pop_element_try(qv_lockqueue *queue,
                                                          int *error_out) noexcept {
    return pop_element(queue, error_out, false);
}

QV_API void qv_lockqueue_set_end(qv_lockqueue *queue) noexcept {
    QV_ASSERT(queue);
    qv_cond *qvcond = queue->condition;
    QV_ASSERT(qvcond != NULL);
    qv_cond_lock(qvcond);
    queue->end = 1;
    queue->sleepers = 0;
    qv_cond_broadcast(qvcond);
    qv_cond_unlock(qvcond);
}

QV_API qv_lockqueue_element *qv_lockqueue_element_create(void) noexcept {
    return static_cast<qv_lockqueue_element *>(qv_cmalloc(sizeof(qv_lockqueue_element)));
}

QV_API void qv_lockqueue_element_destroy(qv_lockqueue_element *element) noexcept {
    QV_ASSERT(element);
    release(element);
}

QV_API void *qv_lockqueue_element_get_item(const qv_lockqueue_element *element) noexcept {
    QV_ASSERT(element);
    return element->item;
}

QV_API void qv_lockqueue_element_set_item(qv_lockqueue_element *element, void *item) noexcept {
    QV_ASSERT(element);
    element->item = item;
}

}  // extern "C"
