// vexohw overview (also "disk list"): one row per disk of the box, and
// vexohw snapshot write, the platform daemon's snapshot by hand.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <sys/stat.h>
#include <vector>

#include <vexohw/disk.h>
#include <vexohw/disk_enum.h>
#include <vexohw/disk_port.h>
#include <vexohw/disk_probe.h>
#include <vexohw/smart_info.h>
#include <vexohw/smart_serial.h>
#include <vexoplatform/ebox_info.h>
#include <vexoplatform/vexocore.h>

#include <set>
#include <vexohw/smart_temperature.h>

#include "cli.h"
#include "disk/disk_info_walk.h"
#include "disk/disk_power.h"
#include "frame/sysroot.h"

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
	char b[64];
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
		if (DiskIdToString(&d.id, b, sizeof(b)) > 0)
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
	char type[16] = "";
	if (VEXODiskDeviceTypeGet(d.path, type, sizeof(type)) != 0) {
		cell = "-";
		return Value();
	}
	if (std::strcmp(type, "scsi") == 0) {
		cell = "no ATA list";
		return Value();
	}
	if (std::strcmp(type, "nvme") == 0) {
		cell = "-";
		return Value();
	}
	SmartInfoEntry *list = nullptr;
	if (VEXODiskAtaSmartInfoParse(d.path, &list) != 0) {
		cell = "unreadable";
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

template <typename Fn>
Value text(Fn get, const char *path)
{
	char b[256] = "";
	if (get(path, b, static_cast<int>(sizeof(b))) != 0 || !b[0])
		return Value();
	return Value(b);
}

// One disk. A table adds texts for people; JSON keeps only numbers with
// their units in the field names.
Value row(const DiskInfo &d, bool forTable, vexo::disk::PowerMode power)
{
	// A disk in standby is shown from what is known without it: nothing
	// is read from its media.
	const bool asleep = power == vexo::disk::PowerMode::Standby;
	Value r = Value::object();
	r.set("location", location(d));
	const char *container = VEXODiskContainerToString(d.id.container);
	r.set("container", container ? Value(container) : Value());
	r.set("name", d.name);
	r.set("path", d.path);
	r.set("index", d.id.index);
	r.set("unit", d.id.unit);
	r.set("slot", d.id.slot);
	r.set("model", d.model[0] ? Value(d.model) : Value());
	r.set("power_mode", vexo::disk::powerModeName(power));
	r.set("vendor", text(VEXOLnxDiskGetVendorCache, d.path));
	r.set("serial", asleep ? Value() : text(VEXODiskGetSerialForUi, d.path));
	r.set("firmware", asleep ? Value() : text(SmartFirmwareGet, d.path));
	r.set("capacity_bytes", static_cast<unsigned long long>(d.sizeBytes));
	if (forTable)
		r.set("capacity", humanBytes(d.sizeBytes));
	r.set("logical_block_size_bytes", d.logicalBlockSize > 0 ? Value(d.logicalBlockSize) : Value());
	int ssd = VEXODiskIsSSD(d.path);
	r.set("media", ssd == 1 ? Value("SSD") : ssd == 0 ? Value("HDD") : Value());
	// 0 is "not read": a sleeping or USB disk is not woken to ask.
	r.set("temperature_c", d.temperature > 0 ? Value(d.temperature) : Value());
	if (forTable)
		r.set("temperature", d.temperature > 0 ? Value(std::to_string(d.temperature) + "°C") : Value());
	r.set("secure_erasing", d.secureErasing != 0);
	std::string smartCell = "asleep, not read";
	r.set("smart", asleep ? Value() : smartOf(d, smartCell));
	if (forTable)
		r.set("smart_summary", smartCell);
	return r;
}

// Why a walk found nothing to list. Without the product's port map no disk
// has a place, which is what a Linux machine that is no appliance shows.
int listFailed()
{
	int code = VLIBCErrGet();
	struct stat st {};
	if (vexo::sysroot::stat("/etc.defaults/vexoinfo.conf", &st) != 0)
		return fail("no port map in /etc.defaults/vexoinfo.conf: this is not a VOS appliance (or --sysroot names "
			    "none), so no disk has a place to be listed in");
	return fail("could not list the disks (error 0x%04X; --verbose tells more)", code);
}

const char *sourceName(vexo::disk::Source s)
{
	return s == vexo::disk::Source::Snapshot ? "snapshot" : "walk";
}

// The walk of /sys as the library does it, but with the temperature asked
// only of disks that are awake: the library's walk asks every disk it may,
// and that would spin a sleeping one up.
int quietWalk(const DiskEnumFilter *filter, DiskListNode **list, const std::set<std::string> &asleep)
{
	static constexpr struct {
		int32_t bit;
		int type;
	} kTypes[] = {
		{DISK_CONTAINER_INTERNAL, DISK_PORT_TYPE_INTERNAL}, {DISK_CONTAINER_EBOX, DISK_PORT_TYPE_EBOX},
		{DISK_CONTAINER_CACHE, DISK_PORT_TYPE_CACHE},       {DISK_CONTAINER_USB, DISK_PORT_TYPE_USB},
		{DISK_CONTAINER_ESATA, DISK_PORT_TYPE_ESATA},       {DISK_CONTAINER_SYS, DISK_PORT_TYPE_SYS},
	};
	DiskEnumHibStatus noTemperature{};
	noTemperature.allHibernating = 1;
	const bool virtualEdition = VLIBCIsVVOS() != 0;
	DiskListNode *head = nullptr, **tail = &head;
	int total = 0;
	bool failed = false;
	for (const auto &t : kTypes) {
		if (!(*filter->containerMask & t.bit))
			continue;
		DiskListNode *part = nullptr;
		int n = vexo::disk::enumPortType(&part, t.type, &noTemperature);
		if (n < 0) {
			failed = true;
			continue;
		}
		total += n;
		const bool asks = !virtualEdition && t.type != DISK_PORT_TYPE_USB && t.type != DISK_PORT_TYPE_SD_OTHER;
		for (DiskListNode *c = part; c; c = c->next)
			if (asks && c->info && !asleep.count(c->info->path))
				c->info->temperature = VEXODiskTemperatureGet(c->info->path);
		*tail = part;
		while (*tail)
			tail = &(*tail)->next;
	}
	if (failed) {
		DiskInfoEnumFree(head);
		return -1;
	}
	*list = head;
	return total;
}

// The power mode of every disk the port maps list, asked before anything is
// read from any of them.
std::map<std::string, vexo::disk::PowerMode> powerModes()
{
	std::map<std::string, vexo::disk::PowerMode> out;
	for (int type : {DISK_PORT_TYPE_INTERNAL, DISK_PORT_TYPE_EBOX, DISK_PORT_TYPE_CACHE, DISK_PORT_TYPE_USB,
			 DISK_PORT_TYPE_ESATA, DISK_PORT_TYPE_SYS}) {
		PVLIBSZLIST names = VLIBCSzListAlloc(16);
		if (names && VEXODiskPortEnum(type, &names) == 0)
			for (int i = 0; i < names->nItem; ++i) {
				std::string path = std::string("/dev/") + VLIBCSzListGet(names, i);
				out[path] = vexo::disk::powerMode(path.c_str());
			}
		VLIBCSzListFree(names);
	}
	return out;
}

int overview(Context &ctx)
{
	if (ctx.has("walk") && ctx.has("snapshot"))
		return fail("--walk and --snapshot exclude each other");
	int32_t mask = kAllContainers;
	DiskEnumFilter filter{&mask};
	DiskList disks;
	vexo::disk::Source used = vexo::disk::Source::Walk;
	const std::map<std::string, vexo::disk::PowerMode> power = powerModes();
	std::set<std::string> asleep;
	for (const auto &[path, mode] : power)
		if (mode == vexo::disk::PowerMode::Standby)
			asleep.insert(path);
	int n = 0;
	if (ctx.has("walk")) {
		n = quietWalk(&filter, &disks.head, asleep);
		if (n < 0)
			return listFailed();
	} else if (ctx.has("snapshot")) {
		used = vexo::disk::Source::Snapshot;
		switch (vexo::disk::readSnapshot(&filter, &disks.head, &n)) {
		case vexo::disk::SnapshotRead::Listed:
			break;
		case vexo::disk::SnapshotRead::Missing:
			return fail("no snapshot at %s (the platform daemon writes it; so does 'vexohw snapshot write')",
				    VEXO_DISK_SNAPSHOT);
		case vexo::disk::SnapshotRead::Empty:
		case vexo::disk::SnapshotRead::NoMatch:
			n = 0;
			break;
		case vexo::disk::SnapshotRead::Failed:
			return fail("could not read %s (error 0x%04X)", VEXO_DISK_SNAPSHOT, VLIBCErrGet());
		}
	} else {
		// As DiskInfoEnum chooses: the snapshot while vcemd lives, else a walk.
		if (VLIBCIsProcAlive("vcemd", 0) == 1) {
			used = vexo::disk::Source::Snapshot;
			switch (vexo::disk::readSnapshot(&filter, &disks.head, &n)) {
			case vexo::disk::SnapshotRead::Listed:
				break;
			case vexo::disk::SnapshotRead::Failed:
				return fail("could not read %s (error 0x%04X)", VEXO_DISK_SNAPSHOT, VLIBCErrGet());
			default:
				used = vexo::disk::Source::Walk;
				break;
			}
		}
		if (used == vexo::disk::Source::Walk) {
			n = quietWalk(&filter, &disks.head, asleep);
			if (n < 0)
				return listFailed();
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
		Value r = row(*d, !ctx.json, p == power.end() ? vexo::disk::PowerMode::Unknown : p->second);
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
			    (used == vexo::disk::Source::Snapshot ? "from the snapshot " VEXO_DISK_SNAPSHOT
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
		    {"smart_summary", "SMART"}},
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
	struct stat st {};
	long long entries = vexo::sysroot::stat(VEXO_DISK_SNAPSHOT, &st) == 0 ? st.st_size / VEXO_DISK_SNAPSHOT_ENTRY_SIZE : -1;
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
