// Sleep, the calendar time and local-time conversion. Stateless and safe
// from any thread.
#include "internal/qvinternal.h"
#include "platform/qvplat_clock.h"

namespace {

// The longest single sleep the 32-bit millisecond interface allows in whole
// seconds, and that many milliseconds.
constexpr long kChunkSeconds = 2147483;
constexpr uint32_t kChunkMs = 2147483000u;

}  // namespace

extern "C" {

QV_API void qv_sleep(long seconds, long microseconds) noexcept {
    QV_ASSERT(microseconds < 1000000);
    while (seconds >= kChunkSeconds) {
        qv::plat::sleep_ms(kChunkMs);
        seconds -= kChunkSeconds;
    }
    // Microseconds are truncated to milliseconds. A negative total would
    // wrap into a sleep of weeks in the 32-bit millisecond count: it sleeps
    // nothing instead.
    int64_t ms = static_cast<int64_t>(seconds) * 1000 + microseconds / 1000;
    if (ms > 0) qv::plat::sleep_ms(static_cast<uint32_t>(ms));
}

QV_API int64_t qv_time(int64_t *tptr) noexcept {
    int64_t now = -1;
    if (!qv::plat::realtime_seconds(&now)) now = -1;
    if (tptr != nullptr) *tptr = now;
    return now;
}

QV_API struct tm *qv_localtime_r(const int64_t *timep, struct tm *result) noexcept {
    QV_ASSERT(timep);
    QV_ASSERT(result);
    return qv::plat::localtime(*timep, result) ? result : nullptr;
}

}  // extern "C"
