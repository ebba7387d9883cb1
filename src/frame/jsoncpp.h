// Reading the compatibility databases and rule files with jsoncpp, without
// letting its exceptions out: jsoncpp throws from its parser (nesting too
// deep) and from its accessors (asInt() on a string, operator[] on an
// array). Everything here answers false or a fallback instead.
#pragma once

#include <cstdint>
#include <json/json.h>
#include <string>
#include <string_view>

#include "frame/path_read.h"

namespace vexo::jsoncpp {

// One document filling the text (trailing white space only). False on any
// failure, with the parser's message in *error when asked; out is left as it
// was then.
bool parse(std::string_view text, Json::Value &out, std::string *error = nullptr) noexcept;
// The same over a file at an appliance path (at most `max` bytes), with
// where it failed: Open (errno tells), Read (also an empty file, or one
// longer than max: EFBIG) or Parse.
bool readFile(const char *appliancePath, Json::Value &out, ReadFail *why = nullptr, std::string *error = nullptr,
	      std::size_t max = 64u << 20) noexcept;

// The member `key` of an object; null when v is not an object or lacks it.
const Json::Value *member(const Json::Value &v, const char *key) noexcept;

// Typed reads of a member. False (out untouched) when v is not an object,
// the key is missing, or the value has another type or does not fit: a
// number is never read as text nor text as a number, and 1.5 is not an int.
bool get(const Json::Value &v, const char *key, std::string &out) noexcept;
bool get(const Json::Value &v, const char *key, int64_t &out) noexcept;
bool get(const Json::Value &v, const char *key, int32_t &out) noexcept;
bool get(const Json::Value &v, const char *key, double &out) noexcept;
bool get(const Json::Value &v, const char *key, bool &out) noexcept;

// The same with a fallback for the missing or mistyped case.
template <typename T>
T getOr(const Json::Value &v, const char *key, T fallback) noexcept
{
	T out{};
	return get(v, key, out) ? out : fallback;
}
inline std::string getOr(const Json::Value &v, const char *key, const char *fallback)
{
	std::string out;
	return get(v, key, out) ? out : std::string(fallback);
}

} // namespace vexo::jsoncpp
