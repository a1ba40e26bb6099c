// Reading a whole file into memory, for families that parse small text files.
#pragma once

#include <cstddef>

namespace qv::plat {

// Reads the named file into a new qv_malloc block with a terminating zero
// byte (not counted in *len). Returns 0, or the platform's error number of
// the call that failed, named in *failedcall ("fopen", "fread"). Running out
// of memory returns ENOMEM with *failedcall set to nullptr.
int read_whole_file(const char *name, char **data, size_t *len, const char **failedcall) noexcept;

}  // namespace qv::plat
