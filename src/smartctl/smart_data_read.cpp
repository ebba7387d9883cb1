// The SMART values page (one retry) and thresholds page (checksummed, no retry).
#include <cstring>
#include <fcntl.h>
#include <vexohw/smartctl.h>

#include "disk/disk_probe_name.h"
#include "frame/device.h"
#include "frame/err.h"

extern "C" {

VEXO_API int SmartValuesRead(const char *path, int fd, void *values)
try {
	DriveCommandInterface iface = VEXOSmartctlCommandInterfaceGet(path);
	if (iface == sas_command_interface)
		return -1;
	return iface(fd, CMD_SMART_READ_VALUES, values);
} VEXO_C_CATCH(-1)

VEXO_API int SmartDataRead(const char *path, void *values, void *thresholds)
try {
	if (!path || !values) {
		vlog(LOG_ERR, "%s(%d) Bad parameter", VEXO_AT);
		return -1;
	}
	std::string dev = vexo::disk::devicePath(path);
	vexo::dev::Device d = vexo::dev::Device::open(dev.c_str(), O_RDONLY | O_NONBLOCK);
	if (!d) {
		vlog(LOG_ERR, "%s(%d) open device %s fail", VEXO_AT, path);
		return -1;
	}
	unsigned char v[512] = {}, t[512] = {};
	if (SmartValuesRead(path, d.handle(), v) != 0 && SmartValuesRead(path, d.handle(), v) != 0) {
		vlog(LOG_ERR, "%s(%d) read value %s fail", VEXO_AT, path);
		return -1;
	}
	if (thresholds) {
		DriveCommandInterface iface = VEXOSmartctlCommandInterfaceGet(path);
		if (iface == sas_command_interface || iface(d.handle(), CMD_SMART_READ_THRESHOLDS, t) != 0 ||
		    VEXOSmartChecksum(t) != 0) {
			vlog(LOG_ERR, "%s(%d) read threshhold %s fail", VEXO_AT, path);
			return -1;
		}
		std::memcpy(thresholds, t, sizeof(t));
	}
	std::memcpy(values, v, sizeof(v));
	return 0;
} VEXO_C_CATCH(-1)

} // extern "C"
