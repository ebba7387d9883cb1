// Solid state or spinning, from the block queue's rotational flag.
#include <cstdio>
#include <string>
#include <vexohw/disk_probe.h>

#include "disk/disk_probe_name.h"
#include "frame/err.h"
#include "frame/path_read.h"

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
	std::string flag;
	vexo::ReadFail why = vexo::ReadFail::None;
	if (!vexo::readLine(file, flag, 2, true, &why)) {
		if (why == vexo::ReadFail::Open) {
			vlog(LOG_ERR, "%s:%d Can't open file %s", VEXO_AT, file.c_str());
			VEXO_ERR(VEXO_ERR_FOPEN);
		} else {
			vlog(LOG_ERR, "%s:%d Can't read file %s", VEXO_AT, file.c_str());
			VEXO_ERR(VEXO_ERR_READ);
		}
		return -1;
	}
	return flag == "0" ? 1 : 0;
} VEXO_C_CATCH(-1)
