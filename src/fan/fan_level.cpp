// The decisions of the fan loop: the level of a temperature, the update of
// the status nodes from their sources, the fold of the nodes into one
// speed, and the band that lets the fans come down one level at a time.
#include <cstdint>
#include <cstring>
#include <vexohw/fan_table.h>

#include "fan/fan_private.h"
#include "frame/boundary.h"
#include "frame/clock.h"
#include "frame/err.h"
#include "frame/sysroot.h"

namespace {

// What a group falls to while its disks sleep.
constexpr VEXO_TEMPERATURE_FAN_LEVEL_T kIdleLevel = {UINT32_MAX, FAN_SPEED_UNKNOWN, FAN_ACTION_NONE, 20, 6, -1};

// A code of 1001 and up carries duty in its low byte and frequency above;
// anything lower (1000 included) is its own duty at frequency 0.
uint32_t duty(uint32_t code) { return code > FAN_SPEED_DUTY_BASE ? (code - FAN_SPEED_DUTY_BASE) & 0xFF : code; }
uint32_t frequency(uint32_t code) { return code > FAN_SPEED_DUTY_BASE ? (code - FAN_SPEED_DUTY_BASE) >> 8 : 0; }

bool beats(const VEXO_FAN_STATUS_T &node, const VEXO_FAN_STATUS_T &result)
{
	if (node.action == FAN_ACTION_SHUTDOWN)
		return true;
	if (node.speed == FAN_SPEED_UNKNOWN)
		return false;
	uint32_t dn = duty(node.speed);
	if (result.speed == FAN_SPEED_UNKNOWN)
		return dn != 0;
	uint32_t dr = duty(result.speed);
	if (dn != dr)
		return dn > dr;
	return frequency(node.speed) > frequency(result.speed);
}

// The node as the level left it: count, figures and the reading.
void adopt(VEXO_FAN_STATUS_T &node, const VEXO_TEMPERATURE_FAN_LEVEL_T &level, int temperature)
{
	node.level = level.index;
	node.period = level.period;
	node.threshold = level.threshold;
	node.speed = level.speed;
	node.action = level.action;
	node.count = 0;
	node.temperature = temperature;
}

// Whether a product wants full speed when no disk reports: the marker file
// and the product's switch both have to say so.
bool allDiskFailGoesFull()
{
	if (vexo::sysroot::access(VEXO_FAN_ALL_DISK_FAIL_FILE, F_OK) != 0)
		return false;
	char value[64] = {};
	return VLIBCFileGetKeyValue("/etc.defaults/vexoinfo.conf", "support_fan_adjust_by_all_disk_temp_fail", value,
				    sizeof value, 0) > 0 &&
	       std::strcmp(value, "full") == 0;
}

enum class Step { Skip, Level, Idle };

// Steps 4 to 7 of a pair: the reading and what to do with it.
Step readNode(VEXO_FAN_HANDLE_T *h, VEXO_FAN_TABLE_T *t, VEXO_FAN_TABLE_T *first, VEXO_FAN_STATUS_T &node,
	      VEXO_FAN_READING_T &reading, int *flags, std::time_t now)
{
	const char *name = VEXOFanTableNameGet(t->type);
	int source = 0;
	*flags |= t->ops->DebugTemperatureGet(&reading, h, &source);
	if (reading.temperature > 0)
		return source == FAN_SOURCE_HIBERNATE ? Step::Idle : Step::Level;
	if (!t->ops->TemperatureGet) {
		vlog(LOG_ERR, "%s:%d <%s> doesn't have TemperatureGet ops\n", VEXO_AT, name);
		return Step::Skip;
	}
	h->threshold_cur = node.threshold;
	reading = VEXO_FAN_READING_T{};
	source = t->ops->TemperatureGet(&reading, h);
	switch (source) {
	case FAN_SOURCE_NONE:
		if (VEXOFanIsNicFanTable(t->type)) {
			reading.temperature = 0;
			return Step::Level;
		}
		if (t->type == FAN_TABLE_DISK && allDiskFailGoesFull()) {
			vlog(LOG_ERR, "%s:%d  <%s> Temperature Get fail But Adj Fan to FULL speed\n", VEXO_AT, name);
			reading.temperature = 1000;
			return Step::Level;
		}
		vlog(LOG_ERR, "%s:%d  <%s> Temperature Get fail\n", VEXO_AT, name);
		return Step::Skip;
	case FAN_SOURCE_SSD:
		if (first->levels && first->count)
			node.period = first->levels[0].period;
		node.last_update = now;
		return Step::Skip;
	case FAN_SOURCE_HIBERNATE:
		return Step::Idle;
	case FAN_SOURCE_UNKNOWN:
		return Step::Skip;
	default:
		return Step::Level;
	}
}

} // namespace

extern "C" VEXO_API int VEXOFanTableLevelGet(VEXO_TEMPERATURE_FAN_LEVEL_T *level, int temperature,
					     VEXO_FAN_TABLE_T *table)
{
	if (!level || !table || !table->levels || table->count == 0 || temperature < 0) {
		vlog(LOG_ERR, "%s:%d (%s): Wrong parameters\n", VEXO_AT, __func__);
		return -1;
	}
	uint32_t i = 0;
	while (i + 1 < table->count && table->levels[i + 1].temperature <= (uint32_t)temperature)
		++i;
	*level = table->levels[i];
	return (int)i;
}

