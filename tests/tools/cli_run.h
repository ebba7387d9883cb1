// Running the built programs from a test: vexosim builds the bundled box in
// a temporary directory, vexohw runs against it with --sysroot.
#pragma once

#include <cstdio>
#include <filesystem>
#include <json-c/json.h>
#include <memory>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "support/vexotest.h"

namespace vexo::test {

struct Ran {
	int status = -1; // exit status, 128+signal when killed
	std::string out, err;
};

inline std::string drainFd(int fd)
{
	std::string s;
	char buf[4096];
	for (ssize_t n; (n = ::read(fd, buf, sizeof buf)) > 0;)
		s.append(buf, static_cast<size_t>(n));
	::close(fd);
	return s;
}

// Runs exe with args; stdout and stderr apart. The output is small, so
// reading one pipe after the other cannot block the child.
inline Ran runProgram(const std::string &exe, const std::vector<std::string> &args)
{
	int out[2], err[2];
	if (::pipe(out) != 0 || ::pipe(err) != 0)
		return {};
	pid_t pid = ::fork();
	if (pid == 0) {
		::dup2(out[1], 1);
		::dup2(err[1], 2);
		for (int fd : {out[0], out[1], err[0], err[1]})
			::close(fd);
		std::vector<char *> argv{const_cast<char *>(exe.c_str())};
		for (const auto &a : args)
			argv.push_back(const_cast<char *>(a.c_str()));
		argv.push_back(nullptr);
		::execv(exe.c_str(), argv.data());
		::_exit(126);
	}
	::close(out[1]);
	::close(err[1]);
	Ran r;
	r.err = drainFd(err[0]);
	r.out = drainFd(out[0]);
	int st = 0;
	::waitpid(pid, &st, 0);
	r.status = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
	return r;
}

inline std::string sourceTreeOf(const char *file)
{
	std::string s = sourceDir();
	if (!s.empty())
		return s;
	s = file;
	return s.substr(0, s.rfind("/tests/"));
}

// The bundled 12-bay box, built fresh into a temporary directory.
class BuiltBox {
public:
	BuiltBox()
	{
		char t[] = "/tmp/vexohw-cli-test.XXXXXX";
		dir_ = ::mkdtemp(t);
		root_ = dir_ + "/root";
		desc_ = sourceTreeOf(__FILE__) + "/examples/box12.json";
		Ran r = runProgram(buildDir() + "/bin/vexosim", {"build", desc_, root_});
		ok_ = r.status == 0;
		log_ = r.out + r.err;
	}
	~BuiltBox() { std::filesystem::remove_all(dir_); }
	BuiltBox(const BuiltBox &) = delete;
	BuiltBox &operator=(const BuiltBox &) = delete;

	bool ok() const { return ok_; }
	const std::string &log() const { return log_; }
	const std::string &root() const { return root_; }
	const std::string &description() const { return desc_; }

	// vexohw --sysroot ROOT args...
	Ran vexohw(std::vector<std::string> args) const
	{
		args.insert(args.begin(), {"--sysroot", root_});
		return runProgram(buildDir() + "/bin/vexohw", args);
	}

private:
	std::string dir_, root_, desc_, log_;
	bool ok_ = false;
};

struct JsonDoc {
	explicit JsonDoc(const std::string &text) : obj(json_tokener_parse(text.c_str())) {}
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

} // namespace vexo::test
