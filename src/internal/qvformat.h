// Internal formatting helpers shared by the allocating formatters.
#pragma once

#include <cstdarg>

namespace qv {
// Formats into a new qv_malloc block stored in *out (null on failure);
// returns the length or -1.
int vformat_alloc(char **out, const char *format, va_list ap) noexcept;
}  // namespace qv
