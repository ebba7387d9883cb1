#include "frame/exec.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "frame/sysroot.h"
#include "frame/unique.h"

extern char **environ;

namespace vexo::exec {
namespace {

struct Spawned {
	pid_t pid = -1;
	int err = 0;
};

std::vector<std::string> buildEnv(const std::vector<std::string> &extra)
{
	std::vector<std::string> env;
	for (char **e = environ; e && *e; ++e) {
		std::string_view v(*e);
		bool overridden = false;
		for (const auto &x : extra) {
			auto eq = x.find('=');
			if (eq != std::string::npos && v.size() > eq && v.compare(0, eq + 1, x, 0, eq + 1) == 0)
				overridden = true;
		}
		if (!overridden)
			env.emplace_back(v);
	}
	env.insert(env.end(), extra.begin(), extra.end());
	return env;
}

// Starts argv with the given descriptors as the child's 0, 1 and 2 (-1: /dev/null).
Spawned start(const std::vector<std::string> &argv, int in, int out, int errfd, const std::vector<std::string> &extraEnv)
{
	Spawned s;
	if (argv.empty() || argv[0].empty()) {
		s.err = EINVAL;
		return s;
	}
	std::string program = sysroot::path(argv[0]);
	std::vector<char *> av;
	for (const auto &a : argv)
		av.push_back(const_cast<char *>(a.c_str()));
	av.push_back(nullptr);
	std::vector<std::string> envs = buildEnv(extraEnv);
	std::vector<char *> ev;
	for (auto &e : envs)
		ev.push_back(e.data());
	ev.push_back(nullptr);

	posix_spawn_file_actions_t fa;
	posix_spawn_file_actions_init(&fa);
	int fds[3] = {in, out, errfd};
	for (int i = 0; i < 3; ++i) {
		if (fds[i] >= 0)
			posix_spawn_file_actions_adddup2(&fa, fds[i], i);
		else
			posix_spawn_file_actions_addopen(&fa, i, "/dev/null", i == 0 ? O_RDONLY : O_WRONLY, 0);
	}
	posix_spawnattr_t attr;
	posix_spawnattr_init(&attr);
	// A group of its own, so that a timeout takes the program's children too.
	posix_spawnattr_setpgroup(&attr, 0);
	sigset_t none, all;
	sigemptyset(&none);
	sigfillset(&all);
	posix_spawnattr_setsigmask(&attr, &none);
	sigset_t defaults;
	sigemptyset(&defaults);
	sigaddset(&defaults, SIGPIPE);
	sigaddset(&defaults, SIGCHLD);
	posix_spawnattr_setsigdefault(&attr, &defaults);
	posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
	pid_t pid = -1;
	int rc = posix_spawn(&pid, program.c_str(), &fa, &attr, av.data(), ev.data());
	posix_spawnattr_destroy(&attr);
	posix_spawn_file_actions_destroy(&fa);
	if (rc != 0) {
		s.err = rc;
		return s;
	}
	s.pid = pid;
	return s;
}

int reap(pid_t pid, int *signalOut)
{
	int st = 0;
	pid_t r;
	do {
		r = ::waitpid(pid, &st, 0);
	} while (r < 0 && errno == EINTR);
	if (r < 0)
		return -1;
	if (WIFEXITED(st))
		return WEXITSTATUS(st);
	if (WIFSIGNALED(st) && signalOut)
		*signalOut = WTERMSIG(st);
	return -1;
}

} // namespace

Result run(const std::vector<std::string> &argv, const Options &opts)
{
	Result res;
	int inPipe[2] = {-1, -1}, outPipe[2] = {-1, -1}, errPipe[2] = {-1, -1};
	if (pipe2(inPipe, O_CLOEXEC) != 0 || (opts.captureStdout && pipe2(outPipe, O_CLOEXEC) != 0) ||
	    (opts.captureStderr && pipe2(errPipe, O_CLOEXEC) != 0)) {
		res.spawnErrno = errno;
		for (int fd : {inPipe[0], inPipe[1], outPipe[0], outPipe[1], errPipe[0], errPipe[1]})
			if (fd >= 0)
				::close(fd);
		return res;
	}
	UniqueFd inW(inPipe[1]), outR(outPipe[0]), errR(errPipe[0]);
	Spawned s = start(argv, inPipe[0], outPipe[1], errPipe[1], opts.env);
	for (int fd : {inPipe[0], outPipe[1], errPipe[1]})
		if (fd >= 0)
			::close(fd);
	if (s.pid < 0) {
		res.spawnErrno = s.err;
		return res;
	}
	res.started = true;

	using clock = std::chrono::steady_clock;
	const auto deadline = clock::now() + std::chrono::milliseconds(opts.timeoutMs < 0 ? 0 : opts.timeoutMs);
	size_t written = 0;
	if (opts.stdinData.empty())
		inW.reset();
	else
		fcntl(inW.get(), F_SETFL, O_NONBLOCK);

	while (inW || outR || errR) {
		struct pollfd p[3];
		int n = 0;
		if (inW)
			p[n++] = {inW.get(), POLLOUT, 0};
		if (outR)
			p[n++] = {outR.get(), POLLIN, 0};
		if (errR)
			p[n++] = {errR.get(), POLLIN, 0};
		int wait = -1;
		if (opts.timeoutMs >= 0) {
			auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - clock::now()).count();
			if (left <= 0) {
				res.timedOut = true;
				break;
			}
			wait = static_cast<int>(left);
		}
		int r = ::poll(p, n, wait);
		if (r < 0 && errno == EINTR)
			continue;
		if (r < 0)
			break;
		if (r == 0)
			continue;
		for (int i = 0; i < n; ++i) {
			if (!p[i].revents)
				continue;
			if (inW && p[i].fd == inW.get()) {
				ssize_t w = ::write(inW.get(), opts.stdinData.data() + written, opts.stdinData.size() - written);
				if (w > 0)
					written += w;
				if (w < 0 && errno != EAGAIN && errno != EINTR)
					inW.reset();
				if (written == opts.stdinData.size())
					inW.reset();
				continue;
			}
			UniqueFd &src = (outR && p[i].fd == outR.get()) ? outR : errR;
			std::string &dst = (&src == &outR) ? res.out : res.err;
			char buf[8192];
			ssize_t got = ::read(src.get(), buf, sizeof(buf));
			if (got > 0)
				dst.append(buf, got);
			else if (got == 0 || (errno != EINTR && errno != EAGAIN))
				src.reset();
		}
	}
	inW.reset();
	outR.reset();
	errR.reset();
	// A child may close its output and still run: the limit holds for the
	// whole run, not only while it writes.
	while (!res.timedOut && opts.timeoutMs >= 0) {
		int st = 0;
		pid_t r = ::waitpid(s.pid, &st, WNOHANG);
		if (r == s.pid) {
			if (WIFEXITED(st))
				res.exitStatus = WEXITSTATUS(st);
			else if (WIFSIGNALED(st))
				res.termSignal = WTERMSIG(st);
			return res;
		}
		if (r < 0 && errno != EINTR)
			break;
		if (clock::now() >= deadline)
			res.timedOut = true;
		else
			::usleep(2000);
	}
	if (res.timedOut) {
		::kill(-s.pid, SIGKILL);
		::kill(s.pid, SIGKILL);
	}
	res.exitStatus = reap(s.pid, &res.termSignal);
	return res;
}

