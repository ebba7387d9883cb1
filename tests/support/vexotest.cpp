#include "support/vexotest.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "frame/ipc.h"

namespace fs = std::filesystem;

namespace vexo::test {

ScopedEnv::ScopedEnv(const char *name, const char *value) : name_(name)
{
	if (const char *v = std::getenv(name)) {
		had_ = true;
		old_ = v;
	}
	if (value)
		::setenv(name, value, 1);
	else
		::unsetenv(name);
}

ScopedEnv::~ScopedEnv()
{
	if (had_)
		::setenv(name_.c_str(), old_.c_str(), 1);
	else
		::unsetenv(name_.c_str());
}

namespace {

std::string makeTempDir(const char *tag)
{
	const char *base = std::getenv("TMPDIR");
	std::string tmpl = std::string(base && *base ? base : "/tmp") + "/vexo-" + tag + "-XXXXXX";
	std::vector<char> buf(tmpl.begin(), tmpl.end());
	buf.push_back('\0');
	if (!::mkdtemp(buf.data()))
		throw std::runtime_error("mkdtemp failed");
	return buf.data();
}

} // namespace

Sysroot::Sysroot() : root_(makeTempDir("root")), env_("VEXO_SYSROOT", root_.c_str()) {}

Sysroot::~Sysroot()
{
	// Keyed on the root's inode: once it is gone they can no longer be found.
	vexo::ipc::removeRootSemaphores(root_);
	std::error_code ec;
	fs::remove_all(root_, ec);
}

std::string Sysroot::host(std::string_view path) const { return root_ + std::string(path); }

void Sysroot::mkdirs(std::string_view path, mode_t mode) const
{
	fs::create_directories(host(path));
	::chmod(host(path).c_str(), mode);
}

void Sysroot::write(std::string_view path, std::string_view content, mode_t mode) const
{
	fs::path p(host(path));
	fs::create_directories(p.parent_path());
	std::ofstream out(p, std::ios::binary | std::ios::trunc);
	out.write(content.data(), static_cast<std::streamsize>(content.size()));
	out.close();
	::chmod(p.c_str(), mode);
}

void Sysroot::symlink(std::string_view target, std::string_view path) const
{
	fs::path p(host(path));
	fs::create_directories(p.parent_path());
	fs::create_symlink(std::string(target), p);
}

std::string Sysroot::read(std::string_view path) const
{
	std::ifstream in(host(path), std::ios::binary);
	std::stringstream ss;
	ss << in.rdbuf();
	return ss.str();
}

bool Sysroot::exists(std::string_view path) const
{
	struct stat st;
	return ::lstat(host(path).c_str(), &st) == 0;
}

mode_t Sysroot::mode(std::string_view path) const
{
	struct stat st {};
	::stat(host(path).c_str(), &st);
	return st.st_mode & 07777;
}

void Sysroot::remove(std::string_view path) const
{
	std::error_code ec;
	fs::remove_all(host(path), ec);
}

void Sysroot::diskDir(std::string_view name) const { mkdirs("/run/vexostorage/disks/" + std::string(name)); }

void Sysroot::conf(std::string_view path, const std::vector<std::pair<std::string, std::string>> &kv) const
{
	std::string s;
	for (const auto &[k, v] : kv)
		s += k + "=\"" + v + "\"\n";
	write(path, s);
}

LogCapture::LogCapture() : path_(makeTempDir("log") + "/log"), env_("VEXO_LOG", path_.c_str())
{
	// Children that dropped their ids must still be able to log here.
	::chmod(fs::path(path_).parent_path().c_str(), 0755);
	int fd = ::open(path_.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0666);
	if (fd >= 0) {
		::fchmod(fd, 0666);
		::close(fd);
	}
}

LogCapture::~LogCapture()
{
	std::error_code ec;
	fs::remove_all(fs::path(path_).parent_path(), ec);
}

std::vector<LogLine> LogCapture::lines() const
{
	std::vector<LogLine> out;
	std::ifstream in(path_);
	std::string l;
	while (std::getline(in, l)) {
		LogLine line{-1, l};
		if (l.size() > 2 && l[0] == '<') {
			auto close = l.find('>');
			if (close != std::string::npos) {
				line.priority = std::atoi(l.c_str() + 1);
				line.text = l.substr(close + 1);
			}
		}
		out.push_back(line);
	}
	return out;
}

int LogCapture::count(int priority, std::string_view text) const
{
	int n = 0;
	for (const auto &l : lines())
		if ((priority < 0 || l.priority == priority) && l.text.find(text) != std::string::npos)
			++n;
	return n;
}

std::string LogCapture::dump() const
{
	std::string s;
	for (const auto &l : lines())
		s += "<" + std::to_string(l.priority) + ">" + l.text + "\n";
	return s;
}

void LogCapture::clear() const { ::truncate(path_.c_str(), 0); }

pid_t forkChild(const std::function<int()> &fn)
{
	std::fflush(nullptr);
	pid_t pid = ::fork();
	if (pid == 0) {
		int rc = 1;
		try {
			rc = fn();
		} catch (...) {
			rc = 99;
		}
		::_exit(rc);
	}
	return pid;
}

int waitChild(pid_t pid)
{
	int st = 0;
	if (pid < 0 || ::waitpid(pid, &st, 0) != pid)
		return -1;
	if (WIFEXITED(st))
		return WEXITSTATUS(st);
	return 128 + (WIFSIGNALED(st) ? WTERMSIG(st) : 0);
}

int inChild(const std::function<int()> &fn) { return waitChild(forkChild(fn)); }

namespace {

// Runs argv with its standard output on one pipe and its error output on a
// second pipe (`split`), on the first (`merged`) or on /dev/null, reading
// both until the child closes them.
Ran spawn(const std::vector<std::string> &argv, bool split, bool merged)
{
	Ran r;
	int out[2], err[2] = {-1, -1};
	if (::pipe(out) != 0 || (split && ::pipe(err) != 0))
		return r;
	pid_t pid = ::fork();
	if (pid < 0)
		return r;
	if (pid == 0) {
		::dup2(out[1], STDOUT_FILENO);
		::dup2(split ? err[1] : merged ? out[1] : ::open("/dev/null", O_WRONLY), STDERR_FILENO);
		for (int fd : {out[0], out[1], err[0], err[1]})
			if (fd >= 0)
				::close(fd);
		std::vector<char *> args;
		for (const auto &a : argv)
			args.push_back(const_cast<char *>(a.c_str()));
		args.push_back(nullptr);
		::execvp(args[0], args.data());
		::_exit(127);
	}
	::close(out[1]);
	if (split)
		::close(err[1]);
	struct pollfd p[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
	std::string *into[2] = {&r.out, &r.err};
	for (int open = split ? 2 : 1; open > 0;) {
		if (::poll(p, split ? 2 : 1, -1) < 0 && errno != EINTR)
			break;
		for (int i = 0; i < 2; ++i) {
			if (p[i].fd < 0 || !p[i].revents)
				continue;
			char buf[4096];
			ssize_t n = ::read(p[i].fd, buf, sizeof(buf));
			if (n > 0) {
				into[i]->append(buf, static_cast<size_t>(n));
			} else if (n == 0 || errno != EINTR) {
				::close(p[i].fd);
				p[i].fd = -1;
				--open;
			}
		}
	}
	r.status = waitChild(pid);
	return r;
}

} // namespace

int runProgram(const std::vector<std::string> &argv, std::string *out, bool withStderr)
{
	Ran r = spawn(argv, false, withStderr);
	if (out)
		*out = r.out;
	return r.status;
}

Ran runCaptured(const std::vector<std::string> &argv) { return spawn(argv, true, false); }

pid_t startNamedProcess(const std::string &name)
{
	pid_t pid = ::fork();
	if (pid == 0) {
		::prctl(PR_SET_NAME, name.c_str());
		::prctl(PR_SET_PDEATHSIG, SIGKILL);
		for (;;)
			::pause();
	}
	// Give the child time to take its name before anyone looks.
	for (int i = 0; i < 200; ++i) {
		std::ifstream in("/proc/" + std::to_string(pid) + "/comm");
		std::string comm;
		std::getline(in, comm);
		if (comm == name)
			break;
		::usleep(5000);
	}
	return pid;
}

std::string sourceDir()
{
	const char *s = std::getenv("VEXO_SOURCE_DIR");
	return s && *s ? s : VEXO_TEST_SOURCE_DIR;
}

std::string buildDir()
{
	const char *s = std::getenv("VEXO_BUILD_DIR");
	return s && *s ? s : VEXO_TEST_BUILD_DIR;
}

std::string sharedDataDir()
{
	std::string d = sourceDir() + "/../shared/data";
	struct stat st;
	return ::stat(d.c_str(), &st) == 0 ? d : std::string();
}

std::string hex(int code)
{
	char buf[32];
	std::snprintf(buf, sizeof(buf), "0x%04X", code);
	return buf;
}

} // namespace vexo::test
