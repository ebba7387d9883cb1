// Which of the four command interfaces reaches a disk. The order of the
// tests is the rule: USB bridges always need SAT, whatever the driver.
#include <vexohw/disk.h>
#include <vexohw/disk_probe.h>
#include <vexohw/smartctl.h>

#include "disk/disk_host_driver_match.h"
#include "frame/log.h"
#include "frame/boundary.h"

extern "C" VEXO_API DriveCommandInterface VEXOSmartctlCommandInterfaceGet(const char *path)
try {
	int protocol = VEXODiskScsiProtocolGet(path);
	int container = 0;
	if (DiskContainerGet(path, &container) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to get container of %s, return ata_command_interface instead", VEXO_AT,
		     path ? path : "(null)");
		return ata_command_interface;
	}
	if (protocol == VEXO_DISK_PROTOCOL_NVME) {
		// Callers branch away from NVMe first; this is only a safe answer.
		vlog(LOG_DEBUG, "%s:%d NVMe device has no smartctl command interface.", VEXO_AT);
		return ata_command_interface;
	}
	if ((container & DISK_CONTAINER_USB) || protocol == VEXO_DISK_PROTOCOL_SAT)
		return sat_command_interface;
	if (protocol == VEXO_DISK_PROTOCOL_SCSI)
		return sas_command_interface;
	// Both driver probes read the same line: read it once.
	const vexo::disk::HostDriverLine host = vexo::disk::readHostDriver(path);
	if (vexo::disk::mvSocDriverIs(host) == 1)
		return marvell_command_interface;
	if (vexo::disk::mv1475DriverIs(host) == 1)
		return sat_command_interface;
	return ata_command_interface;
} VEXO_C_CATCH(ata_command_interface)
