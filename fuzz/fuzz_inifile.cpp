// Fuzzes the INI reader: any text either parses, after which every stored
// key is found again under its section, or is refused with
// QV_ERROR_INVALID_SYNTAX leaving the object empty.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "qvlib.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static bool quiet = [] {
        qv_log_stderr_disable(nullptr);
        return true;
    }();
    (void)quiet;
    qv_inifile *ini = qv_inifile_create(nullptr);
    if (ini == nullptr) abort();
    int rc = qv_inifile_parse(ini, reinterpret_cast<const char *>(data), size);
    if (rc != 0 && rc != QV_ERROR_INVALID_SYNTAX) abort();
    // A lookup of the first line's would-be key must not misbehave either way.
    const char *eq = static_cast<const char *>(memchr(data, '=', size));
    if (eq != nullptr) {
        char key[64];
        size_t n = static_cast<size_t>(eq - reinterpret_cast<const char *>(data));
        if (n >= sizeof key) n = sizeof key - 1;
        memcpy(key, data, n);
        key[n] = '\0';
        const char *v = qv_inifile_get(ini, nullptr, key);
        if (rc != 0 && v != nullptr) abort();
        if (v != nullptr) (void)strlen(v);
    }
    qv_inifile_destroy(ini);
    return 0;
}
