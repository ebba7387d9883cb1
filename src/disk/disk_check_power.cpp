// The power state of a drive, asked with the commands that answer without
// spinning it up.
#include <vexohw/disk_probe.h>
#include <vexohw/disk_state.h>
#include <vexohw/smartctl.h>

#include "disk/disk_power.h"
#include "disk/disk_probe_name.h"
#include "frame/device.h"
#include "frame/err.h"

namespace vexo::disk {

std::string deviceAttr(const char *path, const char *attr)
{
	return "/sys/block/" + shortName(path) + "/device/" + attr;
}

int checkPower(const char *path, int *state, bool *sas)
{
	DriveCommandInterface iface = VEXOSmartctlCommandInterfaceGet(path);
	if (!iface)
		return -1;
	int h = VEXOIDiskRawOpen(path);
	if (h < 0)
		return -1;
	unsigned char data[512] = {};
	const bool onSas = iface == sas_command_interface;
	int rc = iface(h, onSas ? SCSI_TEST_UNIT_READY : CMD_CHECK_POWER_MODE, data);
	vexo::dev::close(h);
	if (rc != 0)
		return -1;
	*state = data[0];
	if (sas)
		*sas = onSas;
	return 0;
}

PowerMode powerMode(const char *path)
{
	if (isNvmeName(shortName(path)))
		return PowerMode::Active;
	int state = 0;
	bool sas = false;
	if (checkPower(path, &state, &sas) != 0)
		return PowerMode::Unknown;
	if (sas)
		return state != 0 ? PowerMode::Standby : PowerMode::Active;
	return state == 0 ? PowerMode::Standby : state == 0x80 ? PowerMode::Idle : PowerMode::Active;
}

const char *powerModeName(PowerMode m)
{
	switch (m) {
	case PowerMode::Active: return "active";
	case PowerMode::Idle: return "idle";
	case PowerMode::Standby: return "standby";
	case PowerMode::Unknown: break;
	}
	return "unknown";
}

} // namespace vexo::disk
