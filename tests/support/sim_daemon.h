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

class SimDaemon {
public:
	// "vcemd" is looked for by name in the host's /proc, so a test that
	// runs one holds the host-wide lock of the tests that need it alive or
	// dead.
	explicit SimDaemon(std::string root, bool start = true) : root_(std::move(root))
	{
		hostLock_ = ::open("/tmp/vexo-test-vcemd.lock", O_CREAT | O_RDWR | O_CLOEXEC, 0666);
		if (hostLock_ >= 0)
			::flock(hostLock_, LOCK_EX);
		for (const char *d : {"/tmp", "/var/run", "/var/log", "/run/vexosdk/lock", "/usr/vexo/bin"})
			std::filesystem::create_directories(root_ + d);
		std::error_code ec;
		std::filesystem::create_symlink(buildDir() + "/bin/vexosim-tools", root_ + VEXO_VCEMD_CONNECTOR_TOOL, ec);
		started = start ? vexosim("start") : -1;
	}
	~SimDaemon()
	{
		vexosim("stop");
		if (hostLock_ >= 0)
			::close(hostLock_);
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

	std::string root_;
	int hostLock_ = -1;
};

} // namespace vexo::test
