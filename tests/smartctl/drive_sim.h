// Test support for the drive command tests: the drive emulator as the
// device backend of the test process, drive nodes in a sysroot, and the
// emulator's command log.
#pragma once

#include <fcntl.h>
#include <sstream>
#include <string>
#include <vector>

#include "frame/device.h"
#include "support/vexotest.h"

namespace vexo::test {

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
		std::vector<std::string> out;
		if (!root.exists("/run/vexosim/drive/" + name + ".log"))
			return out;
		std::istringstream in(root.read("/run/vexosim/drive/" + name + ".log"));
		for (std::string l; std::getline(in, l);)
			if (l.rfind("OPEN", 0) != 0)
				out.push_back(l);
		return out;
	}
	std::string last(const std::string &name) const
	{
		auto c = commands(name);
		return c.empty() ? std::string() : c.back();
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
