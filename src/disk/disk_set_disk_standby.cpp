// Standby of one disk through its command interface.
#include <unistd.h>
#include <vexohw/disk.h>
#include <vexohw/disk_power.h>
#include <vexohw/disk_probe.h>
#include <vexohw/disk_state.h>
#include <vexohw/smartctl.h>

#include "disk/disk_power.h"
#include "disk/disk_probe_name.h"
#include "frame/boundary.h"
#include "frame/clock.h"
#include "frame/device.h"
#include "frame/err.h"

extern "C" {

VEXO_API int VEXOIDiskSetDiskStandby(const char *path) try {
	if (!path) {
		vlog(LOG_ERR, "%s:%d argument should not be NULL", VEXO_AT);
		return -1;
	}
	if (vexo::disk::isNvmeName(vexo::disk::shortName(path)))
		return 0; // no standby for NVMe
	int container = 0;
	if (DiskContainerGet(path, &container) != 0) {
		vlog(LOG_ERR, "%s:%d Can't get %s cnr info\n", VEXO_AT, path);
		return -1;
	}
	// An internal SSD sleeps only on a product with SATA deep sleep.
	if (!VLIBCSataDeepSleepEn() && container == DISK_CONTAINER_INTERNAL && VEXODiskIsSSD(path) == 1)
		return 0;
	int state = 0;
	bool sas = false;
	if (vexo::disk::checkPower(path, &state, &sas) != 0)
		return -1;
	// The two families read the other way round: a SCSI status of 0 is a
	// unit that is ready (running), an ATA count of 0 is standby.
	unsigned command;
	if (sas) {
		if (state != 0)
			return 0;
		command = SCSI_START_STOP;
	} else {
		if (state == 0)
			return 0;
		command = CMD_STANDBY_IMMEDIATE;
	}
	DriveCommandInterface iface = VEXOSmartctlCommandInterfaceGet(path);
	int h = iface ? VEXOIDiskRawOpen(path) : -1;
	if (h < 0)
		return -1;
	uint32_t arg = 0;
	int rc = iface(h, command, &arg);
	vexo::dev::close(h);
	return rc;
}
VEXO_C_CATCH(-1)

VEXO_API int VEXODiskSetDiskStandby(const char *path, int flushFirst) try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	if (flushFirst) {
		// Written data reaches the platters before the heads park.
		VEXOIDiskFlushBuffer(path);
		::sync();
		vexo::clock::sleepMs(10000);
	}
	return VEXOIDiskSetDiskStandby(path);
}
VEXO_C_CATCH(-1)

} // extern "C"
