#include <stdio.h>
#include <string.h>

#include "demo.h"

static void free_value(void *value, void *context) {
    (void)context;
    qv_free(value);
}

void demo_hash(void) {
    const char *key;
    void *value;
    void *pos;
    qv_stringhash *colours;
    qv_cache *cache;
    const void *data;
    size_t size;
    int rc;

    demo_heading("string-keyed table");
    colours = qv_stringhash_create(free_value, NULL);
    if (colours == NULL) return;
    qv_stringhash_add(colours, "red", qv_strdup("#ff0000"));
    qv_stringhash_add(colours, "green", qv_strdup("#00ff00"));
    qv_stringhash_add(colours, "blue", qv_strdup("#0000ff"));
    qv_stringhash_add(colours, "red", qv_strdup("#e00000")); /* replaces, frees the old value */
    printf("red -> %s, Red -> %s\n", (char *)qv_stringhash_lookup(colours, "red"),
           qv_stringhash_lookup(colours, "Red") ? "found" : "(absent: keys are case-sensitive)");
    qv_stringhash_remove(colours, "green");
    for (pos = qv_stringhash_enumerate_start(colours, &key, &value); pos != NULL;
         pos = qv_stringhash_enumerate_next(colours, pos, &key, &value))
        printf("  %s = %s\n", key, (char *)value);
    qv_stringhash_destroy(colours);

    demo_heading("memory-limited cache");
    /* 100 bytes; each item counts key length + 24 + data size. */
    cache = qv_cache_create(100);
    if (cache == NULL) return;
    qv_cache_set(cache, "a", "first", 5);  /* 30 bytes */
    qv_cache_set(cache, "b", "second", 6); /* 31 bytes */
    qv_cache_get(cache, "a", &data, &size); /* lookups do not refresh "a" */
    rc = qv_cache_set(cache, "c", "a longer third item", 19); /* 44 bytes: evicts "a" */
    printf("set c: %d; a: %s; b: %s; c: %s\n", rc,
           qv_cache_get(cache, "a", &data, &size) == 0 ? "kept" : "evicted",
           qv_cache_get(cache, "b", &data, &size) == 0 ? "kept" : "evicted",
           qv_cache_get(cache, "c", &data, &size) == 0 ? "kept" : "evicted");
    rc = qv_cache_set(cache, "too big", "0123456789012345678901234567890123456789012345678901234567890123456789", 70);
    printf("101-byte item: %d (%s)\n", rc, qv_error_string(rc));
    qv_cache_destroy(cache);
}
