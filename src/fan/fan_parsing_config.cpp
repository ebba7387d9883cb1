// The table-driven model: every fan_config element of vcemd.xml becomes one
// VEXO_FAN_CONFIG_T with its temperature tables, its expansion unit fan
// modules, and the checks that make a table safe to drive fans from.
#include <cstring>
#include <memory>
#include <string>

#include "fan/fan_private.h"
#include "frame/err.h"
#include "frame/file_lock.h"
#include "frame/priv.h"

using namespace vexo::fan;

namespace {

struct TableFree {
	void operator()(VEXO_FAN_TABLE_T *t) const { freeTables(t); }
};
using TablePtr = std::unique_ptr<VEXO_FAN_TABLE_T, TableFree>;

// One level from its element: the text is the temperature, the attributes
// override what the level inherits from its group.
bool readLevel(const xmlNode *n, const VEXO_FAN_CONFIG_T *config, int index, VEXO_TEMPERATURE_FAN_LEVEL_T &level)
{
	const char *element = reinterpret_cast<const char *>(n->name);
	level.index = index;
	level.period = config->period;
	level.threshold = config->threshold;
	if (!readU32(content(n), level.temperature, element))
		return false;
	return eachAttribute(n, [&](const char *name, const std::string &value) {
		uint32_t code = 0;
		if (strcasecmp(name, "fan_speed") == 0) {
			VEXOFanSpeedMatch(value.c_str(), &code);
			level.speed = static_cast<FAN_SPEED>(code);
		} else if (strcasecmp(name, "action") == 0) {
			VEXOFanActionMatch(value.c_str(), &code);
			level.action = static_cast<FAN_ACTION>(code);
		} else if (strcasecmp(name, "period") == 0) {
			return readU32(value, level.period, element);
		} else if (strcasecmp(name, "threshold") == 0) {
			return readU32(value, level.threshold, element);
		}
		return true;
	});
}

// The table of one type from the children of its element name.
TablePtr readTable(const xmlNode *node, const VEXO_FAN_CONFIG_T *config, int type, const char *element, int count)
{
	TablePtr t(allocZeroed<VEXO_FAN_TABLE_T>());
	if (t)
		t->levels = allocZeroed<VEXO_TEMPERATURE_FAN_LEVEL_T>(count);
	if (!t || !t->levels) {
		vlog(LOG_ERR, "%s:%d malloc VEXO_TEMPERATURE_FAN_LEVEL_T error", VEXO_AT);
		vlog(LOG_ERR, "%s:%d Get <%s> Fan Table fail", VEXO_AT, element);
		return nullptr;
	}
	t->type = static_cast<FAN_TABLE_TYPE>(type);
	t->ops = VEXOFanTableTypeOpsGet(type);
	bool ok = true;
	eachElement(node, [&](xmlNode *c) {
		if (ok && nameIs(c, element)) {
			ok = readLevel(c, config, (int)t->count, t->levels[t->count]);
			++t->count;
		}
	});
	if (!ok) {
		vlog(LOG_ERR, "%s:%d Get <%s> Fan Table fail", VEXO_AT, element);
		return nullptr;
	}
	return t;
}

// Steps that make each table safe, and the warning temperatures the
// system shows. A failure to publish the disk warning ends the walk but
// not the parse: the tables are sound.
void postProcess(VEXO_FAN_CONFIG_T *config, int groupName)
{
	vexo::FileLock lock;
	for (VEXO_FAN_TABLE_T *t = config->tables; t; t = t->next) {
		if (t->count == 0)
			continue;
		const char *name = VEXOFanTableNameGet(t->type);
		VEXO_TEMPERATURE_FAN_LEVEL_T &last = t->levels[t->count - 1];
		if (last.action != FAN_ACTION_SHUTDOWN) {
			vlog(LOG_ERR, "%s:%d modify last temperature action of <%s> from %d to shutdown.", VEXO_AT, name,
			     (int)last.action);
			last.action = FAN_ACTION_SHUTDOWN;
		}
		if (last.temperature >= 121) {
			vlog(LOG_ERR, "%s:%d modify last temperature of <%s> from %d to 120.", VEXO_AT, name,
			     (int)last.temperature);
			last.temperature = 120;
		}
		// A file must give at least two levels; with one, that level
		// stands for the one before it rather than reading before the array.
		const VEXO_TEMPERATURE_FAN_LEVEL_T &before = t->count >= 2 ? t->levels[t->count - 2] : last;
		if ((t->type == FAN_TABLE_THERMAL || t->type == FAN_TABLE_CPU) && groupName == FAN_CONFIG_NAME_INTERNAL &&
		    (config->warning_temp < 1 || t->type == FAN_TABLE_CPU))
			config->warning_temp = (int32_t)((before.temperature + last.temperature) >> 1);
		if (t->type != FAN_TABLE_DISK)
			continue;
		if (!lock.take(VEXO_FAN_DISK_WARNING_LOCK, 15)) {
			vlog(LOG_ERR, "%s:%d fail to VLIBCFileLockTimeByFile %s", VEXO_AT, VEXO_FAN_DISK_WARNING_LOCK);
			break;
		}
		std::string text = std::to_string(before.temperature);
		int stored;
		{
			ENTERCriticalSection;
			stored = VLIBCFileSetKeyValue(VEXO_FAN_DISK_WARNING_FILE, "default", text.c_str(), nullptr);
		}
		if (stored != 1) {
			vlog(LOG_ERR, "%s:%d set disk warning key fail", VEXO_AT);
			break;
		}
	}
	if (!lock.release())
		vlog(LOG_ERR, "%s:%d fail to VLIBCFileLockTimeByFile %s", VEXO_AT, VEXO_FAN_DISK_WARNING_LOCK);
}

} // namespace