Child::Child(Child &&o) noexcept : pid_(std::exchange(o.pid_, -1)), fd_(std::exchange(o.fd_, -1)) {}

Child &Child::operator=(Child &&o) noexcept
{
	if (this != &o) {
		this->~Child();
		pid_ = std::exchange(o.pid_, -1);
		fd_ = std::exchange(o.fd_, -1);
	}
	return *this;
}

Child::~Child()
{
	if (fd_ >= 0)
		::close(fd_);
	if (pid_ > 0) {
		::kill(-pid_, SIGKILL);
		reap(pid_, nullptr);
	}
}

Child Child::spawn(const std::vector<std::string> &argv, bool readFromChild, const Options &opts)
{
	Child c;
	int p[2];
	if (pipe2(p, O_CLOEXEC) != 0)
		return c;
	int childEnd = readFromChild ? p[1] : p[0];
	int parentEnd = readFromChild ? p[0] : p[1];
	int errfd = -1;
	if (opts.captureStderr && readFromChild)
		errfd = childEnd; // merged, as a shell's 2>&1 would
	Spawned s = readFromChild ? start(argv, -1, childEnd, errfd, opts.env) : start(argv, childEnd, -1, -1, opts.env);
	::close(childEnd);
	if (s.pid < 0) {
		::close(parentEnd);
		errno = s.err;
		return c;
	}
	c.pid_ = s.pid;
	c.fd_ = parentEnd;
	return c;
}

int Child::releaseFd() { return std::exchange(fd_, -1); }

int Child::wait()
{
	if (fd_ >= 0) {
		::close(fd_);
		fd_ = -1;
	}
	if (pid_ <= 0)
		return -1;
	int rc = reap(std::exchange(pid_, -1), nullptr);
	return rc;
}

} // namespace vexo::exec
