// SMART attribute lists: the live list of a disk (an NVMe disk's from its
// health log and vendor pages) and the cached copy of an ATA disk's.
#include <cstdio>
#include <memory>
#include <string>
#include <vexohw/ext.h>
#include <vexohw/frame.h>
#include <vexohw/smart_info.h>
#include <vexoplatform/vexocore.h>

#include "asleep.h"
#include "cli.h"

using namespace vexo::cli;

namespace {

const char *statusText(uint32_t status)
{
	switch (status) {
	case SMART_ATTR_STATUS_GOOD: return "good";
	case SMART_ATTR_STATUS_FAILED_PAST: return "failed in the past";
	case SMART_ATTR_STATUS_FAILING_NOW: return "failing now";
	default: return "unknown";
	}
}

Value attributes(const SmartInfoEntry *list)
{
	Value rows = Value::list();
	for (const SmartInfoEntry *e = list; e; e = e->next) {
		Value r = Value::object();
		r.set("id", e->id);
		r.set("name", e->name);
		r.set("value", e->value);
		r.set("worst", e->worst);
		r.set("threshold", e->threshold);
		r.set("raw", e->raw);
		r.set("status", static_cast<int>(e->status));
		r.set("status_text", statusText(e->status));
		rows.push(r);
	}
	return rows;
}

const std::vector<Column> kColumns = {{"id", "ID#"},         {"name", "ATTRIBUTE_NAME"}, {"value", "VALUE"},
				      {"worst", "WORST"},    {"threshold", "THRESH"},    {"raw", "RAW_VALUE"},
				      {"status_text", "STATUS"}};

struct ListFree {
	void operator()(SmartInfoEntry *l) const { VEXODiskSmartInfoFree(l); }
};
using UniqueList = std::unique_ptr<SmartInfoEntry, ListFree>;

// "sda" or "/dev/sda" -> "/dev/sda"
std::string devicePath(const std::string &disk) { return disk.rfind("/dev/", 0) == 0 ? disk : "/dev/" + disk; }

int smartAttrs(Context &ctx)
{
	if (ctx.args.size() != 1)
		return fail("usage: smart attrs DISK");
	const std::string path = devicePath(ctx.args[0]);
	if (leaveAsleep(ctx, path))
		return 0;
	SmartInfoEntry *list = nullptr;
	if (VEXODiskAtaSmartInfoParse(path.c_str(), &list) != 0) {
		int code = VLIBCErrGet();
		if (code == VEXO_ERR_WRONG_IFACE)
			return fail("%s is a SCSI disk: it has no ATA attribute table", path.c_str());
		return fail("cannot read the SMART attributes of %s (error 0x%04X)", path.c_str(), code);
	}
	UniqueList owned(list);
	printTable(ctx, attributes(list), kColumns, path.c_str());
	return 0;
}

int smartCache(Context &ctx)
{
	if (ctx.args.size() != 1)
		return fail("usage: smart cache DISK [--refresh]");
	const std::string path = devicePath(ctx.args[0]);
	const std::string name = path.substr(5);
	if (ctx.has("refresh") && leaveAsleep(ctx, path))
		return 0;
	if (ctx.has("refresh") && VEXODiskAtaSmartInfoUpdate(path.c_str()) != 0)
		return fail("cannot refresh the SMART attribute cache of %s (error 0x%04X)", path.c_str(), VLIBCErrGet());
	SmartInfoEntry *list = nullptr;
	if (SmartInfoCacheGet(name.c_str(), &list) != 0)
		return fail("no cached SMART attribute list for %s (error 0x%04X)", path.c_str(), VLIBCErrGet());
	UniqueList owned(list);

	long long age = 0, maxAge = 0;
	const int fresh = VEXOExtSmartInfoCacheAge(path.c_str(), &age, &maxAge);
	const bool stamped = fresh >= 0;
	Value r = Value::object();
	r.set("disk", path);
	r.set("age_s", stamped ? Value(age) : Value());
	r.set("max_age_s", stamped ? Value(maxAge) : Value());
	r.set("fresh", fresh == 1);
	r.set("attributes", attributes(list));
	if (ctx.json) {
		std::printf("%s\n", r.json().c_str());
		return 0;
	}
	std::string title = path + ": cached list, ";
	if (stamped)
		title += std::to_string(age) + " s old (" + (fresh == 1 ? "fresh" : "stale, the next read runs smartctl") + ")";
	else
		title += "no time stamp (stale, the next read runs smartctl)";
	printTable(ctx, *r.get("attributes"), kColumns, title.c_str());
	return 0;
}

VEXO_CLI_COMMAND("smart attrs", "DISK [--wake]", "SMART attribute table of an ATA disk (cached for an hour), or an NVMe disk's health values and vendor attributes", smartAttrs, {});
VEXO_CLI_COMMAND("smart cache", "DISK [--refresh [--wake]]", "the cached SMART attribute list and its age; --refresh reads the drive",
		 smartCache, {});

} // namespace
