// The processes seam: daemons found by their pid files and signalled.
//
// A pid file is an appliance path (under the sysroot, so a simulated box
// keeps its own); the process it names is a host process, asked of the
// host's /proc. The simulator stands a real process there, started by the
// test, and the library signals it as it would the real daemon.
#pragma once

#include <sys/types.h>

#include "frame/path_read.h"

namespace vexo::proc {

// Whether the process exists and is neither a zombie nor dead.
bool alive(pid_t pid);

// The pid in a pid file: one decimal number from 1 to INT_MAX, white space
// around it allowed. False (pid untouched) otherwise, with where it failed.
bool readPidFile(const char *appliancePath, pid_t &pid, ReadFail *why = nullptr);

enum class Signal {
	Sent,
	NoPidFile,   // the file is missing or cannot be opened: the daemon is not up
	BadPidFile,  // empty or not a pid
	NotRunning,  // the pid names no living process (a stale file)
	OtherProgram, // the pid is alive but another program's (a recycled pid)
	Failed,      // the signal could not be sent (errno tells: EPERM...)
};

// Sends `sig` to the daemon whose pid file is `pidFile`. The process is
// held by a pidfd from the moment its liveness (and, when `comm` is given,
// its name as /proc/<pid>/comm shows it, at most 15 characters) is
// checked, so the signal reaches the process that was checked, never one
// that took its pid since. sig 0 checks without sending. The pid read is
// stored in *pid when asked, whatever the outcome after the read.
Signal signalByPidFile(const char *pidFile, int sig, const char *comm = nullptr, pid_t *pid = nullptr);

} // namespace vexo::proc
