// vexohw nvme slot|at|all|cards|life: where NVMe disks sit (slot,
// location, port type, the M.2 adapter card that carries them), finding a
// disk by its place, every NVMe disk of the box at once, and the life last
// checked for a drive. Places come from sysfs and the platform
// description, so only `all` and `life` ask a drive anything.
#include <algorithm>
#include <cstring>
#include <dirent.h>
#include <memory>
#include <string>
#include <vector>
#include <vexohw/disk.h>
#include <vexohw/remain_life.h>
#include <vexohw/smart_serial.h>
#include <vexoplatform/nvme_admin.h>
#include <vexoplatform/nvme_smart.h>

#include "asleep.h"
#include "cmd_nvme_common.h"

using namespace vexo::cli;
using namespace vexo::cli::nvme;

namespace {

std::string errCode()
{
	char b[16];
	std::snprintf(b, sizeof(b), "0x%04X", VLIBCErrGet());
	return b;
}

struct Place {
	bool found = false;
	int slot = -1, location = -1;
};

Place placeOf(const std::string &path)
{
	Place p;
	p.found = VEXONVMeDevLocGet(path.c_str(), &p.slot, &p.location) == 0;
	return p;
}

// The NVMe disks of the box by their /sys/block entries, in slot and
// location order (disks without a place last, by name). Nothing is sent
// to a drive to list them.
std::vector<std::string> nvmeDisks(bool &ok)
{
	std::vector<std::string> out;
	char host[4096];
	ok = VEXOExtSysrootPath("/sys/block", host, sizeof(host)) == 0;
	std::unique_ptr<DIR, int (*)(DIR *)> dir(ok ? ::opendir(host) : nullptr, ::closedir);
	if (!dir) {
		ok = false;
		return out;
	}
	while (const dirent *e = ::readdir(dir.get())) {
		std::string path = "/dev/" + std::string(e->d_name);
		if (std::strncmp(e->d_name, "nvme", 4) == 0 && VEXONVMeCheckSupportAndNVMeSSD(path.c_str()))
			out.push_back(path);
	}
	std::vector<std::pair<Place, std::string>> keyed;
	for (const auto &p : out)
		keyed.emplace_back(placeOf(p), p);
	std::sort(keyed.begin(), keyed.end(), [](const auto &a, const auto &b) {
		if (a.first.found != b.first.found)
			return a.first.found;
		if (a.first.found && (a.first.slot != b.first.slot || a.first.location != b.first.location))
			return a.first.slot != b.first.slot ? a.first.slot < b.first.slot
							    : a.first.location < b.first.location;
		return a.second.size() != b.second.size() ? a.second.size() < b.second.size() : a.second < b.second;
	});
	out.clear();
	for (const auto &k : keyed)
		out.push_back(k.second);
	return out;
}

// The card fields of a disk's record: model id, name and what this
// product lets that card carry.
void cardFields(const std::string &path, Value &r)
{
	int model = VEXOM2CardModelGet(path.c_str());
	const char *known = VEXOM2CardIDToStr(model);
	r.set("card", cardName(model));
	r.set("card_id", model);
	r.set("card_sup_nvme", known ? cardSupport(known, "sup_nvme") : Value());
	r.set("card_sup_sata", known ? cardSupport(known, "sup_sata") : Value());
}

int slot(Context &ctx)
{
	const char *usage = "nvme slot DISK";
	std::string path = nvmeDisk(ctx, usage);
	if (path.empty())
		return 1;
	Place at = placeOf(path);
	std::string locErr = at.found ? "" : errCode();
	Value r = Value::object();
	r.set("disk", path);
	r.set("slot", at.found ? Value(at.slot) : Value());
	r.set("location", at.found ? Value(at.location) : Value());
	r.set("port_type", portName(VEXONVMeDevPortTypeCheck(path.c_str())));
	r.set("u2", VEXONVMeDevIsU2Slot(path.c_str()) == 1);
	cardFields(path, r);
	int valid = VEXODiskCheckValid(path.c_str());
	r.set("usable", valid < 0 ? Value() : Value(valid == 1));
	char hw[64] = "";
	r.set("hardware_model", VexoHWVersionGet(hw, sizeof(hw)) == 0 ? Value(hw) : Value());
	if (at.found) {
		// The way back: the place must name this very disk.
		char back[256] = "";
		bool ok = VEXONVMeDevGetByLoc(at.slot, at.location, back, sizeof(back)) == 0;
		r.set("disk_at_place", ok ? Value(back) : Value());
	}
	printRecord(ctx, r);
	if (!at.found)
		return fail("%s has no NVMe location in the platform description: VEXONVMeDevLocGet failed (error %s)",
			    path.c_str(), locErr.c_str());
	return 0;
}

int at(Context &ctx)
{
	int s = 0, loc = 0;
	if (ctx.args.size() != 2)
		return fail("usage: nvme at SLOT LOCATION");
	if (!parseInt(ctx.args[0], 0, 255, s))
		return fail("bad slot \"%s\": 0 (the board) to 255", ctx.args[0].c_str());
	if (!parseInt(ctx.args[1], 1, 255, loc))
		return fail("bad location \"%s\": 1 to 255", ctx.args[1].c_str());
	char path[256] = "";
	if (VEXONVMeDevGetByLoc(s, loc, path, sizeof(path)) != 0)
		return fail("no NVMe disk at slot %d location %d: VEXONVMeDevGetByLoc failed (error 0x%04X)", s, loc,
			    VLIBCErrGet());
	Value r = Value::object();
	r.set("slot", s);
	r.set("location", loc);
	r.set("disk", path);
	r.set("port_type", portName(VEXONVMeDevPortTypeCheck(path)));
	r.set("u2", VEXONVMeDevIsU2Slot(path) == 1);
	cardFields(path, r);
	printRecord(ctx, r);
	return 0;
}

// One row per NVMe disk: its place and card without a word to the drive,
// then model, temperature and wear from it (a sleeping disk is left so).
int all(Context &ctx)
{
	if (!ctx.args.empty())
		return fail("usage: nvme all [--wake]");
	bool ok = false;
	std::vector<std::string> disks = nvmeDisks(ok);
	if (!ok)
		return fail("can't list the block devices of the box");
	Value rows = Value::list();
	int failed = 0;
	for (const std::string &path : disks) {
		const char *p = path.c_str();
		Value r = Value::object();
		r.set("disk", path);
		Place place = placeOf(path);
		r.set("slot", place.found ? Value(place.slot) : Value());
		r.set("location", place.found ? Value(place.location) : Value());
		r.set("port_type", portName(VEXONVMeDevPortTypeCheck(p)));
		r.set("card", cardName(VEXOM2CardModelGet(p)));
		if (!ctx.has("wake") && VEXOExtDiskPowerModeGet(p) == VEXO_EXT_POWER_STANDBY) {
			r.set("power_mode", "standby");
			rows.push(r);
			continue;
		}
		char model[64] = "";
		if (VEXONVMeDiskModelGet(p, model, sizeof(model)) != 0) {
			r.set("error", "VEXONVMeDiskModelGet failed (error " + errCode() + ")");
			++failed;
			rows.push(r);
			continue;
		}
		r.set("model", model);
		int t = VEXONVMeTemperatureGet(p);
		r.set("temperature_c", t < 0 ? Value() : Value(t));
		unsigned int used = 0;
		r.set("percentage_used",
		      VEXONVMePercentageUsedGet(p, &used) == 0 ? Value(static_cast<int>(used)) : Value());
		int vexology = VEXODiskIsVexology(p), life = -1, from = 0;
		// No serial to hold the drive to: the row answers for whatever sits there now.
		if (VEXONVMeRemainingLifeGet(p, vexology == 1, nullptr, &life, &from) == 0)
			r.set("remaining_life", life);
		else {
			r.set("remaining_life", Value());
			r.set("error", "VEXONVMeRemainingLifeGet failed (error " + errCode() + ")");
			++failed;
		}
		rows.push(r);
	}
	printTable(ctx, rows,
		   {{"disk", "DISK"},
		    {"slot", "SLOT"},
		    {"location", "LOC"},
		    {"port_type", "PORT"},
		    {"card", "CARD"},
		    {"model", "MODEL"},
		    {"temperature_c", "TEMP"},
		    {"percentage_used", "USED%"},
		    {"remaining_life", "LIFE%"},
		    {"error", "ERROR"}});
	if (rows.asList().empty() && !ctx.json)
		std::printf("no NVMe disks%s\n", VLIBCSupportNVMe() ? "" : " (this product has no NVMe support)");
	return failed ? 1 : 0;
}

// The adapter card models, what this product lets each carry, and the
// NVMe disks found on each.
int cards(Context &ctx)
{
	if (!ctx.args.empty())
		return fail("usage: nvme cards");
	bool ok = false;
	std::vector<std::string> disks = nvmeDisks(ok);
	Value rows = Value::list();
	for (int id = 0;; ++id) {
		const char *name = VEXOM2CardIDToStr(id);
		if (!name)
			break;
		Value r = Value::object();
		r.set("id", id);
		r.set("name", name);
		r.set("sup_nvme", cardSupport(name, "sup_nvme"));
		r.set("sup_sata", cardSupport(name, "sup_sata"));
		Value on = Value::list();
		for (const std::string &d : disks)
			if (VEXOM2CardModelGet(d.c_str()) == id)
				on.push(d);
		r.set("disks", on);
		rows.push(r);
	}
	char hw[64] = "";
	std::string title = std::string("adapter cards on ") + (VexoHWVersionGet(hw, sizeof(hw)) == 0 ? hw : "this box");
	printTable(ctx, rows,
		   {{"id", "ID"}, {"name", "CARD"}, {"sup_nvme", "NVME"}, {"sup_sata", "SATA"}, {"disks", "NVME DISKS"}},
		   title.c_str());
	if (!ok)
		return fail("can't list the block devices of the box");
	return 0;
}

// The life kept for a serial in the life check file, -1 when none.
int keptLife(const std::string &serial)
{
	char kept[32] = "";
	int v = -1;
	if (VLIBCFileGetKeyValue("/var/lib/vexohw/nvme_remain_life", serial.c_str(), kept, sizeof(kept), 0) <= 0 ||
	    !parseInt(kept, 0, 100, v))
		return -1;
	return v;
}

// A drive's remaining life against the one last checked for its serial;
// --record keeps the new one (nothing written when it is the same).
int life(Context &ctx)
{
	const char *usage = "nvme life DISK [--record] [--wake]";
	std::string path = nvmeDisk(ctx, usage);
	if (path.empty())
		return 1;
	if (leaveAsleep(ctx, path))
		return 0;
	const char *p = path.c_str();
	char firmware[16] = "", serial[32] = "";
	if (VEXONVMeFirmAndSerialRead(p, firmware, sizeof(firmware), serial, sizeof(serial)) != 0)
		return fail("can't read the serial of %s: VEXONVMeFirmAndSerialRead failed (error 0x%04X)", p, VLIBCErrGet());
	int vexology = VEXODiskIsVexology(p), life = -1, from = 0;
	// The serial just read is the drive's own, so the check can't mismatch.
	if (VEXONVMeRemainingLifeGet(p, vexology == 1, serial, &life, &from) != 0)
		return fail("can't read the remaining life of %s: VEXONVMeRemainingLifeGet failed (error 0x%04X)", p,
			    VLIBCErrGet());
	int kept = keptLife(serial);
	Value r = Value::object();
	r.set("disk", path);
	r.set("serial", serial);
	r.set("remaining_life", life);
	r.set("life_from", from == VEXO_NVME_LIFE_FROM_AVAILABLE_SPARE ? "available_spare" : "percentage_used");
	int danger = VEXODiskIsLifeDangerWithValue(p, life);
	r.set("danger", danger < 0 ? Value() : Value(danger == 1));
	r.set("last_checked", kept < 0 ? Value() : Value(kept));
	r.set("changed", kept != life);
	int need = 0;
	if (ctx.has("record")) {
		need = VEXONVMeRemainingLifeNeedCheck(serial, life);
		if (need < 0)
			return fail("can't keep the life of %s: VEXONVMeRemainingLifeNeedCheck failed (error 0x%04X)", p,
				    VLIBCErrGet());
		r.set("recorded", need == 1);
	}
	printRecord(ctx, r);
	if (!ctx.json && ctx.has("record")) {
		if (need == 1)
			std::printf("\nkept %d%% for %s\n", life, serial);
		else
			std::printf("\nunchanged since the last check: nothing written\n");
	}
	return 0;
}

VEXO_CLI_COMMAND("nvme slot", "DISK",
		 "where an NVMe disk sits: slot, location, port type, U.2 bay, adapter card and whether it may be used",
		 slot, {});
VEXO_CLI_COMMAND("nvme at", "SLOT LOCATION", "the NVMe disk at a slot (0 the board) and location", at, {});
VEXO_CLI_COMMAND("nvme all", "[--wake]", "every NVMe disk of the box: place, card, model, temperature and wear", all,
		 {});
VEXO_CLI_COMMAND("nvme cards", "", "the M.2 adapter card models, what this product lets each carry, and their disks",
		 cards, {});
VEXO_CLI_COMMAND("nvme life", "DISK [--record] [--wake]",
		 "an NVMe drive's remaining life against the one last checked; --record keeps it", life, {});

} // namespace
