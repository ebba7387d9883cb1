// vexohw power ...: the power mode of disks (asked without waking them),
// standby, and the power timers; vexohw daemon status: the platform daemon.
#include <climits>
#include <cstdio>
#include <string>
#include <vector>
#include <vexohw/disk.h>
#include <vexohw/disk_port.h>
#include <vexohw/disk_power.h>
#include <vexohw/vcemd.h>
#include <vexoplatform/vexocore.h>

#include "cli.h"
#include "asleep.h"
#include "disk_args.h"

using namespace vexo::cli;

namespace {

std::string devicePath(const std::string &arg) { return arg.rfind("/dev/", 0) == 0 ? arg : "/dev/" + arg; }

bool diskName(const std::string &arg)
{
	std::string n = arg.rfind("/dev/", 0) == 0 ? arg.substr(5) : arg;
	return !n.empty() && n.find('/') == std::string::npos && n.find("..") == std::string::npos;
}

// Every disk of the box, by port type, as the walk would find them.
std::vector<std::string> allDisks()
{
	std::vector<std::string> out;
	for (int type : {DISK_PORT_TYPE_INTERNAL, DISK_PORT_TYPE_CACHE, DISK_PORT_TYPE_EBOX, DISK_PORT_TYPE_ESATA,
			 DISK_PORT_TYPE_USB, DISK_PORT_TYPE_SYS}) {
		PVLIBSZLIST names = VLIBCSzListAlloc(16);
		if (names && VEXODiskPortEnum(type, &names) == 0)
			for (int i = 0; i < names->nItem; ++i)
				out.push_back(std::string("/dev/") + VLIBCSzListGet(names, i));
		VLIBCSzListFree(names);
	}
	return out;
}

int powerStatus(Context &ctx)
{
	std::vector<std::string> disks;
	for (const std::string &a : ctx.args) {
		if (!diskName(a))
			return fail("power status: '%s' is not a disk name", a.c_str());
		disks.push_back(devicePath(a));
	}
	if (disks.empty())
		disks = allDisks();
	Value rows = Value::list();
	bool unknown = false;
	for (const std::string &d : disks) {
		int m = VEXOExtDiskPowerModeGet(d.c_str());
		unknown |= m == VEXO_EXT_POWER_UNKNOWN;
		Value r = Value::object();
		r.set("disk", d);
		r.set("power_mode", powerModeName(m));
		int spindown = VEXODiskIsSpindown(d.c_str());
		r.set("kernel_spindown", spindown < 0 ? Value() : Value(spindown != 0));
		rows.push(std::move(r));
	}
	printTable(ctx, rows, {{"disk", "DISK"}, {"power_mode", "POWER"}, {"kernel_spindown", "SPUN DOWN (KERNEL)"}});
	return unknown && !ctx.args.empty() ? 1 : 0;
}

int powerStandby(Context &ctx)
{
	if (ctx.args.size() != 1 || !diskName(ctx.args[0]))
		return fail("usage: power standby DISK");
	const std::string path = devicePath(ctx.args[0]);
	int rc = VEXODiskSetDiskStandby(path.c_str(), 0);
	if (rc != 0)
		return fail("power standby: %s did not go to standby (result %d, error 0x%04X)", path.c_str(), rc,
			    VLIBCErrGet());
	Value r = Value::object();
	r.set("disk", path);
	r.set("power_mode", powerModeName(VEXOExtDiskPowerModeGet(path.c_str())));
	printRecord(ctx, r);
	return 0;
}

// The timers by the names the command takes.
struct TimerName {
	const char *name;
	const char *unit;
};
constexpr TimerName kTimers[] = {
	{"standby", "minutes"},	{"sata-deep-sleep", "minutes"}, {"eunit-deep-sleep", "minutes"},
	{"usb-standby", "minutes"}, {"auto-poweroff", "minutes"},   {"idle", "seconds"},
};

Value timerValue(const std::string &name)
{
	int v = 0;
	unsigned long idle = 0;
	int rc = -1;
	if (name == "standby")
		rc = VEXODiskGetStandbyTimer(&v, VEXO_TIMER_STANDBY);
	else if (name == "sata-deep-sleep")
		rc = VEXODiskGetStandbyTimer(&v, VEXO_TIMER_SATA_DEEP_SLEEP);
	else if (name == "eunit-deep-sleep")
		rc = VEXODiskGetStandbyTimer(&v, VEXO_TIMER_EUNIT_DEEP_SLEEP);
	else if (name == "usb-standby")
		rc = VEXODiskGetUSBStandbyTimer(&v);
	else if (name == "auto-poweroff")
		rc = VEXODiskGetAutoPoweroffTimer(&v);
	else if (name == "idle") {
		if (VEXODiskAllIdleTimerGet(&idle) != 0 || idle == ULONG_MAX)
			return Value();
		return Value(static_cast<unsigned long long>(idle));
	}
	return rc == 0 ? Value(v) : Value();
}

int powerTimers(Context &ctx)
{
	if (!ctx.args.empty())
		return fail("usage: power timers (power timers set NAME VALUE changes one)");
	Value rows = Value::list();
	for (const TimerName &t : kTimers) {
		Value r = Value::object();
		r.set("timer", t.name);
		r.set("value", timerValue(t.name));
		r.set("unit", t.unit);
		rows.push(std::move(r));
	}
	printTable(ctx, rows, {{"timer", "TIMER"}, {"value", "VALUE"}, {"unit", "UNIT"}});
	if (!ctx.json)
		std::printf("\n\"-\": not set. Changes go to /etc/vexoinfo.conf and to vcemd.\n");
	return 0;
}

int powerTimersSet(Context &ctx)
{
	int v = 0;
	if (ctx.args.size() != 2 || !parseInt(ctx.args[1], 0, INT_MAX, v))
		return fail("usage: power timers set NAME VALUE (NAME: standby, sata-deep-sleep, eunit-deep-sleep, "
			    "usb-standby, auto-poweroff, idle; VALUE a whole number)");
	const std::string &name = ctx.args[0];
	int rc;
	if (name == "standby")
		rc = VEXODiskSetStandbyTimer(v);
	else if (name == "sata-deep-sleep")
		rc = VEXODiskSetSleepTimer(v, VEXO_TIMER_SATA_DEEP_SLEEP);
	else if (name == "eunit-deep-sleep")
		rc = VEXODiskSetSleepTimer(v, VEXO_TIMER_EUNIT_DEEP_SLEEP);
	else if (name == "usb-standby")
		rc = VEXODiskSetUSBStandbyTimer(static_cast<unsigned>(v));
	else if (name == "auto-poweroff")
		rc = VEXODiskSetAutoPoweroffTimer(v);
	else if (name == "idle")
		rc = VEXODiskAllIdleTimerSet(static_cast<unsigned long>(v));
	else
		return fail("power timers set: no timer '%s'", name.c_str());
	if (rc != 0)
		return fail("power timers set: %s=%d was refused (error 0x%04X; --verbose tells more)", name.c_str(), v,
			    VLIBCErrGet());
	Value r = Value::object();
	r.set("timer", name);
	r.set("value", timerValue(name));
	printRecord(ctx, r);
	return 0;
}

int daemonStatus(Context &ctx)
{
	if (!ctx.args.empty())
		return fail("usage: daemon status");
	Value r = Value::object();
	int pid = 0;
	const int running = VEXOExtVcemdPidGet(&pid);
	r.set("pid", pid > 0 ? Value(pid) : Value());
	r.set("running", running == 1);
	r.set("ready_marker", VEXOIsVcemdReady() == 1);
	int status = 0;
	const bool answered = VEXOIsVcemdReady() == 1 && VEXOVcemdStatusGet(1, &status) == 0;
	r.set("answer", answered ? Value(status == VEXO_VCEMD_READY ? "ready" : "stopped") : Value());
	printRecord(ctx, r);
	return answered ? 0 : 1;
}

VEXO_CLI_COMMAND("power status", "[DISK...]", "active, idle or standby of each disk, asked without waking it",
		 powerStatus, {});
VEXO_CLI_COMMAND("power standby", "DISK", "spin a disk down now (nothing sent when it is down already)",
		 powerStandby, {});
VEXO_CLI_COMMAND("power timers", "", "the standby, deep sleep, USB, auto power-off and idle timers", powerTimers,
		 {});
VEXO_CLI_COMMAND("power timers set", "NAME VALUE", "change one timer; vcemd is told of the change", powerTimersSet,
		 {});
VEXO_CLI_COMMAND("daemon status", "", "the platform daemon: pid file, ready marker and its own answer",
		 daemonStatus, {});

} // namespace
