// The disks of every expansion unit, as one text of names.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <string>
#include <vector>

#include <vexohw/disk_port.h>
#include <vexoplatform/ebox_info.h>

#include "frame/device.h"
#include "frame/err.h"
#include "frame/text.h"
#include "frame/sysroot.h"

extern "C" {

VEXO_API int VEXOEnumAllEUnitsDisks(int /*mode*/, char *names, int size)
try {
	if (!names || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::vector<std::string> hosts;
	if (DIR *d = vexo::sysroot::opendir("/sys/class/scsi_host")) {
		while (dirent *e = ::readdir(d))
			if (fnmatch("host*", e->d_name, 0) == 0)
				hosts.emplace_back(e->d_name);
		::closedir(d);
	}
	std::sort(hosts.begin(), hosts.end());

	std::string out;
	for (const auto &host : hosts) {
		char list[4096] = {};
		if (VEXOEBoxPmInfoGet(host.c_str(), "vexo_device_list", list, sizeof(list)) <= 0)
			continue;
		const char *p = list;
		while ((p = std::strstr(p, "/dev/"))) {
			char name[32] = {};
			int used = 0;
			if (std::sscanf(p, "/dev/%31[a-zA-Z]%n", name, &used) != 1) {
				p += 5;
				continue;
			}
			p += used;
			// Only disks that answer an open are there; a dead bay keeps its name in the list.
			std::string dev = std::string("/dev/") + name;
			vexo::dev::Device disk = vexo::dev::Device::open(dev.c_str(), O_RDWR | O_NONBLOCK);
			if (disk)
				out += std::string(name) + " ";
		}
	}
	if (!vexo::copyText(names, size, out)) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
