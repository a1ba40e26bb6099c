#include <stdio.h>

#include "demo.h"

/* Builds a small document, prints it, parses text and queries it by path. */
void demo_json(void) {
    demo_heading("JSON documents");
    qv_json *doc = qv_json_create();
    if (doc == NULL) return;
    qv_json_node *root, *tags;
    qv_json_node_set_object(doc, NULL);
    qv_json_fetch_node(doc, &root, NULL);
    qv_json_node_set_string(doc, qv_json_node_object_add(doc, root, "name"), "qvlib");
    qv_json_node_set_double(doc, qv_json_node_object_add(doc, root, "ratio"), 2.5);
    tags = qv_json_node_object_add(doc, root, "tags");
    qv_json_node_set_array(doc, tags);
    qv_json_node_set_string(doc, qv_json_node_array_add(doc, tags), "c\tabi");
    qv_json_node_set_integer(doc, qv_json_node_array_add(doc, tags), 42);
    char *text = qv_json_output(doc);
    if (text != NULL) printf("built:  %s\n", text);
    qv_free(text);

    if (qv_json_parse(doc, "{\"user\": {\"id\": 7, \"langs\": [\"C\", \"C++\"], \"score\": \"2.5\"}}") == 0) {
        int id = 0, score = 0;
        const char *lang = NULL;
        qv_json_fetch_int(doc, &id, "user", "id", NULL);
        qv_json_fetch_string(doc, &lang, "user", "langs", "#", 1u, NULL);
        qv_json_fetch_int(doc, &score, "user", "score", NULL); /* "2.5" rounds to 3 */
        printf("parsed: id=%d second language=%s score=%d\n", id, lang, score);
    }
    /* Bad input fails with one log line and leaves the document empty. */
    printf("parse of [1e5] (no exponents on input):\n");
    printf("  result %d\n", qv_json_parse(doc, "[1e5]"));
    qv_json_destroy(doc);
}
