// vexohw fan speed | time | dual-mode [set]: the user's fan settings kept in
// the system settings file. A set compares with what the library reads
// first, so a value that is already in force writes nothing and tells the
// daemon nothing; after a write the value is read back.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <strings.h>
#include <utility>
#include <vector>

#include <vexohw/ext.h>
#include <vexohw/fan_config.h>
#include <vexohw/fan_table.h>
#include <vexohw/vcemd.h>
#include <vexoplatform/vexocore.h>

#include "cli.h"

using namespace vexo::cli;

namespace {

constexpr const char *kInfoFile = "/etc/vexoinfo.conf";
constexpr const char *kInternalKey = "fan_config_type_internal";
constexpr const char *kEboxKey = "fan_config_type_ebox";
constexpr const char *kBackupKey = "fan_config_type_internal_backup";

// The global speed words in the order of their codes.
constexpr const char *kSpeeds[] = {"on", "off", "high", "low"};

// The dual modes by the header's names; CPUFAN has no user setting.
constexpr const char *kModeNames[] = {"DUAL_MODE_HIGH",	     "DUAL_MODE_LOW",	   "DUAL_MODE_LOW_STOP",
				      "DUAL_MODE_FULL",	     "DUAL_MODE_HIGH_EBOX", "DUAL_MODE_LOW_EBOX",
				      "DUAL_MODE_FULL_EBOX", "CPUFAN"};

Value modeName(int type)
{
	return type >= 0 && type <= CPUFAN ? Value(kModeNames[type]) : Value("unknown (" + std::to_string(type) + ")");
}

// What the settings file itself holds for a key: null when the key is not
// there (the library then reads its default).
Value stored(const char *key)
{
	char v[64] = "";
	return VLIBCFileGetKeyValue(kInfoFile, key, v, sizeof v, 0) > 0 ? Value(v) : Value();
}

int speedCode(const std::string &word)
{
	for (int i = 0; i < 4; ++i)
		if (strcasecmp(word.c_str(), kSpeeds[i]) == 0)
			return i;
	return -1;
}

// A change record: the setting, the value before and after, whether the
// file changed.
Value changeRecord(const char *setting, Value from, Value to, bool changed)
{
	Value r = Value::object();
	r.set("setting", setting);
	r.set("from", std::move(from));
	r.set("to", std::move(to));
	r.set("changed", changed);
	return r;
}

void sayUnchanged(const Context &ctx, const char *what)
{
	if (!ctx.json)
		std::printf("\n%s is so already: nothing written.\n", what);
}

int fanSpeed(Context &ctx)
{
	if (!ctx.args.empty())
		return fail("usage: fan speed");
	const int code = VEXOFanConfigSpeedGet();
	Value r = Value::object();
	r.set("setting", "fanspeed");
	r.set("value", code >= 0 && code <= 3 ? kSpeeds[code] : "on");
	r.set("code", code);
	r.set("stored", stored("fanspeed"));
	printRecord(ctx, r);
	return 0;
}

int fanSpeedSet(Context &ctx)
{
	if (ctx.args.size() != 1)
		return fail("usage: fan speed set on|off|high|low");
	const int want = speedCode(ctx.args[0]);
	if (want < 0)
		return fail("fan speed set: \"%s\" is not a fan speed (on, off, high or low)", ctx.args[0].c_str());
	const int before = VEXOFanConfigSpeedGet();
	if (before == want) {
		printRecord(ctx, changeRecord("fanspeed", kSpeeds[want], kSpeeds[want], false));
		sayUnchanged(ctx, "the fan speed");
		return 0;
	}
	if (VEXOFanConfigSpeedSet(want) != 0)
		return fail("fan speed set: VEXOFanConfigSpeedSet(%d) failed (error 0x%04X)", want, VLIBCErrGet());
	const int after = VEXOFanConfigSpeedGet();
	if (after != want)
		return fail("fan speed set: written, but fanspeed reads back as \"%s\"", kSpeeds[after & 3]);
	printRecord(ctx, changeRecord("fanspeed", kSpeeds[before & 3], kSpeeds[want], true));
	return 0;
}

int fanTime(Context &ctx)
{
	if (!ctx.args.empty())
		return fail("usage: fan time");
	Value r = Value::object();
	r.set("setting", "fantime");
	r.set("value", VEXOFanConfigTimeGet());
	r.set("stored", stored("fantime"));
	printRecord(ctx, r);
	return 0;
}

// fantime is read back as a decimal int: only such text is stored, so what
// is written is what is read.
bool wholeNumber(const std::string &text, long &out)
{
	if (text.empty() || text.size() > 10 || text.find_first_not_of("0123456789") != std::string::npos)
		return false;
	errno = 0;
	out = std::strtol(text.c_str(), nullptr, 10);
	return errno == 0 && out <= INT_MAX;
}

int fanTimeSet(Context &ctx)
{
	if (ctx.args.size() != 1)
		return fail("usage: fan time set NUMBER");
	long n = 0;
	if (!wholeNumber(ctx.args[0], n))
		return fail("fan time set: \"%s\" is not a whole number from 0 to %d", ctx.args[0].c_str(), INT_MAX);
	const std::string text = std::to_string(n); // "007" is stored as "7"
	const int before = VEXOFanConfigTimeGet();
	if (before == n) {
		printRecord(ctx, changeRecord("fantime", before, before, false));
		sayUnchanged(ctx, "the fan time");
		return 0;
	}
	if (VEXOFanConfigTimeSet(text.c_str()) != 0)
		return fail("fan time set: VEXOFanConfigTimeSet(\"%s\") failed (error 0x%04X)", text.c_str(), VLIBCErrGet());
	if (VEXOFanConfigTimeGet() != n)
		return fail("fan time set: written, but fantime reads back as %d", VEXOFanConfigTimeGet());
	printRecord(ctx, changeRecord("fantime", before, (int)n, true));
	return 0;
}

// The key of a group as a user may name it: "internal", "ebox" or the key.
const char *dualModeKey(const std::string &word)
{
	if (strcasecmp(word.c_str(), "internal") == 0 || strcasecmp(word.c_str(), kInternalKey) == 0)
		return kInternalKey;
	if (strcasecmp(word.c_str(), "ebox") == 0 || strcasecmp(word.c_str(), kEboxKey) == 0)
		return kEboxKey;
	return nullptr;
}

// The fan group types the board's vcemd.xml has a configuration for.
std::vector<int> boardTypes()
{
	std::vector<int> out;
	VEXO_FAN_ADJUSTER_T m;
	if (VEXOFanAdjusterGet(&m, 1) == 0)
		for (uint32_t i = 0; i < m.count; ++i)
			out.push_back(m.configs[i].type);
	VEXOAdjusterModelFree(&m);
	return out;
}

bool has(const std::vector<int> &v, int x)
{
	for (int e : v)
		if (e == x)
			return true;
	return false;
}

Value dualModeRow(const char *key, const std::vector<int> &types)
{
	const int mode = VEXOFanAdjustDualModeGet(key);
	Value r = Value::object();
	r.set("key", key);
	r.set("group", std::strcmp(key, kInternalKey) == 0 ? "internal" : "ebox");
	r.set("mode", modeName(mode));
	r.set("code", mode);
	r.set("stored", stored(key));
	// A mode the board has no table for leaves the daemon without one to run.
	r.set("board_has_table", has(types, mode));
	return r;
}

int fanDualMode(Context &ctx)
{
	if (ctx.args.size() > 1)
		return fail("usage: fan dual-mode [internal|ebox]");
	const std::vector<int> types = boardTypes();
	if (ctx.args.size() == 1) {
		const char *key = dualModeKey(ctx.args[0]);
		if (!key)
			return fail("fan dual-mode: \"%s\" is neither internal nor ebox (or %s, %s)", ctx.args[0].c_str(),
				    kInternalKey, kEboxKey);
		printRecord(ctx, dualModeRow(key, types));
		return 0;
	}
	Value rows = Value::list();
	rows.push(dualModeRow(kInternalKey, types));
	rows.push(dualModeRow(kEboxKey, types));
	if (ctx.json) {
		Value r = Value::object();
		r.set("modes", rows);
		r.set("backup", stored(kBackupKey));
		printRecord(ctx, r);
		return 0;
	}
	printTable(ctx, rows,
		   {{"group", "GROUP"}, {"mode", "MODE"}, {"code", "CODE"}, {"stored", "STORED"},
		    {"board_has_table", "BOARD TABLE"}},
		   "fan dual mode");
	const Value backup = stored(kBackupKey);
	if (!backup.isNull())
		std::printf("\nsaved internal mode (%s): %s\n", kBackupKey, backup.text().c_str());
	return 0;
}

int modeByName(const std::string &word)
{
	for (int i = 0; i < CPUFAN; ++i)
		if (strcasecmp(word.c_str(), kModeNames[i]) == 0)
			return i;
	return -1;
}

int fanDualModeSet(Context &ctx)
{
	if (ctx.args.size() != 1)
		return fail("usage: fan dual-mode set TYPE [--no-notify]");
	const int type = modeByName(ctx.args[0]);
	if (type < 0) {
		std::string names;
		for (int i = 0; i < CPUFAN; ++i)
			names += std::string(i ? ", " : "") + kModeNames[i];
		return fail("fan dual-mode set: \"%s\" is not a mode a user sets (%s)", ctx.args[0].c_str(), names.c_str());
	}
	const bool notify = !ctx.has("no-notify");
	const bool internal = VEXOFanConfigNameGet(type) == FAN_CONFIG_NAME_INTERNAL;
	const char *key = internal ? kInternalKey : kEboxKey;
	const int before = VEXOFanAdjustDualModeGet(key);
	Value r = changeRecord(key, modeName(before), modeName(type), before != type);
	r.set("notify", Value());
	if (before == type) {
		printRecord(ctx, r);
		sayUnchanged(ctx, (std::string("the ") + (internal ? "internal" : "ebox") + " fan mode").c_str());
		return 0;
	}
	const int rc = notify ? VEXOFanAdjustDualModeSet(type) : VEXOFanAdjustDualModeSetWithoutNotify(type);
	if (rc != 0)
		return fail("fan dual-mode set: %s(%s) failed (error 0x%04X)",
			    notify ? "VEXOFanAdjustDualModeSet" : "VEXOFanAdjustDualModeSetWithoutNotify", kModeNames[type],
			    VLIBCErrGet());
	const int after = VEXOFanAdjustDualModeGet(key);
	if (after != type)
		return fail("fan dual-mode set: written, but %s reads back as %s", key, modeName(after).text().c_str());
	int pid = 0;
	const bool daemon = VEXOExtVcemdPidGet(&pid) == 1;
	if (notify) {
		r.set("notify", internal ? VEXO_VCEMD_NOTIFY_FAN_MODE : VEXO_VCEMD_NOTIFY_FAN_MODE2);
		r.set("daemon_running", daemon);
	}
	printRecord(ctx, r);
	if (notify && !daemon && !ctx.json)
		std::printf("\nnote: the platform daemon is not running: it takes the mode when it starts.\n");
	if (!has(boardTypes(), type) && !ctx.json)
		std::printf("\nnote: this board's vcemd.xml has no fan table for %s.\n", kModeNames[type]);
	return 0;
}

// Which group a fan configuration type feeds, and whether the user's mode
// makes it the one the daemon runs now.
bool inUse(int type, int internalMode, int eboxMode)
{
	switch (VEXOFanConfigNameGet(type)) {
	case FAN_CONFIG_NAME_INTERNAL:
		return type == internalMode;
	case FAN_CONFIG_NAME_EBOX:
		return type == eboxMode;
	default:
		return true; // the CPU fan has no mode to choose
	}
}

Value shutdownRow(const char *model, int group, int type, bool used, int table, int temp)
{
	Value r = Value::object();
	r.set("model", model);
	r.set("group", group);
	r.set("mode", modeName(type));
	r.set("in_use", used);
	r.set("table", VEXOFanTableNameGet(table));
	r.set("shutdown_c", temp < 0 ? Value() : Value(temp));
	return r;
}

// The temperature at which each table of the board shuts the box down, in
// the table-driven model (its first shutdown level) and in the controller
// models (their alert records).
int fanShutdownTemp(Context &ctx)
{
	if (!ctx.args.empty())
		return fail("usage: fan shutdown-temp");
	VEXO_FAN_ADJUSTER_T m;
	if (VEXOFanAdjusterGet(&m, 1) != 0) {
		VEXOAdjusterModelFree(&m);
		return fail("fan shutdown-temp: VEXOFanAdjusterGet failed: no fan configuration could be read (error "
			    "0x%04X)",
			    VLIBCErrGet());
	}
	const int internalMode = VEXOFanAdjustDualModeGet(kInternalKey), eboxMode = VEXOFanAdjustDualModeGet(kEboxKey);
	Value rows = Value::list();
	for (uint32_t i = 0; i < m.count; ++i) {
		VEXO_FAN_CONFIG_T &c = m.configs[i];
		for (VEXO_FAN_TABLE_T *t = c.tables; t; t = t->next)
			rows.push(shutdownRow("table", (int)i, c.type, inUse(c.type, internalMode, eboxMode), t->type,
					      VEXOFanShutdownTempGet(t)));
	}
	VEXOAdjusterModelFree(&m);
	VEXO_ADT_ADJUSTER_T adt;
	if (VEXOFanADTAdjusterGet(&adt, 1) == 0)
		for (uint32_t i = 0; i < adt.count; ++i)
			for (const VEXO_ADT_ALERT_T *a = adt.configs[i].alerts; a; a = a->next)
				rows.push(shutdownRow("adt", (int)i, adt.configs[i].type,
						      inUse(adt.configs[i].type, internalMode, eboxMode), a->name,
						      a->shutdown_temp));
	VEXOAdjusterADTModelFree(&adt);
	VEXO_BMC_ADJUSTER_T bmc;
	if (VEXOFanBMCAdjusterGet(&bmc, 1) == 0)
		for (uint32_t i = 0; i < bmc.count; ++i)
			for (const VEXO_BMC_ALERT_T *a = bmc.configs[i].alerts; a; a = a->next)
				rows.push(shutdownRow("bmc", (int)i, bmc.configs[i].type,
						      inUse(bmc.configs[i].type, internalMode, eboxMode), a->name,
						      a->shutdown_temp));
	VEXOAdjusterBMCModelFree(&bmc);
	printTable(ctx, rows,
		   {{"model", "MODEL"}, {"group", "GROUP"}, {"mode", "MODE"}, {"in_use", "IN USE"}, {"table", "TABLE"},
		    {"shutdown_c", "SHUTDOWN C"}},
		   "shutdown temperatures (IN USE: the group the user's mode runs now)");
	return 0;
}

// Table types in their order, 19 and 20 being unused.
std::vector<int> tableTypes()
{
	std::vector<int> out;
	for (int t = FAN_TABLE_THERMAL; t < FAN_TABLE_END; ++t)
		if (t != 19 && t != 20)
			out.push_back(t);
	return out;
}

// Whether the adapter of a table type sits in the box, as the parser sees
// it: a list holding every type but this one misses only this adapter.
bool adapterInserted(int type)
{
	std::vector<VEXO_FAN_TABLE_T> list;
	for (int t : tableTypes())
		if (t != type) {
			VEXO_FAN_TABLE_T e{};
			e.type = static_cast<FAN_TABLE_TYPE>(t);
			list.push_back(e);
		}
	for (size_t k = 0; k + 1 < list.size(); ++k)
		list[k].next = &list[k + 1];
	return VEXOFanAllVexoNicHasFanConfig(list.data()) == 0;
}

std::string shortName(int type)
{
	std::string n = VEXOFanTableNameGet(type);
	const std::string tail = "_temperature";
	if (n.size() > tail.size() && n.compare(n.size() - tail.size(), tail.size(), tail) == 0)
		n.resize(n.size() - tail.size());
	return n;
}

// The file through which a table's source can be overridden for a test of
// the fan loop; "" for the expansion unit's, named after its disks.
std::string debugFile(int type)
{
	switch (type) {
	case FAN_TABLE_THERMAL:
		return "/tmp/systmp.txt";
	case FAN_TABLE_DISK:
		return "/tmp/disktmp.txt";
	case FAN_TABLE_EBOX_DISK:
		return "";
	case FAN_TABLE_NIC:
		return "/tmp/nictmp.txt";
	case FAN_TABLE_XNIC08:
	case FAN_TABLE_XNIC09:
	case FAN_TABLE_XNIC10:
		return "/tmp/xnic08tmp.txt";
	case FAN_TABLE_XNIC06:
	case FAN_TABLE_XNIC07:
		return "/tmp/xnic06tmp.txt";
	}
	return "/tmp/" + shortName(type) + "tmp.txt";
}

Value namesOf(const std::vector<int> &types)
{
	Value l = Value::list();
	for (int t : types)
		l.push(VEXOFanTableNameGet(t));
	return l;
}

struct Models {
	VEXO_FAN_ADJUSTER_T fan{};
	VEXO_ADT_ADJUSTER_T adt{};
	bool fanOk = false, adtOk = false;
	Models()
	{
		fanOk = VEXOFanAdjusterGet(&fan, 1) == 0;
		adtOk = VEXOFanADTAdjusterGet(&adt, 1) == 0;
	}
	~Models()
	{
		VEXOAdjusterModelFree(&fan);
		VEXOAdjusterADTModelFree(&adt);
	}
	Models(const Models &) = delete;
	Models &operator=(const Models &) = delete;
};

Value groupRows(const Models &m)
{
	Value rows = Value::list();
	for (uint32_t i = 0; m.fanOk && i < m.fan.count; ++i) {
		const VEXO_FAN_CONFIG_T &c = m.fan.configs[i];
		std::vector<int> present, nic;
		for (int t : tableTypes())
			if (VEXOFanIsFanConfigExist(c.tables, t)) {
				present.push_back(t);
				if (VEXOFanIsNicFanTable(t))
					nic.push_back(t);
			}
		Value r = Value::object();
		r.set("model", "table");
		r.set("group", (int)i);
		r.set("mode", modeName(c.type));
		r.set("tables", namesOf(present));
		r.set("adapter_tables", namesOf(nic));
		r.set("adapters_covered", VEXOFanAllVexoNicHasFanConfig(c.tables) == 1);
		r.set("manual", Value());
		rows.push(r);
	}
	for (uint32_t i = 0; m.adtOk && i < m.adt.count; ++i) {
		const VEXO_ADT_CONFIG_T &c = m.adt.configs[i];
		const bool manual = VEXOADTIsManualMode(c.pwms) == 1;
		std::vector<int> present, nic;
		for (int t : tableTypes())
			if (manual ? VEXOFanIsFanManualConfigExist(c.manual_tables, t) : VEXOFanIsFanAlertConfigExist(c.alerts, t)) {
				present.push_back(t);
				if (VEXOFanIsNicFanTable(t))
					nic.push_back(t);
			}
		Value r = Value::object();
		r.set("model", "adt");
		r.set("group", (int)i);
		r.set("mode", modeName(c.type));
		r.set("tables", namesOf(present));
		r.set("adapter_tables", namesOf(nic));
		r.set("adapters_covered", (manual ? VEXOFanAllVexoNicHasManualConfig(c.manual_tables)
						  : VEXOFanAllVexoNicHasAlertConfig(c.alerts)) == 1);
		r.set("manual", manual);
		rows.push(r);
	}
	return rows;
}

// Every adapter kind with a table type: its ids, whether it is in the box
// and which configurations carry a table of its own for it.
Value adapterRows(const Models &m, bool insertedOnly)
{
	Value rows = Value::list();
	for (int t : tableTypes()) {
		int vendor = 0, device = 0;
		if (VEXOFanTableNicSSIDGet(t, &vendor, &device) != 0)
			continue;
		const bool inserted = adapterInserted(t);
		if (insertedOnly && !inserted)
			continue;
		Value groups = Value::list(), adt = Value::list();
		for (uint32_t i = 0; m.fanOk && i < m.fan.count; ++i)
			if (VEXOFanIsFanConfigExist(m.fan.configs[i].tables, t))
				groups.push((int)i);
		for (uint32_t i = 0; m.adtOk && i < m.adt.count; ++i)
			if (VEXOFanIsFanAlertConfigExist(m.adt.configs[i].alerts, t) ||
			    VEXOFanIsFanManualConfigExist(m.adt.configs[i].manual_tables, t))
				adt.push((int)i);
		char ids[32];
		std::snprintf(ids, sizeof ids, "%04x:%04x", (unsigned)vendor, (unsigned)device);
		Value r = Value::object();
		r.set("table", VEXOFanTableNameGet(t));
		r.set("type", t);
		r.set("ids", ids);
		r.set("inserted", inserted);
		r.set("groups", groups);
		r.set("adt_groups", adt);
		rows.push(r);
	}
	return rows;
}

// The debug override files that are set now: each replaces a source's
// reading in the fan loop.
Value overrideRows()
{
	Value rows = Value::list();
	std::vector<std::pair<std::string, std::string>> files; // path, table
	for (int t : tableTypes()) {
		const std::string f = debugFile(t);
		bool seen = f.empty();
		for (const auto &e : files)
			seen = seen || e.first == f;
		if (!seen)
			files.emplace_back(f, VEXOFanTableNameGet(t));
	}
	files.emplace_back(VEXO_FAN_ALL_DISK_FAIL_FILE, "all disks failing");
	for (const auto &[path, table] : files) {
		VEXO_FAN_READING_T reading{};
		if (VEXOFanIsTemperatureDebugON(&reading, path.c_str()) != 1)
			continue;
		Value r = Value::object();
		r.set("file", path);
		r.set("table", table);
		r.set("temperature_c", reading.temperature);
		r.set("name", reading.name[0] ? Value(reading.name) : Value());
		rows.push(r);
	}
	return rows;
}

int fanTables(Context &ctx)
{
	if (!ctx.args.empty())
		return fail("usage: fan tables [--inserted]");
	const Models m;
	if (!m.fanOk && !m.adtOk)
		return fail("fan tables: VEXOFanAdjusterGet and VEXOFanADTAdjusterGet failed: no fan configuration could "
			    "be read (error 0x%04X)",
			    VLIBCErrGet());
	Value groups = groupRows(m), adapters = adapterRows(m, ctx.has("inserted")), overrides = overrideRows();
	if (ctx.json) {
		Value r = Value::object();
		r.set("groups", groups);
		r.set("adapters", adapters);
		r.set("debug_overrides", overrides);
		printRecord(ctx, r);
		return 0;
	}
	printTable(ctx, groups,
		   {{"model", "MODEL"}, {"group", "GROUP"}, {"mode", "MODE"}, {"manual", "MANUAL"},
		    {"adapters_covered", "ADAPTERS COVERED"}, {"tables", "TABLES"}},
		   "fan groups and their tables");
	std::printf("\n");
	printTable(ctx, adapters,
		   {{"table", "TABLE"}, {"ids", "IDS"}, {"inserted", "INSERTED"}, {"groups", "GROUPS"},
		    {"adt_groups", "ADT GROUPS"}},
		   "network adapters with fans of their own");
	std::printf("\n");
	if (overrides.asList().empty())
		std::printf("no debug override file is set: every table reads its own source\n");
	else
		printTable(ctx, overrides,
			   {{"file", "FILE"}, {"table", "TABLE"}, {"temperature_c", "TEMP C"}, {"name", "NAME"}},
			   "debug overrides in force");
	return 0;
}

} // namespace

