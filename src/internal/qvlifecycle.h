// Hooks through which process-wide objects join qv_uninit's teardown.
#pragma once

namespace qv {
// The random source registers its teardown when it is first created;
// qv_uninit calls it after destroying the log.
void register_random_teardown(void (*fn)() noexcept) noexcept;
}  // namespace qv
