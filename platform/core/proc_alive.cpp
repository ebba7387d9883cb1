// Process liveness and pid files. Liveness is always asked of the real
// /proc: a process is the host's, whatever root the files live under.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <mutex>
#include <poll.h>
#include <string>
#include <sys/syscall.h>
#include <unistd.h>
#include <vexoplatform/vexocore.h>

#include "frame/err.h"
#include "frame/path_read.h"
#include "frame/proc.h"
#include "text_file.h"

namespace {

// Alive means running in any state but a zombie or dead one.
bool pidAlive(pid_t pid) { return vexo::proc::alive(pid); }

std::string commOf(const vexo::PathDir &proc, const char *pid)
{
	std::string comm;
	if (!proc.readLine(std::string(pid) + "/comm", comm, 64))
		return {};
	return comm;
}

// The process last found under a name, held by a pidfd: while it runs, the
// next question about that name is one poll() instead of a walk of /proc
// (DiskInfoEnum asks for "vcemd" on every call). A pidfd follows that one
// process, so a recycled pid can never answer for it.
struct Found {
	std::mutex lock;
	std::string name;
	int fd = -1;
};

Found &found()
{
	static Found f;
	return f;
}

bool cachedAlive(const std::string &want)
{
	Found &f = found();
	std::lock_guard<std::mutex> g(f.lock);
	if (f.fd < 0 || f.name != want)
		return false;
	pollfd p{f.fd, POLLIN, 0};
	if (::poll(&p, 1, 0) == 0)
		return true; // readable only once the process has ended
	::close(f.fd);
	f.fd = -1;
	return false;
}

void remember(const std::string &want, pid_t pid)
{
#ifdef SYS_pidfd_open
	int fd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
	if (fd < 0)
		return;
	// The pid might have been recycled between the scan and the open.
	if (commOf(vexo::PathDir::host("/proc"), std::to_string(pid).c_str()) != want) {
		::close(fd);
		return;
	}
	Found &f = found();
	std::lock_guard<std::mutex> g(f.lock);
	if (f.fd >= 0)
		::close(f.fd);
	f.name = want;
	f.fd = fd;
#else
	(void)want;
	(void)pid;
#endif
}

bool nameAlive(const char *name)
{
	// comm holds at most 15 characters of the name.
	std::string want(name, strnlen(name, 15));
	if (cachedAlive(want))
		return true;
	DIR *d = ::opendir("/proc");
	if (!d)
		return false;
	vexo::PathDir proc = vexo::PathDir::host("/proc");
	pid_t hit = -1;
	while (struct dirent *e = ::readdir(d)) {
		char *end = nullptr;
		long pid = std::strtol(e->d_name, &end, 10);
		if (pid <= 0 || *end)
			continue;
		std::string comm = commOf(proc, e->d_name);
		if (comm.empty())
			continue;
		if (want == comm && pidAlive(static_cast<pid_t>(pid))) {
			hit = static_cast<pid_t>(pid);
			break;
		}
	}
	::closedir(d);
	if (hit > 0)
		remember(want, hit);
	return hit > 0;
}

} // namespace

extern "C" {

VEXOP_API int VLIBCIsProcAlive(const char *name, pid_t pid)
try {
	if (pid > 0)
		return pidAlive(pid) ? 1 : 0;
	if (!name || !*name) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return 0;
	}
	return nameAlive(name) ? 1 : 0;
} VEXO_C_CATCH(0)

VEXOP_API pid_t VLIBCReadPidFile(const char *path)
try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	// One number, with white space around it.
	pid_t pid = 0;
	vexo::ReadFail why = vexo::ReadFail::None;
	if (!vexo::proc::readPidFile(path, pid, &why)) {
		VEXO_ERR(why == vexo::ReadFail::Open && errno == ENOENT ? VEXO_ERR_NOENT : VEXO_ERR_READ);
		return -1;
	}
	return pid;
} VEXO_C_CATCH(-1)

VEXOP_API int VLIBCProcAliveByPidFile(const char *path)
try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	pid_t pid = VLIBCReadPidFile(path);
	if (pid < 0) {
		// A pid file that is gone reads as "could not open" to callers.
		if (VLIBCErrGet() == VEXO_ERR_NOENT)
			VEXO_ERR(VEXO_ERR_FOPEN);
		else
			VEXO_ERR_PASS();
		return -1;
	}
	return pidAlive(pid) ? 1 : 0;
} VEXO_C_CATCH(-1)

VEXOP_API int VLIBCProcPidFileCreate(const char *path)
try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	// Whole or not at all: a reader never sees a half-written pid.
	if (!vexo::core::replaceFile(path, std::to_string(::getpid()) + "\n")) {
		VEXO_ERR_PASS();
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

VEXOP_API pid_t VLIBCProcFork(void)
try {
	pid_t pid = ::fork();
	if (pid == 0)
		VLIBCErrClear();
	else if (pid < 0)
		VEXO_ERR(VEXO_ERR_NOMEM);
	return pid;
} VEXO_C_CATCH(-1)

} // extern "C"