extern "C" VEXO_API int VEXOFanAdjusterConfigInit(VEXO_FAN_CONFIG_T *config, int with_default_table) try {
	if (!config)
		return -1;
	std::memset(config, 0, sizeof *config);
	config->period = 20;
	config->threshold = 6;
	config->type = DUAL_MODE_LOW;
	config->warning_temp = -1;
	if (with_default_table != 1)
		return 0;
	TablePtr t(allocZeroed<VEXO_FAN_TABLE_T>());
	if (!t) {
		vlog(LOG_ERR, "%s:%d malloc default fan table error", VEXO_AT);
		return -1;
	}
	t->levels = allocZeroed<VEXO_TEMPERATURE_FAN_LEVEL_T>(3);
	if (!t->levels) {
		vlog(LOG_ERR, "%s:%d malloc default fan table levels error", VEXO_AT);
		return -1;
	}
	constexpr struct {
		uint32_t temperature;
		FAN_ACTION action;
	} kDefault[] = {{45, FAN_ACTION_NONE}, {55, FAN_ACTION_NONE}, {65, FAN_ACTION_SHUTDOWN}};
	for (int i = 0; i < 3; ++i) {
		t->levels[i].temperature = kDefault[i].temperature;
		t->levels[i].speed = FAN_SPEED_FULL;
		t->levels[i].action = kDefault[i].action;
	}
	t->count = 3;
	t->type = FAN_TABLE_THERMAL;
	t->ops = VEXOFanTableTypeOpsGet(FAN_TABLE_THERMAL);
	config->ops = VEXOFanConfigOpsGet(FAN_CONFIG_NAME_INTERNAL);
	config->tables = t.release();
	return 0;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOFanParingTemperature(xmlNode *node, VEXO_FAN_CONFIG_T *config) try {
	if (!node || !config || config->tables)
		return -1;
	int groupName = VEXOFanConfigNameGet(config->type);
	VEXO_FAN_TABLE_T **tail = &config->tables;
	TablePtr nic;
	for (int type = kTableTypeFirst; type <= kTableTypeLast; ++type) {
		const TableTypeRow *row = tableTypeRow(type);
		if (!row)
			continue;
		int count = 0;
		eachElement(node, [&](xmlNode *c) { count += nameIs(c, row->element) ? 1 : 0; });
		if (count == 0 || !typeBelongsToGroup(type, groupName))
			continue;
		if (row->device && !nicInserted(VEXO_FAN_NIC_VENDOR, row->device))
			continue;
		TablePtr t = readTable(node, config, type, row->element, count);
		if (!t)
			return -1;
		if (type == FAN_TABLE_NIC) {
			nic = std::move(t);
			continue;
		}
		*tail = t.release();
		tail = &(*tail)->next;
	}
	// The generic adapter table is the catch-all for an inserted adapter
	// without a table of its own, so it comes last, or not at all.
	if (nic && !VEXOFanAllVexoNicHasFanConfig(config->tables))
		*tail = nic.release();
	return 0;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOFanParingFanModule(xmlNode *node, VEXO_FAN_CONFIG_T *config) try {
	if (!node || !config)
		return -1;
	if (VEXOFanConfigNameGet(config->type) != FAN_CONFIG_NAME_EBOX)
		return 0;
	std::free(config->modules);
	config->modules = allocZeroed<VEXO_FAN_MODULE_T>(VEXO_FAN_MODULE_MAX);
	if (!config->modules)
		return -1;
	for (int i = 0; i < VEXO_FAN_MODULE_MAX; ++i)
		config->modules[i].module = -1;
	int i = 0;
	bool ok = true, stop = false;
	eachElement(node, [&](xmlNode *c) {
		if (!ok || stop || !nameIs(c, "fan_module_config"))
			return;
		if (i >= VEXO_FAN_MODULE_MAX) {
			vlog(LOG_ERR, "%s:%d Out of range.", VEXO_AT);
			stop = true;
			return;
		}
		VEXO_FAN_MODULE_T &m = config->modules[i++];
		ok = eachAttribute(c, [&](const char *name, const std::string &value) {
			if (strcasecmp(name, "order") == 0)
				return readU32(value, m.order, "fan_module_config");
			if (strcasecmp(name, "module") == 0)
				return readI32(value, m.module, "fan_module_config");
			return true;
		});
	});
	return ok ? 0 : -1;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOFanParsingAdjustModel(xmlNode *node, VEXO_FAN_CONFIG_T *config) try {
	if (!node || !config)
		return -1;
	bool ok = eachAttribute(node, [&](const char *name, const std::string &value) {
		if (strcasecmp(name, "hibernation_speed") == 0) {
			uint32_t code = 0;
			VEXOFanSpeedMatch(value.c_str(), &code);
			config->hibernation_speed = static_cast<FAN_SPEED>(code);
		} else if (strcasecmp(name, "type") == 0) {
			VEXOFanConfigTypeMatch(value.c_str(), &config->type);
		} else if (strcasecmp(name, "hw_version") == 0) {
			std::free(config->hw_version);
			config->hw_version = hwVersionCopy(value.c_str());
		} else if (strcasecmp(name, "period") == 0) {
			return readU32(value, config->period, "fan_config");
		} else if (strcasecmp(name, "threshold") == 0) {
			return readU32(value, config->threshold, "fan_config");
		}
		return true;
	});
	if (!ok)
		return -1;
	if (VEXOFanParingTemperature(node, config) != 0) {
		vlog(LOG_ERR, "%s:%d Temperature node parse fail", VEXO_AT);
		return -1;
	}
	if (VEXOFanParingFanModule(node, config) != 0) {
		vlog(LOG_ERR, "%s:%d Ebox Fan Mapping parse fail", VEXO_AT);
		return -1;
	}
	int groupName = VEXOFanConfigNameGet(config->type);
	config->ops = VEXOFanConfigOpsGet(groupName);
	postProcess(config, groupName);
	return 0;
}
VEXO_C_CATCH(-1)

extern "C" VEXO_API int VEXOFanParsingConfig(const char *path, VEXO_FAN_ADJUSTER_T *model) try {
	return parseFile<VEXO_FAN_ADJUSTER_T, VEXO_FAN_CONFIG_T>(
		path, model, "fan_config", "/vcemd/fan_config",
		[](xmlNode *n, VEXO_FAN_CONFIG_T *c) {
			VEXOFanAdjusterConfigInit(c, 0);
			return VEXOFanParsingAdjustModel(n, c);
		},
		VEXOFanAdjusterConfigFullSpeed, "VEXOFanAdjusterConfigFullSpeed");
}
VEXO_C_CATCH(-1)
