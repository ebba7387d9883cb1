// vexohw life: an SSD's remaining life and the answers given about it, the
// life warning mail rule, and recording the month's health history.
#include <cstdio>
#include <dirent.h>
#include <string>
#include <sys/stat.h>
#include <vector>
#include <vexohw/disk_enum.h>
#include <vexohw/disk_status.h>
#include <vexohw/ext.h>
#include <vexohw/remain_life.h>
#include <vexoplatform/sysnotify.h>
#include <vexoplatform/vexocore.h>

#include "asleep.h"
#include "cli.h"
#include "spool.h"

using namespace vexo::cli;

namespace {

std::string devicePath(const std::string &arg) { return arg.rfind("/dev/", 0) == 0 ? arg : "/dev/" + arg; }

// The disks named: one DISK, or every disk with --all (listed without a
// word to any drive). False (after the message) on a bad argument.
bool diskPaths(Context &ctx, const char *usage, std::vector<std::string> &paths)
{
	if (ctx.has("all") && ctx.args.empty()) {
		DiskListNode *list = nullptr;
		const int32_t every = 0xFF;
		DiskEnumFilter all{&every};
		if (VEXOExtDiskInfoEnumFrom(&all, VEXO_EXT_DISK_SOURCE_QUIET_WALK, &list, nullptr) < 0) {
			fail("can't list the disks (error 0x%04X)", VLIBCErrGet());
			return false;
		}
		for (DiskListNode *c = list; c; c = c->next)
			if (c->info)
				paths.push_back(c->info->path);
		DiskInfoEnumFree(list);
		return true;
	}
	if (ctx.args.size() != 1 || ctx.has("all")) {
		fail("usage: %s", usage);
		return false;
	}
	std::string path = devicePath(ctx.args[0]);
	char host[4096];
	struct stat st;
	if (VEXOExtSysrootPath(("/sys/block/" + path.substr(5)).c_str(), host, sizeof(host)) != 0 ||
	    ::stat(host, &st) != 0) {
		fail("no disk %s", path.c_str());
		return false;
	}
	paths.push_back(path);
	return true;
}

bool asleep(const Context &ctx, const std::string &path)
{
	return !ctx.has("wake") && VEXOExtDiskPowerModeGet(path.c_str()) == VEXO_EXT_POWER_STANDBY;
}

Value answer(int v) { return v < 0 ? Value() : Value(v == 1); }

int life(Context &ctx)
{
	std::vector<std::string> paths;
	if (!diskPaths(ctx, "life DISK | --all [--wake]", paths))
		return 2;
	Value rows = Value::list();
	for (const std::string &p : paths) {
		Value r = Value::object();
		r.set("disk", p);
		if (asleep(ctx, p)) {
			r.set("power_mode", "standby");
			rows.push(r);
			continue;
		}
		char attr[64] = {};
		int pct = -1;
		int below = VEXODiskRemainLifeInfoGet(p.c_str(), attr, sizeof(attr), &pct, nullptr, nullptr);
		r.set("remain_life_percent", pct >= 0 ? Value(pct) : Value());
		r.set("attribute", attr[0] ? Value(std::string(attr)) : Value());
		r.set("below_user_threshold", answer(below));
		r.set("below_show_threshold", answer(VEXODiskIsBelowLifeShowThrWithValue(pct)));
		r.set("below_mail_threshold", answer(VEXODiskIsBelowLifeMailNotifyThrWithValue(pct)));
		r.set("danger", answer(VEXODiskIsLifeDangerWithValue(p.c_str(), pct)));
		r.set("bad_sectors_counted", answer(VEXODiskIsSupportBadSector(p.c_str())));
		rows.push(r);
	}
	printTable(ctx, rows,
		   {{"disk", "DISK"}, {"remain_life_percent", "LIFE%"}, {"attribute", "ATTRIBUTE"},
		    {"below_user_threshold", "BELOW_USER"}, {"below_show_threshold", "BELOW_SHOW"},
		    {"below_mail_threshold", "BELOW_MAIL"}, {"danger", "DANGER"}, {"power_mode", "ASLEEP"}});
	return 0;
}

int lifeCheck(Context &ctx)
{
	std::vector<std::string> paths;
	if (ctx.has("all") || !diskPaths(ctx, "life check DISK", paths))
		return ctx.has("all") ? fail("usage: life check DISK") : 2;
	const std::string &p = paths[0];
	if (leaveAsleep(ctx, p))
		return 0;
	int before = spooled();
	if (VEXODiskRemainLifeCheck(p.c_str()) != 0)
		return fail("life check of %s failed (error 0x%04X)", p.c_str(), VLIBCErrGet());
	bool sent = spooled() > before;
	Value r = Value::object();
	r.set("disk", p);
	r.set("mail_sent", sent);
	printRecord(ctx, r);
	return 0;
}

int historyRecord(Context &ctx)
{
	std::vector<std::string> paths;
	if (!diskPaths(ctx, "history record DISK | --all [--wake]", paths))
		return 2;
	Value rows = Value::list();
	int failed = 0;
	for (const std::string &p : paths) {
		Value r = Value::object();
		r.set("disk", p);
		if (asleep(ctx, p)) {
			r.set("recorded", "asleep");
		} else if (VEXOExtDiskHealthHistoryRecord(p.c_str()) == 0) {
			r.set("recorded", "yes");
		} else {
			char err[16];
			std::snprintf(err, sizeof(err), "0x%04X", VLIBCErrGet());
			r.set("recorded", "no");
			r.set("error", std::string(err));
			++failed;
		}
		rows.push(r);
	}
	printTable(ctx, rows, {{"disk", "DISK"}, {"recorded", "RECORDED"}, {"error", "ERROR"}});
	return failed && paths.size() == 1 ? 1 : 0;
}

} // namespace

VEXO_CLI_COMMAND("life", "DISK | --all [--wake]", "an SSD's remaining life, its thresholds and danger", life, {});
VEXO_CLI_COMMAND("life check", "DISK [--wake]", "run the life warning mail rule; says whether a mail went out",
		 lifeCheck, {});
VEXO_CLI_COMMAND("history record", "DISK | --all [--wake]", "record this month's health values in the history",
		 historyRecord, {});
