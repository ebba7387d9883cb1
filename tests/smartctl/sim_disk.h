// One emulated disk in a test sysroot with what the temperature, serial and
// state calls read around it: the sysfs attributes, the per-disk cache
// folder, the product file, and stand-ins for the external tools as small
// scripts that record their arguments.
#pragma once

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "smartctl/drive_sim.h"
#include "support/disk_layout.h"

namespace vexo::test {

class SimDisk : public DriveSim {
protected:
	void SetUp() override
	{
		DriveSim::SetUp();
		product({});
		DiskLayout(root).sata("sda", 1);
		sysfs("sda", "ATA", "VEXO HAT5300-8T", true);
		root.diskDir("sda");
		node("sda", kAtaNode);
	}

	// /etc.defaults/vexoinfo.conf: the port maps plus extra keys.
	void product(const std::vector<std::pair<std::string, std::string>> &extra)
	{
		DiskLayout(root).portMaps("0xff0000", "0x0", "0xff", "", extra);
	}
	void sysfs(const std::string &name, const std::string &vendor, const std::string &model, bool rotating,
		   const std::string &state = "running")
	{
		root.write("/sys/block/" + name + "/device/vendor", vendor + std::string(8 - std::min<size_t>(8, vendor.size()), ' ') + "\n");
		root.write("/sys/block/" + name + "/device/model", model + "\n");
		root.write("/sys/block/" + name + "/device/state", state + "\n");
		root.write("/sys/block/" + name + "/queue/rotational", rotating ? "1\n" : "0\n");
	}
	// The disk action database.
	void actions(const std::string &entries)
	{
		root.write("/var/lib/diskaction/diskaction.xml", "<?xml version=\"1.0\"?>\n<diskaction>\n" + entries + "</diskaction>\n");
	}
	// An executable at an appliance path that records its arguments in
	// /tmp/<base>.args (one run per line) and then runs body.
	void tool(const std::string &path, const std::string &body)
	{
		std::string base = path.substr(path.rfind('/') + 1);
		root.write(path, "#!/bin/sh\necho \"$*\" >> \"$VEXO_SYSROOT/tmp/" + base + ".args\"\n" + body + "\n", 0755);
		root.mkdirs("/tmp");
	}
	std::vector<std::string> runs(const std::string &base) const { return linesOf(root, "/tmp/" + base + ".args"); }
};

} // namespace vexo::test
