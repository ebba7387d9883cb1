// vexohw power deep-sleep | fast-wake | spinup-queue | spindown-before-off:
// the power calls that work through kernel attributes. None of them sends a
// command to a drive, so none of them wakes a sleeping disk.
#include <cstdio>
#include <optional>
#include <string>
#include <vector>
#include <vexohw/disk.h>
#include <vexohw/disk_port.h>
#include <vexohw/disk_power.h>
#include <vexoplatform/vexocore.h>

#include "cli.h"

using namespace vexo::cli;

namespace {

// A disk attribute of the box ("" when empty), nothing when it cannot be read.
std::optional<std::string> attr(const std::string &disk, const char *name)
{
	return readBoxFile("/sys/block/" + disk + "/device/" + name);
}

Value optText(const std::optional<std::string> &v) { return v ? Value(*v) : Value(); }

std::vector<std::string> internalDisks()
{
	std::vector<std::string> out;
	PVLIBSZLIST names = VLIBCSzListAlloc(16);
	if (names && VEXODiskPortEnum(DISK_PORT_TYPE_INTERNAL, &names) == 0)
		for (int i = 0; i < names->nItem; ++i)
			out.emplace_back(VLIBCSzListGet(names, i));
	VLIBCSzListFree(names);
	return out;
}

const char *usbVerdict(int rc) { return rc == 1 ? "allows" : rc == 0 ? "forbids" : "unknown"; }

int timerOf(int type)
{
	int v = -1;
	return VEXODiskGetStandbyTimer(&v, type) == 0 ? v : -1;
}

// The internal disks with what their deep sleep attributes say.
Value deepSleepRows()
{
	Value rows = Value::list();
	for (const std::string &d : internalDisks()) {
		Value r = Value::object();
		const auto support = attr(d, "vexo_deep_sleep_support");
		r.set("disk", "/dev/" + d);
		r.set("supported", support ? Value(!support->empty() && (*support)[0] == '1') : Value());
		r.set("ctrl", optText(attr(d, "vexo_deep_sleep_ctrl")));
		rows.push(std::move(r));
	}
	return rows;
}

// JSON: one record with the disks in it; words: the record, then a table.
int printWithDisks(Context &ctx, Value r, Value disks)
{
	if (!ctx.json) {
		printRecord(ctx, r);
		std::printf("\n");
		printTable(ctx, disks, {{"disk", "DISK"}, {"supported", "DEEP SLEEP"}, {"ctrl", "CTRL"}});
		return 0;
	}
	r.set("disks", std::move(disks));
	printRecord(ctx, r);
	return 0;
}

int deepSleepCheck(Context &ctx)
{
	const int usb = VEXOCheckDeepSleep();
	Value r = Value::object();
	r.set("usb", usbVerdict(usb));
	const int sata = timerOf(VEXO_TIMER_SATA_DEEP_SLEEP), eunit = timerOf(VEXO_TIMER_EUNIT_DEEP_SLEEP);
	r.set("sata_deep_sleep_timer", sata < 0 ? Value() : Value(sata));
	r.set("eunit_deep_sleep_timer", eunit < 0 ? Value() : Value(eunit));
	// On: a timer hands deep sleep to the daemon and no USB device forbids it.
	r.set("on", usb != 0 && (sata > 0 || eunit > 0));
	return printWithDisks(ctx, std::move(r), deepSleepRows());
}

int powerDeepSleep(Context &ctx)
{
	if (ctx.args.size() == 1 && ctx.args[0] == "check")
		return deepSleepCheck(ctx);
	if (!ctx.args.empty())
		return fail("usage: power deep-sleep [check] [--force]");
	const int usb = VEXOCheckDeepSleep();
	if (usb == 0 && !ctx.has("force"))
		return fail("power deep-sleep: a USB device forbids deep sleep (VEXOCheckDeepSleep 0); --force does it anyway");
	if (VEXODiskSetDeepSleep() != 0)
		return fail("power deep-sleep: VEXODiskSetDeepSleep failed (error 0x%04X; --verbose tells more)",
			    VLIBCErrGet());
	Value r = Value::object();
	r.set("usb", usbVerdict(usb));
	Value told = Value::list();
	Value rows = deepSleepRows();
	for (const Value &row : rows.asList())
		if (const Value *s = row.get("supported"); s && s->text() == "yes")
			told.push(*row.get("disk"));
	r.set("told", std::move(told));
	return printWithDisks(ctx, std::move(r), std::move(rows));
}

int powerFastWake(Context &ctx)
{
	if (!ctx.args.empty())
		return fail("usage: power fast-wake");
	if (VEXODiskFastWake() != 0)
		return fail("power fast-wake: VEXODiskFastWake returned -1: no /sys/block/md?/md/active, or one could not be written "
			    "(error 0x%04X)", VLIBCErrGet());
	Value r = Value::object();
	r.set("woken", "every RAID array");
	printRecord(ctx, r);
	return 0;
}

int powerSpinupQueue(Context &ctx)
{
	if (!ctx.args.empty())
		return fail("usage: power spinup-queue");
	const int rc = VEXODiskSpinupQueueSet();
	if (rc != 0)
		return fail("power spinup-queue: VEXODiskSpinupQueueSet gave %d (error 0x%04X)", rc, VLIBCErrGet());
	Value r = Value::object();
	r.set("spinup_queue", "set");
	r.set("changed", false);
	printRecord(ctx, r);
	if (!ctx.json)
		std::printf("\nThe disks spin up in the kernel's own order: nothing to send.\n");
	return 0;
}

int powerSpindownBeforeOff(Context &ctx)
{
	std::string n = ctx.args.size() == 1 ? ctx.args[0] : "";
	if (n.rfind("/dev/", 0) == 0)
		n = n.substr(5);
	if (n.empty() || n.find('/') != std::string::npos || n.find("..") != std::string::npos)
		return fail("usage: power spindown-before-off DISK");
	Value r = Value::object();
	r.set("disk", "/dev/" + n);
	const auto before = attr(n, "vexo_spindown_before_poweroff");
	const bool already = before && *before == "1";
	if (!already && VEXODiskSpindownBeforePoweroffSet(n.c_str()) != 0)
		return fail("power spindown-before-off: /dev/%s cannot be marked: VEXODiskSpindownBeforePoweroffSet "
			    "failed (error 0x%04X; no vexo_spindown_before_poweroff?)", n.c_str(), VLIBCErrGet());
	r.set("spindown_before_poweroff", true);
	r.set("changed", !already);
	printRecord(ctx, r);
	return 0;
}

VEXO_CLI_COMMAND("power deep-sleep", "[check] [--force]",
		 "put the internal disks' links into deep sleep, or (check) tell whether deep sleep is on",
		 powerDeepSleep, {});
VEXO_CLI_COMMAND("power fast-wake", "", "wake every RAID array at once", powerFastWake, {});
VEXO_CLI_COMMAND("power spinup-queue", "", "set the spin-up queue (kept for callers; sends nothing)",
		 powerSpinupQueue, {});
VEXO_CLI_COMMAND("power spindown-before-off", "DISK", "mark a disk to be spun down before power-off",
		 powerSpindownBeforeOff, {});

} // namespace
