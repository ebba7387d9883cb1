// Turns SMART on: the ATA command, or for a SCSI drive a rewrite of the
// informational exceptions mode page to report on request.
#include <cstring>
#include <fcntl.h>
#include <vexohw/disk_probe.h>
#include <vexohw/smartctl.h>

#include "disk/disk_probe_name.h"
#include "frame/device.h"
#include "frame/err.h"

namespace {

int scsiSmartEnable(int fd)
{
	unsigned char a[512] = {}, b[512] = {}, c[512] = {};
	if (sas_command_interface(fd, SCSI_MOD_SENSE_CURRENT, a) != 0) {
		vlog(LOG_ERR, "%s:%d sas_command_interface SCSI_MOD_SENSE_CURRENT failed.", VEXO_AT);
		return -1;
	}
	if (sas_command_interface(fd, SCSI_MOD_SENSE_CHANGABLE, b) != 0) {
		vlog(LOG_ERR, "%s:%d sas_command_interface SCSI_MOD_SENSE_CHANGABLE failed.", VEXO_AT);
		return -1;
	}
	const int d = a[3]; // block descriptor length: the page follows it
	if (d + 15 >= 64)
		return -1;
	std::memcpy(c, a, 64);
	c[2] &= ~0x10;
	// Report on request, once, with no timer.
	c[d + 6] = 0x10;
	c[d + 7] = 6;
	std::memset(c + d + 8, 0, 7);
	c[d + 15] = 1;
	// What the drive does not let us change stays as it is.
	c[d + 6] = b[d + 6] ? (b[d + 6] & c[d + 6]) : a[d + 6];
	for (int i = d + 7; i <= d + 15; ++i)
		if (b[i] == 0)
			c[i] = a[i];
	if (sas_command_interface(fd, SCSI_MODE_SELECT, c) != 0) {
		vlog(LOG_ERR, "%s:%d sas_command_interface SCSI_MODE_SELECT failed.", VEXO_AT);
		return -1;
	}
	return 0;
}

} // namespace

extern "C" VEXO_API int SmartEnable(const char *path)
try {
	if (!path) {
		vlog(LOG_ERR, "%s:%d Bad parameter.", VEXO_AT);
		return -1;
	}
	if (VEXODiskScsiProtocolGet(path) == VEXO_DISK_PROTOCOL_NVME)
		return 0;
	std::string dev = vexo::disk::devicePath(path);
	vexo::dev::Device d = vexo::dev::Device::open(dev.c_str(), O_RDONLY | O_NONBLOCK);
	if (!d) {
		vlog(LOG_ERR, "%s:%d open %s failed.", VEXO_AT, path);
		return -1;
	}
	DriveCommandInterface iface = VEXOSmartctlCommandInterfaceGet(path);
	if (iface != sas_command_interface) {
		if (iface(d.handle(), CMD_SMART_ENABLE, nullptr) != 0) {
			vlog(LOG_ERR, "%s:%d AtaSmartEnable failed.", VEXO_AT);
			return -1;
		}
		return 0;
	}
	if (scsiSmartEnable(d.handle()) != 0) {
		vlog(LOG_ERR, "%s:%d ScsiSmartEnable failed.", VEXO_AT);
		return -1;
	}
	return 0;
} VEXO_C_CATCH(-1)
