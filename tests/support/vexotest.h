// Test support: a throw-away sysroot, log capture through VEXO_LOG, error
// record assertions, environment overrides and forked children.
#pragma once

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>
#include <vexohw/frame.h>
#include <vexoplatform/vexocore.h>

namespace vexo::test {

// Sets (or unsets, with nullptr) an environment variable for a scope.
class ScopedEnv {
public:
	ScopedEnv(const char *name, const char *value);
	~ScopedEnv();
	ScopedEnv(const ScopedEnv &) = delete;
	ScopedEnv &operator=(const ScopedEnv &) = delete;

private:
	std::string name_;
	bool had_ = false;
	std::string old_;
};

// A fresh root directory installed as VEXO_SYSROOT for the scope, removed
// afterwards. Paths are appliance paths ("/etc/vexoinfo.conf").
class Sysroot {
public:
	Sysroot();
	~Sysroot();
	Sysroot(const Sysroot &) = delete;
	Sysroot &operator=(const Sysroot &) = delete;

	const std::string &root() const { return root_; }
	std::string host(std::string_view path) const; // root + path

	void mkdirs(std::string_view path, mode_t mode = 0755) const;
	// Writes a file, creating its directories.
	void write(std::string_view path, std::string_view content, mode_t mode = 0644) const;
	// A symlink at `path` whose text is `target` (keep it relative, as sysfs does).
	void symlink(std::string_view target, std::string_view path) const;
	std::string read(std::string_view path) const;
	bool exists(std::string_view path) const;
	mode_t mode(std::string_view path) const;
	void remove(std::string_view path) const;
	// /run/vexostorage/disks/<name>/
	void diskDir(std::string_view name) const;
	// A key-value configuration file: each pair becomes key="value".
	void conf(std::string_view path, const std::vector<std::pair<std::string, std::string>> &kv) const;

private:
	std::string root_;
	ScopedEnv env_;
};

struct LogLine {
	int priority;
	std::string text;
};

// Captures the log lines of this process and its children for the scope.
class LogCapture {
public:
	LogCapture();
	~LogCapture();
	LogCapture(const LogCapture &) = delete;
	LogCapture &operator=(const LogCapture &) = delete;

	std::vector<LogLine> lines() const;
	// Lines at `priority` (-1: any) containing `text`.
	int count(int priority, std::string_view text = {}) const;
	bool has(int priority, std::string_view text) const { return count(priority, text) > 0; }
	std::string dump() const;
	void clear() const;

private:
	std::string path_;
	ScopedEnv env_;
};

// Runs fn in a forked child; returns its exit status (fn's result), or
// 128+signal when it died. gtest assertions in the child do not reach the
// parent: return non-zero instead.
int inChild(const std::function<int()> &fn);
// The same in two steps, for children that run side by side.
pid_t forkChild(const std::function<int()> &fn);
int waitChild(pid_t pid);

// Runs argv (searched in the host's PATH, not under the sysroot) with its
// standard output, and its error output when asked, gathered in *out (when
// given); stderr otherwise goes to /dev/null. Gives the exit status, or
// 128+signal when it died.
int runProgram(const std::vector<std::string> &argv, std::string *out = nullptr, bool withStderr = false);

struct Ran {
	int status = -1; // exit status, 128+signal when killed
	std::string out, err;
};
// The same with standard output and error output apart.
Ran runCaptured(const std::vector<std::string> &argv);

// Starts a process whose name (comm) is `name` and that sleeps until killed.
pid_t startNamedProcess(const std::string &name);

// A core string list's items.
inline std::vector<std::string> items(PVLIBSZLIST list)
{
	std::vector<std::string> out;
	for (int i = 0; list && i < list->nItem; ++i)
		out.emplace_back(VLIBCSzListGet(list, i));
	return out;
}

// The source tree and build tree, from the environment ctest sets.
std::string sourceDir();
std::string buildDir();

// The captured-output folder beside the repository, or "" when absent.
std::string sharedDataDir();

std::string hex(int code);

// What a getter of the form fn(arg, buf, size) wrote into a buffer of
// `size` bytes: the text on 0, else "rc=<rc>", with " touched" when it
// wrote anything on failure, " unterminated" when the text has no end.
// The same for any call that fills a buffer: fill(buf, size) gives its result.
inline std::string textOf(const std::function<int(char *, int)> &fill, size_t size = 128)
{
	std::string buf(size, '\x7f');
	int rc = fill(buf.data(), static_cast<int>(size));
	if (rc != 0)
		return "rc=" + std::to_string(rc) + (buf == std::string(size, '\x7f') ? "" : " touched");
	return buf.find('\0') == std::string::npos ? "unterminated" : buf.c_str();
}
template <class R, class S>
std::string textOf(R (*fn)(const char *, char *, S), const char *arg, size_t size = 128)
{
	return textOf([&](char *b, int n) { return static_cast<int>(fn(arg, b, static_cast<S>(n))); }, size);
}

} // namespace vexo::test

#define EXPECT_ERR(code) EXPECT_EQ(::vexo::test::hex(VLIBCErrGet()), ::vexo::test::hex(code))
#define ASSERT_ERR(code) ASSERT_EQ(::vexo::test::hex(VLIBCErrGet()), ::vexo::test::hex(code))