extern "C" VEXO_API int VEXOFanShutdownTempGet(VEXO_FAN_TABLE_T *table)
{
	if (!table) {
		vlog(LOG_ERR, "%s:%d (%s): Wrong parameters\n", VEXO_AT, __func__);
		return -1;
	}
	if (!table->levels || table->count == 0) {
		vlog(LOG_ERR, "%s:%d (%s): Wrong table size\n", VEXO_AT, __func__);
		return -1;
	}
	for (uint32_t i = 0; i < table->count; ++i)
		if (table->levels[i].action == FAN_ACTION_SHUTDOWN)
			return (int)table->levels[i].temperature;
	vlog(LOG_ERR, "%s:%d (%s): Shutdown temperature is not found\n", VEXO_AT, __func__);
	return -1;
}

extern "C" VEXO_API int VEXOFanTemperatureUpdate(VEXO_FAN_HANDLE_T *h, VEXO_FAN_TABLE_T *tables, int *flags) try {
	if (!h || !tables || !flags || !h->status_list) {
		vlog(LOG_ERR, "%s:%d wrong parameters", VEXO_AT);
		return 0;
	}
	const std::time_t now = vexo::clock::wallSeconds();
	int changed = 0;
	VEXO_FAN_STATUS_T *node = h->status_list;
	for (VEXO_FAN_TABLE_T *t = tables; t && node; t = t->next, node = node->next) {
		const char *name = VEXOFanTableNameGet(t->type);
		if (node->table_type != t->type) {
			vlog(LOG_ERR, "%s:%d Current status list miss match Fan Table", VEXO_AT);
			continue;
		}
		// A clock set back makes the reading due rather than never.
		if (!h->force && now >= node->last_update && now - node->last_update < (std::time_t)node->period)
			continue;
		if (!t->ops || !t->ops->DebugTemperatureGet) {
			vlog(LOG_ERR, "%s:%d <%s> doesn't have ops\n", VEXO_AT, name);
			continue;
		}
		VEXO_FAN_READING_T reading{};
		VEXO_TEMPERATURE_FAN_LEVEL_T level{};
		Step step = readNode(h, t, tables, *node, reading, flags, now);
		if (step == Step::Skip)
			continue;
		if (step == Step::Idle) {
			level = kIdleLevel;
		} else {
			if (!t->ops->LevelGet) {
				vlog(LOG_ERR, "%s:%d <%s> doesn't have LevelGet ops\n", VEXO_AT, name);
				continue;
			}
			if (t->ops->LevelGet(&level, reading.temperature, t) < 0) {
				vlog(LOG_ERR, "%s:%d <%s> get level fail\n", VEXO_AT, name);
				continue;
			}
		}
		node->count = level.index == node->level ? 0 : node->count + 1;
		if (h->force || node->count >= node->threshold)
			adopt(*node, level, reading.temperature);
		if (node->action == FAN_ACTION_SHUTDOWN && t->ops->TemperatureTune)
			node->tuned = t->ops->TemperatureTune(h, VEXOFanShutdownTempGet(t));
		node->last_update = now;
		changed = 1;
	}
	return changed;
}
VEXO_C_CATCH(0)

extern "C" VEXO_API int VEXOFanTableLookUp(VEXO_FAN_HANDLE_T *h, VEXO_FAN_TABLE_T *tables, VEXO_FAN_STATUS_T *result)
{
	(void)tables;
	if (!h || !result) {
		vlog(LOG_ERR, "%s:%d wrong parameters", VEXO_AT);
		return 0;
	}
	*result = VEXO_FAN_STATUS_T{};
	result->level = -1;
	for (const VEXO_FAN_STATUS_T *n = h->status_list; n; n = n->next) {
		result->action = static_cast<FAN_ACTION>(result->action | n->action);
		if (!beats(*n, *result))
			continue;
		result->speed = n->speed;
		result->level = n->level;
		result->period = n->period;
		result->threshold = n->threshold;
		result->table_type = n->table_type;
	}
	if (result->level < 0 || result->speed == FAN_SPEED_UNKNOWN)
		return 0;
	return result->table_type != FAN_TABLE_UNKNOWN && result->table_type != FAN_TABLE_END;
}

extern "C" VEXO_API int VEXOIsOverBufferLimit(VEXO_FAN_HANDLE_T *h, VEXO_FAN_TABLE_T *tables,
					      VEXO_FAN_STATUS_T *result)
{
	if (!h || !tables || !result || !h->current)
		return 0;
	const VEXO_FAN_STATUS_T &cur = *h->current;
	if (result->table_type != cur.table_type)
		return 1;
	VEXO_FAN_TABLE_T *t = VEXOFanTableGet(result->table_type, tables);
	if (!t || !t->levels || !t->ops || result->level < 0 || (uint32_t)result->level >= t->count)
		return 0;
	if (result->level == cur.level - 1) {
		VEXO_FAN_READING_T reading{};
		int source = 0;
		if (t->ops->DebugTemperatureGet)
			t->ops->DebugTemperatureGet(&reading, h, &source);
		if (reading.temperature <= 0) {
			reading = VEXO_FAN_READING_T{};
			// A failed read is no evidence the temperature came down.
			if (!t->ops->TemperatureGet || t->ops->TemperatureGet(&reading, h) == FAN_SOURCE_NONE)
				return 0;
		}
		return (int64_t)reading.temperature <= (int64_t)t->levels[result->level].temperature;
	}
	if (result->level < cur.level - 1) {
		uint32_t to = (uint32_t)(cur.level - 1);
		if (to >= t->count)
			return 0;
		uint32_t action = (result->action & ~t->levels[result->level].action) | t->levels[to].action;
		result->level = (int32_t)to;
		result->speed = t->levels[to].speed;
		result->action = static_cast<FAN_ACTION>(action);
		return 1;
	}
	return 0;
}
