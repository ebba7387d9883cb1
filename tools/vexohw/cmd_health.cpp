// vexohw smart test start|stop|status, smart tests and health: the
// self-tests of a disk and the verdict its health sources add up to.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vexohw/disk.h>
#include <vexohw/disk_enum.h>
#include <vexohw/disk_health.h>
#include <vexohw/frame.h>
#include <vexohw/smart_status.h>
#include <vexohw/smart_test.h>
#include <vexoplatform/vexocore.h>

#include "asleep.h"
#include "cli.h"
#include "disk_args.h"

using namespace vexo::cli;

namespace {

// The self-test log reader needs the disk's log kind in its cache, which
// the health refresh fills; a disk nobody refreshed yet gets it now.
void ensureLogKind(const std::string &path)
{
	int kind = 0;
	if (VEXODiskGetIntValueCacheFile(path.c_str(), "smart_selftest_log_type", &kind) != 0)
		SmartTotalStatusCacheUpdate(path.c_str());
}

std::string resultWord(unsigned r)
{
	char w[32] = {};
	return SmartTestResultStringTransfer(r, w, sizeof(w)) == 0 ? w : "unknown";
}

// The words the verdict's levels mean to a person.
const char *overviewMeaning(int status)
{
	switch (status) {
	case 1: return "no health source reports a problem";
	case 2: return "a minor problem: keep an eye on the disk";
	case 3: return "a serious problem: back up the disk's data and plan to replace it";
	case 4: return "the disk is failing: replace it now";
	default: return "the disk could not be judged";
	}
}

std::string failText(const SmartInfoFail &f)
{
	std::string why = f.failType == SMART_FAIL_CRITICAL ? "is at or below its threshold now"
			  : f.failType == SMART_FAIL_REPEAT ? "has got worse since its warning was muted"
							    : "fell to its threshold in the past";
	return "attribute " + std::to_string(f.id) + " " + f.name + " " + why + " (value " + std::to_string(f.value) +
	       ", worst " + std::to_string(f.worst) + ", threshold " + std::to_string(f.threshold) + ")";
}

int testStart(Context &ctx)
{
	if (ctx.args.size() != 1)
		return fail("usage: smart test start DISK [--type quick|extend]");
	std::string path = devicePath(ctx.args[0]), type = ctx.opt("type", "quick");
	if (type != "quick" && type != "extend")
		return fail("--type is quick or extend");
	if (!VEXODiskSmartTestSupportCache(path.c_str()))
		return fail("%s can't run self-tests", path.c_str());
	ensureLogKind(path);
	int rc = VLIBCExecl(SMART_TEST_TOOL, SMART_TEST_TOOL, "--type", type.c_str(), "--disk", "sel", path.c_str(),
			    static_cast<const char *>(nullptr));
	if (rc != 0)
		return fail("%s failed to start a %s test on %s", SMART_TEST_TOOL, type.c_str(), path.c_str());
	Value r = Value::object();
	r.set("disk", path);
	r.set("started", type);
	printRecord(ctx, r);
	return 0;
}

int testStop(Context &ctx)
{
	if (ctx.args.size() != 1)
		return fail("usage: smart test stop DISK");
	std::string path = devicePath(ctx.args[0]);
	ensureLogKind(path);
	if (VEXODiskSmartTestStop(path.c_str()) != 0)
		return fail("can't stop the test on %s (error 0x%04X)", path.c_str(), VLIBCErrGet());
	Value r = Value::object();
	r.set("disk", path);
	r.set("stopped", true);
	printRecord(ctx, r);
	return 0;
}

int testStatus(Context &ctx)
{
	if (ctx.args.size() != 1)
		return fail("usage: smart test status DISK");
	std::string path = devicePath(ctx.args[0]);
	ensureLogKind(path);
	SmartTestLog log{};
	if (SMARTSelfTestLogRead(path.c_str(), &log) != 0)
		return fail("can't read the self-test log of %s (error 0x%04X)", path.c_str(), VLIBCErrGet());
	bool running = log.currentResult == SMART_TEST_RESULT_PROGRESS;
	char testing[32] = {};
	// A test that ended since it was started is recorded now.
	if (!running && VEXODiskGetStrValueCacheFile(path.c_str(), "smart_testing", testing, sizeof(testing)) == 0 &&
	    testing[0])
		SmartTestResultRecord(path.c_str());
	int weight = 0;
	char progress[32] = {};
	int status = SmartTestStatusGet(path.c_str(), progress, sizeof(progress), &weight);
	char statusWord[32] = {};
	SmartTestStatusStringTransfer(static_cast<unsigned>(status), statusWord, sizeof(statusWord));
	Value r = Value::object();
	r.set("disk", path);
	r.set("running", running);
	r.set("progress", running ? Value(progress) : Value());
	r.set("quick_result", resultWord(log.quickResult));
	r.set("extend_result", resultWord(log.extendResult));
	r.set("latest_type", log.latestType == 1 ? Value("quick") : log.latestType == 2 ? Value("extend") : Value());
	r.set("latest_result", resultWord(log.latestResult));
	r.set("quick_minutes", std::atoi(log.quickMinutes));
	r.set("extend_minutes", std::atoi(log.extendMinutes));
	r.set("status", statusWord);
	r.set("weight", weight);
	printRecord(ctx, r);
	return 0;
}

int testRows(Context &ctx)
{
	if (ctx.args.size() != 1)
		return fail("usage: smart tests DISK [--type smart|ihm] [--limit N] [--offset N]");
	std::string path = devicePath(ctx.args[0]), type = ctx.opt("type");
	int limit = std::atoi(ctx.opt("limit", "20").c_str()), offset = std::atoi(ctx.opt("offset", "0").c_str());
	DiskTestLog *list = nullptr;
	int total = VEXODiskTestLogGet(path.c_str(), type.empty() ? nullptr : type.c_str(), limit, offset, &list);
	if (total < 0)
		return fail("can't read the test database for %s (error 0x%04X)", path.c_str(), VLIBCErrGet());
	Value rows = Value::list();
	for (DiskTestLog *t = list; t; t = t->next) {
		Value row = Value::object();
		row.set("time", t->time);
		row.set("type", t->type);
		row.set("test_type", t->testType);
		int event = std::atoi(t->message);
		row.set("event", event);
		row.set("result", std::string(t->type) == "smart" ? Value(resultWord(event == 18 ? 7u : static_cast<unsigned>(event)))
								  : Value(t->testCode));
		rows.push(row);
	}
	DiskTestLogFree(list);
	if (ctx.json) {
		Value r = Value::object();
		r.set("disk", path);
		r.set("total", total);
		r.set("offset", offset);
		r.set("rows", rows);
		printRecord(ctx, r);
		return 0;
	}
	printTable(ctx, rows, {{"time", "TIME"}, {"type", "TYPE"}, {"test_type", "TEST"}, {"result", "RESULT"}});
	std::printf("%d of %d rows from %d.\n", static_cast<int>(rows.asList().size()), total, offset);
	return 0;
}

Value healthOf(const std::string &path)
{
	SmartWarningReason *reason = VEXOSmartWarningReasonAlloc();
	int totalStatus = 0, overviewWeight = 0, testStatus = 0, infoStatus = 0, totalWeight = 0;
	char adv[32] = {}, progress[32] = {};
	int status = SmartOverviewStatusGet(path.c_str(), &totalStatus, reason, adv, &overviewWeight);
	SmartWarningReason shares{};
	SmartTotalStatusGet(path.c_str(), &testStatus, progress, sizeof(progress), &infoStatus, &shares, &totalWeight,
			    nullptr, nullptr, nullptr, nullptr, 0);
	int testWeight = testStatus == SMART_TEST_STATUS_FAIL ? SMART_TEST_FAIL_WEIGHT : 0;
	char word[32] = {}, info[32] = {}, test[32] = {};
	SmartOverviewStatusStringTransfer(status, word, sizeof(word));
	SmartInfoStatusStringTransfer(infoStatus, info, sizeof(info));
	SmartTestStatusStringTransfer(static_cast<unsigned>(testStatus), test, sizeof(test));
	Value r = Value::object();
	r.set("disk", path);
	r.set("health", word);
	r.set("weight", overviewWeight);
	r.set("meaning", overviewMeaning(status));
	Value sources = Value::object();
	sources.set("smart_attributes", totalWeight - testWeight);
	sources.set("self_test", testWeight);
	sources.set("other_sources", overviewWeight - totalWeight);
	// The other sources one by one, as the verdict read them.
	int code = 0, w = 0;
	auto share = [&](const char *key, int rc) { sources.set(key, rc == 0 ? Value(w) : Value()); };
	share("drive_analytics", VEXODiskWddaStatusGet(path.c_str(), &code, &w));
	share("ssd_bundle", VEXOSSDBundleWarningWeightGet(path.c_str(), &w));
	share("error_timeout", VEXODiskErrorTimeoutStatusCacheGet(path.c_str(), &w));
	share("error_reset_fail", VEXODiskErrorResetFailStatusCacheGet(path.c_str(), &w));
	share("error_unc", VEXODiskErrorUncStatusCacheGet(path.c_str(), &w));
	r.set("weights", sources);
	r.set("smart_status", info);
	r.set("self_test_status", test);
	Value reasons = Value::list();
	if (reason) {
		for (SmartInfoFail *f = reason->failList; f; f = f->next)
			reasons.push(failText(*f));
		if (reason->smartTest)
			reasons.push("the latest extended self-test found damage");
		if (reason->advTest)
			reasons.push("the advanced test reports a problem");
		if (reason->criticalWarning)
			reasons.push("the NVMe drive raises critical warning bits 0x" + std::to_string(reason->criticalWarning));
		if (reason->wdda) {
			char hex[16];
			std::snprintf(hex, sizeof(hex), "%X", static_cast<unsigned>(code));
			reasons.push(std::string("drive analytics reports finding 0x") + hex);
		}
		if (reason->errorTimeout)
			reasons.push("commands to the disk timed out since it was attached");
		if (reason->errorResetFail)
			reasons.push("the disk failed commands or resets since it was attached");
		if (reason->errorUnc)
			reasons.push("the disk returned uncorrectable errors (data it could not read back)");
	}
	r.set("reasons", reasons);
	VEXOSmartWarningReasonFree(reason);
	SmartInfoFailListFree(shares.failList);
	return r;
}

int health(Context &ctx)
{
	std::vector<std::string> paths;
	if (ctx.has("all")) {
		int32_t mask = 0xFF;
		DiskEnumFilter filter{&mask};
		DiskListNode *head = nullptr;
		// A walk that asks no drive: the verdicts below leave sleeping disks be.
		int used = 0;
		if (VEXOExtDiskInfoEnumFrom(&filter, VEXO_EXT_DISK_SOURCE_QUIET_WALK, &head, &used) < 0)
			return fail("can't enumerate the disks (error 0x%04X)", VLIBCErrGet());
		for (DiskListNode *n = head; n; n = n->next)
			if (n->info)
				paths.push_back(n->info->path);
		DiskInfoEnumFree(head);
	} else if (ctx.args.size() == 1) {
		paths.push_back(devicePath(ctx.args[0]));
		// The verdict reads the drive's SMART data: a sleeping disk is left so.
		if (leaveAsleep(ctx, paths[0]))
			return 0;
	} else {
		return fail("usage: health DISK | --all");
	}
	Value rows = Value::list();
	for (const std::string &p : paths) {
		// --refresh fills the caches the overview's HEALTH column reads.
		if (ctx.has("all") && !ctx.has("wake") && VEXOExtDiskPowerModeGet(p.c_str()) == VEXO_EXT_POWER_STANDBY) {
			Value r = Value::object();
			r.set("disk", p);
			r.set("power_mode", "standby");
			r.set("read", false);
			rows.push(r);
			continue;
		}
		if (ctx.has("refresh") && SmartTotalStatusCacheUpdate(p.c_str()) != 0)
			std::fprintf(stderr, "vexohw: can't refresh the health cache of %s (error 0x%04X)\n", p.c_str(),
				     VLIBCErrGet());
		rows.push(healthOf(p));
	}
	if (ctx.json) {
		printRecord(ctx, ctx.has("all") ? rows : rows.asList()[0]);
		return 0;
	}
	for (const Value &r : rows.asList()) {
		if (r.get("read")) {
			std::printf("%s: asleep, nothing read (--wake reads it anyway)\n", r.get("disk")->text().c_str());
			continue;
		}
		std::printf("%s: %s (weight %s) - %s\n", r.get("disk")->text().c_str(), r.get("health")->text().c_str(),
			    r.get("weight")->text().c_str(), r.get("meaning")->text().c_str());
		const Value *w = r.get("weights");
		std::printf("  shares: SMART attributes %s, self-test %s, other sources %s\n",
			    w->get("smart_attributes")->text().c_str(), w->get("self_test")->text().c_str(),
			    w->get("other_sources")->text().c_str());
		std::string others;
		for (const char *k : {"drive_analytics", "ssd_bundle", "error_timeout", "error_reset_fail", "error_unc"})
			if (const Value *v = w->get(k); v && v->text() != "0" && !v->text().empty())
				others += std::string(others.empty() ? "" : ", ") + k + " " + v->text();
		if (!others.empty())
			std::printf("  of which: %s\n", others.c_str());
		for (const Value &why : r.get("reasons")->asList())
			std::printf("  - %s\n", why.text().c_str());
	}
	return 0;
}

} // namespace

VEXO_CLI_COMMAND("smart test start", "DISK [--type quick|extend]", "start a SMART self-test", testStart, {"type"});
VEXO_CLI_COMMAND("smart test stop", "DISK", "stop the running self-test and record it", testStop, {});
VEXO_CLI_COMMAND("smart test status", "DISK", "the self-test log: running test, latest results, status", testStatus, {});
VEXO_CLI_COMMAND("smart tests", "DISK [--type smart|ihm] [--limit N] [--offset N]", "the disk's finished tests, newest first",
		 testRows, {"type", "limit", "offset"});
VEXO_CLI_COMMAND("health", "DISK | --all [--refresh] [--wake]", "the health verdict: weight, each source's share and the reasons", health, {});
