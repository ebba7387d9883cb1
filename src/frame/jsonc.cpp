#include "frame/jsonc.h"

#include <cerrno>
#include <climits>
#include <cstring>


namespace vexo::jsonc {

Value parseWhole(std::string_view text, ParseFail *why)
{
	auto failed = [&](ParseFail f) {
		if (why)
			*why = f;
		return Value();
	};
	if (text.size() > INT_MAX)
		return failed(ParseFail::Syntax);
	Tokener tok(json_tokener_new());
	if (!tok)
		return failed(ParseFail::NoMemory);
	Value v(json_tokener_parse_ex(tok.get(), text.data(), static_cast<int>(text.size())));
	if (!v || json_tokener_get_error(tok.get()) != json_tokener_success)
		return failed(ParseFail::Syntax);
	for (std::size_t i = json_tokener_get_parse_end(tok.get()); i < text.size(); ++i)
		if (!std::strchr(" \t\r\n", text[i]) || text[i] == '\0')
			return failed(ParseFail::Syntax);
	if (why)
		*why = ParseFail::None;
	return v;
}

Value readFile(const char *path, ReadFail *why, std::size_t max)
{
	std::string text;
	// One byte over the limit tells a file that is too long.
	if (!readBytes(path, text, max + 1, why))
		return nullptr;
	if (text.size() > max) {
		if (why)
			*why = ReadFail::Read;
		errno = EFBIG;
		return nullptr;
	}
	ParseFail pf = ParseFail::None;
	Value v = parseWhole(text, &pf);
	if (!v) {
		if (why)
			*why = pf == ParseFail::NoMemory ? ReadFail::Read : ReadFail::Parse;
		errno = pf == ParseFail::NoMemory ? ENOMEM : EINVAL;
	} else if (why) {
		*why = ReadFail::None;
	}
	return v;
}

json_object *member(json_object *o, const char *key, json_type type)
{
	json_object *m = nullptr;
	if (!o || !json_object_is_type(o, json_type_object) || !json_object_object_get_ex(o, key, &m))
		return nullptr;
	return json_object_is_type(m, type) ? m : nullptr;
}

std::optional<std::string_view> string(json_object *o, const char *key)
{
	json_object *m = member(o, key, json_type_string);
	if (!m)
		return std::nullopt;
	return std::string_view(json_object_get_string(m), static_cast<std::size_t>(json_object_get_string_len(m)));
}

std::optional<int64_t> integer(json_object *o, const char *key)
{
	json_object *m = member(o, key, json_type_int);
	if (!m)
		return std::nullopt;
	return json_object_get_int64(m);
}

std::optional<bool> boolean(json_object *o, const char *key)
{
	json_object *m = member(o, key, json_type_boolean);
	if (!m)
		return std::nullopt;
	return json_object_get_boolean(m) != 0;
}

} // namespace vexo::jsonc
