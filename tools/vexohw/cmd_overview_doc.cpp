// The disk overview document: a disk's error counters and its twelve months
// of health history, which follow it from bay to bay.
#include <cstdio>
#include <ctime>
#include <string>
#include <vexohw/disk_overview.h>
#include <vexoplatform/vexocore.h>

#include "asleep.h"
#include "cli.h"

using namespace vexo::cli;

namespace {

std::string devicePath(const std::string &arg) { return arg.rfind("/dev/", 0) == 0 ? arg : "/dev/" + arg; }

int counters(Context &ctx)
{
	if (ctx.args.size() != 1)
		return fail("usage: counters DISK");
	std::string path = devicePath(ctx.args[0]);
	if (leaveAsleep(ctx, path))
		return 0;
	if (int rc = overviewWouldWake(ctx))
		return rc;
	DiskAttrCounters c{};
	if (VEXODiskXmlAttrCtGet(path.c_str(), &c) != 0)
		return fail("no counters for %s in %s (error 0x%04X)", path.c_str(), VEXO_DISK_OVERVIEW_XML,
			    VLIBCErrGet());
	Value r = Value::object();
	r.set("disk", path);
	r.set("unc", c.unc);
	r.set("icrc", c.icrc);
	r.set("idnf", c.idnf);
	r.set("retry", c.retry);
	r.set("timeout", c.timeout);
	r.set("reset_fail", c.resetFail);
	r.set("hibernation", c.hibernation);
	r.set("deepsleep", c.deepsleep);
	printRecord(ctx, r);
	return 0;
}

int history(Context &ctx)
{
	if (ctx.args.size() != 1)
		return fail("usage: history DISK");
	std::string path = devicePath(ctx.args[0]);
	if (leaveAsleep(ctx, path))
		return 0;
	if (int rc = overviewWouldWake(ctx))
		return rc;
	DiskHealthHistoryEntry h[12];
	if (VEXODiskXmlParseHistory(path.c_str(), h, 12) != 0)
		return fail("no history for %s in %s (error 0x%04X)", path.c_str(), VEXO_DISK_OVERVIEW_XML, VLIBCErrGet());
	std::time_t now = std::time(nullptr);
	struct tm tm {};
	localtime_r(&now, &tm);
	int month = (tm.tm_year + 1900) * 12 + tm.tm_mon - 11;
	Value rows = Value::list();
	for (int i = 0; i < 12; ++i, ++month) {
		char name[16];
		std::snprintf(name, sizeof(name), "%04d/%02d", month / 12, month % 12 + 1);
		Value r = Value::object();
		r.set("month", name);
		r.set("unc", h[i].uncValid ? Value(h[i].unc) : Value());
		r.set("idnf", h[i].idnfValid ? Value(h[i].idnf) : Value());
		r.set("retry", h[i].retryValid ? Value(h[i].retry) : Value());
		r.set("remain_life", h[i].remainLifeValid ? Value(h[i].remainLife) : Value());
		rows.push(r);
	}
	printTable(ctx, rows, {{"month", "MONTH"}, {"unc", "UNC"}, {"idnf", "IDNF"}, {"retry", "RETRY"},
			       {"remain_life", "LIFE"}});
	return 0;
}

} // namespace

VEXO_CLI_COMMAND("counters", "DISK [--wake]", "the disk's error counters, kept under its serial", counters, {});
VEXO_CLI_COMMAND("history", "DISK [--wake]", "twelve months of the disk's health history", history, {});
