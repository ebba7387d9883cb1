// The exec seam. External programs are started by their absolute appliance
// path (composed under the sysroot), with an argument vector and no shell.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace vexo::exec {

struct Options {
	int timeoutMs = -1;           // kill the child's process group after this; -1: no limit
	bool captureStdout = true;    // otherwise the child's stdout is /dev/null
	bool captureStderr = false;   // otherwise the child's stderr is /dev/null
	std::string stdinData;        // written to the child's stdin, then closed
	std::vector<std::string> env; // extra NAME=value entries over the caller's environment
};

struct Result {
	bool started = false; // false: could not be run at all (spawnErrno says why)
	int spawnErrno = 0;
	int exitStatus = -1;  // 0..255 when it exited
	int termSignal = 0;   // the signal that ended it, if any
	bool timedOut = false;
	std::string out;
	std::string err;
	// The exit status when the program exited, -1 otherwise.
	int status() const { return started && !timedOut && termSignal == 0 ? exitStatus : -1; }
};

// Runs argv (argv[0] an absolute appliance path) to completion.
Result run(const std::vector<std::string> &argv, const Options &opts = {});

// A running child with a pipe on its stdin or stdout, for streaming readers.
class Child {
public:
	Child() = default;
	Child(const Child &) = delete;
	Child &operator=(const Child &) = delete;
	Child(Child &&o) noexcept;
	Child &operator=(Child &&o) noexcept;
	~Child(); // kills and reaps a child that was not waited for

	// Starts argv with a pipe: readFromChild true gives the child's stdout,
	// false the child's stdin. errno is set on failure.
	static Child spawn(const std::vector<std::string> &argv, bool readFromChild, const Options &opts = {});

	bool valid() const { return pid_ > 0; }
	pid_t pid() const { return pid_; }
	int fd() const { return fd_; }
	// Hands the pipe to the caller (who closes it).
	int releaseFd();
	// Closes the pipe if still held, reaps the child and returns the exit
	// status, or -1 when it died by a signal or could not be reaped.
	int wait();

private:
	pid_t pid_ = -1;
	int fd_ = -1;
};

} // namespace vexo::exec
