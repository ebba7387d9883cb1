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

} // namespace vexosim
