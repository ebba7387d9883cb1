// vexohw system temperature | fan disk-temp: the machine's temperature as a
// user sees it, and the hottest disk as the fan loop sees it. The disks are
// read through their drives, so a disk in standby is left out (and said to
// be) unless --wake asks for it.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <vexohw/disk_port.h>
#include <vexohw/ext.h>
#include <vexohw/fan_config.h>
#include <vexohw/fan_table.h>
#include <vexoplatform/vexocore.h>

#include "cli.h"

using namespace vexo::cli;

namespace {

constexpr const char *kWarningFile = "/tmp/systempwarning";

// Names of a disk enumeration, "/dev/" prefixed; nothing when it fails.
bool enumerate(int (*fn)(PVLIBSZLIST *), std::vector<std::string> &out)
{
	PVLIBSZLIST raw = VLIBCSzListAlloc(16);
	const bool ok = raw && fn(&raw) == 0;
	SzList list(raw); // the enumerator may have grown it
	for (int i = 0; ok && i < list->nItem; ++i) {
		const std::string n = VLIBCSzListGet(list.get(), i);
		out.push_back(n.rfind("/dev/", 0) == 0 ? n : "/dev/" + n);
	}
	return ok;
}

bool asleep(const std::string &path) { return VEXOExtDiskPowerModeGet(path.c_str()) == VEXO_EXT_POWER_STANDBY; }

// Which sensor VEXOHWSurfaceTempGet took.
const char *surfaceSource(int rc)
{
	return rc == FAN_SOURCE_CPU ? "cpu" : rc == FAN_SOURCE_THERMAL ? "system" : "none";
}

// The warning limit of the user's internal fan mode, the key it is kept
// under in the warning file; null when the file has none.
Value warningLimit(std::string &key)
{
	switch (VEXOFanAdjustDualModeGet("fan_config_type_internal")) {
	case DUAL_MODE_LOW:
		key = "mode_low";
		break;
	case DUAL_MODE_HIGH:
		key = "mode_high";
		break;
	case DUAL_MODE_LOW_STOP:
		key = "mode_low_stop";
		break;
	case DUAL_MODE_FULL:
		key = "mode_full";
		break;
	default:
		return Value();
	}
	char v[32] = "";
	if (VLIBCFileGetKeyValue(kWarningFile, key.c_str(), v, sizeof v, 0) <= 0)
		return Value();
	char *end = nullptr;
	const long n = std::strtol(v, &end, 10);
	return end != v && !*end ? Value(n) : Value(v);
}

int systemTemperature(Context &ctx)
{
	if (!ctx.args.empty())
		return fail("usage: system temperature [--wake]");
	int surface = -1;
	const int source = VEXOHWSurfaceTempGet(&surface);
	Value r = Value::object();
	r.set("sensor", surfaceSource(source));
	// With one CPU reading the library leaves the figure as it was.
	r.set("surface_c", source != 0 && surface >= 0 ? Value(surface) : Value());

	// The system figure reads the internal disks; a sleeping one stays so.
	std::vector<std::string> disks, sleeping;
	enumerate(VEXODiskInternalDiskWithoutM2Enum, disks);
	for (const std::string &d : disks)
		if (!ctx.has("wake") && asleep(d))
			sleeping.push_back(d);
	Value asleepList = Value::list();
	for (const std::string &d : sleeping)
		asleepList.push(d);
	int degree = -1;
	const bool read = sleeping.empty();
	const int degreeRc = read ? VEXOHWSysTempDegree(&degree) : -1;
	r.set("system_c", degreeRc == 0 ? Value(degree) : Value());
	r.set("disks_read", read);
	r.set("disks_asleep", asleepList);

	int warning = 0;
	const int warnRc = VEXOHWSysTempWarning(&warning);
	std::string key;
	Value limit = warningLimit(key);
	r.set("warning", warnRc == 0 ? Value(warning == 1) : Value());
	r.set("warning_key", key.empty() ? Value() : Value(key));
	r.set("warning_limit_c", limit);
	printRecord(ctx, r);
	if (ctx.json)
		return 0;
	if (source == 0 && degreeRc != 0 && read)
		std::printf("\nno temperature: the board answered neither the CPU nor the system sensor request.\n");
	else if (!read)
		std::printf("\n%zu disk(s) asleep: the system figure, which reads the disks, was not asked (--wake asks "
			    "it anyway).\n",
			    sleeping.size());
	if (warnRc != 0)
		std::printf("no warning state: %s has no limit for the user's fan mode, or no sensor answered.\n",
			    kWarningFile);
	return 0;
}

// The disk sets the fan loop's disk tables read.
struct DiskSet {
	const char *name;
	int (*fn)(PVLIBSZLIST *);
	const char *call;
};
constexpr DiskSet kSets[] = {
	{"internal", VEXODiskInternalDiskWithoutM2Enum, "VEXODiskInternalDiskWithoutM2Enum"},
	{"system", VEXODiskSystemInstallationDeviceEnum, "VEXODiskSystemInstallationDeviceEnum"},
	{"m2", VEXODiskM2DriveEnum, "VEXODiskM2DriveEnum"},
	{"u2", VEXODiskU2DriveEnum, "VEXODiskU2DriveEnum"},
};

int fanDiskTemp(Context &ctx)
{
	std::vector<std::string> disks;
	std::string set = "given";
	const std::string word = ctx.args.empty() ? "internal" : ctx.args.size() == 1 ? ctx.args[0] : "";
	const DiskSet *named = nullptr;
	for (const DiskSet &k : kSets)
		if (word == k.name)
			named = &k;
	if (named) {
		set = named->name;
		if (!enumerate(named->fn, disks))
			return fail("fan disk-temp: %s failed (error 0x%04X)", named->call, VLIBCErrGet());
	} else {
		for (const std::string &a : ctx.args) {
			// Bare names or /dev/ paths of block devices, nothing else.
			const std::string n = a.rfind("/dev/", 0) == 0 ? a.substr(5) : a;
			if (n.empty() || n.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789") != std::string::npos)
				return fail("fan disk-temp: \"%s\" is not a disk set (internal, system, m2, u2) nor a disk",
					    a.c_str());
			disks.push_back("/dev/" + n);
		}
	}
	// Ask each disk's power mode without waking it; the sleeping ones stay out.
	PVLIBSZLIST awake = VLIBCSzListAlloc(16);
	if (!awake)
		return fail("fan disk-temp: out of memory");
	Value rows = Value::list(), sleeping = Value::list();
	for (const std::string &d : disks) {
		const bool sleeps = !ctx.has("wake") && asleep(d);
		Value row = Value::object();
		row.set("disk", d);
		row.set("read", !sleeps);
		rows.push(row);
		if (sleeps)
			sleeping.push(d);
		else
			VLIBCSzListPush(&awake, d.c_str());
	}
	VEXO_FAN_READING_T reading{};
	reading.temperature = -1;
	const int rc = awake->nItem > 0 ? VEXOFanTableGetDiskHighestTemp(&reading, awake, nullptr) : -1;
	const bool anyRead = awake->nItem > 0;
	VLIBCSzListFree(awake);

	if (anyRead && rc < 0)
		return fail("fan disk-temp: VEXOFanTableGetDiskHighestTemp gave -1: no disk of the list is present");
	Value r = Value::object();
	r.set("set", set);
	r.set("hottest_c", reading.temperature >= 0 ? Value(reading.temperature) : Value());
	r.set("hottest_disk", anyRead && reading.name[0] ? Value(reading.name) : Value());
	// 1: every disk read is solid state, or none gave a temperature.
	r.set("all_solid_state_or_unread", anyRead ? Value(rc == 1) : Value());
	if (ctx.json) {
		r.set("disks", rows);
		r.set("asleep", sleeping);
		printRecord(ctx, r);
		return 0;
	}
	if (disks.empty()) {
		std::printf("the %s set has no disk\n", set.c_str());
		return 0;
	}
	printRecord(ctx, r);
	std::printf("\n");
	printTable(ctx, rows, {{"disk", "DISK"}, {"read", "READ"}});
	if (!sleeping.asList().empty())
		std::printf("\n%zu disk(s) asleep: not read, so as not to wake them (--wake reads them anyway).\n",
			    sleeping.asList().size());
	return 0;
}

} // namespace

VEXO_CLI_COMMAND("system temperature", "[--wake]",
		 "the machine's temperature: the surface sensor, the system figure with the disks, the warning state",
		 systemTemperature, {});
VEXO_CLI_COMMAND("fan disk-temp", "[internal|system|m2|u2|DISK...] [--wake]",
		 "the hottest disk as the fan loop reads it, leaving sleeping disks asleep", fanDiskTemp, {});
