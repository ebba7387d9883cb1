// Test support for the programs of a simulated appliance: the drive emulator
// behind the device seam of this process, the tools linked into a throw-away
// root as vexosim build links them (the appliance's own stand-ins, and the
// distribution's drive tools on the interposer), and a way to run them.
#pragma once

#include <string>
#include <vector>

#include "frame/exec.h"
#include "smartctl/drive_sim.h"

namespace vexo::test {

struct ToolRun {
	int status = -1;
	std::string out, err;
};

class ToolsSim : public DriveSim {
protected:
	void SetUp() override
	{
		DriveSim::SetUp();
		std::string bin = buildDir() + "/bin/vexosim-tools";
		for (const char *p : {"/usr/bin/smartctl", "/usr/bin/hdparm", "/usr/sbin/nvme", "/usr/vexo/bin/sg_raw",
				      "/usr/vexo/bin/sg_sat_identify", "/usr/vexo/sbin/sg_logs",
				      "/usr/vexo/sbin/vexostorage", "/usr/vexo/sbin/dhm_tool"})
			root.symlink(bin, p);
	}

	// Runs a tool by its appliance path, as the library does: an argument
	// vector, no shell.
	ToolRun run(const std::vector<std::string> &argv) const
	{
		exec::Options o;
		o.captureStderr = true;
		o.timeoutMs = 20000;
		exec::Result r = exec::run(argv, o);
		return {r.status(), r.out, r.err};
	}
};

// The lines of a text, without their ends.
inline std::vector<std::string> lines(const std::string &text)
{
	std::vector<std::string> out;
	size_t b = 0;
	while (b < text.size()) {
		size_t e = text.find('\n', b);
		if (e == std::string::npos)
			e = text.size();
		std::string l = text.substr(b, e - b);
		if (!l.empty() && l.back() == '\r')
			l.pop_back();
		out.push_back(l);
		b = e + 1;
	}
	return out;
}

} // namespace vexo::test
