// Running the built programs from a test: vexosim builds the bundled box in
// a temporary directory, vexohw runs against it with --sysroot.
#pragma once

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <json-c/json.h>
#include <memory>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

#include "frame/ipc.h"
#include "support/vexotest.h"

namespace vexo::test {

inline Ran runProgram(const std::string &exe, std::vector<std::string> args)
{
	args.insert(args.begin(), exe);
	return runCaptured(args);
}

// The source tree (the caller's file once named it; the build now knows it).
inline std::string sourceTreeOf(const char *) { return sourceDir(); }

// A bundled box (the 12-bay one unless named), built fresh into a temporary directory.
class BuiltBox {
public:
	explicit BuiltBox(const char *example = "box12.json")
	{
		char t[] = "/tmp/vexohw-cli-test.XXXXXX";
		dir_ = ::mkdtemp(t);
		root_ = dir_ + "/root";
		desc_ = sourceTreeOf(__FILE__) + "/examples/" + example;
		Ran r = runCaptured({buildDir() + "/bin/vexosim", "build", desc_, root_});
		ok_ = r.status == 0;
		log_ = r.out + r.err;
	}
	~BuiltBox()
	{
		// The unit commands leave semaphores keyed on the root: gone with it.
		vexo::ipc::removeRootSemaphores(root_);
		std::filesystem::remove_all(dir_);
	}
	BuiltBox(const BuiltBox &) = delete;
	BuiltBox &operator=(const BuiltBox &) = delete;

	bool ok() const { return ok_; }
	const std::string &log() const { return log_; }
	const std::string &root() const { return root_; }
	const std::string &description() const { return desc_; }

	// vexohw --sysroot ROOT args...
	Ran vexohw(std::vector<std::string> args) const
	{
		args.insert(args.begin(), {buildDir() + "/bin/vexohw", "--sysroot", root_});
		return runCaptured(args);
	}
	// A file of the box, "" when absent.
	std::string read(const std::string &path) const
	{
		std::ifstream in(root_ + path);
		return std::string(std::istreambuf_iterator<char>(in), {});
	}
	// Writes a file of the box, making its folders.
	void put(const std::string &path, const std::string &text) const
	{
		std::filesystem::create_directories(std::filesystem::path(root_ + path).parent_path());
		std::ofstream(root_ + path) << text;
	}
	// What a drive heard, in order, without the OPEN lines.
	std::vector<std::string> sent(const std::string &disk) const
	{
		std::istringstream in(read("/run/vexosim/drive/" + disk + ".log"));
		std::vector<std::string> out;
		for (std::string l; std::getline(in, l);)
			if (l.rfind("OPEN", 0) != 0)
				out.push_back(l);
		return out;
	}
	// Puts a disk in standby and forgets what it heard so far.
	int sleep(const std::string &disk) const
	{
		int status = vexohw({"power", "standby", disk}).status;
		std::filesystem::remove(root_ + "/run/vexosim/drive/" + disk + ".log");
		return status;
	}

private:
	std::string dir_, root_, desc_, log_;
	bool ok_ = false;
};

// All a disk in standby may hear: CHECK POWER MODE.
inline const std::string kCheckPowerMode = "HDIO_DRIVE_CMD args=e5000000 -> ok";

struct JsonDoc {
	explicit JsonDoc(const std::string &text) : obj(json_tokener_parse(text.c_str())) {}
	explicit JsonDoc(json_object *owned) : obj(owned) {}
	~JsonDoc() { json_object_put(obj); }
	JsonDoc(const JsonDoc &) = delete;
	JsonDoc &operator=(const JsonDoc &) = delete;
	json_object *obj;
};

inline json_object *field(json_object *o, const char *key)
{
	json_object *v = nullptr;
	return o && json_object_object_get_ex(o, key, &v) ? v : nullptr;
}

// A field as text: strings as they are, numbers and booleans in JSON
// form, "null" for null, "<none>" when absent.
inline std::string text(json_object *o, const char *key)
{
	json_object *v = nullptr;
	if (!o || !json_object_object_get_ex(o, key, &v))
		return "<none>";
	if (!v)
		return "null";
	if (json_object_is_type(v, json_type_string))
		return json_object_get_string(v);
	return json_object_to_json_string(v);
}

using Strings = std::vector<std::string>;

// Several fields as text, in the order asked.
inline Strings texts(json_object *o, std::initializer_list<const char *> keys)
{
	Strings out;
	for (const char *k : keys)
		out.push_back(text(o, k));
	return out;
}

} // namespace vexo::test
