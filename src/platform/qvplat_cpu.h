// CPU feature queries for the families that pick a code path at run time.
// The answers never change during a process, so callers may cache them.
#pragma once

namespace qv::plat {

// True if the processor executes the SHA-1/SHA-256 instructions (x86 SHA
// extensions) together with the SSSE3 and SSE4.1 instructions they are used
// with. Always false on other architectures.
bool cpu_has_sha_extensions() noexcept;

}  // namespace qv::plat
