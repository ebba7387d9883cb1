// A disk's temperature from the first source that answers: the debug
// override, the SCT status log, then the protocol's own page.
#include <cstdio>
#include <fcntl.h>
#include <vexohw/disk_debug.h>
#include <vexohw/disk_probe.h>
#include <vexohw/disk_state.h>
#include <vexohw/smart_temperature.h>
#include <vexohw/smartctl.h>
#include <vexoplatform/nvme_admin.h>

#include "disk/disk_probe_name.h"
#include "frame/device.h"
#include "frame/err.h"
#include "frame/sysroot.h"
#include "frame/unique.h"

namespace {

// Readings above this are a drive's way of saying it has none.
constexpr int kTemperatureCeiling = 200;
constexpr unsigned char kScsiTemperaturePage = 0x0D;

int scsiTemperature(const char *path)
{
	std::string dev = vexo::disk::devicePath(path);
	vexo::dev::Device d = vexo::dev::Device::open(dev.c_str(), O_RDONLY | O_NONBLOCK);
	if (!d)
		return -1;
	unsigned char page[512] = {};
	if (sas_command_interface(d.handle(), SCSI_LOG_TEMPERATURE, page) != 0)
		return -1;
	// Byte 9 is the value of parameter 0, the current temperature. A zero
	// there is a real 0 only if the drive answered with the page asked for.
	if (page[9] != 0)
		return page[9];
	if ((page[0] & 0x3F) != kScsiTemperaturePage) {
		vlog(LOG_ERR, "%s:%d Invaild SMART log page: %x", VEXO_AT, page[0]);
		return -1;
	}
	return 0;
}

int ataTemperature(const char *path)
{
	unsigned char values[512] = {};
	if (SmartDataRead(path, values, nullptr) != 0)
		return -1;
	int t = SmartTemperatureGet(values);
	if (t < 0)
		t = SmartAirflowTempGet(values);
	return t;
}

int temperatureOf(const char *path)
{
	if (!VEXODiskIsRunning(path) || VLIBDiskIsSecureErasing(path))
		return -1;
	int t = -1;
	if (VEXODiskDebugTemperatureGet(path, &t) == 1)
		return t;
	t = VEXODiskSCTTemperatureGet(path);
	if (t != -1)
		return t;
	if (VEXODiskScsiProtocolGet(path) == VEXO_DISK_PROTOCOL_NVME)
		return VEXONVMeTemperatureGet(path);
	if (VEXOSmartctlCommandInterfaceGet(path) == sas_command_interface)
		return scsiTemperature(path);
	return ataTemperature(path);
}

} // namespace

extern "C" {

VEXO_API int VEXODiskTemperatureGet(const char *path)
try {
	if (!path) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	int t = temperatureOf(path);
	return t > kTemperatureCeiling ? 0 : t;
} VEXO_C_CATCH(-1)

VEXO_API int VEXODiskTemperatureGetFromCache(const char *name)
try {
	if (!name) {
		VEXO_ERR(VEXO_ERR_BAD_PARAM);
		return -1;
	}
	std::string file = "/run/vexostorage/disks/" + vexo::disk::shortName(name) + "/temperature";
	vexo::UniqueFile f(vexo::sysroot::fopen(file.c_str(), "r"));
	if (!f) {
		VEXO_ERR(VEXO_ERR_FOPEN);
		return -1;
	}
	int t = -1;
	if (std::fscanf(f.get(), "%d", &t) != 1) {
		VEXO_ERR(VEXO_ERR_READ);
		return -1;
	}
	return t;
} VEXO_C_CATCH(-1)

} // extern "C"
