// Reading (and, for the appliance's own tools, changing) a drive node
// outside of a device command: under the same flock the drive emulator
// takes, so a tool never sees a half-written node.
#pragma once

#include <functional>
#include <json-c/json.h>
#include <string>

namespace vexosim::tools {

// Owns a parsed json object.
class Json {
public:
	explicit Json(json_object *o = nullptr) : o_(o) {}
	~Json() { json_object_put(o_); }
	Json(const Json &) = delete;
	Json &operator=(const Json &) = delete;
	Json(Json &&other) noexcept : o_(other.o_) { other.o_ = nullptr; }
	Json &operator=(Json &&other) noexcept
	{
		if (this != &other) {
			json_object_put(o_);
			o_ = other.o_;
			other.o_ = nullptr;
		}
		return *this;
	}
	json_object *get() const { return o_; }

private:
	json_object *o_;
};

// The node of an appliance device path ("/dev/sda"), parsed; null when it
// is missing, not a regular file or not a JSON object (errno says why).
Json readNode(const std::string &appliancePath);

// Runs `change` on the node under an exclusive lock and writes the node
// back when it returns true. False (errno set) when the node can't be read
// or written.
bool updateNode(const std::string &appliancePath, const std::function<bool(json_object *)> &change);

// Small accessors over json-c.
json_object *member(json_object *o, const char *key);
long long memberInt(json_object *o, const char *key, long long fallback);
bool memberBool(json_object *o, const char *key, bool fallback);
std::string memberString(json_object *o, const char *key, const std::string &fallback);

} // namespace vexosim::tools
