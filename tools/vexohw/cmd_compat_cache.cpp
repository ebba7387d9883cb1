// vexohw compat refresh [DISK]: the cached verdicts and firmware values,
// refreshed; vexohw notify list: the notifications waiting to be sent; and
// the firmware part of `vexohw compat`.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <string>
#include <vector>

#include <vexohw/compat.h>
#include <vexohw/compat_cache.h>
#include <vexohw/disk.h>
#include <vexohw/disk_enum.h>
#include <vexohw/ext.h>
#include <vexohw/frame.h>
#include <vexohw/fw_status.h>
#include <vexoplatform/sysnotify.h>
#include <vexoplatform/vexocore.h>

#include "asleep.h"
#include "cli.h"
#include "disk_args.h"
#include "spool.h"
#include "compat_firmware.h"

using namespace vexo::cli;

namespace {

Value cached(const std::string &path, const char *key)
{
	char b[256] = {};
	if (VEXODiskGetStrValueCacheFile(path.c_str(), key, b, sizeof b) != 0 || !b[0])
		return Value();
	return Value(b);
}

std::string advice(int status, const Value &firmware, const Value &update, const Value &promote)
{
	switch (status) {
	case VEXO_FW_STATUS_NEW_FIRM_AVAILABLE:
		return "a newer firmware (" + firmware.text() + ") is available: upgrade the drive when convenient";
	case VEXO_FW_STATUS_UPDATE_FIRM:
		return "upgrade the drive's firmware to " + firmware.text() +
		       ": its current firmware is not usable with this system";
	case VEXO_FW_STATUS_UPDATE_VOS:
		if (!update.isNull())
			return "update the system to " + update.text() + " first";
		if (!promote.isNull())
			return "take the system promotion to " + promote.text() + " first";
		return "update the system first";
	case VEXO_FW_STATUS_UPDATE_DB:
		return "update the compatibility database: it does not know this firmware";
	}
	return "nothing to do";
}

Value refreshRow(const std::string &path, bool asleep, bool &ok)
{
	Value r = Value::object();
	r.set("disk", path);
	if (asleep) {
		r.set("refreshed", false);
		r.set("note", "asleep, not refreshed");
	} else {
		const bool done = VEXODiskCompatibilityCacheUpdateAndChecker(path.c_str()) == 0 &&
				  VEXOSBDriveFirmInfoAndUpdateInfoCacheUpdate(path.c_str()) == 0;
		ok = ok && done;
		r.set("refreshed", done);
		r.set("note", done ? "" : "refresh failed");
	}
	r.set("compatibility", cached(path, "compatibility"));
	r.set("force_compatibility", cached(path, "force_compatibility"));
	r.set("firmware_status", cached(path, "firm_status_from_db"));
	// Asking for the alert may regenerate the actions, which reads the drive.
	r.set("alert", asleep ? Value() : Value(VEXODiskCompatibilityNeedAlert(path.c_str()) == 1));
	return r;
}

// A disk in standby is left asleep: its verdict needs the drive's firmware
// revision. --wake refreshes it anyway.
int compatRefresh(Context &ctx)
{
	std::vector<std::string> paths;
	if (!ctx.args.empty()) {
		paths.push_back(devicePath(ctx.args[0]));
	} else {
		// The library's own walk reads temperatures and would wake a sleeping
		// disk: the snapshot while the daemon lives, else a quiet walk.
		int32_t all = 0xFF;
		DiskEnumFilter filter{&all};
		DiskListNode *list = nullptr;
		int n = VLIBCIsProcAlive("vcemd", 0) == 1
				? VEXOExtDiskInfoEnumFrom(&filter, VEXO_EXT_DISK_SOURCE_SNAPSHOT, &list, nullptr)
				: -1;
		if (n <= 0) {
			DiskInfoEnumFree(list);
			list = nullptr;
			n = VEXOExtDiskInfoEnumFrom(&filter, VEXO_EXT_DISK_SOURCE_QUIET_WALK, &list, nullptr);
		}
		if (n < 0)
			return fail("cannot list the disks");
		for (DiskListNode *n = list; n; n = n->next)
			paths.push_back(n->info->path);
		DiskInfoEnumFree(list);
	}
	Value rows = Value::list();
	bool ok = true;
	for (const std::string &p : paths) {
		const bool asleep = !ctx.has("wake") && VEXOExtDiskPowerModeGet(p.c_str()) == VEXO_EXT_POWER_STANDBY;
		rows.push(refreshRow(p, asleep, ok));
	}
	printTable(ctx, rows,
		   {{"disk", "DISK"},
		    {"compatibility", "COMPAT"},
		    {"force_compatibility", "FORCED"},
		    {"firmware_status", "FIRMWARE"},
		    {"alert", "ALERT"},
		    {"note", "NOTE"}});
	return ok ? 0 : 1;
}

// One spooled notification, "key=value" lines with \\, \n and \r escaped.
Value readNotification(const std::string &host, const std::string &name)
{
	Value r = Value::object();
	r.set("file", name);
	Value fields = Value::object();
	std::ifstream in(host);
	std::string line;
	while (std::getline(in, line)) {
		size_t eq = line.find('=');
		if (eq == std::string::npos)
			continue;
		std::string v;
		for (size_t i = eq + 1; i < line.size(); ++i) {
			if (line[i] == '\\' && i + 1 < line.size()) {
				char c = line[++i];
				v += c == 'n' ? '\n' : c == 'r' ? '\r' : c;
			} else {
				v += line[i];
			}
		}
		const std::string k = line.substr(0, eq);
		if (k == "tag" || k == "time")
			r.set(k, k == "time" ? Value(std::atoll(v.c_str())) : Value(v));
		else
			fields.set(k, v);
	}
	r.set("fields", fields);
	const Value *id = fields.get("%DISK_ID%"), *model = fields.get("%MODEL%"), *unit = fields.get("%EUNIT_ID%");
	r.set("disk_id", id ? *id : Value());
	r.set("model", model ? *model : Value());
	r.set("where", unit ? *unit : Value());
	return r;
}

int notifyList(Context &ctx)
{
	std::string dir;
	std::vector<std::string> names;
	if (!spoolNames(dir, names))
		return fail("cannot place the spool");
	Value rows = Value::list();
	for (const std::string &n : names)
		rows.push(readNotification(dir + "/" + n, n));
	printTable(ctx, rows,
		   {{"time", "TIME"}, {"tag", "TAG"}, {"disk_id", "DISK"}, {"model", "MODEL"}, {"where", "WHERE"}},
		   "notifications waiting in " VEXO_NOTIFY_SPOOL_DIR);
	return 0;
}

VEXO_CLI_COMMAND("compat refresh", "[DISK] [--wake]",
		 "refresh the cached verdicts and firmware values (all disks, or one); raise notifications",
		 compatRefresh, {});
VEXO_CLI_COMMAND("notify list", "", "the notifications waiting in the spool", notifyList, {});

} // namespace

