// Allocation fault injector, compiled only into test builds
// (QV_FAULT_INJECTION). Tests link the static library, which keeps these
// hidden symbols reachable; the shared library never exports them.
#pragma once

#include <cstddef>

namespace qv::fault {

// Fail the n-th allocation from now (n >= 1), counting qv_malloc, qv_calloc,
// qv_cmalloc and qv_realloc. With repeat, every allocation from then on fails.
void fail_at(unsigned long n, bool repeat) noexcept;
// Stop failing and reset the counters.
void reset() noexcept;
// Allocations attempted since the last reset.
unsigned long count() noexcept;
// Allocations failed by the injector since the last reset.
unsigned long failed() noexcept;
// Blocks handed out minus blocks freed, over the life of the process.
long live_blocks() noexcept;
// Called on every injected failure: a breakpoint target.
void on_injected_failure() noexcept;

}  // namespace qv::fault
