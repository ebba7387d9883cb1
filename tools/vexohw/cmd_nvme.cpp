// vexohw nvme: what an NVMe drive says of itself through its admin
// commands (identity, temperature, self-test abilities, wear and
// warnings), its health values, any log page as bytes, and the critical
// warning the library keeps for it. Nothing here changes the drive.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>
#include <vexohw/disk_debug.h>
#include <vexohw/frame.h>
#include <vexohw/smart_info.h>
#include <vexohw/smart_nvme.h>
#include <vexohw/smart_serial.h>
#include <vexoplatform/nvme_admin.h>
#include <vexoplatform/nvme_smart.h>
#include <vexoplatform/vexoerr.h>

#include "asleep.h"
#include "cmd_nvme_common.h"

using namespace vexo::cli;
using namespace vexo::cli::nvme;

namespace {

// Calls that fail without ending the command leave their field null and
// a line here; the command then exits non-zero.
struct Misses {
	Value list = Value::list();
	void add(const char *call) { list.push(std::string(call) + " failed (error " + errText() + ")"); }
	static std::string errText()
	{
		char b[16];
		std::snprintf(b, sizeof(b), "0x%04X", VLIBCErrGet());
		return b;
	}
	bool any() const { return !list.asList().empty(); }
};

// The debug overrides a test rig set for the disk, recorded next to what
// the drive itself said; the field then shows the override, as the rest of
// the library reports it.
struct Overrides {
	Value record = Value::object();
	bool any = false;
	void apply(Value &r, const char *field, Value drive, Value forced)
	{
		Value o = Value::object();
		o.set("drive", drive);
		o.set("override", forced);
		record.set(field, o);
		r.set(field, forced);
		any = true;
	}
};

std::string cachedSerial(const std::string &path)
{
	char serial[64] = "";
	if (VEXODiskGetStrValueCacheFile(path.c_str(), "serial", serial, sizeof(serial)) != 0)
		return "";
	serial[std::strcspn(serial, "\r\n")] = '\0';
	return serial;
}

void lifeFields(const std::string &path, Value &r, Misses &miss)
{
	int vexology = VEXODiskIsVexology(path.c_str());
	r.set("vexology", vexology < 0 ? Value() : Value(vexology == 1));
	std::string serial = cachedSerial(path);
	int life = -1, from = 0;
	r.set("serial_checked", !serial.empty());
	if (VEXONVMeRemainingLifeGet(path.c_str(), vexology == 1, serial.c_str(), &life, &from) != 0) {
		if (VLIBCErrGet() == VEXO_ERR_NOT_FOUND)
			miss.list.push("VEXONVMeRemainingLifeGet: the drive's serial is not " + serial +
				       ", the one the disk is known by (error 0x2A00)");
		else
			miss.add("VEXONVMeRemainingLifeGet");
		r.set("remaining_life", Value());
		r.set("life_from", Value());
		return;
	}
	r.set("remaining_life", life);
	r.set("life_from", from == VEXO_NVME_LIFE_FROM_AVAILABLE_SPARE ? "available_spare" : "percentage_used");
}

int info(Context &ctx)
{
	const char *usage = "nvme info DISK [--wake]";
	std::string path = nvmeDisk(ctx, usage);
	if (path.empty())
		return 1;
	if (leaveAsleep(ctx, path))
		return 0;
	const char *p = path.c_str();
	char model[64] = "";
	// The first question tells whether the controller answers at all.
	if (VEXONVMeDiskModelGet(p, model, sizeof(model)) != 0)
		return fail("can't ask the controller of %s: VEXONVMeDiskModelGet failed (error 0x%04X)", p, VLIBCErrGet());
	Misses miss;
	Value r = Value::object();
	r.set("disk", path);
	r.set("model", model);
	char vendor[64] = "";
	if (VEXONVMeDiskVendorGet(p, vendor, sizeof(vendor)) != 0)
		miss.add("VEXONVMeDiskVendorGet");
	r.set("vendor", vendor[0] ? Value(vendor) : Value());
	char firmware[16] = "", serial[32] = "";
	if (VEXONVMeFirmAndSerialRead(p, firmware, sizeof(firmware), serial, sizeof(serial)) != 0) {
		miss.add("VEXONVMeFirmAndSerialRead");
		r.set("firmware", Value());
		r.set("serial", Value());
	} else {
		r.set("firmware", firmware);
		r.set("serial", serial);
	}
	// Any negative temperature is no reading (sub-zero can't be told from a failure).
	int t = VEXONVMeTemperatureGet(p);
	r.set("temperature_c", t < 0 ? Value() : Value(t));
	r.set("self_test", VEXONVMeSupportSelfTest(p) == 1);
	int minutes = VEXONVMeExtendSelfTestTimeMinGet(p);
	if (minutes < 0)
		miss.add("VEXONVMeExtendSelfTestTimeMinGet");
	r.set("extended_test_minutes", minutes < 0 ? Value() : Value(minutes));
	unsigned int used = 0, warning = 0;
	bool haveUsed = VEXONVMePercentageUsedGet(p, &used) == 0;
	if (!haveUsed)
		miss.add("VEXONVMePercentageUsedGet");
	r.set("percentage_used", haveUsed ? Value(static_cast<int>(used)) : Value());
	bool haveWarning = VEXONVMeCriticalWarningGet(p, &warning) == 0;
	if (!haveWarning)
		miss.add("VEXONVMeCriticalWarningGet");
	r.set("critical_warning", haveWarning ? Value(hexByte(warning)) : Value());
	lifeFields(path, r, miss);

	Overrides o;
	unsigned int dLife = 0, dCrit = 0, dUsed = 0;
	int dTemp = 0;
	int status = VEXONVMeStatusDebugGet(p, &dLife, &dCrit);
	if (status > 0 && (status & 1))
		o.apply(r, "remaining_life", *r.get("remaining_life"), static_cast<int>(dLife));
	if (VEXONVMeDebugCritWarningGet(p, &dCrit) == 1) {
		o.apply(r, "critical_warning", *r.get("critical_warning"), hexByte(dCrit));
		warning = dCrit;
		haveWarning = true;
	}
	if (VEXONVMeDebugPercentageUsedGet(p, &dUsed) == 1)
		o.apply(r, "percentage_used", *r.get("percentage_used"), static_cast<int>(dUsed));
	if (VEXODiskDebugTemperatureGet(p, &dTemp) == 1)
		o.apply(r, "temperature_c", *r.get("temperature_c"), dTemp);
	r.set("warnings", haveWarning ? warningBits(warning) : Value());
	Value names = Value::list();
	for (const auto &kv : o.record.asObject())
		names.push(kv.first);
	// The table names the fields overridden and tells the figures below it.
	r.set("debug_overrides", !o.any ? Value() : ctx.json ? o.record : names);
	if (miss.any())
		r.set("errors", miss.list);
	printRecord(ctx, r);
	if (!ctx.json && o.any) {
		std::printf("\n");
		for (const auto &[field, v] : o.record.asObject())
			std::printf("debug override: %s is %s (the drive says %s)\n", field.c_str(),
				    v.get("override")->text().c_str(), v.get("drive")->text().c_str());
	}
	for (const Value &line : miss.list.asList())
		fail("%s: %s", path.c_str(), line.text().c_str());
	return miss.any() ? 1 : 0;
}

int smart(Context &ctx)
{
	const char *usage = "nvme smart DISK [--vendor] [--wake]";
	std::string path = nvmeDisk(ctx, usage);
	if (path.empty())
		return 1;
	if (leaveAsleep(ctx, path))
		return 0;
	VEXONVMeSmartInfo *list = nullptr;
	if (VEXONVMeSmartInfoGet(path.c_str(), &list) != 0)
		return fail("can't read the health log of %s: VEXONVMeSmartInfoGet failed (error 0x%04X)", path.c_str(),
			    VLIBCErrGet());
	std::unique_ptr<VEXONVMeSmartInfo, void (*)(VEXONVMeSmartInfo *)> owned(list, VEXONVMeSmartInfoFree);
	Value rows = Value::list();
	for (const VEXONVMeSmartInfo *e = list; e; e = e->next) {
		Value row = Value::object();
		row.set("id", e->id);
		row.set("name", e->name);
		row.set("value", e->value);
		row.set("source", "health_log");
		rows.push(row);
	}
	// The maker's drives add the vendor log fields the attribute database
	// names; any other drive has none and the database is not read.
	if (ctx.has("vendor")) {
		SmartInfoEntry *vendor = nullptr;
		if (GetNVMeVendorSpecificSmartInfo(path.c_str(), &vendor) != 0)
			return fail("can't read the vendor attributes of %s: GetNVMeVendorSpecificSmartInfo failed (error 0x%04X)",
				    path.c_str(), VLIBCErrGet());
		std::unique_ptr<SmartInfoEntry, void (*)(SmartInfoEntry *)> ownedVendor(vendor, VEXODiskSmartInfoFree);
		for (const SmartInfoEntry *e = vendor; e; e = e->next) {
			Value row = Value::object();
			row.set("id", e->id ? std::atoi(e->id) : 0);
			row.set("name", e->name);
			row.set("value", e->value);
			row.set("source", "vendor_log");
			rows.push(row);
		}
	}
	std::string title = "health values of " + path;
	printTable(ctx, rows, {{"id", "ID"}, {"name", "NAME"}, {"value", "VALUE"}, {"source", "FROM"}}, title.c_str());
	return 0;
}

// The ids the health values and vendor attributes go by, for names given.
int attrId(Context &ctx)
{
	if (ctx.args.empty())
		return fail("usage: nvme attr-id NAME...");
	Value rows = Value::list();
	int unknown = 0;
	for (const std::string &name : ctx.args) {
		int id = VEXONVMeSmartStrToID(name.c_str());
		Value row = Value::object();
		row.set("name", name);
		row.set("id", id > 0 ? Value(id) : Value());
		rows.push(row);
		unknown += id <= 0;
	}
	printTable(ctx, rows, {{"name", "NAME"}, {"id", "ID"}});
	if (unknown)
		return fail("%d name%s unknown (names are exact and case-sensitive)", unknown, unknown == 1 ? " is" : "s are");
	return 0;
}

// ---- the cached critical warning ------------------------------------------------

// The bitmap the library keeps for the disk ("critical_warning"); with
// --refresh the drive is read into it first and the change is told.
int warning(Context &ctx)
{
	const char *usage = "nvme warning DISK [--refresh]";
	std::string path = nvmeDisk(ctx, usage);
	if (path.empty())
		return 1;
	int before = -1;
	bool had = SmartNVMeCritialWarnCacheGet(path.c_str(), &before) == 0;
	Value r = Value::object();
	r.set("disk", path);
	if (ctx.has("refresh")) {
		if (leaveAsleep(ctx, path))
			return 0;
		if (SmartNVMeCritialWarnCacheUpdateIfSupport(path.substr(5).c_str()) != 0)
			return fail("can't refresh the critical warning of %s: SmartNVMeCritialWarnCacheUpdateIfSupport failed "
				    "(error 0x%04X)",
				    path.c_str(), VLIBCErrGet());
		int after = -1;
		if (SmartNVMeCritialWarnCacheGet(path.c_str(), &after) != 0)
			return fail("can't read back the critical warning of %s: SmartNVMeCritialWarnCacheGet failed (error "
				    "0x%04X)",
				    path.c_str(), VLIBCErrGet());
		r.set("previous", had ? Value(hexByte(static_cast<unsigned>(before))) : Value());
		r.set("critical_warning", hexByte(static_cast<unsigned>(after)));
		r.set("warnings", warningBits(static_cast<unsigned>(after)));
		r.set("changed", !had || before != after);
		printRecord(ctx, r);
		if (!ctx.json)
			std::printf("\n%s\n", !had ? "the cache held no value: now it does"
					      : before != after ? "the cached value changed"
								: "the cached value was already so");
		return 0;
	}
	if (!had)
		return fail("no critical warning cached for %s (error 0x%04X; --refresh reads it from the drive)",
			    path.c_str(), VLIBCErrGet());
	r.set("critical_warning", hexByte(static_cast<unsigned>(before)));
	r.set("warnings", warningBits(static_cast<unsigned>(before)));
	printRecord(ctx, r);
	return 0;
}

VEXO_CLI_COMMAND("nvme info", "DISK [--wake]",
		 "an NVMe drive's identity, temperature, self-test abilities, wear, warnings and remaining life", info,
		 {});
VEXO_CLI_COMMAND("nvme smart", "DISK [--vendor] [--wake]",
		 "an NVMe drive's health values with their ids; --vendor adds the maker's vendor log fields", smart, {});
VEXO_CLI_COMMAND("nvme attr-id", "NAME...", "the id a health value or vendor attribute name goes by", attrId, {});
VEXO_CLI_COMMAND("nvme warning", "DISK [--refresh]",
		 "the critical warning kept for an NVMe disk; --refresh reads the drive into it", warning, {});

} // namespace
