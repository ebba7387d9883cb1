// vexohw health history|current|prediction|adv|adv-code|analytics, disk
// mask-serial and ssd-bundle: the health details behind the verdict, the
// serial the user sees, and the useful time an SSD bundle gives a disk.
//
// What comes from the caches never touches a drive; what reads the drive
// (the SMART values, the stored serial) leaves a sleeping disk asleep.
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <sys/stat.h>
#include <vexohw/disk_adv.h>
#include <vexohw/disk_enum.h>
#include <vexohw/disk_health.h>
#include <vexohw/disk_mail.h>
#include <vexohw/disk_overview.h>
#include <vexohw/disk_status.h>
#include <vexohw/ext.h>
#include <vexohw/frame.h>
#include <vexohw/remain_life.h>
#include <vexohw/smart_info.h>
#include <vexohw/smart_serial.h>
#include <vexoplatform/vexocore.h>
#include <vexoplatform/vexoerr.h>

#include "asleep.h"
#include "cli.h"
#include "disk_args.h"

using namespace vexo::cli;

namespace {

// The one disk a command names, checked against the box's block devices:
// 0, or the exit status after saying what is wrong.
int diskArg(const Context &ctx, const char *usage, std::string &path, std::size_t args = 1)
{
	if (ctx.args.size() != args)
		return fail("usage: %s", usage);
	path = devicePath(ctx.args[0]);
	const std::string name = path.substr(5);
	if (name.empty() || name.find('/') != std::string::npos || name[0] == '.')
		return fail("'%s' is not a disk name", ctx.args[0].c_str());
	char host[4096];
	struct stat st {};
	if (VEXOExtSysrootPath(("/sys/block/" + name).c_str(), host, sizeof(host)) != 0 || ::stat(host, &st) != 0)
		return fail("no disk %s", path.c_str());
	return 0;
}

// A cached integer of the disk, null when none is stored.
Value cachedInt(const std::string &path, const char *key)
{
	int v = 0;
	return VEXODiskGetIntValueCacheFile(path.c_str(), key, &v) == 0 ? Value(v) : Value();
}

Value cachedText(const std::string &path, const char *key)
{
	char v[256] = {};
	return VEXODiskGetStrValueCacheFile(path.c_str(), key, v, sizeof(v)) == 0 ? Value(v) : Value();
}

// A counter of the health records: null where the month has no value or
// the disk cannot tell.
Value counter(int valid, int value) { return valid ? Value(value) : Value(); }

// The label of the month `ago` months before this one ("2026/11").
std::string monthLabel(int ago)
{
	std::time_t now = std::time(nullptr);
	struct tm tm {};
	localtime_r(&now, &tm);
	int m = (tm.tm_year + 1900) * 12 + tm.tm_mon - ago;
	char name[16];
	std::snprintf(name, sizeof(name), "%04d/%02d", m / 12, m % 12 + 1);
	return name;
}

int healthHistory(Context &ctx)
{
	std::string path;
	if (int rc = diskArg(ctx, "health history DISK [--type monthly|cumulative] [--wake]", path))
		return rc;
	const std::string type = ctx.opt("type", "monthly");
	const int t = type == "monthly" ? VEXO_DISK_HEALTH_DIFF : type == "cumulative" ? VEXO_DISK_HEALTH_CUMULATIVE : -1;
	if (t < 0)
		return fail("--type is monthly (what each month added) or cumulative (the count at each month's end), not '%s'",
			    type.c_str());
	// This month's figures are the drive's SMART values.
	if (leaveAsleep(ctx, path))
		return 0;
	if (int rc = overviewWouldWake(ctx))
		return rc;
	DiskHealthHistoryEntry e[12] = {};
	if (VEXODiskHealthHistoryGet(path.c_str(), e, 12, t) != 0)
		return fail("can't read the health history of %s (VEXODiskHealthHistoryGet, error 0x%04X)", path.c_str(),
			    VLIBCErrGet());
	Value rows = Value::list();
	for (int i = 0; i < 12; ++i) {
		Value r = Value::object();
		r.set("month", monthLabel(11 - i));
		r.set("months_ago", 11 - i);
		r.set("bad_sectors", counter(e[i].uncValid, e[i].unc));
		r.set("idnf", counter(e[i].idnfValid, e[i].idnf));
		r.set("retry", counter(e[i].retryValid, e[i].retry));
		r.set("remain_life", counter(e[i].remainLifeValid, e[i].remainLife));
		rows.push(std::move(r));
	}
	if (ctx.json) {
		Value doc = Value::object();
		doc.set("disk", path);
		doc.set("type", type);
		doc.set("months", std::move(rows));
		printRecord(ctx, doc);
		return 0;
	}
	const std::string title = path + ": " +
				  (t == VEXO_DISK_HEALTH_DIFF ? "what each month added" : "counts at each month's end") +
				  " (- no value)";
	printTable(ctx, rows,
		   {{"month", "MONTH"}, {"bad_sectors", "BAD SECTORS"}, {"idnf", "IDNF"}, {"retry", "RETRY"},
		    {"remain_life", "LIFE %"}},
		   title.c_str());
	return 0;
}

int healthCurrent(Context &ctx)
{
	std::string path;
	if (int rc = diskArg(ctx, "health current DISK [--wake]", path))
		return rc;
	if (leaveAsleep(ctx, path))
		return 0;
	if (int rc = overviewWouldWake(ctx))
		return rc;
	DiskHealthAttr drive{}, total{};
	if (VEXODiskCurHealthSmartAttrGet(path.c_str(), &drive) != 0)
		return fail("can't read the health values of %s (VEXODiskCurHealthSmartAttrGet, error 0x%04X)",
			    path.c_str(), VLIBCErrGet());
	// The overview document adds the errors the kernel counted over the
	// disk's life in this box; the drive's own counters miss those.
	if (VEXODiskCurHealthAttrGet(path.c_str(), &total) != 0)
		return fail("can't read the health values of %s (VEXODiskCurHealthAttrGet, error 0x%04X)", path.c_str(),
			    VLIBCErrGet());
	Value r = Value::object();
	r.set("disk", path);
	r.set("bad_sectors", total.unc < 0 ? Value() : Value(total.unc));
	r.set("idnf", total.idnf);
	r.set("retry", total.retry);
	r.set("remain_life", total.remainLife < 0 ? Value() : Value(total.remainLife));
	r.set("life_attribute", total.lifeAttribute[0] ? Value(total.lifeAttribute) : Value());
	r.set("drive_idnf", drive.idnf);
	r.set("drive_retry", drive.retry);
	if (total.remainLife >= 0) {
		const int below = VEXODiskIsBelowLifeThrWithValue(path.c_str(), total.remainLife, nullptr, nullptr);
		r.set("below_life_threshold", below < 0 ? Value() : Value(below == 1));
		r.set("life_danger", VEXODiskIsLifeDangerWithValue(path.c_str(), total.remainLife) == 1);
	}
	printRecord(ctx, r);
	if (!ctx.json && total.unc < 0)
		std::printf("\n(bad_sectors -: the disk does not report them)\n");
	return 0;
}

const char *predictionMeaning(const std::string &word)
{
	if (word == "normal")
		return "no failure predicted";
	if (word == "warning")
		return "a failure is predicted: keep an eye on the disk";
	if (word == "critical")
		return "a failure is predicted soon: back up the disk's data";
	if (word == "failing")
		return "the disk is predicted to fail: replace it";
	return "no prediction has been published for this disk";
}

int healthPrediction(Context &ctx)
{
	std::string path;
	if (int rc = diskArg(ctx, "health prediction DISK", path))
		return rc;
	char word[16] = {};
	if (VEXODiskHealthPredictionStatusGet(path.c_str(), word, sizeof(word)) != 0)
		return fail("can't read the failure prediction of %s (VEXODiskHealthPredictionStatusGet, error 0x%04X)",
			    path.c_str(), VLIBCErrGet());
	Value r = Value::object();
	r.set("disk", path);
	r.set("prediction", word);
	r.set("weight", cachedInt(path, "predict_weight"));
	r.set("meaning", predictionMeaning(word));
	// The status mail reports it; the health verdict does not add it.
	r.set("in_verdict", false);
	printRecord(ctx, r);
	return 0;
}

Value advStatusWord(int status)
{
	char w[32] = {};
	return VEXODiskAdvStatusTransfer(status, w, sizeof(w)) == 0 ? Value(w) : Value();
}

int healthAdv(Context &ctx)
{
	std::string path;
	if (int rc = diskArg(ctx, "health adv DISK [--refresh]", path))
		return rc;
	// --refresh stores the answer where the health rollup reads it.
	if (ctx.has("refresh") && VEXODiskAdvStatusInit(path.substr(5).c_str()) != 0)
		return fail("can't store the advanced test status of %s (VEXODiskAdvStatusInit, error 0x%04X)", path.c_str(),
			    VLIBCErrGet());
	char status[32] = {}, code[64] = {}, section[256] = {}, key[256] = {};
	int weight = 0, modifiable = 0, muted = 0;
	if (VEXODiskAdvStatusGet(path.c_str(), status, sizeof(status), &weight, &modifiable, &muted, code, sizeof(code),
				 section, sizeof(section), key, sizeof(key)) != 0)
		return fail("can't read the advanced test status of %s (VEXODiskAdvStatusGet, error 0x%04X)", path.c_str(),
			    VLIBCErrGet());
	Value r = Value::object();
	r.set("disk", path);
	r.set("status", status);
	r.set("weight", weight);
	r.set("modifiable", modifiable != 0);
	r.set("muted", muted != 0);
	r.set("code", code[0] ? Value(code) : Value());
	r.set("section", section[0] ? Value(section) : Value());
	r.set("key", key[0] ? Value(key) : Value());
	// What the health rollup last stored, which may lag a test just ended.
	char cstatus[32] = {}, progress[64] = {};
	int cweight = 0;
	const bool cached =
		VEXODiskAdvStatusCacheGet(path.c_str(), cstatus, sizeof(cstatus), progress, sizeof(progress), &cweight) == 0;
	r.set("cached_status", cached ? Value(cstatus) : Value());
	r.set("cached_weight", cached ? Value(cweight) : Value());
	r.set("progress", cached && progress[0] ? Value(progress) : Value());
	printRecord(ctx, r);
	return 0;
}

// A test code as the configuration names its sections: short and plain.
bool plainCode(const std::string &code)
{
	if (code.empty() || code.size() > 48)
		return false;
	for (char c : code)
		if (!std::isalnum(static_cast<unsigned char>(c)) && c != '_' && c != '-')
			return false;
	return true;
}

int healthAdvCode(Context &ctx)
{
	if (ctx.args.size() != 1)
		return fail("usage: health adv-code CODE (a test code such as 000 or 102)");
	const std::string &code = ctx.args[0];
	if (!plainCode(code))
		return fail("'%s' is not a test code (letters, digits, '_' and '-', at most 48)", code.c_str());
	char status[16] = {}, section[256] = {}, key[256] = {}, weight[32] = {};
	int modifiable = 0;
	// 0 is both "unknown" and the failure answer; the error code tells them apart.
	VLIBCErrClear();
	const int n = VEXODiskAdvStatusMapping(code.c_str(), status, sizeof(status), section, sizeof(section), key,
					       sizeof(key), weight, sizeof(weight), &modifiable);
	if (n == 0 && VLIBCErrGet() != 0)
		return fail("can't map test code %s: %s (VEXODiskAdvStatusMapping, error 0x%04X)", code.c_str(),
			    VLIBCErrGet() == VEXO_ERR_NOT_FOUND ? "/etc.defaults/disk_adv_status.conf can't be read"
								: "the configuration can't be used",
			    VLIBCErrGet());
	Value r = Value::object();
	r.set("code", code);
	r.set("status", advStatusWord(n));
	r.set("status_number", n);
	r.set("configured", section[0] != 0 || key[0] != 0 || weight[0] != 0);
	r.set("section", section[0] ? Value(section) : Value());
	r.set("key", key[0] ? Value(key) : Value());
	r.set("weight", weight[0] ? Value(std::atoi(weight)) : Value());
	r.set("modifiable", modifiable != 0);
	printRecord(ctx, r);
	return 0;
}

int healthAnalytics(Context &ctx)
{
	std::string path;
	if (int rc = diskArg(ctx, "health analytics DISK", path))
		return rc;
	const int supported = VEXODiskWddaIsSupport(path.c_str());
	if (supported < 0)
		return fail("can't tell whether drive analytics cover %s (VEXODiskWddaIsSupport, error 0x%04X)",
			    path.c_str(), VLIBCErrGet());
	int code = 0, weight = 0;
	if (VEXODiskWddaStatusGet(path.c_str(), &code, &weight) != 0)
		return fail("can't read the drive analytics finding of %s (VEXODiskWddaStatusGet, error 0x%04X)",
			    path.c_str(), VLIBCErrGet());
	const Value published = cachedInt(path, "wdda_weight");
	Value r = Value::object();
	r.set("disk", path);
	r.set("supported", supported == 1);
	char hex[16];
	std::snprintf(hex, sizeof(hex), "0x%X", static_cast<unsigned>(code));
	r.set("finding", code ? Value(hex) : Value());
	r.set("published_weight", published);
	r.set("weight", weight);
	// A finding the user muted weighs nothing until a new code comes.
	r.set("muted", code != 0 && weight == 0 && !published.isNull() && published.text() != "0");
	r.set("cached_status", cachedText(path, "wdda_status"));
	int ccode = 0, cweight = 0;
	r.set("cached_weight", VEXODiskWddaStatusCacheGet(path.c_str(), &ccode, &cweight) == 0 ? Value(cweight) : Value());
	printRecord(ctx, r);
	return 0;
}

// ---- Error accounting -----------------------------------------------------------

struct ErrorSource {
	const char *name;   // as the user names it
	const char *attr;   // the kernel counter under /sys/block/<name>, or null: attribute 187
	const char *baseKey, *statusKey;
	int (*update)(const char *);
	int (*weight)(const char *, int *);
};

constexpr ErrorSource kSources[] = {
	{"timeout", "device/iotmo_cnt", "timeout_base", "timeout_status", VEXODiskErrorTimeoutStatusCacheUpdate,
	 VEXODiskErrorTimeoutStatusCacheGet},
	{"reset-fail", "device/ioerr_cnt", "reset_fail_base", "reset_fail_status", VEXODiskErrorResetFailStatusCacheUpdate,
	 VEXODiskErrorResetFailStatusCacheGet},
	{"unc", nullptr, "unc_base", "unc_status", VEXODiskErrorUncStatusCacheUpdate, VEXODiskErrorUncStatusCacheGet},
};

// A counter as the kernel shows it ("0x1f" or "31").
bool counterValue(const std::string &text, long long &out)
{
	const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
	if (text.empty() || text[0] == '-' || text[0] == '+' || (hex && text.size() == 2))
		return false;
	char *end = nullptr;
	errno = 0;
	out = std::strtoll(text.c_str() + (hex ? 2 : 0), &end, hex ? 16 : 10);
	return errno == 0 && *end == '\0';
}

// The source's count now, as its update reads it: the kernel's counter, or
// the raw attribute 187 of the SMART list last cached (never the drive).
// Null when the disk has no such counter.
Value errorCount(const std::string &path, const ErrorSource &src)
{
	const std::string name = path.substr(5);
	long long v = 0;
	if (src.attr) {
		const auto text = readBoxFile("/sys/block/" + name + "/" + src.attr);
		return text && counterValue(*text, v) ? Value(v) : Value();
	}
	SmartInfoEntry *list = nullptr;
	Value out;
	if (SmartInfoCacheGet(name.c_str(), &list) == 0)
		for (const SmartInfoEntry *e = list; e; e = e->next)
			if (e->id && std::strcmp(e->id, "187") == 0 && e->raw && counterValue(e->raw, v))
				out = Value(v);
	VEXODiskSmartInfoFree(list);
	return out;
}

Value errorRow(const std::string &path, const ErrorSource &src)
{
	Value r = Value::object();
	r.set("source", src.name);
	const Value count = errorCount(path, src);
	long long base = 0;
	const bool hasBase = VEXODiskGetLLIntValueCacheFile(path.c_str(), src.baseKey, &base) == 0;
	r.set("count", count);
	r.set("baseline", hasBase ? Value(base) : Value());
	r.set("new_errors", !count.isNull() && hasBase ? Value(std::atoll(count.text().c_str()) - base) : Value());
	int w = 0;
	r.set("weight", src.weight(path.c_str(), &w) == 0 ? Value(w) : Value());
	r.set("status", cachedText(path, src.statusKey));
	return r;
}

int healthErrors(Context &ctx)
{
	std::string path;
	if (int rc = diskArg(ctx, "health errors DISK [--refresh]", path))
		return rc;
	Value rows = Value::list();
	for (const ErrorSource &src : kSources) {
		// The updates read counters and the cached SMART list, never the drive.
		if (ctx.has("refresh") && src.update(path.c_str()) != 0)
			return fail("can't update the %s accounting of %s (error 0x%04X)", src.name, path.c_str(),
				    VLIBCErrGet());
		rows.push(errorRow(path, src));
	}
	const std::string title = path + ": errors since the baseline (" +
				  (ctx.has("refresh") ? "updated now" : "as last updated; --refresh updates") + ")";
	printTable(ctx, rows,
		   {{"source", "SOURCE"}, {"count", "COUNT"}, {"baseline", "BASELINE"}, {"new_errors", "NEW"},
		    {"weight", "WEIGHT"}, {"status", "STATUS"}},
		   title.c_str());
	return 0;
}

// Acknowledges the errors seen so far: the count becomes the baseline, and
// the weight is worked out again from there.
int healthErrorsAck(Context &ctx)
{
	std::string path;
	const char *usage = "health errors ack DISK timeout|reset-fail|unc|all";
	if (int rc = diskArg(ctx, usage, path, 2))
		return rc;
	const std::string &which = ctx.args[1];
	Value rows = Value::list();
	for (const ErrorSource &src : kSources) {
		if (which != "all" && which != src.name)
			continue;
		const Value count = errorCount(path, src);
		if (count.isNull()) {
			if (which != "all")
				return fail("%s has no %s counter to acknowledge", path.c_str(), src.name);
			continue;
		}
		const long long now = std::atoll(count.text().c_str());
		long long base = -1;
		const bool same = VEXODiskGetLLIntValueCacheFile(path.c_str(), src.baseKey, &base) == 0 && base == now;
		if (!same) {
			if (VEXODiskUpdateLLIntValueCacheFile(path.substr(5).c_str(), src.baseKey, now) != 0)
				return fail("can't store the %s baseline of %s (VEXODiskUpdateLLIntValueCacheFile, error 0x%04X)",
					    src.name, path.c_str(), VLIBCErrGet());
			if (src.update(path.c_str()) != 0)
				return fail("can't update the %s accounting of %s (error 0x%04X)", src.name, path.c_str(),
					    VLIBCErrGet());
		}
		Value r = errorRow(path, src);
		r.set("changed", !same);
		rows.push(std::move(r));
	}
	if (rows.asList().empty() && which != "all")
		return fail("usage: %s", usage);
	printTable(ctx, rows,
		   {{"source", "SOURCE"}, {"count", "COUNT"}, {"baseline", "BASELINE"}, {"weight", "WEIGHT"},
		    {"changed", "CHANGED"}});
	return 0;
}

// ---- The serial the user sees ------------------------------------------------

struct SerialState {
	std::string trueSerial;
	Value stored;       // the serial stored on the drive, null when none
	bool canStore = true; // false when the disk's interface has no place for one
};

// What the drive says: its true serial and the stored one. 0, or the exit status.
int serialState(const std::string &path, SerialState &s)
{
	char firmware[64] = {}, serial[64] = {};
	if (SmartFirmAndSerialRead(path.c_str(), firmware, sizeof(firmware), serial, sizeof(serial)) != 0)
		return fail("can't read the serial of %s (SmartFirmAndSerialRead, error 0x%04X)", path.c_str(),
			    VLIBCErrGet());
	s.trueSerial = serial;
	char stored[64] = {};
	if (VEXODiskMaskSerialGet(path.c_str(), stored, sizeof(stored)) == 0) {
		s.stored = Value(stored);
	} else {
		// Nothing stored reads as a failed or implausible page; only a disk
		// whose interface has no page at all can't take one.
		s.canStore = VLIBCErrGet() != VEXO_ERR_WRONG_IFACE;
	}
	return 0;
}

Value serialRecord(const std::string &path, const SerialState &s)
{
	Value r = Value::object();
	r.set("disk", path);
	r.set("true_serial", s.trueSerial);
	r.set("stored_serial", s.stored);
	r.set("can_store", s.canStore);
	const bool maker = VEXODiskIsVexology(path.c_str()) == 1;
	r.set("maker_drive", maker);
	r.set("mask", VEXODiskIsMaskSerial(path.c_str()) == 1);
	// The serial the user sees. On one of the maker's disks with nothing
	// stored, the first read stores it: that is left to the library's own
	// readers, so looking here writes nothing.
	Value shown;
	char ui[64] = {};
	if ((!s.stored.isNull() || !maker) && VEXODiskGetSerialForUi(path.c_str(), ui, sizeof(ui)) == 0)
		shown = Value(ui);
	r.set("shown_serial", shown);
	return r;
}

int maskSerial(Context &ctx)
{
	std::string path;
	if (int rc = diskArg(ctx, "disk mask-serial DISK [--wake]", path))
		return rc;
	// The stored serial lives on the drive's media.
	if (leaveAsleep(ctx, path))
		return 0;
	SerialState s;
	if (int rc = serialState(path, s))
		return rc;
	printRecord(ctx, serialRecord(path, s));
	return 0;
}

// What the library stores: 6 to 24 characters. A space or a control
// character would be shown as it is, unlike the drive's own serial.
int checkSerial(const std::string &serial)
{
	if (!VEXODiskSerialLengthCheck(serial.c_str()))
		return fail("'%s' can't be stored: a serial is 6 to 24 characters, not %zu", serial.c_str(), serial.size());
	for (char c : serial)
		if (c <= ' ' || c > '~')
			return fail("'%s' can't be stored: letters, digits and punctuation only, no spaces", serial.c_str());
	return 0;
}

// Stores `serial` unless the drive holds it already; prints what changed.
int storeSerial(Context &ctx, const std::string &path, const SerialState &s, const std::string &serial)
{
	if (!s.canStore)
		return fail("%s has no place to store a serial (its interface takes neither log page)", path.c_str());
	Value r = Value::object();
	r.set("disk", path);
	r.set("before", s.stored);
	r.set("serial", serial);
	const bool same = !s.stored.isNull() && s.stored.text() == serial;
	if (!same) {
		if (VEXODiskMaskSerialSet(path.c_str(), serial.c_str()) != 0)
			return fail("can't store the serial on %s (VEXODiskMaskSerialSet, error 0x%04X)", path.c_str(),
				    VLIBCErrGet());
		// A write the drive took but does not give back is no success.
		char back[64] = {};
		if (VEXODiskMaskSerialGet(path.c_str(), back, sizeof(back)) != 0 || serial != back)
			return fail("%s took the serial but reads back '%s' (error 0x%04X)", path.c_str(), back,
				    VLIBCErrGet());
	}
	r.set("changed", !same);
	printRecord(ctx, r);
	if (!ctx.json)
		std::printf("\n%s\n", same ? "The drive holds that serial already: nothing written."
					   : "Stored on the drive: the user sees this serial from now on.");
	return 0;
}

int maskSerialSet(Context &ctx)
{
	std::string path;
	if (int rc = diskArg(ctx, "disk mask-serial set DISK SERIAL", path, 2))
		return rc;
	if (int rc = checkSerial(ctx.args[1]))
		return rc;
	SerialState s;
	if (int rc = serialState(path, s))
		return rc;
	return storeSerial(ctx, path, s, ctx.args[1]);
}

// Nothing can be erased from the page; storing the drive's true serial
// makes the user see that one, and no masking is applied to it again.
int maskSerialClear(Context &ctx)
{
	std::string path;
	if (int rc = diskArg(ctx, "disk mask-serial clear DISK", path))
		return rc;
	SerialState s;
	if (int rc = serialState(path, s))
		return rc;
	if (!VEXODiskSerialLengthCheck(s.trueSerial.c_str()))
		return fail("the true serial of %s ('%s') is not 6 to 24 characters: the drive can't store it",
			    path.c_str(), s.trueSerial.c_str());
	return storeSerial(ctx, path, s, s.trueSerial);
}

// ---- SSD bundle ----------------------------------------------------------------

int ssdBundle(Context &ctx)
{
	std::string path;
	if (int rc = diskArg(ctx, "ssd-bundle DISK", path))
		return rc;
	int days = -1;
	if (VEXOSSDBundleDaysLeftGet(path.c_str(), &days) != 0)
		return fail("can't read the bundle's days left for %s (VEXOSSDBundleDaysLeftGet, error 0x%04X)",
			    path.c_str(), VLIBCErrGet());
	const int check = VEXOSSDBundleMonthLeftCheck(path.c_str());
	if (check < 0)
		return fail("can't check the months left of %s (VEXOSSDBundleMonthLeftCheck, error 0x%04X)", path.c_str(),
			    VLIBCErrGet());
	int months = 0;
	const bool thresholdOk = VEXOSSDBundleMonthLeftThresGet(&months) == 0;
	const bool enabled = VEXOSSDBundleMonthLeftWarnEnableGet() == 1;
	int weight = 0;
	const bool weightOk = VEXOSSDBundleWarningWeightGet(path.c_str(), &weight) == 0;
	Value r = Value::object();
	r.set("disk", path);
	r.set("in_bundle", days >= 0);
	r.set("days_left", days >= 0 ? Value(days) : Value());
	// Months as the life warning mail counts them.
	r.set("months_left", days >= 0 ? Value((days % 365) / 30 + (days / 365) * 12) : Value());
	r.set("month_warning_enabled", enabled);
	r.set("month_threshold", thresholdOk ? Value(months) : Value());
	r.set("at_or_below_threshold", check == 1);
	r.set("warning_weight", weightOk ? Value(weight) : Value());
	printRecord(ctx, r);
	if (!ctx.json && !thresholdOk)
		std::printf("\n(month_threshold -: ssd_bundle_month_left_thr_value is not a whole number from 1 to 120)\n");
	return 0;
}

} // namespace

