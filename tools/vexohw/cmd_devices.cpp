// Where the disks are: M.2, U.2 and external SATA ports, the system's own
// devices, partition names, paths from a serial or an id, and what drives a
// disk. Everything here reads configuration and kernel attributes, except
// the serial search and the form factor, which ask drives and so look at
// their power mode first.
#include <climits>
#include <cstdlib>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <vector>

#include <vexohw/disk.h>
#include <vexohw/disk_health.h>
#include <vexohw/disk_port.h>
#include <vexohw/disk_probe.h>
#include <vexohw/ext.h>
#include <vexoplatform/vexocore.h>

#include "asleep.h"
#include "cli.h"
#include "disk_args.h"

using namespace vexo::cli;

namespace {


// Runs an enumerator that appends to a string list; false with the list
// empty when it fails.
template <typename Fn>
bool collect(Fn fn, Value &names)
{
	PVLIBSZLIST raw = VLIBCSzListAlloc(16);
	if (!raw)
		return false;
	int rc = fn(&raw);
	SzList list(raw);
	if (rc != 0)
		return false;
	names = Value::list();
	for (int i = 0; i < list->nItem; ++i)
		names.push(VLIBCSzListGet(list.get(), i));
	return true;
}

// One answer for both renderers: the record as JSON, its rows as a table.
int printNames(Context &ctx, Value record, const Value &names, const char *title)
{
	if (ctx.json) {
		printRecord(ctx, record);
		return 0;
	}
	Value rows = Value::list();
	for (const auto &n : names.asList()) {
		Value row = Value::object();
		for (const auto &[k, v] : n.isObject() ? n.asObject() : Value::Object{{"name", n}})
			row.set(k, v);
		if (!row.get("path"))
			row.set("path", devicePath(n.text()));
		rows.push(row);
	}
	std::vector<Column> cols = {{"name", "NAME"}, {"path", "PATH"}};
	if (!names.asList().empty() && names.asList()[0].get("index"))
		cols.insert(cols.begin(), Column{"index", "PORT"});
	printTable(ctx, rows, cols, title);
	return 0;
}

int portDrives(Context &ctx, const char *what, int (*enumerate)(PVLIBSZLIST *))
{
	std::string command = std::string("port ") + what;
	if (!ctx.args.empty())
		return fail("usage: %s", command.c_str());
	Value names;
	if (!collect(enumerate, names))
		return fail("%s: the %s drives could not be listed (error 0x%04X)", command.c_str(), what, VLIBCErrGet());
	Value r = Value::object();
	r.set("kind", what);
	r.set("count", static_cast<int>(names.asList().size()));
	r.set("names", names);
	std::string title = std::string(what) + " drives: " + std::to_string(names.asList().size());
	return printNames(ctx, r, names, title.c_str());
}

int portM2(Context &ctx) { return portDrives(ctx, "m2", VEXODiskM2DriveEnum); }
int portU2(Context &ctx) { return portDrives(ctx, "u2", VEXODiskU2DriveEnum); }

int portEsata(Context &ctx)
{
	if (!ctx.args.empty())
		return fail("usage: port esata");
	int count = VEXOExternalEsataPortCount();
	Value ports = Value::list();
	for (int i = 1; i <= count; ++i) {
		char name[32] = {};
		if (VEXOExternalEsataPortGet(i, name, sizeof(name)) != 0)
			return fail("port esata: no name for port %d of %d (error 0x%04X)", i, count, VLIBCErrGet());
		Value p = Value::object();
		p.set("index", i);
		p.set("name", name);
		p.set("path", devicePath(name));
		// The reverse lookup must lead back to the same port.
		p.set("index_of_name", VEXOExternalEsataPortIndexGet(name));
		ports.push(p);
	}
	Value r = Value::object();
	r.set("count", count < 0 ? 0 : count);
	r.set("ports", ports);
	std::string title = "external SATA ports: " + std::to_string(count < 0 ? 0 : count);
	return printNames(ctx, r, ports, title.c_str());
}

// The system's own devices. A path that can't be had is null, and the call
// that failed is named; the command fails only when nothing answered.
int diskSystem(Context &ctx)
{
	if (!ctx.args.empty())
		return fail("usage: disk system");
	Value r = Value::object();
	Value errors = Value::list();
	auto failed = [&](const char *what) {
		char b[96];
		std::snprintf(b, sizeof(b), "%s: error 0x%04X", what, VLIBCErrGet());
		errors.push(b);
		return Value();
	};
	Value names;
	r.set("installation_devices",
	      collect(VEXODiskSystemInstallationDeviceEnum, names) ? names : failed("installation devices"));
	struct PathCall {
		const char *field, *what;
		int (*get)(char *, int);
	} calls[] = {{"first_data_device", "first data device", VEXODiskFirstDataDevicePathGet},
		     {"system_device", "system device", VEXODiskSysDevicePathGet},
		     {"system_mount_device", "system mount device", VEXOSystemDeviceMountPathGet}};
	for (const PathCall &c : calls) {
		char path[256] = {};
		r.set(c.field, c.get(path, sizeof(path)) == 0 ? Value(path) : failed(c.what));
	}
	r.set("errors", errors);
	printRecord(ctx, r);
	if (errors.asList().size() == 4)
		return fail("disk system: no system device could be found");
	for (const auto &e : errors.asList())
		std::fprintf(stderr, "disk system: %s\n", e.text().c_str());
	return errors.asList().empty() ? 0 : 1;
}

// Partition names of a disk. The names are formed, not looked up: each row
// says whether the kernel has the partition.
int diskPartitions(Context &ctx)
{
	if (ctx.args.empty())
		return fail("usage: disk partitions DISK [NUMBER...]");
	std::string path = devicePath(ctx.args[0]);
	std::string disk = VEXODiskDevPrefixSkip(path.c_str());
	if (disk.empty() || disk.find('/') != std::string::npos)
		return fail("disk partitions: '%s' is not a disk name", ctx.args[0].c_str());
	std::vector<int> numbers;
	for (size_t i = 1; i < ctx.args.size(); ++i) {
		int n = 0;
		if (!parseInt(ctx.args[i], 1, 255, n))
			return fail("disk partitions: '%s' is no partition number (1-255)", ctx.args[i].c_str());
		numbers.push_back(n);
	}
	if (numbers.empty())
		numbers = {1, 2, 3};
	char pattern[128] = {};
	if (VEXODiskDevicePartitionEnumStringGet(path.c_str(), pattern, sizeof(pattern)) != 0)
		return fail("disk partitions: no partition pattern for %s (error 0x%04X)", path.c_str(), VLIBCErrGet());
	Value rows = Value::list();
	for (int n : numbers) {
		char name[128] = {}, dev[160] = {};
		if (VEXODiskDevicePartitionNameGet(path.c_str(), n, name, sizeof(name)) != 0 ||
		    VEXODiskDevicePartitionPathGet(path.c_str(), n, dev, sizeof(dev)) != 0)
			return fail("disk partitions: no name for partition %d of %s (error 0x%04X)", n, path.c_str(),
				    VLIBCErrGet());
		char sys[4096] = {};
		struct stat st;
		std::string node = "/sys/block/" + disk + "/" + name;
		bool present = VEXOExtSysrootPath(node.c_str(), sys, sizeof(sys)) == 0 && ::stat(sys, &st) == 0;
		Value row = Value::object();
		row.set("number", n);
		row.set("name", name);
		row.set("path", dev);
		row.set("present", present);
		rows.push(row);
	}
	if (ctx.json) {
		Value r = Value::object();
		r.set("disk", path);
		r.set("pattern", pattern);
		r.set("partitions", rows);
		printRecord(ctx, r);
		return 0;
	}
	std::string title = path + " (partitions match " + pattern + ")";
	printTable(ctx, rows, {{"number", "NO"}, {"name", "NAME"}, {"path", "PATH"}, {"present", "PRESENT"}},
		   title.c_str());
	return 0;
}

// Reading a serial asks every drive, so sleeping disks are named and left
// alone unless --wake says otherwise.
int diskBySerial(Context &ctx)
{
	if (ctx.args.size() != 1 || ctx.args[0].empty())
		return fail("usage: disk by-serial SERIAL [--wake]");
	if (!ctx.has("wake")) {
		// The disks of the containers the search reads, by port map: listing
		// them through the disk records would itself read the drives.
		Value asleep = Value::list();
		for (int type : {DISK_PORT_TYPE_INTERNAL, DISK_PORT_TYPE_EBOX, DISK_PORT_TYPE_USB, DISK_PORT_TYPE_ESATA,
				 DISK_PORT_TYPE_CACHE, DISK_PORT_TYPE_SYS}) {
			Value names;
			if (!collect([&](PVLIBSZLIST *l) { return VEXODiskPortEnum(type, l); }, names))
				return fail("disk by-serial: the disks of port type %d could not be listed (error 0x%04X)",
					    type, VLIBCErrGet());
			for (const auto &n : names.asList())
				if (VEXOExtDiskPowerModeGet(devicePath(n.text()).c_str()) == VEXO_EXT_POWER_STANDBY)
					asleep.push(devicePath(n.text()));
		}
		if (!asleep.asList().empty()) {
			Value r = Value::object();
			r.set("serial", ctx.args[0]);
			r.set("read", false);
			r.set("asleep", asleep);
			printRecord(ctx, r);
			if (!ctx.json)
				std::printf("\nnothing read, so as not to wake the disks in standby (--wake reads them anyway).\n");
			return 0;
		}
	}
	Value paths;
	std::string serial = ctx.args[0];
	if (!collect([&](PVLIBSZLIST *l) { return VEXODiskDevPathGetBySerialNumber(serial.c_str(), l); }, paths))
		return fail("disk by-serial: the search failed (error 0x%04X)", VLIBCErrGet());
	Value r = Value::object();
	r.set("serial", serial);
	r.set("paths", paths);
	printRecord(ctx, r);
	if (paths.asList().empty())
		return fail("disk by-serial: no disk carries serial '%s'", serial.c_str());
	return 0;
}

// An id as `disk where` prints it serialized: "<container>_<n>_<index>",
// the container by keyword or number; n is the unit (ebox, sys) or the
// slot (cache).
bool parseId(const std::string &text, DiskId &id)
{
	size_t a = text.find('_'), b = a == std::string::npos ? a : text.find('_', a + 1);
	if (b == std::string::npos || text.find('_', b + 1) != std::string::npos)
		return false;
	std::string kind = text.substr(0, a);
	int container = 0, middle = 0, index = 0;
	static const int kContainers[] = {DISK_CONTAINER_INTERNAL, DISK_CONTAINER_EBOX, DISK_CONTAINER_USB,
					  DISK_CONTAINER_ESATA,    DISK_CONTAINER_CACHE, DISK_CONTAINER_SYS};
	for (int c : kContainers) {
		const char *k = VEXODiskContainerToString(c);
		if (k && kind == k)
			container = c;
	}
	if (!container && !parseInt(kind, 1, 255, container))
		return false;
	if (!parseInt(text.substr(a + 1, b - a - 1), 0, 9999, middle) || !parseInt(text.substr(b + 1), 1, 99999, index))
		return false;
	id = DiskId{};
	id.index = index;
	id.container = container;
	id.unit = container == DISK_CONTAINER_CACHE ? 0 : middle;
	id.slot = container == DISK_CONTAINER_CACHE ? middle : -1;
	return true;
}

int diskById(Context &ctx)
{
	if (ctx.args.size() != 1)
		return fail("usage: disk by-id ID (as CONTAINER_N_INDEX: internal_0_3, ebox_1_2, cache_1_1)");
	DiskId id{};
	if (!parseId(ctx.args[0], id))
		return fail("disk by-id: '%s' is no disk id (CONTAINER_N_INDEX, e.g. internal_0_3)", ctx.args[0].c_str());
	char path[128] = {};
	if (VEXODiskDevPathGetById(&id, path, sizeof(path)) != 0)
		return fail("disk by-id: no disk has id %s (error 0x%04X)", ctx.args[0].c_str(), VLIBCErrGet());
	Value r = Value::object();
	r.set("id", ctx.args[0]);
	r.set("container", id.container);
	r.set("unit", id.unit);
	r.set("index", id.index);
	r.set("path", path);
	printRecord(ctx, r);
	return 0;
}

const char *driverName(int driver)
{
	switch (driver) {
	case VEXO_DISK_DRIVER_AHCI:
		return "ahci";
	case VEXO_DISK_DRIVER_MPT2SAS:
		return "mpt2sas";
	case VEXO_DISK_DRIVER_MPT3SAS:
		return "mpt3sas";
	case VEXO_DISK_DRIVER_MV14XX:
		return "mv14xx";
	}
	return "other";
}

// What serves a disk. All but the form factor come from kernel attributes;
// the form factor is the drive's own IDENTIFY word, so a sleeping disk is
// not asked for it.
int diskDriver(Context &ctx)
{
	if (ctx.args.size() != 1)
		return fail("usage: disk driver DISK [--wake]");
	std::string path = devicePath(ctx.args[0]);
	// The probes answer "other" and the like for any name: ask the kernel first.
	std::string name = VEXODiskDevPrefixSkip(path.c_str());
	char sys[4096] = {};
	struct stat st;
	if (name.find('/') != std::string::npos ||
	    VEXOExtSysrootPath(("/sys/block/" + name).c_str(), sys, sizeof(sys)) != 0 || ::stat(sys, &st) != 0)
		return fail("disk driver: the kernel has no disk %s", path.c_str());
	Value r = Value::object();
	r.set("disk", path);
	int driver = VEXOGetDiskDriver(path.c_str());
	r.set("driver", driver);
	r.set("driver_name", driverName(driver));
	char type[32] = {};
	r.set("command_family", VEXODiskDeviceTypeGet(path.c_str(), type, sizeof(type)) == 0 ? Value(type) : Value());
	r.set("mv1475", VEXODiskIsMv1475Driver(path.c_str()) == 1);
	r.set("mvsoc", VEXODiskIsMvSocDriver(path.c_str()) == 1);
	char sg[64] = {};
	r.set("scsi_generic", VEXODiskScsiGenericGet(path.c_str(), sg, sizeof(sg)) == 0 ? Value(sg) : Value());
	int ro = 0;
	r.set("read_only", VEXODiskReadonlyGet(path.c_str(), &ro) == 0 ? Value(ro == 1) : Value());
	int mode = VEXOExtDiskPowerModeGet(path.c_str());
	r.set("power_mode", powerModeName(mode));
	bool asleep = mode == VEXO_EXT_POWER_STANDBY && !ctx.has("wake");
	char ff[32] = {};
	r.set("form_factor", !asleep && VEXODiskFormFactorSizeGet(path.c_str(), ff, sizeof(ff)) == 0 ? Value(ff) : Value());
	printRecord(ctx, r);
	if (asleep && !ctx.json)
		std::printf("\n%s is asleep: form factor not read, so as not to wake it (--wake reads it anyway).\n",
			    path.c_str());
	return 0;
}

VEXO_CLI_COMMAND("port m2", "", "M.2 drives: adapter card disks and NVMe disks outside U.2 bays", portM2, {});
VEXO_CLI_COMMAND("port u2", "", "NVMe drives in U.2 bays", portU2, {});
VEXO_CLI_COMMAND("port esata", "", "external SATA ports: count and each port's device", portEsata, {});
VEXO_CLI_COMMAND("disk system", "",
		 "installation devices, first data device, system device and the device the system mounts", diskSystem,
		 {});
VEXO_CLI_COMMAND("disk partitions", "DISK [NUMBER...]", "partition names and paths of a disk, and their pattern",
		 diskPartitions, {});
VEXO_CLI_COMMAND("disk by-serial", "SERIAL [--wake]", "device paths of the disks carrying a serial", diskBySerial, {});
VEXO_CLI_COMMAND("disk by-id", "CONTAINER_N_INDEX", "device path of a disk id (as `disk where` serializes it)",
		 diskById, {});
VEXO_CLI_COMMAND("disk driver", "DISK [--wake]",
		 "driver, command family, SCSI generic node, read-only flag and form factor of a disk", diskDriver, {});

} // namespace
