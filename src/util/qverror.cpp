// Error codes and their fixed messages. The table is walked linearly: 51
// entries, looked up only on failure paths, so an index buys nothing.
#include "internal/qvinternal.h"

namespace {

struct ErrorText {
    int code;
    const char *message;
};

constexpr ErrorText kErrors[] = {
    {QV_ERROR_NONE, "success"},
    {QV_ERROR_NOT_PERMITTED, "operation not permitted"},
    {QV_ERROR_INTERRUPTED, "interrupted system call"},
    {QV_ERROR_IO, "input/output error"},
    {QV_ERROR_WOULD_BLOCK, "would block"},
    {QV_ERROR_NO_MEMORY, "not enough memory"},
    {QV_ERROR_PERMISSION_DENIED, "permission denied"},
    {QV_ERROR_BAD_ADDRESS, "bad address"},
    {QV_ERROR_EXISTS, "item already exists"},
    {QV_ERROR_CROSS_DEVICE, "cross device link"},
    {QV_ERROR_NOT_DIRECTORY, "not a directory"},
    {QV_ERROR_INVALID_ARGUMENT, "invalid argument"},
    {QV_ERROR_NO_SPACE, "no space left on device"},
    {QV_ERROR_READ_ONLY, "read-only file system"},
    {QV_ERROR_TOO_MANY_LINKS, "too many links"},
    {QV_ERROR_BROKEN_PIPE, "broken pipe"},
    {QV_ERROR_OUT_OF_RANGE, "out of range"},
    {QV_ERROR_NAME_TOO_LONG, "name is too long"},
    {QV_ERROR_NOT_IMPLEMENTED, "function not implemented"},
    {QV_ERROR_SYMLINK_LOOP, "too many symbolic links"},
    {QV_ERROR_TIMER_EXPIRED, "timer expired"},
    {QV_ERROR_PROTOCOL, "protocol error"},
    {QV_ERROR_MESSAGE_TOO_LONG, "message too long"},
    {QV_ERROR_ADDRESS_IN_USE, "address already in use"},
    {QV_ERROR_NETWORK_UNREACHABLE, "network unreachable"},
    {QV_ERROR_CONNECTION_RESET, "connection reset by peer"},
    {QV_ERROR_CONNECTION_TIMED_OUT, "connection timed out"},
    {QV_ERROR_CONNECTION_REFUSED, "connection refused"},
    {QV_ERROR_IN_PROGRESS, "operation in progress"},
    {QV_ERROR_QUOTA_EXCEEDED, "quota exceeded"},
    {QV_ERROR_CANCELED, "operation canceled"},
    {QV_ERROR_CANNOT_CONNECT, "cannot connect"},
    {QV_ERROR_TIMED_OUT, "timed out"},
    {QV_ERROR_GENERIC, "generic error"},
    {QV_ERROR_WRITE, "write error"},
    {QV_ERROR_END_OF_FILE, "end of file"},
    {QV_ERROR_UNSUPPORTED, "unsupported operation"},
    {QV_ERROR_BUSY, "resource is busy"},
    {QV_ERROR_NOT_FOUND, "item not found"},
    {QV_ERROR_INTERNAL, "internal error"},
    {QV_ERROR_INVALID_SYNTAX, "invalid syntax"},
    {QV_ERROR_UNRESOLVED_HOST, "unable to resolve host"},
    {QV_ERROR_SERVER, "server returned an error"},
    {QV_ERROR_BAD_HANDLE, "bad handle"},
    {QV_ERROR_WAKEUP, "wakeup requested"},
    {QV_ERROR_INCOMPLETE, "operation incomplete"},
    {QV_ERROR_ID_MISMATCH, "identifier mismatch"},
    {QV_ERROR_UNTRUSTED_ROOT_CA, "untrusted root ca"},
    {QV_ERROR_NO_ADDRESS_IN_FAMILY, "no addresses in family"},
    {QV_ERROR_TEMPORARY_FAILURE, "temporary failure"},
    {QV_ERROR_PERMANENT_FAILURE, "permanent failure"},
    {0, nullptr},
};

static_assert(sizeof kErrors / sizeof kErrors[0] == 52, "51 codes and the terminator");

}  // namespace

extern "C" QV_API const char *qv_error_string(int code) noexcept {
    for (const ErrorText *e = kErrors; e->message != nullptr; ++e)
        if (e->code == code) return e->message;
    return "unknown error";
}