namespace vexo::cli {

void addFirmwareStatus(Value &record, const std::string &path, bool asleep)
{
	int status = VEXOSBFirmStatusStringTransfer(cached(path, "firm_status_from_db").text().c_str());
	Value firmware = cached(path, "sug_firm_upd_ver"), update = cached(path, "sug_update_vos"),
	      promote = cached(path, "sug_promote_vos");
	const char *from = "cache";
	if (!asleep) {
		DiskFirmInfo info{};
		status = VEXOSBDiskFirmStatusAndUpdateInfoGet(path.c_str(), 0, nullptr, nullptr, &info);
		firmware = info.firmware[0] ? Value(info.firmware) : Value();
		int hasU = 0, hasP = 0;
		char u[32] = {}, p[32] = {};
		if (VEXOFirmStatusVOSUpgradeCacheGet(&hasU, u, sizeof u, &hasP, p, sizeof p) != 0)
			hasU = hasP = 0;
		update = info.updateVosSuggested && hasU ? Value(u) : Value();
		promote = info.promoteVosSuggested && hasP ? Value(p) : Value();
		from = "database";
	}
	char text[32] = {};
	VEXOSBFirmStatusTransfer(status, text, sizeof text);
	record.set("firmware_status", text);
	record.set("firmware_status_from", from);
	record.set("suggested_firmware", firmware);
	record.set("suggested_system", !update.isNull() ? update : promote);
	record.set("advice", advice(status, firmware, update, promote));
}

} // namespace vexo::cli
