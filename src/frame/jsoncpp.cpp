#include "frame/jsoncpp.h"

#include <cerrno>
#include <memory>
#include <new>


namespace vexo::jsoncpp {

bool parse(std::string_view text, Json::Value &out, std::string *error) noexcept
{
	try {
		// jsoncpp takes a NUL for the end of the text; in a file it is damage.
		if (text.find('\0') != std::string_view::npos) {
			if (error)
				*error = "NUL byte in the document";
			errno = EINVAL;
			return false;
		}
		Json::CharReaderBuilder b;
		b["failIfExtra"] = true;   // one document, then only white space
		b["allowComments"] = false; // the databases are plain JSON
		b["stackLimit"] = 256;      // a hostile nesting fails, it does not recurse on
		std::unique_ptr<Json::CharReader> r(b.newCharReader());
		Json::Value v;
		std::string err;
		if (!r->parse(text.data(), text.data() + text.size(), &v, &err)) {
			if (error)
				*error = err;
			errno = EINVAL;
			return false;
		}
		out.swap(v);
		return true;
	} catch (const std::bad_alloc &) {
		errno = ENOMEM;
	} catch (const std::exception &e) {
		errno = EINVAL;
		if (error) {
			try {
				*error = e.what();
			} catch (...) {
			}
		}
	} catch (...) {
		errno = EINVAL;
	}
	return false;
}

bool readFile(const char *path, Json::Value &out, ReadFail *why, std::string *error, std::size_t max) noexcept
{
	auto failed = [&](ReadFail f, int err) {
		if (why)
			*why = f;
		errno = err;
		return false;
	};
	try {
		std::string text;
		// One byte over the limit tells a file that is too long.
		if (!readBytes(path, text, max + 1, why))
			return false;
		if (text.size() > max)
			return failed(ReadFail::Read, EFBIG);
		if (!parse(text, out, error))
			return failed(errno == ENOMEM ? ReadFail::Read : ReadFail::Parse, errno);
		if (why)
			*why = ReadFail::None;
		return true;
	} catch (...) {
		return failed(ReadFail::Read, ENOMEM);
	}
}

const Json::Value *member(const Json::Value &v, const char *key) noexcept
{
	if (!key || !v.isObject())
		return nullptr;
	return v.find(key, key + std::char_traits<char>::length(key));
}

bool get(const Json::Value &v, const char *key, std::string &out) noexcept
{
	const Json::Value *m = member(v, key);
	if (!m || !m->isString())
		return false;
	try {
		out = m->asString();
		return true;
	} catch (...) {
		return false;
	}
}

bool get(const Json::Value &v, const char *key, int64_t &out) noexcept
{
	const Json::Value *m = member(v, key);
	// A whole number in range; 3.0 is taken as 3, 1.5 and "3" are not.
	if (!m || m->isBool() || !m->isInt64())
		return false;
	out = m->asInt64();
	return true;
}

bool get(const Json::Value &v, const char *key, int32_t &out) noexcept
{
	int64_t wide = 0;
	if (!get(v, key, wide) || wide < INT32_MIN || wide > INT32_MAX)
		return false;
	out = static_cast<int32_t>(wide);
	return true;
}

bool get(const Json::Value &v, const char *key, double &out) noexcept
{
	const Json::Value *m = member(v, key);
	if (!m || !m->isNumeric() || m->isBool())
		return false;
	out = m->asDouble();
	return true;
}

bool get(const Json::Value &v, const char *key, bool &out) noexcept
{
	const Json::Value *m = member(v, key);
	if (!m || !m->isBool())
		return false;
	out = m->asBool();
	return true;
}

} // namespace vexo::jsoncpp
