// Stopwatches: a qv_timer keeps three ticks (start, start of the current
// split, latest split) of the platform's 32-bit millisecond clock; intervals
// are unsigned 32-bit differences, so they survive the tick's wrap. Results
// are whole milliseconds. One thread at a time.
#include "internal/qvinternal.h"

struct qv_timer {
    uint32_t start;
    uint32_t splitstart;
    uint32_t last;
};

namespace {

void report(uint32_t ms, unsigned int count, long *secondsptr, long *microsecondsptr,
            double *rateptr) noexcept {
    if (secondsptr != nullptr) *secondsptr = static_cast<long>(ms / 1000u);
    if (microsecondsptr != nullptr) *microsecondsptr = static_cast<long>(ms % 1000u) * 1000;
    // An empty interval gives an infinite rate (or NaN for a count of 0).
    if (rateptr != nullptr) *rateptr = static_cast<double>(count) / (static_cast<double>(ms) / 1000.0);
}

}  // namespace

extern "C" {

QV_API qv_timer *qv_timer_create(void) noexcept {
    qv_timer *t = static_cast<qv_timer *>(qv_malloc(sizeof(qv_timer)));
    if (t != nullptr) qv_timer_start(t);
    return t;
}

QV_API void qv_timer_start(qv_timer *t) noexcept {
    QV_ASSERT(t != NULL);
    uint32_t now = qv::plat::tick_ms();
    t->start = now;
    t->splitstart = now;
    t->last = now;
}

QV_API void qv_timer_split(qv_timer *t) noexcept {
    QV_ASSERT(t != NULL);
    t->last = qv::plat::tick_ms();
}

QV_API void qv_timer_storesplit(qv_timer *t) noexcept {
    QV_ASSERT(t != NULL);
    t->splitstart = t->last;
}

QV_API void qv_timer_gettotal(qv_timer *t, unsigned int count, long *secondsptr,
                              long *microsecondsptr, double *rateptr) noexcept {
    QV_ASSERT(t != NULL);
    report(t->last - t->start, count, secondsptr, microsecondsptr, rateptr);
}

QV_API void qv_timer_getsplit(qv_timer *t, unsigned int count, long *secondsptr,
                              long *microsecondsptr, double *rateptr) noexcept {
    QV_ASSERT(t != NULL);
    report(t->last - t->splitstart, count, secondsptr, microsecondsptr, rateptr);
}

QV_API void qv_timer_destroy(qv_timer *t) noexcept {
    QV_ASSERT(t != NULL);
    qv_free(t);
}

}  // extern "C"
