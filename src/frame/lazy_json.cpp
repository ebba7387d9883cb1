// json-c on first use: the functions the library calls (see lazy_lib.h).
#include <json-c/json.h>

#include "frame/lazy_lib.h"

using vexo::lazy::jsonc;

#pragma GCC visibility push(hidden)
extern "C" {

int json_object_put(struct json_object *o) { VEXO_LAZY_CALL(jsonc(), json_object_put, 0, o); }
struct json_object *json_object_get(struct json_object *o) { VEXO_LAZY_CALL(jsonc(), json_object_get, nullptr, o); }
int json_object_is_type(const struct json_object *o, enum json_type t) { VEXO_LAZY_CALL(jsonc(), json_object_is_type, 0, o, t); }
const char *json_object_to_json_string_ext(struct json_object *o, int flags)
{
	VEXO_LAZY_CALL(jsonc(), json_object_to_json_string_ext, nullptr, o, flags);
}
struct lh_table *json_object_get_object(const struct json_object *o) { VEXO_LAZY_CALL(jsonc(), json_object_get_object, nullptr, o); }
json_bool json_object_object_get_ex(const struct json_object *o, const char *key, struct json_object **value)
{
	VEXO_LAZY_CALL(jsonc(), json_object_object_get_ex, 0, o, key, value);
}
struct json_object *json_object_new_array(void) { VEXO_LAZY_CALL(jsonc(), json_object_new_array, nullptr); }
size_t json_object_array_length(const struct json_object *o) { VEXO_LAZY_CALL(jsonc(), json_object_array_length, 0, o); }
int json_object_array_add(struct json_object *o, struct json_object *v) { VEXO_LAZY_CALL(jsonc(), json_object_array_add, -1, o, v); }
struct json_object *json_object_array_get_idx(const struct json_object *o, size_t i)
{
	VEXO_LAZY_CALL(jsonc(), json_object_array_get_idx, nullptr, o, i);
}
json_bool json_object_get_boolean(const struct json_object *o) { VEXO_LAZY_CALL(jsonc(), json_object_get_boolean, 0, o); }
struct json_object *json_object_new_int(int32_t i) { VEXO_LAZY_CALL(jsonc(), json_object_new_int, nullptr, i); }
int32_t json_object_get_int(const struct json_object *o) { VEXO_LAZY_CALL(jsonc(), json_object_get_int, 0, o); }
int64_t json_object_get_int64(const struct json_object *o) { VEXO_LAZY_CALL(jsonc(), json_object_get_int64, 0, o); }
struct json_object *json_object_new_string(const char *s) { VEXO_LAZY_CALL(jsonc(), json_object_new_string, nullptr, s); }
const char *json_object_get_string(struct json_object *o) { VEXO_LAZY_CALL(jsonc(), json_object_get_string, nullptr, o); }
int json_object_get_string_len(const struct json_object *o) { VEXO_LAZY_CALL(jsonc(), json_object_get_string_len, 0, o); }
size_t json_tokener_get_parse_end(struct json_tokener *t) { VEXO_LAZY_CALL(jsonc(), json_tokener_get_parse_end, 0, t); }
enum json_tokener_error json_tokener_get_error(struct json_tokener *t)
{
	VEXO_LAZY_CALL(jsonc(), json_tokener_get_error, json_tokener_error_parse_unexpected, t);
}
struct json_tokener *json_tokener_new(void) { VEXO_LAZY_CALL(jsonc(), json_tokener_new, nullptr); }
void json_tokener_free(struct json_tokener *t) { VEXO_LAZY_CALL(jsonc(), json_tokener_free, , t); }
struct json_object *json_tokener_parse(const char *s) { VEXO_LAZY_CALL(jsonc(), json_tokener_parse, nullptr, s); }
struct json_object *json_tokener_parse_ex(struct json_tokener *t, const char *s, int len)
{
	VEXO_LAZY_CALL(jsonc(), json_tokener_parse_ex, nullptr, t, s, len);
}

} // extern "C"
#pragma GCC visibility pop
