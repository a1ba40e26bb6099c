// Calendar clock of the platform layer (the monotonic tick lives in
// qvplatform.h).
#pragma once

#include <cstdint>

namespace qv::plat {

// Seconds since 1970-01-01 UTC from the calendar clock, the fraction dropped;
// false when the clock cannot be read.
bool realtime_seconds(int64_t *out) noexcept;

}  // namespace qv::plat
