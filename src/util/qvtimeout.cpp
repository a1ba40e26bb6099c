// Deadlines: a qv_timeout bounds a whole operation made of several waits.
//
// Time is the platform's 32-bit millisecond tick; differences are taken in
// unsigned 32-bit arithmetic, so a deadline survives the tick's wrap as long
// as no single wait between two checks exceeds 49.7 days. remaining is the
// time left as of start; each check moves start to now and subtracts the
// time in between, so a check consumes the time since the previous one.
// All-ones remaining means no limit. One thread at a time.
#include "internal/qvinternal.h"
#include "internal/qvtimeout.h"

struct qv_timeout {
    uint32_t start;
    uint32_t remaining;
    long seconds;
    long microseconds;
};

namespace {

constexpr uint32_t kNoLimit = 0xffffffffu;

}  // namespace

extern "C" {

QV_API qv_timeout *qv_timeout_create(void) noexcept {
    return static_cast<qv_timeout *>(qv_cmalloc(sizeof(qv_timeout)));
}

QV_API void qv_timeout_set(qv_timeout *t, long seconds, long microseconds) noexcept {
    QV_ASSERT(t != NULL);
    QV_ASSERT(microseconds < 1000000);
    t->seconds = seconds;
    t->microseconds = microseconds;
    if (seconds < 0) {
        t->remaining = kNoLimit;
        return;
    }
    t->start = qv::plat::tick_ms();
    // 32-bit millisecond arithmetic, as the tick counter has; microseconds
    // round to the nearest millisecond.
    t->remaining = static_cast<uint32_t>(seconds) * 1000u +
                   static_cast<uint32_t>((microseconds + 500) / 1000);
}

QV_API int qv_timeout_check(qv_timeout *t, long *secondsptr, long *microsecondsptr) noexcept {
    QV_ASSERT(t != NULL);
    if (t->remaining == kNoLimit) {
        if (secondsptr != nullptr) *secondsptr = -1;
        if (microsecondsptr != nullptr) *microsecondsptr = 0;
        return -1;
    }
    uint32_t now = qv::plat::tick_ms();
    uint32_t elapsed = now - t->start;
    int expired = elapsed >= t->remaining ? 1 : 0;
    t->remaining = expired ? 0 : t->remaining - elapsed;
    t->start = now;
    if (secondsptr != nullptr) *secondsptr = static_cast<long>(t->remaining / 1000u);
    if (microsecondsptr != nullptr) *microsecondsptr = static_cast<long>(t->remaining % 1000u) * 1000;
    return expired;
}

QV_API void qv_timeout_destroy(qv_timeout *t) noexcept {
    QV_ASSERT(t != NULL);
    qv_free(t);
}

}  // extern "C"

namespace qv {

void timeout_restart(qv_timeout *t, long *secondsptr, long *microsecondsptr) noexcept {
    QV_ASSERT(t != NULL);
    qv_timeout_set(t, t->seconds, t->microseconds);
    if (secondsptr != nullptr) *secondsptr = t->seconds;
    if (microsecondsptr != nullptr) *microsecondsptr = t->microseconds;
}

}  // namespace qv
