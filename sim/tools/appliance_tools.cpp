// The appliance's own tools that the library runs: vexostorage's disk
// attribute reset and dhm_tool's drive health line query. Both answer from
// the drive node.
#include <cerrno>
#include <climits>
#include <sys/stat.h>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>
#include <vexohw/frame.h>

#include "appliance_tools.h"
#include "frame/sysroot.h"
#include "node_file.h"

namespace vexosim::tools {

namespace {

bool plainName(const std::string &n)
{
	return !n.empty() && n != "." && n != ".." && n.size() < 64 && n.find('/') == std::string::npos;
}

// The disk behind a SCSI generic node: /sys/class/scsi_generic/sgN sits in
// the device's directory, next to its block/<name>.
std::string diskOfGeneric(const std::string &sg)
{
	char real[PATH_MAX];
	std::string link = "/sys/class/scsi_generic/" + sg;
	if (!vexo::sysroot::realpath(link.c_str(), real))
		return "";
	std::string dev(real);
	for (int up = 0; up < 2; ++up) { // .../<device>/scsi_generic/sgN
		size_t slash = dev.rfind('/');
		if (slash == std::string::npos || slash == 0)
			return "";
		dev.resize(slash);
	}
	std::vector<std::string> blocks;
	if (vexo::sysroot::glob((dev + "/block/*").c_str(), blocks) != 0 || blocks.empty())
		return "";
	return blocks.front().substr(blocks.front().rfind('/') + 1);
}

} // namespace

int vexostorage(int argc, char **argv)
{
	auto usage = [] {
		std::fprintf(stderr, "Usage: vexostorage --reset-disk-attr <disk name> serial-mask\n"
				     "       vexostorage --hotspare -n /dev/<disk name>\n");
		return 2;
	};
	// The hot spare manager hears of a disk's health: the stand-in keeps
	// one line per notice in /tmp/vexosim_hotspare for tests to read.
	if (argc == 4 && std::strcmp(argv[1], "--hotspare") == 0 && std::strcmp(argv[2], "-n") == 0) {
		std::string dev = argv[3];
		if (dev.rfind("/dev/", 0) != 0 || !plainName(dev.substr(5)))
			return usage();
		struct stat st;
		if (vexo::sysroot::stat(("/sys/block/" + dev.substr(5)).c_str(), &st) != 0) {
			std::fprintf(stderr, "vexostorage: %s: no such disk\n", dev.c_str());
			return 1;
		}
		FILE *f = std::fopen(vexo::sysroot::path("/tmp/vexosim_hotspare").c_str(), "a");
		bool ok = f && std::fprintf(f, "health %s\n", dev.c_str()) > 0;
		ok = f && std::fclose(f) == 0 && ok;
		return ok ? 0 : 1;
	}
	if (argc != 4 || std::strcmp(argv[1], "--reset-disk-attr") != 0)
		return usage();
	std::string name = argv[2], attr = argv[3];
	if (!plainName(name) || attr != "serial-mask")
		return usage();
	std::string dev = "/dev/" + name;
	Json node = readNode(dev);
	if (!node.get()) {
		std::fprintf(stderr, "vexostorage: %s: %s\n", dev.c_str(), std::strerror(errno));
		return 1;
	}
	int mask = memberBool(node.get(), "mask_serial", false) ? 1 : 0;
	if (VEXODiskUpdateIntValueCacheFile(name.c_str(), "mask_serial", mask) != 0) {
		std::fprintf(stderr, "vexostorage: cannot write mask_serial of %s: %s\n", name.c_str(), std::strerror(errno));
		return 1;
	}
	return 0;
}

int dhmTool(int argc, char **argv)
{
	auto usage = [] {
		std::fprintf(stderr, "Usage: dhm_tool -d <sg device> -w\n");
		return 2;
	};
	std::string device;
	bool query = false;
	for (int i = 1; i < argc; ++i) {
		if (std::strcmp(argv[i], "-d") == 0 && i + 1 < argc)
			device = argv[++i];
		else if (std::strcmp(argv[i], "-w") == 0)
			query = true;
		else
			return usage();
	}
	if (device.rfind("/dev/", 0) != 0 || !plainName(device.substr(5)) || !query)
		return usage();
	std::string name = device.substr(5);
	struct stat st;
	if (vexo::sysroot::stat(device.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) {
		std::string disk = diskOfGeneric(name);
		if (disk.empty()) {
			std::fprintf(stderr, "dhm_tool: %s: No such device\n", device.c_str());
			return 1;
		}
		name = disk;
	}
	int line = 0;
	bool busy = false;
	bool ok = updateNode("/dev/" + name, [&](json_object *node) {
		json_object *h = member(node, "health_tool");
		line = static_cast<int>(memberInt(h, "line", 0));
		long long left = memberInt(h, "busy", 0);
		if (left <= 0)
			return false;
		busy = true;
		json_object_object_add(h, "busy", json_object_new_int64(left - 1));
		return true;
	});
	if (!ok) {
		std::fprintf(stderr, "dhm_tool: /dev/%s: %s\n", name.c_str(), std::strerror(errno));
		return 1;
	}
	if (busy)
		return kDhmBusy;
	return line == 1 ? kDhmLine1 : line == 2 ? kDhmLine2 : 0;
}

} // namespace vexosim::tools
