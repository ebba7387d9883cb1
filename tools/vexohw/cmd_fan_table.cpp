// One pass of the fan loop over the box: each group's tables read from
// their sources, the level each reading picks, and the speed the group
// would run at. Sleeping internal disks make the pass a hibernating one, so
// nothing wakes them; an expansion unit's group runs once per unit present,
// hibernating when one of that unit's disks sleeps.
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <vexohw/disk_port.h>
#include <vexohw/ebox.h>
#include <vexohw/ext.h>
#include <vexohw/fan_config.h>
#include <vexohw/fan_table.h>
#include <vexoplatform/ebox_info.h>

#include "cli.h"

using namespace vexo::cli;

namespace {

std::string speedText(unsigned code)
{
	char buf[32];
	return VEXOExtFanSpeedText(code, buf, sizeof buf) == 0 ? buf : std::to_string(code);
}

bool asleep(const std::string &path) { return VEXOExtDiskPowerModeGet(path.c_str()) == VEXO_EXT_POWER_STANDBY; }

bool anyDiskAsleep()
{
	PVLIBSZLIST list = VLIBCSzListAlloc(16);
	bool any = false;
	if (list && VEXODiskInternalDiskWithoutM2Enum(&list) == 0)
		for (int i = 0; i < list->nItem && !any; ++i)
			any = asleep("/dev/" + std::string(VLIBCSzListGet(list, i)));
	VLIBCSzListFree(list);
	return any;
}

// An expansion unit as its group's handle needs it: the unit's handle and
// its disks. A unit that sleeps, or whose handle cannot be had, is still
// listed, without a reading.
struct Unit {
	VEXO_EBOX_INFO info{};
	VEXO_EBOX_HANDLE_T h{};
	PVLIBSZLIST disks = nullptr;
	VEXO_FAN_EBOX_T ebox{};
	bool ok = false;
	bool asleep = false;
	Unit() = default;
	Unit(const Unit &) = delete;
	Unit &operator=(const Unit &) = delete;
	~Unit()
	{
		std::free(h.inner);
		VLIBCSzListFree(disks);
	}
};

// Every unit on the box with its handle and the disks of its bays.
std::vector<std::unique_ptr<Unit>> unitsOfBox(bool wake)
{
	std::vector<std::unique_ptr<Unit>> out;
	VEXO_EBOX_INFO infos[VEXO_EBOX_MAX_UNITS];
	const int n = VEXOEBoxInfoEnum(infos, VEXO_EBOX_MAX_UNITS);
	for (int i = 0; i < n; ++i) {
		auto u = std::make_unique<Unit>();
		u->info = infos[i];
		u->h.sem_id = -1;
		u->disks = VLIBCSzListAlloc(VEXO_EBOX_MAX_BAYS);
		const std::string dir = "/sys/class/scsi_host/host" + std::to_string(infos[i].host);
		u->ok = u->disks &&
			VEXOEBoxUnitHandleGet(dir.c_str(), &u->h, static_cast<unsigned>(infos[i].unit)) == 1;
		for (int b = 0; u->ok && b < infos[i].maxDisk; ++b) {
			const char *d = infos[i].disks[b];
			if (!d[0])
				continue;
			u->asleep = u->asleep || (!wake && asleep(d));
			VLIBCSzListPush(&u->disks, d);
		}
		u->ebox.disks = u->disks;
		u->ebox.unit = &u->h;
		out.push_back(std::move(u));
	}
	return out;
}

struct Rows {
	Value tables = Value::list(), groups = Value::list();
};

// One group's pass: every table's reading and level, and the group's
// decision. unit: the expansion unit of an ebox group, else null.
void passOf(uint32_t i, VEXO_FAN_CONFIG_T &c, bool hibernating, Unit *unit, Rows &rows)
{
	std::vector<VEXO_FAN_STATUS_T> nodes;
	for (VEXO_FAN_TABLE_T *t = c.tables; t; t = t->next) {
		VEXO_FAN_STATUS_T n{};
		n.level = -1;
		n.table_type = t->type;
		n.threshold = c.threshold;
		n.period = c.period;
		nodes.push_back(n);
	}
	for (size_t k = 0; k + 1 < nodes.size(); ++k)
		nodes[k].next = &nodes[k + 1];
	VEXO_FAN_HANDLE_T h{};
	h.force = 1;
	h.hibernating = hibernating;
	h.config_name = VEXOFanConfigNameGet(c.type);
	h.ebox = unit ? &unit->ebox : nullptr;
	h.status_list = nodes.empty() ? nullptr : nodes.data();
	VEXOFanInitNicFanTableList(&h);
	int flags = 0;
	VEXOFanTemperatureUpdate(&h, c.tables, &flags);
	VEXO_FAN_STATUS_T result{};
	int named = VEXOFanTableLookUp(&h, c.tables, &result);
	VEXOFanNicFanTableListFree(&h);
	auto unitNo = [unit] { return unit ? Value(unit->info.unit) : Value(); };
	size_t k = 0;
	for (VEXO_FAN_TABLE_T *t = c.tables; t; t = t->next, ++k) {
		const VEXO_FAN_STATUS_T &n = nodes[k];
		Value r = Value::object();
		r.set("group", (int)i);
		r.set("unit", unitNo());
		r.set("table", VEXOFanTableNameGet(t->type));
		r.set("temperature_c", n.level >= 0 ? Value(n.temperature) : Value());
		r.set("level", n.level);
		r.set("speed", speedText(n.speed));
		r.set("shutdown", (n.action & FAN_ACTION_SHUTDOWN) != 0);
		rows.tables.push(r);
	}
	Value g = Value::object();
	g.set("group", (int)i);
	g.set("unit", unitNo());
	g.set("type", (int)c.type);
	g.set("decided_by", named ? Value(VEXOFanTableNameGet(result.table_type)) : Value());
	g.set("level", result.level);
	g.set("speed", speedText(result.speed));
	g.set("shutdown", (result.action & FAN_ACTION_SHUTDOWN) != 0);
	g.set("debug_override", flags != 0);
	rows.groups.push(g);
}

int fanLevels(Context &ctx)
{
	if (!ctx.args.empty())
		return fail("usage: fan levels [--wake]");
	VEXOFanTableTypeOpsListInit();
	VEXOFanConfigOpsListInit();
	VEXO_FAN_ADJUSTER_T m;
	if (VEXOFanAdjusterGet(&m, 1) != 0) {
		VEXOAdjusterModelFree(&m);
		return fail("fan levels: no fan configuration could be read (see the log)");
	}
	const bool wake = ctx.has("wake");
	const bool hibernating = !wake && anyDiskAsleep();
	std::vector<std::unique_ptr<Unit>> units;
	bool unitsRead = false;
	Rows rows;
	for (uint32_t i = 0; i < m.count; ++i) {
		VEXO_FAN_CONFIG_T &c = m.configs[i];
		if (VEXOFanConfigNameGet(c.type) != FAN_CONFIG_NAME_EBOX) {
			passOf(i, c, hibernating, nullptr, rows);
			continue;
		}
		// An expansion unit's group runs once per unit, on that unit's disks.
		if (!unitsRead)
			units = unitsOfBox(wake);
		unitsRead = true;
		for (auto &u : units)
			if (u->ok)
				passOf(i, c, u->asleep, u.get(), rows);
	}
	VEXOAdjusterModelFree(&m);
	if (ctx.json) {
		Value r = Value::object();
		r.set("hibernating", hibernating);
		r.set("groups", rows.groups);
		r.set("tables", rows.tables);
		printRecord(ctx, r);
		return 0;
	}
	printTable(ctx, rows.tables,
		   {{"group", "GROUP"}, {"unit", "UNIT"}, {"table", "TABLE"}, {"temperature_c", "TEMP C"},
		    {"level", "LEVEL"}, {"speed", "SPEED"}, {"shutdown", "SHUTDOWN"}},
		   hibernating ? "tables (disks asleep: not read)" : "tables");
	printTable(ctx, rows.groups,
		   {{"group", "GROUP"}, {"unit", "UNIT"}, {"type", "TYPE"}, {"decided_by", "DECIDED BY"},
		    {"level", "LEVEL"}, {"speed", "SPEED"}, {"shutdown", "SHUTDOWN"}, {"debug_override", "DEBUG FILE"}},
		   "groups");
	return 0;
}

} // namespace

VEXO_CLI_COMMAND("fan levels", "[--wake]",
		 "one pass of the fan loop: each table's temperature and level, and each group's speed", fanLevels, {});
