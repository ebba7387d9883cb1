// Support-engineer views: the debug overrides a test rig set for a disk and
// the disk's action flags (`debug DISK`), the buzzer-off mask set or cleared
// (`buzzer off-config set`), the boot step (`system boot-step`), and one
// notification spooled by hand (`notify send`).
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <vector>

#include <vexohw/disk_debug.h>
#include <vexohw/disk_state.h>
#include <vexohw/ext.h>
#include <vexohw/led.h>
#include <vexohw/smart_info.h>
#include <vexoplatform/bootseq.h>
#include <vexoplatform/sysnotify.h>
#include <vexoplatform/vexocore.h>

#include "asleep.h"
#include "cli.h"
#include "disk_args.h"
#include "spool.h"

using namespace vexo::cli;

namespace {

// ---- debug DISK -------------------------------------------------------------

const char *testResultName(int v)
{
	switch (v) {
	case 1:
		return "completed";
	case 2:
		return "aborted";
	case 3:
		return "interrupted";
	case 4:
		return "damage";
	case 6:
		return "none";
	}
	return "unknown";
}

// The flag bits of the disk action database the library acts on.
struct ActionBit {
	unsigned bit;
	const char *name;
};
constexpr ActionBit kActionBits[] = {
	{14, "no-sct-commands"},
	{25, "no-self-test"},
};

Value actionNames(unsigned flags)
{
	Value names = Value::list();
	for (unsigned b = 0; b < 32; ++b) {
		if (!(flags & (1u << b)))
			continue;
		const char *name = nullptr;
		for (const auto &a : kActionBits)
			if (a.bit == b)
				name = a.name;
		names.push(name ? std::string(name) : "bit-" + std::to_string(b));
	}
	return names;
}

struct Override {
	std::string key, value, replaces;
};

// One failed reader ends the listing: the serial or memory was missing,
// and every other reader would fail the same way.
struct Readers {
	explicit Readers(const std::string &p) : path(p) {}
	const std::string &path;
	std::vector<Override> found;
	Value smartInfo = Value::list();
	int failedError = 0;
	std::string failedCall;

	bool check(int rc, const char *call)
	{
		if (rc >= 0)
			return rc == 1;
		if (failedCall.empty()) {
			failedCall = call;
			failedError = VLIBCErrGet();
		}
		return false;
	}

	void add(const char *key, std::string value, const char *replaces)
	{
		found.push_back({key, std::move(value), replaces});
	}

