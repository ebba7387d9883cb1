// The box's platform daemon: a real process per box, started and stopped
// by vexosim.
#pragma once

#include <string>

namespace vexosim {

// Starts the daemon for the box at `root` (a real path) and waits until it
// is ready. 0 when it runs (already or now), else an exit status with a
// message on stderr.
int startDaemon(const std::string &root);
// Stops it with SIGTERM and waits for it to go. 0 also when none ran.
int stopDaemon(const std::string &root);

// The daemon for the life of one `vexosim run`: started unless it runs, and
// stopped when the last run that started or shared it ends. A daemon that
// `vexosim start` began is left to `vexosim stop`. Without a vcemd program
// beside vexosim (an installed simulator) the box runs without one.
class RunDaemon {
public:
	explicit RunDaemon(const std::string &root);
	~RunDaemon();
	RunDaemon(const RunDaemon &) = delete;
	RunDaemon &operator=(const RunDaemon &) = delete;
	// 0, or the exit status of a failed start (with its message written).
	int status() const { return status_; }

private:
	std::string root_;
	int lock_ = -1;
	int status_ = 0;
};

} // namespace vexosim
