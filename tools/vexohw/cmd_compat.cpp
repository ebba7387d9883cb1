// vexohw compat DISK | --all: the live compatibility verdict of a disk on
// this model and system version, and what the rules let the user interface
// and the notifications do with it.
#include <climits>
#include <cstdio>
#include <string>
#include <vector>
#include <vexohw/compat.h>
#include <vexohw/disk.h>
#include <vexohw/disk_enum.h>
#include <vexohw/frame.h>
#include <vexoplatform/vexocore.h>

#include "asleep.h"
#include "compat_firmware.h"
#include "cli.h"
#include "disk_args.h"

using namespace vexo::cli;

namespace {

const char *verdictMeaning(int status)
{
	switch (status) {
	case VEXO_DISK_COMPATIBILITY_SUPPORT: return "verified for this model";
	case VEXO_DISK_COMPATIBILITY_NOT_IN_SUPPORT: return "not verified for this model: it may work, nobody checked";
	case VEXO_DISK_COMPATIBILITY_NOT_SUPPORT: return "incompatible with this model: replace it";
	case VEXO_DISK_COMPATIBILITY_DISABLED: return "this model does not check drive compatibility";
	case VEXO_DISK_COMPATIBILITY_FORBIDDEN: return "forbidden on this model";
	case VEXO_DISK_COMPATIBILITY_FOR_EUNIT: return "meant for an expansion unit";
	case VEXO_DISK_COMPATIBILITY_FW_UPGRADE_REQUIRED:
		return "incompatible with its current firmware: upgrade the drive's firmware";
	default: return "could not be judged";
	}
}

std::string statusWord(int status)
{
	char w[32] = {};
	VEXODiskCompatibilityStatusTransfer(status, w, sizeof(w));
	return w;
}

// The rules' actions as sentences, only where they differ from an
// ordinary disk.
Value actionWords(const DiskCompatibilityAction &a)
{
	Value out = Value::list();
	if (!a.selectable)
		out.push(a.can_select_after_fwupgrade ? "can be used for storage after a firmware upgrade"
						      : "can't be used for storage");
	if (!a.notification)
		out.push("no notifications about its compatibility");
	if (!a.alert)
		out.push("no compatibility alert");
	struct {
		int flag;
		const char *what;
	} hidden[] = {{a.hide_is4Kn, "4Kn format"},
		      {a.hide_serial, "serial number"},
		      {a.hide_temperature, "temperature"},
		      {a.hide_unc, "uncorrectable errors"},
		      {a.hide_remain_life, "remaining life"},
		      {a.hide_sb_days_left, "days of life left"},
		      {a.hide_alloc_status, "allocation status"}};
	for (auto h : hidden)
		if (h.flag)
			out.push(std::string("hides its ") + h.what);
	if (!a.show_lifetime_chart)
		out.push("no lifetime chart");
	if (!a.send_health_report)
		out.push("no health reports");
	if (!a.notify_unc)
		out.push("no notice of uncorrectable errors");
	if (!a.notify_lifetime)
		out.push("no notice of its remaining life");
	if (!a.notify_health_status)
		out.push("no notice of its health status");
	return out;
}

Value compatOf(Context &ctx, const std::string &path)
{
	Value r = Value::object();
	r.set("disk", path);
	// The live verdict reads the drive's firmware: a sleeping disk gets the
	// cached word instead.
	bool asleep = !ctx.has("wake") && VEXOExtDiskPowerModeGet(path.c_str()) == VEXO_EXT_POWER_STANDBY;
	int status = 0;
	if (asleep) {
		char cached[32] = {};
		status = VEXODiskGetStrValueCacheFile(path.c_str(), "compatibility", cached, sizeof(cached)) == 0
				 ? VEXODiskCompatibilityStringTransfer(cached)
				 : 0;
		r.set("power_mode", "standby");
		r.set("source", "cache");
	} else {
		status = VEXODiskCompatibilityGet(path.c_str(), 0);
		r.set("source", "database");
	}
	r.set("compatibility", statusWord(status));
	r.set("status", status);
	r.set("meaning", asleep && status == 0 ? "no verdict cached yet" : verdictMeaning(status));
	char db[1024] = {};
	r.set("database", VEXODiskCompatibilityDBPathGet(path.c_str(), db, sizeof(db)) == 0 ? Value(db) : Value());
	// A missing action record is regenerated from the drive, which a
	// sleeping disk is not woken for: it shows only what is cached.
	char record[4096];
	const bool ask = !asleep || VEXODiskGetStrValueCacheFile(path.c_str(), "compatibility_action", record,
								   sizeof(record)) == 0;
	DiskCompatibilityAction a{};
	const bool cachedActions = ask && VEXODiskCompatibilityActionGet(path.c_str(), &a) == 0;
	Value actions = Value::object();
	actions.set("cached", cachedActions);
	if (ask) {
		actions.set("ui_compatibility", a.ui_compatibility);
		actions.set("selectable", static_cast<bool>(a.selectable));
		actions.set("notification", static_cast<bool>(a.notification));
		actions.set("alert", static_cast<bool>(a.alert));
		actions.set("can_select_after_fwupgrade", static_cast<bool>(a.can_select_after_fwupgrade));
		actions.set("words", actionWords(a));
	} else {
		actions.set("ui_compatibility", Value());
		actions.set("words", Value::list());
	}
	r.set("actions", actions);
	addFirmwareStatus(r, path, asleep);
	return r;
}

// The verdict the disk would have on another system version: what an
// update of the system would make of it. It reads the drive's firmware, so
// a sleeping disk is not judged unless woken.
Value compatAt(Context &ctx, const std::string &path, unsigned base, unsigned nano)
{
	Value r = Value::object();
	r.set("disk", path);
	r.set("version", std::to_string(base) + "." + std::to_string(nano));
	if (!ctx.has("wake") && VEXOExtDiskPowerModeGet(path.c_str()) == VEXO_EXT_POWER_STANDBY) {
		r.set("power_mode", "standby");
		r.set("compatibility", Value());
		r.set("meaning", "asleep: not judged (--wake judges it anyway)");
		return r;
	}
	int status = VEXODiskCompatibilityByVerGet(path.c_str(), base, nano, 0);
	r.set("compatibility", statusWord(status));
	r.set("status", status);
	r.set("meaning", verdictMeaning(status));
	return r;
}

int compat(Context &ctx)
{
	unsigned base = 0, nano = 0;
	if (ctx.has("at") && !parseVersion(ctx.opt("at"), base, nano))
		return fail("compat: --at needs a system version BUILD[.UPDATE], not '%s'", ctx.opt("at").c_str());
	std::vector<std::string> paths;
	if (ctx.has("all")) {
		int32_t mask = DISK_CONTAINER_INTERNAL | DISK_CONTAINER_EBOX | DISK_CONTAINER_CACHE;
		DiskEnumFilter filter{&mask};
		DiskListNode *head = nullptr;
		// The library's own walk reads temperatures and would wake a
		// sleeping disk: list them quietly.
		if (VEXOExtDiskInfoEnumFrom(&filter, VEXO_EXT_DISK_SOURCE_QUIET_WALK, &head, nullptr) < 0)
			return fail("can't enumerate the disks (error 0x%04X)", VLIBCErrGet());
		for (DiskListNode *n = head; n; n = n->next)
			if (n->info)
				paths.push_back(n->info->path);
		DiskInfoEnumFree(head);
	} else if (ctx.args.size() == 1) {
		paths.push_back(devicePath(ctx.args[0]));
	} else {
		return fail("usage: compat DISK | --all [--at BUILD[.UPDATE]] [--wake]");
	}
	Value rows = Value::list();
	for (const std::string &p : paths)
		rows.push(base ? compatAt(ctx, p, base, nano) : compatOf(ctx, p));
	if (ctx.json) {
		printRecord(ctx, ctx.has("all") ? rows : rows.asList()[0]);
		return 0;
	}
	if (base) {
		printTable(ctx, rows, {{"disk", "DISK"}, {"version", "VERSION"}, {"compatibility", "VERDICT"}, {"meaning", "MEANING"}});
		return 0;
	}
	for (const Value &r : rows.asList()) {
		const Value *a = r.get("actions");
		std::printf("%s: %s - %s%s\n", r.get("disk")->text().c_str(), r.get("compatibility")->text().c_str(),
			    r.get("meaning")->text().c_str(),
			    r.get("power_mode") ? " (asleep: the cached verdict, nothing read)" : "");
		std::printf("  database: %s\n", r.get("database")->text().c_str());
		std::printf("  shown as: %s%s\n", a->get("ui_compatibility")->text().c_str(),
			    a->get("cached")->json() == "true" ? ""
			    : r.get("power_mode")                 ? " (asleep: no actions cached)"
								  : " (defaults: no actions cached yet)");
		for (const Value &w : a->get("words")->asList())
			std::printf("  - %s\n", w.text().c_str());
		std::printf("  firmware: %s; %s\n", r.get("firmware_status")->text().c_str(),
			    r.get("advice")->text().c_str());
	}
	return 0;
}

} // namespace

VEXO_CLI_COMMAND("compat", "DISK | --all [--at BUILD[.UPDATE]] [--wake]",
		 "the drive's compatibility verdict and what it allows; --at: the verdict on another system version", compat,
		 {"at"});
