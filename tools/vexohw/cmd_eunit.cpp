// Expansion units through their handles: what each unit is and can do, its
// power and fans, and the fan speed and power set through the ops table.
#include <cstring>
#include <string>
#include <strings.h>

#include <vexohw/ebox.h>
#include <vexohw/ext.h>
#include <vexoplatform/ebox_info.h>

#include "cli.h"
#include "eunit_handle.h"

using namespace vexo::cli;

namespace {

int eunitList(Context &ctx)
{
	VEXO_EBOX_INFO units[VEXO_EBOX_MAX_UNITS];
	int n = VEXOEBoxInfoEnum(units, VEXO_EBOX_MAX_UNITS);
	if (n < 0)
		return fail("cannot enumerate the expansion units");
	Value rows = Value::list();
	for (int i = 0; i < n; ++i) {
		Unit u;
		Value r = Value::object();
		r.set("unit", units[i].unit);
		r.set("host", units[i].host);
		r.set("model", units[i].unique);
		r.set("deviceid", units[i].deviceId);
		r.set("family", family(units[i].deviceId));
		if (!openUnit(units[i], u)) {
			r.set("power", Value());
			rows.push(r);
			continue;
		}
		VEXO_EBOX_HANDLE_T *h = &u.h;
		int on = h->IsPowerOn(h);
		r.set("power", on == 1 ? "on" : on == 0 ? "off" : "unknown");
		int fans = h->FanNumberGet(h);
		r.set("fans", fans);
		int errs[8] = {};
		std::string failed;
		if (fans > 0 && h->FanErr(h, errs, fans > 8 ? 8 : fans) > 0)
			for (int f = 0; f < fans && f < 8; ++f)
				if (errs[f])
					failed += (failed.empty() ? "" : ",") + std::to_string(f + 1);
		r.set("failed_fans", failed.empty() ? Value() : Value(failed));
		r.set("disks", h->MaxDiskGet(h));
		r.set("power_button_lock", h->IsSupportPowerBtnDisable(h) ? Value(h->IsPowerBtnDisabled(h) == 1) : Value());
		rows.push(r);
	}
	printTable(ctx, rows,
		   {{"unit", "UNIT"}, {"host", "HOST"}, {"model", "MODEL"}, {"family", "FAMILY"}, {"power", "POWER"},
		    {"fans", "FANS"}, {"failed_fans", "FAILED"}, {"disks", "BAYS"}});
	return 0;
}

// A FAN_SPEED code as a number (1..9) or as its name.
int speedCode(const std::string &s)
{
	char buf[32];
	for (unsigned code = 1; code <= 9; ++code)
		if (s == std::to_string(code) ||
		    (VEXOExtFanSpeedText(code, buf, sizeof buf) == 0 && strcasecmp(buf, s.c_str()) == 0))
			return static_cast<int>(code);
	return -1;
}

int eunitFan(Context &ctx)
{
	if (ctx.args.size() != 2)
		return fail("usage: eunit fan UNIT SPEED");
	Unit u;
	if (!findUnit(ctx.args[0], u))
		return fail("no expansion unit %s", ctx.args[0].c_str());
	int code = speedCode(ctx.args[1]);
	if (code < 0)
		return fail("unknown fan speed %s (1..9 or a speed name)", ctx.args[1].c_str());
	if (u.h.FanCTL(&u.h, static_cast<FAN_SPEED>(code)) != 1)
		return fail("unit %s: fan speed not set (VLIBCErrGet 0x%X)", ctx.args[0].c_str(), VLIBCErrGet());
	Value r = Value::object();
	r.set("unit", u.info.unit);
	r.set("speed_code", code);
	printRecord(ctx, r);
	return 0;
}

int eunitPower(Context &ctx)
{
	if (ctx.args.size() != 2 || (ctx.args[1] != "on" && ctx.args[1] != "off"))
		return fail("usage: eunit power UNIT on|off");
	Unit u;
	if (!findUnit(ctx.args[0], u))
		return fail("no expansion unit %s", ctx.args[0].c_str());
	int want = ctx.args[1] == "on";
	if (u.h.IsPowerOn(&u.h) == want) {
		Value r = Value::object();
		r.set("unit", u.info.unit);
		r.set("power", ctx.args[1]);
		r.set("changed", false);
		printRecord(ctx, r);
		return 0;
	}
	if (u.h.PowerCTL(&u.h, want) != 0)
		return fail("unit %s: power not changed (VLIBCErrGet 0x%X)", ctx.args[0].c_str(), VLIBCErrGet());
	Value r = Value::object();
	r.set("unit", u.info.unit);
	r.set("power", u.h.IsPowerOn(&u.h) == 1 ? "on" : "off");
	r.set("changed", true);
	printRecord(ctx, r);
	return 0;
}

} // namespace

VEXO_CLI_COMMAND("eunit list", "", "the expansion units: model, chip family, power, fans and failed fans", eunitList, {});
VEXO_CLI_COMMAND("eunit fan", "UNIT SPEED", "set a unit's fan speed (FAN_SPEED code 1..9 or its name)", eunitFan, {});
VEXO_CLI_COMMAND("eunit power", "UNIT on|off", "power a unit on or off (nothing sent when it is so already)", eunitPower,
		 {});
