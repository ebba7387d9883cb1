// Temperature of a disk with the source that answered, and its serial as
// the drive has it or as the user sees it.
#include <string>
#include <vexohw/disk_debug.h>
#include <vexohw/disk_probe.h>
#include <vexohw/disk_state.h>
#include <vexohw/smart_serial.h>
#include <vexohw/smart_temperature.h>
#include <vexohw/smartctl.h>
#include <vexoplatform/vexocore.h>

#include "asleep.h"
#include "cli.h"

using namespace vexo::cli;

namespace {

std::string devicePath(const std::string &arg) { return arg.rfind("/dev/", 0) == 0 ? arg : "/dev/" + arg; }

// Which source VEXODiskTemperatureGet took, asked in its order. The drive
// is asked again only where the answer can't be known otherwise.
const char *temperatureSource(const char *path)
{
	if (!VEXODiskIsRunning(path))
		return "not_running";
	if (VLIBDiskIsSecureErasing(path))
		return "secure_erasing";
	int t;
	if (VEXODiskDebugTemperatureGet(path, &t) == 1)
		return "debug_override";
	int sct = 0;
	if (VEXODiskSCTCmdSupportCache(path, &sct) == 0 && sct && VEXODiskSCTTemperatureGet(path) != -1)
		return "sct_status_log";
	if (VEXODiskScsiProtocolGet(path) == VEXO_DISK_PROTOCOL_NVME)
		return "nvme_health_log";
	if (VEXOSmartctlCommandInterfaceGet(path) == sas_command_interface)
		return "scsi_temperature_page";
	return "smart_data";
}

int smartTemp(Context &ctx)
{
	if (ctx.args.size() != 1)
		return fail("usage: smart temp DISK");
	std::string path = devicePath(ctx.args[0]);
	if (leaveAsleep(ctx, path))
		return 0;
	int t = VEXODiskTemperatureGet(path.c_str());
	Value r = Value::object();
	r.set("disk", path);
	r.set("temperature_c", t < 0 ? Value() : Value(t));
	r.set("source", temperatureSource(path.c_str()));
	printRecord(ctx, r);
	return t < 0 ? 1 : 0;
}

int diskSerial(Context &ctx)
{
	if (ctx.args.size() != 1)
		return fail("usage: disk serial DISK [--ui]");
	std::string path = devicePath(ctx.args[0]);
	if (leaveAsleep(ctx, path))
		return 0;
	Value r = Value::object();
	r.set("disk", path);
	char serial[64] = {};
	if (ctx.has("ui")) {
		if (VEXODiskGetSerialForUi(path.c_str(), serial, sizeof(serial)) != 0)
			return fail("can't read the serial of %s (error 0x%04X)", path.c_str(), VLIBCErrGet());
		r.set("serial", serial);
		r.set("kind", "ui");
	} else {
		char firmware[64] = {};
		if (SmartFirmAndSerialRead(path.c_str(), firmware, sizeof(firmware), serial, sizeof(serial)) != 0)
			return fail("can't read the serial of %s (error 0x%04X)", path.c_str(), VLIBCErrGet());
		r.set("serial", serial);
		r.set("firmware", firmware);
		r.set("kind", "true");
	}
	printRecord(ctx, r);
	return 0;
}

VEXO_CLI_COMMAND("smart temp", "DISK [--wake]", "temperature of a disk and the source that answered", smartTemp, {});
VEXO_CLI_COMMAND("disk serial", "DISK [--ui] [--wake]", "the drive's true serial, or with --ui the one the user sees",
		 diskSerial, {});

} // namespace
