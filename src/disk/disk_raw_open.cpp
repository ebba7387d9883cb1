// The whole disk's device node, opened for drive commands.
#include <fcntl.h>
#include <vexohw/disk_state.h>

#include "disk/disk_probe_name.h"
#include "frame/device.h"
#include "frame/err.h"

extern "C" VEXO_API int VEXOIDiskRawOpen(const char *path)
try {
	if (!path || !*path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string dev = vexo::disk::devicePath(vexo::disk::physicalName(vexo::disk::shortName(path)).c_str());
	int h = vexo::dev::openHandle(dev.c_str(), O_RDONLY | O_NONBLOCK);
	if (h < 0) {
		vlog(LOG_ERR, "%s:%d Failed to open %s, errno=%m", VEXO_AT, dev.c_str());
		VEXO_ERR(VEXO_ERR_DEVICE);
	}
	return h;
} VEXO_C_CATCH(-1)
