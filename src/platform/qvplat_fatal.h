// Fatal exits beyond the expression assertion of qvplatform.h.
#pragma once

namespace qv::plat {

// Writes "<file>:<line>: Assertion failed.\n" to stderr and ends the process:
// for a broken invariant that no single expression names.
[[noreturn]] void assert_fail_bare(const char *file, int line) noexcept;

}  // namespace qv::plat
