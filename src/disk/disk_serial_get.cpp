// The true serial of a disk, as the drive reports it.
#include <vexohw/disk_port.h>
#include <vexohw/disk_probe.h>
#include <vexohw/smart_serial.h>

#include "disk/probe_text.h"
#include "frame/err.h"

extern "C" VEXO_API int DiskSerialGet(const char *path, char *serial, int size)
try {
	if (!path || !*path || !serial || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	char dev[128] = {};
	if (VEXODiskDevPathGetByName(path, dev, sizeof(dev)) != 0) {
		VEXO_ERR_PASS();
		return -1;
	}
	char firmware[64] = {};
	char text[128] = {};
	if (SmartFirmAndSerialRead(dev, firmware, sizeof(firmware), text, sizeof(text)) != 0) {
		vlog(LOG_ERR, "%s:%d SmartFirmAndSerialRead failed on [%s] [0x%04X %s:%d]", VEXO_AT, dev, VLIBCErrGet(),
		     VLIBCErrFileGet() ? VLIBCErrFileGet() : "", VLIBCErrLineGet());
		VEXO_ERR_PASS();
		return -1;
	}
	return vexo::disk::putWhole(serial, size, text);
} VEXO_C_CATCH(-1)
