// json-c wrappers for bench_json.cpp: json-c and jansson both declare
// json_object and json_type, so json-c lives in its own translation unit.
#include <json-c/json.h>

namespace jsonc {

void *parse(const char *text) { return json_tokener_parse(text); }
void release(void *doc) { json_object_put(static_cast<json_object *>(doc)); }
const char *write(void *doc) {
    return json_object_to_json_string_ext(static_cast<json_object *>(doc), JSON_C_TO_STRING_PLAIN);
}

}  // namespace jsonc