	void readAll()
	{
		SmartInfoEntry *list = nullptr;
		if (check(VEXODiskDebugSmartInfoListGet(path.c_str(), &list), "VEXODiskDebugSmartInfoListGet")) {
			int n = 0;
			for (SmartInfoEntry *e = list; e; e = e->next, ++n) {
				Value a = Value::object();
				a.set("id", e->id ? e->id : "");
				a.set("value", e->value ? e->value : "");
				a.set("worst", e->worst ? e->worst : "");
				a.set("threshold", e->threshold ? e->threshold : "");
				a.set("raw", e->raw ? e->raw : "");
				smartInfo.push(a);
			}
			add("smart_info", std::to_string(n) + " attribute(s)", "the SMART attribute list");
		}
		VEXODiskSmartInfoFree(list);
		if (!failedCall.empty())
			return;
		static const struct {
			const char *key, *replaces;
		} tests[] = {{"smart_test_quick", "the quick self-test's result"},
			     {"smart_test_extend", "the extended self-test's result"},
			     {"smart_test", "the last self-test's result"}};
		for (const auto &t : tests) {
			int v = 0;
			if (check(VEXODiskDebugSmartTestResultGet(path.c_str(), t.key, &v), "VEXODiskDebugSmartTestResultGet"))
				add(t.key, testResultName(v), t.replaces);
		}
		int type = 0;
		if (check(SMARTDiskDebugSmartLatestTestTypeGet(path.c_str(), &type), "SMARTDiskDebugSmartLatestTestTypeGet"))
			add("latest_test_type", type == 1 ? "quick" : type == 2 ? "extend" : std::to_string(type),
			    "the type of the latest self-test");
		char code[256] = {};
		if (check(VEXODiskDebugAdvTestCodeGet(path.c_str(), code, sizeof code), "VEXODiskDebugAdvTestCodeGet"))
			add("adv_code", code, "the advanced test's result code");
		unsigned u = 0;
		if (check(VEXODiskDebugUncGet(path.c_str(), &u), "VEXODiskDebugUncGet"))
			add("unc", std::to_string(u), "the uncorrectable error count");
		if (check(VEXODiskDebugLifeGet(path.c_str(), &u), "VEXODiskDebugLifeGet"))
			add("life", std::to_string(u), "the remaining life (%)");
		int temp = 0;
		if (check(VEXODiskDebugTemperatureGet(path.c_str(), &temp), "VEXODiskDebugTemperatureGet"))
			add("temp", std::to_string(temp), "the drive's temperature (C)");
		if (check(VEXONVMeDebugCritWarningGet(path.c_str(), &u), "VEXONVMeDebugCritWarningGet")) {
			char hex[16];
			std::snprintf(hex, sizeof hex, "0x%x", u);
			add("crit", hex, "the NVMe critical warning bits");
		}
		if (check(VEXONVMeDebugPercentageUsedGet(path.c_str(), &u), "VEXONVMeDebugPercentageUsedGet"))
			add("perc_used", std::to_string(u), "the NVMe percentage used");
	}
};

int debugDisk(Context &ctx)
{
	if (ctx.args.size() != 1)
		return fail("usage: debug DISK [--wake]");
	const std::string path = devicePath(ctx.args[0]);
	char host[4096];
	struct stat st {};
	if (VEXOExtSysrootPath(path.c_str(), host, sizeof host) != 0 || ::stat(host, &st) != 0)
		return fail("debug: no disk %s", path.c_str());

	Value r = Value::object();
	r.set("disk", path);
	const int mode = VEXOExtDiskPowerModeGet(path.c_str());
	r.set("power_mode", powerModeName(mode));

	// The model comes from the kernel and the database from a file: no
	// word to the drive.
	unsigned flags = 0;
	if (VEXODiskConfigDiskActionGet(path.c_str(), &flags) == 0) {
		char hex[16];
		std::snprintf(hex, sizeof hex, "0x%x", flags);
		r.set("action_flags", hex);
		r.set("actions", actionNames(flags));
	} else {
		r.set("action_flags", Value());
		r.set("actions", Value());
		r.set("action_error", VLIBCErrGet());
	}

	const bool honoured = VLIBCSupportDiskStatusDebug() != 0;
	const bool haveFile = readBoxFile(VEXO_DISK_STATUS_DEBUG_FILE).has_value();
	r.set("overrides_honoured", honoured);
	r.set("override_file", haveFile);

	// Each reader first asks the drive its true serial, which would spin a
	// sleeping disk up: only when there is something to look up.
	std::string why;
	Readers rd{path};
	bool read = false;
	if (!honoured)
		why = "this product ignores " VEXO_DISK_STATUS_DEBUG_FILE " (support_disk_status_debug is not yes)";
	else if (!haveFile)
		why = "no " VEXO_DISK_STATUS_DEBUG_FILE " on the box";
	else if (mode == VEXO_EXT_POWER_STANDBY && !ctx.has("wake"))
		why = path + " is asleep: its serial names its section, and reading it would wake it (--wake reads it anyway)";
	else {
		rd.readAll();
		read = true;
	}
	if (!rd.failedCall.empty())
		return fail("debug %s: %s failed (error 0x%04X; --verbose tells more)", path.c_str(), rd.failedCall.c_str(),
			    rd.failedError);
	r.set("overrides_read", read);
	Value rows = Value::list();
	for (const Override &o : rd.found) {
		Value row = Value::object();
		row.set("key", o.key);
		row.set("value", o.value);
		row.set("replaces", o.replaces);
		rows.push(row);
	}
	if (ctx.json) {
		r.set("overrides", rows);
		r.set("smart_info", rd.smartInfo);
		r.set("note", why.empty() ? Value() : Value(why));
		printRecord(ctx, r);
		return 0;
	}
	printRecord(ctx, r);
	std::printf("\n");
	if (!why.empty())
		std::printf("no overrides read: %s\n", why.c_str());
	else if (rd.found.empty())
		std::printf("%s has no debug overrides: every value is the drive's own.\n", path.c_str());
	else {
		printTable(ctx, rows, {{"key", "KEY"}, {"value", "VALUE"}, {"replaces", "REPLACES"}},
			   "debug overrides in force");
		if (!rd.smartInfo.asList().empty()) {
			std::printf("\n");
			printTable(ctx, rd.smartInfo,
				   {{"id", "ID"}, {"value", "VALUE"}, {"worst", "WORST"}, {"threshold", "THRESH"}, {"raw", "RAW"}},
				   "SMART attributes as overridden");
		}
	}
	return 0;
}

// ---- buzzer off-config set MASK on|off -------------------------------------

// A mask given in decimal or 0x hexadecimal, one or more bits of an int.
bool parseMask(const std::string &text, int &mask)
{
	if (text.empty() || text.size() > 12 || text[0] == '-' || text[0] == '+')
		return false;
	char *end = nullptr;
	errno = 0;
	unsigned long v = std::strtoul(text.c_str(), &end, 0);
	if (*end || errno || v == 0 || v > 0x7FFFFFFFul)
		return false;
	mask = static_cast<int>(v);
	return true;
}

std::string hexOf(int v)
{
	char b[16];
	std::snprintf(b, sizeof b, "0x%x", static_cast<unsigned>(v));
	return b;
}

int buzzerOffSet(Context &ctx)
{
	int mask = 0;
	if (ctx.args.size() != 2 || (ctx.args[1] != "on" && ctx.args[1] != "off"))
		return fail("usage: buzzer off-config set MASK on|off");
	if (!parseMask(ctx.args[0], mask))
		return fail("buzzer off-config set: bad mask '%s' (a non-zero number, decimal or 0x hexadecimal)",
			    ctx.args[0].c_str());
	const bool on = ctx.args[1] == "on";
	const int before = VEXOBuzzerOffConfigGet();
	if (before < 0)
		return fail("buzzer off-config set: VEXOBuzzerOffConfigGet failed (error 0x%04X)", VLIBCErrGet());
	const int wanted = on ? (before | mask) : (before & ~mask);
	Value r = Value::object();
	r.set("mask", hexOf(mask));
	r.set("silenced", on);
	r.set("before", hexOf(before));
	if (wanted == before) {
		r.set("after", hexOf(before));
		r.set("changed", false);
		printRecord(ctx, r);
		if (!ctx.json)
			std::printf("\nnothing written: the bits are %s already\n", on ? "set" : "clear");
		return 0;
	}
	if (VEXOBuzzerOffConfigSet(mask, on ? 1 : 0) != 0) {
		// The setting is stored before the daemon is told: say which half failed.
		const int error = VLIBCErrGet();
		if (VEXOBuzzerOffConfigGet() == wanted)
			return fail("buzzer off-config set: %s stored, but the daemon was not told: VEXOBuzzerOffConfigSet "
				    "failed (error 0x%04X; --verbose tells more)",
				    hexOf(wanted).c_str(), error);
		return fail("buzzer off-config set: VEXOBuzzerOffConfigSet failed (error 0x%04X; --verbose tells more); "
			    "the setting stays %s",
			    error, hexOf(before).c_str());
	}
	const int after = VEXOBuzzerOffConfigGet();
	r.set("after", after >= 0 ? Value(hexOf(after)) : Value());
	r.set("changed", true);
	printRecord(ctx, r);
	return 0;
}

// ---- system boot-step ----------------------------------------------------------

int bootStep(Context &ctx)
{
	if (!ctx.args.empty())
		return fail("usage: system boot-step");
	const int step = VEXOSystemGetBootStep();
	if (step < 0)
		return fail("system boot-step: VEXOSystemGetBootStep failed (error 0x%04X): %s holds no number",
			    VLIBCErrGet(), VEXO_BOOT_STEP_FILE);
	const bool tracked = readBoxFile(VEXO_BOOT_STEP_FILE).has_value();
	Value r = Value::object();
	r.set("step", step);
	r.set("running", step == VEXO_BOOT_STEP_RUNNING);
	r.set("meaning", step == VEXO_BOOT_STEP_RUNNING ? "up: services running, the network usable"
							 : "still booting: a step of the boot scripts");
	r.set("source", tracked ? VEXO_BOOT_STEP_FILE : "none (nothing tracks this root's boot: taken as up)");
	printRecord(ctx, r);
	return 0;
}

// ---- notify send TAG KEY=VALUE... --------------------------------------------

struct Hash {
	PVLIBSZHASH p = nullptr;
	Hash() = default;
	Hash(const Hash &) = delete;
	Hash &operator=(const Hash &) = delete;
	~Hash() { VLIBCSzHashFree(p); }
};

int notifySend(Context &ctx)
{
	if (ctx.args.empty())
		return fail("usage: notify send TAG [KEY=VALUE...]");
	const std::string &tag = ctx.args[0];
	if (tag.empty() || tag.find_first_of("=\n\r") != std::string::npos)
		return fail("notify send: bad tag '%s' (a word without '=' or line breaks)", tag.c_str());
	Hash hash;
	hash.p = VLIBCSzHashAlloc(8);
	if (!hash.p)
		return fail("notify send: out of memory");
	Value fields = Value::object();
	for (size_t i = 1; i < ctx.args.size(); ++i) {
		const std::string &a = ctx.args[i];
		size_t eq = a.find('=');
		if (eq == std::string::npos || eq == 0)
			return fail("notify send: bad pair '%s' (KEY=VALUE, KEY not empty)", a.c_str());
		std::string k = a.substr(0, eq), v = a.substr(eq + 1);
		if (k.find_first_of("\n\r") != std::string::npos || k == "tag" || k == "time")
			return fail("notify send: bad key '%s' (no line breaks; tag and time are the spool's own)", k.c_str());
		if (fields.get(k))
			return fail("notify send: key '%s' given twice", k.c_str());
		if (VLIBCSzHashSetValue(&hash.p, k.c_str(), v.c_str()) < 0)
			return fail("notify send: cannot hold '%s' (error 0x%04X)", k.c_str(), VLIBCErrGet());
		fields.set(k, v);
	}
	std::string dir;
	std::vector<std::string> before, after;
	if (!spoolNames(dir, before))
		return fail("notify send: cannot place the spool");
	if (VEXOSysNotifySendNotifiction(tag.c_str(), hash.p) < 0)
		return fail("notify send: VEXOSysNotifySendNotifiction failed (error 0x%04X; --verbose tells more)",
			    VLIBCErrGet());
	spoolNames(dir, after);
	// The file this call wrote: the one name that was not there before.
	Value file;
	for (const std::string &n : after)
		if (!std::binary_search(before.begin(), before.end(), n))
			file = Value(std::string(VEXO_NOTIFY_SPOOL_DIR "/") + n);
	Value r = Value::object();
	r.set("tag", tag);
	r.set("file", file);
	r.set("fields", ctx.json ? fields : Value(std::to_string(ctx.args.size() - 1) + " placeholder(s)"));
	r.set("waiting", static_cast<int>(after.size()));
	printRecord(ctx, r);
	if (!ctx.json)
		for (const auto &[k, v] : fields.asObject())
			std::printf("  %s = %s\n", k.c_str(), v.text().c_str());
	return 0;
}

VEXO_CLI_COMMAND("debug", "DISK [--wake]",
		 "the debug overrides in force for a disk, what each replaces, and its disk action flags", debugDisk, {});
VEXO_CLI_COMMAND("buzzer off-config set", "MASK on|off",
		 "silence (on) or unsilence (off) the buzzer bits of MASK; nothing written when so already", buzzerOffSet, {});
VEXO_CLI_COMMAND("system boot-step", "", "how far the boot has come (4: up)", bootStep, {});
VEXO_CLI_COMMAND("notify send", "TAG [KEY=VALUE...]", "spool one notification, as the library's callers do",
		 notifySend, {});

} // namespace
