// POSIX backend of the extra fatal exits.
#include "platform/qvplat_fatal.h"

#include <cstdio>
#include <cstdlib>

namespace qv::plat {

void assert_fail_bare(const char *file, int line) noexcept {
    fprintf(stderr, "%s:%d: Assertion failed.\n", file, line);
    fflush(stderr);
    abort();
}

}  // namespace qv::plat
