// vexohw firmware drives|finished|validate|results|drive-status|needed: the
// drives of the plan in force, whether a run is over, a binary's check,
// the outcomes the runs logged, what the user interface offers each drive,
// and how many drives the databases say need new firmware.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <vector>
#include <vexohw/disk_enum.h>
#include <vexohw/drive_bundle.h>
#include <vexohw/ext.h>
#include <vexohw/fw_status.h>
#include <vexoplatform/vexocore.h>

#include "cli.h"
#include "firmware_words.h"
#include "disk_args.h"

using namespace vexo::cli;

namespace {

constexpr const char *kResultLog = "/var/lib/drive-bundle/fw-upgrade/result.log";

// The answers of VEXODriveBundleFWUpgradeStatusGet, as the user interface
// words them.
const char *offerWord(int s)
{
	switch (s) {
	case 1: return "upgrading";
	case 2: return "new_firmware";
	case 3: return "must_update";
	case 4: return "system_update_first";
	case 5: return "database_update_first";
	default: return "none";
	}
}

// A path of the box as the host sees it; "" when the sysroot can't map it.
std::string hostPath(const std::string &appliancePath)
{
	char host[4096];
	return VEXOExtSysrootPath(appliancePath.c_str(), host, sizeof(host)) == 0 ? host : "";
}

bool exists(const std::string &appliancePath)
{
	struct stat st {};
	const std::string h = hostPath(appliancePath);
	return !h.empty() && ::stat(h.c_str(), &st) == 0;
}

// What the user interface says of one drive: its offer (the record's path is
// all the call reads), the firmware status word and whether it is flashing.
// Cached answers only: no drive hears a command.
Value offerRow(const std::string &path)
{
	DiskInfo info{};
	std::snprintf(info.path, sizeof(info.path), "%s", path.c_str());
	std::snprintf(info.name, sizeof(info.name), "%s", path.substr(path.rfind('/') + 1).c_str());
	Value r = Value::object();
	r.set("disk", path);
	const int offer = VEXODriveBundleFWUpgradeStatusGet(&info);
	r.set("offer", offer < 0 ? Value() : Value(offerWord(offer)));
	r.set("offer_code", offer);
	const int firm = VEXODriveBundleFirmStatusGet(path.c_str(), 1);
	char word[32] = {};
	r.set("firmware_status", VEXOSBFirmStatusTransfer(firm, word, sizeof(word)) == 0 ? Value(word) : Value());
	const int up = VEXODriveBundleFWUpgradeIsUpgrading(path.c_str());
	r.set("upgrading", up < 0 ? Value() : Value(up == 1));
	return r;
}

int firmwareDrives(Context &ctx)
{
	if (!ctx.args.empty())
		return fail("usage: firmware drives");
	PVLIBSZLIST raw = nullptr;
	const int n = VEXODriveBundleFWUpgradeDrivesGet(&raw);
	SzList list(raw);
	if (n < 0)
		return fail("can't read the drives of the plan in force (VEXODriveBundleFWUpgradeDrivesGet, error 0x%04X)",
			    VLIBCErrGet());
	Value rows = Value::list();
	for (int i = 0; list && i < list->nItem; ++i)
		rows.push(offerRow(list->ppszItem[i]));
	if (ctx.json) {
		printRecord(ctx, rows);
		return 0;
	}
	if (rows.asList().empty()) {
		std::printf("No plan in force, or it names no drive.\n");
		return 0;
	}
	printTable(ctx, rows,
		   {{"disk", "DISK"}, {"upgrading", "UPGRADING"}, {"offer", "OFFER"}, {"firmware_status", "FIRMWARE"}});
	return 0;
}

int firmwareFinished(Context &ctx)
{
	int wait = 0;
	if (!ctx.args.empty() || (ctx.has("wait") && !parseInt(ctx.opt("wait"), 1, 86400, wait)))
		return fail("usage: firmware finished [--wait SECONDS] (1 to 86400)");
	const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(wait);
	int done = VEXODriveBundleFWUpgradeFinishCheck();
	while (done == 0 && std::chrono::steady_clock::now() < until) {
		std::this_thread::sleep_for(std::chrono::seconds(1));
		done = VEXODriveBundleFWUpgradeFinishCheck();
	}
	if (done < 0)
		return fail("can't read the upgrade state (VEXODriveBundleFWUpgradeFinishCheck, error 0x%04X)", VLIBCErrGet());
	Value r = Value::object();
	r.set("finished", done == 1);
	r.set("state", fwStateWord(VEXODriveBundleFWUpgradeStateGet(0)));
	printRecord(ctx, r);
	// A caller that waited wants to know from the status whether it ended.
	if (wait > 0 && done != 1)
		return fail("the firmware upgrade is still going after %d s", wait);
	return 0;
}

int firmwareValidate(Context &ctx)
{
	if (ctx.args.size() != 1)
		return fail("usage: firmware validate BINARY (a file name in %s)", VEXO_FW_UPGRADE_DIR);
	const std::string &name = ctx.args[0];
	if (name.empty() || name.find('/') != std::string::npos || name == "." || name == ".." || name.size() > 200)
		return fail("'%s' is not a file name of the firmware folder %s", name.c_str(), VEXO_FW_UPGRADE_DIR);
	// An info file named as the binary would be checked against an info file
	// of its own, found missing, and removed.
	if (name.size() >= 8 && name.compare(name.size() - 8, 8, ".FW_INFO") == 0)
		return fail("'%s' is an info file: name the binary it describes", name.c_str());
	const std::string binary = VEXO_FW_UPGRADE_DIR + name, info = binary + ".FW_INFO";
	// The check removes a binary it finds wanting; one that is not there is
	// a mistyped name, not a bad binary.
	if (!exists(binary))
		return fail("no binary %s in the firmware folder %s", name.c_str(), VEXO_FW_UPGRADE_DIR);
	const bool hadInfo = exists(info);
	const int good = VEXODriveBundleFWUpgradeFirmwareBinaryValidate(name.c_str());
	if (good < 0)
		return fail("can't check %s (VEXODriveBundleFWUpgradeFirmwareBinaryValidate, error 0x%04X)", name.c_str(),
			    VLIBCErrGet());
	Value r = Value::object();
	r.set("binary", name);
	r.set("valid", good == 1);
	r.set("info_file", hadInfo);
	r.set("removed", good != 1 && !exists(binary));
	printRecord(ctx, r);
	if (good == 1)
		return 0;
	return fail("%s failed its check (%s): removed, so that the next download starts clean", name.c_str(),
		    hadInfo ? "its MD5 does not match its .FW_INFO" : "it has no .FW_INFO");
}

// One line of the result log: time, plan id, disk, model, firmware before,
// firmware wanted and the drive's outcome, separated by tabs.
bool resultRow(const std::string &line, Value &row)
{
	std::vector<std::string> f;
	std::stringstream in(line);
	for (std::string part; std::getline(in, part, '\t');)
		f.push_back(part);
	if (f.size() != 7)
		return false;
	char *end = nullptr;
	const long long when = std::strtoll(f[0].c_str(), &end, 10);
	if (*end || f[0].empty())
		return false;
	int status = 0;
	if (!parseInt(f[6], -100, 100, status))
		return false;
	std::time_t t = static_cast<std::time_t>(when);
	struct tm tm {};
	char stamp[32] = {};
	if (gmtime_r(&t, &tm))
		std::strftime(stamp, sizeof(stamp), "%Y-%m-%dT%H:%M:%SZ", &tm);
	row = Value::object();
	row.set("time", stamp);
	row.set("epoch", when);
	row.set("id", f[1]);
	row.set("disk", f[2]);
	row.set("model", f[3]);
	row.set("firmware_before", f[4]);
	row.set("firmware_wanted", f[5]);
	row.set("upgrade_status", status);
	row.set("result", fwDriveResultWord(status));
	return true;
}

int firmwareResults(Context &ctx)
{
	int limit = 20;
	if (!ctx.args.empty() || (ctx.has("limit") && !parseInt(ctx.opt("limit"), 1, 100000, limit)))
		return fail("usage: firmware results [--limit N] (1 to 100000)");
	const std::string host = hostPath(kResultLog);
	std::ifstream in(host);
	std::vector<Value> all;
	int skipped = 0;
	for (std::string line; in && std::getline(in, line);) {
		if (line.empty())
			continue;
		Value row;
		if (resultRow(line, row))
			all.push_back(std::move(row));
		else
			++skipped;
	}
	if (in.bad())
		return fail("can't read %s", kResultLog);
	// Newest first: the log only grows at its end.
	std::reverse(all.begin(), all.end());
	Value rows = Value::list();
	for (std::size_t i = 0; i < all.size() && i < static_cast<std::size_t>(limit); ++i)
		rows.push(all[i]);
	if (ctx.json) {
		Value doc = Value::object();
		doc.set("total", static_cast<long long>(all.size()));
		doc.set("unreadable_lines", skipped);
		doc.set("results", std::move(rows));
		printRecord(ctx, doc);
		return 0;
	}
	if (all.empty()) {
		std::printf("No firmware upgrade has logged a result yet.\n");
		return 0;
	}
	printTable(ctx, rows,
		   {{"time", "TIME"}, {"disk", "DISK"}, {"model", "MODEL"}, {"firmware_before", "FROM"},
		    {"firmware_wanted", "TO"}, {"result", "RESULT"}});
	std::printf("%d of %zu results, newest first%s.\n", static_cast<int>(rows.asList().size()), all.size(),
		    skipped ? "; some lines could not be read" : "");
	return 0;
}

int firmwareDriveStatus(Context &ctx)
{
	std::vector<std::string> paths;
	for (const auto &a : ctx.args) {
		const std::string p = devicePath(a);
		if (p.size() <= 5 || p.find('/', 5) != std::string::npos || !exists("/sys/block/" + p.substr(5)))
			return fail("no disk %s", p.c_str());
		paths.push_back(p);
	}
	if (paths.empty()) {
		int32_t mask = 0xFF;
		DiskEnumFilter filter{&mask};
		DiskListNode *head = nullptr;
		// A walk that asks no drive.
		if (VEXOExtDiskInfoEnumFrom(&filter, VEXO_EXT_DISK_SOURCE_QUIET_WALK, &head, nullptr) < 0)
			return fail("can't list the disks (error 0x%04X)", VLIBCErrGet());
		for (DiskListNode *n = head; n; n = n->next)
			if (n->info)
				paths.push_back(n->info->path);
		DiskInfoEnumFree(head);
	}
	Value rows = Value::list();
	for (const auto &p : paths)
		rows.push(offerRow(p));
	printTable(ctx, rows,
		   {{"disk", "DISK"}, {"offer", "OFFER"}, {"firmware_status", "FIRMWARE"}, {"upgrading", "UPGRADING"}});
	return 0;
}

int firmwareNeeded(Context &ctx)
{
	if (!ctx.args.empty())
		return fail("usage: firmware needed");
	int needed = 0, ready = 0;
	if (VEXODriveBundleFWupgradeUpgradeNeededGetByDB(&needed, &ready) != 0)
		return fail("can't search the drive databases (VEXODriveBundleFWupgradeUpgradeNeededGetByDB, error 0x%04X)",
			    VLIBCErrGet());
	Value r = Value::object();
	r.set("needed", needed);
	r.set("ready", ready);
	r.set("missing_binaries", needed - ready);
	printRecord(ctx, r);
	if (!ctx.json && needed > ready)
		std::printf("\n'firmware download' fetches the %d missing binaries.\n", needed - ready);
	return 0;
}

} // namespace

VEXO_CLI_COMMAND("firmware drives", "", "the drives of the plan in force, with what the user is offered for each",
		 firmwareDrives, {});
VEXO_CLI_COMMAND("firmware finished", "[--wait SECONDS]", "whether no upgrade is going (--wait: until then, or fail)",
		 firmwareFinished, {"wait"});
VEXO_CLI_COMMAND("firmware validate", "BINARY", "check a binary of the firmware folder against its .FW_INFO (a bad one is removed)",
		 firmwareValidate, {});
VEXO_CLI_COMMAND("firmware results", "[--limit N]", "the outcomes the upgrade runs logged, newest first", firmwareResults,
		 {"limit"});
VEXO_CLI_COMMAND("firmware drive-status", "[DISK...]", "the firmware offer and status word of each disk, from the caches",
		 firmwareDriveStatus, {});
VEXO_CLI_COMMAND("firmware needed", "", "how many drives the databases say need new firmware, and for how many it is here",
		 firmwareNeeded, {});
