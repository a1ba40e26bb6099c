// Builds against the installed CMake package.
#include <qvlib.h>

#include <cstring>

int main() {
    char *s = nullptr;
    int n = qv_asprintf(&s, "%s", qv_error_string(QV_ERROR_TIMED_OUT));
    bool ok = n == 9 && std::strcmp(s, "timed out") == 0;
    qv_free(s);
    qv_log_raw(nullptr, 0, "c++ consumer %s", ok ? "ok" : "failed");
    qv_uninit();
    return ok ? 0 : 1;
}
