// Internal hooks of the log, for tests and benchmarks.
#pragma once

#include <cstddef>

namespace qv {
// Creates the default log if needed and grows its two scratch buffers to at
// least size bytes, so that later messages up to that size allocate nothing.
void log_reserve_buffers(size_t size) noexcept;
}  // namespace qv
