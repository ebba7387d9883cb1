// Test support for the drive command tests: the drive emulator as the
// device backend of the test process, drive nodes in a sysroot, and the
// emulator's command log.
#pragma once

#include <algorithm>
#include <fcntl.h>
#include <sstream>
#include <string>
#include <vector>

#include "frame/device.h"
#include "support/disk_layout.h"

namespace vexo::test {

// The lines of a file in the root; none when it is missing.
inline std::vector<std::string> linesOf(const Sysroot &root, const std::string &path)
{
	std::vector<std::string> out;
	std::istringstream in(root.exists(path) ? root.read(path) : "");
	for (std::string l; std::getline(in, l);)
		out.push_back(l);
	return out;
}

// The backend is chosen once per process, so it must be named before the
// first device is opened: a static initializer in each test executable.
inline bool installDriveEmulator()
{
	std::string lib = buildDir() + "/sim/drive/libvexosim_drive.so";
	::setenv("VEXO_DEVICE_BACKEND", lib.c_str(), 1);
	return true;
}

class DriveSim : public ::testing::Test {
protected:
	void SetUp() override { VLIBCErrClear(); }
	void TearDown() override
	{
		for (int h : handles_)
			dev::close(h);
	}

	void node(const std::string &name, const std::string &json) { root.write("/dev/" + name, json); }
	int open(const std::string &name)
	{
		int h = dev::openHandle(("/dev/" + name).c_str(), O_RDONLY | O_NONBLOCK);
		if (h >= 0)
			handles_.push_back(h);
		return h;
	}
	// Command lines of the log, without the OPEN lines.
	std::vector<std::string> commands(const std::string &name) const
	{
		auto out = linesOf(root, "/run/vexosim/drive/" + name + ".log");
		out.erase(std::remove_if(out.begin(), out.end(), [](const std::string &l) { return l.rfind("OPEN", 0) == 0; }),
			  out.end());
		return out;
	}
	// The commands `name` received since the last check, against `want` in
	// order: each entry must begin the next command of the log, a '*' in it
	// standing for any text. A command past the list fails, and so does an
	// entry never reached. The log is consumed: the next check starts after
	// it.
	void expectSent(const std::string &name, const std::vector<std::string> &want)
	{
		auto got = commands(name);
		for (size_t i = 0; i < std::max(got.size(), want.size()); ++i) {
			if (i >= got.size())
				ADD_FAILURE() << name << ": expected command never sent: " << want[i];
			else if (i >= want.size())
				ADD_FAILURE() << name << ": unexpected command: " << got[i];
			else if (!matches(got[i], want[i]))
				ADD_FAILURE() << name << ": command " << i + 1 << " is \"" << got[i] << "\", expected \""
					      << want[i] << "\"";
		}
		clearCommands(name);
	}
	static bool matches(const std::string &line, const std::string &pattern)
	{
		size_t at = 0, from = 0;
		for (size_t star; (star = pattern.find('*', from)) != std::string::npos; from = star + 1) {
			size_t hit = line.find(pattern.substr(from, star - from), at);
			if (hit == std::string::npos || (from == 0 && hit != 0))
				return false;
			at = hit + star - from;
		}
		size_t hit = line.find(pattern.substr(from), at);
		return hit != std::string::npos && (from > 0 || hit == 0);
	}
	// How many commands of the log contain `text`.
	int countOf(const std::string &name, const std::string &text) const
	{
		int n = 0;
		for (const auto &l : commands(name))
			n += l.find(text) != std::string::npos;
		return n;
	}
	std::string last(const std::string &name) const
	{
		auto c = commands(name);
		return c.empty() ? std::string() : c.back();
	}
	void clearCommands(const std::string &name) { root.remove("/run/vexosim/drive/" + name + ".log"); }
	// The port maps; vvos makes every disk SCSI.
	void ports(bool vvos)
	{
		root.conf("/etc.defaults/vexoinfo.conf", {{"internalportcfg", "0xff"},
							  {"usbportcfg", "0xff0000"},
							  {"esataportcfg", "0x0"},
							  {"vvos", vvos ? "yes" : "no"}});
	}
	// /sys/block/<name> under a SCSI host served by `driver`.
	void host(const std::string &name, const std::string &driver)
	{
		DiskLayout(root).sata(name, 1, "0000:00:17.0", 1953525168ULL, driver);
	}

	Sysroot root;

private:
	std::vector<int> handles_;
};

inline const char *kAtaNode = R"({"protocol":"ata","model":"VEXO HAT5300-8T","serial":"ZL2K4T7C","firmware":"SC60",
 "vendor":"VEXO","size_bytes":8001563222016,"logical_block_size":512,"rotation_rate":7200})";
inline const char *kScsiNode = R"({"protocol":"scsi","model":"HAS5300-16T","serial":"SX00001234","firmware":"S100",
 "vendor":"VEXO","size_bytes":16000900661248,"logical_block_size":512,"rotation_rate":7200})";

} // namespace vexo::test
