// IDENTIFY DEVICE of an ATA disk, falling back to IDENTIFY PACKET DEVICE.
#include <cstring>
#include <fcntl.h>
#include <vexohw/smartctl.h>

#include "disk/disk_probe_name.h"
#include "frame/device.h"
#include "frame/err.h"

extern "C" VEXO_API int SmartIdentifyRead(const char *path, unsigned char *identify)
try {
	if (!path || !identify) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string dev = vexo::disk::devicePath(path);
	vexo::dev::Device d = vexo::dev::Device::open(dev.c_str(), O_RDONLY | O_NONBLOCK);
	if (!d) {
		VEXO_ERR(VEXO_ERR_FOPEN);
		return -1;
	}
	DriveCommandInterface iface = VEXOSmartctlCommandInterfaceGet(path);
	if (iface == sas_command_interface) {
		VEXO_ERR(VEXO_ERR_WRONG_IFACE);
		return -1;
	}
	unsigned char page[512] = {};
	if (iface(d.handle(), CMD_IDENTIFY, page) != 0 && iface(d.handle(), CMD_PACKET_IDENTIFY, page) != 0) {
		VEXO_ERR(VEXO_ERR_DEVICE);
		return -1;
	}
	// Only a page that carries the integrity signature can be checked.
	if (page[510] == 0xA5 && VEXOSmartChecksum(page) != 0) {
		VEXO_ERR(0x3300);
		return -1;
	}
	std::memcpy(identify, page, sizeof(page));
	return 0;
} VEXO_C_CATCH(-1)
