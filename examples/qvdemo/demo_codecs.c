#include <stdio.h>
#include <string.h>

#include "demo.h"

void demo_codecs(void) {
    const char *message = "The quick brown fox jumps over the lazy dog";
    unsigned char digest[32];
    char *hex;
    char *b64;
    void *back = NULL;
    size_t backlen = 0;
    int rc;

    demo_heading("SHA-256 and Base64");

    qv_sha256 *sha = qv_sha256_create();
    if (sha == NULL) return;
    qv_sha256_update(sha, message, strlen(message));
    qv_sha256_finalize(sha);
    qv_sha256_digest(sha, digest);
    qv_sha256_destroy(sha);
    hex = qv_bin2hex(digest, sizeof digest);
    printf("sha256(\"%s\")\n  = %s\n", message, hex ? hex : "(no memory)");
    qv_free(hex);

    b64 = qv_base64_encode(message, strlen(message));
    if (b64 == NULL) return;
    printf("base64 = %s\n", b64);
    rc = qv_base64_decode(&back, &backlen, b64, strlen(b64));
    printf("decoded back: %s (%lu bytes, %s)\n", rc == QV_ERROR_NONE ? (char *)back : "-",
           (unsigned long)backlen, qv_error_string(rc));
    qv_free(back);
    qv_free(b64);
}
