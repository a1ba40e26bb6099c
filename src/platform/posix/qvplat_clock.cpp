// POSIX backend of the calendar clock.
#include "platform/qvplat_clock.h"

#include <ctime>

namespace qv::plat {

bool realtime_seconds(int64_t *out) noexcept {
    struct timespec ts;
    if (clock_gettime(CLOCK_REALTIME, &ts) != 0) return false;
    *out = static_cast<int64_t>(ts.tv_sec);
    return true;
}

}  // namespace qv::plat
