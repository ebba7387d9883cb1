// vexohw overview (also "disk list"): one row per disk of the box, and
// vexohw snapshot write, the platform daemon's snapshot by hand.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <sys/stat.h>
#include <vector>

#include <vexohw/compat_cache.h>
#include <vexohw/disk.h>
#include <vexohw/disk_enum.h>
#include <vexohw/disk_port.h>
#include <vexohw/disk_probe.h>
#include <vexohw/disk_state.h>
#include <vexohw/ext.h>
#include <vexohw/frame.h>
#include <vexohw/smart_info.h>
#include <vexohw/smart_serial.h>
#include <vexohw/smartctl.h>
#include <vexohw/smart_status.h>
#include <vexohw/smart_temperature.h>
#include <vexoplatform/ebox_info.h>
#include <vexoplatform/vexocore.h>

#include "asleep.h"
#include "cli.h"

using namespace vexo::cli;

namespace {

// Every container bit, tmpfs included.
constexpr int32_t kAllContainers = 0xFF;

struct DiskList {
	DiskListNode *head = nullptr;
	~DiskList() { DiskInfoEnumFree(head); }
};

// Decimal units, as drive makers print capacities on their labels.
std::string humanBytes(unsigned long long bytes)
{
	static const char *kUnits[] = {"B", "kB", "MB", "GB", "TB", "PB"};
	double v = static_cast<double>(bytes);
	size_t u = 0;
	while (v >= 1000.0 && u + 1 < std::size(kUnits)) {
		v /= 1000.0;
		++u;
	}
	char b[32];
	if (u == 0 || v >= 10.0)
		std::snprintf(b, sizeof(b), "%.0f %s", v, kUnits[u]);
	else
		std::snprintf(b, sizeof(b), "%.1f %s", v, kUnits[u]);
	return b;
}

// Where the disk sits, as a person would look for it.
std::string location(const DiskInfo &d)
{
	char b[64] = "";
	switch (d.id.container) {
	case DISK_CONTAINER_INTERNAL:
		std::snprintf(b, sizeof(b), "Bay %d", d.id.index);
		return b;
	case DISK_CONTAINER_EBOX: {
		// The unit's model, asked once per unit: each question reads every host.
		static std::map<int, std::string> models;
		auto it = models.find(d.id.unit);
		if (it == models.end()) {
			char unique[32] = "";
			char disk[sizeof(d.path)];
			if (DiskPartitionNumRemove(d.path, disk, sizeof(disk)) != 0 ||
			    VEXOEBoxUnitUniqueGetByDevPath(disk, unique, sizeof(unique)) < 0)
				unique[0] = '\0';
			it = models.emplace(d.id.unit, unique).first;
		}
		if (it->second.empty())
			std::snprintf(b, sizeof(b), "Unit %d bay %d", d.id.unit, d.id.index);
		else
			std::snprintf(b, sizeof(b), "Unit %d bay %d (%s)", d.id.unit, d.id.index, it->second.c_str());
		return b;
	}
	case DISK_CONTAINER_ESATA: {
		int port = VEXOExternalEsataPortIndexGet(d.path);
		if (port > 0) {
			std::snprintf(b, sizeof(b), "eSATA %d", port);
			return b;
		}
		return "eSATA";
	}
	case DISK_CONTAINER_USB:
		return "USB";
	case DISK_CONTAINER_CACHE:
	case DISK_CONTAINER_SYS:
		if (DiskIdToString(&d.id, b, sizeof(b)) == 0 && b[0])
			return b;
		break;
	}
	return "-";
}

// Box first, then what is attached to it.
int groupRank(int container)
{
	static constexpr int kOrder[] = {DISK_CONTAINER_INTERNAL, DISK_CONTAINER_CACHE, DISK_CONTAINER_SYS,
					 DISK_CONTAINER_EBOX,     DISK_CONTAINER_ESATA, DISK_CONTAINER_USB};
	for (size_t i = 0; i < std::size(kOrder); ++i)
		if (kOrder[i] == container)
			return static_cast<int>(i);
	return static_cast<int>(std::size(kOrder));
}

long number(const char *s)
{
	if (!s || !*s)
		return -1;
	char *end = nullptr;
	long v = std::strtol(s, &end, 10);
	return *end ? -1 : v;
}

// The ATA SMART list, told as the count of attributes and those at or below
// their threshold (a threshold of 0 never trips). null: no list to show.
Value smartOf(const DiskInfo &d, std::string &cell)
{
	// NVMe disks have no such list (and asking logs a failure).
	if (VEXODiskScsiProtocolGet(d.path) == VEXO_DISK_PROTOCOL_NVME) {
		cell = "-";
		return Value();
	}
	// Otherwise the library tells the kind of disk itself: no separate question.
	SmartInfoEntry *list = nullptr;
	VLIBCErrClear();
	if (VEXODiskAtaSmartInfoParse(d.path, &list) != 0) {
		switch (VLIBCErrGet()) {
		case VEXO_ERR_WRONG_IFACE: // a SCSI disk has no attribute table
			cell = "no ATA list";
			break;
		case VEXO_ERR_UNSUPPORTED:
		case VEXO_ERR_NOT_FOUND: // the kind of disk could not be told
			cell = "-";
			break;
		default:
			cell = "unreadable";
		}
		return Value();
	}
	int count = 0;
	Value tripped = Value::list();
	std::string names;
	for (const SmartInfoEntry *e = list; e; e = e->next) {
		++count;
		long value = number(e->value), threshold = number(e->threshold);
		if (threshold > 0 && value >= 0 && value <= threshold) {
			tripped.push(e->name ? e->name : e->id ? e->id : "?");
			names += (names.empty() ? "" : ", ") + std::string(e->name ? e->name : e->id ? e->id : "?");
		}
	}
	VEXODiskSmartInfoFree(list);
	cell = std::to_string(count) + " attrs, " +
	       (names.empty() ? std::string("ok") : std::string("AT THRESHOLD: ") + names);
	Value s = Value::object();
	s.set("attributes", count);
	s.set("at_threshold", tripped);
	return s;
}

// What the overview shows of one disk beyond its record, each value with
// where it came from. One pass: the drive is asked once (serial and firmware
// from one IDENTIFY or INQUIRY), and the model and vendor come from what
// the system already knows.
struct Extra {
	std::string model, vendor, serial, firmware;
	const char *modelFrom = "", *vendorFrom = "", *serialFrom = "drive", *smartFrom = "";
};

Extra extraOf(const DiskInfo &d, const char *recordFrom, int ssd, bool asleep)
{
	Extra x;
	char b[256] = "";
	const char *from = "record";
	x.model = VEXOExtDiskWholeModelGet(d.path, d.model, b, sizeof(b), &from) == 0 ? b : d.model;
	x.modelFrom = std::strcmp(from, "record") == 0 ? recordFrom : from;
	b[0] = '\0';
	if (VEXODiskGetStrValueCacheFile(d.path, "vendor", b, sizeof(b)) == 0 && b[0]) {
		x.vendor = b;
		x.vendorFrom = "cache";
	} else if (VEXOLnxDiskGetVendor(d.path, b, sizeof(b)) == 0 && b[0]) {
		x.vendor = b;
		x.vendorFrom = "sysfs";
	}
	char fw[64] = "", sn[256] = "";
	// A disk in standby is asked nothing: its serial and firmware stay unread.
	if (!asleep && SmartFirmAndSerialRead(d.path, fw, sizeof(fw), sn, sizeof(sn)) == 0) {
		x.firmware = fw;
		x.serial = sn;
	}
	// The maker's own hard disks show the serial stored on them, as
	// VEXODiskGetSerialForUi gives it; every other disk its own.
	if (!asleep && ssd == 0 && VEXODiskIsVexology(d.path) == 1) {
		sn[0] = '\0';
		x.serial = VEXODiskGetSerialForUi(d.path, sn, sizeof(sn)) == 0 ? sn : "";
		x.serialFrom = "drive_stored_serial";
	}
	long long age = 0, maxAge = 0;
	x.smartFrom = VEXOExtSmartInfoCacheAge(d.path, &age, &maxAge) >= 0 ? "cache" : "smartctl";
	return x;
}

Value textOrNull(const std::string &s) { return s.empty() ? Value() : Value(s); }

// One disk. A table adds texts for people; JSON keeps only numbers with
// their units in the field names, and says where each value came from.
// The cached verdict: never a command to the drive. null until the
// disk's caches have been filled.
Value healthOf(const char *path)
{
	int weight = 0;
	char word[32] = {};
	int status = SmartOverviewStatusCacheGet(path, &weight);
	if (status == 0 || SmartOverviewStatusStringTransfer(status, word, sizeof(word)) != 0)
		return Value();
	return Value(word);
}

// The cached verdict only: no lookup, no word to the drive.
Value compatOf(const char *path)
{
	char word[32] = {};
	return VEXODiskCompatibilityCacheGet(path, word, sizeof(word)) == 0 && word[0] ? Value(word) : Value();
}

Value row(const DiskInfo &d, bool forTable, int used, int power)
{
	const bool asleep = power == VEXO_EXT_POWER_STANDBY;
	const bool snap = used == VEXO_EXT_DISK_SOURCE_SNAPSHOT;
	const char *recordFrom = snap ? "snapshot" : "sysfs";
	int ssd = VEXODiskIsSSD(d.path);
	Extra x = extraOf(d, recordFrom, ssd, asleep);
	Value r = Value::object();
	r.set("location", location(d));
	const char *container = VEXODiskContainerToString(d.id.container);
	r.set("container", container ? Value(container) : Value());
	r.set("name", d.name);
	r.set("path", d.path);
	r.set("index", d.id.index);
	r.set("unit", d.id.unit);
	r.set("slot", d.id.slot);
	r.set("model", textOrNull(x.model));
	r.set("vendor", textOrNull(x.vendor));
	r.set("serial", textOrNull(x.serial));
	r.set("firmware", textOrNull(x.firmware));
	r.set("capacity_bytes", static_cast<unsigned long long>(d.sizeBytes));
	if (forTable)
		r.set("capacity", humanBytes(d.sizeBytes));
	r.set("logical_block_size_bytes", d.logicalBlockSize > 0 ? Value(d.logicalBlockSize) : Value());
	r.set("media", ssd == 1 ? Value("SSD") : ssd == 0 ? Value("HDD") : Value());
	// 0 is "not read": a sleeping or USB disk is not woken to ask.
	r.set("temperature_c", d.temperature > 0 ? Value(d.temperature) : Value());
	if (forTable)
		r.set("temperature", d.temperature > 0 ? Value(std::to_string(d.temperature) + "°C") : Value());
	r.set("secure_erasing", d.secureErasing != 0);
	r.set("power_mode", powerModeName(power));
	std::string smartCell = "asleep, not read";
	r.set("smart", asleep ? Value() : smartOf(d, smartCell));
	r.set("health", healthOf(d.path));
	r.set("compat", compatOf(d.path));
	if (forTable) {
		r.set("smart_summary", smartCell);
		return r;
	}
	Value from = Value::object();
	from.set("location", d.id.container == DISK_CONTAINER_EBOX ? "unit_driver" : "port_map");
	from.set("model", x.modelFrom);
	from.set("vendor", x.vendor.empty() ? Value() : Value(x.vendorFrom));
	from.set("serial", x.serial.empty() ? Value() : Value(x.serialFrom));
	from.set("firmware", x.firmware.empty() ? Value() : Value("drive"));
	from.set("capacity_bytes", recordFrom);
	from.set("logical_block_size_bytes", recordFrom);
	from.set("media", "sysfs");
	from.set("temperature_c", snap ? "snapshot" : d.temperature > 0 ? "drive" : "not_read");
	from.set("secure_erasing", "erase_marker");
	from.set("smart", x.smartFrom);
	from.set("health", "cache");
	from.set("compat", "cache");
	from.set("power_mode", "check_power_mode");
	r.set("sources", from);
	return r;
}

// Why a walk found nothing to list. Without the product's port map no disk
// has a place, which is what a Linux machine that is no appliance shows.
int listFailed()
{
	int code = VLIBCErrGet();
	char conf[4096];
	struct stat st {};
	if (VEXOExtSysrootPath("/etc.defaults/vexoinfo.conf", conf, sizeof(conf)) != 0 || ::stat(conf, &st) != 0)
		return fail("no port map in /etc.defaults/vexoinfo.conf: this is not a VOS appliance (or --sysroot names "
			    "none), so no disk has a place to be listed in");
	return fail("could not list the disks (error 0x%04X; --verbose tells more)", code);
}

// The power mode of every disk the port maps list, asked before anything is
// read from any of them.
std::map<std::string, int> powerModes()
{
	std::map<std::string, int> out;
	for (int type : {DISK_PORT_TYPE_INTERNAL, DISK_PORT_TYPE_EBOX, DISK_PORT_TYPE_CACHE, DISK_PORT_TYPE_USB,
			 DISK_PORT_TYPE_ESATA, DISK_PORT_TYPE_SYS}) {
		PVLIBSZLIST names = VLIBCSzListAlloc(16);
		if (names && VEXODiskPortEnum(type, &names) == 0)
			for (int i = 0; i < names->nItem; ++i) {
				std::string path = std::string("/dev/") + VLIBCSzListGet(names, i);
				out[path] = VEXOExtDiskPowerModeGet(path.c_str());
			}
		VLIBCSzListFree(names);
	}
	return out;
}

const char *sourceName(int source)
{
	return source == VEXO_EXT_DISK_SOURCE_SNAPSHOT ? "snapshot" : "walk";
}

int overview(Context &ctx)
{
	if (ctx.has("walk") && ctx.has("snapshot"))
		return fail("--walk and --snapshot exclude each other");
	int32_t mask = kAllContainers;
	DiskEnumFilter filter{&mask};
	DiskList disks;
	// Every disk's power mode first, with the question that wakes none; a
	// disk in standby is then read from nothing but sysfs and the caches.
	const std::map<std::string, int> power = powerModes();
	std::set<std::string> asleep;
	for (const auto &[path, mode] : power)
		if (mode == VEXO_EXT_POWER_STANDBY)
			asleep.insert(path);
	// The library's own walk reads temperatures and would wake a sleeping
	// disk: the overview walks quietly and asks the awake disks itself.
	int source = VEXO_EXT_DISK_SOURCE_QUIET_WALK;
	const bool chooses = !ctx.has("walk") && !ctx.has("snapshot");
	if (ctx.has("snapshot") || (chooses && VLIBCIsProcAlive("vcemd", 0) == 1))
		source = VEXO_EXT_DISK_SOURCE_SNAPSHOT; // as DiskInfoEnum takes it while the daemon lives
	int used = source;
	int n = VEXOExtDiskInfoEnumFrom(&filter, source, &disks.head, &used);
	if (n <= 0 && chooses && source == VEXO_EXT_DISK_SOURCE_SNAPSHOT) {
		// No snapshot, or one that lists nothing: a walk, as DiskInfoEnum would.
		DiskInfoEnumFree(disks.head);
		disks.head = nullptr;
		source = used = VEXO_EXT_DISK_SOURCE_QUIET_WALK;
		n = VEXOExtDiskInfoEnumFrom(&filter, source, &disks.head, &used);
	}
	if (n < 0) {
		if (source != VEXO_EXT_DISK_SOURCE_SNAPSHOT)
			return listFailed();
		if (VLIBCErrGet() == VEXO_ERR_NOENT)
			return fail("no snapshot at %s (the platform daemon writes it; so does 'vexohw snapshot write')",
				    VEXO_DISK_SNAPSHOT);
		return fail("could not read %s (error 0x%04X)", VEXO_DISK_SNAPSHOT, VLIBCErrGet());
	}
	if (used != VEXO_EXT_DISK_SOURCE_SNAPSHOT) {
		const bool virtualEdition = VLIBCIsVVOS() != 0;
		for (DiskListNode *c = disks.head; c; c = c->next) {
			if (!c->info || virtualEdition || asleep.count(c->info->path))
				continue;
			int type = VEXODiskPortCheck(c->info->path);
			if (type != DISK_PORT_TYPE_USB && type != DISK_PORT_TYPE_SD_OTHER)
				c->info->temperature = VEXODiskTemperatureGet(c->info->path);
		}
	}
	std::vector<const DiskInfo *> sorted;
	for (const DiskListNode *c = disks.head; c; c = c->next)
		if (c->info)
			sorted.push_back(c->info);
	std::stable_sort(sorted.begin(), sorted.end(), [](const DiskInfo *a, const DiskInfo *b) {
		int ga = groupRank(a->id.container), gb = groupRank(b->id.container);
		if (ga != gb)
			return ga < gb;
		if (a->id.unit != b->id.unit)
			return a->id.unit < b->id.unit;
		if (a->id.slot != b->id.slot)
			return a->id.slot < b->id.slot;
		return a->id.index < b->id.index;
	});
	Value rows = Value::list();
	unsigned long long total = 0;
	int tripped = 0;
	for (const DiskInfo *d : sorted) {
		auto p = power.find(d->path);
		Value r = row(*d, !ctx.json, used, p == power.end() ? VEXO_EXT_POWER_UNKNOWN : p->second);
		const Value *s = r.get("smart");
		if (s && s->isObject() && !s->get("at_threshold")->asList().empty())
			++tripped;
		total += d->sizeBytes;
		rows.push(std::move(r));
	}
	if (ctx.json) {
		Value doc = Value::object();
		doc.set("source", sourceName(used));
		doc.set("disk_count", static_cast<int>(sorted.size()));
		doc.set("capacity_bytes", total);
		doc.set("disks", rows);
		std::printf("%s\n", doc.json().c_str());
		return 0;
	}
	char model[64] = "";
	VLIBCINFOGetKeyValue("upnpmodelname", model, sizeof(model));
	std::string title = std::string(model[0] ? model : "this system") + ": " + std::to_string(sorted.size()) +
			    (sorted.size() == 1 ? " disk, " : " disks, ") + humanBytes(total) + " in all (" +
			    (used == VEXO_EXT_DISK_SOURCE_SNAPSHOT ? "from the snapshot " VEXO_DISK_SNAPSHOT
								  : "from a walk of /sys") +
			    ")";
	printTable(ctx, rows,
		   {{"location", "WHERE"},
		    {"container", "CONTAINER"},
		    {"name", "DISK"},
		    {"model", "MODEL"},
		    {"vendor", "VENDOR"},
		    {"serial", "SERIAL"},
		    {"firmware", "FIRMWARE"},
		    {"capacity", "CAPACITY"},
		    {"logical_block_size_bytes", "SECTOR"},
		    {"media", "MEDIA"},
		    {"power_mode", "POWER"},
		    {"temperature", "TEMP"},
		    {"smart_summary", "SMART"},
		    {"health", "HEALTH"},
		    {"compat", "COMPAT"}},
		   title.c_str());
	std::printf("\nTEMP \"-\": not read, so as not to wake the disk (asleep, USB) or not told by it.\n");
	if (!asleep.empty())
		std::printf("%zu %s in standby: asked only its power mode, nothing read from it.\n", asleep.size(),
			    asleep.size() == 1 ? "disk is" : "disks are");
	if (tripped)
		std::printf("%d %s a SMART attribute at or below its threshold.\n", tripped,
			    tripped == 1 ? "disk has" : "disks have");
	return 0;
}

// The kind of hibernation list a disk belongs on, or 0.
int hibKind(const char *path)
{
	switch (VEXODiskPortCheck(path)) {
	case DISK_PORT_TYPE_EBOX:
		return DISK_HIB_KIND_EUNIT;
	case DISK_PORT_TYPE_USB:
		return DISK_HIB_KIND_USB;
	}
	return 0;
}

void freeCells(DiskHibDevNode *c)
{
	while (c) {
		DiskHibDevNode *next = c->next;
		std::free(c);
		c = next;
	}
}

int snapshotWrite(Context &ctx)
{
	DiskEnumHibStatus status{};
	status.allHibernating = ctx.has("all-hibernating") ? 1 : 0;
	struct Cleanup {
		DiskEnumHibStatus &s;
		~Cleanup()
		{
			freeCells(s.eunitHibernating);
			freeCells(s.usbHibernating);
		}
	} cleanup{status};
	// "--hibernating a b c" and "--hibernating a --hibernating b" alike.
	std::vector<std::string> sleeping;
	if (auto it = ctx.options.find("hibernating"); it != ctx.options.end()) {
		sleeping = it->second;
		sleeping.insert(sleeping.end(), ctx.args.begin(), ctx.args.end());
	} else if (!ctx.args.empty()) {
		return fail("unexpected '%s' (disks that sleep follow --hibernating)", ctx.args[0].c_str());
	}
	for (const auto &p : sleeping) {
		std::string path = p.rfind("/dev/", 0) == 0 ? p : "/dev/" + p;
		int kind = hibKind(path.c_str());
		if (!kind)
			return fail("%s is neither an expansion unit disk nor a USB disk: only those sleep apart",
				    p.c_str());
		if (DiskEnumHibDevPush(path.c_str(), &status, kind) != 0)
			return fail("out of memory");
	}
	int rc = VLIBDiskInfoEnumToCache(&status);
	if (rc < 0)
		return listFailed(); // nothing written: the old snapshot, if any, stays
	if (rc > 0)
		return fail("found %d disks but could not write %s; the old snapshot stays", rc, VEXO_DISK_SNAPSHOT);
	char snapshot[4096];
	struct stat st {};
	long long entries = VEXOExtSysrootPath(VEXO_DISK_SNAPSHOT, snapshot, sizeof(snapshot)) == 0 && ::stat(snapshot, &st) == 0
				    ? st.st_size / VEXO_DISK_SNAPSHOT_ENTRY_SIZE
				    : -1;
	Value r = Value::object();
	r.set("snapshot", VEXO_DISK_SNAPSHOT);
	r.set("disk_count", entries);
	r.set("size_bytes", static_cast<long long>(st.st_size));
	printRecord(ctx, r);
	return 0;
}

const std::vector<std::string> kOverviewOptions = {};

VEXO_CLI_COMMAND("overview", "[--walk | --snapshot]", "every disk of the box: where, what, how big, how warm, SMART",
		 overview, kOverviewOptions);
VEXO_CLI_COMMAND("disk list", "[--walk | --snapshot]", "the same as overview", overview, kOverviewOptions);
VEXO_CLI_COMMAND("snapshot write", "[--all-hibernating] [--hibernating PATH]...",
		 "write " VEXO_DISK_SNAPSHOT " as the platform daemon does", snapshotWrite, {"hibernating"});

} // namespace
