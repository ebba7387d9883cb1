// A real vexosim-serve for a test's sysroot: started on construction, its
// port known once it listens, stopped on destruction.
#pragma once
#include <chrono>
#include <csignal>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "support/vexotest.h"

namespace vexo::test {

class Serve {
public:
	explicit Serve(const Sysroot &root) : root_(root)
	{
		std::string bin = buildDir() + "/bin/vexosim-serve";
		pid_ = ::fork();
		if (pid_ == 0) {
			::execl(bin.c_str(), bin.c_str(), root.root().c_str(), static_cast<char *>(nullptr));
			::_exit(127);
		}
		for (int i = 0; i < 1000 && !root.exists("/run/vexosim/serve.port"); ++i)
			std::this_thread::sleep_for(std::chrono::milliseconds(10));
		if (root.exists("/run/vexosim/serve.port"))
			port_ = std::stoi(root.read("/run/vexosim/serve.port"));
	}
	~Serve()
	{
		if (pid_ > 0) {
			::kill(pid_, SIGTERM);
			::waitpid(pid_, nullptr, 0);
		}
	}
	Serve(const Serve &) = delete;
	Serve &operator=(const Serve &) = delete;

	int port() const { return port_; }
	std::string url(const std::string &path) const { return "https://127.0.0.1:" + std::to_string(port_) + path; }
	// A file the server hands out.
	void put(const std::string &path, const std::string &body) const { root_.write("/srv/vexosim" + path, body); }
	// What it does wrong on purpose (see vexosim-serve).
	void misbehave(const std::string &lines) const { root_.write("/run/vexosim/serve.ctl", lines); }

private:
	const Sysroot &root_;
	pid_t pid_ = -1;
	int port_ = 0;
};

} // namespace vexo::test
