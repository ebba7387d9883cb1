#include "daemon.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
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

} // namespace

int startDaemon(const std::string &root)
{
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

} // namespace vexosim
