// Makes a disk write out its volatile cache: the interface's flush, or
// SYNCHRONIZE CACHE for a SCSI disk. Used before a disk is spun down.
#include <vexohw/disk_probe.h>
#include <vexohw/disk_state.h>
#include <vexohw/frame.h>
#include <vexohw/smartctl.h>

#include "frame/device.h"
#include "frame/err.h"

namespace {

// Closes a handle of the device layer.
struct Handle {
	int h;
	~Handle()
	{
		if (h >= 0)
			vexo::dev::close(h);
	}
};

} // namespace

extern "C" VEXO_API int VEXOIDiskFlushBuffer(const char *path)
try {
	if (!path || !*path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	// An NVMe namespace takes no drive command of these interfaces.
	if (VEXODiskScsiProtocolGet(path) == VEXO_DISK_PROTOCOL_NVME) {
		vlog(LOG_ERR, "%s:%d No buffer flush command for NVMe disk %s", VEXO_AT, path);
		VEXO_ERR(VEXO_ERR_WRONG_IFACE);
		return -1;
	}
	DriveCommandInterface iface = VEXOSmartctlCommandInterfaceGet(path);
	Handle fd{VEXOIDiskRawOpen(path)};
	if (!iface || fd.h < 0) {
		VEXO_ERR_PASS();
		return -1;
	}
	const unsigned command = iface == sas_command_interface ? SCSI_SYNC_CACHE : CMD_DRIVE_FLUSH;
	if (iface(fd.h, command, nullptr) != 0) {
		vlog(LOG_ERR, "%s:%d Failed to flush the buffer of %s", VEXO_AT, path);
		VEXO_ERR_PASS();
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)
