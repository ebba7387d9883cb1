// Expansion units, the rest of the ops table: supplies, power button, switch
// mode, fans, LEDs and the unit's disk paths. An operation runs only when the
// unit's own (device-level) table holds it: the unit-level wrappers answer 0
// for a missing one, which a caller could not tell from a real 0.
#include <cstdlib>
#include <cstring>
#include <string>

#include <vexohw/ebox.h>
#include <vexohw/ext.h>
#include <vexoplatform/ebox_info.h>

#include "asleep.h"
#include "cli.h"
#include "eunit_handle.h"

using namespace vexo::cli;

namespace {


template <typename S>
bool has(const Unit &u, S VEXO_EBOX_HANDLE::*slot)
{
	return u.h.inner && u.h.inner->*slot;
}

int unsupported(const Unit &u, const char *what)
{
	return fail("unit %d (%s, %s family) does not support %s", u.info.unit, u.info.unique, family(u.info.deviceId),
		    what);
}

int failed(const Unit &u, const char *call)
{
	return fail("unit %d: %s failed (VLIBCErrGet 0x%X)", u.info.unit, call, VLIBCErrGet());
}

// Opens the unit named by the first argument; false (with the message out)
// when there is none.
bool unitArg(Context &ctx, size_t minArgs, size_t maxArgs, const char *usage, Unit &u, int &status)
{
	if (ctx.args.size() < minArgs || ctx.args.size() > maxArgs) {
		status = fail("usage: eunit %s", usage);
		return false;
	}
	if (!findUnit(ctx.args[0], u)) {
		status = fail("no expansion unit %s", ctx.args[0].c_str());
		return false;
	}
	return true;
}

Value base(const Unit &u)
{
	Value r = Value::object();
	r.set("unit", u.info.unit);
	r.set("model", u.info.unique);
	return r;
}

int eunitPsu(Context &ctx)
{
	Unit u;
	int st;
	if (!unitArg(ctx, 1, 1, "psu UNIT", u, st))
		return st;
	if (!has(u, &VEXO_EBOX_HANDLE::RedundantPowerStatGet))
		return unsupported(u, "redundant power supplies");
	int states[8] = {};
	int n = u.h.RedundantPowerStatGet(&u.h, states, 8);
	if (n < 0)
		return failed(u, "RedundantPowerStatGet");
	if (n == 0) // what the unit answers while the kernel handles its port's errors
		return fail("unit %d: no supply states now (the port's error handling is busy)", u.info.unit);
	Value rows = Value::list();
	for (int i = 0; i < n && i < 8; ++i) {
		Value r = base(u);
		r.set("supply", i + 1);
		r.set("state", states[i] ? "good" : "failed");
		rows.push(r);
	}
	printTable(ctx, rows, {{"unit", "UNIT"}, {"supply", "SUPPLY"}, {"state", "STATE"}});
	return 0;
}

int eunitButton(Context &ctx)
{
	Unit u;
	int st;
	if (!unitArg(ctx, 1, 2, "button UNIT [enable|disable]", u, st))
		return st;
	int want = -1;
	if (ctx.args.size() == 2) {
		if (ctx.args[1] != "enable" && ctx.args[1] != "disable")
			return fail("usage: eunit button UNIT [enable|disable]");
		want = ctx.args[1] == "disable";
	}
	Value r = base(u);
	bool supported = u.h.IsSupportPowerBtnDisable(&u.h) == 1;
	r.set("supported", supported);
	if (!supported) {
		if (want >= 0)
			return unsupported(u, "disabling its power button");
		r.set("disabled", Value());
		printRecord(ctx, r);
		return 0;
	}
	int now = u.h.IsPowerBtnDisabled(&u.h);
	if (now < 0)
		return failed(u, "IsPowerBtnDisabled");
	if (want >= 0 && want != now) {
		if (u.h.PowerBtnDisableSet(&u.h, want) != 0)
			return failed(u, "PowerBtnDisableSet");
		now = u.h.IsPowerBtnDisabled(&u.h);
		if (now < 0)
			return failed(u, "IsPowerBtnDisabled");
		if (now != want)
			return fail("unit %d: the power button is still %s", u.info.unit, now ? "disabled" : "enabled");
		r.set("disabled", now == 1);
		r.set("changed", true);
	} else {
		r.set("disabled", now == 1);
		if (want >= 0)
			r.set("changed", false);
	}
	printRecord(ctx, r);
	return 0;
}

int eunitMode(Context &ctx)
{
	Unit u;
	int st;
	if (!unitArg(ctx, 1, 1, "mode UNIT", u, st))
		return st;
	if (!has(u, &VEXO_EBOX_HANDLE::SwitchModeGet))
		return unsupported(u, "a switch mode");
	int mode = -1;
	if (u.h.SwitchModeGet(&u.h, &mode) != 0)
		return failed(u, "SwitchModeGet");
	Value r = base(u);
	r.set("mode", mode);
	printRecord(ctx, r);
	return 0;
}

int eunitFans(Context &ctx)
{
	Unit u;
	int st;
	if (!unitArg(ctx, 1, 1, "fans UNIT", u, st))
		return st;
	if (!has(u, &VEXO_EBOX_HANDLE::FanNumberGet))
		return unsupported(u, "fan status");
	int n = u.h.FanNumberGet(&u.h);
	if (n < 0)
		return failed(u, "FanNumberGet");
	constexpr int kMax = 8;
	if (n > kMax)
		n = kMax;
	// A flag-form FanErr sets errs[0] only: the others keep -1, and then
	// the failure is the unit's, not a fan's.
	int errs[kMax];
	for (int &e : errs)
		e = -1;
	bool perFan = false;
	if (n > 0 && has(u, &VEXO_EBOX_HANDLE::FanErr)) {
		if (u.h.FanErr(&u.h, errs, n) < 0)
			return failed(u, "FanErr");
		perFan = n == 1 || errs[n - 1] != -1;
	}
	Value rows = Value::list();
	for (int f = 1; f <= n; ++f) {
		Value r = base(u);
		r.set("fan", f);
		int rpm = 0;
		if (!has(u, &VEXO_EBOX_HANDLE::FanSpeedGet))
			r.set("rpm", Value());
		else if (u.h.FanSpeedGet(&u.h, f, &rpm) != 0)
			return failed(u, "FanSpeedGet");
		else
			r.set("rpm", rpm);
		if (errs[0] == -1)
			r.set("failed", Value());
		else
			r.set("failed", perFan ? errs[f - 1] == 1 : errs[0] == 1);
		r.set("failure_of", errs[0] == -1 ? Value() : Value(perFan ? "fan" : "unit"));
		rows.push(r);
	}
	printTable(ctx, rows,
		   {{"unit", "UNIT"}, {"fan", "FAN"}, {"rpm", "RPM"}, {"failed", "FAILED"}, {"failure_of", "REPORTED PER"}});
	return 0;
}

struct Led {
	const char *name;
	int (*VEXO_EBOX_HANDLE::*slot)(VEXO_EBOX_HANDLE_T *, int);
	bool blinks;
};

const Led kLeds[] = {
	{"alarm", &VEXO_EBOX_HANDLE::LedAlarmCTL, true},
	{"raid-ready", &VEXO_EBOX_HANDLE::LedRaidReadyCTL, true},
	{"light", &VEXO_EBOX_HANDLE::LedDiskLightCTL, false},
	{"deep-sleep", &VEXO_EBOX_HANDLE::DeepSleepLedCTL, false},
};

const char *const kDiskStates[] = {"off", "green", "orange", "orange-blink"};

int indexOf(const std::string &s, const char *const *names, int count)
{
	for (int i = 0; i < count; ++i)
		if (s == names[i])
			return i;
	return -1;
}

// The unit's LEDs have no read-back in the ops table, so a command is
// always sent.
int eunitLed(Context &ctx)
{
	Unit u;
	int st;
	static const char kUsage[] = "led UNIT alarm|raid-ready|light|deep-sleep on|off, or led UNIT disk N|all "
				     "off|green|orange|orange-blink";
	if (!unitArg(ctx, 3, 4, kUsage, u, st))
		return st;
	Value r = base(u);
	const std::string &what = ctx.args[1];
	if (what == "disk") {
		if (ctx.args.size() != 4)
			return fail("usage: eunit %s", kUsage);
		int state = indexOf(ctx.args[3], kDiskStates, 4);
		if (state < 0)
			return fail("unknown disk LED state %s (off, green, orange, orange-blink)", ctx.args[3].c_str());
		if (ctx.args[2] == "all") {
			if (!has(u, &VEXO_EBOX_HANDLE::LedDiskStatAllCTL))
				return unsupported(u, "the disk status LEDs");
			if (u.h.LedDiskStatAllCTL(&u.h, state) != 0)
				return failed(u, "LedDiskStatAllCTL");
			r.set("led", "disk all");
		} else {
			if (!has(u, &VEXO_EBOX_HANDLE::LedDiskStatCTL))
				return unsupported(u, "the disk status LEDs");
			char *end = nullptr;
			long disk = std::strtol(ctx.args[2].c_str(), &end, 10);
			int bays = u.h.MaxDiskGet(&u.h);
			if (ctx.args[2].empty() || *end || disk < 1 || disk > bays)
				return fail("unit %d has no disk %s (1..%d)", u.info.unit, ctx.args[2].c_str(), bays);
			if (u.h.LedDiskStatCTL(&u.h, static_cast<int>(disk), state) != 0)
				return failed(u, "LedDiskStatCTL");
			r.set("led", "disk " + ctx.args[2]);
		}
		r.set("state", kDiskStates[state]);
		printRecord(ctx, r);
		return 0;
	}
	const Led *led = nullptr;
	for (const Led &l : kLeds)
		if (what == l.name)
			led = &l;
	if (!led || ctx.args.size() != 3)
		return fail("usage: eunit %s", kUsage);
	static const char *const kStates[] = {"off", "on", "blink"};
	int state = indexOf(ctx.args[2], kStates, led->blinks ? 3 : 2);
	if (state < 0)
		return fail("unknown state %s for the %s LED (%s)", ctx.args[2].c_str(), led->name,
			    led->blinks ? "on, off or blink" : "on or off");
	if (!has(u, led->slot))
		return unsupported(u, (std::string("the ") + led->name + " LED").c_str());
	if ((u.h.*(led->slot))(&u.h, state) != 0)
		return failed(u, (std::string("the ") + led->name + " LED").c_str());
	r.set("led", led->name);
	r.set("state", kStates[state]);
	printRecord(ctx, r);
	return 0;
}

int eunitDisks(Context &ctx)
{
	Unit u;
	int st;
	if (!unitArg(ctx, 1, 1, "disks UNIT", u, st))
		return st;
	if (!has(u, &VEXO_EBOX_HANDLE::MaxDiskGet))
		return unsupported(u, "a disk list");
	int n = u.h.MaxDiskGet(&u.h);
	if (n < 0)
		return failed(u, "MaxDiskGet");
	Value rows = Value::list();
	for (int bay = 1; bay <= n; ++bay) {
		char path[VEXO_EBOX_PATH_MAX] = {};
		if (u.h.DiskPathGet(&u.h, bay, path, sizeof path) != 0)
			return failed(u, "DiskPathGet");
		Value r = base(u);
		r.set("bay", bay);
		r.set("disk", path);
		// The question that leaves a sleeping disk asleep.
		r.set("power_mode", powerModeName(VEXOExtDiskPowerModeGet(path)));
		rows.push(r);
	}
	printTable(ctx, rows, {{"unit", "UNIT"}, {"bay", "BAY"}, {"disk", "DISK"}, {"power_mode", "POWER"}});
	return 0;
}

} // namespace

VEXO_CLI_COMMAND("eunit psu", "UNIT", "a unit's redundant power supplies: good or failed", eunitPsu, {});
VEXO_CLI_COMMAND("eunit button", "UNIT [enable|disable]",
		 "a unit's power button: can it be disabled, is it; set it (nothing sent when it is so already)",
		 eunitButton, {});
VEXO_CLI_COMMAND("eunit mode", "UNIT", "a unit's switch mode", eunitMode, {});
VEXO_CLI_COMMAND("eunit fans", "UNIT", "each fan of a unit: rpm and failure", eunitFans, {});
VEXO_CLI_COMMAND("eunit led", "UNIT alarm|raid-ready|light|deep-sleep on|off | UNIT disk N|all STATE",
		 "set a unit's LED (disk LED STATE: off, green, orange, orange-blink)", eunitLed, {});
VEXO_CLI_COMMAND("eunit disks", "UNIT", "the device path of each bay of a unit, and its power mode", eunitDisks, {});
