// One pass of the fan loop over the box: each group's tables read from
// their sources, the level each reading picks, and the speed the group
// would run at. Sleeping internal disks make the pass a hibernating one, so
// nothing wakes them.
#include <string>
#include <vector>

#include <vexohw/disk_port.h>
#include <vexohw/ext.h>
#include <vexohw/fan_config.h>
#include <vexohw/fan_table.h>

#include "cli.h"

using namespace vexo::cli;

namespace {

std::string speedText(unsigned code)
{
	char buf[32];
	return VEXOExtFanSpeedText(code, buf, sizeof buf) == 0 ? buf : std::to_string(code);
}

bool anyDiskAsleep()
{
	PVLIBSZLIST list = VLIBCSzListAlloc(16);
	bool asleep = false;
	if (list && VEXODiskInternalDiskWithoutM2Enum(&list) == 0)
		for (int i = 0; i < list->nItem && !asleep; ++i)
			asleep = VEXOExtDiskPowerModeGet(("/dev/" + std::string(VLIBCSzListGet(list, i))).c_str()) ==
				 VEXO_EXT_POWER_STANDBY;
	VLIBCSzListFree(list);
	return asleep;
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
	const bool hibernating = !ctx.has("wake") && anyDiskAsleep();
	Value tableRows = Value::list(), groupRows = Value::list();
	for (uint32_t i = 0; i < m.count; ++i) {
		VEXO_FAN_CONFIG_T &c = m.configs[i];
		int name = VEXOFanConfigNameGet(c.type);
		if (name == FAN_CONFIG_NAME_EBOX) // a unit's group needs its unit: see "eunit"
			continue;
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
		h.config_name = name;
		h.status_list = nodes.empty() ? nullptr : nodes.data();
		VEXOFanInitNicFanTableList(&h);
		int flags = 0;
		VEXOFanTemperatureUpdate(&h, c.tables, &flags);
		VEXO_FAN_STATUS_T result{};
		int named = VEXOFanTableLookUp(&h, c.tables, &result);
		VEXOFanNicFanTableListFree(&h);
		size_t k = 0;
		for (VEXO_FAN_TABLE_T *t = c.tables; t; t = t->next, ++k) {
			const VEXO_FAN_STATUS_T &n = nodes[k];
			Value r = Value::object();
			r.set("group", (int)i);
			r.set("table", VEXOFanTableNameGet(t->type));
			r.set("temperature_c", n.level >= 0 ? Value(n.temperature) : Value());
			r.set("level", n.level);
			r.set("speed", speedText(n.speed));
			r.set("shutdown", (n.action & FAN_ACTION_SHUTDOWN) != 0);
			tableRows.push(r);
		}
		Value g = Value::object();
		g.set("group", (int)i);
		g.set("type", (int)c.type);
		g.set("decided_by", named ? Value(VEXOFanTableNameGet(result.table_type)) : Value());
		g.set("level", result.level);
		g.set("speed", speedText(result.speed));
		g.set("shutdown", (result.action & FAN_ACTION_SHUTDOWN) != 0);
		g.set("debug_override", flags != 0);
		groupRows.push(g);
	}
	VEXOAdjusterModelFree(&m);
	if (ctx.json) {
		Value r = Value::object();
		r.set("hibernating", hibernating);
		r.set("groups", groupRows);
		r.set("tables", tableRows);
		printRecord(ctx, r);
		return 0;
	}
	printTable(ctx, tableRows,
		   {{"group", "GROUP"}, {"table", "TABLE"}, {"temperature_c", "TEMP C"}, {"level", "LEVEL"},
		    {"speed", "SPEED"}, {"shutdown", "SHUTDOWN"}},
		   hibernating ? "tables (disks asleep: not read)" : "tables");
	printTable(ctx, groupRows,
		   {{"group", "GROUP"}, {"type", "TYPE"}, {"decided_by", "DECIDED BY"}, {"level", "LEVEL"},
		    {"speed", "SPEED"}, {"shutdown", "SHUTDOWN"}, {"debug_override", "DEBUG FILE"}},
		   "groups");
	return 0;
}

} // namespace

VEXO_CLI_COMMAND("fan levels", "[--wake]",
		 "one pass of the fan loop: each table's temperature and level, and each group's speed", fanLevels, {});
