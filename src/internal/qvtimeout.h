// Deadline helpers for the library's own layers (sockets, handles, HTTP),
// not exported.
#pragma once

#include "qvlib.h"

namespace qv {

// Sets the deadline again from the limit it was last given (a fresh start
// for a new operation) and hands that limit back through the pointers that
// are not null.
void timeout_restart(qv_timeout *t, long *secondsptr, long *microsecondsptr) noexcept;

}  // namespace qv
