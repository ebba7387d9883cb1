// Indicators: a drive's LED switched for a while, the LED dimmer and its
// weekly schedule, and the buzzer's settings.
#include <cstdlib>
#include <string>

#include <vexohw/ext.h>
#include <vexohw/led.h>
#include <vexoplatform/vexocore.h>

#include "cli.h"

using namespace vexo::cli;

namespace {

std::string devPath(const std::string &disk)
{
	return disk.rfind("/dev/", 0) == 0 ? disk : "/dev/" + disk;
}

bool number(const std::string &text, int &out)
{
	char *end = nullptr;
	long v = std::strtol(text.c_str(), &end, 10);
	if (text.empty() || *end || v < -1 || v > 0x7FFFFFFF)
		return false;
	out = static_cast<int>(v);
	return true;
}

int ledStatus(Context &ctx)
{
	if (ctx.args.empty())
		return fail("usage: led status DISK...");
	Value rows = Value::list();
	int rc = 0;
	for (const auto &disk : ctx.args) {
		DiskLedStatus s{};
		Value r = Value::object();
		r.set("disk", devPath(disk));
		if (VEXODiskLedStatusGet(devPath(disk).c_str(), &s) != 0) {
			rc = 1;
			r.set("switching", Value());
		} else {
			r.set("switching", s.switching != 0);
			r.set("duration_s", s.switching ? Value(s.duration) : Value());
			r.set("due_time_s", s.switching ? Value(static_cast<long long>(s.dueTime)) : Value());
		}
		rows.push(r);
	}
	printTable(ctx, rows, {{"disk", "DISK"}, {"switching", "SWITCHING"}, {"duration_s", "SECONDS"}, {"due_time_s", "DUE"}});
	return rc;
}

int ledLocate(Context &ctx)
{
	int seconds = 0;
	if (ctx.args.size() != 2 || !number(ctx.args[1], seconds) || seconds < 1)
		return fail("usage: led locate DISK SECONDS");
	if (VEXODiskLedStatusSet(devPath(ctx.args[0]).c_str(), VEXO_DISK_LED_MODE_SWITCH, seconds) != 0)
		return fail("led locate: refused (error 0x%04X; --verbose tells more)", VLIBCErrGet());
	// The child records the request a moment later: `led status` shows it.
	Value r = Value::object();
	r.set("disk", devPath(ctx.args[0]));
	r.set("requested_s", seconds);
	printRecord(ctx, r);
	return 0;
}

int ledRestore(Context &ctx)
{
	if (ctx.args.size() != 1)
		return fail("usage: led restore DISK");
	if (VEXODiskLedStatusRestore(devPath(ctx.args[0]).c_str()) != 0)
		return fail("led restore: failed (error 0x%04X; --verbose tells more)", VLIBCErrGet());
	return ledStatus(ctx);
}

// "faulty" and "normal": the LED held by the daemon, no child.
int ledMode(Context &ctx, const char *mode)
{
	if (ctx.args.size() != 1)
		return fail("usage: led %s DISK", mode);
	if (VEXODiskLedStatusSet(devPath(ctx.args[0]).c_str(), mode, 0) != 0)
		return fail("led %s: failed (error 0x%04X; --verbose tells more)", mode, VLIBCErrGet());
	Value r = Value::object();
	r.set("disk", devPath(ctx.args[0]));
	r.set("led", mode);
	printRecord(ctx, r);
	return 0;
}

int ledFaulty(Context &ctx)
{
	return ledMode(ctx, VEXO_DISK_LED_MODE_FAULTY);
}

int ledNormal(Context &ctx)
{
	return ledMode(ctx, VEXO_DISK_LED_MODE_NORMAL);
}

// A byte 0 to 0xFF, decimal or 0x-prefixed.
bool byteArg(const std::string &text, int &out)
{
	char *end = nullptr;
	long v = std::strtol(text.c_str(), &end, 0);
	if (text.empty() || *end || v < 0 || v > 0xFF)
		return false;
	out = static_cast<int>(v);
	return true;
}

int chipSet(Context &ctx)
{
	int v[4] = {};
	if (ctx.args.size() != 5 || !byteArg(ctx.args[1], v[0]) || !byteArg(ctx.args[2], v[1]) ||
	    !byteArg(ctx.args[3], v[2]) || !byteArg(ctx.args[4], v[3]))
		return fail("usage: led chip set BUS ADDRESS REGISTER MASK VALUE");
	if (VEXOLedAHALedSet(ctx.args[0].c_str(), v[0], v[1], v[2], v[3]) != 0)
		return fail("led chip set: failed (error 0x%04X; --verbose tells more)", VLIBCErrGet());
	Value r = Value::object();
	r.set("bus", ctx.args[0]);
	r.set("address", v[0]);
	r.set("register", v[1]);
	r.set("mask", v[2]);
	r.set("value", v[3] & v[2]);
	printRecord(ctx, r);
	return 0;
}

int brightness(Context &ctx)
{
	if (!ctx.args.empty())
		return fail("usage: led brightness");
	int32_t data[3] = {};
	int level = -1, stored = -1;
	char schedule[VEXO_LED_SCHEDULE_LENGTH + 1] = "";
	if (VEXOGetLedBrightnessStaticData(data) != 0 || VEXOGetLedBrightness(&level) != 0 ||
	    VEXOGetLedBrightnessConfiguration(&stored, schedule) != 0)
		return fail("led brightness: no dimmer answers (error 0x%04X; --verbose tells more)", VLIBCErrGet());
	Value r = Value::object();
	r.set("level", level);
	r.set("lowest", data[0]);
	r.set("highest", data[1]);
	r.set("default", data[2]);
	r.set("adjusted_level", stored);
	// One line per day, Sunday first, one character per hour.
	Value days = Value::list();
	for (int d = 0; d < 7; ++d)
		days.push(std::string(schedule + d * 24, 24));
	r.set("schedule", days);
	printRecord(ctx, r);
	return 0;
}

int brightnessSet(Context &ctx)
{
	int level = 0;
	if (ctx.args.size() != 1 || !number(ctx.args[0], level))
		return fail("usage: led brightness set LEVEL");
	if (VEXOSetLedBrightness(level) != 0)
		return fail("led brightness set: refused (error 0x%04X; --verbose tells more)", VLIBCErrGet());
	ctx.args.clear();
	return brightness(ctx);
}

int scheduleSet(Context &ctx)
{
	int level = 0;
	if (ctx.args.size() != 2 || !number(ctx.args[0], level))
		return fail("usage: led schedule set LEVEL SCHEDULE(168 of 0, 1, 2)");
	if (VEXOSetLedBrightnessConfiguration(level, ctx.args[1].c_str()) != 0)
		return fail("led schedule set: refused (error 0x%04X; --verbose tells more)", VLIBCErrGet());
	ctx.args.clear();
	return brightness(ctx);
}

int scheduleApply(Context &ctx)
{
	if (!ctx.args.empty())
		return fail("usage: led schedule apply [--force]");
	if (VEXOUpdateLedBrightnessByConfiguration(ctx.has("force") ? 1 : 0) != 0)
		return fail("led schedule apply: failed (error 0x%04X; --verbose tells more)", VLIBCErrGet());
	return brightness(ctx);
}

int buzzer(Context &ctx)
{
	if (ctx.args.size() > 1)
		return fail("usage: buzzer [VARIANT]");
	Value r = Value::object();
	int bitmap = VEXOBuzzerCurrentBitmapGet();
	r.set("current_bitmap", bitmap >= 0 ? Value(bitmap) : Value());
	r.set("off_config", VEXOBuzzerOffConfigGet());
	r.set("off_enable", VEXOBuzzerOffEnableBitGet(ctx.args.empty() ? nullptr : ctx.args[0].c_str()));
	printRecord(ctx, r);
	return 0;
}

int buzzerPause(Context &ctx)
{
	const bool pause = !ctx.has("resume");
	if (!ctx.args.empty())
		return fail("usage: buzzer pause [--resume]");
	if ((pause ? VEXOBuzzerPause() : VEXOBuzzerResume()) != 0)
		return fail("buzzer pause: failed (error 0x%04X; --verbose tells more)", VLIBCErrGet());
	Value r = Value::object();
	r.set("paused", pause);
	printRecord(ctx, r);
	return 0;
}

VEXO_CLI_COMMAND("led status", "DISK...", "whether a disk's LED is switched for a locate request, and until when",
		 ledStatus, {});
VEXO_CLI_COMMAND("led locate", "DISK SECONDS", "switch a disk's LED for a while; a child puts it back", ledLocate, {});
VEXO_CLI_COMMAND("led restore", "DISK", "end a locate request early", ledRestore, {});
VEXO_CLI_COMMAND("led faulty", "DISK", "light a disk's faulty LED until `led normal` (ends a locate request)", ledFaulty, {});
VEXO_CLI_COMMAND("led normal", "DISK", "put a disk's LED back to normal (ends a locate request or a faulty LED)",
		 ledNormal, {});
VEXO_CLI_COMMAND("led chip set", "BUS ADDRESS REGISTER MASK VALUE",
		 "set the bits under MASK of an LED chip's register on an I2C bus (number or adapter name)", chipSet, {});
VEXO_CLI_COMMAND("led brightness", "", "the LED dimmer's level, its range and the weekly schedule", brightness, {});
VEXO_CLI_COMMAND("led brightness set", "LEVEL", "set the dimmer's level now (-1: the default)", brightnessSet, {});
VEXO_CLI_COMMAND("led schedule set", "LEVEL SCHEDULE", "store the adjusted level and the 168-hour schedule, and apply them",
		 scheduleSet, {});
VEXO_CLI_COMMAND("led schedule apply", "[--force]", "apply the schedule's level for this hour", scheduleApply, {});
VEXO_CLI_COMMAND("buzzer", "[VARIANT]", "the buzzer's current bits and off masks", buzzer, {});
VEXO_CLI_COMMAND("buzzer pause", "[--resume]", "pause (or resume) the buzzer", buzzerPause, {});

} // namespace
