#include "daemon.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "build.h"

namespace vexosim {
namespace {

constexpr int kWaitSteps = 200; // of 25 ms: five seconds
constexpr useconds_t kStepUs = 25000;

bool exists(const std::string &p)
{
	struct stat st;
	return ::lstat(p.c_str(), &st) == 0;
}

// The pid in the box's pid file when it names a living daemon, else 0.
pid_t runningPid(const std::string &root)
{
	std::ifstream in(root + "/var/run/vcemd.pid");
	long pid = 0;
	if (!(in >> pid) || pid < 1)
		return 0;
	std::ifstream comm("/proc/" + std::to_string(pid) + "/comm");
	std::string name;
	if (!(comm >> name) || name != "vcemd")
		return 0;
	return static_cast<pid_t>(pid);
}

// Marks a daemon that a run started, so that runs stop only their own.
std::string runMark(const std::string &root) { return root + "/run/vexosim/vcemd.by-run"; }

} // namespace

int startDaemon(const std::string &root)
{
	// Who starts it last owns it: `vexosim start` takes a run's daemon over.
	::unlink(runMark(root).c_str());
	if (runningPid(root) > 0)
		return 0;
	std::string program = besideSelf("vcemd");
	if (program.empty() || ::access(program.c_str(), X_OK) != 0) {
		std::fprintf(stderr, "vexosim: no vcemd program beside vexosim\n");
		return 1;
	}
	pid_t child = ::fork();
	if (child < 0) {
		std::perror("vexosim: fork");
		return 1;
	}
	if (child == 0) {
		// Its own session, so it outlives this program and the terminal;
		// and no pipe of whoever ran vexosim is kept open by it.
		::setsid();
		int null = ::open("/dev/null", O_RDWR);
		if (null >= 0) {
			::dup2(null, 0);
			::dup2(null, 1);
			::dup2(null, 2);
			if (null > 2)
				::close(null);
		}
		::setenv("VEXO_SYSROOT", root.c_str(), 1);
		::execl(program.c_str(), "vcemd", static_cast<char *>(nullptr));
		_exit(127);
	}
	const std::string ready = root + "/tmp/.vcemd_ready";
	for (int i = 0; i < kWaitSteps; ++i) {
		int status = 0;
		if (::waitpid(child, &status, WNOHANG) == child) {
			std::fprintf(stderr, "vexosim: vcemd ended at start (status %d)\n", status);
			return 1;
		}
		if (exists(ready) && runningPid(root) == child)
			return 0;
		::usleep(kStepUs);
	}
	std::fprintf(stderr, "vexosim: vcemd was not ready in time\n");
	::kill(child, SIGKILL);
	::waitpid(child, nullptr, 0);
	return 1;
}

int stopDaemon(const std::string &root)
{
	pid_t pid = runningPid(root);
	if (pid == 0)
		return 0;
	if (::kill(pid, SIGTERM) != 0)
		return errno == ESRCH ? 0 : 1;
	for (int i = 0; i < kWaitSteps; ++i) {
		if (::kill(pid, 0) != 0 && errno == ESRCH)
			return 0;
		// Our own child (vexosim start in this process) must be reaped.
		::waitpid(pid, nullptr, WNOHANG);
		::usleep(kStepUs);
	}
	std::fprintf(stderr, "vexosim: vcemd (pid %d) did not stop\n", static_cast<int>(pid));
	return 1;
}

RunDaemon::RunDaemon(const std::string &root) : root_(root)
{
	std::string program = besideSelf("vcemd");
	if (program.empty() || ::access(program.c_str(), X_OK) != 0)
		return;
	// Every run of the box holds the lock shared while its command runs;
	// starting and stopping take it alone. A run that finds the daemon up
	// joins it without waiting for the others.
	::mkdir((root + "/run").c_str(), 0755);
	::mkdir((root + "/run/vexosim").c_str(), 0755);
	lock_ = ::open((root + "/run/vexosim/run.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
	if (lock_ < 0 || ::flock(lock_, LOCK_SH) != 0) {
		std::fprintf(stderr, "vexosim: %s/run/vexosim/run.lock: %s\n", root.c_str(), std::strerror(errno));
		status_ = 1;
		return;
	}
	// Started alone: the lock taken alone, which waits for nobody's command
	// (a run that cannot have it finds the daemon up once its starter has
	// it ready, or tries again).
	for (int i = 0; runningPid(root) == 0; ++i) {
		if (::flock(lock_, LOCK_EX | LOCK_NB) == 0) {
			if (runningPid(root) == 0) {
				status_ = startDaemon(root);
				if (status_ == 0) {
					int m = ::open(runMark(root).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW,
						       0644);
					if (m >= 0)
						::close(m);
				}
			}
			::flock(lock_, LOCK_SH);
			return;
		}
		if (i == kWaitSteps) {
			std::fprintf(stderr, "vexosim: another run holds the box's daemon and it is not up\n");
			status_ = 1;
			return;
		}
		// A failed conversion may have let the shared lock go: taken again.
		::usleep(kStepUs);
		::flock(lock_, LOCK_SH);
	}
}

RunDaemon::~RunDaemon()
{
	if (lock_ < 0)
		return;
	// The last run out stops a daemon that a run started.
	if (status_ == 0 && ::flock(lock_, LOCK_EX | LOCK_NB) == 0 && exists(runMark(root_)) &&
	    stopDaemon(root_) == 0)
		::unlink(runMark(root_).c_str());
	::close(lock_);
}

} // namespace vexosim
