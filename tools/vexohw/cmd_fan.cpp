// The board's fan configuration as the fan loop reads it: the table-driven
// groups with their levels, and the ADT and management controller forms.
#include <string>

#include <vexohw/ext.h>
#include <vexohw/fan_config.h>

#include "cli.h"

using namespace vexo::cli;

namespace {

std::string speedText(unsigned code)
{
	char buf[32];
	return VEXOExtFanSpeedText(code, buf, sizeof buf) == 0 ? buf : std::to_string(code);
}

// Presentation words for a group's FAN_CONFIG_NAME.
std::string groupName(int type)
{
	int n = VEXOFanConfigNameGet(type);
	return n == 1 ? "internal" : n == 2 ? "ebox" : n == 3 ? "cpufan" : n ? "nic" : "unknown";
}

std::string actionText(unsigned a)
{
	return a & FAN_ACTION_SHUTDOWN ? "shutdown" : a & FAN_ACTION_ALERT_LED ? "alert_led" : "none";
}

Value tableGroups(const VEXO_FAN_ADJUSTER_T &m, Value &levelRows)
{
	Value groups = Value::list();
	for (uint32_t i = 0; i < m.count; ++i) {
		const VEXO_FAN_CONFIG_T &c = m.configs[i];
		Value g = Value::object();
		g.set("group", (int)i);
		g.set("type", (int)c.type);
		g.set("name", groupName(c.type));
		g.set("hw_version", c.hw_version ? Value(c.hw_version) : Value());
		g.set("period_s", (long long)c.period);
		g.set("threshold", (long long)c.threshold);
		g.set("warning_temp_c", c.warning_temp);
		g.set("hibernation_speed", speedText(c.hibernation_speed));
		Value tables = Value::list();
		for (const VEXO_FAN_TABLE_T *t = c.tables; t; t = t->next) {
			Value levels = Value::list();
			for (uint32_t k = 0; k < t->count; ++k) {
				const VEXO_TEMPERATURE_FAN_LEVEL_T &l = t->levels[k];
				Value r = Value::object();
				r.set("group", (int)i);
				r.set("table", VEXOFanTableNameGet(t->type));
				r.set("level", l.index);
				r.set("temperature_c", (long long)l.temperature);
				r.set("speed", speedText(l.speed));
				r.set("action", actionText(l.action));
				r.set("period_s", (long long)l.period);
				r.set("threshold", (long long)l.threshold);
				levels.push(r);
				levelRows.push(r);
			}
			Value tv = Value::object();
			tv.set("type", (int)t->type);
			tv.set("table", VEXOFanTableNameGet(t->type));
			tv.set("levels", levels);
			tables.push(tv);
		}
		g.set("tables", (int)tables.asList().size());
		g.set("table_list", tables);
		groups.push(g);
	}
	return groups;
}

Value adtRecords(const VEXO_ADT_ADJUSTER_T &m)
{
	Value rows = Value::list();
	for (uint32_t i = 0; i < m.count; ++i) {
		const VEXO_ADT_CONFIG_T &c = m.configs[i];
		Value r = Value::object();
		int alerts = 0, pwms = 0, sensors = 0, manual = 0;
		for (auto *a = c.alerts; a; a = a->next)
			++alerts;
		for (auto *p = c.pwms; p; p = p->next)
			++pwms;
		for (auto *s = c.sensors; s; s = s->next)
			++sensors;
		for (auto *t = c.manual_tables; t; t = t->next)
			++manual;
		r.set("record", (int)i);
		r.set("type", (int)c.type);
		r.set("full_speed_c", c.full_speed);
		r.set("full_speed_hyst_c", c.full_speed_hyst);
		r.set("alerts", alerts);
		r.set("pwms", pwms);
		r.set("sensors", sensors);
		r.set("manual_tables", manual);
		r.set("fans", (long long)c.fan_mapping_count);
		rows.push(r);
	}
	return rows;
}

Value bmcRecords(const VEXO_BMC_ADJUSTER_T &m)
{
	Value rows = Value::list();
	for (uint32_t i = 0; i < m.count; ++i) {
		const VEXO_BMC_CONFIG_T &c = m.configs[i];
		Value order = Value::list();
		for (uint32_t k = 0; k < c.fan_mapping_count; ++k)
			order.push((long long)c.fan_mapping[k]);
		int alerts = 0;
		for (auto *a = c.alerts; a; a = a->next)
			++alerts;
		Value r = Value::object();
		r.set("record", (int)i);
		r.set("type", (int)c.type);
		r.set("alert_duty", (long long)c.alert_duty);
		r.set("alerts", alerts);
		r.set("fan_order", order);
		rows.push(r);
	}
	return rows;
}

int fanConfig(Context &ctx)
{
	if (!ctx.args.empty() || !ctx.options.empty())
		return fail("usage: fan config");
	VEXO_FAN_ADJUSTER_T m;
	if (VEXOFanAdjusterGet(&m, 1) != 0) {
		VEXOAdjusterModelFree(&m);
		return fail("fan config: no fan configuration could be read (see the log)");
	}
	Value levelRows = Value::list();
	Value groups = tableGroups(m, levelRows);
	VEXOAdjusterModelFree(&m);
	// The ADT and controller forms exist only on the boards that have them.
	VEXO_ADT_ADJUSTER_T adt;
	Value adtRows = VEXOFanADTAdjusterGet(&adt, 1) == 0 ? adtRecords(adt) : Value::list();
	VEXOAdjusterADTModelFree(&adt);
	VEXO_BMC_ADJUSTER_T bmc;
	Value bmcRows = VEXOFanBMCAdjusterGet(&bmc, 1) == 0 ? bmcRecords(bmc) : Value::list();
	VEXOAdjusterBMCModelFree(&bmc);
	int fans = VEXOFanNumGet();

	if (ctx.json) {
		Value r = Value::object();
		r.set("fans", fans > 0 ? Value(fans) : Value());
		r.set("groups", groups);
		r.set("adt", adtRows);
		r.set("bmc", bmcRows);
		printRecord(ctx, r);
		return 0;
	}
	printTable(ctx, groups,
		   {{"group", "GROUP"}, {"type", "TYPE"}, {"name", "NAME"}, {"hw_version", "HW"}, {"period_s", "PERIOD"},
		    {"threshold", "THRESHOLD"}, {"warning_temp_c", "WARN C"}, {"hibernation_speed", "HIBERNATION"},
		    {"tables", "TABLES"}},
		   ("fan groups (board fans: " + (fans > 0 ? std::to_string(fans) : std::string("unknown")) + ")").c_str());
	printTable(ctx, levelRows,
		   {{"group", "GROUP"}, {"table", "TABLE"}, {"level", "LEVEL"}, {"temperature_c", "FROM C"},
		    {"speed", "SPEED"}, {"action", "ACTION"}, {"period_s", "PERIOD"}, {"threshold", "THRESHOLD"}},
		   "levels");
	printTable(ctx, adtRows,
		   {{"record", "RECORD"}, {"type", "TYPE"}, {"full_speed_c", "FULL C"}, {"full_speed_hyst_c", "BACK C"},
		    {"alerts", "ALERTS"}, {"pwms", "PWMS"}, {"sensors", "SENSORS"}, {"manual_tables", "MANUAL"},
		    {"fans", "FANS"}},
		   "ADT controller");
	printTable(ctx, bmcRows,
		   {{"record", "RECORD"}, {"type", "TYPE"}, {"alert_duty", "ALERT DUTY"}, {"alerts", "ALERTS"},
		    {"fan_order", "FAN ORDER"}},
		   "management controller");
	return 0;
}

} // namespace

VEXO_CLI_COMMAND("fan config", "", "the board's fan groups, temperature tables and controller settings from vcemd.xml",
		 fanConfig, {});