VEXO_CLI_COMMAND("fan speed", "", "the global fan setting (fanspeed: on, off, high or low)", fanSpeed, {});
VEXO_CLI_COMMAND("fan speed set", "on|off|high|low", "store the global fan setting (nothing written when so already)",
		 fanSpeedSet, {});
VEXO_CLI_COMMAND("fan time", "", "the fantime setting as the library reads it", fanTime, {});
VEXO_CLI_COMMAND("fan time set", "NUMBER", "store fantime (a whole number; nothing written when so already)",
		 fanTimeSet, {});
VEXO_CLI_COMMAND("fan dual-mode", "[internal|ebox]", "the user's fan mode of the internal and expansion unit groups",
		 fanDualMode, {});
VEXO_CLI_COMMAND("fan dual-mode set", "TYPE [--no-notify]",
		 "store a group's fan mode (DUAL_MODE_HIGH, ...) and tell the daemon, unless so already", fanDualModeSet,
		 {});
VEXO_CLI_COMMAND("fan shutdown-temp", "", "the temperature at which each fan table shuts the box down",
		 fanShutdownTemp, {});
VEXO_CLI_COMMAND("fan tables", "[--inserted]",
		 "which tables each fan group has, the adapters with fans and their tables, the debug overrides set",
		 fanTables, {});
