// A disk's power mode without waking it, and the daemon's pid, for tools
// that must leave sleeping disks asleep.
#include <sys/types.h>
#include <vexohw/ext.h>
#include <vexohw/vcemd.h>

#include "disk/disk_power.h"
#include "frame/boundary.h"
#include "frame/err.h"
#include "frame/proc.h"

extern "C" VEXO_API int VEXOExtDiskPowerModeGet(const char *devicePath) try {
	if (!devicePath) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return VEXO_EXT_POWER_UNKNOWN;
	}
	switch (vexo::disk::powerMode(devicePath)) {
	case vexo::disk::PowerMode::Active:
		return VEXO_EXT_POWER_ACTIVE;
	case vexo::disk::PowerMode::Idle:
		return VEXO_EXT_POWER_IDLE;
	case vexo::disk::PowerMode::Standby:
		return VEXO_EXT_POWER_STANDBY;
	case vexo::disk::PowerMode::Unknown:
		break;
	}
	return VEXO_EXT_POWER_UNKNOWN;
} VEXO_C_CATCH(VEXO_EXT_POWER_UNKNOWN)

extern "C" VEXO_API int VEXOExtVcemdPidGet(int *pid) try {
	pid_t p = 0;
	const bool hasPid = vexo::proc::readPidFile(VEXO_VCEMD_PID_FILE, p);
	if (pid)
		*pid = hasPid ? static_cast<int>(p) : 0;
	return hasPid && vexo::proc::signalByPidFile(VEXO_VCEMD_PID_FILE, 0, "vcemd") == vexo::proc::Signal::Sent ? 1 : 0;
} VEXO_C_CATCH(0)
