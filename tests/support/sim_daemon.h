// The simulated platform daemon of a test's box: the folders and the
// stand-in connector tool it needs, started and stopped through vexosim,
// and its log of what it received.
#pragma once

#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/file.h>
#include <unistd.h>
#include <vector>
#include <vexohw/vcemd.h>

#include "support/vexotest.h"

namespace vexo::test {

// "vcemd" is looked for by name in the host's /proc, so every test that
// runs one (vexosim start, or vexosim run, which brings the box's daemon up
// for its command) or needs none holds this host-wide lock.
class HostDaemonLock {
public:
	HostDaemonLock() : fd_(::open("/tmp/vexo-test-vcemd.lock", O_CREAT | O_RDWR | O_CLOEXEC, 0666))
	{
		if (fd_ >= 0)
			::flock(fd_, LOCK_EX);
	}
	~HostDaemonLock()
	{
		if (fd_ >= 0)
			::close(fd_);
	}
	HostDaemonLock(const HostDaemonLock &) = delete;
	HostDaemonLock &operator=(const HostDaemonLock &) = delete;

private:
	int fd_;
};

class SimDaemon {
public:
	explicit SimDaemon(std::string root, bool start = true) : root_(std::move(root))
	{
		for (const char *d : {"/tmp", "/var/run", "/var/log", "/run/vexosdk/lock", "/usr/vexo/bin"})
			std::filesystem::create_directories(root_ + d);
		std::error_code ec;
		std::filesystem::create_symlink(buildDir() + "/bin/vexosim-tools", root_ + VEXO_VCEMD_CONNECTOR_TOOL, ec);
		started = start ? vexosim("start") : -1;
	}
	~SimDaemon()
	{
		vexosim("stop");
	}
	SimDaemon(const SimDaemon &) = delete;
	SimDaemon &operator=(const SimDaemon &) = delete;

	int vexosim(const char *verb) const { return runProgram({buildDir() + "/bin/vexosim", verb, root_}); }

	// The daemon's log without its start line, once it has `n` lines (a
	// one-way request is logged after its sender has returned).
	std::vector<std::string> events(size_t n = 0) const
	{
		for (int i = 0; i < 100 && n && read().size() < n; ++i)
			::usleep(20000);
		return read();
	}
	void control(const std::string &text) const { std::ofstream(root_ + "/tmp/vcemd_sim.control") << text; }

	int started; // vexosim start's exit status

private:
	std::vector<std::string> read() const
	{
		std::vector<std::string> out;
		std::ifstream in(root_ + "/var/log/vcemd_sim.log");
		for (std::string l; std::getline(in, l);)
			if (l != "started")
				out.push_back(l);
		return out;
	}

	HostDaemonLock hostLock_; // first member: taken before the daemon starts, freed after it stops
	std::string root_;
};

} // namespace vexo::test
