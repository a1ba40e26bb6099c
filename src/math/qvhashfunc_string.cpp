// The library's string hash. The string is taken four bytes at a time, each
// group packed big-endian into a word (a short last group gives a smaller
// number, bytes taken unsigned) and folded in as h = rotl(h, 5) ^ word; the
// details live in internal/qvhashfunc.h, shared with the string-keyed table,
// which knows its key lengths already. Enumeration order of every table
// depends on these exact bits, so the function must never change.
// No state, no locking.
#include <cstring>

#include "internal/qvhashfunc.h"
#include "internal/qvinternal.h"

extern "C" QV_API uint32_t qv_hashfunc_string(const char *string) noexcept {
    QV_ASSERT(string != NULL);
    // Knowing the length up front lets whole groups be loaded as words
    // instead of testing every byte for the terminator.
    return qv::hash_string_n(string, strlen(string));
}
