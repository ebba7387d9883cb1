// Scope-bound owners for json-c values and tokeners, a whole-document
// parser, and lookups that answer null instead of reading the wrong type.
#pragma once

#include <cstdint>
#include <json-c/json.h>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "frame/path_read.h"

namespace vexo::jsonc {

struct Put {
	void operator()(json_object *o) const { json_object_put(o); }
};
struct TokenerFree {
	void operator()(json_tokener *t) const { json_tokener_free(t); }
};
using Value = std::unique_ptr<json_object, Put>;
using Tokener = std::unique_ptr<json_tokener, TokenerFree>;

enum class ParseFail : uint8_t { None, NoMemory, Syntax };

// One document filling the text: anything but white space after it (a NUL
// included) makes it a damaged document. Null on failure, with why.
Value parseWhole(std::string_view text, ParseFail *why = nullptr);
// The same over a file at an appliance path (at most `max` bytes). Null on
// failure, with where it failed: Open (errno tells), Read (also an empty
// file, or one longer than max: EFBIG) or Parse.
Value readFile(const char *appliancePath, ReadFail *why = nullptr, std::size_t max = 16u << 20);

// A member of an object of the expected type; null when o is not an object,
// the key is missing, or the member has another type.
json_object *member(json_object *o, const char *key, json_type type);
// Typed members: nullopt when missing or of another type.
std::optional<std::string_view> string(json_object *o, const char *key);
std::optional<int64_t> integer(json_object *o, const char *key);
std::optional<bool> boolean(json_object *o, const char *key);

} // namespace vexo::jsonc
