/* Builds against the installed header and library through pkg-config. */
#include <stdio.h>
#include <string.h>

#include <qvlib.h>

int main(void) {
    char *s = qv_strdupf("%s %d", qv_error_string(QV_ERROR_NOT_FOUND), QV_ERROR_COUNT);
    int ok = s != NULL && strcmp(s, "item not found 220") == 0;
    qv_free(s);
    qv_log_raw(NULL, 0, "c consumer %s", ok ? "ok" : "failed");
    qv_uninit();
    return ok ? 0 : 1;
}
