#include "frame/proc.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <string>
#include <sys/syscall.h>
#include <unistd.h>

#include "frame/unique.h"

namespace vexo::proc {

namespace {

// The state letter of /proc/<pid>/stat, or 0 when the process is gone.
char state(const PathDir &proc, const std::string &pid)
{
	std::string line;
	if (!proc.readLine(pid + "/stat", line, 512, true))
		return 0;
	// The name in parentheses may hold anything, so look after the last ')'.
	std::size_t close = line.rfind(')');
	return close != std::string::npos && close + 2 < line.size() && line[close + 1] == ' ' ? line[close + 2] : 0;
}

bool living(char s) { return s != 0 && s != 'Z' && s != 'X' && s != 'x'; }

UniqueFd pidfdOpen(pid_t pid)
{
#ifdef SYS_pidfd_open
	return UniqueFd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
#else
	(void)pid;
	errno = ENOSYS;
	return UniqueFd();
#endif
}

int send(const UniqueFd &pidfd, pid_t pid, int sig)
{
#ifdef SYS_pidfd_send_signal
	if (pidfd)
		return static_cast<int>(::syscall(SYS_pidfd_send_signal, pidfd.get(), sig, nullptr, 0));
#endif
	(void)pidfd;
	return ::kill(pid, sig);
}

} // namespace

bool alive(pid_t pid)
{
	if (pid <= 0)
		return false;
	if (::kill(pid, 0) != 0 && errno != EPERM)
		return false;
	return living(state(PathDir::host("/proc"), std::to_string(pid)));
}

bool readPidFile(const char *path, pid_t &pid, ReadFail *why)
{
	int64_t v = 0;
	if (!readI64(path, v, why))
		return false;
	if (v <= 0 || v > INT_MAX) {
		if (why)
			*why = ReadFail::Parse;
		errno = ERANGE;
		return false;
	}
	pid = static_cast<pid_t>(v);
	return true;
}

Signal signalByPidFile(const char *pidFile, int sig, const char *comm, pid_t *pidOut)
{
	pid_t pid = 0;
	ReadFail why = ReadFail::None;
	if (!pidFile || !readPidFile(pidFile, pid, &why))
		return why == ReadFail::Open || !pidFile ? Signal::NoPidFile : Signal::BadPidFile;
	if (pidOut)
		*pidOut = pid;
	// Hold the process first, then look at it: what is checked is what is
	// signalled. Without pidfds (old kernels) the window is the usual one.
	UniqueFd pidfd = pidfdOpen(pid);
	if (!pidfd && errno == ESRCH)
		return Signal::NotRunning;
	PathDir proc = PathDir::host("/proc");
	const std::string p = std::to_string(pid);
	if (!living(state(proc, p)))
		return Signal::NotRunning;
	if (comm) {
		std::string name;
		if (!proc.readLine(p + "/comm", name, 64))
			return Signal::NotRunning;
		if (name != std::string_view(comm, strnlen(comm, 15)))
			return Signal::OtherProgram;
	}
	if (send(pidfd, pid, sig) != 0)
		return errno == ESRCH ? Signal::NotRunning : Signal::Failed;
	return Signal::Sent;
}

} // namespace vexo::proc