VEXO_CLI_COMMAND("health history", "DISK [--type monthly|cumulative] [--wake]",
		 "twelve months of bad sectors, IDNF, retries and life, this month from the drive", healthHistory,
		 {"type"});
VEXO_CLI_COMMAND("health current", "DISK [--wake]", "the disk's health figures now: bad sectors, IDNF, retries, life",
		 healthCurrent, {});
VEXO_CLI_COMMAND("health prediction", "DISK", "the published failure prediction and its weight", healthPrediction, {});
VEXO_CLI_COMMAND("health adv", "DISK [--refresh]",
		 "the advanced test's status: weight, code, whether muted or mutable, and what the rollup has cached",
		 healthAdv, {});
VEXO_CLI_COMMAND("health adv-code", "CODE", "what an advanced test code maps to in the configuration", healthAdvCode,
		 {});
VEXO_CLI_COMMAND("health analytics", "DISK", "the drive analytics finding, its weight and whether it is muted",
		 healthAnalytics, {});
VEXO_CLI_COMMAND("health errors", "DISK [--refresh]",
		 "command timeouts, failed resets and uncorrectable reads: count, baseline, weight", healthErrors, {});
VEXO_CLI_COMMAND("health errors ack", "DISK timeout|reset-fail|unc|all",
		 "acknowledge the errors seen so far: the count becomes the baseline", healthErrorsAck, {});
VEXO_CLI_COMMAND("disk mask-serial", "DISK [--wake]", "the true, stored and shown serial of a disk", maskSerial, {});
VEXO_CLI_COMMAND("disk mask-serial set", "DISK SERIAL", "store the serial the user sees on the drive", maskSerialSet,
		 {});
VEXO_CLI_COMMAND("disk mask-serial clear", "DISK", "make the user see the drive's true serial", maskSerialClear, {});
VEXO_CLI_COMMAND("ssd-bundle", "DISK", "the SSD bundle's days left, month threshold and warning", ssdBundle, {});
