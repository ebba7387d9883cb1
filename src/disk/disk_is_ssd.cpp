// Solid state or spinning, from the block queue's rotational flag.
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <vexohw/disk_probe.h>

#include "disk/disk_probe_name.h"
#include "frame/err.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

extern "C" VEXO_API int VEXODiskIsSSD(const char *path)
try {
	char node[64] = {};
	if (!path || std::sscanf(path, "/dev/%63s", node) != 1) {
		vlog(LOG_ERR, "%s:%d Can't parse Node name from %s", VEXO_AT, path ? path : "(null)");
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	// A partition has no queue of its own; its disk's flag holds.
	const std::string file = "/sys/block/" + vexo::disk::physicalName(node) + "/queue/rotational";
	vexo::UniqueFd fd(vexo::sysroot::open(file.c_str(), O_RDONLY | O_CLOEXEC));
	if (!fd) {
		vlog(LOG_ERR, "%s:%d Can't open file %s", VEXO_AT, file.c_str());
		VEXO_ERR(VEXO_ERR_FOPEN);
		return -1;
	}
	char c = 0;
	if (VLIBCRead(fd.get(), &c, 1) != 1) {
		vlog(LOG_ERR, "%s:%d Can't read file %s", VEXO_AT, file.c_str());
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	return c == '0' ? 1 : 0;
} VEXO_C_CATCH(-1)
