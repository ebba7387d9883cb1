// The command family of a drive, as the drive command interfaces name it.
#include <vexohw/disk.h>
#include <vexohw/disk_port.h>
#include <vexohw/disk_probe.h>

#include "disk/disk_host_driver_match.h"
#include "external/text_out.h"
#include "frame/err.h"

extern "C" {

VEXO_API int VEXODiskDeviceTypeGet(const char *path, char *type, int size)
try {
	if (!path || !type || size <= 0) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	int protocol = VEXODiskScsiProtocolGet(path);
	int container = 0;
	const char *family = "ata";
	if (protocol == 2)
		family = "scsi";
	else if (protocol == 3)
		family = "nvme";
	else if (protocol == 1)
		family = "sat";
	else if (DiskContainerGet(path, &container) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get container", VEXO_AT);
		VEXO_ERR_PASS();
		return -1;
	} else if (container == DISK_CONTAINER_USB)
		family = "sat";
	else {
		// Both driver probes read the same line: read it once.
		const vexo::disk::HostDriverLine host = vexo::disk::readHostDriver(path);
		if (vexo::disk::mv1475DriverIs(host) == 1)
			family = "sat";
		else if (vexo::disk::mvSocDriverIs(host) == 1)
			family = "marvell";
	}
	return VEXO_PUT_TEXT(type, size, "%s", family);
} VEXO_C_CATCH(-1)

} // extern "C"
