// vexohw firmware ...: the upgrade state and the plan in force, making a
// plan from the binaries on the box, and running it with progress per drive.
#include <cctype>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <map>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>
#include <vexohw/disk_probe.h>
#include <vexohw/drive_bundle.h>
#include <vexohw/ext.h>
#include <vexohw/frame.h>
#include <vexohw/smart_serial.h>
#include <vexoplatform/vexocore.h>

#include "asleep.h"
#include "cli.h"
#include "firmware_words.h"
#include "disk_args.h"

using namespace vexo::cli;

namespace {

constexpr const char *kPlanDir = "/var/lib/drive-bundle/fw-upgrade/";

// A JSON event on one line: the renderer's layout without its line breaks
// (a break inside a text is escaped, so every raw one is layout).
std::string oneLine(const Value &v)
{
	std::string in = v.json(), out;
	for (std::size_t i = 0; i < in.size(); ++i) {
		if (in[i] != '\n') {
			out += in[i];
			continue;
		}
		while (i + 1 < in.size() && in[i + 1] == ' ')
			++i;
	}
	return out;
}

Value driveRow(const DB_FW_UPGRADE_CONFIG &c)
{
	Value r = Value::object();
	r.set("id", c.id);
	r.set("disk", c.drive_path);
	r.set("firmware_before", c.firmware);
	r.set("firmware_wanted", c.available_firmware);
	r.set("binary", c.available_firmware_binary);
	r.set("upgrade_status", c.upgrade_status);
	r.set("result", fwDriveResultWord(c.upgrade_status));
	r.set("download_retries", c.download_retry_cnt);
	r.set("activate_retries", c.activate_retry_cnt);
	return r;
}

std::vector<DB_FW_UPGRADE_CONFIG> planOf(const char *path)
{
	std::vector<DB_FW_UPGRADE_CONFIG> out;
	DB_FW_UPGRADE_CONFIG *list = nullptr;
	if (VEXODriveBundleFWUpgradeConfigGet(path, &list) > 0)
		for (auto *c = list; c; c = c->next) {
			out.push_back(*c);
			out.back().ui_json = nullptr;
			out.back().next = nullptr;
		}
	VEXODriveBundleFWUpgradeConfigFree(list);
	return out;
}

int firmwareStatus(Context &ctx)
{
	int state = VEXODriveBundleFWUpgradeStateGet(1);
	if (state < 0)
		return fail("firmware status: the upgrade state cannot be read (error 0x%04X)", VLIBCErrGet());
	char plan[PATH_MAX] = "";
	bool hasPlan = DBRealityPathGet(VEXO_FW_UPGRADE_CURRENT_LINK, plan, sizeof(plan)) == 0;
	// During a run the working copy has the news; the plan gets them at the end.
	const char *from = state == VEXO_FW_UPGRADE_UPGRADING_ALL ? VEXO_FW_UPGRADE_WORKING_CONF : plan;
	Value rows = Value::list();
	if (hasPlan)
		for (const auto &c : planOf(from)) {
			Value r = driveRow(c);
			int up = VEXODriveBundleFWUpgradeIsUpgrading(c.drive_path);
			r.set("upgrading", up < 0 ? Value() : Value(up == 1));
			rows.push(std::move(r));
		}
	if (ctx.json) {
		Value doc = Value::object();
		doc.set("state", fwStateWord(state));
		doc.set("plan", hasPlan ? Value(plan) : Value());
		doc.set("drives", std::move(rows));
		std::printf("%s\n", doc.json(2).c_str());
		return 0;
	}
	std::printf("state: %s\nplan: %s\n\n", fwStateWord(state), hasPlan ? plan : "none");
	printTable(ctx, rows,
		   {{"disk", "DISK"}, {"firmware_before", "FROM"}, {"firmware_wanted", "TO"}, {"result", "RESULT"},
		    {"upgrading", "UPGRADING"}});
	return 0;
}

// The binaries in the firmware folder, as the library indexes them.
std::vector<VEXOFirmwareBinary> binaries()
{
	std::vector<VEXOFirmwareBinary> out(16);
	int n = 0;
	while ((n = VEXOExtDriveBundleFirmwareIndexGet(out.data(), static_cast<int>(out.size()))) > static_cast<int>(out.size()))
		out.resize(static_cast<std::size_t>(n));
	out.resize(n < 0 ? 0 : static_cast<std::size_t>(n));
	return out;
}

Value binaryRow(const VEXOFirmwareBinary &b)
{
	Value r = Value::object();
	r.set("model", b.model);
	r.set("firmware", b.firmware);
	r.set("build", b.build);
	r.set("binary", b.file);
	return r;
}

int firmwarePlan(Context &ctx)
{
	PVLIBSZLIST disks = VLIBCSzListAlloc(16);
	if (!disks)
		return fail("firmware plan: out of memory");
	for (const auto &a : ctx.args)
		VLIBCSzListPush(&disks, devicePath(a).c_str());
	if (ctx.args.empty()) {
		PVLIBSZLIST names = VLIBCSzListAlloc(16);
		if (names && VLIBCFileEnumDir("/run/vexostorage/disks", &names) > 0)
			for (int i = 0; i < names->nItem; ++i)
				VLIBCSzListPush(&disks, (std::string("/dev/") + VLIBCSzListGet(names, i)).c_str());
		VLIBCSzListFree(names);
	}
	char stamp[32];
	std::snprintf(stamp, sizeof(stamp), "plan-%lld.conf", static_cast<long long>(std::time(nullptr)));
	const std::string plan = std::string(kPlanDir) + stamp;
	int planned = VEXODriveBundleFWUpgradeConfigGenToFile(plan.c_str(), disks);
	VLIBCSzListFree(disks);
	if (planned < 0)
		return fail("firmware plan: cannot write %s (error 0x%04X)", plan.c_str(), VLIBCErrGet());
	if (planned) {
		// The link names the new plan, and the run is booked.
		char host[PATH_MAX];
		if (VEXOExtSysrootPath(VEXO_FW_UPGRADE_CURRENT_LINK, host, sizeof(host)) != 0)
			return fail("firmware plan: no path for %s", VEXO_FW_UPGRADE_CURRENT_LINK);
		DBRemoveLinkIfExist(VEXO_FW_UPGRADE_CURRENT_LINK);
		if (::symlink(stamp, host) != 0)
			return fail("firmware plan: cannot link %s: %s", VEXO_FW_UPGRADE_CURRENT_LINK, std::strerror(errno));
		if (VEXODriveBundleFWUpgradeStateGoingToStartChange(1) != 0)
			return fail("firmware plan: cannot book the run (error 0x%04X)", VLIBCErrGet());
	}
	Value rows = Value::list();
	for (const auto &c : planOf(plan.c_str()))
		rows.push(driveRow(c));
	printTable(ctx, rows, {{"disk", "DISK"}, {"firmware_before", "FROM"}, {"firmware_wanted", "TO"}, {"binary", "BINARY"}});
	if (!ctx.json)
		std::printf("\n%d drive(s) planned%s\n", planned, planned ? ", run with: vexohw firmware run" : "");
	return 0;
}

int firmwareRun(Context &ctx)
{
	char plan[PATH_MAX];
	if (DBRealityPathGet(VEXO_FW_UPGRADE_CURRENT_LINK, plan, sizeof(plan)) != 0)
		return fail("firmware run: no plan (make one with: vexohw firmware plan)");
	if (VEXODriveBundleFWUpgradeStateGet(1) != VEXO_FW_UPGRADE_GOING_TO_START)
		return fail("firmware run: no run is booked, or one is under way");
	pid_t run = ::fork();
	if (run < 0)
		return fail("firmware run: cannot fork: %s", std::strerror(errno));
	// The appliance's firmware tool runs it, so that the drives' flashers
	// are the processes the library recognises as upgrading.
	if (run == 0)
		std::_Exit(VEXODriveBundleFWUpgradeByConfig() == 0 ? 0 : 1);
	// Progress: each drive's status as the working copy shows it.
	std::map<std::string, int> seen;
	auto report = [&](const std::vector<DB_FW_UPGRADE_CONFIG> &drives) {
		for (const auto &c : drives) {
			auto it = seen.find(c.id);
			if (it != seen.end() && it->second == c.upgrade_status)
				continue;
			seen[c.id] = c.upgrade_status;
			if (ctx.json) {
				Value e = driveRow(c);
				e.set("event", "drive");
				std::printf("%s\n", oneLine(e).c_str());
			} else {
				std::printf("%-14s %-10s -> %-10s %s\n", c.drive_path, c.firmware, c.available_firmware,
					    fwDriveResultWord(c.upgrade_status));
			}
			std::fflush(stdout);
		}
	};
	int status = 0;
	while (::waitpid(run, &status, WNOHANG) == 0) {
		report(planOf(VEXO_FW_UPGRADE_WORKING_CONF));
		::usleep(200000);
	}
	auto final = planOf(plan);
	report(final);
	int failed = 0;
	for (const auto &c : final)
		failed += c.upgrade_status != VEXO_FW_DRIVE_SUCCESS;
	bool ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
	if (ctx.json) {
		Value e = Value::object();
		e.set("event", "done");
		e.set("ok", ok);
		e.set("drives", static_cast<int>(final.size()));
		e.set("failed", failed);
		std::printf("%s\n", oneLine(e).c_str());
	} else {
		std::printf("\n%zu drive(s), %d failed%s\n", final.size(), failed, ok ? "" : "; the run itself failed");
	}
	return ok && !failed ? 0 : 1;
}

// Without a model: what the drives' firmware status asks for, by the live
// database, fetched; then the binaries on the box.
int firmwareDownloadByDb(Context &ctx)
{
	if (VEXODriveBundleFWDownloadByDB(nullptr, nullptr, ctx.has("again") ? VEXO_FW_DOWNLOAD_AGAIN : 0) != 0)
		return fail("firmware download: not every firmware the drives need could be had (error 0x%04X%s)",
			    VLIBCErrGet(), VLIBCErrGet() == 0x1100 ? ": the firmware server cannot be reached" : "");
	Value rows = Value::list();
	for (const auto &b : binaries())
		rows.push(binaryRow(b));
	printTable(ctx, rows, {{"model", "MODEL"}, {"firmware", "FIRMWARE"}, {"build", "BUILD"}, {"binary", "BINARY"}},
		   "firmware on the box");
	return 0;
}

int firmwareDownload(Context &ctx)
{
	if (ctx.args.empty())
		return firmwareDownloadByDb(ctx);
	if (ctx.args.size() != 1)
		return fail("usage: firmware download [MODEL] [--again]");
	const std::string &model = ctx.args[0];
	std::string file;
	for (char c : model)
		file += std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '.' ? c : '_';
	const std::string target = "/var/lib/drive-bundle/fw-tmp/" + file + ".sa";
	if (VEXODriveBundleCheckDirExistOrCreate("/var/lib/drive-bundle/fw-tmp/") != 0)
		return fail("firmware download: cannot make the download folder");
	if (VEXODriveBundleFWSADownload(model.c_str(), 1, 0, target.c_str()) != 0)
		return fail("firmware download: no firmware for %s from the server (error 0x%04X)", model.c_str(),
			    VLIBCErrGet());
	if (VEXODriveBundleFWSAExtract(target.c_str()) != 0)
		return fail("firmware download: the archive of %s was refused (error 0x%04X)", model.c_str(), VLIBCErrGet());
	Value r = Value::object();
	r.set("model", model);
	r.set("archive", target);
	const VEXOFirmwareBinary *best = nullptr;
	const auto onBox = binaries();
	for (const auto &b : onBox)
		if (model == b.model && (!best || b.build > best->build))
			best = &b;
	r.set("binary", best ? Value(best->file) : Value());
	r.set("firmware", best ? Value(best->firmware) : Value());
	printRecord(ctx, r);
	return 0;
}

VEXO_CLI_COMMAND("firmware download", "[MODEL] [--again]",
		 "fetch the latest firmware of a model, or (no model) what the drives' firmware status asks for, and store it",
		 firmwareDownload, {});
VEXO_CLI_COMMAND("firmware status", "", "upgrade state, the plan in force and each drive's result", firmwareStatus, {});
VEXO_CLI_COMMAND("firmware plan", "[DISK...]", "plan the drives whose model has a newer binary on the box, and book the run",
		 firmwarePlan, {});
VEXO_CLI_COMMAND("firmware run", "", "flash the plan in force, all drives at once, with progress per drive",
		 firmwareRun, {});

} // namespace
